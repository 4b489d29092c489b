#include "FixedPoint.h"

#ifdef KELVIK_KNOWN_LIBRARY

#include <langinfo.h>

#include <cstdint>
#include <cstring>
#include <limits>

#include "Digits.h"

namespace Kelvik {
namespace {

static_assert(std::numeric_limits<double>::is_iec559 && std::numeric_limits<double>::digits == 53,
              "the bits of a double are taken apart");

constexpr int kMantissaBits = 52;
constexpr int kExponentBias = 1075;  // of the mantissa's lowest bit
constexpr int kExponentMax = 2047;   // infinities and NaN
constexpr int kNarrowBits = 60;      // ten times such a fraction stays below 2^64

#ifdef __SIZEOF_INT128__
__extension__ using WideFraction = unsigned __int128;
constexpr int kWideBits = 120;
#else
using WideFraction = uint64_t;
constexpr int kWideBits = kNarrowBits;
#endif

// A magnitude: m_Whole + m_Fraction / 2^m_Bits.
struct tagFixedPoint {
  uint64_t m_Whole;
  uint64_t m_Fraction;
  int m_Bits;
};

bool Split(uint64_t bits, tagFixedPoint& fixed) {
  uint64_t mantissa = bits & ((uint64_t{1} << kMantissaBits) - 1);
  int exponent = static_cast<int>(bits >> kMantissaBits & kExponentMax);
  if (exponent == kExponentMax) return false;
  if (exponent == 0) {
    // Zero; smaller than the normal numbers, what is not zero is out of reach.
    fixed = {0, 0, 0};
    return mantissa == 0;
  }
  mantissa |= uint64_t{1} << kMantissaBits;
  exponent -= kExponentBias;
  if (exponent >= 0) {
    fixed = {mantissa << exponent % 64, 0, 0};
    return exponent < 64 - kMantissaBits;
  }
  if (exponent < -kWideBits) {
    const int zeros = __builtin_ctzll(mantissa);
    mantissa >>= zeros;
    exponent += zeros;
    if (exponent < -kWideBits) return false;
  }
  if (exponent < -kMantissaBits) {
    fixed = {0, mantissa, -exponent};
  } else {
    fixed = {mantissa >> -exponent, mantissa & ((uint64_t{1} << -exponent) - 1), -exponent};
  }
  return true;
}

// The C library rounds as the program has set it (fesetround).
bool RoundsToNearest() {
  const volatile double one = 1.0;
  const volatile double tiny = 0x1p-200;
  const volatile double above = one + tiny;
  const volatile double below = one - tiny;
  return above == one && below == one;
}

enum eRest { eRestNone, eRestBelowHalf, eRestHalf, eRestAboveHalf };

// Writes the fraction's first digits and tells what is left behind them.
template <class tagFraction>
eRest WriteFraction(char* digits, int count, const tagFixedPoint& fixed) {
  const tagFraction one = tagFraction{1} << fixed.m_Bits;
  tagFraction rest = fixed.m_Fraction;
  for (int index = 0; index < count; ++index) {
    rest *= 10;
    digits[index] = static_cast<char>('0' + static_cast<int>(rest >> fixed.m_Bits));
    rest &= one - 1;
  }
  if (rest == 0) return eRestNone;
  const tagFraction half = one >> 1;
  return rest < half ? eRestBelowHalf : (rest == half ? eRestHalf : eRestAboveHalf);
}

// Adds one to the last digit; returns true when that carries out of the first.
bool RoundUp(char* digits, int count) {
  while (count > 0) {
    if (digits[--count] != '9') {
      ++digits[count];
      return false;
    }
    digits[count] = '0';
  }
  return true;
}

}  // namespace

int WriteFixedPoint(char* field, double value, int precision, bool& isNegative) {
  uint64_t bits;
  memcpy(&bits, &value, sizeof(bits));
  isNegative = bits >> 63 != 0;
  tagFixedPoint fixed;
  if (precision > kFixedPointPrecision || !Split(bits, fixed)) return 0;

  char fraction[kFixedPointPrecision];
  const eRest rest = fixed.m_Bits <= kNarrowBits
                         ? WriteFraction<uint64_t>(fraction, precision, fixed)
                         : WriteFraction<WideFraction>(fraction, precision, fixed);
  if (rest != eRestNone) {
    if (!RoundsToNearest()) return 0;
    const bool isOdd = precision > 0 ? fraction[precision - 1] % 2 != 0 : fixed.m_Whole % 2 != 0;
    const bool isUp = rest == eRestAboveHalf || (rest == eRestHalf && isOdd);
    if (isUp && RoundUp(fraction, precision)) ++fixed.m_Whole;
  }

  char* at = WriteDecimal(field, fixed.m_Whole);
  if (precision > 0) {
    const char* const point = nl_langinfo(RADIXCHAR);
    if (point[0] == '\0' || point[1] != '\0') return 0;
    *at++ = *point;
    memcpy(at, fraction, static_cast<size_t>(precision));
    at += precision;
  }
  return static_cast<int>(at - field);
}

}  // namespace Kelvik

#endif  // KELVIK_KNOWN_LIBRARY
