// A crash saves what the buffers hold.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "LossTools.h"

namespace {

std::atomic<bool> gCrashInWrite{false};

// A true fault that no sanitizer looks at first.
void Fault() {
  void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  *static_cast<volatile char*>(page) = 1;
}

}  // namespace

extern "C" {
ssize_t __real_write(int fd, const void* data, size_t length);
ssize_t __wrap_write(int fd, const void* data, size_t length);
ssize_t __wrap_write(int fd, const void* data, size_t length) {
  if (gCrashInWrite.exchange(false)) Fault();
  return __real_write(fd, data, length);
}
}

namespace Kelvik {
namespace {

// The sanitizers leave these signals alone: their own report would be the end.
constexpr char kHandleNone[] =
    "handle_segv=0:handle_sigbus=0:handle_sigill=0:handle_sigfpe=0:handle_abort=0";

tagChildResult RunCrash(const std::string& name, const CTempDir& logs,
                        const std::vector<std::string>& more = {}) {
  tagChildOptions options;
  options.m_Environment = {{"ASAN_OPTIONS", kHandleNone}, {"TSAN_OPTIONS", kHandleNone}};
  std::vector<std::string> args = {logs.LogPath(), logs.Path()};
  args.insert(args.end(), more.begin(), more.end());
  return RunChild(name, args, options);
}

// A batch that was handed over and records behind it.
void FillBothBuffers(const std::string& logPath) {
  UseSize(logPath, 4096, kHugeFile);
  EXPECT_EQ(0, KelvikExtra_InstallCrashFlush());
  for (int number = 0; number < 10; ++number)
    LogNumber("a", number);
  WriteBufferContent2File();
  for (int number = 10; number < 20; ++number)
    LogNumber("a", number);
}

CHILD_CASE(CrashBySignal) {
  const int number = std::atoi(args.at(2).c_str());
  FillBothBuffers(args.at(0));
  if (number == SIGSEGV) Fault();
  if (number == SIGABRT) std::abort();
  raise(number);
  return 0;
}

TEST(CrashFlush, BothBuffersAreSavedAndTheSignalEndsTheProcess) {
  for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT}) {
    const CTempDir logs;
    const tagChildResult result = RunCrash("CrashBySignal", logs, {std::to_string(number)});
    EXPECT_FALSE(result.m_TimedOut);
    EXPECT_EQ(number, result.m_Signal) << result.m_Errors;
    EXPECT_TRUE(IsAllThere(AllText(logs.Path()), {{"a", 20}})) << number;
  }
}

CHILD_CASE(CrashWithLocks) {
  FillBothBuffers(args.at(0));
  Output().m_BufferMutex.lock();
  Output().m_WriteMutex.lock();
  Fault();
  return 0;
}

TEST(CrashFlush, WorksWithTheLocksOfTheLibraryHeld) {
  const CTempDir logs;
  const tagChildResult result = RunCrash("CrashWithLocks", logs);
  EXPECT_EQ(SIGSEGV, result.m_Signal) << result.m_Errors;
  EXPECT_TRUE(IsAllThere(AllText(logs.Path()), {{"a", 20}}));
}

CHILD_CASE(CrashWithLocksElsewhere) {
  FillBothBuffers(args.at(0));
  std::atomic<bool> isHeld{false};
  std::thread holder([&] {
    CGuard buffer(&Output().m_BufferMutex);
    CGuard write(&Output().m_WriteMutex);
    isHeld = true;
    PauseMs(60000);
  });
  WaitUntil([&] { return isHeld.load(); }, 5000);
  Fault();
  return 0;
}

TEST(CrashFlush, WorksWithTheLocksHeldByAnotherThread) {
  const CTempDir logs;
  const tagChildResult result = RunCrash("CrashWithLocksElsewhere", logs);
  EXPECT_EQ(SIGSEGV, result.m_Signal) << result.m_Errors;
  EXPECT_TRUE(IsAllThere(AllText(logs.Path()), {{"a", 20}}));
}

// The members as they stand after each step of a hand-over.
CHILD_CASE(CrashInTheHandOver) {
  const int step = std::atoi(args.at(2).c_str());
  UseSize(args.at(0), 4096, kHugeFile);
  EXPECT_EQ(0, KelvikExtra_InstallCrashFlush());
  for (int number = 0; number < 20; ++number)
    LogNumber("a", number);
  COutput& output = Output();
  output.m_BufferMutex.lock();
  output.m_WriteMutex.lock();
  static const char* const empty = output.m_BackBuffer;
  if (step >= 1) output.m_BackBuffer = output.m_FrontBuffer;
  if (step >= 2) output.m_BackLength = output.m_FrontLength;
  if (step >= 3) output.m_FrontLength = 0;
  if (step >= 4) output.m_FrontBuffer = const_cast<char*>(empty);
  Fault();
  return 0;
}

TEST(CrashFlush, AHandOverUnderWaySavesEachRecordOnce) {
  for (int step = 0; step <= 4; ++step) {
    const CTempDir logs;
    const tagChildResult result = RunCrash("CrashInTheHandOver", logs, {std::to_string(step)});
    EXPECT_EQ(SIGSEGV, result.m_Signal) << result.m_Errors;
    EXPECT_TRUE(IsAllThere(AllText(logs.Path()), {{"a", 20}})) << "after step " << step;
  }
}

CHILD_CASE(CrashInTheWriter) {
  UseSize(args.at(0), 4096, kHugeFile);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_InstallCrashFlush());
  for (int number = 0; number < 20; ++number)
    LogNumber("a", number);
  gCrashInWrite = true;
  WriteBufferContent2File();
  PauseMs(ScaledMs(5000));
  return 0;
}

TEST(CrashFlush, WorksWhenTheWriterThreadCrashesInItsWrite) {
  const CTempDir logs;
  const tagChildResult result = RunCrash("CrashInTheWriter", logs);
  EXPECT_EQ(SIGSEGV, result.m_Signal) << result.m_Errors;
  EXPECT_TRUE(IsAllThere(AllText(logs.Path()), {{"a", 20}}));
}

CHILD_CASE(CrashUnderLoad) {
  UseSize(args.at(0), 65536, kHugeFile);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  EXPECT_EQ(0, KelvikExtra_InstallCrashFlush());
  CLoggers loggers(4);
  WaitUntil([&] { return loggers.HaveAllBegun(); }, 5000);
  for (int number = 0; number < 200; ++number)
    LogNumber("main", number);
  Fault();
  return 0;
}

TEST(CrashFlush, RecordsOfTheCrashedThreadAreThereUnderLoad) {
  for (int round = 0; round < Rounds() / 4 + 1; ++round) {
    const CTempDir logs;
    const tagChildResult result = RunCrash("CrashUnderLoad", logs);
    EXPECT_FALSE(result.m_TimedOut);
    EXPECT_EQ(SIGSEGV, result.m_Signal) << result.m_Errors;
    const std::string text = AllText(logs.Path());
    for (int number = 0; number < 200; ++number)
      ASSERT_NE(std::string::npos, text.find(NumberLine("main", number) + "\n")) << number;
  }
}

void EarlierHandler(int, siginfo_t* info, void*) {
  _exit(info->si_signo == SIGSEGV ? 42 : 43);
}

CHILD_CASE(CrashWithHandler) {
  struct sigaction action = {};
  action.sa_sigaction = EarlierHandler;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, nullptr);
  FillBothBuffers(args.at(0));
  EXPECT_EQ(0, KelvikExtra_InstallCrashFlush()) << "again";
  Fault();
  return 0;
}

TEST(CrashFlush, TheEarlierHandlerRunsAfterwards) {
  const CTempDir logs;
  EXPECT_EQ(42, RunCrash("CrashWithHandler", logs).m_ExitCode);
  EXPECT_TRUE(IsAllThere(AllText(logs.Path()), {{"a", 20}}));
}

CHILD_CASE(CrashWithFileOff) {
  FillBothBuffers(args.at(0));
  SwitchFile(false);
  raise(SIGABRT);
  return 0;
}

TEST(CrashFlush, SwitchedOffFileOutputSavesNothing) {
  const CTempDir logs;
  EXPECT_EQ(SIGABRT, RunCrash("CrashWithFileOff", logs).m_Signal);
  EXPECT_EQ("", AllText(logs.Path()));
}

CHILD_CASE(CrashWithoutInstall) {
  UseSize(args.at(0), 4096, kHugeFile);
  LogNumber("a", 0);
  raise(SIGABRT);
  return 0;
}

TEST(CrashFlush, WithoutItTheBuffersAreGone) {
  const CTempDir logs;
  EXPECT_EQ(SIGABRT, RunCrash("CrashWithoutInstall", logs).m_Signal);
  EXPECT_EQ("", AllText(logs.Path()));
}

CHILD_CASE(SurviveSignal) {
  static volatile sig_atomic_t caught = 0;
  struct sigaction action = {};
  action.sa_handler = [](int) { caught = caught + 1; };
  sigaction(SIGFPE, &action, nullptr);
  FillBothBuffers(args.at(0));
  raise(SIGFPE);
  EXPECT_EQ(1, caught);
  LogNumber("a", 20);
  raise(SIGFPE);
  EXPECT_EQ(2, caught);
  EXPECT_TRUE(IsAllThere(AllText(args.at(1)), {{"a", 21}}));
  return 0;
}

TEST(CrashFlush, ASignalThatTheProgramSurvivesSavesEachRecordOnce) {
  const CTempDir logs;
  EXPECT_TRUE(Succeeded(RunCrash("SurviveSignal", logs)));
}

}  // namespace
}  // namespace Kelvik
