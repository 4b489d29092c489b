#include "Mutex.h"

#include <sched.h>
#include <unistd.h>

#include <cerrno>

#include "Guard.h"
#include "Kelvik.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

// A sleep and its wake-up cost both sides several microseconds, more on a virtual machine. Looking
// takes the lock's cache line from its holder, so there are pauses between the looks.
constexpr int kLooks = 20;
constexpr int kPausesBetweenLooks = 32;  // of 10 to 50 ns each where the processor knows a pause

bool s_HasOneCore = false;

// The cores of the process's first thread stand for the process: a single worker may be bound to
// one.
void FindCores() {
  const int callerErrno = errno;
  cpu_set_t cores;
  CPU_ZERO(&cores);
  // Where the kernel does not tell, the set stays empty.
  static_cast<void>(::sched_getaffinity(::getpid(), sizeof(cores), &cores));
  int count = 0;  // by hand: CPU_COUNT would import a function for this alone
  for (int core = 0; core < CPU_SETSIZE; ++core)
    count += CPU_ISSET(core, &cores) ? 1 : 0;
  RelaxedStore(s_HasOneCore, count == 1);
  errno = callerErrno;
}

inline void Pause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__ARM_ARCH) && __ARM_ARCH >= 7)
  __asm__ volatile("yield");
#else
  __asm__ volatile("");
#endif
}

}  // namespace

CMutex::CMutex() : m_Mutex(), m_Attribute(), m_Created(false) {}

CMutex::CMutex(const CMutex&) : CMutex() {}

CMutex& CMutex::operator=(const CMutex&) {
  return *this;
}

CMutex::~CMutex() = default;

int CMutex::create() {
  if (RelaxedLoad(m_Created)) return eResultFailure;
  if (pthread_mutexattr_init(&m_Attribute) != 0) return eResultFailure;
  if (pthread_mutexattr_settype(&m_Attribute, PTHREAD_MUTEX_RECURSIVE) != 0 ||
      pthread_mutex_init(&m_Mutex, &m_Attribute) != 0) {
    pthread_mutexattr_destroy(&m_Attribute);
    return eResultFailure;
  }
  FindCores();
  RelaxedStore(m_Created, true);
  return eResultSuccess;
}

int CMutex::destroy() {
  if (!RelaxedLoad(m_Created)) return eResultSuccess;
  RelaxedStore(m_Created, false);
  pthread_mutex_destroy(&m_Mutex);
  pthread_mutexattr_destroy(&m_Attribute);
  return eResultSuccess;
}

void CMutex::AfterForkInChild() {
  if (RelaxedLoad(m_Created)) pthread_mutex_init(&m_Mutex, &m_Attribute);
}

int CMutex::trylock() {
  if (!RelaxedLoad(m_Created)) return eResultFailure;
  switch (pthread_mutex_trylock(&m_Mutex)) {
    case 0:
      return eResultSuccess;
    case EBUSY:
      return eResultBusy;
    default:
      return eResultFailure;
  }
}

int CMutex::WaitSpinning() {
  if (!RelaxedLoad(s_HasOneCore)) {
    for (int look = 0; look < kLooks; ++look) {
      for (int i = 0; i < kPausesBetweenLooks; ++i)
        Pause();
      if (pthread_mutex_trylock(&m_Mutex) == 0) return eResultSuccess;
    }
  }
  return lock();
}

// The rest of a guard is inline.
CGuard::CGuard(const CGuard&) : m_Mutex(nullptr) {}

// cppcheck-suppress operatorEqVarError ; nothing is taken from the other one
CGuard& CGuard::operator=(const CGuard&) {
  return *this;
}

}  // namespace Kelvik
