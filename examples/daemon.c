/* A program that becomes a daemon: nothing logged before or after the fork is lost or doubled.
 *
 *   cc -std=c99 daemon.c -o daemon $(pkg-config --cflags --libs kelvik)
 *   ./daemon /tmp/daemon/
 *
 * Returns at once. The daemon logs ten records into the same file as its parent did before it, and
 * ends. Standard output is closed in it, so that its records go to the files alone. */
#define _DEFAULT_SOURCE

#include <Kelvik.h>
#include <KelvikExtra.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

static void LeaveTerminal(void) {
  const int null = open("/dev/null", O_RDWR);
  setsid();
  if (null == -1) return;
  dup2(null, STDIN_FILENO);
  dup2(null, STDOUT_FILENO);
  dup2(null, STDERR_FILENO);
  if (null > STDERR_FILENO) close(null);
}

int main(int argc, char** argv) {
  const char on = 1;
  const char off = 0;
  pid_t child;
  int i;
  if (argc != 2) {
    fprintf(stderr, "usage: daemon FOLDER/\n");
    return 64;
  }
  SetLogFilePath(argv[1]);
  SetAttribute(eAttributeOutput, eOutputTerminal, &off, sizeof(off));
  SetAttribute(eAttributeOutput, eOutputFile, &on, sizeof(on));
  SetAttribute(eAttributeLevel, eLogLevelInfo, &on, sizeof(on));
  SetAttribute(eAttributeOther, eOtherThreadId, &on, sizeof(on));
  Initialize();
  KLog(eLogLevelInfo, "daemon", "start", "before the fork\n");

  /* What waits is written before the process is copied; the copy begins with empty buffers. */
  child = fork();
  if (child == -1) {
    KLog(eLogLevelFatal, "daemon", "start", "no process: %s\n", strerror(errno));
    return 1;
  }
  if (child != 0) {
    printf("daemon %ld\n", (long)child);
    fflush(stdout);
    _exit(0); /* the parent's exit handlers are not its business any more */
  }
  LeaveTerminal();
  /* The console, where one is wanted, is made here: a fork takes it away. */
  for (i = 0; i < 10; i++)
    KLog(eLogLevelInfo, "daemon", "work", "record %d\n", i);
  KLog(eLogLevelInfo, "daemon", "end", "done\n");
  return 0;
}
