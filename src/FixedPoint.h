// Floating-point numbers as %f writes them, where that can be done exactly in a machine's
// whole numbers.
//
// KELVIK_KNOWN_LIBRARY is defined where the C library is one whose %f is exact and whose %p is
// "0x..."; elsewhere neither is done by the library's own formatter.
#ifndef KELVIK_FIXEDPOINT_H_
#define KELVIK_FIXEDPOINT_H_

#include <features.h>

#if defined(__GLIBC__) && !defined(__UCLIBC__)
#define KELVIK_KNOWN_LIBRARY
#endif

namespace Kelvik {

constexpr int kFixedPointPrecision = 20;  // the largest that is written
constexpr int kFixedPointBytes = 20 + 1 + kFixedPointPrecision;

#ifdef KELVIK_KNOWN_LIBRARY
// Writes the magnitude with so many (>= 0) digits behind the locale's decimal point into a field of
// kFixedPointBytes, without a NUL, rounded as the C library does. Returns the length, or 0 when it
// cannot: infinities, NaN, 2^64 and beyond, bits below 2^-120 (2^-60 on 32-bit machines), a higher
// precision, a rounding mode other than to the nearest, a decimal point of several bytes. Leaves
// errno alone.
int WriteFixedPoint(char* field, double value, int precision, bool& isNegative);
#endif

}  // namespace Kelvik

#endif  // KELVIK_FIXEDPOINT_H_
