/* A new log file every second, and the three newest kept.
 *
 *   cc -std=c99 timerotation.c -o timerotation $(pkg-config --cflags --libs kelvik)
 *   ./timerotation /tmp/ 5
 *
 * Logs for 5 seconds and prints the path of each file when it is finished. What is left in the
 * folder are three files, named by the moment of their first record. */
#define _POSIX_C_SOURCE 200809L

#include <Kelvik.h>
#include <KelvikExtra.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

/* Runs on the thread that changed the file; here it could be compressed or sent away. */
static void Finished(const char* path, void* context) {
  int* count = context;
  printf("file %d is finished: %s\n", ++*count, path);
  fflush(stdout);
}

int main(int argc, char** argv) {
  static int finished; /* files; one is changed at a time */
  const char on = 1;
  const char off = 0;
  const uint32_t noSize = 0; /* a size above 0 would rotate by size instead */
  const uint32_t duration = 1;
  const uint32_t count = 3;
  const struct timespec pause = {0, 100000000};
  const long seconds = argc == 3 ? strtol(argv[2], NULL, 10) : 0;
  long i;
  if (seconds < 1 || seconds > 3600) {
    fprintf(stderr, "usage: timerotation FOLDER/ SECONDS\n");
    return 64;
  }
  SetLogFilePath(argv[1]);
  SetAttribute(eAttributeOutput, eOutputTerminal, &off, sizeof(off));
  SetAttribute(eAttributeOutput, eOutputFile, &on, sizeof(on));
  SetAttribute(eAttributeLevel, eLogLevelInfo, &on, sizeof(on));
  SetAttribute(eAttributeOther, eOtherLogMaxSize, &noSize, sizeof(noSize));
  SetAttribute(eAttributeOther, eOtherLogMaxDuration, &duration, sizeof(duration));
  SetAttribute(eAttributeOther, eOtherLogMaxCount, &count, sizeof(count));
  KelvikExtra_SetRotationCallback(Finished, &finished);
  Initialize();
  for (i = 0; i < seconds * 10; i++) {
    KLog(eLogLevelInfo, "clock", "tick", "record %ld\n", i);
    nanosleep(&pause, NULL);
  }
  KelvikExtra_Flush(5000, 0);
  KelvikExtra_SetRotationCallback(NULL, NULL);
  return 0;
}
