// Holds off the cancellation of the calling thread for a scope.
#ifndef KELVIK_NOCANCEL_H_
#define KELVIK_NOCANCEL_H_

#include <pthread.h>

namespace Kelvik {

// For what waits for the disk while it holds locks: a thread that was cancelled there would leave
// them locked, and the ring and its index halfway. It ends with the next call that waits instead.
class CNoCancel {
 public:
  CNoCancel() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_Before); }
  CNoCancel(const CNoCancel&) = delete;
  CNoCancel& operator=(const CNoCancel&) = delete;
  ~CNoCancel() { pthread_setcancelstate(m_Before, nullptr); }

 private:
  int m_Before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace Kelvik

#endif  // KELVIK_NOCANCEL_H_
