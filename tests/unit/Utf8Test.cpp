#include "Utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using KelvikLog::WholeCharacters;

TEST(Utf8, ACutInsideACharacterMovesInFrontOfIt) {
  struct tagCase {
    std::string m_Text;
    std::size_t m_Whole;
  };
  const tagCase cases[] = {
      {"", 0},
      {"a", 1},
      {"abc", 3},
      {"ab\xC3\xA4", 4},              // two bytes, complete
      {"ab\xC3", 2},                  // its lead alone
      {"ab\xE2\x82\xAC", 5},          // three bytes
      {"ab\xE2\x82", 2},              //
      {"ab\xE2", 2},                  //
      {"ab\xF0\x9F\x98\x80", 6},      // four bytes
      {"ab\xF0\x9F\x98", 2},          //
      {"ab\xF0\x9F", 2},              //
      {"ab\xF0", 2},                  //
      {"ab\x80", 3},                  // a continuation of nothing
      {"ab\x80\x80\x80\x80", 6},      //
      {"ab\xFF", 3},                  // never a lead
      {"ab\xC0", 3},                  // an overlong lead
      {"ab\xF5\x80", 4},              // beyond the last code point
      {"ab\xC3\xA4\x80\x80\x80", 7},  // more continuations than the lead asks for
  };
  for (const tagCase& entry : cases) {
    EXPECT_EQ(WholeCharacters(entry.m_Text.data(), entry.m_Text.size()), entry.m_Whole)
        << testing::PrintToString(entry.m_Text);
  }
}

TEST(Utf8, ACharacterThatIsAllThereIsStays) {
  for (const std::string text : {"\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xF0"}) {
    EXPECT_EQ(WholeCharacters(text.data(), text.size()), text.size());
  }
}

TEST(Utf8, EveryCutOfAMixedTextKeepsCharactersWhole) {
  const std::string text = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z\xC3\xA4";
  for (std::size_t cut = 5; cut < text.size(); ++cut) {
    const std::size_t whole = WholeCharacters(text.data(), cut);
    EXPECT_LE(whole, cut);
    EXPECT_LT(cut - whole, 4u);
    // What follows the cut begins a character.
    EXPECT_NE(static_cast<unsigned char>(text[whole]) & 0xC0u, 0x80u) << cut;
  }
}

}  // namespace
