#include "Escape.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "Rounds.h"

namespace {

using KelvikLog::AppendEscaped;
using KelvikLog::NeedsEscape;

std::string Escaped(const std::string& text) {
  std::string shown;
  AppendEscaped(shown, text.data(), text.size());
  EXPECT_EQ(NeedsEscape(text.data(), text.size()), shown != text);
  return shown;
}

TEST(Escape, ControlBytesAreShownInHexadecimal) {
  struct tagCase {
    std::string m_Text;
    std::string m_Shown;
  };
  const tagCase cases[] = {
      {"", ""},
      {"plain ~text", "plain ~text"},
      {"\\x1B", "\\x1B"},
      {"a\tb", "a\tb"},
      {"\x1B[2J", "\\x1B[2J"},
      {std::string("a\0b", 3), "a\\x00b"},
      {"a\rb\n", "a\\x0Db\\x0A"},
      {"\x01\x1F\x7F", "\\x01\\x1F\\x7F"},
      {"\x20\x7E", "\x20\x7E"},
  };
  for (const tagCase& entry : cases) {
    EXPECT_EQ(Escaped(entry.m_Text), entry.m_Shown);
  }
}

TEST(Escape, AC1ControlIsShownHoweverItIsWritten) {
  EXPECT_EQ(Escaped("\x9B"
                    "2J"),
            "\\x9B2J");
  EXPECT_EQ(Escaped("\x80\x9F\xA0\xFF"), "\\x80\\x9F\xA0\xFF");
  EXPECT_EQ(Escaped("\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0"), "\\xC2\\x80\\xC2\\x9B\\xC2\\x9F\xC2\xA0");
  // Overlong forms of U+009B and of escape.
  EXPECT_EQ(Escaped("\xE0\x82\x9B"), "\xE0\\x82\\x9B");
  EXPECT_EQ(Escaped("\xF0\x80\x82\x9B"), "\xF0\\x80\\x82\\x9B");
  EXPECT_EQ(Escaped("\xC0\x9B"), "\xC0\\x9B");
  // A surrogate, and what lies beyond the last character.
  EXPECT_EQ(Escaped("\xED\xA0\x80"), "\xED\xA0\\x80");
  EXPECT_EQ(Escaped("\xF4\x90\x80\x80"), "\xF4\\x90\\x80\\x80");
  // Characters that do not go on.
  EXPECT_EQ(Escaped("\xE2\x9B"), "\xE2\\x9B");
  EXPECT_EQ(Escaped("\xE2\x9B"
                    "a"),
            "\xE2\\x9B"
            "a");
}

TEST(Escape, CharactersWithSuchBytesInsideStay) {
  for (const char* const text : {"\xC3\x9F", "\xE2\x82\xAC", "\xE2\x9B\x9B", "\xED\x9F\xBF",
                                 "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF", "\xEF\xBF\xBD"}) {
    EXPECT_EQ(Escaped(text), text);
  }
}

TEST(Escape, WhatIsShownNeedsNoEscaping) {
  std::mt19937 random(8);
  for (int round = 0; round < Kelvik::Rounds() * 100; ++round) {
    std::string text(random() % 24, '\0');
    for (char& byte : text) {
      byte = static_cast<char>(random() % 3 == 0 ? random() % 256 : 0x78 + random() % 0x50);
    }
    const std::string shown = Escaped(text);
    EXPECT_EQ(Escaped(shown), shown);
  }
}

}  // namespace
