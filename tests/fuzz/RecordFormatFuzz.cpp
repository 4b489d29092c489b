// A message's formatting beside vsnprintf: the same bytes, length and errno for every format that
// can be built for a list of arguments.
//
// Input: the list (1 byte), room (2), errno (1), four argument values (8 each), the text argument
// up to a NUL, then for each argument its conversion, flag by flag, with the text before it.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <string>
#include <vector>

#include "FuzzBytes.h"
#include "RecordFormat.h"

namespace Kelvik {
namespace {

constexpr int kRecordBytes = 8192;

// Text without a conversion of its own, of a few bytes.
void AppendText(CFuzzBytes& bytes, std::string& format) {
  for (unsigned left = bytes.Pick(6); left > 0; --left) {
    const char byte = static_cast<char>(bytes.Byte());
    if (byte == '%') format += "%%";
    if (byte != '%' && byte != '\0') format += byte;
  }
  // "%m" takes no argument, so it may stand anywhere.
  if (bytes.Pick(16) == 1) format += "%m";
}

void AppendCount(CFuzzBytes& bytes, std::string& format) {
  switch (bytes.Pick(4)) {
    case 0:
      format += std::to_string(bytes.Pick(10));
      break;
    case 1:
      format += std::to_string(bytes.Byte());
      break;
    case 2:
      format += std::to_string(bytes.Number(2) % 9000);
      break;
    default:
      break;
  }
}

// One conversion for an argument that the modifiers and letters fit. With stars, the width and the
// precision are arguments too.
void AppendConversion(CFuzzBytes& bytes, std::string& format, const char* modifier,
                      const char* letters, bool hasStars = false) {
  AppendText(bytes, format);
  format += '%';
  const unsigned flags = bytes.Byte();
  for (unsigned index = 0; index < 6; ++index) {
    if ((flags >> index & 1U) != 0) format += "-+ #0'"[index];
  }
  if (hasStars) {
    format += "*.*";
  } else {
    AppendCount(bytes, format);
    if (bytes.Pick(3) == 1) {
      format += '.';
      AppendCount(bytes, format);
    }
  }
  format += modifier;
  format += letters[bytes.Pick(static_cast<unsigned>(strlen(letters)))];
}

// What stands behind the last argument: nothing, text, or what is no conversion at all.
void AppendEnd(CFuzzBytes& bytes, std::string& format) {
  constexpr const char* kEnds[] = {"",   "\n", "%%", "%",  "%y",          "%5",
                                   "%-", "%l", "%.", "%!", "%2147483648d"};
  AppendText(bytes, format);
  format += kEnds[bytes.Pick(static_cast<unsigned>(std::size(kEnds)))];
}

struct tagValues {
  int m_Room;
  int m_Errno;
  uint64_t m_Numbers[4];
  std::string m_Text;

  int Int(int index) const { return static_cast<int>(static_cast<uint32_t>(m_Numbers[index])); }
  // A width or precision that costs no second.
  int Count(int index) const { return Int(index) % 9000; }
  double Real(int index) const {
    double real;
    memcpy(&real, &m_Numbers[index], sizeof(real));
    return real;
  }
  const wchar_t* Wide() const {
    static constexpr wchar_t kInvalid[] = {L'a', static_cast<wchar_t>(0x7fffff00), 0};
    return m_Numbers[3] % 2 == 0 ? L"wide" : kInvalid;
  }
};

int FormatWith(char* field, int room, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

int FormatWith(char* field, int room, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = FormatMessage(field, room, format, arguments);
  va_end(arguments);
  return length;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <class... tagArguments>
void Compare(const tagValues& values, const std::string& format, tagArguments... arguments) {
  const size_t room = static_cast<size_t>(values.m_Room);
  std::vector<char> expected(room, '\0');
  errno = values.m_Errno;
  static_cast<void>(snprintf(expected.data(), room, format.c_str(), arguments...));
  const int errnoOfPrintf = errno;
  expected.back() = '\0';

  std::vector<char> field(room, '\x5a');
  errno = values.m_Errno;
  const int length = FormatWith(field.data(), values.m_Room, format.c_str(), arguments...);
  const int errnoAfter = errno;
  FuzzRequire(errnoAfter == errnoOfPrintf, "errno is what printf leaves");
  FuzzRequire(length >= 0 && length < values.m_Room, "the length is below the room");
  FuzzRequire(strnlen(field.data(), room) == static_cast<size_t>(length), "the text ends there");
  FuzzRequire(strcmp(field.data(), expected.data()) == 0, "the text is printf's");
}
#pragma GCC diagnostic pop

constexpr const char* kWholeNumbers = "diuxXo";

void FormatNumbers(CFuzzBytes& bytes, const tagValues& values) {
  constexpr const char* kShort[] = {"", "h", "hh"};
  std::string format;
  AppendConversion(bytes, format, kShort[bytes.Pick(3)], kWholeNumbers);
  AppendConversion(bytes, format, "l", kWholeNumbers);
  AppendConversion(bytes, format, "ll", kWholeNumbers);
  AppendConversion(bytes, format, "z", kWholeNumbers);
  AppendEnd(bytes, format);
  Compare(values, format, values.Int(0), static_cast<long>(values.m_Numbers[1]),
          static_cast<long long>(values.m_Numbers[2]), static_cast<size_t>(values.m_Numbers[3]));
}

void FormatTexts(CFuzzBytes& bytes, const tagValues& values) {
  std::string format;
  AppendConversion(bytes, format, "", "s");
  AppendConversion(bytes, format, "", "c");
  AppendConversion(bytes, format, "", "p");
  AppendConversion(bytes, format, "", "diuxXoc");
  AppendEnd(bytes, format);
  Compare(values, format, values.m_Text.c_str(), values.Int(0),
          reinterpret_cast<void*>(static_cast<uintptr_t>(values.m_Numbers[1])), values.Int(2));
}

void FormatReals(CFuzzBytes& bytes, const tagValues& values) {
  std::string format;
  AppendConversion(bytes, format, "", "fFeEgGaA");
  AppendConversion(bytes, format, "", "s");
  AppendConversion(bytes, format, "", "f");
  AppendConversion(bytes, format, "", kWholeNumbers);
  AppendEnd(bytes, format);
  Compare(values, format, values.Real(0), values.m_Text.c_str(), values.Real(1), values.Int(2));
}

void FormatStars(CFuzzBytes& bytes, const tagValues& values) {
  std::string format;
  AppendConversion(bytes, format, "", kWholeNumbers, true);
  AppendConversion(bytes, format, "", "s", true);
  AppendEnd(bytes, format);
  Compare(values, format, values.Count(0), values.Count(1), values.Int(2), values.Count(1),
          values.Count(0), values.m_Text.c_str());
}

// A text without a NUL: its precision ends it, and the sanitizer sees a byte read behind it.
void FormatBounded(CFuzzBytes& bytes, const tagValues& values) {
  const std::vector<char> text(values.m_Text.begin(), values.m_Text.end());
  std::string format;
  AppendConversion(bytes, format, "h", kWholeNumbers);
  AppendText(bytes, format);
  format += bytes.Pick(2) == 0 ? "%-*.*s" : "%*.*s";
  AppendConversion(bytes, format, "t", kWholeNumbers);
  AppendEnd(bytes, format);
  Compare(values, format, values.Int(0), values.Count(1), static_cast<int>(text.size()),
          text.data(), static_cast<ptrdiff_t>(values.m_Numbers[2]));
}

// A real number as people write it: a few decimal places, often halfway between two results.
void FormatDecimals(CFuzzBytes& bytes, const tagValues& values) {
  const auto real = static_cast<double>(values.Int(0));
  std::string format;
  AppendConversion(bytes, format, "", "fF");
  AppendConversion(bytes, format, "l", "f", true);
  AppendConversion(bytes, format, "", "f");
  AppendEnd(bytes, format);
  Compare(values, format, real / 1000, values.Int(1) % 40, values.Int(2) % 24, real / 65536,
          real / static_cast<double>(values.m_Numbers[3] | 1));
}

void FormatWides(CFuzzBytes& bytes, const tagValues& values) {
  std::string format;
  AppendConversion(bytes, format, "", "s");
  AppendConversion(bytes, format, "l", "s");
  AppendConversion(bytes, format, "j", kWholeNumbers);
  AppendEnd(bytes, format);
  Compare(values, format, values.m_Text.c_str(), values.Wide(),
          static_cast<intmax_t>(values.m_Numbers[0]));
}

void FormatAny(CFuzzBytes bytes) {
  using Former = void (*)(CFuzzBytes&, const tagValues&);
  constexpr Former kFormers[] = {FormatNumbers, FormatTexts,   FormatReals,   FormatStars,
                                 FormatWides,   FormatBounded, FormatDecimals};
  const Former former = kFormers[bytes.Pick(static_cast<unsigned>(std::size(kFormers)))];
  tagValues values;
  values.m_Room = 1 + static_cast<int>(bytes.Number(2)) % kRecordBytes;
  values.m_Errno = bytes.Byte();
  for (uint64_t& number : values.m_Numbers)
    number = bytes.Number(8);
  values.m_Text = bytes.Text();
  former(bytes, values);
}

}  // namespace
}  // namespace Kelvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" const char* __asan_default_options();

// The address sanitizer aborts on formats that the C library defines and it does not know.
const char* __asan_default_options() {
  return "check_printf=0";
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Kelvik::FormatAny(Kelvik::CFuzzBytes(data, size));
  return 0;
}
