#include "LogPlace.h"

#include <cstring>

#include "Digits.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

bool Exchange(uint32_t& field, uint32_t& expected, uint32_t value) {
  return __atomic_compare_exchange_n(&field, &expected, value, false, __ATOMIC_RELAXED,
                                     __ATOMIC_RELAXED);
}

}  // namespace

// m_Count: 0 before the first call, then 1 more than what was passed over since the last taken one.
// Not a running number: that would lose its step where it wraps.
bool TakeNth(tagKelvikPlace& place, uint32_t n, uint32_t& passedOver) {
  uint32_t count = RelaxedLoad(place.m_Count);
  while (true) {
    const bool isTaken = count == 0 || count >= n;
    if (Exchange(place.m_Count, count, isTaken ? 1 : count + 1)) {
      if (isTaken) passedOver = count == 0 ? 0 : count - 1;
      return isTaken;
    }
  }
}

// m_Time: 0 before the first call. m_Count: what was passed over and not told.
bool TakeDue(tagKelvikPlace& place, uint32_t (*clock)(), uint32_t intervalMs,
             uint32_t& passedOver) {
  uint32_t last = AcquireLoad(place.m_Time);
  const uint32_t read = clock();
  const uint32_t now = read == 0 ? 1 : read;
  // Who comes second of two that find it due is passed over.
  if ((last != 0 && now - last < intervalMs) ||
      !__atomic_compare_exchange_n(&place.m_Time, &last, now, false, __ATOMIC_ACQ_REL,
                                   __ATOMIC_RELAXED)) {
    RelaxedAdd(place.m_Count, 1);
    return false;
  }
  passedOver = __atomic_exchange_n(&place.m_Count, 0, __ATOMIC_RELAXED);
  return true;
}

void WritePassedOver(char* note, uint32_t passedOver) {
  static constexpr char kRest[] = " passed over) ";
  if (passedOver == 0) {
    *note = '\0';
    return;
  }
  *note = '(';
  // The 64-bit form is the one that is not compiled into each caller.
  std::memcpy(WriteDecimal(note + 1, uint64_t{passedOver}), kRest, sizeof(kRest));
}

}  // namespace Kelvik
