// What log lines are made of is formatted here, in one pass; a message that holds anything else, or
// does not fit its field, is given to vsnprintf as a whole, from its start. So every odd corner
// stays the C library's own.

#include "RecordFormat.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "CopyBytes.h"
#include "Digits.h"
#include "RecordFormatter.h"

namespace Kelvik {
namespace {

// What a failing vsnprintf leaves in its field, and whether it terminates it, is the C library's
// affair. Formatting once more into a zeroed field shows exactly what was stored before the
// failure.
__attribute__((format(printf, 3, 0))) int FormatUpToFailure(char* field, int room,
                                                            const char* format, va_list arguments) {
  memset(field, 0, static_cast<size_t>(room));
  static_cast<void>(vsnprintf(field, static_cast<size_t>(room), format, arguments));
  field[room - 1] = '\0';
  return static_cast<int>(strlen(field));
}

[[gnu::noinline]] __attribute__((format(printf, 3, 0))) int FormatByLibrary(char* field, int room,
                                                                            const char* format,
                                                                            va_list arguments) {
  if (format == nullptr) {  // a direct call: nothing to say
    *field = '\0';
    return 0;
  }
  const int callersErrno = errno;
  va_list again;
  va_copy(again, arguments);
  int length = vsnprintf(field, static_cast<size_t>(room), format, arguments);
  if (length < 0) {
    errno = callersErrno;
    length = FormatUpToFailure(field, room, format, again);
  } else {
    if (length > room - 1) length = room - 1;
    // "%c" of 0, and conversions that the application registered, store NUL bytes.
    const void* const inner = memchr(field, '\0', static_cast<size_t>(length));
    if (inner != nullptr) length = static_cast<int>(static_cast<const char*>(inner) - field);
  }
  va_end(again);
  return length;
}

constexpr size_t kWordBytes = sizeof(size_t);
// What a conversion may write without asking for room: a sign and the digits of a 64-bit number.
constexpr ptrdiff_t kNumberBytes = 1 + kDecimalDigits;

// Words with the first byte in memory in the lowest bits.
inline size_t SwapOnBigEndian(size_t word) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return word;
#else
  return sizeof(word) == 8 ? __builtin_bswap64(word)
                           : __builtin_bswap32(static_cast<uint32_t>(word));
#endif
}

inline size_t LoadWord(const char* from) {
  return SwapOnBigEndian(LoadUnaligned<size_t>(from));
}

inline void StoreWord(char* to, size_t word) {
  StoreUnaligned(to, SwapOnBigEndian(word));
}

// A word whose lowest set bit lies in the first byte that is '%'; 0 without one.
inline size_t FindPercent(size_t word) {
  constexpr size_t kOnes = static_cast<size_t>(-1) / 255;
  const size_t zeroAtPercent = word ^ kOnes * '%';
  return (zeroAtPercent - kOnes) & ~zeroAtPercent & kOnes << 7;
}

// Moves a format shorter than a word to the end of a field in which a word can be read. Returns
// where it stands.
[[gnu::noinline]] const char* MoveShortFormat(char (&field)[kWordBytes + 1], const char* format,
                                              size_t length) {
  char* const to = field + kWordBytes - length;
  memcpy(to, format, length + 1);
  return to;
}

inline char* EmitPlainString(char* at, const char* end, const char* text) {
  if (text == nullptr) return nullptr;
  const size_t length = strlen(text);
  if (length > static_cast<size_t>(end - at)) return nullptr;
  CopyBytes(at, text, length);
  return at + length;
}

// A conversion that does not start with its letter: %ld %lu %lld %llu %zu at once, others in
// general.
[[gnu::noinline]] tagFormatPlaces EmitSizedConversion(char* at, const char* end, const char* from,
                                                      tagArgumentList& arguments) {
  const char* letter = from + 1;
  uint64_t value;
  // size_t and unsigned long are one type on some machines, two on others.
  if (from[0] == 'z' && *letter == 'u') {  // NOLINT(bugprone-branch-clone)
    value = va_arg(arguments.m_List, size_t);
  } else if (from[0] == 'l' && *letter == 'd') {
    value = static_cast<uint64_t>(int64_t{va_arg(arguments.m_List, long)});
  } else if (from[0] == 'l' && *letter == 'u') {
    value = va_arg(arguments.m_List, unsigned long);
  } else if (from[0] == 'l' && *letter == 'l' && (from[2] == 'd' || from[2] == 'u')) {
    ++letter;
    value = va_arg(arguments.m_List, unsigned long long);
  } else {
    return FormatConversion(at, end, from, arguments);
  }
  if (*letter == 'd' && static_cast<int64_t>(value) < 0) {
    *at++ = '-';
    value = 0 - value;
  }
  return {WriteDecimal(at, value), letter + 1};
}

// Does the conversion behind the '%'; the letters that mostly stand right there are done at once.
inline tagFormatPlaces EmitConversion(char* at, const char* end, const char* from,
                                      tagArgumentList& arguments) {
  switch (*from) {
    case 'd':
    case 'u': {
      unsigned magnitude = va_arg(arguments.m_List, unsigned);
      if (*from == 'd' && static_cast<int>(magnitude) < 0) {
        *at++ = '-';
        magnitude = 0 - magnitude;
      }
      return {WriteDecimal(at, magnitude), from + 1};
    }
    case 's':
      return {EmitPlainString(at, end, va_arg(arguments.m_List, const char*)), from + 1};
    case '%':
      *at = '%';
      return {at + 1, from + 1};
    default:
      return EmitSizedConversion(at, end, from, arguments);
  }
}

// Returns the end of the text, or nullptr for a message that is the C library's.
inline char* EmitMessage(char* at, int room, const char* format, tagArgumentList& arguments) {
  constexpr ptrdiff_t kStepBytes = static_cast<ptrdiff_t>(kWordBytes) + kNumberBytes;
  if (room <= kStepBytes || format == nullptr) return nullptr;
  const char* const end = at + room - 1;
  const char* const lastPlace = end - kStepBytes;
  char shortFormat[kWordBytes + 1];
  const char* from = format;
  const size_t length = strlen(format);
  const char* formatEnd = format + length;
  if (length < kWordBytes) {
    from = MoveShortFormat(shortFormat, format, length);
    formatEnd = shortFormat + kWordBytes;
  }
  const char* const lastWord = formatEnd - kWordBytes;
  while (at <= lastPlace) {
    // The next word of the format, or what is left of it.
    ptrdiff_t count = kWordBytes;
    size_t word;
    if (from <= lastWord) {
      word = LoadWord(from);
    } else {
      count = formatEnd - from;
      if (count == 0) return at;
      word = LoadWord(lastWord) >> 8 * (static_cast<ptrdiff_t>(kWordBytes) - count);
    }
    StoreWord(at, word);
    const size_t percent = FindPercent(word);
    if (percent == 0) {
      at += count;
      from += count;
      continue;
    }
    const unsigned plain = static_cast<unsigned>(__builtin_ctzl(percent)) / 8;
    const tagFormatPlaces places = EmitConversion(at + plain, end, from + plain + 1, arguments);
    if (places.m_At == nullptr) return nullptr;
    at = places.m_At;
    from = places.m_From;
  }
  return nullptr;
}

}  // namespace

int FormatMessage(char* field, int room, const char* format, va_list arguments) {
  tagArgumentList copy;
  va_copy(copy.m_List, arguments);
  char* const textEnd = EmitMessage(field, room, format, copy);
  va_end(copy.m_List);
  if (textEnd == nullptr) return FormatByLibrary(field, room, format, arguments);
  *textEnd = '\0';
  return static_cast<int>(textEnd - field);
}

}  // namespace Kelvik
