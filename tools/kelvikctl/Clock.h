// Milliseconds of a clock that never goes back, and deadlines on it.

#ifndef KELVIK_KELVIKCTL_CLOCK_H_
#define KELVIK_KELVIKCTL_CLOCK_H_

#include <time.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace KelvikCtl {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

inline int64_t NowMs() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// For poll(): what is left until the deadline, -1 for kNever.
inline int LeftMs(int64_t deadline) {
  if (deadline == kNever) return -1;
  return static_cast<int>(
      std::clamp<int64_t>(deadline - NowMs(), 0, std::numeric_limits<int>::max()));
}

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_CLOCK_H_
