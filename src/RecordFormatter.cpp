// A conversion is parsed, its argument taken and its text composed of parts: sign or "0x", zeros
// and a body, padded to the width. Combinations that the C standard leaves undefined (a '#' for %d,
// a '0' for %s) are refused like unknown letters: the C library has its own answer to them.

#include "RecordFormatter.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "CopyBytes.h"
#include "Digits.h"
#include "FixedPoint.h"

namespace Kelvik {
namespace {

constexpr char kLowerDigits[] = "0123456789abcdef";
constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr unsigned kFlagLeft = 1;
constexpr unsigned kFlagPlus = 2;
constexpr unsigned kFlagBlank = 4;
constexpr unsigned kFlagAlternate = 8;
constexpr unsigned kFlagZero = 16;

enum eArgumentSize { eSizeInt, eSizeChar, eSizeShort, eSizeLong, eSizeLongLong };

struct tagConversion {
  unsigned m_Flags = 0;
  int m_Width = 0;
  int m_Precision = -1;  // none
  eArgumentSize m_Size = eSizeInt;
  char m_Letter = '\0';

  bool Has(unsigned flags) const { return (m_Flags & flags) != 0; }
};

// Stands for all numbers that are too large for an int. What has it is refused.
constexpr int kTooLarge = INT_MAX;

int ParseDigits(const char*& from) {
  int count = 0;
  for (; *from >= '0' && *from <= '9'; ++from)
    count = count > (INT_MAX - 10) / 10 ? kTooLarge : count * 10 + (*from - '0');
  return count;
}

void ParseFlags(const char*& from, tagConversion& conversion) {
  for (;; ++from) {
    switch (*from) {
      case '-':
        conversion.m_Flags |= kFlagLeft;
        break;
      case '+':
        conversion.m_Flags |= kFlagPlus;
        break;
      case ' ':
        conversion.m_Flags |= kFlagBlank;
        break;
      case '#':
        conversion.m_Flags |= kFlagAlternate;
        break;
      case '0':
        conversion.m_Flags |= kFlagZero;
        break;
      default:
        return;
    }
  }
}

void ParseWidth(const char*& from, tagConversion& conversion, tagArgumentList& arguments) {
  if (*from != '*') {
    conversion.m_Width = ParseDigits(from);
    return;
  }
  ++from;
  const int width = va_arg(arguments.m_List, int);
  if (width < 0) conversion.m_Flags |= kFlagLeft;
  conversion.m_Width = width >= 0 ? width : (width == INT_MIN ? kTooLarge : -width);
}

void ParsePrecision(const char*& from, tagConversion& conversion, tagArgumentList& arguments) {
  if (*from != '.') return;
  ++from;
  if (*from != '*') {
    conversion.m_Precision = ParseDigits(from);
    return;
  }
  ++from;
  const int precision = va_arg(arguments.m_List, int);
  conversion.m_Precision = precision < 0 ? -1 : precision;
}

constexpr eArgumentSize SizeOf(size_t bytes) {
  return bytes == sizeof(int) ? eSizeInt : (bytes == sizeof(long) ? eSizeLong : eSizeLongLong);
}

void ParseSize(const char*& from, tagConversion& conversion) {
  const bool isDoubled = *from != '\0' && from[1] == *from;
  switch (*from) {
    case 'h':
      conversion.m_Size = isDoubled ? eSizeChar : eSizeShort;
      from += isDoubled ? 2 : 1;
      break;
    case 'l':
      conversion.m_Size = isDoubled ? eSizeLongLong : eSizeLong;
      from += isDoubled ? 2 : 1;
      break;
    case 'z':
      conversion.m_Size = SizeOf(sizeof(size_t));
      ++from;
      break;
    case 't':
      conversion.m_Size = SizeOf(sizeof(ptrdiff_t));
      ++from;
      break;
    case 'j':
      conversion.m_Size = SizeOf(sizeof(intmax_t));
      ++from;
      break;
    default:
      break;
  }
}

int64_t TakeSigned(eArgumentSize size, tagArgumentList& arguments) {
  switch (size) {
    case eSizeLongLong:
      return va_arg(arguments.m_List, long long);
    case eSizeLong:
      return va_arg(arguments.m_List, long);
    case eSizeChar:
      return static_cast<signed char>(va_arg(arguments.m_List, int));
    case eSizeShort:
      return static_cast<short>(va_arg(arguments.m_List, int));
    case eSizeInt:
      break;
  }
  return va_arg(arguments.m_List, int);
}

uint64_t TakeUnsigned(eArgumentSize size, tagArgumentList& arguments) {
  switch (size) {
    case eSizeLongLong:
      return va_arg(arguments.m_List, unsigned long long);
    case eSizeLong:
      return va_arg(arguments.m_List, unsigned long);
    case eSizeChar:
      return static_cast<unsigned char>(va_arg(arguments.m_List, unsigned));
    case eSizeShort:
      return static_cast<unsigned short>(va_arg(arguments.m_List, unsigned));
    case eSizeInt:
      break;
  }
  return va_arg(arguments.m_List, unsigned);
}

// A conversion's text in its parts, which are put into the field's width.
struct tagParts {
  char m_Prefix[2];
  unsigned m_PrefixLength;
  size_t m_Zeros;  // between prefix and body
  const char* m_Body;
  size_t m_BodyLength;

  void SetSign(char sign) {
    m_Prefix[0] = sign;
    m_PrefixLength = 1;
  }
};

// Zeros fill the width where the flag says so: with neither '-' nor, for whole numbers, a
// precision.
char* EmitParts(char* at, const char* end, const tagConversion& conversion, const tagParts& parts,
                bool fillsWithZeros) {
  size_t zeros = parts.m_Zeros;
  const size_t room = static_cast<size_t>(end - at);
  const size_t width = static_cast<size_t>(conversion.m_Width);
  if (width > room || zeros > room || parts.m_BodyLength > room) return nullptr;
  size_t length = parts.m_PrefixLength + zeros;
  if (length > room - parts.m_BodyLength) return nullptr;
  length += parts.m_BodyLength;
  size_t padding = width > length ? width - length : 0;
  if (padding != 0 && !conversion.Has(kFlagLeft)) {
    if (fillsWithZeros && conversion.Has(kFlagZero)) {
      zeros += padding;
    } else {
      memset(at, ' ', padding);
      at += padding;
    }
    padding = 0;
  }
  if (parts.m_PrefixLength != 0) {
    at[0] = parts.m_Prefix[0];
    at[parts.m_PrefixLength - 1] = parts.m_Prefix[parts.m_PrefixLength - 1];
    at += parts.m_PrefixLength;
  }
  if (zeros != 0) {
    memset(at, '0', zeros);
    at += zeros;
  }
  CopyBytes(at, parts.m_Body, parts.m_BodyLength);
  at += parts.m_BodyLength;
  if (padding != 0) memset(at, ' ', padding);
  return at + padding;
}

// The digits of a whole number stand in the parts' body; the precision is the least number of them,
// and none of them is left of 0 with precision 0.
char* EmitDigits(char* at, const char* end, const tagConversion& conversion, tagParts& parts,
                 bool isZero) {
  if (conversion.m_Precision == 0 && isZero) parts.m_BodyLength = 0;
  const size_t digits =
      static_cast<size_t>(conversion.m_Precision < 0 ? 1 : conversion.m_Precision);
  if (digits > parts.m_BodyLength) parts.m_Zeros = digits - parts.m_BodyLength;
  if (conversion.m_Letter == 'o' && conversion.Has(kFlagAlternate) && parts.m_Zeros == 0 &&
      (parts.m_BodyLength == 0 || *parts.m_Body != '0')) {
    parts.m_Zeros = 1;
  }
  return EmitParts(at, end, conversion, parts, conversion.m_Precision < 0);
}

void SetSign(tagParts& parts, const tagConversion& conversion, bool isNegative) {
  if (isNegative) {
    parts.SetSign('-');
  } else if (conversion.Has(kFlagPlus)) {
    parts.SetSign('+');
  } else if (conversion.Has(kFlagBlank)) {
    parts.SetSign(' ');
  }
}

char* EmitSigned(char* at, const char* end, const tagConversion& conversion, int64_t value) {
  if (conversion.Has(kFlagAlternate)) return nullptr;
  const uint64_t magnitude =
      value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
  char text[kDecimalDigits];
  const char* const textEnd = WriteDecimal(text, magnitude);
  tagParts parts = {{}, 0, 0, text, static_cast<size_t>(textEnd - text)};
  SetSign(parts, conversion, value < 0);
  return EmitDigits(at, end, conversion, parts, value == 0);
}

char* EmitUnsigned(char* at, const char* end, const tagConversion& conversion, uint64_t value) {
  if (conversion.Has(kFlagPlus | kFlagBlank)) return nullptr;
  const char letter = conversion.m_Letter;
  const char* const alphabet = letter == 'X' ? kUpperDigits : kLowerDigits;
  const unsigned bits = letter == 'o' ? 3 : 4;
  char text[kOctalDigits];
  const char* textEnd;
  if (letter == 'u') {
    if (conversion.Has(kFlagAlternate)) return nullptr;
    textEnd = WriteDecimal(text, value);
  } else if (value >> 32 == 0) {
    textEnd = WritePowerOfTwoBase(text, static_cast<uint32_t>(value), bits, alphabet);
  } else {
    textEnd = WritePowerOfTwoBase(text, value, bits, alphabet);
  }
  tagParts parts = {{}, 0, 0, text, static_cast<size_t>(textEnd - text)};
  if (bits == 4 && letter != 'u' && conversion.Has(kFlagAlternate) && value != 0) {
    parts.SetSign('0');
    parts.m_Prefix[1] = letter;
    parts.m_PrefixLength = 2;
  }
  return EmitDigits(at, end, conversion, parts, value == 0);
}

char* EmitString(char* at, const char* end, const tagConversion& conversion, const char* text) {
  if (text == nullptr || conversion.Has(~kFlagLeft) || conversion.m_Size != eSizeInt)
    return nullptr;
  const size_t length = conversion.m_Precision < 0
                            ? strlen(text)
                            : strnlen(text, static_cast<size_t>(conversion.m_Precision));
  return EmitParts(at, end, conversion, {{}, 0, 0, text, length}, false);
}

char* EmitChar(char* at, const char* end, const tagConversion& conversion, char value) {
  if (value == '\0' || conversion.Has(~kFlagLeft) || conversion.m_Size != eSizeInt ||
      conversion.m_Precision >= 0) {
    return nullptr;
  }
  return EmitParts(at, end, conversion, {{}, 0, 0, &value, 1}, false);
}

#ifdef KELVIK_KNOWN_LIBRARY
char* EmitPointer(char* at, const char* end, const tagConversion& conversion, const void* value) {
  if (value == nullptr || conversion.Has(~kFlagLeft) || conversion.m_Size != eSizeInt ||
      conversion.m_Precision >= 0) {
    return nullptr;
  }
  char text[kOctalDigits];
  const char* const textEnd =
      WritePowerOfTwoBase(text, reinterpret_cast<uintptr_t>(value), 4, kLowerDigits);
  const size_t length = static_cast<size_t>(textEnd - text);
  return EmitParts(at, end, conversion, {{'0', 'x'}, 2, 0, text, length}, false);
}

char* EmitFixedPoint(char* at, const char* end, const tagConversion& conversion, double value) {
  if (conversion.Has(kFlagAlternate) ||
      (conversion.m_Size != eSizeInt && conversion.m_Size != eSizeLong)) {
    return nullptr;
  }
  char text[kFixedPointBytes];
  bool isNegative;
  const int length = WriteFixedPoint(
      text, value, conversion.m_Precision < 0 ? 6 : conversion.m_Precision, isNegative);
  if (length == 0) return nullptr;
  tagParts parts = {{}, 0, 0, text, static_cast<size_t>(length)};
  SetSign(parts, conversion, isNegative);
  return EmitParts(at, end, conversion, parts, true);
}
#endif

char* EmitLetter(char* at, const char* end, const tagConversion& conversion,
                 tagArgumentList& arguments) {
  switch (conversion.m_Letter) {
    case 'd':
    case 'i':
      return EmitSigned(at, end, conversion, TakeSigned(conversion.m_Size, arguments));
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      return EmitUnsigned(at, end, conversion, TakeUnsigned(conversion.m_Size, arguments));
    case 's':
      return EmitString(at, end, conversion, va_arg(arguments.m_List, const char*));
    case 'c':
      return EmitChar(at, end, conversion, static_cast<char>(va_arg(arguments.m_List, int)));
#ifdef KELVIK_KNOWN_LIBRARY
    case 'p':
      return EmitPointer(at, end, conversion, va_arg(arguments.m_List, const void*));
    case 'f':
    case 'F':
      return EmitFixedPoint(at, end, conversion, va_arg(arguments.m_List, double));
#endif
    default:
      return nullptr;
  }
}

}  // namespace

tagFormatPlaces FormatConversion(char* at, const char* end, const char* from,
                                 tagArgumentList& arguments) {
  tagConversion conversion;
  ParseFlags(from, conversion);
  ParseWidth(from, conversion, arguments);
  ParsePrecision(from, conversion, arguments);
  ParseSize(from, conversion);
  conversion.m_Letter = *from;
  if (conversion.m_Width == kTooLarge || conversion.m_Precision == kTooLarge)
    return {nullptr, from};
  at = EmitLetter(at, end, conversion, arguments);
  return {at, from + 1};
}

}  // namespace Kelvik
