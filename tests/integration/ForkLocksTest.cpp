// Children of fork() that came while other threads of the parent were inside the library.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "ForkTools.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

std::atomic<bool> gHoldsMaking{false};
std::atomic<bool> gIsMaking{false};
std::atomic<bool> gHasTerminal{false};

}  // namespace
}  // namespace Kelvik

// In place of the system's: the context asks for its terminal while it is made.
extern "C" int ttyname_r(int, char* path, size_t room) noexcept {
  Kelvik::gIsMaking = true;
  while (Kelvik::gHoldsMaking)
    usleep(1000);
  if (!Kelvik::gHasTerminal) return ENOTTY;
  std::snprintf(path, room, "/dev/null");
  return 0;
}

namespace Kelvik {
namespace {

// Whether a thread (0: it has not begun) waits for something.
bool IsHeldUp(pid_t thread) {
  if (thread == 0) return false;
  const std::string stat = ReadFile("/proc/self/task/" + std::to_string(thread) + "/stat");
  return stat.find(") S ") != std::string::npos;
}

std::atomic<pid_t> gForker{0};

void* ForkOnce(void*) {
  gForker = gettid();
  const pid_t pid = fork();
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  if (pid == 0) _exit(0);
  EXPECT_EQ(0, WaitForProcess(pid, kLimitMs));
  return nullptr;
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

TEST(ForkLocks, LocksHeldByOtherThreadsAreFreeInTheChild) {
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
  EXPECT_TRUE(WaitUntil([&] { return IsHeldUp(caller); }, kLimitMs));
  const pid_t pid = fork();
  if (pid == 0) _exit(CGlobal::Instance()->ConfigFileInitialize() == 0 ? 0 : 51);
  EXPECT_EQ(0, WaitForProcess(pid, kLimitMs));
  Output().m_BufferMutex.unlock();
  initializes.join();
  EXPECT_EQ(3, CGlobal::Instance()->ConfigFileInitialize());
  return 0;
}

TEST(ForkLocks, ChildInitializesThoughAThreadOfTheParentWasAtIt) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkInsideInitialize"));
}

// Without a configuration file the buffer lock holds a thread up where it starts the writer.
CHILD_CASE(ForkInsideTheStart) {
  UseSize(args.at(0), 1024, kHugeFile);
  std::atomic<pid_t> caller{0};
  Output().m_BufferMutex.lock();
  std::thread initializes([&] {
    caller = gettid();
    EXPECT_EQ(0, Initialize());
  });
  EXPECT_TRUE(WaitUntil([&] { return IsHeldUp(caller); }, kLimitMs));
  const pid_t pid = fork();
  if (pid == 0) {
    if (Initialize() != 0 || LogNumber("child", 0) != 0) _exit(51);
    WriteBufferContent2File();
    if (!Output().m_Thread.IsRunning()) _exit(52);
    _exit(KelvikExtra_Flush(kLimitMs, 0) == 0 ? 0 : 53);
  }
  EXPECT_EQ(0, WaitForProcess(pid, kLimitMs));
  Output().m_BufferMutex.unlock();
  initializes.join();
  return 0;
}

TEST(ForkLocks, ChildHasItsWriterThoughAThreadOfTheParentStartedOne) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkInsideTheStart"));
}

CHILD_CASE(ForkAndStart) {
  StartEngine(args.at(0), 1024);
  const pid_t pid = fork();
  if (pid == 0) {
    if (Output().Start() != 0 || LogNumber("child", 0) != 0) _exit(71);
    if (KelvikExtra_Flush(kLimitMs, 0) != 0) _exit(72);
    _exit(Statistics().m_RecordsAccepted == 1 ? 0 : 73);
  }
  EXPECT_EQ(0, WaitForProcess(pid, kLimitMs));
  return 0;
}

TEST(ForkLocks, WriterThatTheChildStartsIsNotStartedOnceMore) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkAndStart"));
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

TEST(ForkLocks, ChildLogsThoughAThreadOfTheParentMadeTheContext) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("ForkInsideTheFirstCall"));
}

// One thread makes the context while another one, which holds standard output's lock, waits for it.
CHILD_CASE(FirstCallsBesideTheStream) {
  gHasTerminal = true;
  gHoldsMaking = true;
  ::flockfile(stdout);
  std::thread first([] { EXPECT_EQ(2, KLog(eLogLevelDebug, "net", "rx", "first\n")); });
  EXPECT_TRUE(WaitUntil([] { return gIsMaking.load(); }, kLimitMs));
  gHoldsMaking = false;
  if (args.at(2) == "fork") {
    const pid_t pid = fork();
    if (pid == 0) _exit(0);
    EXPECT_EQ(0, WaitForProcess(pid, kLimitMs));
  }
  EXPECT_EQ(2, KLog(eLogLevelDebug, "net", "rx", "second\n"));
  ::funlockfile(stdout);
  first.join();
  EXPECT_STREQ("/dev/null", Output().m_ConsolePath);
  return 0;
}

TEST(ForkLocks, ContextIsMadeWithoutTheStreamsLock) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("FirstCallsBesideTheStream", {"log"}));
  EXPECT_TRUE(RunFork("FirstCallsBesideTheStream", {"fork"}));
}

// Two threads fork at once, one of which holds standard output's lock.
CHILD_CASE(ForksBesideTheStream) {
  EXPECT_EQ(2, KLog(eLogLevelDebug, "net", "rx", "first\n"));
  ::flockfile(stdout);
  std::thread other([] { ForkOnce(nullptr); });
  EXPECT_TRUE(WaitUntil([] { return IsHeldUp(gForker); }, kLimitMs));
  ForkOnce(nullptr);
  ::funlockfile(stdout);
  other.join();
  return 0;
}

TEST(ForkLocks, ForkWaitsForTheStreamWithNoLockHeld) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("ForksBesideTheStream"));
}

// A thread is cancelled while its fork waits for whoever reads standard output.
CHILD_CASE(CancelInsideFork) {
  EXPECT_EQ(2, KLog(eLogLevelDebug, "net", "rx", "first\n"));
  int ends[2] = {-1, -1};
  EXPECT_EQ(0, pipe(ends));
  const char fill[512] = {};
  EXPECT_EQ(0, fcntl(ends[1], F_SETFL, O_NONBLOCK));
  while (write(ends[1], fill, sizeof(fill)) > 0) {
  }
  EXPECT_EQ(0, fcntl(ends[1], F_SETFL, 0));
  std::fflush(stdout);
  const int before = dup(STDOUT_FILENO);
  EXPECT_EQ(STDOUT_FILENO, dup2(ends[1], STDOUT_FILENO));
  std::printf("held up");
  pthread_t forker;
  EXPECT_EQ(0, pthread_create(&forker, nullptr, &ForkOnce, nullptr));
  EXPECT_TRUE(WaitUntil([] { return IsHeldUp(gForker); }, kLimitMs));
  EXPECT_EQ(0, pthread_cancel(forker));
  PauseMs(100);
  char taken[4096];
  EXPECT_LT(0, read(ends[0], taken, sizeof(taken)));
  void* result = PTHREAD_CANCELED;
  EXPECT_EQ(0, pthread_join(forker, &result));
  EXPECT_EQ(nullptr, result) << "its fork came to its end";
  EXPECT_EQ(STDOUT_FILENO, dup2(before, STDOUT_FILENO));
  ForkOnce(nullptr);
  return 0;
}

TEST(ForkLocks, ForkOfAThreadThatIsCancelledComesToItsEnd) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  EXPECT_TRUE(RunFork("CancelInsideFork"));
}

}  // namespace
}  // namespace Kelvik
