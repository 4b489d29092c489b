// The wall clock jumps, wraps and passes 2^31 seconds: files go on changing when they should, and
// only then.

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "FakeClock.h"
#include "LossTools.h"

namespace Kelvik {
namespace {

constexpr int64_t kYear = 365 * 24 * 3600;
constexpr int64_t kSignedEnd = INT64_C(1) << 31;    // 2038-01-19 03:14:08 UTC
constexpr int64_t kUnsignedEnd = INT64_C(1) << 32;  // 2106-02-07 06:28:16 UTC
constexpr uint32_t kDuration = 10;                  // seconds of a file

// Rotation by time; args of a case: log path, folder, "direct" or "buffered".
void UseTime(const std::vector<std::string>& args) {
  UseSize(args.at(0), args.at(2) == "buffered" ? 4096 : 0, 0, 10);
  CGlobal::Instance()->SetLogMaxDuration(kDuration);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
}

// Two records (a time that is up is acted on only when records wait), and the rotation they ask
// for.
void LogTwo(int& number) {
  EXPECT_EQ(0, LogNumber("a", number++));
  EXPECT_EQ(0, LogNumber("a", number++));
  EXPECT_TRUE(WaitUntil([] { return Look(Output().m_RotatePending) == 0; }, 5000));
}

// The files behind one another in the order in which they were written.
std::string TextInOrder(const std::string& folder) {
  std::map<int, std::string> files;
  for (const std::string& name : ListFolder(folder)) {
    const std::string text = ReadFile(folder + "/" + name);
    if (!text.empty()) files[std::atoi(text.c_str() + 2)] = text;
  }
  std::string all;
  for (const auto& [first, text] : files)
    all += text;
  return all;
}

void ExpectAll(const std::string& folder, int count) {
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_TRUE(IsAllThere(TextInOrder(folder), {{"a", count}}));
}

void ForBoth(const std::string& name, const std::vector<std::string>& more = {}) {
  for (const char* way : {"direct", "buffered"}) {
    std::vector<std::string> args = {way};
    args.insert(args.end(), more.begin(), more.end());
    EXPECT_TRUE(RunCase(name, args)) << way;
  }
}

CHILD_CASE(JumpBack) {
  CFakeClock clock(kNoon);
  UseTime(args);
  int number = 0;
  LogTwo(number);
  clock.Set(kNoon - kYear);
  for (int i = 0; i < 50; ++i)
    LogTwo(number);
  EXPECT_EQ(0u, Statistics().m_Rotations) << "the file's time began anew";
  clock.AdvanceMs(9000);
  LogTwo(number);
  EXPECT_EQ(0u, Statistics().m_Rotations);
  clock.AdvanceMs(1000);
  LogTwo(number);
  EXPECT_EQ(1u, Statistics().m_Rotations) << "and ended ten seconds later";
  ExpectAll(args.at(1), number);
  return 0;
}

TEST(Clock, GoingBackAYearRestartsTheTimeOfTheFile) {
  ForBoth("JumpBack");
}

CHILD_CASE(JumpAhead) {
  CFakeClock clock(kNoon);
  UseTime(args);
  int number = 0;
  LogTwo(number);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));  // makes the file
  clock.Set(kNoon + kYear);
  for (int i = 0; i < 50; ++i)
    LogTwo(number);
  EXPECT_EQ(1u, Statistics().m_Rotations);
  clock.AdvanceMs(10000);
  LogTwo(number);
  EXPECT_EQ(2u, Statistics().m_Rotations);
  ExpectAll(args.at(1), number);
  return 0;
}

TEST(Clock, GoingAheadAYearRotatesOnce) {
  ForBoth("JumpAhead");
}

// args: ..., a moment that is passed in steps of a second.
CHILD_CASE(PassMoment) {
  const int64_t moment = std::atoll(args.at(3).c_str());
  CFakeClock clock(moment - 25);
  UseTime(args);
  int number = 0;
  for (int second = 0; second <= 50; ++second) {
    LogTwo(number);
    if (second == 0) KelvikExtra_Flush(5000, 0);  // makes the file
    clock.AdvanceMs(1000);
  }
  EXPECT_EQ(5u, Statistics().m_Rotations) << "every ten seconds, before and after";
  ExpectAll(args.at(1), number);
  return 0;
}

TEST(Clock, FilesChangeOnWhile2To31SecondsPass) {
  ForBoth("PassMoment", {std::to_string(kSignedEnd)});
}

TEST(Clock, FilesChangeOnWhile2To32SecondsPass) {
  ForBoth("PassMoment", {std::to_string(kUnsignedEnd)});
}

CHILD_CASE(JumpOverHalf) {
  CFakeClock clock(kNoon);
  UseTime(args);
  int number = 0;
  LogTwo(number);
  clock.Set(kNoon + kSignedEnd + 5);  // as a signed 32-bit number that is a step back
  for (int i = 0; i < 50; ++i)
    LogTwo(number);
  EXPECT_LE(Statistics().m_Rotations, 1u);
  const uint64_t before = Statistics().m_Rotations;
  clock.AdvanceMs(10000);
  LogTwo(number);
  EXPECT_EQ(before + 1, Statistics().m_Rotations) << "rotation goes on";
  ExpectAll(args.at(1), number);
  return 0;
}

TEST(Clock, AJumpBy2To31SecondsNeitherStormsNorStops) {
  ForBoth("JumpOverHalf");
}

CHILD_CASE(NameAfterTheEnd) {
  CFakeClock clock(kSignedEnd + 1);
  UseTime(args);
  int number = 0;
  LogTwo(number);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_EQ(std::vector<std::string>{"20380119031409.log"}, ListFolder(args.at(1)));
  const char on = 1;
  SetAttribute(eAttributeOther, eOtherDateTime, &on, 1);
  LogLine("dated");
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_NE(std::string::npos, AllText(args.at(1)).find("2038-01-19 03:14:09.000 dated\n"));
  return 0;
}

TEST(Clock, NamesAndRecordsAreRightAfter2038) {
  ForBoth("NameAfterTheEnd");
}

CHILD_CASE(SizeWithoutClock) {
  CFakeClock clock(kNoon);
  UseSize(args.at(0), 0, 1024, 10);
  int number = 0;
  for (const int64_t moment :
       {kNoon - kYear, kNoon + kYear, kSignedEnd - 1, kSignedEnd, kUnsignedEnd, kNoon}) {
    const uint64_t before = Statistics().m_Rotations;
    clock.Set(moment);
    while (Statistics().m_Rotations == before)
      LogNumber("a", number++);
  }
  EXPECT_EQ(6u, Statistics().m_Rotations);
  EXPECT_GE(number, 6 * 20) << "by their size, not by the clock";
  EXPECT_EQ(7u, ListFolder(args.at(1)).size());
  ExpectAll(args.at(1), number);
  return 0;
}

TEST(Clock, RotationBySizeDoesNotLookAtTheClock) {
  EXPECT_TRUE(RunCase("SizeWithoutClock"));
}

// Records are handed over by their age, which is counted in milliseconds of 32 bits.
CHILD_CASE(WrapMilliseconds) {
  const int64_t wrapMs = (kNoon * 1000 / kUnsignedEnd + 1) * kUnsignedEnd;
  // A quarter of a second beside the wrap: at it the time of a write would be 0, "never", and is
  // moved by a millisecond.
  const int64_t startMs = wrapMs - 10250;
  CFakeClock clock(startMs / 1000, static_cast<int>(startMs % 1000) * 1000);
  UseSize(args.at(0), 65536, kHugeFile);
  SetIntervalMs(1000);
  EXPECT_EQ(0, Initialize());
  LogNumber("a", 0);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));  // the age counts from the first write
  int number = 1;
  for (int i = 0; i < 20; ++i) {
    // Young records wait.
    const uint64_t batches = Statistics().m_Batches;
    LogNumber("a", number++);
    clock.AdvanceMs(500);
    LogNumber("a", number++);
    EXPECT_EQ(batches, Statistics().m_Batches) << "step " << i;
    // The next one after a second sends them off.
    clock.AdvanceMs(500);
    LogNumber("a", number++);
    EXPECT_EQ(batches + 1, Statistics().m_Batches) << "step " << i;
    EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  }
  // Back by a year, then on: one hand-over, and then by the age again.
  clock.AdvanceMs(-kYear * 1000);
  LogNumber("a", number++);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  const uint64_t batches = Statistics().m_Batches;
  for (int i = 0; i < 50; ++i)
    LogNumber("a", number++);
  EXPECT_EQ(batches, Statistics().m_Batches);
  ExpectAll(args.at(1), number);
  return 0;
}

TEST(Clock, HandOverByAgePassesTheWrapOfTheMilliseconds) {
  EXPECT_TRUE(RunCase("WrapMilliseconds"));
}

}  // namespace
}  // namespace Kelvik
