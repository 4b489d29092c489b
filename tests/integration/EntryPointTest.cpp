#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "Families.h"
#include "FileTools.h"
#include "Global.h"
#include "KelvikExtra.h"
#include "PrintedText.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

CGlobal& Context() {
  return *CGlobal::Instance();
}

void SwitchDateTimeOff() {
  Context().GetAttribute()->m_OutputDateTime = 0;
}

// What the terminal shows of a report.
std::string Report(const tagFamily& family, const tagReporter& reporter,
                   const std::string& message) {
  return "\033[33m[Kelvik][Internal] " + std::string(family.m_Source) + " " + reporter.m_Function +
         " " + std::to_string(reporter.m_Line) + " " + message + "\n\033[0m";
}

eLogLevel Level(int number) {
  return static_cast<eLogLevel>(number);
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

int Show(int, const char*, const char*, void* context) {
  ++*static_cast<int*>(context);
  return 3;
}

int Take(int value, void* context) {
  *static_cast<int*>(context) = value;
  return 3;
}

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

// --- The process ---

CHILD_CASE(InitializeWith) {
  const tagFamily& family = kFamilies[args.at(0) == "plain" ? 0 : 1];
  if (args.size() > 1) {
    EXPECT_EQ(0, family.SetConfigFilePath(args.at(1).c_str()));
  }
  EXPECT_EQ(0, family.Initialize());
  EXPECT_EQ(0, family.Initialize()) << "a second time";
  EXPECT_EQ(0, family.KLog(eLogLevelError, "net", "rx", "alive\n"));
  return 0;
}

TEST(ProcessFunctions, InitializeSucceedsWhateverTheConfigurationHolds) {
  CTempDir folder;
  ASSERT_TRUE(WriteFile(folder.File("empty.ini"), ""));
  ASSERT_TRUE(WriteFile(folder.File("junk.ini"), std::string(3000, '\xfe') + "\n[[[\n=\n]"));
  ASSERT_TRUE(WriteFile(folder.File("values.ini"),
                        "[Global]\nLogIndex=77\nbufferSize=99999999999\nlogsize=-1\n"));
  for (const char* family : {"plain", "prefixed"}) {
    EXPECT_TRUE(Succeeded(RunChild("InitializeWith", {family}))) << "no path";
    for (const char* name :
         {"empty.ini", "junk.ini", "values.ini", "missing.ini", "no/folder.ini"}) {
      const tagChildResult result = RunChild("InitializeWith", {family, folder.File(name)});
      EXPECT_TRUE(Succeeded(result)) << name;
      EXPECT_NE(std::string::npos, result.m_Output.find("[net][rx] alive\n")) << name;
    }
    EXPECT_TRUE(Succeeded(RunChild("InitializeWith", {family, folder.Path()}))) << "a folder";
  }
}

CHILD_CASE(FileFunctions) {
  CTempDir folder;
  const char on = 1;
  Context().GetAttribute()->m_OutputConsole = 0;
  Context().SetLogPath(folder.LogPath().c_str());
  EXPECT_EQ(0, Initialize());
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.WriteBufferContent2File()) << "nothing waits";
    EXPECT_EQ(0, family.SetAttribute(eAttributeOutput, eOutputFile, &on, 1));
    EXPECT_EQ(0, family.KLog(eLogLevelError, "net", "rx", "text\n"));
    EXPECT_EQ(0, family.WriteBufferContent2File());
    for (int i = 0; i < 500 && ListFolder(folder.Path()).empty(); ++i)
      usleep(10 * 1000);
    EXPECT_EQ(1u, ListFolder(folder.Path()).size());
    EXPECT_EQ(0, family.ClearFileInfo());
    EXPECT_TRUE(ListFolder(folder.Path()).empty());
  }
  return 0;
}

TEST(ProcessFunctions, BufferIsWrittenAndFilesAreCleared) {
  EXPECT_TRUE(Succeeded(RunChild("FileFunctions")));
}

CHILD_CASE(RawWriteFailure) {
  const char on = 1;
  Context().GetAttribute()->m_OutputConsole = 0;
  Context().SetLogPath("/nonexistent/folder/");
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.SetAttribute(eAttributeOutput, eOutputFile, &on, 1));
    const int result = family.KLogs(eLogLevelError, "net", "rx", "text\n", 5);
    EXPECT_EQ(result, Context().GetOutput().Logs(eLogLevelError, "net", "rx", "text\n", 5));
    EXPECT_NE(0, result);
  }
  return 0;
}

TEST(ProcessFunctions, ResultOfARawRecordIsPassedOn) {
  EXPECT_TRUE(Succeeded(RunChild("RawWriteFailure", {}, 30000)));
}

// A bound UDP socket of the loopback address. Without SO_REUSEADDR, so that it fails while the
// port is taken.
class CPort {
 public:
  explicit CPort(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    m_Fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    m_IsBound = bind(m_Fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    socklen_t length = sizeof(address);
    getsockname(m_Fd, reinterpret_cast<sockaddr*>(&address), &length);
    m_Number = ntohs(address.sin_port);
  }
  ~CPort() { close(m_Fd); }
  CPort(const CPort&) = delete;
  CPort& operator=(const CPort&) = delete;

  bool IsBound() const { return m_IsBound; }
  uint16_t Number() const { return m_Number; }

 private:
  int m_Fd = -1;
  bool m_IsBound = false;
  uint16_t m_Number = 0;
};

unsigned FreePort() {
  return CPort(0).Number();
}

CHILD_CASE(ConsoleFunctions) {
  SwitchDateTimeOff();
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.NetworkConsoleDestroy()) << "there is none";
    // Of the port the low 16 bits count; a null address is 127.0.0.1.
    const unsigned port = FreePort();
    EXPECT_EQ(0, family.NetworkConsoleCreate(nullptr, port + 3 * 65536));
    EXPECT_FALSE(CPort(static_cast<uint16_t>(port)).IsBound());
    EXPECT_EQ(6, family.NetworkConsoleCreate("127.0.0.1", FreePort()));
    EXPECT_EQ(0, family.NetworkConsoleDestroy());
    EXPECT_TRUE(CPort(static_cast<uint16_t>(port)).IsBound());
    const CPort taken(0);
    EXPECT_EQ(5, family.NetworkConsoleCreate("127.0.0.1", taken.Number()));
    EXPECT_EQ(0, family.NetworkConsoleDestroy());
  }
  return 0;
}

TEST(ProcessFunctions, ConsoleIsStartedAndStoppedAndItsResultsPassedOn) {
  EXPECT_TRUE(Succeeded(RunChild("ConsoleFunctions", {}, 20000)));
}

CHILD_CASE(FirstCallMakesTheContext) {
  EXPECT_EQ(0, kFamilies[1].KLog(eLogLevelError, "net", nullptr, "first\n"));
  EXPECT_EQ(2, KLog(eLogLevelWarning, "net", nullptr, "first\n"));
  return 0;
}

TEST(ProcessFunctions, FirstCallMakesTheContextWithItsDefaults) {
  const tagChildResult result = RunChild("FirstCallMakesTheContext");
  EXPECT_TRUE(Succeeded(result));
  EXPECT_NE(std::string::npos, result.m_Output.find(" [net] first\n")) << result.m_Output;
}

// --- The end of the process ---

int CountWrongResults(int expected) {
  int wrong = 0;
  const char on = 1;
  tagKelvikStatistics statistics;
  for (const tagFamily& family : kFamilies) {
    const int results[] = {
        family.KLog(eLogLevelFatal, "net", "rx", "late\n"),
        family.KLogV1(eLogLevelFatal, "net", "rx", "a.c", "main", 1, "late\n"),
        family.KLogs(eLogLevelFatal, "net", "rx", "late\n", 5),
        family.KLogsV1(eLogLevelFatal, "net", "rx", "a.c", "main", 1, "late\n", 5),
        family.KLog(Level(9), "net", "rx", "late\n"),
        family.ModuleStateRegister("late", "state", Show, nullptr),
        family.ModuleSetParamRegister("late", "state", Take, nullptr),
        family.ModuleStateUnregister("late", "state"),
        family.ModuleSetParamUnregister("late", "state"),
        family.SetAttributeByModule(eAttributeLevel, eLogLevelDebug, &on, 1, "net"),
        family.SetAttribute(eAttributeOther, eOtherLogPath, "/tmp/late/", 10),
        family.SetAttribute(9, 9, nullptr, 0),
        family.registerModule("late", nullptr),
        family.UnregisterModule("late"),
        family.Initialize(),
        family.SetConfigFilePath("/tmp/late.ini"),
        family.SetLogFilePath("/tmp/late/"),
        family.WriteBufferContent2File(),
        family.ClearFileInfo(),
        family.NetworkConsoleCreate(nullptr, 0),
        family.NetworkConsoleDestroy(),
        KelvikExtra_GetStatistics(&statistics, sizeof(statistics)),
    };
    for (const int result : results) {
      if (result != expected) ++wrong;
    }
  }
  return wrong;
}

constexpr int kEndReached = 42;

// Made before the context, so destroyed after it.
struct tagLateCaller {
  ~tagLateCaller() { _exit(CountWrongResults(eResultFailure) == 0 ? kEndReached : 1); }
};

CHILD_CASE(CallAfterTheEnd) {
  static tagLateCaller caller;
  EXPECT_EQ(0, Kelvik_KLog(eLogLevelFatal, "net", "rx", "in time\n"));
  return 0;
}

TEST(ProcessEnd, EveryFunctionFailsAndDoesNothingAfterTheContextHasEnded) {
  const tagChildResult result = RunChild("CallAfterTheEnd");
  EXPECT_EQ(kEndReached, result.m_ExitCode) << result.m_Output << result.m_Errors;
  EXPECT_FALSE(result.m_TimedOut);
  EXPECT_NE(std::string::npos, result.m_Output.find("in time\n"));
  EXPECT_EQ(std::string::npos, result.m_Output.find("late")) << result.m_Output;
}

std::atomic<bool> s_IsLogging{false};

void* LogForEver(void*) {
  for (;;) {
    KLog(eLogLevelDebug, "net", "rx", "text\n");
    Kelvik_KLogs(eLogLevelDebug, "net", "rx", "text\n", 5);
    ModuleStateRegister("net", "state", Show, nullptr);
    ModuleStateUnregister("net", "state");
    s_IsLogging = true;
  }
  return nullptr;
}

CHILD_CASE(ExitWhileThreadsLog) {
  // What the mask lets pass is not the point here.
  EXPECT_EQ(0, Initialize());
  for (int i = 0; i < 3; ++i) {
    pthread_t thread;
    EXPECT_EQ(0, pthread_create(&thread, nullptr, LogForEver, nullptr));
    pthread_detach(thread);
  }
  while (!s_IsLogging)
    usleep(1000);
  return 0;
}

TEST(ProcessEnd, ThreadsThatStillCallDoNotDisturbTheExit) {
  for (int round = 0; round < 5; ++round) {
    const tagChildResult result = RunChild("ExitWhileThreadsLog");
    ASSERT_TRUE(Succeeded(result));
  }
}

}  // namespace
}  // namespace Kelvik
