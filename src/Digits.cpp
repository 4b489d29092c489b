#include "Digits.h"

namespace Kelvik {
namespace {

constexpr uint32_t kHundredMillion = 100000000;

// How many decimal digits a value has; 1 for zero.
unsigned CountDigits(uint32_t value) {
  constexpr uint32_t kPowers[] = {0,      10,      100,      1000,      10000,
                                  100000, 1000000, 10000000, 100000000, 1000000000};
  constexpr unsigned kLog10Of2 = 1233;  // in 4096ths
  const unsigned bits = 32U - static_cast<unsigned>(__builtin_clz(value | 1));
  const unsigned atLeast = bits * kLog10Of2 >> 12;
  return value < kPowers[atLeast] ? atLeast : atLeast + 1;
}

}  // namespace

// Above 2^32 the lowest eight digits are set behind the others.
[[gnu::noinline]] char* WriteDecimal(char* at, uint64_t value) {
  auto rest = static_cast<uint32_t>(value);
  if (value < kHundredMillion) return WriteDecimal(at, rest);
  char* begin = at;
  char* end;
  if (value >> 32 == 0) {
    end = at + CountDigits(rest);
  } else {
    const uint64_t high = value / kHundredMillion;
    rest = static_cast<uint32_t>(value - high * kHundredMillion);
    begin = WriteDecimal(at, high);
    end = begin + 8;
  }
  char* to = end;
  for (; to - begin >= 2; rest /= 100) {
    to -= 2;
    WriteDigitPair(to, rest % 100);
  }
  if (to != begin) *begin = static_cast<char>('0' + rest);
  return end;
}

}  // namespace Kelvik
