/* The two families of the C interface as tables, so that a test says once what both must do. C99
   and C++17. */

#ifndef KELVIK_TESTS_FAMILIES_H_
#define KELVIK_TESTS_FAMILIES_H_

#include "Kelvik.h"

/* A function whose bad argument is reported: its name and the line number of the report. */
struct tagReporter {
  const char* m_Function;
  int m_Line;
};

struct tagFamily {
  const char* m_Source; /* source-file name in reports */

  struct tagReporter m_LogReport;
  struct tagReporter m_LogV1Report;
  struct tagReporter m_LogsReport;
  struct tagReporter m_LogsV1Report;
  struct tagReporter m_RegisterModuleReport;
  struct tagReporter m_UnregisterModuleReport;
  struct tagReporter m_SetConfigFilePathReport;
  struct tagReporter m_SetLogFilePathReport;
  struct tagReporter m_SetAttributeReport;         /* of a bad kind */
  struct tagReporter m_SetAttributeByModuleReport; /* of a bad option */

  int (*KLog)(enum eLogLevel, const char*, const char*, const char*, ...);
  int (*KLogV1)(enum eLogLevel, const char*, const char*, const char*, const char*, int,
                const char*, ...);
  int (*KLogs)(enum eLogLevel, const char*, const char*, const char*, int);
  int (*KLogsV1)(enum eLogLevel, const char*, const char*, const char*, const char*, int,
                 const char*, int);
  int (*ModuleStateRegister)(const char*, const char*, KelvikStateCallback, void*);
  int (*ModuleSetParamRegister)(const char*, const char*, KelvikParamCallback, void*);
  int (*ModuleStateUnregister)(const char*, const char*);
  int (*ModuleSetParamUnregister)(const char*, const char*);
  int (*SetAttributeByModule)(int, int, const void*, int, const char*);
  int (*SetAttribute)(int, int, const void*, int);
  int (*registerModule)(const char*, const char*);
  int (*UnregisterModule)(const char*);
  int (*Initialize)(void);
  int (*SetConfigFilePath)(const char*);
  int (*SetLogFilePath)(const char*);
  int (*WriteBufferContent2File)(void);
  int (*ClearFileInfo)(void);
  int (*NetworkConsoleCreate)(const char*, unsigned int);
  int (*NetworkConsoleDestroy)(void);
};

enum { kFamilyCount = 2 };

static const struct tagFamily kFamilies[kFamilyCount] = {
    {"Kelvik",
     {"KLog", 47},
     {"KLogV1", 70},
     {"KLogs", 111},
     {"KLogsV1", 126},
     {"registerModule", 518},
     {"UnregisterModule", 531},
     {"SetConfigFilePath", 552},
     {"SetLogFilePath", 565},
     {"SetAttribute", 507},
     {"SetAttributeByModule", 261},
     KLog,
     KLogV1,
     KLogs,
     KLogsV1,
     ModuleStateRegister,
     ModuleSetParamRegister,
     ModuleStateUnregister,
     ModuleSetParamUnregister,
     SetAttributeByModule,
     SetAttribute,
     registerModule,
     UnregisterModule,
     Initialize,
     SetConfigFilePath,
     SetLogFilePath,
     WriteBufferContent2File,
     ClearFileInfo,
     NetworkConsoleCreate,
     NetworkConsoleDestroy},
    {"KelvikForC",
     {"Kelvik_KLog", 45},
     {"Kelvik_KLogV1", 68},
     {"Kelvik_KLogs", 109},
     {"Kelvik_KLogsV1", 124},
     {"Kelvik_RegisterModule", 509},
     {"Kelvik_UnregisterModule", 522},
     {"Kelvik_SetConfigFilePath", 543},
     {"Kelvik_SetLogFilePath", 556},
     {"Kelvik_SetAttribute", 498},
     {"Kelvik_SetAttributeByModule", 259},
     Kelvik_KLog,
     Kelvik_KLogV1,
     Kelvik_KLogs,
     Kelvik_KLogsV1,
     Kelvik_ModuleStateRegister,
     Kelvik_ModuleSetParamRegister,
     Kelvik_ModuleStateUnregister,
     Kelvik_ModuleSetParamUnregister,
     Kelvik_SetAttributeByModule,
     Kelvik_SetAttribute,
     Kelvik_RegisterModule,
     Kelvik_UnregisterModule,
     Kelvik_Initialize,
     Kelvik_SetConfigFilePath,
     Kelvik_SetLogFilePath,
     Kelvik_WriteBufferContent2File,
     Kelvik_ClearFileInfo,
     Kelvik_NetworkConsoleCreate,
     Kelvik_NetworkConsoleDestroy},
};

#endif /* KELVIK_TESTS_FAMILIES_H_ */
