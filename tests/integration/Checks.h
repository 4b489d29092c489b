/* What a test program in C needs: checks that count and say what failed, and the process's standard
   output in a file that the program reads back. C99 with POSIX. */

#ifndef KELVIK_TESTS_CHECKS_H_
#define KELVIK_TESTS_CHECKS_H_

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { kPrintedBytes = 16384 };

static int s_Failures;
static int s_CaptureFd = -1;

#define CHECK_INT(expected, actual) \
  CheckInt((long)(expected), (long)(actual), #actual, __FILE__, __LINE__)
#define CHECK_PRINTED(expected) CheckPrinted((expected), __FILE__, __LINE__)

static void CheckInt(long expected, long actual, const char* what, const char* file, int line) {
  if (expected == actual) return;
  s_Failures++;
  fprintf(stderr, "%s:%d: %s is %ld, not %ld\n", file, line, what, actual, expected);
}

/* From here on standard output goes to an unnamed file. */
static void CapturePrinted(void) {
  char path[] = "/tmp/kelvik-printed-XXXXXX";
  s_CaptureFd = mkstemp(path);
  if (s_CaptureFd == -1 || unlink(path) != 0 || dup2(s_CaptureFd, STDOUT_FILENO) == -1) {
    perror("capture of standard output");
    exit(2);
  }
}

/* Compares what was printed since the last call. */
static void CheckPrinted(const char* expected, const char* file, int line) {
  static char printed[kPrintedBytes];
  ssize_t length;
  fflush(stdout);
  length = pread(s_CaptureFd, printed, sizeof(printed) - 1, 0);
  if (length < 0 || ftruncate(s_CaptureFd, 0) != 0 || lseek(s_CaptureFd, 0, SEEK_SET) != 0) {
    perror("capture of standard output");
    exit(2);
  }
  printed[length] = '\0';
  if (strcmp(printed, expected) == 0) return;
  s_Failures++;
  fprintf(stderr, "%s:%d: printed \"%s\", not \"%s\"\n", file, line, printed, expected);
}

/* The exit code of the program. */
static int Finish(const char* name) {
  if (s_Failures == 0) return 0;
  fprintf(stderr, "%s: %d checks failed\n", name, s_Failures);
  return 1;
}

#endif /* KELVIK_TESTS_CHECKS_H_ */
