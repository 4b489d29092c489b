// An auto-reset event with a timed wait.
#ifndef KELVIK_SIGNAL_H_
#define KELVIK_SIGNAL_H_

#include <pthread.h>
#include <sys/types.h>

#include <cstdint>

#include "Export.h"

namespace Kelvik {

// An event: signal() makes it pending, one successful wait() consumes it. Several signals before a
// wait count as one. Constructed not created: until create() has returned 0, and after destroy(),
// signal and wait are refused. The destructor destroys nothing: the owner calls destroy().
//
// signal and wait may be called from any thread; create and destroy belong to the owner. Waits are
// measured on a clock that nobody can set. All results are eResult codes; nothing is thrown.
class KELVIK_API CSignal {
 public:
  // The time-out that never ends.
  static constexpr unsigned int kForever = 0xFFFFFFFFu;

  CSignal();
  // A signal is never duplicated: the copy is not created, and an assignment changes nothing.
  CSignal(const CSignal& other);
  CSignal& operator=(const CSignal& other);
  virtual ~CSignal();

  // Makes the event, not pending. On a created one it only takes back what is pending. Returns
  // eResultSuccess, or eResultFailure when the system refuses.
  int create();

  // Ends the waits under way (they return eResultFailure), then releases what create() made.
  // Returns eResultSuccess, also when there is nothing to release. No thread may begin a wait or a
  // signal meanwhile. In a child made by fork() it only marks the signal as not created.
  int destroy();

  // Makes the event pending and wakes one waiter. Returns eResultSuccess, or eResultFailure when
  // not created.
  int signal();

  // Waits until the event is pending and consumes it. timeout: milliseconds, kForever for no limit,
  // 0 to ask without waiting. Returns eResultSuccess, eResultBusy when the time has passed, or
  // eResultFailure when not created or the system refuses.
  int wait(unsigned int timeout);

  // In a child made by fork(), where no waiter exists: makes mutex and condition anew, with nothing
  // pending. For the child's only thread.
  KELVIK_INTERNAL void AfterForkInChild();

 private:
  KELVIK_INTERNAL int WaitLocked(const timespec* deadline);

  pthread_mutex_t m_Mutex;
  pthread_cond_t m_Condition;  // measures time on CLOCK_MONOTONIC
  int32_t m_Pending;           // 0 or 1; guarded by m_Mutex
  bool m_Created;
  int32_t m_Waiters;  // threads inside wait(); guarded by m_Mutex
  pid_t m_ProcessId;  // the process that called create()
};

}  // namespace Kelvik

#endif  // KELVIK_SIGNAL_H_
