// CMutex and CGuard. In this executable the calls that make a mutex and those that use it can fail.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "Guard.h"
#include "Kelvik.h"
#include "Mutex.h"
#include "Rounds.h"

namespace {

enum class eFailing { kNothing, kAttributeInit, kSetType, kMutexInit };

eFailing gFailing = eFailing::kNothing;
int gLiveAttributes = 0;
int gOperationCode = 0;       // not 0: what locking and unlocking return, doing nothing
int gCores = 2;               // of the process
thread_local int gLooks = 0;  // calls of trylock by this thread

}  // namespace

extern "C" {

int __real_pthread_mutexattr_init(pthread_mutexattr_t* attribute);
int __real_pthread_mutexattr_settype(pthread_mutexattr_t* attribute, int type);
int __real_pthread_mutexattr_destroy(pthread_mutexattr_t* attribute);
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);

int __wrap_pthread_mutexattr_init(pthread_mutexattr_t* attribute) {
  if (gFailing == eFailing::kAttributeInit) return ENOMEM;
  ++gLiveAttributes;
  return __real_pthread_mutexattr_init(attribute);
}

int __wrap_pthread_mutexattr_settype(pthread_mutexattr_t* attribute, int type) {
  return gFailing == eFailing::kSetType ? EINVAL
                                        : __real_pthread_mutexattr_settype(attribute, type);
}

int __wrap_pthread_mutexattr_destroy(pthread_mutexattr_t* attribute) {
  --gLiveAttributes;
  return __real_pthread_mutexattr_destroy(attribute);
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute) {
  return gFailing == eFailing::kMutexInit ? EAGAIN : __real_pthread_mutex_init(mutex, attribute);
}

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_trylock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  return gOperationCode != 0 ? gOperationCode : __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
  ++gLooks;
  return gOperationCode != 0 ? gOperationCode : __real_pthread_mutex_trylock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  return gOperationCode != 0 ? gOperationCode : __real_pthread_mutex_unlock(mutex);
}

int __wrap_sched_getaffinity(pid_t, size_t size, cpu_set_t* cores) {
  CPU_ZERO_S(size, cores);
  for (int core = 0; core < gCores; ++core)
    CPU_SET_S(static_cast<size_t>(core), size, cores);
  return gCores > 0 ? 0 : -1;
}

}  // extern "C"

namespace Kelvik {
namespace {

// What another thread's trylock returns; the lock is given back at once.
int TrylockElsewhere(CMutex& mutex) {
  int result = -1;
  std::thread other([&] {
    result = mutex.trylock();
    if (result == eResultSuccess) mutex.unlock();
  });
  other.join();
  return result;
}

class CCreatedMutex : public CMutex {
 public:
  CCreatedMutex() { EXPECT_EQ(create(), eResultSuccess); }
  ~CCreatedMutex() override { EXPECT_EQ(destroy(), eResultSuccess); }
};

TEST(Mutex, RefusesEverythingUntilCreated) {
  CMutex mutex;
  EXPECT_EQ(mutex.lock(), eResultFailure);
  EXPECT_EQ(mutex.trylock(), eResultFailure);
  EXPECT_EQ(mutex.unlock(), eResultFailure);
  EXPECT_EQ(mutex.destroy(), eResultSuccess);
}

TEST(Mutex, SecondCreateIsRefusedAndTheMutexStaysUsable) {
  CCreatedMutex mutex;
  ASSERT_EQ(mutex.lock(), eResultSuccess);
  EXPECT_EQ(mutex.create(), eResultFailure);
  EXPECT_EQ(TrylockElsewhere(mutex), eResultBusy);
  EXPECT_EQ(mutex.unlock(), eResultSuccess);
  EXPECT_EQ(TrylockElsewhere(mutex), eResultSuccess);
}

TEST(Mutex, IsHeldUntilUnlockedAsOftenAsLocked) {
  CCreatedMutex mutex;
  EXPECT_EQ(mutex.lock(), eResultSuccess);
  EXPECT_EQ(mutex.lock(), eResultSuccess);
  EXPECT_EQ(mutex.trylock(), eResultSuccess);
  EXPECT_EQ(mutex.unlock(), eResultSuccess);
  EXPECT_EQ(mutex.unlock(), eResultSuccess);
  EXPECT_EQ(TrylockElsewhere(mutex), eResultBusy);
  EXPECT_EQ(mutex.unlock(), eResultSuccess);
  EXPECT_EQ(TrylockElsewhere(mutex), eResultSuccess);
}

// How often a thread looks that waits for the mutex until another thread lets go of it.
int LooksWhileWaiting(int cores) {
  gCores = cores;
  CCreatedMutex mutex;
  gCores = 2;
  EXPECT_EQ(mutex.lock(), eResultSuccess);
  std::atomic<bool> waits{false};
  std::atomic<bool> isHeld{true};
  int looks = 0;
  std::thread other([&] {
    gLooks = 0;
    waits = true;
    EXPECT_EQ(mutex.lockSpinning(), eResultSuccess);
    looks = gLooks;
    EXPECT_FALSE(isHeld);
    EXPECT_EQ(mutex.unlock(), eResultSuccess);
  });
  while (!waits)
    std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  isHeld = false;
  EXPECT_EQ(mutex.unlock(), eResultSuccess);
  other.join();
  return looks;
}

TEST(Mutex, SpinningLockLooksAgainBeforeItSleeps) {
  const int looks = LooksWhileWaiting(2);
  EXPECT_GT(looks, 1);
  EXPECT_LT(looks, 100);
}

TEST(Mutex, SpinningLockOfUnknownCoresLooksAgain) {
  EXPECT_GT(LooksWhileWaiting(0), 1);
}

TEST(Mutex, SpinningLockSleepsAtOnceOnOneCore) {
  EXPECT_EQ(LooksWhileWaiting(1), 1);
}

TEST(Mutex, SpinningLockIsRecursiveAndNeedsACreatedMutex) {
  CMutex none;
  EXPECT_EQ(none.lockSpinning(), eResultFailure);
  CCreatedMutex mutex;
  EXPECT_EQ(mutex.lockSpinning(), eResultSuccess);
  EXPECT_EQ(mutex.lockSpinning(), eResultSuccess);
  EXPECT_EQ(mutex.unlock(), eResultSuccess);
  EXPECT_EQ(TrylockElsewhere(mutex), eResultBusy);
  EXPECT_EQ(mutex.unlock(), eResultSuccess);
  EXPECT_EQ(TrylockElsewhere(mutex), eResultSuccess);
}

TEST(Mutex, WhatTheSystemRefusesIsAFailure) {
  CCreatedMutex mutex;
  for (int code : {EINVAL, EAGAIN, EPERM, ETIMEDOUT}) {
    SCOPED_TRACE(code);
    gOperationCode = code;
    const int results[] = {mutex.lock(), mutex.lockSpinning(), mutex.trylock(), mutex.unlock()};
    gOperationCode = 0;
    for (int result : results)
      EXPECT_EQ(result, eResultFailure);
  }
  EXPECT_EQ(TrylockElsewhere(mutex), eResultSuccess);
}

TEST(Mutex, DestroyedMutexRefusesUntilCreatedAgain) {
  CMutex mutex;
  ASSERT_EQ(mutex.create(), eResultSuccess);
  EXPECT_EQ(mutex.destroy(), eResultSuccess);
  EXPECT_EQ(mutex.lock(), eResultFailure);
  EXPECT_EQ(mutex.destroy(), eResultSuccess);
  EXPECT_EQ(mutex.create(), eResultSuccess);
  EXPECT_EQ(mutex.lock(), eResultSuccess);
  EXPECT_EQ(mutex.unlock(), eResultSuccess);
  EXPECT_EQ(mutex.destroy(), eResultSuccess);
}

TEST(Mutex, CopyIsNotCreatedAndAssignmentChangesNothing) {
  CCreatedMutex mutex;
  CMutex copy(mutex);
  EXPECT_EQ(copy.lock(), eResultFailure);
  EXPECT_EQ(copy.create(), eResultSuccess);
  ASSERT_EQ(mutex.lock(), eResultSuccess);
  EXPECT_EQ(TrylockElsewhere(copy), eResultSuccess);  // a mutex of its own
  const CMutex fresh;
  mutex.CMutex::operator=(fresh);
  EXPECT_EQ(TrylockElsewhere(mutex), eResultBusy);
  EXPECT_EQ(mutex.unlock(), eResultSuccess);
  EXPECT_EQ(copy.destroy(), eResultSuccess);
}

TEST(Mutex, FailedCreateReturnsOneAndLeavesNothingBehind) {
  for (eFailing failing : {eFailing::kAttributeInit, eFailing::kSetType, eFailing::kMutexInit}) {
    SCOPED_TRACE(static_cast<int>(failing));
    CMutex mutex;
    gLiveAttributes = 0;
    gFailing = failing;
    EXPECT_EQ(mutex.create(), eResultFailure);
    gFailing = eFailing::kNothing;
    EXPECT_EQ(gLiveAttributes, 0);
    EXPECT_EQ(mutex.lock(), eResultFailure);
    EXPECT_EQ(mutex.create(), eResultSuccess);
    EXPECT_EQ(gLiveAttributes, 1);  // kept as long as the mutex
    EXPECT_EQ(mutex.destroy(), eResultSuccess);
    EXPECT_EQ(gLiveAttributes, 0);
  }
}

TEST(Guard, HoldsTheMutexForItsScope) {
  CCreatedMutex mutex;
  {
    CGuard guard(&mutex);
    EXPECT_EQ(TrylockElsewhere(mutex), eResultBusy);
    {
      CGuard inner(&mutex);
      EXPECT_EQ(TrylockElsewhere(mutex), eResultBusy);
    }
    EXPECT_EQ(TrylockElsewhere(mutex), eResultBusy);
  }
  EXPECT_EQ(TrylockElsewhere(mutex), eResultSuccess);
}

TEST(Guard, CopiedGuardUnlocksNothing) {
  CCreatedMutex mutex;
  CGuard guard(&mutex);
  { CGuard copy(guard); }
  EXPECT_EQ(TrylockElsewhere(mutex), eResultBusy);
}

TEST(Guard, AssignmentMovesNoMutex) {
  CCreatedMutex first;
  CCreatedMutex second;
  CGuard guardOfFirst(&first);
  {
    CGuard guardOfSecond(&second);
    guardOfSecond = guardOfFirst;
    EXPECT_EQ(TrylockElsewhere(second), eResultBusy);
  }
  EXPECT_EQ(TrylockElsewhere(first), eResultBusy);
  EXPECT_EQ(TrylockElsewhere(second), eResultSuccess);
}

TEST(Guard, OverAMutexThatIsNotCreatedDoesNothing) {
  CMutex mutex;
  { CGuard guard(&mutex); }
  EXPECT_EQ(mutex.create(), eResultSuccess);
  EXPECT_EQ(TrylockElsewhere(mutex), eResultSuccess);
  EXPECT_EQ(mutex.destroy(), eResultSuccess);
}

TEST(Guard, OneThreadAtATimeIsInside) {
  CCreatedMutex mutex;
  const int rounds = Rounds() * 500;
  int count = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        CGuard guard(&mutex);
        ++count;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(count, 4 * rounds);
}

}  // namespace
}  // namespace Kelvik
