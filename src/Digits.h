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

inline void WriteFourDigits(char* at, uint32_t value) {
  WriteDigitPair(at, value / 100);
  WriteDigitPair(at + 2, value % 100);
}

inline void WriteEightDigits(char* at, uint32_t value) {
  WriteFourDigits(at, value / 10000);
  WriteFourDigits(at + 4, value % 10000);
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

[[gnu::always_inline]] inline char* WriteDecimal(char* at, uint32_t value) {
  if (value < 10000) return WriteUpToFourDigits(at, value);
  if (value < 100000000) {
    at = WriteUpToFourDigits(at, value / 10000);
    WriteFourDigits(at, value % 10000);
    return at + 4;
  }
  at = WriteUpToTwoDigits(at, value / 100000000);
  WriteEightDigits(at, value % 100000000);
  return at + 8;
}

[[gnu::noinline]] inline char* WriteDecimal(char* at, uint64_t value) {
  constexpr uint32_t kHundredMillion = 100000000;
  if (value >> 32 == 0) return WriteDecimal(at, static_cast<uint32_t>(value));
  // Up to twelve digits, and the lowest eight.
  const uint64_t high = value / kHundredMillion;
  const auto low = static_cast<uint32_t>(value - high * kHundredMillion);
  if (high >> 32 == 0) {
    at = WriteDecimal(at, static_cast<uint32_t>(high));
  } else {
    const auto top = static_cast<uint32_t>(high / kHundredMillion);
    at = WriteUpToFourDigits(at, top);
    WriteEightDigits(at, static_cast<uint32_t>(high - uint64_t{top} * kHundredMillion));
    at += 8;
  }
  WriteEightDigits(at, low);
  return at + 8;
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
