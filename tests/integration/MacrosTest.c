/* The macros in a C99 program: what they print, what they evaluate, and that they do what the calls
   behind them do. */

#define _POSIX_C_SOURCE 200809L
#define KELVIK_FILE "here.c"

#include "KelvikMacros.h"

#include "Checks.h"

enum { kBytes = 4096, kForms = 8 };

#define CHECK_TEXT(expected, actual) CheckText((expected), (actual), __LINE__)

static int s_Evaluated;

/* What was printed since the last look, and no longer kept. */
static void TakePrinted(char* text, size_t room) {
  static char printed[kBytes];
  ssize_t length;
  fflush(stdout);
  length = pread(s_CaptureFd, printed, sizeof(printed) - 1, 0);
  CHECK_INT(1, length > 0);
  CHECK_INT(0, ftruncate(s_CaptureFd, 0));
  CHECK_INT(0, lseek(s_CaptureFd, 0, SEEK_SET));
  printed[length < 0 ? 0 : length] = '\0';
  if (text != NULL) snprintf(text, room, "%s", printed);
}

static void CheckText(const char* expected, const char* actual, int line) {
  if (strcmp(expected, actual) == 0) return;
  s_Failures++;
  fprintf(stderr, "MacrosTest.c:%d: printed\n%s\nnot\n%s\n", line, actual, expected);
}

/* The argument of records, and where the test counts how often it was asked for. */
static int Evaluate(void) {
  return ++s_Evaluated;
}

static const char* Named(const char* name) {
  s_Evaluated++;
  return name;
}

static void SetLevel(const char* module, int level, int on) {
  if (module == NULL) {
    CHECK_INT(0, SetAttribute(eAttributeLevel, level, &on, sizeof(on)));
  } else {
    CHECK_INT(0, SetAttributeByModule(eAttributeLevel, level, &on, sizeof(on), module));
  }
}

/* Each form once, at one level; line is that of the last four. */
#define LOG_ALL(level, module, line)                                            \
  do {                                                                          \
    KELVIK_##level(module, "rx", "plain %d\n", Evaluate());                     \
    KELVIK_##level##_IF(1, module, "rx", "if %d\n", Evaluate());                \
    KELVIK_##level##_EVERY_N(2, module, "rx", "n %d\n", Evaluate());            \
    KELVIK_##level##_EVERY_MS(1000000, module, "rx", "ms %d\n", Evaluate());    \
    (line) = __LINE__;                                                          \
    KELVIK_##level##_AT(module, "rx", "plain %d\n", Evaluate());                \
    KELVIK_##level##_AT_IF(1, module, "rx", "if %d\n", Evaluate());             \
    KELVIK_##level##_AT_EVERY_N(2, module, "rx", "n %d\n", Evaluate());         \
    KELVIK_##level##_AT_EVERY_MS(1000000, module, "rx", "ms %d\n", Evaluate()); \
  } while (0)

static void LogAtAllLevels(int level, const char* module, int* line) {
  switch (level) {
    case eLogLevelDebug:
      LOG_ALL(DEBUG, module, *line);
      break;
    case eLogLevelInfo:
      LOG_ALL(INFO, module, *line);
      break;
    case eLogLevelWarning:
      LOG_ALL(WARNING, module, *line);
      break;
    case eLogLevelError:
      LOG_ALL(ERROR, module, *line);
      break;
    default:
      LOG_ALL(FATAL, module, *line);
      break;
  }
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" /* formats of a table */

/* What the calls print for the same. */
static void LogByCalls(int level, const char* module, int line) {
  static const char* const kFormats[4] = {"plain %d\n", "if %d\n", "n %d\n", "ms %d\n"};
  const enum eLogLevel known = (enum eLogLevel)level;
  int i;
  for (i = 0; i < kForms; i++) {
    const char* format = kFormats[i % 4];
    if (i < 4) {
      CHECK_INT(0, KLog(known, module, "rx", format, i + 1));
    } else {
      CHECK_INT(0, KLogV1(known, module, "rx", "here.c", "LogAtAllLevels", line, format, i + 1));
    }
  }
}

#pragma GCC diagnostic pop

static void MacrosPrintWhatCallsPrint(void) {
  static const char* const kModules[5] = {NULL, "", "net", "unknown", "disk"};
  static char expected[kBytes];
  static char printed[kBytes];
  int level;
  int m = 0;
  /* A module for each level: the places of LogAtAllLevels count. */
  for (level = eLogLevelDebug; level <= eLogLevelFatal; level++, m++) {
    int line = 0;
    s_Evaluated = 0;
    LogAtAllLevels(level, kModules[m], &line);
    CHECK_INT(kForms, s_Evaluated);
    TakePrinted(printed, sizeof(printed));
    LogByCalls(level, kModules[m], line);
    TakePrinted(expected, sizeof(expected));
    CHECK_TEXT(expected, printed);
  }
}

static void DisabledLevelEvaluatesNothingButTheModule(void) {
  int line;
  int level;
  for (level = eLogLevelDebug; level <= eLogLevelFatal; level++) {
    SetLevel(NULL, level, 0);
    s_Evaluated = 0;
    LogAtAllLevels(level, "net", &line);
    CHECK_INT(0, s_Evaluated);
    SetLevel(NULL, level, 1);
  }
  SetLevel(NULL, eLogLevelInfo, 0);
  KELVIK_INFO(Named("net"), Named("rx"), "%s\n", Named("x"));
  CHECK_INT(1, s_Evaluated);
  KELVIK_INFO_IF(Evaluate(), Named("net"), Named("rx"), "%s\n", Named("x"));
  CHECK_INT(2, s_Evaluated);
  KELVIK_INFO_EVERY_N(Evaluate(), Named("net"), Named("rx"), "%s\n", Named("x"));
  CHECK_INT(3, s_Evaluated);
  KELVIK_INFO_EVERY_MS(Evaluate(), Named("net"), Named("rx"), "%s\n", Named("x"));
  CHECK_INT(4, s_Evaluated);
  KELVIK_INFO_AT(Named("net"), Named("rx"), "%s\n", Named("x"));
  KELVIK_INFO_AT_IF(Evaluate(), Named("net"), Named("rx"), "%s\n", Named("x"));
  KELVIK_INFO_AT_EVERY_N(Evaluate(), Named("net"), Named("rx"), "%s\n", Named("x"));
  KELVIK_INFO_AT_EVERY_MS(Evaluate(), Named("net"), Named("rx"), "%s\n", Named("x"));
  CHECK_INT(4, s_Evaluated);
  SetLevel(NULL, eLogLevelInfo, 1);
  CHECK_PRINTED("");
}

static void EnabledLevelEvaluatesEachArgumentOnce(void) {
  s_Evaluated = 0;
  KELVIK_INFO_IF(Evaluate() == 2, Named("net"), Named("rx"), "%s\n", Named("x"));
  CHECK_INT(4, s_Evaluated);
  KELVIK_INFO_IF(Evaluate() == 2, Named("net"), Named("rx"), "%s\n", Named("x"));
  CHECK_INT(6, s_Evaluated);
  KELVIK_INFO_EVERY_N(Evaluate(), Named("net"), Named("rx"), "%s\n", Named("y"));
  CHECK_INT(10, s_Evaluated);
  KELVIK_INFO_AT_EVERY_MS(Evaluate(), Named("net"), Named("rx"), "%s\n", Named("z"));
  CHECK_INT(14, s_Evaluated);
  TakePrinted(NULL, 0);
}

static void OwnLevelsCountButForLocations(void) {
  CHECK_INT(0, registerModule("pump", "V1"));
  SetLevel("pump", eLogLevelDebug, 0);
  KELVIK_DEBUG("pump", "run", "not this\n");
  KELVIK_DEBUG("PUM", "run", "nor this: the name is found as in the call\n");
  CHECK_PRINTED("");
  KELVIK_DEBUG_AT_IF(1, "pump", NULL, "global\n");
  TakePrinted(NULL, 0);
  SetLevel("pump", eLogLevelDebug, 1);
  SetLevel(NULL, eLogLevelDebug, 0);
  KELVIK_DEBUG("pump", "run", "own\n");
  CHECK_PRINTED("\033[0m[pump][run] own\n");
  s_Evaluated = 0;
  KELVIK_DEBUG_AT("pump", "run", "global %d\n", Evaluate());
  CHECK_INT(0, s_Evaluated);
  CHECK_PRINTED("");
  SetLevel(NULL, eLogLevelDebug, 1);
}

static void RepeatedRecordsTellWhatWasPassedOver(void) {
  char expected[256];
  int line = 0;
  int i;
  for (i = 0; i < 8; i++)
    KELVIK_INFO_EVERY_N(3, "net", "rx", "%d of %s\n", i, "8");
  CHECK_PRINTED(
      "\033[0m[net][rx] 0 of 8\n"
      "\033[0m[net][rx] (2 passed over) 3 of 8\n"
      "\033[0m[net][rx] (2 passed over) 6 of 8\n");
  for (i = 0; i < 4; i++)
    KELVIK_INFO_EVERY_N(i % 2, "net", "rx", "without arguments\n");
  CHECK_PRINTED(
      "\033[0m[net][rx] without arguments\n\033[0m[net][rx] without arguments\n"
      "\033[0m[net][rx] without arguments\n\033[0m[net][rx] without arguments\n");
  /* Calls while the level is off are not counted. */
  for (i = 0; i < 5; i++) {
    SetLevel(NULL, eLogLevelInfo, i == 0 || i == 4);
    KELVIK_INFO_EVERY_N(2, NULL, NULL, "%d\n", i);
  }
  SetLevel(NULL, eLogLevelInfo, 1);
  CHECK_PRINTED("\033[0m0\n");
  for (i = 0; i < 3; i++) {
    line = __LINE__ + 1;
    KELVIK_INFO_AT_EVERY_N(2, NULL, NULL, "%d\n", i);
  }
  snprintf(expected, sizeof(expected),
           "\033[0m[here.c RepeatedRecordsTellWhatWasPassedOver %d] 0\n"
           "\033[0m[here.c RepeatedRecordsTellWhatWasPassedOver %d] (1 passed over) 2\n",
           line, line);
  CHECK_PRINTED(expected);
}

static void RecordsInTimeTellWhatWasPassedOver(void) {
  int i;
  for (i = 0; i < 3; i++)
    KELVIK_INFO_EVERY_MS(1000000, "net", "rx", "%d\n", i);
  CHECK_PRINTED("\033[0m[net][rx] 0\n");
  for (i = 0; i < 5; i++) {
    /* An interval that has passed by now, whatever the machine does. */
    KELVIK_INFO_EVERY_MS(i == 4 ? 0 : 1000000, "net", "rx", "%d\n", i);
  }
  CHECK_PRINTED("\033[0m[net][rx] 0\n\033[0m[net][rx] (3 passed over) 4\n");
}

static void MostArgumentsAreTaken(void) {
  KELVIK_INFO_EVERY_N(1, NULL, NULL,
                      "%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d\n", 1, 2, 3, 4,
                      5, 6, 7, 8, 9, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0);
  CHECK_PRINTED("\033[0m123456789012345678901234567890\n");
}

int main(void) {
  const int off = 0;
  int level;
  CapturePrinted();
  CHECK_INT(0, SetAttribute(eAttributeOther, eOtherDateTime, &off, sizeof(off)));
  for (level = eLogLevelDebug; level <= eLogLevelFatal; level++)
    SetLevel(NULL, level, 1);
  MacrosPrintWhatCallsPrint();
  DisabledLevelEvaluatesNothingButTheModule();
  EnabledLevelEvaluatesEachArgumentOnce();
  OwnLevelsCountButForLocations();
  RepeatedRecordsTellWhatWasPassedOver();
  RecordsInTimeTellWhatWasPassedOver();
  MostArgumentsAreTaken();
  return Finish("Macros");
}
