// CThread: its runs, from inside and from outside.

#include "Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <thread>
#include <vector>

#include "Kelvik.h"
#include "RealClock.h"
#include "Rounds.h"
#include "ThreadTask.h"

namespace {

std::atomic<int> gJoins(0);

}  // namespace

extern "C" {

int __real_pthread_join(pthread_t handle, void** result);

int __wrap_pthread_join(pthread_t handle, void** result) {
  ++gJoins;
  return __real_pthread_join(handle, result);
}

}  // extern "C"

namespace Kelvik {
namespace {

TEST(Thread, NameIsNullThroughout) {
  CTask task(Pace);
  CThread thread("Kelvik::Test");
  EXPECT_EQ(thread.GetName(), nullptr);
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  EXPECT_EQ(thread.GetName(), nullptr);
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_EQ(thread.GetName(), nullptr);
}

TEST(Thread, HandleStandsFromCreateToDestroy) {
  CTask task(Pace);
  CThread thread("");
  EXPECT_TRUE(IsNone(thread.GetHandle()));
  EXPECT_FALSE(thread.IsRunning());
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  EXPECT_FALSE(IsNone(thread.GetHandle()));
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_TRUE(IsNone(thread.GetHandle()));
  EXPECT_FALSE(thread.IsRunning());
}

TEST(Thread, DestroyAndInitializeOfAnIdleOneDoNothing) {
  CThread thread("");
  gJoins = 0;
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_EQ(thread.Initialize(), eResultSuccess);
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_EQ(gJoins, 0);
}

TEST(Thread, ZeroAsksToBeCalledAgain) {
  std::atomic<int> left(5);
  CTask task([&] { return --left == 0 ? 1 : 0; });
  CThread thread("");
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  EXPECT_TRUE(WaitUntil([&] { return !thread.IsRunning(); }, kLimitMs));
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_EQ(task.m_Calls, 5);
}

TEST(Thread, AnyOtherResultEndsTheRunAfterOneCall) {
  for (int result : {1, -1, 7}) {
    CTask task([=] { return result; });
    CThread thread("");
    gJoins = 0;
    ASSERT_EQ(thread.Create(&task), eResultSuccess);
    ASSERT_TRUE(WaitUntil([&] { return !thread.IsRunning(); }, kLimitMs));
    EXPECT_FALSE(IsNone(thread.GetHandle()));
    EXPECT_EQ(gJoins, 0);
    EXPECT_EQ(CThread::ThreadRun(&thread), eResultSuccess);  // the loop has ended
    EXPECT_EQ(thread.Destroy(), eResultSuccess);
    EXPECT_EQ(gJoins, 1);
    EXPECT_EQ(task.m_Calls, 1);
  }
}

TEST(Thread, CreateJoinsAWorkerThatEndedByItself) {
  CTask once([] { return 1; });
  CThread thread("");
  gJoins = 0;
  for (int round = 1; round <= Rounds(); ++round) {
    ASSERT_EQ(thread.Create(&once), eResultSuccess);
    ASSERT_TRUE(WaitUntil([&] { return !thread.IsRunning(); }, kLimitMs));
    EXPECT_EQ(gJoins, round - 1);
    EXPECT_EQ(once.m_Calls, round);
  }
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_EQ(gJoins, Rounds());
}

TEST(Thread, DestroyWaitsUntilRunTaskReturns) {
  std::atomic<bool> open(false);
  std::atomic<bool> left(false);
  CTask task([&] {
    const bool isOpen = WaitUntil([&] { return open.load(); }, kLimitMs);
    left = isOpen;
    return 0;
  });
  CThread thread("");
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  ASSERT_TRUE(task.WaitForCalls(1));
  std::thread opener([&] {
    PauseMs(kPauseMs);
    open = true;
  });
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_TRUE(left);
  EXPECT_EQ(task.m_Calls, 1);
  opener.join();
}

TEST(Thread, RunWithoutAnExecutorCallsNothing) {
  CThread thread("");
  EXPECT_EQ(CThread::ThreadRun(nullptr), eResultFailure);
  EXPECT_EQ(CThread::ThreadRun(&thread), eResultFailure);
  EXPECT_EQ(CThread::Thread(nullptr), nullptr);
  EXPECT_EQ(CThread::Thread(&thread), nullptr);
  EXPECT_EQ(thread.Create(nullptr), eResultSuccess);
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
}

TEST(Thread, DestructorEndsTheWorker) {
  CTask task(Pace);
  {
    CThread thread("");
    ASSERT_EQ(thread.Create(&task), eResultSuccess);
    ASSERT_TRUE(task.WaitForCalls(1));
  }
  const int calls = task.m_Calls;
  PauseMs(kPauseMs);
  EXPECT_EQ(task.m_Calls, calls);
}

TEST(Thread, CopyIsIdleAndAssignmentChangesNothing) {
  CTask task(Pace);
  CThread thread("");
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  CThread copy(thread);
  EXPECT_FALSE(copy.IsRunning());
  EXPECT_TRUE(IsNone(copy.GetHandle()));
  const pthread_t handle = thread.GetHandle();
  const CThread fresh("");
  thread = fresh;
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_NE(pthread_equal(thread.GetHandle(), handle), 0);
  const int calls = task.m_Calls;
  EXPECT_TRUE(task.WaitForCalls(calls + 2));
}

TEST(Thread, WorkerKnowsItself) {
  CThread thread("");
  CThread other("");
  std::atomic<int> seen(-1);
  CTask task([&] {
    seen = (thread.IsCurrent() ? 1 : 0) + (other.IsCurrent() ? 2 : 0) +
           (thread.KeepsRunning() ? 4 : 0) + (other.KeepsRunning() ? 8 : 0);
    return 1;
  });
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  EXPECT_TRUE(WaitUntil([&] { return seen != -1; }, kLimitMs));
  EXPECT_EQ(seen, 5);
  EXPECT_FALSE(thread.IsCurrent());
}

TEST(Thread, WorkerThatEndsItsOwnRunIsNotJoinedByItself) {
  CThread thread("");
  std::atomic<bool> leave(false);
  std::atomic<int> destroyed(-1);
  CTask task([&] {
    destroyed = thread.Destroy();
    EXPECT_TRUE(IsNone(thread.GetHandle()));
    EXPECT_FALSE(thread.KeepsRunning());
    EXPECT_TRUE(WaitUntil([&] { return leave.load(); }, kLimitMs));
    return 0;
  });
  gJoins = 0;
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  ASSERT_TRUE(WaitUntil([&] { return destroyed != -1; }, kLimitMs));
  EXPECT_EQ(destroyed, eResultSuccess);
  std::thread opener([&] {
    PauseMs(kPauseMs);
    leave = true;
  });
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_TRUE(leave);  // from outside it waits for the worker that is still inside RunTask
  EXPECT_EQ(task.m_Calls, 1);
  EXPECT_EQ(gJoins, 0);
  opener.join();
}

TEST(Thread, RunBegunInsideARunLeavesTwoWorkersThatObeyTheirOwn) {
  CThread thread("");
  std::atomic<bool> leave(false);
  std::atomic<int> second(0);
  std::atomic<int> strayed(0);
  std::atomic<pthread_t> firstWorker(pthread_t{});
  CTask next([&] {
    second += thread.KeepsRunning() ? 1 : 0;
    strayed += pthread_equal(firstWorker, pthread_self()) != 0 ? 1 : 0;
    return Pace();
  });
  CTask first([&] {
    firstWorker = pthread_self();
    EXPECT_TRUE(thread.KeepsRunning());
    EXPECT_EQ(thread.Destroy(), eResultSuccess);
    EXPECT_EQ(thread.Create(&next), eResultSuccess);
    EXPECT_FALSE(thread.KeepsRunning());
    EXPECT_TRUE(thread.IsRunning());
    EXPECT_TRUE(thread.IsCurrent());
    EXPECT_TRUE(WaitUntil([&] { return leave.load(); }, kLimitMs));
    return 1;  // asks to stop its own run, which has ended; the other goes on
  });
  ASSERT_EQ(thread.Create(&first), eResultSuccess);
  ASSERT_TRUE(next.WaitForCalls(3));
  leave = true;
  const int calls = next.m_Calls;
  EXPECT_TRUE(next.WaitForCalls(calls + 5));
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_EQ(first.m_Calls, 1);
  EXPECT_GE(second, 3);
  EXPECT_EQ(strayed, 0);
  EXPECT_FALSE(thread.IsRunning());
}

TEST(Thread, RunsMayBeExchangedManyTimesInsideOneRun) {
  CThread thread("");
  std::atomic<int> wrong(0);
  CTask next([&] {
    wrong += thread.IsCurrent() ? 0 : 1;
    return Pace();
  });
  std::atomic<bool> done(false);
  CTask first([&] {
    for (int round = 0; round < Rounds(); ++round) {
      wrong += thread.Destroy() == eResultSuccess ? 0 : 1;
      wrong += thread.Create(&next) == eResultSuccess ? 0 : 1;
    }
    done = true;
    return 0;
  });
  ASSERT_EQ(thread.Create(&first), eResultSuccess);
  ASSERT_TRUE(WaitUntil([&] { return done.load(); }, kLimitMs));
  EXPECT_EQ(thread.Generation(), static_cast<uint32_t>(Rounds()) + 1);
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_EQ(first.m_Calls, 1);
  EXPECT_EQ(wrong, 0);
}

// Each worker in turn ends its own run and begins the next one with the same executor.
TEST(Thread, RunsMayHandOverToOneAnother) {
  CThread thread("");
  std::atomic<int> inside(0);
  std::atomic<int> runs(0);
  CTask task([&] {
    if (runs >= Rounds()) return Pace();
    ++inside;
    ++runs;
    EXPECT_EQ(thread.Destroy(), eResultSuccess);
    EXPECT_EQ(thread.Create(&task), eResultSuccess);
    --inside;
    return 0;
  });
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  EXPECT_TRUE(WaitUntil([&] { return runs >= Rounds(); }, kLimitMs));
  while (thread.IsRunning())
    EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_EQ(inside, 0);
}

TEST(Thread, WorkerEndedByPthreadExitIsStillSeenOff) {
  CThread thread("");
  CTask task([&]() -> int {
    EXPECT_EQ(thread.Destroy(), eResultSuccess);
    pthread_exit(nullptr);
  });
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  ASSERT_TRUE(task.WaitForCalls(1));
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  EXPECT_FALSE(thread.IsRunning());
}

TEST(Thread, WorkerBlocksAllSignalsButThoseOfItsOwnFaults) {
  sigset_t before;
  sigset_t inWorker;
  sigset_t after;
  sigemptyset(&inWorker);
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  CTask task([&] {
    pthread_sigmask(SIG_SETMASK, nullptr, &inWorker);
    return 1;
  });
  CThread thread("");
  ASSERT_EQ(thread.Create(&task), eResultSuccess);
  ASSERT_TRUE(WaitUntil([&] { return !thread.IsRunning(); }, kLimitMs));
  EXPECT_EQ(thread.Destroy(), eResultSuccess);
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  std::vector<int> signals = {SIGRTMIN, SIGRTMIN + 1, SIGRTMIN + 9};
  for (int number = 1; number < 32; ++number) {
    if (number != SIGKILL && number != SIGSTOP) signals.push_back(number);
  }
  for (int number : signals) {
    bool isOpen = false;
    for (int open : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS}) {
      isOpen = isOpen || number == open;
    }
    EXPECT_EQ(sigismember(&inWorker, number), isOpen ? 0 : 1) << number;
    EXPECT_EQ(sigismember(&after, number), sigismember(&before, number)) << number;
  }
}

}  // namespace
}  // namespace Kelvik
