// A daemon that has told syslog its own ident, facility and wish for a process id, as daemons do,
// and logs records of all levels from two threads through the library.
//   fleet-device RECORDS-PER-THREAD    prints its process id

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

#include "Kelvik.h"

static int gRecords;
static int gFailed;

static void* LogAll(void* name) {
  for (int i = 0; i < gRecords; ++i) {
    enum eLogLevel level = (enum eLogLevel)(eLogLevelDebug + i % 5);
    if (KLog(level, "device", name, "reading %d\n", i) != eResultSuccess) {
      __atomic_store_n(&gFailed, 1, __ATOMIC_RELAXED);
    }
  }
  return NULL;
}

int main(int argc, char** argv) {
  static char hot[] = "hot";
  static char cold[] = "cold";
  pthread_t other;
  char on = 1;
  char off = 0;
  if (argc != 2) return 64;
  gRecords = atoi(argv[1]);
  openlog("sensord", LOG_PID, LOG_LOCAL3);
  SetAttribute(eAttributeOutput, eOutputTerminal, &off, 1);
  SetAttribute(eAttributeOutput, eOutputSyslog, &on, 1);
  for (int level = eLogLevelDebug; level <= eLogLevelFatal; ++level) {
    SetAttribute(eAttributeLevel, level, &on, 1);
  }
  if (pthread_create(&other, NULL, LogAll, hot) != 0) return 1;
  LogAll(cold);
  if (pthread_join(other, NULL) != 0 || gFailed) return 1;
  printf("%d\n", (int)getpid());
  return 0;
}
