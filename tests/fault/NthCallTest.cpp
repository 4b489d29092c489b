// Every Nth call of open, write, rename, fsync, malloc and pthread_create fails, for every N that a
// scripted run reaches, once and for good: nothing crashes or hangs, what is lost is counted, no
// descriptor and no memory stays behind, and logging resumes by itself.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "../integration/LossTools.h"
#include "CallSeam.h"
#include "ConsoleClient.h"

namespace Kelvik {
namespace {

constexpr int kLimitMs = 60000;  // a run takes milliseconds, but syncs wait for a busy disk
constexpr int kFlushMs = 20000;
constexpr int kManyCalls = 20000;
constexpr int kNotReached = 50;  // exit code: the run has no Nth call
constexpr int kBroken = 51;      // a promise was broken; the reason is on standard error

[[noreturn]] void Break(const char* what, int number) {
  std::fprintf(stderr, "%s: %d\n", what, number);
  _exit(kBroken);
}

void Require(bool holds, const char* what, int number = 0) {
  if (!holds) Break(what, number);
}

// Logs, rotates, keeps an index, saves, changes the buffers, clears. May run again and again.
void LogAndRotate(uint16_t port) {
  for (int number = 0; number < 60; ++number) {
    LogNumber("a", number);
    if (number == 20) SetBufferBytes(2048);
    if (number == 40) SetBufferBytes(0);
  }
  KelvikExtra_Flush(200, 1);
  const char data[] = "raw\n";
  KLogs(eLogLevelError, nullptr, nullptr, data, sizeof(data) - 1);
  NetworkConsoleCreate(nullptr, port);
  NetworkConsoleDestroy();
  SetBufferBytes(1024);
  LogNumber("b", 0);
  CGlobal::Instance()->SaveAttribute2File("global");
  ClearFileInfo();
}

void StartScript(const std::string& logPath, const std::string& config) {
  SetConfigFilePath(config.c_str());
  UseSize(logPath, 1024, 1024, 2);
  Initialize();
  KelvikExtra_InstallCrashFlush();
  registerModule("net", "V1");
}

// Everything that was accepted is accounted for, and a record reaches its file.
void RequireRecovery(const std::string& folder) {
  Require(LogLine("works again") == 0, "the record is refused");
  const int flushed = KelvikExtra_Flush(kFlushMs, 1);
  Require(flushed == 0, "the flush fails", flushed);
  const CExempt exempt;
  const tagKelvikStatistics now = Statistics();
  Require(now.m_RecordsAccepted == now.m_RecordsWritten + now.m_RecordsLost, "records uncounted",
          static_cast<int>(now.m_RecordsAccepted - now.m_RecordsWritten - now.m_RecordsLost));
  Require(AllText(folder).find("works again\n") != std::string::npos, "the record is missing");
}

struct tagPlan {
  eCall m_Call;
  int m_Error;
  int m_Nth;
  bool m_ForGood;
  bool m_EndsFailing;  // the process ends while calls still fail
};

// In a process of its own.
[[noreturn]] void RunScript(const tagPlan& plan, const CTempDir& logs, const CTempDir& etc,
                            uint16_t port) {
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(null, STDOUT_FILENO);
  close(null);
  const std::string logPath = logs.LogPath();
  const std::string config = etc.File("kelvik.ini");
  CGlobal::Instance();
  const int descriptors = OpenDescriptors();
  FailCall(plan.m_Call, plan.m_Nth, plan.m_ForGood, plan.m_Error);
  StartScript(logPath, config);
  LogAndRotate(port);
  const int calls = CallsSince(plan.m_Call);
  if (!plan.m_EndsFailing) {
    StopFailing();
    RequireRecovery(logs.Path());
    Output().CloseFile();
    const int now = OpenDescriptors();
    Require(now == descriptors, "descriptors", now - descriptors);
  }
  if (calls < plan.m_Nth) _exit(kNotReached);
  // The leak sanitizer, where there is one, looks for memory that stayed behind.
  std::exit(0);
}

// The exit code of one run.
int RunPlan(const tagPlan& plan, uint16_t port) {
  const CTempDir logs;
  const CTempDir etc;
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) RunScript(plan, logs, etc, port);
  const int code = WaitForProcess(pid, kLimitMs);
  // Whatever happened, the configuration file is none or one that can be read.
  const std::string text = ReadFile(etc.File("kelvik.ini"));
  EXPECT_TRUE(text.empty() || (text.front() == '[' && text.back() == '\n')) << text;
  return code;
}

// An emulated run takes a hundred times as long: there each fourth call fails, which is said.
int Stride() {
  const bool isEmulated = ChildCommand("").size() > 2;
  return isEmulated ? 4 : 1;
}

void FailEveryCall(eCall call, int error) {
  const uint16_t port = FindFreePort();
  const int stride = Stride();
  if (stride != 1) std::printf("SKIPPED: all but each call number %d\n", stride);
  for (const bool forGood : {false, true}) {
    int nth = 1;
    for (int code = 0; code != kNotReached; nth += stride) {
      ASSERT_LT(nth, kManyCalls) << "the run does not end";
      code = RunPlan({call, error, nth, forGood, false}, port);
      ASSERT_TRUE(code == 0 || code == kNotReached)
          << "call " << nth << (forGood ? " for good" : " once") << ": " << code;
    }
    EXPECT_GT(nth, 1 + stride);
    std::printf("%d calls failed %s\n", nth / stride - 1, forGood ? "for good" : "once");
  }
}

// The process ends while calls fail.
void EndWhileFailing(eCall call, int error) {
  const uint16_t port = FindFreePort();
  for (int nth = 1; nth <= 8; ++nth) {
    const int code = RunPlan({call, error, nth, true, true}, port);
    EXPECT_TRUE(code == 0 || code == kNotReached) << "from call " << nth << ": " << code;
  }
}

TEST(NthCall, Open) {
  FailEveryCall(kOpen, EMFILE);
}
TEST(NthCall, WriteWithAnError) {
  FailEveryCall(kWrite, EIO);
}
TEST(NthCall, WriteOnAFullDisk) {
  FailEveryCall(kWrite, ENOSPC);
}
TEST(NthCall, Rename) {
  FailEveryCall(kRename, EACCES);
}
TEST(NthCall, Fsync) {
  FailEveryCall(kFsync, EIO);
}
TEST(NthCall, Thread) {
  FailEveryCall(kThread, EAGAIN);
}
TEST(NthCall, Malloc) {
  FailEveryCall(kMalloc, ENOMEM);
}

TEST(NthCall, EndOfTheProcessWhileCallsFail) {
  EndWhileFailing(kOpen, EMFILE);
  EndWhileFailing(kWrite, EIO);
  EndWhileFailing(kWrite, ENOSPC);
  EndWhileFailing(kRename, EACCES);
  EndWhileFailing(kFsync, EIO);
  EndWhileFailing(kThread, EAGAIN);
#ifdef KELVIK_COVERAGE
  // gcov's own work at the end of a process does not survive it.
  std::printf("SKIPPED: the end without memory\n");
#else
  EndWhileFailing(kMalloc, ENOMEM);
#endif
}

// A process whose calls fail for long, args: log path, folder, configuration path, call, error.
CHILD_CASE(FailForLong) {
  const auto call = static_cast<eCall>(std::atoi(args.at(3).c_str()));
  const uint16_t port = FindFreePort();
  StartScript(args.at(0), args.at(2));
  int descriptors = 0;
  size_t memory = 0;
  const int rounds = 10 + Rounds();
  for (int round = 0; round < rounds; ++round) {
    // Every other call fails, so that what comes before and after a failure happens too.
    for (int nth = 1; nth <= 3; ++nth) {
      FailCall(call, nth, true, std::atoi(args.at(4).c_str()));
      LogAndRotate(port);
    }
    StopFailing();
    Output().CloseFile();
    // Caches of the allocator and of the C library fill first.
    if (round == rounds / 2) {
      descriptors = OpenDescriptors();
      memory = mallinfo2().uordblks;
    }
  }
  EXPECT_EQ(descriptors, OpenDescriptors());
  EXPECT_LE(mallinfo2().uordblks, memory + 32768);
  return 0;
}

TEST(NthCall, NothingGrowsWhileCallsFail) {
  const struct {
    eCall m_Call;
    int m_Error;
  } cases[] = {{kOpen, EMFILE},   {kWrite, EIO}, {kWrite, ENOSPC}, {kRename, EACCES},
               {kMalloc, ENOMEM}, {kFsync, EIO}, {kThread, EAGAIN}};
  for (const auto& each : cases) {
    const CTempDir etc;
    EXPECT_TRUE(RunCase(
        "FailForLong",
        {etc.File("kelvik.ini"), std::to_string(each.m_Call), std::to_string(each.m_Error)}, 60000))
        << each.m_Call << " " << each.m_Error;
  }
}

}  // namespace
}  // namespace Kelvik
