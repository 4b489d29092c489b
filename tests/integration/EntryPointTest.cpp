// The arguments and results of the entry points, the same for both families: logging, callbacks,
// modules and paths.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "ChildProcess.h"
#include "EntryPointTools.h"
#include "PrintedText.h"

namespace Kelvik {
namespace {

// What the terminal shows of a report.
std::string Report(const tagFamily& family, const tagReporter& reporter,
                   const std::string& message) {
  return "\033[33m[Kelvik][Internal] " + std::string(family.m_Source) + " " + reporter.m_Function +
         " " + std::to_string(reporter.m_Line) + " " + message + "\n\033[0m";
}

// --- Levels and pointers of the logging functions ---

CHILD_CASE(BadLevels) {
  CPrintedText printed;
  SwitchDateTimeOff();
  Context().GetAttribute()->m_LevelMask = 0xff;
  for (const tagFamily& family : kFamilies) {
    for (const int level : {INT_MIN, -1, 0, 6, 7, 9, 37, INT_MAX}) {
      SCOPED_TRACE(testing::Message() << family.m_Source << " level " << level);
      const std::string message = "level invalid : " + std::to_string(level);
      EXPECT_EQ(3, family.KLog(Level(level), "net", "rx", "text %d\n", 1));
      EXPECT_EQ(Report(family, family.m_LogReport, message), printed.Take());
      EXPECT_EQ(3, family.KLogV1(Level(level), "net", "rx", "a.c", "main", 1, "text\n"));
      EXPECT_EQ(Report(family, family.m_LogV1Report, message), printed.Take());
      EXPECT_EQ(3, family.KLogs(Level(level), "net", "rx", "text\n", 5));
      EXPECT_EQ(Report(family, family.m_LogsReport, message), printed.Take());
      EXPECT_EQ(3, family.KLogsV1(Level(level), "net", "rx", "a.c", "main", 1, "text\n", 5));
      EXPECT_EQ(Report(family, family.m_LogsV1Report, message), printed.Take());
    }
  }
  return 0;
}

TEST(LoggingFunctions, BadLevelIsReportedWithItsNumber) {
  EXPECT_TRUE(Succeeded(RunChild("BadLevels")));
}

CHILD_CASE(BadPointers) {
  CPrintedText printed;
  Context().GetAttribute()->m_LevelMask = 0x3e;
  const char* const nothing = nullptr;
  for (const tagFamily& family : kFamilies) {
    for (const int level : {0, 1, 5, 6, -1}) {
      SCOPED_TRACE(testing::Message() << family.m_Source << " level " << level);
      EXPECT_EQ(3, family.KLog(Level(level), "net", "rx", nothing));
      EXPECT_EQ(3, family.KLogV1(Level(level), "net", "rx", "a.c", "main", 1, nothing));
      EXPECT_EQ(3, family.KLogs(Level(level), "net", "rx", nullptr, 5));
      EXPECT_EQ(3, family.KLogsV1(Level(level), "net", "rx", "a.c", "main", 1, nullptr, 5));
      for (const int length : {0, -1, INT_MIN}) {
        EXPECT_EQ(3, family.KLogs(Level(level), "net", "rx", "text\n", length));
        EXPECT_EQ(3, family.KLogsV1(Level(level), "net", "rx", "a.c", "main", 1, "text\n", length));
      }
    }
  }
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(LoggingFunctions, PointerAndLengthAreCheckedBeforeTheLevelAndSilently) {
  EXPECT_TRUE(Succeeded(RunChild("BadPointers")));
}

CHILD_CASE(ErrorsOff) {
  CPrintedText printed;
  Context().GetAttribute()->m_LevelMask = 0x3e & ~0x10;
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(3, family.KLog(Level(9), "net", "rx", "text\n"));
    EXPECT_EQ(3, family.KLogs(Level(9), "net", "rx", "text\n", 5));
    EXPECT_EQ(3, family.registerModule("", nullptr));
    EXPECT_EQ(3, family.SetLogFilePath(""));
  }
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(LoggingFunctions, BadArgumentShowsOnlyInTheResultWhileErrorsAreOff) {
  EXPECT_TRUE(Succeeded(RunChild("ErrorsOff")));
}

// A report goes by the global settings, also where a module has its name.
CHILD_CASE(ModuleWithTheReportsName) {
  CPrintedText printed;
  SwitchDateTimeOff();
  EXPECT_EQ(0, Context().InsertModuleName("Kelvik", nullptr));
  tagAttribute& module = *Context().GetAttribute("Kelvik");
  module.m_LevelMask = 0;
  module.m_OutputThreadID = 1;
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(3, family.KLog(Level(9), "Kelvik", "rx", "text\n"));
    EXPECT_EQ(Report(family, family.m_LogReport, "level invalid : 9"), printed.Take());
  }
  module.m_LevelMask = 0x3e;
  Context().GetAttribute()->m_LevelMask = 0x3e & ~0x10;
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(3, family.KLog(Level(9), "Kelvik", "rx", "text\n"));
    EXPECT_EQ(3, family.UnregisterModule(nullptr));
  }
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(LoggingFunctions, ReportGoesByTheGlobalSettings) {
  EXPECT_TRUE(Succeeded(RunChild("ModuleWithTheReportsName")));
}

struct tagLevelCase {
  int m_Level;
  const char* m_Before;
  const char* m_After;
};

const tagLevelCase kLevels[] = {
    {1, "\033[0m", ""},         {2, "\033[0m", ""},         {3, "\033[0m", ""},
    {4, "\033[33m", "\033[0m"}, {5, "\033[31m", "\033[0m"},
};

CHILD_CASE(GoodLevels) {
  CPrintedText printed;
  SwitchDateTimeOff();
  Context().GetAttribute()->m_LevelMask = 0x3e;
  for (const tagFamily& family : kFamilies) {
    for (const tagLevelCase& row : kLevels) {
      const std::string before = row.m_Before;
      const std::string after = row.m_After;
      SCOPED_TRACE(testing::Message() << family.m_Source << " level " << row.m_Level);
      EXPECT_EQ(0, family.KLog(Level(row.m_Level), "net", "rx", "%s %d\n", "text", 7));
      EXPECT_EQ(before + "[net][rx] text 7\n" + after, printed.Take());
      EXPECT_EQ(0, family.KLogV1(Level(row.m_Level), "net", "rx", "a.c", "main", 7, "%s\n", "t"));
      EXPECT_EQ(before + "[net][rx] [a.c main 7] t\n" + after, printed.Take());
      EXPECT_EQ(0, family.KLogs(Level(row.m_Level), "net", "rx", "raw %d\n", 7));
      EXPECT_EQ("[net][rx] " + before + "raw %d\n" + after, printed.Take());
      EXPECT_EQ(0, family.KLogsV1(Level(row.m_Level), "net", "rx", nullptr, "main", 7, "raw\n", 4));
      EXPECT_EQ("[net][rx] [main 7] " + before + "raw\n" + after, printed.Take());
    }
  }
  return 0;
}

TEST(LoggingFunctions, RecordOfEachLevelComesOut) {
  EXPECT_TRUE(Succeeded(RunChild("GoodLevels")));
}

CHILD_CASE(MissingNames) {
  CPrintedText printed;
  SwitchDateTimeOff();
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.KLog(eLogLevelFatal, nullptr, nullptr, "x\n"));
    EXPECT_EQ("\033[31mx\n\033[0m", printed.Take());
    EXPECT_EQ(0, family.KLog(eLogLevelFatal, "net", nullptr, "x\n"));
    EXPECT_EQ("\033[31m[net] x\n\033[0m", printed.Take());
    EXPECT_EQ(0, family.KLog(eLogLevelFatal, "", "", "x\n"));
    EXPECT_EQ("\033[31m[][] x\n\033[0m", printed.Take());
    EXPECT_EQ(0, family.KLogV1(eLogLevelFatal, nullptr, "rx", nullptr, nullptr, -1, "x\n"));
    EXPECT_EQ("\033[31m[rx] x\n\033[0m", printed.Take());
    EXPECT_EQ(0, family.KLogs(eLogLevelFatal, nullptr, nullptr, "x\n", 2));
    EXPECT_EQ("\033[31mx\n\033[0m", printed.Take());
    EXPECT_EQ(0, family.KLogsV1(eLogLevelFatal, nullptr, nullptr, "a.c", nullptr, -1, "x\n", 2));
    EXPECT_EQ("[a.c] \033[31mx\n\033[0m", printed.Take());
  }
  return 0;
}

TEST(LoggingFunctions, NullModuleAndTitleAreLeftOutOfThePrefix) {
  EXPECT_TRUE(Succeeded(RunChild("MissingNames")));
}

CHILD_CASE(ModuleMask) {
  CPrintedText printed;
  SwitchDateTimeOff();
  Context().GetAttribute()->m_LevelMask = 0x3e;
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  Context().GetAttribute("net")->m_LevelMask = 0x30;
  for (const tagFamily& family : kFamilies) {
    // The module's mask counts where there is no source location, the global one where there is.
    EXPECT_EQ(2, family.KLog(eLogLevelDebug, "net", "rx", "x\n"));
    EXPECT_EQ(2, family.KLogs(eLogLevelDebug, "net", "rx", "x\n", 2));
    EXPECT_EQ(2, family.KLogsV1(eLogLevelDebug, "net", "rx", "a.c", "main", 1, "x\n", 2));
    EXPECT_EQ("", printed.Take());
    EXPECT_EQ(0, family.KLogV1(eLogLevelDebug, "net", "rx", nullptr, nullptr, -1, "x\n"));
    EXPECT_EQ("\033[0m[net][rx] x\n", printed.Take());
    EXPECT_EQ(0, family.KLog(eLogLevelDebug, "other", "rx", "x\n"));
    EXPECT_EQ("\033[0m[other][rx] x\n", printed.Take());
  }
  Context().GetAttribute()->m_LevelMask = 0x30;
  Context().GetAttribute("net")->m_LevelMask = 0x3e;
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.KLog(eLogLevelDebug, "net", "rx", "x\n"));
    EXPECT_EQ("\033[0m[net][rx] x\n", printed.Take());
    EXPECT_EQ(2, family.KLogV1(eLogLevelDebug, "net", "rx", "a.c", "main", 1, "x\n"));
    EXPECT_EQ("", printed.Take());
  }
  return 0;
}

TEST(LoggingFunctions, ModuleMaskCountsExceptWithASourceLocation) {
  EXPECT_TRUE(Succeeded(RunChild("ModuleMask")));
}

// Where va_list is a plain pointer, one char* argument must not be taken for it.
CHILD_CASE(CharacterArguments) {
  CPrintedText printed;
  SwitchDateTimeOff();
  char text[] = "four";
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.KLog(eLogLevelFatal, nullptr, nullptr, "%s\n", text));
    EXPECT_EQ("\033[31mfour\n\033[0m", printed.Take());
    EXPECT_EQ(0, family.KLogV1(eLogLevelFatal, nullptr, nullptr, nullptr, nullptr, -1, "%s %s %d\n",
                               text, text, 5));
    EXPECT_EQ("\033[31mfour four 5\n\033[0m", printed.Take());
    EXPECT_EQ(0, family.KLog(eLogLevelFatal, nullptr, nullptr, "%lld %.2f %c %s\n", -1LL, 2.5, 'c',
                             text));
    EXPECT_EQ("\033[31m-1 2.50 c four\n\033[0m", printed.Take());
  }
  return 0;
}

TEST(LoggingFunctions, ArgumentsOfEveryWidthArrive) {
  EXPECT_TRUE(Succeeded(RunChild("CharacterArguments")));
}

// --- Callbacks of modules ---

CHILD_CASE(Callbacks) {
  CPrintedText printed;
  int shown = 0;
  int taken = 0;
  const std::string longName(128, 'n');
  for (const tagFamily& family : kFamilies) {
    for (const char* empty : {static_cast<const char*>(nullptr), ""}) {
      EXPECT_EQ(3, family.ModuleStateRegister(empty, "state", Show, nullptr));
      EXPECT_EQ(3, family.ModuleStateRegister("net", empty, Show, nullptr));
      EXPECT_EQ(3, family.ModuleSetParamRegister(empty, "state", Take, nullptr));
      EXPECT_EQ(3, family.ModuleSetParamRegister("net", empty, Take, nullptr));
      EXPECT_EQ(3, family.ModuleStateUnregister(empty, "state"));
      EXPECT_EQ(3, family.ModuleStateUnregister("net", empty));
      EXPECT_EQ(3, family.ModuleSetParamUnregister(empty, "state"));
      EXPECT_EQ(3, family.ModuleSetParamUnregister("net", empty));
    }
    EXPECT_EQ(3, family.ModuleStateRegister("net", "state", nullptr, nullptr));
    EXPECT_EQ(3, family.ModuleSetParamRegister("net", "state", nullptr, nullptr));
    EXPECT_EQ(3, family.ModuleStateRegister(longName.c_str(), "state", Show, nullptr));
    EXPECT_EQ(3, family.ModuleSetParamRegister("net", longName.c_str(), Take, nullptr));
    EXPECT_EQ(1, family.ModuleStateUnregister("net", "state"));
    EXPECT_EQ(1, family.ModuleSetParamUnregister("net", "state"));

    EXPECT_EQ(0, family.ModuleStateRegister("net", "state", Show, &shown));
    EXPECT_EQ(6, family.ModuleStateRegister("NET", "State", Show, &shown));
    EXPECT_EQ(0, family.ModuleSetParamRegister("net", "state", Take, &taken));
    EXPECT_EQ(6, family.ModuleSetParamRegister("NET", "State", Take, &taken));
    shown = 0;
    EXPECT_EQ(0, Context().GetModuleState().Log(1, "Net", "State"));
    EXPECT_EQ(1, shown);
    EXPECT_EQ(0, Context().GetModuleState().Set("Net", "State", 42));
    EXPECT_EQ(42, taken);
    EXPECT_EQ(0, family.ModuleStateUnregister("nEt", "sTate"));
    EXPECT_EQ(0, family.ModuleSetParamUnregister("nEt", "sTate"));
  }
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(CallbackFunctions, ArgumentsAreCheckedAndResultsPassedOn) {
  EXPECT_TRUE(Succeeded(RunChild("Callbacks")));
}

// --- Attributes ---

CHILD_CASE(BadRequests) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const char on = 1;
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(3, family.SetAttribute(5, 0, &on, 1));
    EXPECT_EQ(Report(family, family.m_SetAttributeReport, "attribute invalid : 5"), printed.Take());
    EXPECT_EQ(3, family.SetAttributeByModule(eAttributeLevel, 6, &on, 1, "net"));
    EXPECT_EQ(Report(family, family.m_SetAttributeByModuleReport, "option invalid : 6"),
              printed.Take());
  }
  return 0;
}

TEST(AttributeFunctions, BadRequestIsReportedUnderTheFamilysNames) {
  EXPECT_TRUE(Succeeded(RunChild("BadRequests")));
}

// --- Modules and paths ---

CHILD_CASE(EmptyTexts) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const tagAttribute before = *Context().GetAttribute();
  for (const tagFamily& family : kFamilies) {
    for (const char* empty : {static_cast<const char*>(nullptr), ""}) {
      EXPECT_EQ(3, family.registerModule(empty, "V1"));
      EXPECT_EQ(Report(family, family.m_RegisterModuleReport, "module invalid"), printed.Take());
      EXPECT_EQ(3, family.UnregisterModule(empty));
      EXPECT_EQ(Report(family, family.m_UnregisterModuleReport, "module invalid"), printed.Take());
      EXPECT_EQ(3, family.SetConfigFilePath(empty));
      EXPECT_EQ(Report(family, family.m_SetConfigFilePathReport, "path invalid"), printed.Take());
      EXPECT_EQ(3, family.SetLogFilePath(empty));
      EXPECT_EQ(Report(family, family.m_SetLogFilePathReport, "path invalid"), printed.Take());
    }
  }
  EXPECT_EQ(0, std::memcmp(&before, Context().GetAttribute(), sizeof(before)));
  EXPECT_TRUE(Context().m_ModuleAttribute.empty());
  EXPECT_FALSE(CGlobal::s_ConfigPathSet);
  return 0;
}

TEST(ModuleAndPathFunctions, EmptyTextIsReported) {
  EXPECT_TRUE(Succeeded(RunChild("EmptyTexts")));
}

CHILD_CASE(Modules) {
  CPrintedText printed;
  for (const tagFamily& family : kFamilies) {
    const std::string name = std::string("module of ") + family.m_Source;
    EXPECT_EQ(0, family.registerModule(name.c_str(), nullptr));
    EXPECT_EQ(0, family.registerModule(name.c_str(), "V2")) << "a second time";
    EXPECT_EQ(0, family.UnregisterModule(name.c_str()));
    EXPECT_EQ(0, family.UnregisterModule("never registered"));
    EXPECT_EQ(1u, Context().m_ModuleAttribute.count(name));
  }
  EXPECT_EQ(2u, Context().m_ModuleAttribute.size());
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(ModuleAndPathFunctions, ResultOfTheModuleTableIsNotPassedOn) {
  EXPECT_TRUE(Succeeded(RunChild("Modules")));
}

CHILD_CASE(Paths) {
  CPrintedText printed;
  const std::string longPath(128, 'p');
  char path[kConfigPathBytes] = {};
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.SetLogFilePath("/tmp/first/"));
    EXPECT_EQ("m_Attribute.m_LogPath = /tmp/first/\n", printed.Take());
    EXPECT_EQ(0, family.SetLogFilePath(longPath.c_str())) << "the refusal is not passed on";
    EXPECT_EQ("", printed.Take());
    EXPECT_STREQ("/tmp/first/", Context().GetAttribute()->m_LogPath);
  }
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.SetConfigFilePath(longPath.c_str())) << "the refusal is not passed on";
    EXPECT_EQ(0, Context().GetConfigFilePath(path));
    EXPECT_STREQ("", path);
  }
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.SetConfigFilePath((std::string("/tmp/") + family.m_Source).c_str()));
    EXPECT_EQ(0, Context().GetConfigFilePath(path));
    EXPECT_STREQ("/tmp/Kelvik", path) << "only the first path counts";
  }
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(ModuleAndPathFunctions, ResultsOfThePathSettersAreNotPassedOn) {
  EXPECT_TRUE(Succeeded(RunChild("Paths")));
}

}  // namespace
}  // namespace Kelvik
