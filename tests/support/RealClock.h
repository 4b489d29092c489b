// The kernel's monotonic clock and the limits measured with it. Unlike the C library's functions it
// cannot be replaced by a fake clock in the same executable, so a time limit stays one.

#ifndef KELVIK_REALCLOCK_H_
#define KELVIK_REALCLOCK_H_

#include <poll.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

namespace Kelvik {

// Milliseconds since some moment in the past; never goes back.
inline int64_t RealClockMs() {
#if defined(SYS_clock_gettime64)
  struct tagKernelTime {
    int64_t m_Seconds;
    int64_t m_Nanoseconds;
  } now = {0, 0};
  syscall(SYS_clock_gettime64, CLOCK_MONOTONIC, &now);
  return now.m_Seconds * 1000 + now.m_Nanoseconds / 1000000;
#else
  timespec now = {};
  syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
#endif
}

// A limit as it is written in a test, stretched for sanitizers and emulators.
int ScaledMs(int limitMs);

// Sleeps; for the pause between two looks at a condition, not instead of one.
inline void PauseMs(int ms) {
  poll(nullptr, 0, ms);
}

// Asks again and again until the condition holds, and returns true; false when the (scaled) limit
// has passed.
template <class Condition>
bool WaitUntil(Condition condition, int limitMs) {
  const int64_t end = RealClockMs() + ScaledMs(limitMs);
  while (!condition()) {
    if (RealClockMs() >= end) {
      return condition();
    }
    PauseMs(1);
  }
  return true;
}

}  // namespace Kelvik

#endif  // KELVIK_REALCLOCK_H_
