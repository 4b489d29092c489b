// The support code that every other test trusts.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "ChildProcess.h"
#include "FakeClock.h"
#include "FileTools.h"
#include "RealClock.h"
#include "Rounds.h"
#include "SyslogCapture.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

CHILD_CASE(Speak) {
  std::printf("out %s\n", args.at(0).c_str());
  std::fprintf(stderr, "err %s\n", std::getenv("SUPPORT_WORD"));
  return 3;
}

CHILD_CASE(Hang) {
  std::printf("hanging\n");
  std::fflush(stdout);
  for (;;) {
    pause();
  }
}

CHILD_CASE(Abort) {
  abort();
}

CHILD_CASE(Expect) {
  EXPECT_EQ(args.at(0), "1");
  return 0;
}

CHILD_CASE(Copy) {
  for (int byte = std::getchar(); byte != EOF; byte = std::getchar()) {
    std::putchar(byte);
    std::fflush(stdout);
  }
  return 0;
}

TEST(ChildProcess, OutputsArgumentsEnvironmentAndExitCodeArrive) {
  tagChildOptions options;
  options.m_Environment = {{"SUPPORT_WORD", "two words"}};
  const tagChildResult result = RunChild("Speak", {"a b"}, options);
  EXPECT_EQ(result.m_ExitCode, 3);
  EXPECT_EQ(result.m_Signal, 0);
  EXPECT_FALSE(result.m_TimedOut);
  EXPECT_EQ(result.m_Output, "out a b\n");
  EXPECT_EQ(result.m_Errors, "err two words\n");
  EXPECT_FALSE(Succeeded(result));
}

TEST(ChildProcess, HangingChildIsKilledAtItsLimit) {
  const tagChildResult result = RunChild("Hang", {}, 300);
  EXPECT_TRUE(result.m_TimedOut);
  EXPECT_EQ(result.m_Signal, SIGKILL);
  EXPECT_EQ(result.m_Output, "hanging\n");
}

TEST(ChildProcess, SignalThatEndedItIsReported) {
  EXPECT_EQ(RunChild("Abort").m_Signal, SIGABRT);

  CChild child(ChildCommand("Hang"));
  ASSERT_TRUE(child.WaitForOutput("hanging", 5000));
  child.Signal(SIGTERM);
  EXPECT_EQ(child.Wait().m_Signal, SIGTERM);
}

TEST(ChildProcess, FailedCheckInTheChildIsAnExitCode) {
  EXPECT_TRUE(Succeeded(RunChild("Expect", {"1"})));
  EXPECT_EQ(RunChild("Expect", {"2"}).m_ExitCode, kChildCheckFailed);
  EXPECT_EQ(RunChild("NoSuchCase").m_ExitCode, kChildUnknownCase);
}

TEST(ChildProcess, InputIsGivenWholeOrBitByBit) {
  tagChildOptions options;
  options.m_Input = std::string("one\0two", 7);
  EXPECT_EQ(RunChild("Copy", {}, options).m_Output, options.m_Input);

  options.m_IsInputPiped = true;
  CChild child(ChildCommand("Copy"), options);
  EXPECT_TRUE(child.Write("first"));
  EXPECT_TRUE(child.WaitForOutput("first", 5000));
  EXPECT_TRUE(child.IsRunning());
  child.CloseInput();
  EXPECT_TRUE(Succeeded(child.Wait()));
}

TEST(ChildProcess, MissingProgramIsExitCode127) {
  EXPECT_EQ(RunCommand({"/nonexistent/program"}).m_ExitCode, 127);
}

TEST(FakeClock, WallClocksStandAndTheMonotonicOneGoesOn) {
  CFakeClock clock(1700000000, 123456);
  timeval day = {};
  timespec real = {};
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(gettimeofday(&day, nullptr), 0);
    EXPECT_EQ(clock_gettime(CLOCK_REALTIME, &real), 0);
    EXPECT_EQ(day.tv_sec, 1700000000);
    EXPECT_EQ(day.tv_usec, 123456);
    EXPECT_EQ(real.tv_sec, 1700000000);
    EXPECT_EQ(real.tv_nsec, 123456000);
    EXPECT_EQ(time(nullptr), 1700000000);
  }
  using std::chrono::system_clock;
  EXPECT_EQ(system_clock::to_time_t(system_clock::now()), 1700000000);

  clock.AdvanceMs(-1124);
  gettimeofday(&day, nullptr);
  EXPECT_EQ(day.tv_sec, 1699999998);
  EXPECT_EQ(day.tv_usec, 999456);

  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(WaitUntil([&] { return std::chrono::steady_clock::now() != before; }, 1000));
}

TEST(FakeClock, TimesPastThirtyTwoBitsAreKept) {
  const CFakeClock clock(5000000000);
  EXPECT_EQ(static_cast<int64_t>(time(nullptr)), 5000000000);
}

TEST(FakeClock, LocaltimeIsCountedAndFailsOnDemand) {
  setenv("TZ", "UTC", 1);
  tzset();
  CFakeClock clock(0);
  const time_t moment = 86400;
  tm broken = {};
  const int before = CFakeClock::LocaltimeCalls();
  ASSERT_NE(localtime_r(&moment, &broken), nullptr);
  EXPECT_EQ(broken.tm_mday, 2);
  ASSERT_NE(localtime(&moment), nullptr);
  clock.FailLocaltime(true);
  EXPECT_EQ(localtime_r(&moment, &broken), nullptr);
  EXPECT_EQ(errno, EOVERFLOW);
  EXPECT_EQ(CFakeClock::LocaltimeCalls() - before, 3);
}

TEST(FakeClock, RealTimeIsBackAtTheEndOfTheScope) {
  { const CFakeClock clock(1); }
  EXPECT_GT(time(nullptr), 1600000000);
}

TEST(SyslogCapture, PriorityAndTextAreKept) {
  CSyslogCapture::Clear();
  syslog(LOG_ERR, "%s %d", "text", 7);
  ASSERT_EQ(CSyslogCapture::Count(), 1U);
  EXPECT_EQ(CSyslogCapture::Records()[0].m_Priority, LOG_ERR);
  EXPECT_EQ(CSyslogCapture::Records()[0].m_Text, "text 7");
}

TEST(FileTools, FolderIsListedReadAndRemoved) {
  std::string path;
  {
    const CTempDir folder;
    path = folder.Path();
    EXPECT_TRUE(WriteFile(folder.File("b"), "one\ntwo"));
    EXPECT_TRUE(WriteFile(folder.File("a"), ""));
    EXPECT_EQ(ListFolder(path), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(Lines(ReadFile(folder.File("b"))), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(FileSize(folder.File("b")), 7);
    EXPECT_EQ(FileSize(folder.File("c")), -1);
  }
  EXPECT_FALSE(Exists(path));
}

TEST(Rounds, EnvironmentDecides) {
  setenv("KELVIK_ROUNDS", "7", 1);
  EXPECT_EQ(Rounds(), 7);
  unsetenv("KELVIK_ROUNDS");
  EXPECT_EQ(Rounds(), 20);
}

}  // namespace
}  // namespace Kelvik
