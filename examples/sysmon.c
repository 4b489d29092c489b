/* Watches this machine through /proc: network, disks and memory as three modules of one process,
 * each with its own level, a display that an operator can ask for, and for the network a parameter.
 *
 *   sysmon [--config FILE] [--port PORT]
 *
 * FILE holds the settings and keeps what an operator saves. Ends with SIGTERM or SIGINT. */
#define _POSIX_C_SOURCE 200809L

#include <getopt.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "Kelvik.h"

#define SYSMON_VERSION "V1.0"
enum { kRows = 16, kNameBytes = 32, kLineBytes = 512, kLowMemoryPercent = 10 };
enum { kIntervalLeastMs = 100, kIntervalMostMs = 60000 };

/* A line of /proc/net/dev or /proc/diskstats: what it counted in and out since the machine started.
 */
struct tagRow {
  char m_Name[kNameBytes];
  unsigned long long m_In, m_Out, m_Lost;
};
struct tagTable {
  struct tagRow m_Rows[kRows];
  int m_Count;
};

/* The newest sample. The main thread takes it, the console's thread shows it. */
static pthread_mutex_t gLock = PTHREAD_MUTEX_INITIALIZER;
static struct tagTable gNet, gDisk;
static unsigned long long gMemTotalKib, gMemAvailableKib;
static int gIntervalMs = 1000;
static pthread_t gMainThread;

static FILE* OpenProc(const char* module, const char* path) {
  FILE* file = fopen(path, "r");
  if (file == NULL) KLog(eLogLevelError, module, "sample", "cannot open %s\n", path);
  return file;
}

static int ReadNetRow(const char* line, struct tagRow* row) {
  return sscanf(line, " %31[^:]: %llu %*u %*u %llu %*u %*u %*u %*u %llu", row->m_Name, &row->m_In,
                &row->m_Lost, &row->m_Out) == 4;
}

/* Disks that were never used, such as those kept ready for loop mounts, are passed over. */
static int ReadDiskRow(const char* line, struct tagRow* row) {
  row->m_Lost = 0;
  return sscanf(line, "%*u %*u %31s %*u %*u %llu %*u %*u %*u %llu", row->m_Name, &row->m_In,
                &row->m_Out) == 3 &&
         row->m_In + row->m_Out != 0;
}

static const struct tagRow* FindRow(const struct tagTable* table, const char* name) {
  for (int i = 0; i < table->m_Count; i++) {
    if (strcmp(table->m_Rows[i].m_Name, name) == 0) return &table->m_Rows[i];
  }
  return NULL;
}

/* What happened between two samples: a rate as a debug record, a loss as a warning. */
static void ReportRow(const char* module, const struct tagRow* now, const struct tagRow* before,
                      const char* unit) {
  if (before == NULL) {
    KLog(eLogLevelInfo, module, "sample", "%s is there\n", now->m_Name);
    return;
  }
  KLog(eLogLevelDebug, module, "sample", "%s: in %llu out %llu %s\n", now->m_Name,
       now->m_In - before->m_In, now->m_Out - before->m_Out, unit);
  if (now->m_Lost != before->m_Lost) {
    KLog(eLogLevelWarning, module, "sample", "%s dropped %llu packets\n", now->m_Name,
         now->m_Lost - before->m_Lost);
  }
}

static void SampleTable(const char* module, const char* path, const char* unit,
                        struct tagTable* table,
                        int (*readRow)(const char* line, struct tagRow* row)) {
  FILE* file = OpenProc(module, path);
  if (file == NULL) return;
  struct tagTable now = {.m_Count = 0};
  char line[kLineBytes];
  while (now.m_Count < kRows && fgets(line, sizeof(line), file) != NULL) {
    if (readRow(line, &now.m_Rows[now.m_Count])) now.m_Count++;
  }
  fclose(file);
  /* Only this thread writes the table, so it may read it without the lock. */
  for (int i = 0; i < now.m_Count; i++) {
    ReportRow(module, &now.m_Rows[i], FindRow(table, now.m_Rows[i].m_Name), unit);
  }
  pthread_mutex_lock(&gLock);
  *table = now;
  pthread_mutex_unlock(&gLock);
}

static void SampleMemory(void) {
  FILE* file = OpenProc("mem", "/proc/meminfo");
  if (file == NULL) return;
  unsigned long long total = 0, available = 0;
  char line[kLineBytes];
  while (fgets(line, sizeof(line), file) != NULL) {
    if (sscanf(line, "MemTotal: %llu", &total) == 1) continue;
    if (sscanf(line, "MemAvailable: %llu", &available) == 1) break;
  }
  fclose(file);
  pthread_mutex_lock(&gLock);
  gMemTotalKib = total;
  gMemAvailableKib = available;
  pthread_mutex_unlock(&gLock);
  KLog(eLogLevelDebug, "mem", "sample", "%llu of %llu KiB available\n", available, total);
  if (available * 100 < total * kLowMemoryPercent) {
    KLogV1(eLogLevelWarning, "mem", "sample", __FILE__, __func__, __LINE__,
           "only %llu KiB of memory are available\n", available);
  }
}

/* Displays: they run on the console's thread and print on the operator's terminal. */

static int ShowTable(int fd, const char* module, const char* title, void* context) {
  const struct tagTable* table = context;
  struct tagTable copy;
  pthread_mutex_lock(&gLock);
  copy = *table;
  pthread_mutex_unlock(&gLock);
  dprintf(fd, "%s %s\n%-16s %16s %16s\n", module, title, "", "in", "out");
  for (int i = 0; i < copy.m_Count; i++) {
    dprintf(fd, "%-16s %16llu %16llu\n", copy.m_Rows[i].m_Name, copy.m_Rows[i].m_In,
            copy.m_Rows[i].m_Out);
  }
  return 0;
}

static int ShowMemory(int fd, const char* module, const char* title, void* context) {
  (void)context;
  pthread_mutex_lock(&gLock);
  const unsigned long long total = gMemTotalKib, available = gMemAvailableKib;
  pthread_mutex_unlock(&gLock);
  dprintf(fd, "%s %s\ntotal %llu KiB\navailable %llu KiB\n", module, title, total, available);
  return 0;
}

/* The parameter: milliseconds between two samples. Wakes the main thread, so that a long interval
 * does not have to end first. */
static int SetInterval(int value, void* context) {
  (void)context;
  if (value < kIntervalLeastMs || value > kIntervalMostMs) {
    KLog(eLogLevelError, "net", "interval", "%d is not %d to %d ms\n", value, kIntervalLeastMs,
         kIntervalMostMs);
    return 1;
  }
  pthread_mutex_lock(&gLock);
  gIntervalMs = value;
  pthread_mutex_unlock(&gLock);
  KLog(eLogLevelInfo, "net", "interval", "a sample every %d ms\n", value);
  pthread_kill(gMainThread, SIGUSR1);
  return 0;
}

/* Samples until SIGTERM or SIGINT. The signals are blocked, also in the library's threads, and
 * taken here; SIGUSR1 only ends the wait. */
static void Run(const sigset_t* signals) {
  int number = 0;
  while (number != SIGTERM && number != SIGINT) {
    SampleTable("net", "/proc/net/dev", "bytes", &gNet, ReadNetRow);
    SampleTable("disk", "/proc/diskstats", "sectors", &gDisk, ReadDiskRow);
    SampleMemory();
    pthread_mutex_lock(&gLock);
    const int intervalMs = gIntervalMs;
    pthread_mutex_unlock(&gLock);
    const struct timespec wait = {intervalMs / 1000, intervalMs % 1000 * 1000000L};
    number = sigtimedwait(signals, NULL, &wait);
  }
  KLog(eLogLevelInfo, "net", "end", "signal %d: sysmon ends\n", number);
}

static int Usage(void) {
  fprintf(stderr, "usage: sysmon [--config FILE] [--port PORT]\n");
  return 64;
}

int main(int argc, char** argv) {
  static const struct option kOptions[] = {
      {"config", required_argument, NULL, 'c'}, {"port", required_argument, NULL, 'p'}, {0}};
  static const char* const kModules[] = {"disk", "mem", "net"};
  const char on = 1;
  unsigned int port = 8799;
  int option;
  while ((option = getopt_long(argc, argv, "c:p:", kOptions, NULL)) != -1) {
    char* end = NULL;
    if (option == 'c') {
      SetConfigFilePath(optarg);
    } else if (option == 'p') {
      const long number = strtol(optarg, &end, 10);
      if (end == optarg || *end != '\0' || number < 1 || number > 65535) return Usage();
      port = (unsigned int)number;
    } else {
      return Usage();
    }
  }
  if (optind != argc) return Usage();

  gMainThread = pthread_self();
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &signals, NULL);

  /* What the configuration file does not say. */
  SetAttribute(eAttributeLevel, eLogLevelInfo, &on, 1);
  SetAttribute(eAttributeLevel, eLogLevelWarning, &on, 1);
  Initialize();
  for (size_t i = 0; i < sizeof(kModules) / sizeof(kModules[0]); i++) {
    registerModule(kModules[i], SYSMON_VERSION);
  }
  ModuleStateRegister("net", "counters", ShowTable, &gNet);
  ModuleStateRegister("disk", "io", ShowTable, &gDisk);
  ModuleStateRegister("mem", "usage", ShowMemory, NULL);
  ModuleSetParamRegister("net", "interval", SetInterval, NULL);

  const int result = NetworkConsoleCreate(NULL, port);
  if (result == eResultSuccess) Run(&signals);

  NetworkConsoleDestroy();
  ModuleSetParamUnregister("net", "interval");
  ModuleStateUnregister("mem", "usage");
  ModuleStateUnregister("disk", "io");
  ModuleStateUnregister("net", "counters");
  for (size_t i = 0; i < sizeof(kModules) / sizeof(kModules[0]); i++) {
    UnregisterModule(kModules[i]);
  }
  return result == eResultSuccess ? EXIT_SUCCESS : EXIT_FAILURE;
}
