#include "Mutex.h"

#include <cerrno>

#include "Guard.h"
#include "Kelvik.h"
#include "Relaxed.h"

namespace Kelvik {

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

// The rest of a guard is inline: it stands on a record's road.
CGuard::CGuard(const CGuard&) : m_Mutex(nullptr) {}

// cppcheck-suppress operatorEqVarError ; nothing is taken from the other one
CGuard& CGuard::operator=(const CGuard&) {
  return *this;
}

}  // namespace Kelvik
