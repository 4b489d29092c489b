// The wall clock's text, its cache by the second, and the clocks that wrap.
#include "TimeStamp.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "FakeClock.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

constexpr int64_t kMorning = 1710491400;  // 2024-03-15 08:30:00 UTC
constexpr tagAbsoluteTime kZeroTime = {};

class CTimeZone {
 public:
  explicit CTimeZone(const char* zone) { setenv("TZ", zone, 1); }
  ~CTimeZone() {
    unsetenv("TZ");
    tzset();
  }
};

tagTimeStamp Junk() {
  tagTimeStamp stamp;
  memset(static_cast<void*>(&stamp), 0x5a, sizeof(stamp));
  return stamp;
}

std::string TextNow() {
  tagTimeStamp stamp = Junk();
  EXPECT_TRUE(TakeTimeStamp(stamp));
  EXPECT_EQ(stamp.m_TextLength, static_cast<int>(strlen(stamp.m_Text)));
  return stamp.m_Text;
}

bool IsZero(const tagAbsoluteTime& time) {
  return memcmp(&time, &kZeroTime, sizeof(time)) == 0;
}

TEST(TimeStamp, ShowsTheTimeToTheMillisecond) {
  struct tagMoment {
    int64_t m_Seconds;
    int m_Microseconds;
    const char* m_Text;
  };
  constexpr tagMoment kMoments[] = {
      {kMorning, 0, "2024-03-15 08:30:00.000"},
      {kMorning, 999, "2024-03-15 08:30:00.000"},
      {kMorning, 1000, "2024-03-15 08:30:00.001"},
      {kMorning, 7999, "2024-03-15 08:30:00.007"},
      {kMorning, 10000, "2024-03-15 08:30:00.010"},
      {kMorning, 99999, "2024-03-15 08:30:00.099"},
      {kMorning, 100000, "2024-03-15 08:30:00.100"},
      {kMorning, 999999, "2024-03-15 08:30:00.999"},
      {kMorning + 1, 0, "2024-03-15 08:30:01.000"},
      {kMorning, 5000, "2024-03-15 08:30:00.005"},  // back again
      {0, 0, "1970-01-01 00:00:00.000"},
      {-1, 0, "1969-12-31 23:59:59.000"},
      {2147483648, 0, "2038-01-19 03:14:08.000"},
      {253402300799, 999999, "9999-12-31 23:59:59.999"},
      {253402300800, 1000, "10000-01-01 00:00:00.001"},
  };
  const CTimeZone zone("UTC0");
  CFakeClock clock(0);
  for (const tagMoment& moment : kMoments) {
    clock.Set(moment.m_Seconds, moment.m_Microseconds);
    EXPECT_EQ(TextNow(), moment.m_Text);
  }
}

TEST(TimeStamp, TheFieldsAreThoseOfTheText) {
  const CTimeZone zone("UTC0");
  const CFakeClock clock(kMorning + 3661, 7999);
  tagTimeStamp stamp = Junk();
  ASSERT_TRUE(TakeTimeStamp(stamp));
  EXPECT_EQ(stamp.m_Seconds, kMorning + 3661);
  EXPECT_EQ(stamp.m_Time.m_Year, 2024);
  EXPECT_EQ(stamp.m_Time.m_Month, 3);
  EXPECT_EQ(stamp.m_Time.m_Reserved, 0);
  EXPECT_EQ(stamp.m_Time.m_Day, 15);
  EXPECT_EQ(stamp.m_Time.m_Hour, 9);
  EXPECT_EQ(stamp.m_Time.m_Minute, 31);
  EXPECT_EQ(stamp.m_Time.m_Second, 1);
  EXPECT_EQ(stamp.m_Time.m_Millisecond, 7);
}

TEST(TimeStamp, TheTextIsTheFormattedTimeForGeneratedMoments) {
  const CTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  tzset();  // for the test's own localtime_r
  CFakeClock clock(0);
  std::mt19937 random(20240315);
  // Years to 65535, the last that the record can tell.
  std::uniform_int_distribution<int64_t> seconds(-62135596800, 2005949145599 - 86400);
  std::uniform_int_distribution<int> microseconds(0, 999999);
  for (int round = Rounds() * 500; round > 0 && !testing::Test::HasFailure(); --round) {
    const int64_t second = seconds(random);
    const int micros = microseconds(random);
    clock.Set(second, micros);
    const time_t when = static_cast<time_t>(second);
    struct tm local = {};
    ASSERT_NE(localtime_r(&when, &local), nullptr);
    char expected[128];
    snprintf(expected, sizeof(expected), "%04d-%02d-%02d %02d:%02d:%02d.%03d", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
             micros / 1000);
    EXPECT_EQ(TextNow(), expected);
  }
}

TEST(TimeStamp, ASecondIsConvertedOnce) {
  CFakeClock clock(kMorning + 1000);
  TextNow();
  const int before = CFakeClock::LocaltimeCalls();
  for (int micros = 0; micros < 1000000; micros += 1000) {
    clock.Set(kMorning + 1000, micros);
    TextNow();
  }
  EXPECT_EQ(CFakeClock::LocaltimeCalls(), before);
  clock.Set(kMorning + 1001);
  TextNow();
  TextNow();
  EXPECT_EQ(CFakeClock::LocaltimeCalls(), before + 1);
}

TEST(TimeStamp, AChangedZoneShowsWithTheNextSecond) {
  CFakeClock clock(kMorning);
  {
    const CTimeZone zone("UTC0");
    EXPECT_EQ(TextNow(), "2024-03-15 08:30:00.000");
  }
  const CTimeZone zone("XYZ-5:45");
  clock.Set(kMorning + 1);
  EXPECT_EQ(TextNow(), "2024-03-15 14:15:01.000");
}

TEST(TimeStamp, EveryThreadHasTheRightSecond) {
  const CTimeZone zone("UTC0");
  const CFakeClock clock(kMorning + 59, 250000);
  const int before = CFakeClock::LocaltimeCalls();
  std::vector<std::string> texts(4);
  std::vector<std::thread> threads;
  for (std::string& text : texts) {
    threads.emplace_back([&text] {
      for (int round = 0; round < 100; ++round)
        text = TextNow();
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (const std::string& text : texts)
    EXPECT_EQ(text, "2024-03-15 08:30:59.250");
  EXPECT_EQ(CFakeClock::LocaltimeCalls(), before + 1) << "one conversion serves all threads";
}

TEST(TimeStamp, ATimeThatCannotBeConvertedIsZero) {
  CFakeClock clock(kMorning + 7, 123000);
  clock.FailLocaltime(true);
  tagTimeStamp stamp = Junk();
  EXPECT_FALSE(TakeTimeStamp(stamp));
  EXPECT_TRUE(IsZero(stamp.m_Time));
  EXPECT_EQ(stamp.m_Seconds, kMorning + 7);
  EXPECT_STREQ(stamp.m_Text, "0000-00-00 00:00:00.000");
  EXPECT_EQ(stamp.m_TextLength, 23);
}

TEST(TimeStamp, AFailedConversionLeavesNothingToReuse) {
  const CTimeZone zone("UTC0");
  CFakeClock clock(kMorning);
  EXPECT_EQ(TextNow(), "2024-03-15 08:30:00.000");
  clock.FailLocaltime(true);
  clock.Set(kMorning + 1);
  tagTimeStamp stamp = Junk();
  EXPECT_FALSE(TakeTimeStamp(stamp));
  clock.Set(kMorning);  // converted before the failure
  EXPECT_FALSE(TakeTimeStamp(stamp));
  clock.FailLocaltime(false);
  EXPECT_EQ(TextNow(), "2024-03-15 08:30:00.000");
}

TEST(TimeStamp, TheFirstSecondOfTheEpochIsConvertedToo) {
  // A thread that has converted nothing yet must not take second 0 for its cached one.
  const CTimeZone zone("UTC0");
  const CFakeClock clock(0);
  std::string text;
  std::thread([&text] { text = TextNow(); }).join();
  EXPECT_EQ(text, "1970-01-01 00:00:00.000");
}

// A handler of the program may log in the middle of fork, when a new second has begun.
TEST(TimeStamp, TheThreadThatForksConvertsASecondWhileItHoldsTheLock) {
  CFakeClock clock(kMorning);
  EXPECT_EQ(TextNow(), "2024-03-15 08:30:00.000");
  BeforeForkOfTime();
  clock.Set(kMorning + 1);
  EXPECT_EQ(TextNow(), "2024-03-15 08:30:01.000");
  AfterForkOfTimeInParent();
  clock.Set(kMorning + 2);
  std::string text;
  std::thread([&text] { text = TextNow(); }).join();
  EXPECT_EQ(text, "2024-03-15 08:30:02.000");
  EXPECT_EQ(TextNow(), text);
}

// snprintf's view of FormatTime. The text is a copy on the heap, so that every byte counts.
void ExpectFormatted(const tagAbsoluteTime& time, int size) {
  std::vector<char> expected(static_cast<size_t>(size) + 1, '\x5a');
  std::vector<char> text = expected;
  const int whole = snprintf(
      expected.data(), static_cast<size_t>(size), "%04d-%02d-%02d %02d:%02d:%02d.%03d", time.m_Year,
      time.m_Month, time.m_Day, time.m_Hour, time.m_Minute, time.m_Second, time.m_Millisecond);
  EXPECT_EQ(FormatTime(time, text.data(), size), whole) << size;
  EXPECT_STREQ(std::string(text.begin(), text.begin() + size).c_str(),
               std::string(expected.begin(), expected.begin() + size).c_str());
  EXPECT_EQ(text.back(), '\x5a') << size;
}

TEST(FormatTime, EqualsPrintfAtEverySize) {
  std::mt19937 random(20240315);
  const auto value = [&random] {
    return static_cast<uint16_t>(static_cast<uint32_t>(random()) >> (16 + random() % 16));
  };
  for (int round = Rounds() * 10; round > 0 && !testing::Test::HasFailure(); --round) {
    const tagAbsoluteTime time = {value(), value(), value(), value(),
                                  value(), value(), value(), value()};
    for (int size = 0; size < 50; ++size)
      ExpectFormatted(time, size);
  }
  constexpr uint16_t kMost = 65535;
  ExpectFormatted({kMost, kMost, kMost, kMost, kMost, kMost, kMost, kMost}, 100);
}

TEST(FormatTime, WithoutRoomGivesTheLengthAlone) {
  EXPECT_EQ(FormatTime(kZeroTime, nullptr, 0), 23);
  char text[] = "kept";
  EXPECT_EQ(FormatTime(kZeroTime, text, -1), 23);
  EXPECT_STREQ(text, "kept");
}

TEST(WallClock, MillisecondsWrapAtThirtyTwoBits) {
  CFakeClock clock(0, 1999);
  EXPECT_EQ(WallMilliseconds(), 1U);
  clock.Set(4294967, 295999);
  EXPECT_EQ(WallMilliseconds(), 4294967295U);
  clock.Set(4294967, 296000);
  EXPECT_EQ(WallMilliseconds(), 0U);
  clock.Set(kMorning, 7000);
  EXPECT_EQ(WallMilliseconds(), static_cast<uint32_t>(kMorning * 1000 + 7));
}

TEST(WallClock, SecondsWrapAtThirtyTwoBits) {
  CFakeClock clock(kMorning, 999999);
  EXPECT_EQ(WallSeconds(), kMorning);
  clock.Set(2147483648);
  EXPECT_EQ(WallSeconds(), INT32_MIN);
  clock.Set(4294967295);
  EXPECT_EQ(WallSeconds(), -1);
  clock.Set(4294967296 + 5);
  EXPECT_EQ(WallSeconds(), 5);
}

}  // namespace
}  // namespace Kelvik
