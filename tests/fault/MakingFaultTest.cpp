// What the engine is made of cannot be had: a mutex or a condition variable is refused. The engine
// says so, gives back what it had, and can be made later.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "Kelvik.h"
#include "Output.h"
#include "Signal.h"

namespace {

int gCalls = 0;
int gFailing = 0;  // the number of the call that fails, 0: none
int gBuffers = 0;  // the number of the buffer that there is no memory for, 0: none
int gLive = 0;     // mutexes and condition variables made and not destroyed

bool Fails() {
  return ++gCalls == gFailing;
}

// Makes nothing when it fails.
int Made(int code) {
  if (code == 0) ++gLive;
  return code;
}

}  // namespace

extern "C" {

void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size);
void* __wrap_malloc(size_t size) {
  constexpr size_t kBufferBytes = 32768;  // the default
  if (size == kBufferBytes && gBuffers > 0 && --gBuffers == 0) return nullptr;
  return __real_malloc(size);
}

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);
int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);
int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute);
int __real_pthread_cond_destroy(pthread_cond_t* condition);
int __real_pthread_condattr_init(pthread_condattr_t* attribute);
int __real_pthread_condattr_setclock(pthread_condattr_t* attribute, clockid_t clock);

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute) {
  return Fails() ? EAGAIN : Made(__real_pthread_mutex_init(mutex, attribute));
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
  --gLive;
  return __real_pthread_mutex_destroy(mutex);
}

int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute);
int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute) {
  return Fails() ? ENOMEM : Made(__real_pthread_cond_init(condition, attribute));
}

int __wrap_pthread_cond_destroy(pthread_cond_t* condition);
int __wrap_pthread_cond_destroy(pthread_cond_t* condition) {
  --gLive;
  return __real_pthread_cond_destroy(condition);
}

int __wrap_pthread_condattr_init(pthread_condattr_t* attribute);
int __wrap_pthread_condattr_init(pthread_condattr_t* attribute) {
  return Fails() ? ENOMEM : __real_pthread_condattr_init(attribute);
}

int __wrap_pthread_condattr_setclock(pthread_condattr_t* attribute, clockid_t clock);
int __wrap_pthread_condattr_setclock(pthread_condattr_t* attribute, clockid_t clock) {
  return Fails() ? EINVAL : __real_pthread_condattr_setclock(attribute, clock);
}

}  // extern "C"

namespace Kelvik {
namespace {

// Lets every call fail in its turn. Returns how many there are.
template <class tMake>
int FailEach(tMake make) {
  const int live = gLive;
  int failing = 0;
  int result = eResultFailure;
  while (result != eResultSuccess) {
    gCalls = 0;
    gFailing = ++failing;
    result = make();
    gFailing = 0;
    if (result == eResultSuccess) break;
    EXPECT_EQ(eResultFailure, result) << failing;
    EXPECT_EQ(live, gLive) << failing;
  }
  return failing - 1;
}

TEST(MakingFault, EngineThatCannotBeMadeGivesEverythingBackAndCanBeMadeLater) {
  COutput output;
  EXPECT_EQ(eResultSuccess, output.Destroy());
  const int live = gLive;
  // Two mutexes, and two signals of a mutex and a condition variable with its attribute each.
  EXPECT_EQ(2 + 2 * 4, FailEach([&output] { return output.Initialize(); }));
  EXPECT_EQ(live + 2 + 2 * 2, gLive);
  EXPECT_EQ(eResultSuccess, output.Destroy());
  EXPECT_EQ(live, gLive);
}

TEST(MakingFault, SignalThatCannotBeMadeRefusesAndCanBeMadeLater) {
  CSignal signal;
  EXPECT_EQ(4, FailEach([&signal] {
              const int result = signal.create();
              EXPECT_EQ(result, signal.signal());
              return result;
            }));
  EXPECT_EQ(eResultSuccess, signal.wait(0));
  EXPECT_EQ(eResultSuccess, signal.destroy());
}

// What pthread_atfork would have made anew is only forgotten.
TEST(MakingFault, SignalOfTheParentIsForgottenInTheChildWithoutATouch) {
  CSignal signal;
  ASSERT_EQ(eResultSuccess, signal.create());
  const int live = gLive;
  const pid_t child = fork();
  if (child == 0) {
    const bool isDone = signal.destroy() == eResultSuccess && gLive == live &&
                        signal.signal() == eResultFailure && signal.create() == eResultSuccess &&
                        gLive == live + 2;
    _exit(isDone ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(eResultSuccess, signal.destroy());
}

// The last one: it makes the context, whose handlers take part in a fork.
TEST(MakingFault, EngineWithoutMemoryStartsWithoutBuffersAndThread) {
  COutput output;
  for (const int failing : {1, 2}) {
    gBuffers = failing;
    EXPECT_EQ(eResultFailure, output.Start()) << failing;
    EXPECT_EQ(0, gBuffers);
    EXPECT_EQ(nullptr, output.m_BackBuffer);
    EXPECT_EQ(nullptr, output.m_FrontBuffer);
    EXPECT_FALSE(output.m_Thread.IsRunning());
  }
  EXPECT_EQ(eResultSuccess, output.Start());
  EXPECT_NE(nullptr, output.m_BackBuffer);
  EXPECT_TRUE(output.m_Thread.IsRunning());
}

}  // namespace
}  // namespace Kelvik
