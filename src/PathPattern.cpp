#include "PathPattern.h"

#include <climits>
#include <cstring>

namespace Kelvik {
namespace {

constexpr int kValueCount = 7;
constexpr size_t kLongestDigits = 6;    // of a 16-bit value in octal
constexpr size_t kMostCount = INT_MAX;  // widths and precisions past it are taken as it

// One conversion as it is typed.
struct tagConversion {
  bool m_IsLeft;         // '-'
  bool m_HasPlus;        // '+'
  bool m_HasBlank;       // ' '
  bool m_IsAlternative;  // '#'
  bool m_HasZeros;       // '0'
  size_t m_Width;
  bool m_HasPrecision;
  size_t m_Precision;
  char m_Kind;  // one of "diuxXoc"
};

// Text that grows in a field and is cut at the field's last byte but one.
class CPatternText {
 public:
  CPatternText(char* text, size_t room) : m_Text(text), m_Length(0), m_Most(room - 1) {}

  void Put(char byte) {
    if (m_Length < m_Most) m_Text[m_Length++] = byte;
  }

  void Put(const char* bytes, size_t count) {
    for (size_t index = 0; index < count; ++index)
      Put(bytes[index]);
  }

  void Fill(char byte, size_t count) {
    const size_t left = m_Most - m_Length;
    if (count > left) count = left;
    memset(m_Text + m_Length, byte, count);
    m_Length += count;
  }

  size_t Finish() {
    m_Text[m_Length] = '\0';
    return m_Length;
  }

 private:
  char* m_Text;
  size_t m_Length;
  size_t m_Most;
};

const char* ReadFlags(const char* at, const char* end, tagConversion& conversion) {
  for (; at < end; ++at) {
    switch (*at) {
      case '-':
        conversion.m_IsLeft = true;
        break;
      case '+':
        conversion.m_HasPlus = true;
        break;
      case ' ':
        conversion.m_HasBlank = true;
        break;
      case '#':
        conversion.m_IsAlternative = true;
        break;
      case '0':
        conversion.m_HasZeros = true;
        break;
      default:
        return at;
    }
  }
  return at;
}

const char* ReadCount(const char* at, const char* end, size_t& count) {
  count = 0;
  for (; at < end && *at >= '0' && *at <= '9'; ++at) {
    const size_t digit = static_cast<size_t>(*at - '0');
    count = count > (kMostCount - digit) / 10 ? kMostCount : count * 10 + digit;
  }
  return at;
}

constexpr char kKinds[] = {'d', 'i', 'u', 'x', 'X', 'o', 'c'};

// Reads the conversion whose '%' stands before at. Returns its end, or null when it is none that is
// taken.
const char* ReadConversion(const char* at, const char* end, tagConversion& conversion) {
  conversion = tagConversion{};
  at = ReadFlags(at, end, conversion);
  at = ReadCount(at, end, conversion.m_Width);
  if (at < end && *at == '.') {
    conversion.m_HasPrecision = true;
    at = ReadCount(at + 1, end, conversion.m_Precision);
  }
  if (at == end || memchr(kKinds, *at, sizeof(kKinds)) == nullptr) return nullptr;
  conversion.m_Kind = *at;
  return at + 1;
}

size_t Missing(size_t wanted, size_t present) {
  return wanted > present ? wanted - present : 0;
}

// Returns false when the byte is a NUL, which ends the text.
bool PutCharacter(CPatternText& text, const tagConversion& conversion, unsigned value) {
  const char byte = static_cast<char>(static_cast<unsigned char>(value));
  const size_t blanks = Missing(conversion.m_Width, 1);
  if (!conversion.m_IsLeft) text.Fill(' ', blanks);
  if (byte == '\0') return false;
  text.Put(byte);
  if (conversion.m_IsLeft) text.Fill(' ', blanks);
  return true;
}

unsigned BaseOf(char kind) {
  if (kind == 'o') return 8;
  return kind == 'x' || kind == 'X' ? 16 : 10;
}

void PutInteger(CPatternText& text, const tagConversion& conversion, unsigned value) {
  const char kind = conversion.m_Kind;
  const unsigned base = BaseOf(kind);
  const char* const alphabet = kind == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
  char digits[kLongestDigits];
  size_t first = kLongestDigits;
  for (unsigned rest = value; rest != 0; rest /= base)
    digits[--first] = alphabet[rest % base];
  const size_t count = kLongestDigits - first;

  char sign[2];
  size_t signLength = 0;
  if ((kind == 'd' || kind == 'i') && (conversion.m_HasPlus || conversion.m_HasBlank)) {
    sign[signLength++] = conversion.m_HasPlus ? '+' : ' ';
  } else if (base == 16 && conversion.m_IsAlternative && value != 0) {
    sign[signLength++] = '0';
    sign[signLength++] = kind;
  }

  size_t zeros = Missing(conversion.m_HasPrecision ? conversion.m_Precision : 1, count);
  if (base == 8 && conversion.m_IsAlternative && zeros == 0) zeros = 1;
  size_t blanks = Missing(conversion.m_Width, signLength + zeros + count);
  if (conversion.m_HasZeros && !conversion.m_IsLeft && !conversion.m_HasPrecision) {
    zeros += blanks;
    blanks = 0;
  }

  if (!conversion.m_IsLeft) text.Fill(' ', blanks);
  text.Put(sign, signLength);
  text.Fill('0', zeros);
  text.Put(digits + first, count);
  if (conversion.m_IsLeft) text.Fill(' ', blanks);
}

}  // namespace

int ExpandPathPattern(char* text, size_t room, const char* pattern, const tagAbsoluteTime& time) {
  const unsigned values[kValueCount] = {time.m_Year,       time.m_Month,  time.m_Day,
                                        time.m_Hour,       time.m_Minute, time.m_Second,
                                        time.m_Millisecond};
  CPatternText out(text, room);
  const char* const end = pattern + strnlen(pattern, kLogPathBytes);
  int taken = 0;
  for (const char* at = pattern; at < end;) {
    const char byte = *at++;
    if (byte != '%') {
      out.Put(byte);
      continue;
    }
    if (at < end && *at == '%') {
      out.Put('%');
      ++at;
      continue;
    }
    tagConversion conversion;
    const char* const after = taken < kValueCount ? ReadConversion(at, end, conversion) : nullptr;
    if (after == nullptr) {
      out.Put('%');  // and what follows it is read as text
      continue;
    }
    at = after;
    const unsigned value = values[taken++];
    if (conversion.m_Kind != 'c') {
      PutInteger(out, conversion, value);
    } else if (!PutCharacter(out, conversion, value)) {
      break;
    }
  }
  return static_cast<int>(out.Finish());
}

}  // namespace Kelvik
