#include "Priority.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using KelvikLog::ReadPriority;

TEST(Priority, EachOfTheEightNumbersHasItsLevel) {
  const eLogLevel levels[] = {eLogLevelFatal,   eLogLevelFatal, eLogLevelFatal, eLogLevelError,
                              eLogLevelWarning, eLogLevelInfo,  eLogLevelInfo,  eLogLevelDebug};
  for (int number = 0; number <= 7; ++number) {
    const std::string line = "<" + std::to_string(number) + ">text";
    eLogLevel level = static_cast<eLogLevel>(0);
    EXPECT_TRUE(ReadPriority(line.data(), line.size(), level)) << line;
    EXPECT_EQ(level, levels[number]) << line;
  }
}

TEST(Priority, ThePriorityAloneIsEnough) {
  eLogLevel level = eLogLevelInfo;
  EXPECT_TRUE(ReadPriority("<3>", KelvikLog::kPriorityBytes, level));
  EXPECT_EQ(level, eLogLevelError);
}

TEST(Priority, AnythingElseIsNoneAndLeavesTheLevel) {
  for (const std::string line : {"", "<", "<3", "<8>x", "<9>x", "<->x", "<10>x", "<03>x", " <3>x",
                                 "3>x", "<3}x", "<>x", "<a>x", "(3)x", "<\xB3>x"}) {
    eLogLevel level = eLogLevelWarning;
    EXPECT_FALSE(ReadPriority(line.data(), line.size(), level)) << line;
    EXPECT_EQ(level, eLogLevelWarning) << line;
  }
}

TEST(Priority, NothingBehindTheGivenLengthIsRead) {
  eLogLevel level = eLogLevelWarning;
  EXPECT_FALSE(ReadPriority("<3>", 2, level));
  EXPECT_EQ(level, eLogLevelWarning);
}

}  // namespace
