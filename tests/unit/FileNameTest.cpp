// Names and paths of log files.
#include "FileName.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace Kelvik {
namespace {

tagAbsoluteTime MakeTime(unsigned year, unsigned month, unsigned day, unsigned hour,
                         unsigned minute, unsigned second) {
  tagAbsoluteTime time = {};
  time.m_Year = static_cast<uint16_t>(year);
  time.m_Month = static_cast<uint16_t>(month);
  time.m_Day = static_cast<uint16_t>(day);
  time.m_Hour = static_cast<uint16_t>(hour);
  time.m_Minute = static_cast<uint16_t>(minute);
  time.m_Second = static_cast<uint16_t>(second);
  time.m_Millisecond = 999;
  return time;
}

std::string NameOf(const tagAbsoluteTime& time) {
  char name[kFileNameBytes];
  memset(name, 'j', sizeof(name));
  MakeFileName(name, time);
  return name;
}

std::string NumberedNameOf(const tagAbsoluteTime& time, int slot) {
  char name[kFileNameBytes];
  memset(name, 'j', sizeof(name));
  MakeNumberedFileName(name, time, slot);
  return name;
}

TEST(FileName, IsTheSecondOfItsMaking) {
  EXPECT_EQ(NameOf(MakeTime(2024, 3, 15, 8, 30, 0)), "20240315083000.log");
  EXPECT_EQ(NameOf(MakeTime(7, 12, 31, 23, 59, 60)), "00071231235960.log");
  EXPECT_EQ(NameOf(MakeTime(0, 0, 0, 0, 0, 0)), "00000000000000.log");
  EXPECT_EQ(NameOf(MakeTime(12345, 1, 2, 3, 4, 5)), "123450102030405.log");
}

TEST(FileName, TheNumberedFormEndsInTheSlot) {
  const tagAbsoluteTime time = MakeTime(2024, 3, 15, 8, 30, 0);
  EXPECT_EQ(NumberedNameOf(time, 0), "20240315083000_0.log");
  EXPECT_EQ(NumberedNameOf(time, 9), "20240315083000_9.log");
  EXPECT_EQ(NumberedNameOf(time, -128), "20240315083000_-128.log");
}

TEST(FileName, KeepsThirtyTwoCharacters) {
  const tagAbsoluteTime time = MakeTime(65535, 65535, 65535, 65535, 65535, 65535);
  EXPECT_EQ(NameOf(time), "655356553565535655356553565535.l");
  EXPECT_EQ(NumberedNameOf(time, INT_MIN), "655356553565535655356553565535_-");
}

TEST(FileName, OnlyANameWithASlashIsAPath) {
  EXPECT_FALSE(IsPath(""));
  EXPECT_FALSE(IsPath("20240315083000_1.log"));
  EXPECT_TRUE(IsPath("/20240315083000.log"));
  EXPECT_TRUE(IsPath("logs/20240315083000.log"));
}

TEST(FileName, StandsAtTheEndOfItsPathsBehindFolderAndPrefix) {
  EXPECT_TRUE(EndsInName("a.log", "a.log"));
  EXPECT_TRUE(EndsInName("/tmp/logs/a.log", "a.log"));
  EXPECT_TRUE(EndsInName("/tmp/logs/app-a.log", "a.log"));
  EXPECT_FALSE(EndsInName("/tmp/a.log/", "a.log"));
  EXPECT_FALSE(EndsInName("/tmp/a_1.log", "a.log"));
  EXPECT_FALSE(EndsInName(".log", "a.log"));
  EXPECT_FALSE(EndsInName("", "a.log"));
}

TEST(FilePath, IsFolderAndNameWithNothingBetween) {
  char path[kFilePathBytes];
  EXPECT_TRUE(JoinPath(path, "/tmp/", "a.log"));
  EXPECT_STREQ(path, "/tmp/a.log");
  EXPECT_TRUE(JoinPath(path, "/tmp/prefix-", "a.log"));
  EXPECT_STREQ(path, "/tmp/prefix-a.log");
  EXPECT_TRUE(JoinPath(path, "", ""));
  EXPECT_STREQ(path, "");
}

TEST(FilePath, AFolderWithoutTerminatorIsBoundedByItsField) {
  // Exactly the field on the heap, so that an address sanitizer sees a read past it.
  const std::vector<char> folder(kLogPathBytes, 'f');
  char path[kFilePathBytes];
  EXPECT_TRUE(JoinPath(path, folder.data(), "name"));
  EXPECT_EQ(std::string(path), std::string(kLogPathBytes, 'f') + "name");
}

TEST(FilePath, ThatDoesNotFitIsEmptyAndRefused) {
  const std::vector<char> folder(kLogPathBytes, 'f');
  const std::string fits(kFilePathBytes - kLogPathBytes - 1, 'n');
  char path[kFilePathBytes];
  EXPECT_TRUE(JoinPath(path, folder.data(), fits.c_str()));
  EXPECT_EQ(strlen(path), kFilePathBytes - 1);
  for (const size_t more : {size_t{1}, size_t{2}, 10 * kFilePathBytes}) {
    EXPECT_FALSE(JoinPath(path, folder.data(), (fits + std::string(more, 'n')).c_str())) << more;
    EXPECT_STREQ(path, "");
  }
}

TEST(FilePath, OfASlotIsTheNameItselfWhenThatIsAPath) {
  char path[kFilePathBytes];
  EXPECT_TRUE(SlotPath(path, "/tmp/", "20240315083000_1.log"));
  EXPECT_STREQ(path, "/tmp/20240315083000_1.log");
  EXPECT_TRUE(SlotPath(path, "/tmp/", "/var/log/a.log"));
  EXPECT_STREQ(path, "/var/log/a.log");
  const std::string longest = "/" + std::string(kFilePathBytes - 2, 'n');
  EXPECT_TRUE(SlotPath(path, "/tmp/", longest.c_str()));
  EXPECT_EQ(std::string(path), longest);
  EXPECT_FALSE(SlotPath(path, "/tmp/", (longest + "n").c_str()));
  EXPECT_STREQ(path, "");
}

}  // namespace
}  // namespace Kelvik
