// The end of a process that logs: nothing accepted is lost, nothing hangs, late calls are refused.

#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <thread>

#include "OutputTools.h"

namespace Kelvik {
namespace {

using testing::HasSubstr;

// Runs a case and gives its folder's text afterwards.
struct tagEnd {
  tagChildResult m_Result;
  std::string m_Text;
};

tagEnd RunToItsEnd(const std::string& name, const std::vector<std::string>& more = {}) {
  const CTempDir logs;
  tagChildOptions options;
  options.m_Environment = {{"TZ", "UTC0"}};
  std::vector<std::string> args = {logs.LogPath(), logs.Path()};
  args.insert(args.end(), more.begin(), more.end());
  tagEnd end;
  end.m_Result = RunChild(name, args, options);
  end.m_Text = AllText(logs.Path());
  return end;
}

// Prints when main is over: what counts is the time from here.
int64_t gStart = 0;

CHILD_CASE(Returns) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  if (args[2] == "flushed") {
    EXPECT_EQ(0, LogLine("batch"));
    EXPECT_EQ(0, WriteBufferContent2File());
  }
  if (args[2] == "held") {
    // The writer has not come to the batch, and more waits in front of it.
    Output().Stop();
    EXPECT_EQ(0, LogLine("batch"));
    EXPECT_EQ(0, WriteBufferContent2File());
  }
  EXPECT_EQ(0, LogLine("waits"));
  EXPECT_EQ(0, LogLine("too"));
  return 0;
}

TEST(Exit, ReturnFromMainWritesWhatWaits) {
  for (const std::string how : {"idle", "flushed", "held"}) {
    const tagEnd end = RunToItsEnd("Returns", {how});
    EXPECT_TRUE(Succeeded(end.m_Result)) << how;
    EXPECT_LT(end.m_Result.m_ElapsedMs, ScaledMs(1000));
    EXPECT_EQ(how == "idle" ? "waits\ntoo\n" : "batch\nwaits\ntoo\n", end.m_Text) << how;
  }
}

CHILD_CASE(NotStarted) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, LogLine("waits"));
  return 0;
}

TEST(Exit, TextIsWrittenAlsoWithoutAWriter) {
  const tagEnd end = RunToItsEnd("NotStarted");
  EXPECT_TRUE(Succeeded(end.m_Result));
  EXPECT_EQ("waits\n", end.m_Text);
}

CHILD_CASE(ByTime) {
  UseSize(args[0], 4096, 0);
  CGlobal::Instance()->SetLogMaxDuration(1000);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("waits"));
  return 0;
}

TEST(Exit, TextForFilesThatRotateByTimeIsWrittenToo) {
  const tagEnd end = RunToItsEnd("ByTime");
  EXPECT_TRUE(Succeeded(end.m_Result));
  EXPECT_EQ("waits\n", end.m_Text);
}

CHILD_CASE(FileOff) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  DropBatch();
  return 0;
}

TEST(Exit, PauseWithoutFileOutputDoesNotDelayIt) {
  const tagEnd end = RunToItsEnd("FileOff");
  EXPECT_TRUE(Succeeded(end.m_Result));
  EXPECT_LT(end.m_Result.m_ElapsedMs, ScaledMs(800));
  EXPECT_EQ("", end.m_Text);
}

CHILD_CASE(ExitCall) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("waits"));
  if (args[2] == "thread") {
    std::thread([] { exit(5); }).join();
  }
  exit(5);
}

TEST(Exit, CallOfExitOnAnyThreadWritesWhatWaits) {
  for (const char* where : {"main", "thread"}) {
    const tagEnd end = RunToItsEnd("ExitCall", {where});
    EXPECT_EQ(5, end.m_Result.m_ExitCode) << where << end.m_Result.m_Errors;
    EXPECT_EQ("waits\n", end.m_Text) << where;
  }
}

CHILD_CASE(AtExit) {
  CGlobal::Instance();
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  atexit([] { LogLine("from a handler that is younger than the context"); });
  EXPECT_EQ(0, LogLine("waits"));
  return 0;
}

TEST(Exit, HandlerThatIsYoungerThanTheContextStillLogs) {
  const tagEnd end = RunToItsEnd("AtExit");
  EXPECT_TRUE(Succeeded(end.m_Result));
  EXPECT_EQ("waits\nfrom a handler that is younger than the context\n", end.m_Text);
}

// A static object that outlives the context.
class CLateLogger {
 public:
  ~CLateLogger() {
    if (!m_IsWatching) return;
    const int results[] = {LogLine("late"),
                           KLogs(eLogLevelInfo, "m", "t", "late\n", 5),
                           KLogV1(eLogLevelInfo, "m", "t", "f", "g", 1, "late\n"),
                           WriteBufferContent2File(),
                           Initialize(),
                           ClearFileInfo(),
                           registerModule("late", "1"),
                           SetLogFilePath("/tmp/"),
                           NetworkConsoleCreate(nullptr, 0)};
    int code = 40;
    for (const int result : results) {
      if (result == 0) _exit(code);
      ++code;
    }
    _exit(30);  // none of them worked
  }
  bool m_IsWatching = false;
};

CHILD_CASE(LateCalls) {
  static CLateLogger logger;  // made before the context, so destroyed after it
  logger.m_IsWatching = true;
  UseSize(args[0], static_cast<uint32_t>(std::stoul(args[2])));
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("waits"));
  return 0;
}

TEST(Exit, StaticDestructorsAfterTheContextGetAFailureCode) {
  for (const char* bufferBytes : {"0", "4096"}) {
    const tagEnd end = RunToItsEnd("LateCalls", {bufferBytes});
    EXPECT_EQ(30, end.m_Result.m_ExitCode) << end.m_Result.m_Errors;
    EXPECT_EQ("waits\n", end.m_Text);
  }
}

std::atomic<int> gAccepted{0};

CHILD_CASE(StillLogging) {
  UseSize(args[0], static_cast<uint32_t>(std::stoul(args[2])), 1 << 20, 10);
  EXPECT_EQ(0, Initialize());
  for (int thread = 0; thread < 8; ++thread) {
    std::thread([thread] {
      for (int i = 0;; ++i) {
        KLog(eLogLevelInfo, nullptr, nullptr, "%d %d abcdefghijklmnopqrstuvwxyz.\n", thread, i);
        KLogs(eLogLevelInfo, nullptr, nullptr, "0 -1 abcdefghijklmnopqrstuvwxyz.\n", 33);
        gAccepted.fetch_add(1, std::memory_order_relaxed);
      }
    }).detach();
  }
  WaitUntil([] { return gAccepted.load() > 200; }, 3000);
  gStart = RealClockMs();
  return 0;
}

TEST(Exit, ThreadsThatLogWhileItRunsNeitherCrashNorTearALine) {
  for (const char* bufferBytes : {"0", "4096", "65536"}) {
    const tagEnd end = RunToItsEnd("StillLogging", {bufferBytes});
    EXPECT_TRUE(Succeeded(end.m_Result)) << bufferBytes;
    EXPECT_LT(end.m_Result.m_ElapsedMs, ScaledMs(4000));
    for (const std::string& line : Lines(end.m_Text)) {
      int thread = -1;
      int number = -1;
      char rest[64] = "";
      ASSERT_EQ(3, std::sscanf(line.c_str(), "%d %d %63s", &thread, &number, rest)) << line;
      ASSERT_STREQ("abcdefghijklmnopqrstuvwxyz.", rest) << line;
    }
    EXPECT_FALSE(end.m_Text.empty());
  }
}

CHILD_CASE(Prints) {
  UseSize(args[0], 4096);
  SwitchTerminal(true);
  EXPECT_EQ(0, Initialize());
  setvbuf(stdout, nullptr, _IOFBF, 65536);
  EXPECT_EQ(0, LogLine("on the terminal"));
  return 0;
}

TEST(Exit, StandardOutputIsFlushed) {
  const tagEnd end = RunToItsEnd("Prints");
  EXPECT_TRUE(Succeeded(end.m_Result));
  EXPECT_THAT(end.m_Result.m_Output, HasSubstr("on the terminal\n"));
  EXPECT_EQ("on the terminal\n", end.m_Text);
}

}  // namespace
}  // namespace Kelvik
