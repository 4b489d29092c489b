// CThread: what it reports, and what it does where a process forks or ends. Each case is a process
// of its own, whose standard output holds the records.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "Kelvik.h"
#include "RealClock.h"
#include "Rounds.h"
#include "Thread.h"
#include "ThreadTask.h"

namespace {

constexpr int kNoHandle = -1;

// What the library's pthread_create does instead of making a thread: it returns gCreateCode and
// leaves gCreateErrno. 0: it makes one. kNoHandle: it returns 0 with a handle of zeros.
int gCreateCode = 0;
int gCreateErrno = 0;

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* handle, const pthread_attr_t* attribute,
                          void* (*routine)(void*), void* argument);

int __wrap_pthread_create(pthread_t* handle, const pthread_attr_t* attribute,
                          void* (*routine)(void*), void* argument) {
  if (gCreateCode == 0) return __real_pthread_create(handle, attribute, routine, argument);
  errno = gCreateErrno;
  if (gCreateCode == kNoHandle) {
    *handle = pthread_t{};
    return 0;
  }
  memset(handle, 0x5A, sizeof(*handle));  // what a refused call leaves there is anyone's guess
  return gCreateCode;
}

}  // extern "C"

namespace Kelvik {
namespace {

int CountOf(const std::string& text, const std::string& part) {
  int count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

CHILD_CASE(CreateTwice) {
  CTask task(Pace);
  CTask other(Pace);
  CThread thread("Kelvik::Test");
  EXPECT_EQ(thread.Create(&task), eResultSuccess);
  EXPECT_EQ(thread.Create(&other), eResultExists);
  const int calls = task.m_Calls;
  EXPECT_TRUE(task.WaitForCalls(calls + 2));
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_EQ(other.m_Calls, 0);
  EXPECT_EQ(thread.Create(&other), eResultSuccess);
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  return 0;
}

TEST(ThreadProcess, SecondCreateIsRefusedAndReported) {
  const tagChildResult result = RunChild("CreateTwice");
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(CountOf(result.m_Output, "] Thread Create 87 console already running\n"), 1);
  EXPECT_EQ(CountOf(result.m_Output, "Thread Create"), 1);
}

CHILD_CASE(CreateFails) {
  CTask task(Pace);
  CThread thread("");
  gCreateCode = std::atoi(args.at(0).c_str());
  gCreateErrno = std::atoi(args.at(1).c_str());
  sigset_t before;
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  EXPECT_EQ(thread.Create(&task), eResultUnavailable);
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(sigismember(&after, SIGTERM), sigismember(&before, SIGTERM));
  EXPECT_TRUE(IsNone(thread.GetHandle()));
  EXPECT_FALSE(thread.IsRunning());
  EXPECT_EQ(CThread::ThreadRun(&thread), eResultFailure);  // the executor is cleared as well
  gCreateCode = 0;
  EXPECT_EQ(thread.Create(&task), eResultSuccess);
  EXPECT_TRUE(task.WaitForCalls(1));
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  return 0;
}

TEST(ThreadProcess, FailedCreateIsReportedByItsErrnoAndItsCode) {
  const struct {
    int m_Code;
    int m_Errno;
    const char* m_Text;
  } cases[] = {
      {EAGAIN, ENOMEM, "109 pthread_create failed with EAGAIN (thread num limit arrived)\n\n"},
      {EINVAL, 0,
       "112 pthread_create failed with EINVAL (create thread with invalid parameters)\n\n"},
      {ENOMEM, EAGAIN, "115 pthread_create failed with ENOMEM (no memeory to create thread)\n\n"},
      {EPERM, EPERM, "118 result : 1\n"},
      {77, EIO, "118 result : 77\n"},
      {kNoHandle, EIO, "118 result : 0\n"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.m_Code);
    const tagChildResult result =
        RunChild("CreateFails", {std::to_string(each.m_Code), std::to_string(each.m_Errno)});
    EXPECT_TRUE(Succeeded(result));
    const std::string system = "] Thread Create 105 Failed syserr:" + std::to_string(each.m_Errno) +
                               " " + strerror(each.m_Errno) + "\n";
    const size_t first = result.m_Output.find(system);
    const size_t second = result.m_Output.find(std::string("] Thread Create ") + each.m_Text);
    EXPECT_NE(first, std::string::npos) << result.m_Output;
    EXPECT_NE(second, std::string::npos) << result.m_Output;
    EXPECT_LT(first, second);
    EXPECT_EQ(CountOf(result.m_Output, "Thread Create"), 2);
  }
}

CHILD_CASE(CreateBesideDestroy) {
  CTask task(Pace);
  CThread thread("");
  std::atomic<int> odd(0);
  std::vector<std::thread> owners;
  for (int owner = 0; owner < 3; ++owner) {
    owners.emplace_back([&] {
      for (int round = 0; round < Rounds(); ++round) {
        const int created = thread.Create(&task);
        odd += created == eResultSuccess || created == eResultExists ? 0 : 1;
        odd += thread.Destroy() == eResultSuccess ? 0 : 1;
      }
    });
  }
  for (std::thread& owner : owners)
    owner.join();
  EXPECT_EQ(odd, 0);
  EXPECT_FALSE(thread.IsRunning());
  EXPECT_TRUE(IsNone(thread.GetHandle()));
  const int calls = task.m_Calls;
  PauseMs(kPauseMs);
  EXPECT_EQ(task.m_Calls, calls);
  return 0;
}

TEST(ThreadProcess, OwnersThatCreateAndDestroyAtOnceLeaveNoWorker) {
  EXPECT_TRUE(Succeeded(RunChild("CreateBesideDestroy", {}, 30000)));
}

CTask gExitTask([]() -> int { exit(0); });
CThread gExitThread("");

CHILD_CASE(ExitOnTheWorker) {
  if (gExitThread.Create(&gExitTask) != eResultSuccess) return 1;
  for (;;)
    pause();
}

TEST(ThreadProcess, ExitInsideRunTaskEndsTheProcess) {
  EXPECT_TRUE(Succeeded(RunChild("ExitOnTheWorker")));
}

CHILD_CASE(ExitAfterOwnDestroy) {
  static std::atomic<bool> inside(false);
  static CTask task([] {
    gExitThread.Destroy();
    inside = true;
    PauseMs(kPauseMs);
    return 0;
  });
  if (gExitThread.Create(&task) != eResultSuccess) return 1;
  return WaitUntil([] { return inside.load(); }, kLimitMs) ? 0 : 1;
}

TEST(ThreadProcess, DestructorWaitsForAWorkerThatEndedItself) {
  EXPECT_TRUE(Succeeded(RunChild("ExitAfterOwnDestroy")));
}

CHILD_CASE(DestroyAfterFork) {
  CTask task(Pace);
  CThread thread("");
  EXPECT_EQ(thread.Create(&task), eResultSuccess);
  const pid_t child = fork();
  if (child == 0) _exit(thread.Destroy() == 0 && !thread.IsRunning() ? 0 : 1);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  const int calls = task.m_Calls;
  EXPECT_TRUE(task.WaitForCalls(calls + 2));
  return 0;
}

TEST(ThreadProcess, DestroyInAForkedChildLeavesTheParentsWorkerAlone) {
  EXPECT_TRUE(Succeeded(RunChild("DestroyAfterFork")));
}

// Between its tasks, which do nothing, the worker takes its object's lock all the time.
CHILD_CASE(DestroyAfterForkAtAnyStep) {
  CTask task([] { return 0; });
  CThread thread("");
  EXPECT_EQ(thread.Create(&task), eResultSuccess);
  for (int round = 0; round < Rounds(); ++round) {
    const pid_t child = fork();
    if (child == 0) {
      if (pthread_equal(thread.GetHandle(), pthread_t{}) == 0) _exit(2);
      _exit(thread.Destroy() == 0 && !thread.IsRunning() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "round " << round;
  }
  EXPECT_TRUE(thread.IsRunning());
  return 0;
}

TEST(ThreadProcess, DestroyInAForkedChildNeedsNoLockOfTheParentsWorker) {
  EXPECT_TRUE(Succeeded(RunChild("DestroyAfterForkAtAnyStep")));
}

}  // namespace
}  // namespace Kelvik
