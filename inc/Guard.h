// Holds a CMutex for the length of a scope.
#ifndef KELVIK_GUARD_H_
#define KELVIK_GUARD_H_

#include "Export.h"
#include "Mutex.h"

namespace Kelvik {

// Locks a mutex when constructed and unlocks it when destroyed; the results of both are ignored.
// Belongs to one thread. The mutex recurses, so a function that holds a guard may call another one
// that takes the same.
class KELVIK_API CGuard {
 public:
  // mutex: not owned, outlives the guard. A null mutex gives a guard that holds nothing.
  explicit CGuard(CMutex* mutex) : m_Mutex(mutex) {
    if (m_Mutex != nullptr) m_Mutex->lock();
  }
  // The copy holds no mutex and unlocks nothing; an assignment changes nothing.
  CGuard(const CGuard& other);
  CGuard& operator=(const CGuard& other);
  virtual ~CGuard() {
    if (m_Mutex != nullptr) m_Mutex->unlock();
  }

 private:
  CMutex* m_Mutex;  // the mutex held, not owned; null in a copy
};

}  // namespace Kelvik

#endif  // KELVIK_GUARD_H_
