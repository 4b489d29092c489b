// Children of fork(): none hangs, no record is there twice, none is missing.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "ConsoleClient.h"
#include "LossTools.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

std::atomic<bool> gHoldsMaking{false};
std::atomic<bool> gIsMaking{false};

}  // namespace
}  // namespace Kelvik

// In place of the system's: the context asks for its terminal while it is made.
extern "C" int ttyname_r(int, char*, size_t) noexcept {
  Kelvik::gIsMaking = true;
  while (Kelvik::gHoldsMaking)
    usleep(1000);
  return ENOTTY;
}

namespace Kelvik {
namespace {

constexpr int kThreads = 4;
constexpr int kChildRecords = 50;
// Far beyond what any step takes: a child syncs its file, and a busy disk holds that up for
// seconds.
constexpr int kLimitMs = 30000;

// The leak sanitizer would miss what only the stacks of the parent's threads refer to.
testing::AssertionResult RunFork(const std::string& name,
                                 const std::vector<std::string>& more = {}) {
  const CTempDir logs;
  tagChildOptions options;
  options.m_LimitMs = 150000;
  options.m_Environment = {{"ASAN_OPTIONS", "detect_leaks=0"}};
  std::vector<std::string> args = {logs.LogPath(), logs.Path()};
  args.insert(args.end(), more.begin(), more.end());
  return Succeeded(RunChild(name, args, options));
}

void LogNumbers(const std::string& name, int count) {
  for (int number = 0; number < count; ++number)
    if (LogNumber(name.c_str(), number) != 0) _exit(11);
}

constexpr char kWarmUp[] = "warm-up\n";

// A thread that starts takes memory, and a child made meanwhile has the locks of the address
// sanitizer's heap as they were: its own writer would hang in its start. So the parent's has begun
// here; without that sanitizer a fork may come at any step of it.
void LetTheWriterBegin() {
  if (KELVIK_TEST_ADDRESS_SANITIZER == 0) return;
  EXPECT_EQ(0, KLog(eLogLevelInfo, nullptr, nullptr, "%s", kWarmUp));
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
}

std::string TextBehindWarmUp(const std::string& folder) {
  std::string text = AllText(folder);
  for (std::size_t at = 0; (at = text.find(kWarmUp, at)) != std::string::npos;)
    text.erase(at, std::strlen(kWarmUp));
  return text;
}

void StartEngine(const std::string& logPath, uint32_t bufferBytes) {
  UseSize(logPath, bufferBytes, kHugeFile);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  LetTheWriterBegin();
}

CHILD_CASE(StartThreadInForkedChild) {
  std::atomic<bool> mayEnd{false};
  std::thread other([&] { WaitUntil([&] { return mayEnd.load(); }, kLimitMs); });
  const pid_t pid = fork();
  if (pid == 0) {
    std::thread([] {}).join();
    _exit(0);
  }
  const int code = WaitForProcess(pid, kLimitMs);
  mayEnd = true;
  other.join();
  return code == 0 ? 0 : 1;
}

// Whether the child of a process with threads can start one. Any kernel can; an emulator may not,
// which shows without the library.
bool CanForkedChildStartThread() {
  const bool isEmulated = ChildCommand("").size() > 2;
  if (!isEmulated) return true;
  static const bool canStart = RunChild("StartThreadInForkedChild").m_ExitCode == 0;
  return canStart;
}

#define KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN() \
  if (!CanForkedChildStartThread())                      \
  GTEST_SKIP() << "the emulator cannot start a thread in a forked child"

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

// Other threads hold every lock of the library in turn while this one forks.
CHILD_CASE(ForkUnderLocks) {
  EXPECT_EQ(0, SetConfigFilePath((args.at(1) + "/fork.ini").c_str()));
  StartEngine(args.at(0), 1024);
  std::atomic<bool> isOn{true};
  std::thread changes([&] {
    for (int i = 0; isOn; ++i) {
      const std::string name = "module" + std::to_string(i % 50);
      ModuleStateRegister(
          name.c_str(), "state", [](int, const char*, const char*, void*) { return 0; }, nullptr);
      registerModule(name.c_str(), "V1");
      SetAttribute(eAttributeOther, eOtherFocusModule, name.c_str(), 5);
      Output().SetOverflow(eOverflowWrite);
      ModuleStateUnregister(name.c_str(), "state");
      Output().CloseFile();
      PauseMs(i % 2);
    }
  });
  std::thread flushes([&] {
    for (int i = 0; isOn; ++i) {
      LogNumber("flush", i);
      KelvikExtra_Flush(100, 1);
    }
  });
  for (int round = 0; round < Rounds(); ++round) {
    const pid_t pid = fork();
    if (pid == 0) {
      registerModule("child", "V1");
      ModuleStateRegister(
          "child", "state", [](int, const char*, const char*, void*) { return 0; }, nullptr);
      SetAttribute(eAttributeOther, eOtherFocusModule, "child", 5);
      LogNumbers("child", 10);
      if (KelvikExtra_Flush(kLimitMs, 1) != 0) _exit(41);
      CGlobal::Instance()->SaveAttribute2File("all");
      std::exit(0);
    }
    EXPECT_EQ(0, WaitForProcess(pid, kLimitMs)) << "round " << round;
  }
  isOn = false;
  changes.join();
  flushes.join();
  return 0;
}

TEST(Fork, LocksHeldByOtherThreadsAreFreeInTheChild) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_UNDER_ADDRESS_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkUnderLocks"));
}

// A thread is inside Initialize, held up by the buffer lock, while this one forks.
CHILD_CASE(ForkInsideInitialize) {
  EXPECT_EQ(0, SetConfigFilePath((args.at(1) + "/fork.ini").c_str()));
  std::atomic<pid_t> caller{0};
  Output().m_BufferMutex.lock();
  std::thread initializes([&] {
    caller = gettid();
    EXPECT_EQ(0, Initialize());
  });
  const auto isHeldUp = [&] {
    const std::string stat = ReadFile("/proc/self/task/" + std::to_string(caller) + "/stat");
    return stat.find(") S ") != std::string::npos;
  };
  EXPECT_TRUE(WaitUntil([&] { return caller != 0 && isHeldUp(); }, kLimitMs));
  const pid_t pid = fork();
  if (pid == 0) _exit(CGlobal::Instance()->ConfigFileInitialize() == 0 ? 0 : 51);
  EXPECT_EQ(0, WaitForProcess(pid, kLimitMs));
  Output().m_BufferMutex.unlock();
  initializes.join();
  EXPECT_EQ(3, CGlobal::Instance()->ConfigFileInitialize());
  return 0;
}

TEST(Fork, ChildInitializesThoughAThreadOfTheParentWasAtIt) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkInsideInitialize"));
}

CHILD_CASE(ForkInsideTheFirstCall) {
  gHoldsMaking = true;
  std::thread first([] { EXPECT_EQ(2, KLog(eLogLevelDebug, "net", "rx", "first\n")); });
  EXPECT_TRUE(WaitUntil([] { return gIsMaking.load(); }, kLimitMs));
  std::thread goesOn([] {
    usleep(100 * 1000);
    gHoldsMaking = false;
  });
  const pid_t pid = fork();
  if (pid == 0) {
    gHoldsMaking = false;
    _exit(KLog(eLogLevelDebug, "net", "rx", "in the child\n") == 2 ? 0 : 61);
  }
  EXPECT_EQ(0, WaitForProcess(pid, kLimitMs));
  goesOn.join();
  first.join();
  return 0;
}

TEST(Fork, ChildLogsThoughAThreadOfTheParentMadeTheContext) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("ForkInsideTheFirstCall"));
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
