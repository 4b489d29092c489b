// Holds a CMutex for the length of a scope inside the library.
#ifndef KELVIK_SCOPELOCK_H_
#define KELVIK_SCOPELOCK_H_

#include "Mutex.h"

namespace Kelvik {

// What CGuard is for programs, without its virtual table: the scope keeps nothing in memory, so
// that a function is smaller by the guard and by the guard of its frame.
class CScopeLock {
 public:
  [[gnu::always_inline]] explicit CScopeLock(CMutex& mutex) : m_Mutex(mutex) { m_Mutex.lock(); }
  CScopeLock(const CScopeLock&) = delete;
  CScopeLock& operator=(const CScopeLock&) = delete;
  [[gnu::always_inline]] ~CScopeLock() { m_Mutex.unlock(); }

 private:
  CMutex& m_Mutex;
};

}  // namespace Kelvik

#endif  // KELVIK_SCOPELOCK_H_
