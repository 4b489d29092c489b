// Whole numbers as digits, written in place. No sign, no room check: the caller has made sure of
// the room. Numbers below 2^32 cost no 64-bit division.
#ifndef KELVIK_DIGITS_H_
#define KELVIK_DIGITS_H_

#include <cstddef>
#include <cstdint>

#include "CopyBytes.h"

namespace Kelvik {

constexpr int kDecimalDigits = 20;  // of the largest 64-bit number
constexpr int kOctalDigits = 22;

inline constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

inline void WriteDigitPair(char* at, uint32_t value) {
  StoreUnaligned(at, LoadUnaligned<uint16_t>(kDigitPairs + size_t{value} * 2));
}

// These return the byte behind the last digit. Zero is "0".

// A value below 100.
inline char* WriteUpToTwoDigits(char* at, uint32_t value) {
  if (value < 10) {
    *at = static_cast<char>('0' + value);
    return at + 1;
  }
  WriteDigitPair(at, value);
  return at + 2;
}

// A value below 10000.
inline char* WriteUpToFourDigits(char* at, uint32_t value) {
  if (value < 100) return WriteUpToTwoDigits(at, value);
  at = WriteUpToTwoDigits(at, value / 100);
  WriteDigitPair(at, value % 100);
  return at + 2;
}

// Any value, by a call.
char* WriteDecimal(char* at, uint64_t value);

// Most numbers of a log have eight digits at most: these need no call.
[[gnu::always_inline]] inline char* WriteDecimal(char* at, uint32_t value) {
  constexpr uint32_t kTenThousand = 10000;
  uint32_t head = value;
  if (value >= kTenThousand) {
    if (value >= kTenThousand * kTenThousand) return WriteDecimal(at, uint64_t{value});
    head = value / kTenThousand;
  }
  at = WriteUpToFourDigits(at, head);
  if (head == value) return at;
  const uint32_t tail = value % kTenThousand;
  WriteDigitPair(at, tail / 100);
  WriteDigitPair(at + 2, tail % 100);
  return at + 4;
}

// Base 16 (bits = 4) or 8 (bits = 3), with the digits of the given alphabet.
template <class tagNumber>
char* WritePowerOfTwoBase(char* at, tagNumber value, unsigned bits, const char* alphabet) {
  int count = 1;
  for (tagNumber rest = value >> bits; rest != 0; rest >>= bits)
    ++count;
  char* const end = at + count;
  for (char* to = end; to != at; value >>= bits)
    *--to = alphabet[value & ((1U << bits) - 1)];
  return end;
}

}  // namespace Kelvik

#endif  // KELVIK_DIGITS_H_
