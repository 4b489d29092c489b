#include "FakeClock.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace Kelvik {
namespace {

// Readers take the slot that gNewest names; a slot is written before it is named and again only
// kSlots settings later. Relaxed accesses on purpose: a lock here would order the threads that read
// the clock and hide their races from the thread sanitizer. Words of 32 bits, for targets without
// wider atomics.
constexpr uint32_t kSlots = 64;
struct tagSlot {
  std::atomic<uint32_t> m_High{0};
  std::atomic<uint32_t> m_Low{0};
  std::atomic<uint32_t> m_Microseconds{0};
};
tagSlot gSlots[kSlots];
std::atomic<uint32_t> gNewest{0};
std::atomic<bool> gIsFake{false};
std::atomic<bool> gIsLocaltimeFailing{false};
std::atomic<int> gLocaltimeCalls{0};
std::atomic<int> gClockCalls{0};

struct tagMoment {
  int64_t m_Seconds;
  int64_t m_Nanoseconds;
};

tagMoment KernelTime(clockid_t clock, int* result) {
  tagMoment now = {0, 0};
#if defined(SYS_clock_gettime64)
  *result = static_cast<int>(syscall(SYS_clock_gettime64, clock, &now));
#else
  timespec text = {};
  *result = static_cast<int>(syscall(SYS_clock_gettime, clock, &text));
  now = {text.tv_sec, text.tv_nsec};
#endif
  return now;
}

tagMoment FakeTime() {
  const tagSlot& slot = gSlots[gNewest.load(std::memory_order_relaxed) % kSlots];
  const uint64_t high = slot.m_High.load(std::memory_order_relaxed);
  const uint64_t seconds = (high << 32) | slot.m_Low.load(std::memory_order_relaxed);
  return {static_cast<int64_t>(seconds),
          static_cast<int64_t>(slot.m_Microseconds.load(std::memory_order_relaxed)) * 1000};
}

bool IsWallClock(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

// Fake or real, whatever is asked for; the result is clock_gettime's.
tagMoment Now(clockid_t clock, int* result) {
  *result = 0;
  if (!IsWallClock(clock)) {
    return KernelTime(clock, result);
  }
  gClockCalls.fetch_add(1, std::memory_order_relaxed);
  return gIsFake.load(std::memory_order_relaxed) ? FakeTime() : KernelTime(clock, result);
}

// True, with errno, when a call of localtime shall fail.
bool FailsLocaltime() {
  gLocaltimeCalls.fetch_add(1, std::memory_order_relaxed);
  if (!gIsLocaltimeFailing.load(std::memory_order_relaxed)) {
    return false;
  }
  errno = EOVERFLOW;
  return true;
}

// The C library's function behind the one that stands here, by the name of its 64-bit form.
#if defined(_TIME_BITS) && _TIME_BITS == 64 && __SIZEOF_POINTER__ == 4
constexpr const char* kLocaltime = "__localtime64";
constexpr const char* kLocaltimeR = "__localtime64_r";
#else
constexpr const char* kLocaltime = "localtime";
constexpr const char* kLocaltimeR = "localtime_r";
#endif

}  // namespace

CFakeClock::CFakeClock(int64_t seconds, int microseconds) {
  Set(seconds, microseconds);
  gIsFake.store(true, std::memory_order_relaxed);
}

CFakeClock::~CFakeClock() {
  gIsFake.store(false, std::memory_order_relaxed);
  gIsLocaltimeFailing.store(false, std::memory_order_relaxed);
}

void CFakeClock::Set(int64_t seconds, int microseconds) {
  const uint32_t next = gNewest.load(std::memory_order_relaxed) + 1;
  tagSlot& slot = gSlots[next % kSlots];
  const uint64_t bits = static_cast<uint64_t>(seconds);
  slot.m_High.store(static_cast<uint32_t>(bits >> 32), std::memory_order_relaxed);
  slot.m_Low.store(static_cast<uint32_t>(bits), std::memory_order_relaxed);
  slot.m_Microseconds.store(static_cast<uint32_t>(microseconds), std::memory_order_relaxed);
  gNewest.store(next, std::memory_order_release);
}

void CFakeClock::AdvanceMs(int64_t ms) {
  const tagMoment now = FakeTime();
  const int64_t micros = now.m_Seconds * 1000000 + now.m_Nanoseconds / 1000 + ms * 1000;
  const int64_t seconds = micros / 1000000 - (micros % 1000000 < 0 ? 1 : 0);
  Set(seconds, static_cast<int>(micros - seconds * 1000000));
}

void CFakeClock::FailLocaltime(bool isFailing) {
  gIsLocaltimeFailing.store(isFailing, std::memory_order_relaxed);
}

int CFakeClock::LocaltimeCalls() {
  return gLocaltimeCalls.load(std::memory_order_relaxed);
}

int CFakeClock::ClockCalls() {
  return gClockCalls.load(std::memory_order_relaxed);
}

}  // namespace Kelvik

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  int result = 0;
  const Kelvik::tagMoment moment = Kelvik::Now(clock, &result);
  if (result == 0) {
    now->tv_sec = static_cast<time_t>(moment.m_Seconds);
    now->tv_nsec = static_cast<decltype(now->tv_nsec)>(moment.m_Nanoseconds);
  }
  return result;
}

int gettimeofday(timeval* now, void* /*zone*/) noexcept {
  int result = 0;
  const Kelvik::tagMoment moment = Kelvik::Now(CLOCK_REALTIME, &result);
  now->tv_sec = static_cast<time_t>(moment.m_Seconds);
  now->tv_usec = static_cast<decltype(now->tv_usec)>(moment.m_Nanoseconds / 1000);
  return result;
}

time_t time(time_t* now) noexcept {
  int result = 0;
  const time_t seconds = static_cast<time_t>(Kelvik::Now(CLOCK_REALTIME, &result).m_Seconds);
  if (now != nullptr) {
    *now = seconds;
  }
  return seconds;
}

tm* localtime_r(const time_t* seconds, tm* broken) noexcept {
  using Function = tm* (*)(const time_t*, tm*);
  static const Function real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, Kelvik::kLocaltimeR));
  return Kelvik::FailsLocaltime() ? nullptr : real(seconds, broken);
}

tm* localtime(const time_t* seconds) noexcept {
  using Function = tm* (*)(const time_t*);
  static const Function real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, Kelvik::kLocaltime));
  return Kelvik::FailsLocaltime() ? nullptr : real(seconds);
}

#if defined(_TIME_BITS) && _TIME_BITS == 64 && __SIZEOF_POINTER__ == 4
// The form with 32-bit time, which the C++ library itself calls on such targets.
struct tagTime32 {
  int32_t m_Seconds;
  int32_t m_Nanoseconds;
};
int ClockGettime32(clockid_t clock, tagTime32* now) noexcept __asm__("clock_gettime");
int ClockGettime32(clockid_t clock, tagTime32* now) noexcept {
  int result = 0;
  const Kelvik::tagMoment moment = Kelvik::Now(clock, &result);
  if (result == 0) {
    now->m_Seconds = static_cast<int32_t>(moment.m_Seconds);
    now->m_Nanoseconds = static_cast<int32_t>(moment.m_Nanoseconds);
  }
  return result;
}
#endif

}  // extern "C"
