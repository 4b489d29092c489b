// A log path with conversions against snprintf, and what is no conversion.
#include "PathPattern.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Rounds.h"

namespace Kelvik {
namespace {

constexpr char kGuard = '\x5a';
constexpr size_t kRoom = 256;

tagAbsoluteTime MakeTime(unsigned year, unsigned month, unsigned day, unsigned hour,
                         unsigned minute, unsigned second, unsigned millisecond) {
  tagAbsoluteTime time = {};
  time.m_Year = static_cast<uint16_t>(year);
  time.m_Month = static_cast<uint16_t>(month);
  time.m_Reserved = 4711;
  time.m_Day = static_cast<uint16_t>(day);
  time.m_Hour = static_cast<uint16_t>(hour);
  time.m_Minute = static_cast<uint16_t>(minute);
  time.m_Second = static_cast<uint16_t>(second);
  time.m_Millisecond = static_cast<uint16_t>(millisecond);
  return time;
}

tagAbsoluteTime Noon() {
  return MakeTime(2024, 3, 15, 12, 34, 56, 78);
}

// Expands a pattern that stands in an exact copy on the heap, into a field with a guard behind it.
std::string Expand(const std::string& pattern, const tagAbsoluteTime& time, size_t room = kRoom) {
  std::vector<char> field(pattern.begin(), pattern.end());
  if (field.size() < static_cast<size_t>(kLogPathBytes)) field.push_back('\0');
  std::vector<char> text(room + 1, kGuard);
  const int length = ExpandPathPattern(text.data(), room, field.data(), time);
  EXPECT_EQ(text.back(), kGuard) << pattern;
  text.back() = '\0';
  EXPECT_EQ(length, static_cast<int>(strlen(text.data()))) << pattern;
  EXPECT_LT(static_cast<size_t>(length), room) << pattern;
  return text.data();
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
std::string Printed(const std::string& pattern, const tagAbsoluteTime& time, size_t room = kRoom) {
  std::vector<char> text(room, '\0');
  snprintf(text.data(), room, pattern.c_str(), int{time.m_Year}, int{time.m_Month}, int{time.m_Day},
           int{time.m_Hour}, int{time.m_Minute}, int{time.m_Second}, int{time.m_Millisecond});
  return text.data();
}
#pragma GCC diagnostic pop

TEST(PathPattern, WithoutConversionsIsThePath) {
  for (const char* path : {"", "/tmp/", "/var/log/some folder/", "relative"}) {
    EXPECT_EQ(Expand(path, Noon()), path);
  }
}

TEST(PathPattern, TakesTheValuesInOrder) {
  EXPECT_EQ(Expand("/%d/%d/%d/%d/%d/%d/%d/", Noon()), "/2024/3/15/12/34/56/78/");
  EXPECT_EQ(Expand("/log/%04d%02d%02d/", Noon()), "/log/20240315/");
  EXPECT_EQ(Expand("%i %u %x %X %o %c", Noon()), "2024 3 f C 42 8");
  EXPECT_EQ(Expand("100%%/%d/%%d", Noon()), "100%/2024/%d");
}

TEST(PathPattern, WhatIsNoIntegerConversionStandsAsItIsTyped) {
  constexpr const char* kTyped[] = {
      "%",    "/tmp/%", "%n",  "%s",  "%*d",  "%.*d",   "%1$d",  "%ld",    "%lld",   "%hd",
      "%hhd", "%zd",    "%jd", "%td", "%Lf",  "%f",     "%p",    "%m",     "%'d",    "%Id",
      "%S",   "%C",     "%a",  "%5",  "%-",   "%.",     "%.-5d", "%5.",    "%-+ #0", "%ls",
      "%lc",  "%D",     "%U",  "% s", "%10n", "%y%Q%!", "%*.*",  "%2$*1$d"};
  for (const char* pattern : kTyped)
    EXPECT_EQ(Expand(pattern, Noon()), pattern);
}

TEST(PathPattern, AConversionBehindATypedOneStillTakesTheNextValue) {
  EXPECT_EQ(Expand("%n%d", Noon()), "%n2024");
  EXPECT_EQ(Expand("%d%s%d", Noon()), "2024%s3");
  EXPECT_EQ(Expand("%5%d", Noon()), "%52024");
}

TEST(PathPattern, AnEighthConversionStandsAsItIsTyped) {
  EXPECT_EQ(Expand("%d%d%d%d%d%d%d%d", Noon()), "202431512345678%d");
  EXPECT_EQ(Expand("%d%d%d%d%d%d%d%%%05x", Noon()), "202431512345678%%05x");
}

TEST(PathPattern, AWidthDoesNotGrowPastTheField) {
  const std::string blanks(kRoom - 1, ' ');
  const std::string zeros(kRoom - 1, '0');
  EXPECT_EQ(Expand("%2000000000d", Noon()), blanks);
  EXPECT_EQ(Expand("%99999999999999999999999999d%d", Noon()), blanks);
  EXPECT_EQ(Expand("%02147483647d", Noon()), zeros);
  EXPECT_EQ(Expand("%.4294967297d", Noon()), zeros);
  EXPECT_EQ(Expand("%-4294967296d", Noon()), "2024" + std::string(kRoom - 5, ' '));
  EXPECT_EQ(Expand("%2147483648c", Noon()), blanks);
  std::string seven;
  for (int index = 0; index < 7; ++index)
    seven += "%2000000000.2000000000d";
  EXPECT_EQ(Expand(seven, Noon()), zeros);
}

TEST(PathPattern, ACharacterOfZeroEndsTheText) {
  const tagAbsoluteTime midnight = MakeTime(2024, 3, 15, 0, 0, 0, 0);
  EXPECT_EQ(Expand("%d-%d-%d/%c/%d", midnight), "2024-3-15/");
  EXPECT_EQ(Expand("%d-%d-%d/%5c/", midnight), "2024-3-15/    ");
  EXPECT_EQ(Expand("%d-%d-%d/%-5c/", midnight), "2024-3-15/");
}

TEST(PathPattern, AFieldWithoutTerminatorIsTheBound) {
  const std::string tail = "%04d";
  std::string full(static_cast<size_t>(kLogPathBytes) - tail.size(), 'p');
  EXPECT_EQ(Expand(full + tail, Noon(), 1000), full + "2024");
  full = std::string(static_cast<size_t>(kLogPathBytes) - 1, 'p') + "%";
  EXPECT_EQ(Expand(full, Noon(), 1000), full);
  full = std::string(static_cast<size_t>(kLogPathBytes) - 3, 'p') + "%04";
  EXPECT_EQ(Expand(full, Noon(), 1000), full);
}

TEST(PathPattern, IsCutAtEveryRoom) {
  const std::string whole = Printed("/a/%6d/%-6d|%.3x", Noon());
  for (size_t room = 1; room <= whole.size() + 2; ++room) {
    EXPECT_EQ(Expand("/a/%6d/%-6d|%.3x", Noon(), room), whole.substr(0, room - 1));
  }
}

TEST(PathPattern, ReadsNothingButTheSevenValues) {
  EXPECT_EQ(Expand("%d", MakeTime(65535, 0, 0, 0, 0, 0, 0)), "65535");
  EXPECT_EQ(Expand("%o|%#o|%#x|%#X", MakeTime(65535, 8, 255, 255, 0, 0, 0)),
            "177777|010|0xff|0XFF");
  EXPECT_EQ(Expand("%.0d|%#.0o|%#.0x|%+d|% d", MakeTime(0, 0, 0, 0, 0, 0, 0)), "|0||+0| 0");
}

TEST(PathPattern, EqualsPrintfForGeneratedConversions) {
  std::mt19937 random(20240315);
  const auto pick = [&random](unsigned count) { return static_cast<unsigned>(random() % count); };
  constexpr char kFlags[] = "-+ #0";
  constexpr char kKinds[] = "diuxXoc";
  for (int round = Rounds() * 2000; round > 0 && !testing::Test::HasFailure(); --round) {
    std::string pattern;
    for (unsigned left = pick(8); left > 0; --left) {
      pattern += pick(3) == 0 ? "%%" : "/";
      pattern += "%";
      for (unsigned flags = pick(4); flags > 0; --flags)
        pattern += kFlags[pick(5)];
      if (pick(2) == 0) pattern += std::to_string(1 + pick(pick(10) == 0 ? 400 : 12));
      if (pick(3) == 0) pattern += ".";
      if (pattern.back() == '.' && pick(4) != 0) pattern += std::to_string(pick(10));
      pattern += kKinds[pick(7)];
    }
    const auto value = [&pick] {
      return pick(4) == 0 ? pick(65536) : pick(4) == 0 ? 0 : pick(100);
    };
    const tagAbsoluteTime time =
        MakeTime(value(), value(), value(), value(), value(), value(), value());
    const size_t room = pick(4) == 0 ? 1 + pick(64) : kRoom;
    EXPECT_EQ(Expand(pattern, time, room), Printed(pattern, time, room)) << pattern;
  }
}

}  // namespace
}  // namespace Kelvik
