// Children of fork(): none hangs, no record is there twice, none is missing.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "ConsoleClient.h"
#include "ForkTools.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

constexpr int kThreads = 4;
constexpr int kChildRecords = 50;

CHILD_CASE(ForkAndLog) {
  StartEngine(args.at(0), 4096);
  CLoggers loggers(kThreads);
  EXPECT_TRUE(WaitUntil([&] { return loggers.HaveAllBegun(); }, kLimitMs));
  std::map<std::string, int> counts;
  for (int round = 0; round < Rounds(); ++round) {
    const std::string name = "child" + std::to_string(round);
    counts[name] = kChildRecords;
    const pid_t pid = fork();
    if (pid == 0) {
      LogNumbers(name, kChildRecords);
      std::exit(0);
    }
    EXPECT_EQ(0, WaitForProcess(pid, kLimitMs)) << name;
  }
  loggers.Stop();
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  for (const auto& [name, count] : loggers.Counts())
    counts[name] = count;
  EXPECT_TRUE(IsAllThere(TextBehindWarmUp(args.at(1)), counts));
  EXPECT_EQ(0u, Statistics().m_RecordsLost);
  return 0;
}

TEST(Fork, ChildLogsAndExitsUnderLoad) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("ForkAndLog"));
}

CHILD_CASE(ForkAndExec) {
  StartEngine(args.at(0), 4096);
  CLoggers loggers(kThreads);
  EXPECT_TRUE(WaitUntil([&] { return loggers.HaveAllBegun(); }, kLimitMs));
  std::map<std::string, int> counts;
  for (int round = 0; round < Rounds(); ++round) {
    const std::string name = "child" + std::to_string(round);
    const bool logs = round % 2 == 0;
    if (logs) counts[name] = kChildRecords;
    const pid_t pid = fork();
    if (pid == 0) {
      if (logs) {
        LogNumbers(name, kChildRecords);
        if (KelvikExtra_Flush(kLimitMs, 0) != 0) _exit(12);
      }
      execlp("sh", "sh", "-c", "! ls -l /proc/$$/fd | grep -q '[.]log'", nullptr);
      _exit(13);
    }
    EXPECT_EQ(0, WaitForProcess(pid, kLimitMs)) << name << ": a log file is open in the program";
  }
  loggers.Stop();
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  for (const auto& [name, count] : loggers.Counts())
    counts[name] = count;
  EXPECT_TRUE(IsAllThere(TextBehindWarmUp(args.at(1)), counts));
  return 0;
}

TEST(Fork, ChildExecsUnderLoad) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkAndExec"));
}

// One daemon: this process starts a parent that logs, forks and goes at once; the child goes on.
// With _exit the parent's other threads would take records along, so there are none then.
void RunDaemon(const std::string& logPath, bool exits, const std::string& suffix) {
  const std::string parent = "parent" + suffix;
  const std::string child = "child" + suffix;
  const pid_t pid = fork();
  if (pid == 0) {
    StartEngine(logPath, 65536);
    LogNumbers(parent, kChildRecords);
    std::atomic<bool> hasBegun{false};
    if (exits) {
      std::thread([&hasBegun] {
        for (;;) {
          registerModule("module", "V1");
          hasBegun = true;
        }
      }).detach();
      EXPECT_TRUE(WaitUntil([&] { return hasBegun.load(); }, kLimitMs));
    }
    const pid_t daemon = fork();
    if (daemon == -1) _exit(14);
    if (daemon != 0) exits ? std::exit(0) : _exit(0);
    setsid();
    LogNumbers(child, kChildRecords);
    std::exit(0);
  }
  EXPECT_EQ(0, WaitForProcess(pid, kLimitMs)) << "the parent";
  // The daemon has become a child of this process.
  EXPECT_EQ(0, WaitForProcess(-1, kLimitMs)) << "the daemon";
}

CHILD_CASE(ForkDaemons) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  std::map<std::string, int> counts;
  for (int round = 0; round < Rounds(); ++round) {
    const std::string suffix = std::to_string(round);
    RunDaemon(args.at(0), args.at(2) == "exit", suffix);
    counts["parent" + suffix] = kChildRecords;
    counts["child" + suffix] = kChildRecords;
  }
  // An emulator may hand the daemons to another process, so their end cannot be waited for there.
  WaitUntil([&] { return bool(IsAllThere(TextBehindWarmUp(args.at(1)), counts)); }, kLimitMs);
  EXPECT_TRUE(IsAllThere(TextBehindWarmUp(args.at(1)), counts));
  return 0;
}

TEST(Fork, ParentOfADaemonExitsAtOnce) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("ForkDaemons", {"exit"}));
}

TEST(Fork, ParentOfADaemonLeavesWithoutExitHandlers) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("ForkDaemons", {"_exit"}));
}

CHILD_CASE(ForkWithConsole) {
  StartEngine(args.at(0), 4096);
  auto* console = new CTestConsole;  // the child must not end it
  EXPECT_TRUE(console->Sync());
  const uint16_t port = console->Port();
  int go[2];
  int begun[2];
  EXPECT_EQ(0, pipe(go));
  EXPECT_EQ(0, pipe(begun));
  char byte = 0;
  const pid_t pid = fork();
  if (pid == 0) {
    if (write(begun[1], "x", 1) != 1) _exit(20);
    // The parent has ended its console and taken the port meanwhile.
    if (read(go[0], &byte, 1) != 1) _exit(21);
    ModuleSetParamUnregister("TestConsole",
                             "sync");  // the parent's, which asks the parent's object
    CTestConsole own;
    if (!own.Obey("-logcount 7")) _exit(22);
    if (KeptFiles() != 7) _exit(23);
    if (NetworkConsoleDestroy() != 0) _exit(24);
    _exit(0);
  }
  delete console;
  // It closes the socket before fork returns there, which may be later than here.
  EXPECT_EQ(1, read(begun[0], &byte, 1));
  const int fd = BindPlainSocket(port);
  EXPECT_NE(-1, fd) << "the child holds the socket";
  EXPECT_EQ(1, write(go[1], "x", 1));
  EXPECT_EQ(0, WaitForProcess(pid, 2 * kLimitMs));
  EXPECT_NE(7u, KeptFiles());
  return 0;
}

TEST(Fork, ConsoleIsClosedInTheChildAndCanBeCreatedAgain) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkWithConsole"));
}

int CountThreads() {
  return static_cast<int>(ListFolder("/proc/self/task").size());
}

CHILD_CASE(ForkOnDemand) {
  StartEngine(args.at(0), 4096);
  LogNumbers("parent", 10);
  const char off = 0;
  SetAttribute(eAttributeLevel, eLogLevelDebug, &off, 1);
  KLog(eLogLevelDebug, nullptr, nullptr, "below the level");
  SwitchFile(false);
  SwitchTerminal(true);
  KLog(eLogLevelError, nullptr, nullptr, "on the terminal");
  SwitchTerminal(false);
  SwitchFile(true);
  EXPECT_NE(0u, Statistics().m_TerminalRecords);
  EXPECT_NE(0u, Statistics().m_RecordsBelowLevel);
  const pid_t pid = fork();
  if (pid == 0) {
    const tagKelvikStatistics counters = Statistics();
    if (counters.m_RecordsAccepted != 0) _exit(31);
    if (counters.m_RecordsBelowLevel != 0 || counters.m_RecordsRefused != 0) _exit(37);
    if (counters.m_TerminalRecords != 0 || counters.m_SystemRecords != 0) _exit(38);
    if (CountThreads() != 1) _exit(32);
    LogNumbers("child", 10);
    if (CountThreads() != 1) _exit(33);
    WriteBufferContent2File();
    // A sanitizer has a thread of its own in a process with threads.
    if (!WaitUntil([] { return Statistics().m_RecordsWritten == 10; }, kLimitMs)) _exit(34);
    if (CountThreads() < 2) _exit(35);
    const pid_t grandchild = fork();
    if (grandchild == 0) {
      LogNumbers("grandchild", 10);
      std::exit(0);
    }
    _exit(WaitForProcess(grandchild, kLimitMs) == 0 ? 0 : 36);
  }
  EXPECT_EQ(0, WaitForProcess(pid, 2 * kLimitMs));
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  EXPECT_TRUE(IsAllThere(TextBehindWarmUp(args.at(1)),
                         {{"parent", 10}, {"child", 10}, {"grandchild", 10}}));
  return 0;
}

TEST(Fork, WriterOfTheChildStartsOnDemand) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkOnDemand"));
}

// With file output off the text that waits is not written before the process is copied.
CHILD_CASE(ForkWhileTextWaits) {
  StartEngine(args.at(0), 65536);
  LogNumbers("early", 10);
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));  // gives both processes the file to append to
  LogNumbers("parent", 10);
  SwitchFile(false);
  const pid_t pid = fork();
  if (pid == 0) {
    SwitchFile(true);
    LogNumbers("child", 10);
    std::exit(0);
  }
  EXPECT_EQ(0, WaitForProcess(pid, kLimitMs));
  EXPECT_TRUE(IsAllThere(TextBehindWarmUp(args.at(1)), {{"early", 10}, {"child", 10}}));
  SwitchFile(true);
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  EXPECT_TRUE(
      IsAllThere(TextBehindWarmUp(args.at(1)), {{"early", 10}, {"parent", 10}, {"child", 10}}));
  return 0;
}

TEST(Fork, TextThatFileOutputKeepsWaitingStaysWithTheParent) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("ForkWhileTextWaits"));
}

// The writer has met a full disk and waits for the buffer's lock to clear the files, while this
// thread, which holds it, forks.
CHILD_CASE(ForkOnAFullDisk) {
  UseSize(args.at(0), 4096, kHugeFile);
  EXPECT_EQ(0, Initialize());
  LogNumbers("early", 1);
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  COutput& output = Output();
  CGuard hold(&output.m_BufferMutex);
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(output.m_CurrentFd, dup2(full, output.m_CurrentFd));
  LogNumbers("lost", 1);
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_TRUE(WaitUntil([&] { return RelaxedLoad(output.m_DiskFull) == 1; }, kLimitMs));
  const pid_t pid = fork();
  if (pid == 0) {
    // It meets the full disk itself, clears the files and goes on.
    LogNumbers("child", 1);
    if (KelvikExtra_Flush(kLimitMs, 0) != 1) _exit(12);
    LogNumbers("child", 1);
    _exit(KelvikExtra_Flush(kLimitMs, 0) == 0 ? 0 : 13);
  }
  EXPECT_EQ(0, WaitForProcess(pid, kLimitMs));
  EXPECT_EQ(NumberLine("child", 0) + "\n", AllText(args.at(1)));
  return 0;
}

TEST(Fork, ChildLogsThoughTheParentWasClearingAFullDisk) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkOnAFullDisk"));
}

int gForkRound = 0;

// The program's own handlers of fork log. They are older than the library's context.
CHILD_CASE(ForkWithHandlersThatLog) {
  pthread_atfork([] { LogNumber("prepare", gForkRound); }, [] { LogNumber("parent", gForkRound); },
                 [] { LogNumber("child", gForkRound); });
  StartEngine(args.at(0), 4096);
  for (; gForkRound < Rounds(); ++gForkRound) {
    const pid_t pid = fork();
    if (pid == 0) std::exit(0);
    EXPECT_EQ(0, WaitForProcess(pid, kLimitMs)) << "round " << gForkRound;
  }
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  EXPECT_TRUE(IsAllThere(TextBehindWarmUp(args.at(1)),
                         {{"prepare", Rounds()}, {"parent", Rounds()}, {"child", Rounds()}}));
  return 0;
}

TEST(Fork, TheProgramsOwnForkHandlersMayLog) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("ForkWithHandlersThatLog"));
}

}  // namespace
}  // namespace Kelvik
