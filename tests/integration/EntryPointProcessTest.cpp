// The entry points over the life of a process, the same for both families: its start, its files and
// console, and its end.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>

#include "ChildProcess.h"
#include "ConsoleClient.h"
#include "EntryPointTools.h"
#include "FileTools.h"
#include "KelvikExtra.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

// --- Start, files and console ---

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

CHILD_CASE(RegisterVersions) {
  const std::string& path = args.at(0);
  EXPECT_EQ(0, SetConfigFilePath(path.c_str()));
  for (const tagFamily& family : kFamilies) {
    const std::string version = std::string("7.1 of ") + family.m_Source;
    EXPECT_EQ(0, family.registerModule(family.m_Source, version.c_str()));
    EXPECT_NE(std::string::npos, ReadFile(path).find("=" + version + "\n")) << ReadFile(path);
  }
  return 0;
}

TEST(ProcessFunctions, VersionOfAModuleIsPassedOn) {
  const CTempDir folder;
  ASSERT_TRUE(WriteFile(folder.File("kelvik.ini"), "[Global]\n"));
  EXPECT_TRUE(Succeeded(RunChild("RegisterVersions", {folder.File("kelvik.ini")})));
}

CHILD_CASE(ChangeEverything) {
  const std::string& path = args.at(0);
  EXPECT_EQ(0, SetConfigFilePath(path.c_str()));
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, registerModule("net", "V1"));
  EXPECT_TRUE(WriteFile(path, "[Global]\nlogsize=7\n[net]\nLevelDbg=0\n"));
  const int one = 1;
  for (const tagFamily& family : kFamilies) {
    for (int option = eOutputTerminal; option <= eOutputFile; ++option)
      EXPECT_EQ(0, family.SetAttribute(eAttributeOutput, option, &one, sizeof(one)));
    for (int level = eLogLevelDebug; level <= eLogLevelFatal; ++level) {
      EXPECT_EQ(0, family.SetAttribute(eAttributeLevel, level, &one, sizeof(one)));
      EXPECT_EQ(0, family.SetAttributeByModule(eAttributeLevel, level, &one, 4, "net"));
    }
    EXPECT_EQ(0, family.SetAttribute(eAttributeOther, eOtherLogPath, "/tmp/other/", 11));
    for (int option = eOtherLogMaxSize; option <= eOtherLogMaxCount; ++option)
      EXPECT_EQ(0, family.SetAttribute(eAttributeOther, option, &one, sizeof(one)));
  }
  return 0;
}

TEST(ProcessFunctions, RequestsLiveInMemoryOnly) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(WriteFile(path, "[Global]\n"));
  EXPECT_TRUE(Succeeded(RunChild("ChangeEverything", {path})));
  EXPECT_EQ("[Global]\nlogsize=7\n[net]\nLevelDbg=0\n", ReadFile(path));
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

CHILD_CASE(FileOutputOff) {
  CTempDir folder;
  const char on = 1;
  const char off = 0;
  const uint32_t unbuffered = 0;
  Context().GetAttribute()->m_OutputConsole = 0;
  std::memcpy(&Context().GetAttribute()->m_BufferSize, &unbuffered, sizeof(unbuffered));
  Context().SetLogPath(folder.LogPath().c_str());
  for (const tagFamily& family : kFamilies) {
    const bool closes = &family == &kFamilies[0];
    EXPECT_EQ(0, family.SetAttribute(eAttributeOutput, eOutputFile, &on, 1));
    EXPECT_EQ(0, family.KLog(eLogLevelError, "net", "rx", "opens the file\n"));
    const int fd = Context().GetOutput().m_CurrentFd;
    EXPECT_NE(-1, fd);
    EXPECT_EQ(0, family.SetAttribute(eAttributeOutput, eOutputFile, &off, 1));
    EXPECT_EQ(closes, fcntl(fd, F_GETFD) == -1) << family.m_Source;
  }
  return 0;
}

TEST(ProcessFunctions, ThePlainFamilyAloneClosesTheFileWithItsOutput) {
  EXPECT_TRUE(Succeeded(RunChild("FileOutputOff")));
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

// Whether the port of the loopback address can be had; without SO_REUSEADDR it cannot while
// somebody has it.
bool IsFree(uint16_t port) {
  const int fd = BindPlainSocket(port);
  if (fd == -1) return false;
  close(fd);
  return true;
}

CHILD_CASE(ConsoleFunctions) {
  SwitchDateTimeOff();
  for (const tagFamily& family : kFamilies) {
    EXPECT_EQ(0, family.NetworkConsoleDestroy()) << "there is none";
    // Of the port the low 16 bits count; a null address is 127.0.0.1.
    const uint16_t port = FindFreePort();
    EXPECT_EQ(0, family.NetworkConsoleCreate(nullptr, port + 3u * 65536));
    EXPECT_FALSE(IsFree(port));
    EXPECT_EQ(6, family.NetworkConsoleCreate("127.0.0.1", FindFreePort()));
    EXPECT_EQ(0, family.NetworkConsoleDestroy());
    EXPECT_TRUE(IsFree(port));
    const int taken = BindPlainSocket(0);
    EXPECT_EQ(5, family.NetworkConsoleCreate("127.0.0.1", PortOf(taken)));
    EXPECT_EQ(0, family.NetworkConsoleDestroy());
    close(taken);
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
