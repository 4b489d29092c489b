// The decision of a place in a program that logs only some of its records, and the count of those
// that it passed over. Values in, values out: no clock of its own, no context. 32-bit atomics only.
#ifndef KELVIK_LOGPLACE_H_
#define KELVIK_LOGPLACE_H_

#include <cstdint>

#include "KelvikExtra.h"

namespace Kelvik {

// Whether this call is the first one or the n-th after the last that was taken. Then passedOver is
// how many were not taken in between: n - 1, or another number where n changed meanwhile.
bool TakeNth(tagKelvikPlace& place, uint32_t n, uint32_t& passedOver);

// Whether this call is the first one or comes intervalMs or more after the last that was taken.
// Then passedOver is how many were not taken and have not been told yet. clock gives milliseconds
// that wrap; it is asked after the place was read, so that it is never behind what stands there.
bool TakeDue(tagKelvikPlace& place, uint32_t (*clock)(), uint32_t intervalMs, uint32_t& passedOver);

// "(<number> passed over) ", or "" for 0. note has room for KELVIK_PASSED_OVER_BYTES.
void WritePassedOver(char* note, uint32_t passedOver);

}  // namespace Kelvik

#endif  // KELVIK_LOGPLACE_H_
