// A list of arguments is taken as one only when the caller says so. Where va_list is a plain
// pointer, a char* would otherwise be read as one.

#include "Arguments.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <string>
#include <type_traits>

#include "RecordTools.h"

namespace Kelvik {
namespace {

static_assert(!std::is_convertible_v<char*, tagArguments>, "a text is no list");
static_assert(!std::is_convertible_v<const char*, tagArguments>, "a text is no list");
static_assert(!std::is_convertible_v<void*, tagArguments>, "a pointer is no list");
static_assert(!std::is_convertible_v<int*, tagArguments>, "a pointer is no list");
static_assert(!std::is_convertible_v<int, tagArguments>, "a number is no list");

CHILD_CASE(OneArgument) {
  CPrintedText printed;
  UseBareRecords();
  // Read as a list, these bytes would be addresses.
  char text[] = "\x01\x02\x03\x04 four";
  char* const fixed = text;
  const char* const constant = text;
  EXPECT_EQ(0, Engine().Log(Level(2), "net", nullptr, "<%s>\n", text));
  EXPECT_EQ(0, Engine().Log(Level(2), "net", nullptr, "<%s>\n", fixed));
  EXPECT_EQ(0, Engine().Log(Level(2), "net", nullptr, "<%s>\n", &text[0]));
  EXPECT_EQ(0, Engine().Log(Level(2), "net", nullptr, "<%s>\n", constant));
  EXPECT_EQ(0, Engine().Log(Level(2), "net", nullptr, "a.c", "main", 1, "<%s>\n", text));
  EXPECT_EQ(0, Engine().Log(Level(2), "net", nullptr, "a.c", "main", 1, "<%s>\n", constant));
  const std::string line = "[net] <" + std::string(text) + ">\n";
  const std::string located = "[net] [a.c main 1] <" + std::string(text) + ">\n";
  std::string expected;
  for (int i = 0; i < 4; ++i)
    expected += Shown(2, line);
  for (int i = 0; i < 2; ++i)
    expected += Shown(2, located);
  EXPECT_EQ(expected, printed.Take());
  // Other pointers.
  char printable[64];
  void* const pointer = printable;
  std::snprintf(printable, sizeof(printable), "%p", pointer);
  EXPECT_EQ(0, Engine().Log(Level(2), nullptr, nullptr, "%p", pointer));
  EXPECT_EQ(Shown(2, printable), printed.Take());
  EXPECT_EQ(0, Engine().Log(Level(2), nullptr, nullptr, "a.c", nullptr, -1, "%p", pointer));
  EXPECT_EQ(Shown(2, "[a.c] " + std::string(printable)), printed.Take());
  return 0;
}

CHILD_CASE(NullArgument) {
  CPrintedText printed;
  UseBareRecords();
  // A literal zero converts to any pointer.
  EXPECT_EQ(0, Engine().Log(Level(2), "net", nullptr, "<%d>\n", 0));
  EXPECT_EQ(Shown(2, "[net] <0>\n"), printed.Take());
  EXPECT_EQ(0, Engine().Log(Level(2), "net", nullptr, "a.c", nullptr, -1, "<%d>\n", 0));
  EXPECT_EQ(Shown(2, "[net] [a.c] <0>\n"), printed.Take());
  EXPECT_EQ(0, Engine().Log(Level(2), "net", nullptr, "<%p>\n", nullptr));
  EXPECT_EQ(Shown(2, "[net] <(nil)>\n"), printed.Take());
  return 0;
}

TEST(Arguments, LiteralZeroIsAnArgumentAndNoList) {
  EXPECT_TRUE(Passes("NullArgument"));
}

TEST(Arguments, OneTextIsAnArgumentAndNoList) {
  EXPECT_TRUE(Passes("OneArgument"));
}

CHILD_CASE(ManyArguments) {
  CPrintedText printed;
  UseBareRecords();
  char text[] = "text";
  const std::string expected = "text -7 9000000000 2.50 c text 18446744073709551615\n";
  EXPECT_EQ(0, Engine().Log(Level(2), nullptr, nullptr, "%s %d %lld %.2f %c %s %llu\n", text, -7,
                            9000000000LL, 2.5, 'c', text, ~0ULL));
  EXPECT_EQ(Shown(2, expected), printed.Take());
  EXPECT_EQ(0, LogList(2, nullptr, nullptr, "%s %d %lld %.2f %c %s %llu\n", text, -7, 9000000000LL,
                       2.5, 'c', text, ~0ULL));
  EXPECT_EQ(Shown(2, expected), printed.Take());
  EXPECT_EQ(0, LogListAt(2, nullptr, nullptr, nullptr, nullptr, 3, "%s %d %lld %.2f %c %s %llu\n",
                         text, -7, 9000000000LL, 2.5, 'c', text, ~0ULL));
  EXPECT_EQ(Shown(2, "[3] " + expected), printed.Take());
  return 0;
}

TEST(Arguments, OfEveryWidthArriveByEveryWay) {
  EXPECT_TRUE(Passes("ManyArguments"));
}

__attribute__((format(printf, 2, 3))) void LogTwice(std::string& third, const char* format, ...) {
  va_list list;
  va_start(list, format);
  EXPECT_EQ(0, Engine().Log(Level(2), nullptr, nullptr, format, tagArguments(list)));
  EXPECT_EQ(0, Engine().Log(Level(2), nullptr, nullptr, format, tagArguments(list)));
  char text[64];
  std::vsnprintf(text, sizeof(text), format, list);
  va_end(list);
  third = text;
}

CHILD_CASE(ListStays) {
  CPrintedText printed;
  UseBareRecords();
  std::string third;
  LogTwice(third, "%d %s %.1f\n", 4, "text", 1.5);
  EXPECT_EQ(Shown(2, "4 text 1.5\n") + Shown(2, "4 text 1.5\n"), printed.Take());
  EXPECT_EQ("4 text 1.5\n", third);
  return 0;
}

TEST(Arguments, CallersListIsLeftUntouched) {
  EXPECT_TRUE(Passes("ListStays"));
}

}  // namespace
}  // namespace Kelvik
