// Asks for a cache line before it is needed. A hint: nothing is read, written or checked.
#ifndef KELVIK_PREFETCH_H_
#define KELVIK_PREFETCH_H_

#include <cstdint>

namespace Kelvik {

// For a line that is to be written, ahead bytes behind a place; it may lie outside of any object.
// The builtin asks for a line to read unless the compiler may use an instruction that the first
// x86-64 processors lacked; those that lack it pass it by.
inline void PrefetchForWrite(const char* place, uintptr_t ahead) {
  const uintptr_t line = reinterpret_cast<uintptr_t>(place) + ahead;
#ifdef __x86_64__
  __asm__ volatile("prefetchw (%0)" : : "r"(line));
#else
  __builtin_prefetch(reinterpret_cast<const void*>(line), 1);
#endif
}

}  // namespace Kelvik

#endif  // KELVIK_PREFETCH_H_
