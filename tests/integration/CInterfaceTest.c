/* A C99 program calls every function of both families and of the additions. */

#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
#include <limits.h>
#include <netinet/in.h>
#include <stddef.h>
#include <sys/socket.h>

#include "Checks.h"
#include "Families.h"
#include "KelvikExtra.h"

static const char* const kYellow = "\033[33m";
static const char* const kReset = "\033[0m";

static void CheckReport(const struct tagFamily* family, const struct tagReporter* reporter,
                        const char* message) {
  char expected[512];
  snprintf(expected, sizeof(expected), "%s[Kelvik][Internal] %s %s %d %s\n%s", kYellow,
           family->m_Source, reporter->m_Function, reporter->m_Line, message, kReset);
  CHECK_PRINTED(expected);
}

static void NamesHaveTheirNumbers(void) {
  CHECK_INT(1, eLogLevelDebug);
  CHECK_INT(2, eLogLevelInfo);
  CHECK_INT(3, eLogLevelWarning);
  CHECK_INT(4, eLogLevelError);
  CHECK_INT(5, eLogLevelFatal);
  CHECK_INT(0, eResultSuccess);
  CHECK_INT(1, eResultFailure);
  CHECK_INT(2, eResultDisabled);
  CHECK_INT(3, eResultInvalid);
  CHECK_INT(4, eResultBusy);
  CHECK_INT(5, eResultUnavailable);
  CHECK_INT(6, eResultExists);
  CHECK_INT(1, eAttributeOutput);
  CHECK_INT(2, eAttributeLevel);
  CHECK_INT(3, eAttributeOther);
  CHECK_INT(4, eAttributeReserved);
  CHECK_INT(0, eOutputTerminal);
  CHECK_INT(1, eOutputSyslog);
  CHECK_INT(2, eOutputFile);
  CHECK_INT(0, eOtherDateTime);
  CHECK_INT(1, eOtherLogPath);
  CHECK_INT(2, eOtherRedirectConsole);
  CHECK_INT(3, eOtherRedirectTty);
  CHECK_INT(4, eOtherFocusModule);
  CHECK_INT(5, eOtherThreadId);
  CHECK_INT(6, eOtherLocation);
  CHECK_INT(7, eOtherLogMaxSize);
  CHECK_INT(8, eOtherLogMaxDuration);
  CHECK_INT(9, eOtherLogMaxCount);
  /* The enumeration is passed where the C++ side expects an int. */
  CHECK_INT(sizeof(int), sizeof(enum eLogLevel));
}

static void RecordsComeOut(const struct tagFamily* family) {
  CHECK_INT(0, family->KLog(eLogLevelFatal, "net", "rx", "%d of %s\n", 3, "five"));
  CHECK_PRINTED("\033[31m[net][rx] 3 of five\n\033[0m");
  CHECK_INT(0, family->KLogV1(eLogLevelError, "net", NULL, "a.c", NULL, 12, "%s\n", "here"));
  CHECK_PRINTED("\033[33m[net] [a.c 12] here\n\033[0m");
  CHECK_INT(0, family->KLogs(eLogLevelFatal, NULL, "rx", "raw %d\n", 7));
  CHECK_PRINTED("[rx] \033[31mraw %d\n\033[0m");
  CHECK_INT(0, family->KLogsV1(eLogLevelFatal, "net", "rx", "a.c", "main", -1, "raw\n", 4));
  CHECK_PRINTED("[net][rx] [a.c main] \033[31mraw\n\033[0m");
  CHECK_INT(2, family->KLog(eLogLevelWarning, "net", "rx", "off\n"));
  CHECK_PRINTED("");
}

static void BadLevelsAreReported(const struct tagFamily* family) {
  static const int kLevels[] = {INT_MIN, -1, 0, 6, 9, INT_MAX};
  size_t i;
  for (i = 0; i < sizeof(kLevels) / sizeof(kLevels[0]); i++) {
    const enum eLogLevel level = (enum eLogLevel)kLevels[i];
    char message[64];
    snprintf(message, sizeof(message), "level invalid : %d", kLevels[i]);
    CHECK_INT(3, family->KLog(level, "net", "rx", "text\n"));
    CheckReport(family, &family->m_LogReport, message);
    CHECK_INT(3, family->KLogV1(level, "net", "rx", "a.c", "main", 1, "text\n"));
    CheckReport(family, &family->m_LogV1Report, message);
    CHECK_INT(3, family->KLogs(level, "net", "rx", "text\n", 5));
    CheckReport(family, &family->m_LogsReport, message);
    CHECK_INT(3, family->KLogsV1(level, "net", "rx", "a.c", "main", 1, "text\n", 5));
    CheckReport(family, &family->m_LogsV1Report, message);
  }
}

static int ShowNothing(int fd, const char* module, const char* title, void* context) {
  (void)fd;
  (void)module;
  (void)title;
  (void)context;
  return 0;
}

static int TakeNothing(int value, void* context) {
  (void)value;
  (void)context;
  return 0;
}

static void CallbacksComeAndGo(const struct tagFamily* family) {
  CHECK_INT(3, family->ModuleStateRegister("net", "state", NULL, NULL));
  CHECK_INT(0, family->ModuleStateRegister("net", "state", ShowNothing, NULL));
  CHECK_INT(6, family->ModuleStateRegister("Net", "State", ShowNothing, NULL));
  CHECK_INT(0, family->ModuleStateUnregister("NET", "STATE"));
  CHECK_INT(1, family->ModuleStateUnregister("net", "state"));
  CHECK_INT(3, family->ModuleSetParamRegister("net", "state", NULL, NULL));
  CHECK_INT(0, family->ModuleSetParamRegister("net", "state", TakeNothing, NULL));
  CHECK_INT(6, family->ModuleSetParamRegister("Net", "State", TakeNothing, NULL));
  CHECK_INT(0, family->ModuleSetParamUnregister("NET", "STATE"));
  CHECK_INT(1, family->ModuleSetParamUnregister("net", "state"));
  CHECK_PRINTED("");
}

static void AttributesChange(const struct tagFamily* family, const char* module) {
  const unsigned char on = 1;
  const int off = 0;
  CHECK_INT(0, family->SetAttribute(eAttributeLevel, eLogLevelWarning, &on, sizeof(on)));
  CHECK_INT(0, family->KLog(eLogLevelWarning, NULL, NULL, "on\n"));
  CHECK_PRINTED("\033[0mon\n");
  CHECK_INT(0, family->registerModule(module, "V1"));
  CHECK_INT(0, family->SetAttributeByModule(eAttributeLevel, eLogLevelWarning, &off, sizeof(off),
                                            module));
  CHECK_INT(2, family->KLog(eLogLevelWarning, module, NULL, "off\n"));
  CHECK_INT(0, family->KLogV1(eLogLevelWarning, NULL, NULL, NULL, NULL, -1, "still on\n"));
  CHECK_PRINTED("\033[0mstill on\n");
  CHECK_INT(0, family->UnregisterModule(module));
  CHECK_INT(0, family->SetAttribute(eAttributeLevel, eLogLevelWarning, &off, sizeof(off)));
  CHECK_INT(2, family->KLog(eLogLevelWarning, NULL, NULL, "off\n"));
  CHECK_PRINTED("");
}

static void EmptyNamesAreReported(const struct tagFamily* family) {
  CHECK_INT(3, family->registerModule("", "V1"));
  CheckReport(family, &family->m_RegisterModuleReport, "module invalid");
  CHECK_INT(3, family->UnregisterModule(NULL));
  CheckReport(family, &family->m_UnregisterModuleReport, "module invalid");
  CHECK_INT(3, family->SetConfigFilePath(""));
  CheckReport(family, &family->m_SetConfigFilePathReport, "path invalid");
  CHECK_INT(3, family->SetLogFilePath(NULL));
  CheckReport(family, &family->m_SetLogFilePathReport, "path invalid");
}

/* A UDP port of the loopback address that nobody uses. */
static unsigned int FreePort(void) {
  struct sockaddr_in address;
  socklen_t length = sizeof(address);
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  memset(&address, 0, sizeof(address));
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (fd == -1 || bind(fd, (struct sockaddr*)&address, sizeof(address)) != 0 ||
      getsockname(fd, (struct sockaddr*)&address, &length) != 0) {
    perror("free port");
    exit(2);
  }
  close(fd);
  return ntohs(address.sin_port);
}

static void ProcessFunctionsAnswer(const struct tagFamily* family, const char* folder) {
  char expected[256];
  CHECK_INT(0, family->SetLogFilePath(folder));
  snprintf(expected, sizeof(expected), "m_Attribute.m_LogPath = %s\n", folder);
  CHECK_PRINTED(expected);
  CHECK_INT(0, family->Initialize());
  CHECK_INT(0, family->WriteBufferContent2File());
  CHECK_INT(0, family->ClearFileInfo());
  CHECK_INT(0, family->NetworkConsoleCreate("127.0.0.1", FreePort()));
  CHECK_INT(6, family->NetworkConsoleCreate("127.0.0.1", FreePort()));
  CHECK_PRINTED("\033[33m[Kelvik][Internal] Console Create 41 console already running\n\033[0m");
  CHECK_INT(0, family->NetworkConsoleDestroy());
  CHECK_INT(0, family->NetworkConsoleDestroy());
}

static void StatisticsAreSizeVersioned(void) {
  struct {
    struct tagKelvikStatistics known;
    unsigned char later[16];
  } record;
  size_t i;
  const unsigned int size = (unsigned int)sizeof(record.known);
  const unsigned int firstSize = 64; /* of the record's first version */
  CHECK_INT(3, KelvikExtra_GetStatistics(NULL, size));
  memset(&record, 0x5a, sizeof(record));
  CHECK_INT(3, KelvikExtra_GetStatistics(&record.known, firstSize - 1));
  for (i = 0; i < sizeof(record); i++)
    CHECK_INT(0x5a, ((unsigned char*)&record)[i]);
  CHECK_INT(0, KelvikExtra_GetStatistics(&record.known, (unsigned int)sizeof(record)));
  CHECK_INT(size, record.known.m_Size);
  CHECK_INT(0, record.known.m_LastError);
  CHECK_INT(0, record.known.m_OpenErrors);
  for (i = 0; i < sizeof(record.later); i++)
    CHECK_INT(0x5a, record.later[i]);
}

int main(void) {
  static const char* const kModules[kFamilyCount] = {"lamp", "pump"};
  char folder[] = "/tmp/kelvik-c-XXXXXX";
  char path[64];
  const int off = 0;
  int i;
  if (mkdtemp(folder) == NULL) {
    perror("folder");
    return 2;
  }
  snprintf(path, sizeof(path), "%s/", folder);
  CapturePrinted();
  NamesHaveTheirNumbers();
  CHECK_INT(0, SetAttribute(eAttributeOther, eOtherDateTime, &off, sizeof(off)));
  for (i = 0; i < kFamilyCount; i++) {
    RecordsComeOut(&kFamilies[i]);
    BadLevelsAreReported(&kFamilies[i]);
    CallbacksComeAndGo(&kFamilies[i]);
    AttributesChange(&kFamilies[i], kModules[i]);
    EmptyNamesAreReported(&kFamilies[i]);
    ProcessFunctionsAnswer(&kFamilies[i], path);
  }
  /* Only now: with a path, Initialize would have read it. */
  CHECK_INT(0, SetConfigFilePath("/nonexistent/kelvik.ini"));
  CHECK_INT(0, Kelvik_SetConfigFilePath("/nonexistent/other.ini"));
  StatisticsAreSizeVersioned();
  if (rmdir(folder) != 0) {
    perror("folder");
    s_Failures++;
  }
  return Finish("CInterface");
}
