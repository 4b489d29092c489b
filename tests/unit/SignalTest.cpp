// CSignal. In this executable the wall clock can be frozen, and the calls that make a signal and
// the waits themselves can fail.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "FakeClock.h"
#include "Kelvik.h"
#include "RealClock.h"
#include "Signal.h"

// Where a 32-bit system has 64-bit times, the timed wait has a name of its own.
#if defined(_TIME_BITS) && _TIME_BITS == 64 && __SIZEOF_LONG__ == 4
#define KELVIK_REAL_TIMEDWAIT __real___pthread_cond_timedwait64
#define KELVIK_WRAP_TIMEDWAIT __wrap___pthread_cond_timedwait64
#else
#define KELVIK_REAL_TIMEDWAIT __real_pthread_cond_timedwait
#define KELVIK_WRAP_TIMEDWAIT __wrap_pthread_cond_timedwait
#endif

namespace {

bool gFailMutex = false;
bool gFailCondition = false;
int gLiveMutexes = 0;
int gWaitCode = 0;  // not 0: what the condition variable's waits return at once

// Not null: takes the place of the condition variable's waits.
int (*gWait)(pthread_mutex_t* mutex, const timespec* deadline) = nullptr;

}  // namespace

extern "C" {

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);
int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);
int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute);

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute) {
  if (gFailMutex) return EAGAIN;
  ++gLiveMutexes;
  return __real_pthread_mutex_init(mutex, attribute);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
  --gLiveMutexes;
  return __real_pthread_mutex_destroy(mutex);
}

int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute) {
  return gFailCondition ? ENOMEM : __real_pthread_cond_init(condition, attribute);
}

int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int KELVIK_REAL_TIMEDWAIT(pthread_cond_t* condition, pthread_mutex_t* mutex,
                          const timespec* deadline);

int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  if (gWait != nullptr) return gWait(mutex, nullptr);
  return gWaitCode != 0 ? gWaitCode : __real_pthread_cond_wait(condition, mutex);
}

int KELVIK_WRAP_TIMEDWAIT(pthread_cond_t* condition, pthread_mutex_t* mutex,
                          const timespec* deadline) {
  if (gWait != nullptr) return gWait(mutex, deadline);
  return gWaitCode != 0 ? gWaitCode : KELVIK_REAL_TIMEDWAIT(condition, mutex, deadline);
}

}  // extern "C"

namespace Kelvik {
namespace {

constexpr int kLimitMs = 10000;
// Long enough for a waiter that should not return to show that it does.
constexpr int kLookMs = 30;

class CCreatedSignal : public CSignal {
 public:
  CCreatedSignal() { EXPECT_EQ(create(), eResultSuccess); }
  ~CCreatedSignal() override { EXPECT_EQ(destroy(), eResultSuccess); }
};

TEST(Signal, RefusesEverythingUntilCreated) {
  CSignal signal;
  EXPECT_EQ(signal.wait(0), eResultFailure);
  EXPECT_EQ(signal.wait(CSignal::kForever), eResultFailure);
  EXPECT_EQ(signal.signal(), eResultFailure);
  EXPECT_EQ(signal.destroy(), eResultSuccess);
}

TEST(Signal, DestroyedSignalRefusesUntilCreatedAgain) {
  CSignal signal;
  ASSERT_EQ(signal.create(), eResultSuccess);
  ASSERT_EQ(signal.signal(), eResultSuccess);
  EXPECT_EQ(signal.destroy(), eResultSuccess);
  EXPECT_EQ(signal.wait(0), eResultFailure);
  EXPECT_EQ(signal.signal(), eResultFailure);
  ASSERT_EQ(signal.create(), eResultSuccess);
  EXPECT_EQ(signal.wait(0), eResultBusy);
  EXPECT_EQ(signal.destroy(), eResultSuccess);
}

TEST(Signal, TwoSignalsAreConsumedByOneWait) {
  CCreatedSignal signal;
  EXPECT_EQ(signal.signal(), eResultSuccess);
  EXPECT_EQ(signal.signal(), eResultSuccess);
  EXPECT_EQ(signal.wait(0), eResultSuccess);
  EXPECT_EQ(signal.wait(0), eResultBusy);
}

TEST(Signal, SecondCreateSucceedsAndTakesBackWhatIsPending) {
  CCreatedSignal signal;
  ASSERT_EQ(signal.signal(), eResultSuccess);
  EXPECT_EQ(signal.create(), eResultSuccess);
  EXPECT_EQ(signal.wait(0), eResultBusy);
  EXPECT_EQ(signal.signal(), eResultSuccess);
  EXPECT_EQ(signal.wait(0), eResultSuccess);
}

TEST(Signal, PendingSignalEndsAnyWaitAtOnce) {
  CCreatedSignal signal;
  for (unsigned int timeout :
       {0u, 1u, 999u, 1000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, CSignal::kForever}) {
    SCOPED_TRACE(timeout);
    ASSERT_EQ(signal.signal(), eResultSuccess);
    EXPECT_EQ(signal.wait(timeout), eResultSuccess);
  }
}

TEST(Signal, WaitTimesOutAfterItsMilliseconds) {
  CCreatedSignal signal;
  for (unsigned int timeout : {1u, 25u, 80u}) {
    SCOPED_TRACE(timeout);
    const int64_t start = RealClockMs();
    EXPECT_EQ(signal.wait(timeout), eResultBusy);
    // Both readings are cut to milliseconds.
    EXPECT_GE(RealClockMs() - start + 1, static_cast<int64_t>(timeout));
  }
}

TEST(Signal, WaitIsMeasuredThoughTheWallClockStandsStill) {
  CCreatedSignal signal;
  for (int64_t wallClock : {0, 1000000000, 2147483647}) {
    SCOPED_TRACE(wallClock);
    const CFakeClock clock(wallClock);
    const int64_t start = RealClockMs();
    EXPECT_EQ(signal.wait(25), eResultBusy);
    EXPECT_GE(RealClockMs() - start + 1, 25);
    EXPECT_LT(RealClockMs() - start, ScaledMs(kLimitMs));
  }
}

TEST(Signal, LongWaitsReturnOnlyAfterASignal) {
  for (unsigned int timeout : {100000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, CSignal::kForever}) {
    SCOPED_TRACE(timeout);
    CCreatedSignal signal;
    std::atomic<int> result(-1);
    std::thread waiter([&] { result = signal.wait(timeout); });
    PauseMs(kLookMs);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(signal.signal(), eResultSuccess);
    waiter.join();
    EXPECT_EQ(result, eResultSuccess);
  }
}

TEST(Signal, OneSignalReleasesOneWaiter) {
  CCreatedSignal signal;
  std::atomic<int> released(0);
  std::vector<std::thread> waiters;
  for (int waiter = 0; waiter < 3; ++waiter) {
    waiters.emplace_back([&] {
      EXPECT_EQ(signal.wait(CSignal::kForever), eResultSuccess);
      ++released;
    });
  }
  for (int expected = 1; expected <= 3; ++expected) {
    ASSERT_EQ(signal.signal(), eResultSuccess);
    EXPECT_TRUE(WaitUntil([&] { return released == expected; }, kLimitMs));
    PauseMs(kLookMs);
    EXPECT_EQ(released, expected);
  }
  for (std::thread& waiter : waiters)
    waiter.join();
}

TEST(Signal, DestroyEndsTheWaitsUnderWay) {
  for (unsigned int timeout : {CSignal::kForever, 0xFFFFFFFEu}) {
    CSignal signal;
    ASSERT_EQ(signal.create(), eResultSuccess);
    std::vector<std::thread> waiters;
    for (int waiter = 0; waiter < 3; ++waiter) {
      waiters.emplace_back([&] { EXPECT_EQ(signal.wait(timeout), eResultFailure); });
    }
    PauseMs(kLookMs);
    EXPECT_EQ(signal.destroy(), eResultSuccess);
    for (std::thread& waiter : waiters)
      waiter.join();
  }
}

TEST(Signal, WaitThatTheSystemRefusesIsAFailure) {
  CCreatedSignal signal;
  for (unsigned int timeout : {0u, 5u, CSignal::kForever}) {
    gWaitCode = EINVAL;
    const int result = signal.wait(timeout);
    gWaitCode = 0;
    EXPECT_EQ(result, eResultFailure);
  }
  // Nobody is left inside, and the mutex was given back.
  EXPECT_EQ(signal.signal(), eResultSuccess);
  EXPECT_EQ(signal.wait(0), eResultSuccess);
}

// The wake-ups left before a spurious waiter is told what it waits for, and the deadlines it gave.
int gWakeUps = 0;
std::vector<timespec> gDeadlines;
CSignal* gSignalled = nullptr;

// Wakes up for nothing, and at last signals (no limit) or says that the time has passed.
int WakeUpForNothing(pthread_mutex_t* mutex, const timespec* deadline) {
  if (deadline != nullptr) gDeadlines.push_back(*deadline);
  if (gWakeUps-- > 0) return 0;
  if (deadline != nullptr) return ETIMEDOUT;
  pthread_mutex_unlock(mutex);
  gSignalled->signal();
  pthread_mutex_lock(mutex);
  return 0;
}

TEST(Signal, WakeUpForNothingWaitsOnUntilTheSameDeadline) {
  CCreatedSignal signal;
  gSignalled = &signal;
  gDeadlines.clear();
  gWait = &WakeUpForNothing;
  gWakeUps = 3;
  const int timed = signal.wait(50);
  gWakeUps = 3;
  const int endless = signal.wait(CSignal::kForever);
  gWait = nullptr;
  EXPECT_EQ(timed, eResultBusy);
  EXPECT_EQ(endless, eResultSuccess);
  ASSERT_EQ(gDeadlines.size(), 4u);
  for (const timespec& deadline : gDeadlines) {
    EXPECT_EQ(deadline.tv_sec, gDeadlines[0].tv_sec);
    EXPECT_EQ(deadline.tv_nsec, gDeadlines[0].tv_nsec);
  }
}

// A signal comes in the moment in which the time has passed.
int SignalAndTimeOut(pthread_mutex_t* mutex, const timespec* /*deadline*/) {
  pthread_mutex_unlock(mutex);
  gSignalled->signal();
  pthread_mutex_lock(mutex);
  return ETIMEDOUT;
}

TEST(Signal, TimeThatHasPassedCountsBeforeALateSignalWhichStaysPending) {
  CCreatedSignal signal;
  gSignalled = &signal;
  gWait = &SignalAndTimeOut;
  const int result = signal.wait(5);
  gWait = nullptr;
  EXPECT_EQ(result, eResultBusy);
  EXPECT_EQ(signal.wait(0), eResultSuccess);
  EXPECT_EQ(signal.wait(0), eResultBusy);
}

TEST(Signal, CopyIsNotCreatedAndAssignmentChangesNothing) {
  CCreatedSignal signal;
  ASSERT_EQ(signal.signal(), eResultSuccess);
  CSignal copy(signal);
  EXPECT_EQ(copy.wait(0), eResultFailure);
  const CSignal fresh;
  signal.CSignal::operator=(fresh);
  EXPECT_EQ(signal.wait(0), eResultSuccess);
}

TEST(Signal, FailedCreateReturnsOneAndLeavesNothingBehind) {
  for (bool* failing : {&gFailMutex, &gFailCondition}) {
    CSignal signal;
    gLiveMutexes = 0;
    *failing = true;
    EXPECT_EQ(signal.create(), eResultFailure);
    *failing = false;
    EXPECT_EQ(gLiveMutexes, 0);
    EXPECT_EQ(signal.signal(), eResultFailure);
    EXPECT_EQ(signal.wait(0), eResultFailure);
    EXPECT_EQ(signal.create(), eResultSuccess);
    EXPECT_EQ(signal.destroy(), eResultSuccess);
    EXPECT_EQ(gLiveMutexes, 0);
  }
}

// The parent's waiter does not exist in the child, so nothing there could end its wait.
CHILD_CASE(DestroyAfterFork) {
  CCreatedSignal signal;
  std::thread waiter([&] { signal.wait(CSignal::kForever); });
  PauseMs(kLookMs);
  const pid_t child = fork();
  if (child == 0) _exit(signal.destroy() == eResultSuccess && signal.signal() == 1 ? 0 : 1);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  signal.signal();
  waiter.join();
  return 0;
}

TEST(Signal, DestroyInAForkedChildDoesNotWaitForTheParentsThreads) {
  EXPECT_TRUE(Succeeded(RunChild("DestroyAfterFork")));
}

}  // namespace
}  // namespace Kelvik
