// The message's formatting against vsnprintf itself.
#include "RecordFormat.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace Kelvik {
namespace {

constexpr char kGuard = '\x5a';
constexpr int kRooms[] = {1, 2, 3, 5, 8, 13, 40, 8192};

// What vsnprintf stores in a zeroed field, seen as a C string.
__attribute__((format(printf, 2, 0))) std::string Printed(int room, const char* format,
                                                          va_list arguments) {
  std::vector<char> field(static_cast<size_t>(room), '\0');
  static_cast<void>(vsnprintf(field.data(), field.size(), format, arguments));
  return std::string(field.data(), strnlen(field.data(), field.size()));
}

// Formats into a field of junk with a guard byte behind it.
__attribute__((format(printf, 2, 0))) std::string Formatted(int room, const char* format,
                                                            va_list arguments) {
  std::vector<char> field(static_cast<size_t>(room) + 1, kGuard);
  const int length = FormatMessage(field.data(), room, format, arguments);
  EXPECT_EQ(field.back(), kGuard) << format;
  const std::string text(field.data(), strnlen(field.data(), field.size()));
  EXPECT_EQ(length, static_cast<int>(text.size())) << format;
  EXPECT_LT(length, room) << format;
  return text;
}

__attribute__((format(printf, 1, 2))) void ExpectAsPrinted(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  for (const int room : kRooms) {
    va_list forPrinted;
    va_list forFormatted;
    va_copy(forPrinted, arguments);
    va_copy(forFormatted, arguments);
    errno = ENOTTY;
    const std::string expected = Printed(room, format, forPrinted);
    errno = ENOTTY;
    EXPECT_EQ(Formatted(room, format, forFormatted), expected) << "room " << room;
    va_end(forFormatted);
    va_end(forPrinted);
  }
  va_end(arguments);
}

__attribute__((format(printf, 3, 4))) int Format(char* field, int room, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = FormatMessage(field, room, format, arguments);
  va_end(arguments);
  return length;
}

TEST(RecordFormat, EqualsPrintf) {
  ExpectAsPrinted("no conversion\n");
  ExpectAsPrinted("%s", "");
  ExpectAsPrinted("packet %d from %s len %u\n", -17, "10.0.0.1", 1500U);
  ExpectAsPrinted("%5d|%-5d|%05d|%+d|% d|%.3d", 42, 42, 42, 42, 42, 7);
  ExpectAsPrinted("%x %X %#x %o %#o %c%%", 48879U, 48879U, 48879U, 8U, 8U, 'c');
  ExpectAsPrinted("%ld %lu %lld %llu %zu", LONG_MIN, ULONG_MAX, LLONG_MIN, ULLONG_MAX, SIZE_MAX);
  ExpectAsPrinted("%*d %-*d %.*s", 9, 1, 9, 2, 3, "abcdef");
  ExpectAsPrinted("%f %.2f %e %g %a", 3.25, 2.675, 1e100, 0.0001, 1.0);
  ExpectAsPrinted("%p %p", static_cast<const void*>("x"), static_cast<const void*>(nullptr));
  ExpectAsPrinted("%ls", L"wide");
}

// The next ones are about "%m", which only the system's printf has.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"

TEST(RecordFormat, SeesTheCallersErrno) {
  char field[256];
  errno = ENOSPC;
  Format(field, sizeof(field), "%s: %m", "write");
  EXPECT_EQ(std::string(field), std::string("write: ") + strerror(ENOSPC));
}

TEST(RecordFormat, KeepsWhatAFailingFormatStored) {
  const wchar_t invalid[] = {static_cast<wchar_t>(0x7fffff00), 0};
  char field[256];
  EXPECT_EQ(Format(field, sizeof(field), "before %d %ls after", 5, invalid), 9);
  EXPECT_STREQ(field, "before 5 ");
  EXPECT_EQ(Format(field, 4, "before %d %ls after", 5, invalid), 3);
  EXPECT_STREQ(field, "bef");
  EXPECT_EQ(Format(field, sizeof(field), "%ls", invalid), 0);
  EXPECT_STREQ(field, "");
  ExpectAsPrinted("%m %ls", invalid);
}

TEST(RecordFormat, AFailingFormatSeesTheCallersErrnoToo) {
  const wchar_t invalid[] = {static_cast<wchar_t>(0x7fffff00), 0};
  char field[256];
  errno = ENOTTY;
  Format(field, sizeof(field), "%m%ls", invalid);
  EXPECT_EQ(std::string(field), strerror(ENOTTY));
}

#pragma GCC diagnostic pop

TEST(RecordFormat, CutsAtTheRoom) {
  const std::string text(9000, 't');
  std::vector<char> field(8192);
  EXPECT_EQ(Format(field.data(), 8192, "%s", text.c_str()), 8191);
  EXPECT_EQ(strlen(field.data()), 8191U);
  EXPECT_EQ(Format(field.data(), 8192, "%.8191s", text.c_str()), 8191);
  EXPECT_EQ(Format(field.data(), 8192, "%.8190s", text.c_str()), 8190);
  EXPECT_EQ(Format(field.data(), 1, "%s", text.c_str()), 0);
  EXPECT_EQ(field[0], '\0');
}

TEST(RecordFormat, EndsAtANulThatAConversionProduced) {
  char field[64];
  EXPECT_EQ(Format(field, sizeof(field), "ab%ccd", 0), 2);
  EXPECT_STREQ(field, "ab");
  EXPECT_EQ(Format(field, sizeof(field), "%c", 0), 0);
  EXPECT_EQ(Format(field, sizeof(field), "%5cx", 0), 4);
  EXPECT_EQ(Format(field, 3, "abcd%c", 0), 2);
  ExpectAsPrinted("x%cy%cz", 'c', 0);
}

}  // namespace
}  // namespace Kelvik
