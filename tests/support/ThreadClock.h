// The processor time of one thread, which does not count what else the machine does meanwhile.

#ifndef KELVIK_THREADCLOCK_H_
#define KELVIK_THREADCLOCK_H_

#include <time.h>

namespace Kelvik {

// Seconds that the calling thread has run.
inline double ThreadSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace Kelvik

#endif  // KELVIK_THREADCLOCK_H_
