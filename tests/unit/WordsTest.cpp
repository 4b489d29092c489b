// The words of kelvikctl's command line and of the console's commands.

#include "Words.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace KelvikCtl {
namespace {

TEST(Words, LevelsHaveNamesAndNumbersInAnyLetterCase) {
  struct tagCase {
    const char* m_Text;
    std::optional<eSwitch> m_Switch;
  };
  const tagCase cases[] = {
      {"debug", kSwitchDebug}, {"INFO", kSwitchInfo},   {"Warning", kSwitchWarning},
      {"error", kSwitchError}, {"fataL", kSwitchFatal}, {"1", kSwitchDebug},
      {"5", kSwitchFatal},     {"0", std::nullopt},     {"6", std::nullopt},
      {"11", std::nullopt},    {"", std::nullopt},      {"deb", std::nullopt},
      {"file", std::nullopt},  {" debug", std::nullopt}};
  for (const tagCase& one : cases)
    EXPECT_EQ(one.m_Switch, ParseSwitch(one.m_Text, kFirstLevel, kSwitchFatal)) << one.m_Text;
}

TEST(Words, OnlyLevelsHaveNumbers) {
  EXPECT_EQ(kSwitchFile, ParseSwitch("File", kSwitchTerminal, kSwitchFile));
  EXPECT_EQ(std::nullopt, ParseSwitch("1", kSwitchTerminal, kSwitchFile));
  EXPECT_EQ(std::nullopt, ParseSwitch("time", kSwitchTerminal, kSwitchFile));
  EXPECT_EQ(kSwitchTid, ParseSwitch("tid", kSwitchTime, kSwitchTid));
}

TEST(Words, OnAndOffAndNothingElse) {
  EXPECT_EQ(true, ParseOnOff("ON"));
  EXPECT_EQ(false, ParseOnOff("off"));
  for (const char* const text : {"", "1", "true", "on ", "o"})
    EXPECT_EQ(std::nullopt, ParseOnOff(text)) << text;
}

TEST(Words, NumbersAreWholeAndOf32Bits) {
  EXPECT_EQ(0, ParseNumber("0"));
  EXPECT_EQ(7, ParseNumber("007"));
  EXPECT_EQ(-1, ParseNumber("-1"));
  EXPECT_EQ(2147483647, ParseNumber("2147483647"));
  EXPECT_EQ(-2147483647 - 1, ParseNumber("-2147483648"));
  for (const char* const text : {"", "-", "2147483648", "-2147483649", "99999999999999999999", "1x",
                                 " 1", "1 ", "+1", "0x10", "1.5", "--1"})
    EXPECT_EQ(std::nullopt, ParseNumber(text)) << text;
}

TEST(Words, SecondsAreDecimalAndBounded) {
  EXPECT_EQ(1000, ParseSeconds("1", 60));
  EXPECT_EQ(500, ParseSeconds(".5", 60));
  EXPECT_EQ(100, ParseSeconds("0.1", 60));
  EXPECT_EQ(60000, ParseSeconds("60", 60));
  EXPECT_EQ(2000000000, ParseSeconds("2000000", 2000000));
  for (const char* const text : {"", ".", "0", "0.09", "60.1", "-1", "1e1", "inf", "nan", "1s",
                                 " 1", "1.2.3", "0x2", "99999999999999999999999"})
    EXPECT_EQ(std::nullopt, ParseSeconds(text, 60)) << text;
}

TEST(Words, LimitsAllowWhatTheConsoleHeeds) {
  struct tagCase {
    const char* m_Name;
    int32_t m_Number;
    bool m_IsAllowed;
  };
  const tagCase cases[] = {
      {"size", 0, true},       {"size", 2097151, true},     {"size", 2097152, false},
      {"size", -1, false},     {"duration", 0, false},      {"duration", 2147483647, true},
      {"count", 0, false},     {"count", 1, true},          {"count", 10, true},
      {"count", 11, false},    {"buffer", 0, false},        {"buffer", 1024, true},
      {"buffer", 1025, false}, {"interval", 0, true},       {"interval", 199, false},
      {"INTERVAL", 200, true}, {"interval", 3600000, true}, {"interval", 3600001, false}};
  for (const tagCase& one : cases) {
    const tagLimit* const limit = FindLimit(one.m_Name);
    ASSERT_NE(nullptr, limit) << one.m_Name;
    EXPECT_EQ(one.m_IsAllowed, IsAllowed(*limit, one.m_Number)) << one.m_Name << one.m_Number;
  }
  EXPECT_EQ(nullptr, FindLimit("sizes"));
  EXPECT_EQ(nullptr, FindLimit(""));
}

TEST(Words, WordHasNoBlankNoControlCharacterAndALength) {
  EXPECT_EQ("", WordProblem("net", 3));
  EXPECT_EQ("", WordProblem("n\xC3\xA9t", 4));
  for (const char* const text : {"", "nett", "a b", "a\nb", "\t", "\x7F"})
    EXPECT_NE("", WordProblem(text, 3)) << text;
  EXPECT_NE("", WordProblem(std::string("a\0b", 3), 3));
}

TEST(Words, ModuleIsTheFirstWhoseNameContainsTheWord) {
  const std::vector<std::string> modules = {"Ethernet", "disk", "net"};
  EXPECT_EQ(&modules[0], FindModule(modules, "NET"));
  EXPECT_EQ(&modules[1], FindModule(modules, "is"));
  EXPECT_EQ(nullptr, FindModule(modules, "mem"));
  EXPECT_EQ(nullptr, FindModule({}, "net"));
}

TEST(Words, ControlCharactersAreShownAsCodes) {
  EXPECT_EQ("a\\x1b[31m\\x0a\\x7f\xC3\xA9", Printable("a\033[31m\n\x7F\xC3\xA9"));
}

}  // namespace
}  // namespace KelvikCtl
