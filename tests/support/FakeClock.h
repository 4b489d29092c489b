// A wall clock that stands where a test puts it. An executable that links kelvik_fake_clock has
// gettimeofday, time, clock_gettime and localtime[_r] replaced for all its code. Without a
// CFakeClock they give the real time; CLOCK_MONOTONIC and its kin are always real.

#ifndef KELVIK_FAKECLOCK_H_
#define KELVIK_FAKECLOCK_H_

#include <cstdint>

namespace Kelvik {

// While one lives the wall clock is frozen at its time. One at a time in a process; its methods may
// be called while other threads read the clock.
class CFakeClock {
 public:
  explicit CFakeClock(int64_t seconds, int microseconds = 0);
  CFakeClock(const CFakeClock&) = delete;
  CFakeClock& operator=(const CFakeClock&) = delete;
  ~CFakeClock();

  // Seconds since 1970 UTC, microseconds 0 to 999999.
  void Set(int64_t seconds, int microseconds = 0);
  // Forward, or back when negative.
  void AdvanceMs(int64_t ms);
  // From now on localtime and localtime_r return null, with errno EOVERFLOW.
  void FailLocaltime(bool isFailing);

  // Calls of localtime and localtime_r of the whole process since its start; wraps at 2^31.
  static int LocaltimeCalls();
  // Calls of gettimeofday, time and clock_gettime for a wall clock, likewise.
  static int ClockCalls();
};

}  // namespace Kelvik

#endif  // KELVIK_FAKECLOCK_H_
