/* What is in the buffers when a program crashes: kept, or lost.
 *
 *   cc -std=c99 crashflush.c -o crashflush $(pkg-config --cflags --libs kelvik)
 *   ./crashflush /tmp/ keep       the file ends with "[crash][last] about to crash"
 *   ./crashflush /tmp/ lose       nothing was written yet: there is not even a file
 *
 * Either way the program dies by SIGSEGV, so its core dump and its exit status are the usual ones.
 */
#define _POSIX_C_SOURCE 200809L

#include <Kelvik.h>
#include <KelvikExtra.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char** argv) {
  const char on = 1;
  const char off = 0;
  int i;
  if (argc != 3 || (strcmp(argv[2], "keep") != 0 && strcmp(argv[2], "lose") != 0)) {
    fprintf(stderr, "usage: crashflush FOLDER/ keep|lose\n");
    return 64;
  }
  SetLogFilePath(argv[1]);
  SetAttribute(eAttributeOutput, eOutputTerminal, &off, sizeof(off));
  SetAttribute(eAttributeOutput, eOutputFile, &on, sizeof(on));
  SetAttribute(eAttributeLevel, eLogLevelInfo, &on, sizeof(on));
  /* After the program's own handlers of these signals, which then run behind the flush. */
  if (strcmp(argv[2], "keep") == 0 && KelvikExtra_InstallCrashFlush() != eResultSuccess) {
    fprintf(stderr, "crashflush: no handler\n");
    return 1;
  }
  Initialize();
  for (i = 0; i < 20; i++)
    KLog(eLogLevelInfo, "crash", "work", "record %d\n", i);
  KLog(eLogLevelInfo, "crash", "last", "about to crash\n");
  fflush(stdout);
  raise(SIGSEGV);
  return 0;
}
