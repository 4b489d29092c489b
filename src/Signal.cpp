#include "Signal.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <limits>

#include "Kelvik.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

constexpr long kNanosecondsPerMs = 1000000L;
constexpr long kNanosecondsPerSecond = 1000000000L;

// The moment that lies timeout milliseconds ahead, or the last one that time_t can hold.
timespec DeadlineAfter(unsigned int timeout) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  // Both parts are below 10^9, so their sum fits a 32-bit long.
  long nanoseconds = deadline.tv_nsec + static_cast<long>(timeout % 1000U) * kNanosecondsPerMs;
  time_t seconds = static_cast<time_t>(timeout / 1000U);
  if (nanoseconds >= kNanosecondsPerSecond) {
    nanoseconds -= kNanosecondsPerSecond;
    ++seconds;
  }
  const time_t room = std::numeric_limits<time_t>::max() - deadline.tv_sec;
  deadline.tv_sec += seconds < room ? seconds : room;
  deadline.tv_nsec = nanoseconds;
  return deadline;
}

// A clock that jumps back must not stretch a wait, so the default real-time clock is not used.
int InitialiseMonotonic(pthread_cond_t* condition) {
  pthread_condattr_t attribute;
  int code = pthread_condattr_init(&attribute);
  if (code != 0) return code;
  code = pthread_condattr_setclock(&attribute, CLOCK_MONOTONIC);
  if (code == 0) code = pthread_cond_init(condition, &attribute);
  pthread_condattr_destroy(&attribute);
  return code;
}

}  // namespace

CSignal::CSignal()
    : m_Mutex(), m_Condition(), m_Pending(0), m_Created(false), m_Waiters(0), m_ProcessId(0) {}

CSignal::CSignal(const CSignal&) : CSignal() {}

// cppcheck-suppress operatorEqVarError ; nothing is taken from the other one
CSignal& CSignal::operator=(const CSignal&) {
  return *this;
}

CSignal::~CSignal() = default;

int CSignal::create() {
  if (RelaxedLoad(m_Created)) {
    // Making POSIX objects anew under their waiters would be undefined; the effect is the same.
    pthread_mutex_lock(&m_Mutex);
    m_Pending = 0;
    pthread_mutex_unlock(&m_Mutex);
    return eResultSuccess;
  }
  if (pthread_mutex_init(&m_Mutex, nullptr) != 0) return eResultFailure;
  if (InitialiseMonotonic(&m_Condition) != 0) {
    pthread_mutex_destroy(&m_Mutex);
    return eResultFailure;
  }
  m_Pending = 0;
  m_Waiters = 0;
  m_ProcessId = getpid();
  RelaxedStore(m_Created, true);
  return eResultSuccess;
}

int CSignal::destroy() {
  if (!RelaxedLoad(m_Created)) return eResultSuccess;
  if (m_ProcessId != getpid()) {
    // After fork() the waiters live in the parent alone: nobody here would ever leave the wait.
    RelaxedStore(m_Created, false);
    return eResultSuccess;
  }
  pthread_mutex_lock(&m_Mutex);
  RelaxedStore(m_Created, false);
  // Destroying a condition variable under a waiter would hang or worse.
  pthread_cond_broadcast(&m_Condition);
  while (m_Waiters > 0 && pthread_cond_wait(&m_Condition, &m_Mutex) == 0) {
  }
  pthread_mutex_unlock(&m_Mutex);
  pthread_mutex_destroy(&m_Mutex);
  pthread_cond_destroy(&m_Condition);
  return eResultSuccess;
}

void CSignal::AfterForkInChild() {
  if (!RelaxedLoad(m_Created)) return;
  pthread_mutex_init(&m_Mutex, nullptr);
  InitialiseMonotonic(&m_Condition);
  m_Pending = 0;
  m_Waiters = 0;
  m_ProcessId = getpid();
}

int CSignal::signal() {
  if (!RelaxedLoad(m_Created)) return eResultFailure;
  pthread_mutex_lock(&m_Mutex);
  m_Pending = 1;
  pthread_cond_signal(&m_Condition);
  pthread_mutex_unlock(&m_Mutex);
  return eResultSuccess;
}

int CSignal::wait(unsigned int timeout) {
  if (!RelaxedLoad(m_Created)) return eResultFailure;
  timespec deadline{};
  if (timeout != kForever) deadline = DeadlineAfter(timeout);
  pthread_mutex_lock(&m_Mutex);
  ++m_Waiters;
  const int result = WaitLocked(timeout != kForever ? &deadline : nullptr);
  --m_Waiters;
  if (!RelaxedLoad(m_Created)) pthread_cond_broadcast(&m_Condition);
  pthread_mutex_unlock(&m_Mutex);
  return result;
}

// Caller holds m_Mutex. deadline: null for no limit.
int CSignal::WaitLocked(const timespec* deadline) {
  while (RelaxedLoad(m_Created)) {
    if (m_Pending > 0) {
      m_Pending = 0;
      return eResultSuccess;
    }
    const int code = deadline != nullptr ? pthread_cond_timedwait(&m_Condition, &m_Mutex, deadline)
                                         : pthread_cond_wait(&m_Condition, &m_Mutex);
    if (code == ETIMEDOUT) return eResultBusy;
    if (code != 0) return eResultFailure;
  }
  return eResultFailure;
}

}  // namespace Kelvik
