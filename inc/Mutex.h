// A recursive mutex that its owner creates and destroys explicitly.
#ifndef KELVIK_MUTEX_H_
#define KELVIK_MUTEX_H_

#include <pthread.h>

#include "Export.h"

namespace Kelvik {

// A recursive POSIX mutex. Constructed not created: until create() has returned 0, and after
// destroy(), every operation is refused without touching the POSIX objects. The destructor destroys
// nothing: the owner calls destroy(), once no thread uses the mutex any more.
//
// lock, trylock and unlock may be called from any thread; create and destroy belong to the owner.
// All results are eResult codes; nothing is thrown or logged.
class KELVIK_API CMutex {
 public:
  CMutex();
  // A mutex is never duplicated: the copy is not created, and an assignment changes nothing.
  CMutex(const CMutex& other);
  CMutex& operator=(const CMutex& other);
  virtual ~CMutex();

  // Makes the mutex. Returns eResultSuccess; eResultFailure when it is created already (it then
  // stays as it is) or when the system refuses.
  int create();

  // Releases what create() made. Returns eResultSuccess, also when there is nothing to release.
  int destroy();

  // Waits for the mutex; a thread that holds it may lock it again and must unlock it as often.
  // Returns eResultSuccess, or eResultFailure when not created or the system refuses.
  int lock() {
    if (!__atomic_load_n(&m_Created, __ATOMIC_RELAXED)) return 1;
    return pthread_mutex_lock(&m_Mutex) == 0 ? 0 : 1;
  }

  // As lock(), for a mutex that is let go of within microseconds: where another core may do so
  // meanwhile, the thread looks again for some microseconds before it sleeps.
  int lockSpinning() {
    if (!__atomic_load_n(&m_Created, __ATOMIC_RELAXED)) return 1;
    return pthread_mutex_trylock(&m_Mutex) == 0 ? 0 : WaitSpinning();
  }

  // As lock(), but never waits: eResultBusy when another thread holds the mutex.
  int trylock();

  // Undoes one lock(). Returns eResultSuccess, or eResultFailure when not created or not held by
  // the calling thread.
  int unlock() {
    if (!__atomic_load_n(&m_Created, __ATOMIC_RELAXED)) return 1;
    return pthread_mutex_unlock(&m_Mutex) == 0 ? 0 : 1;
  }

  // In a child made by fork(), where the thread that held the mutex may not exist: makes it anew,
  // unlocked. For the child's only thread.
  KELVIK_INTERNAL void AfterForkInChild();

 private:
  int WaitSpinning();

  pthread_mutex_t m_Mutex;
  pthread_mutexattr_t m_Attribute;  // lives as long as m_Mutex
  bool m_Created;
};

}  // namespace Kelvik

#endif  // KELVIK_MUTEX_H_
