#include "LineReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Rounds.h"

namespace {

using KelvikLog::CLineReader;
using KelvikLog::tagLine;

struct tagPiece {
  std::string m_Text;
  bool m_IsStart;
  bool m_IsRest;
};

tagPiece Copy(const tagLine& line, bool isRest) {
  return {std::string(line.m_Text, line.m_Length), line.m_IsStart, isRest};
}

// Hands the stream over in pieces of at most step bytes and returns what comes out.
std::vector<tagPiece> ReadPieces(CLineReader& reader, const std::string& stream, std::size_t step) {
  std::vector<tagPiece> out;
  tagLine line = {};
  for (std::size_t at = 0; at < stream.size();) {
    std::size_t room = 0;
    char* const space = reader.Space(room);
    EXPECT_GE(room, 1u);
    const std::size_t count = std::min({step, room, stream.size() - at});
    std::memcpy(space, stream.data() + at, count);
    reader.Add(count);
    at += count;
    while (reader.Next(line)) {
      out.push_back(Copy(line, false));
    }
  }
  if (reader.Rest(line)) {
    out.push_back(Copy(line, true));
  }
  return out;
}

// The same as texts: "^" marks the start of a line, "$" what Rest gave.
std::vector<std::string> Read(CLineReader& reader, const std::string& stream, std::size_t step) {
  std::vector<std::string> out;
  for (const tagPiece& piece : ReadPieces(reader, stream, step)) {
    out.push_back((piece.m_IsStart ? "^" : "") + piece.m_Text + (piece.m_IsRest ? "$" : ""));
  }
  return out;
}

using Strings = std::vector<std::string>;

TEST(LineReader, LinesComeOutAsTheyWentInWhateverThePieces) {
  const std::string stream("one\n\n\ntwo\r\nth\0ree\nfour\n", 23);
  const Strings expected = {"^one", "^", "^", "^two\r", std::string("^th\0ree", 7), "^four"};
  for (std::size_t step = 1; step <= stream.size(); ++step) {
    CLineReader reader(64);
    EXPECT_EQ(Read(reader, stream, step), expected) << step;
  }
}

TEST(LineReader, ALastLineWithoutALineEndIsTheRest) {
  CLineReader reader(64);
  EXPECT_EQ(Read(reader, "one\ntwo", 64), (Strings{"^one", "^two$"}));
}

TEST(LineReader, AnEmptyStreamHasNoLine) {
  CLineReader reader(64);
  EXPECT_EQ(Read(reader, "", 64), Strings{});
}

TEST(LineReader, AStreamBehindTheRestBeginsALine) {
  CLineReader reader(8);
  EXPECT_EQ(Read(reader, "abcdefgh", 64), (Strings{"^abcdefgh"}));
  EXPECT_EQ(Read(reader, "next\n", 64), (Strings{"^next"}));
  EXPECT_EQ(Read(reader, "la", 64), (Strings{"^la$"}));
  EXPECT_EQ(Read(reader, "st\n", 64), (Strings{"^st"}));
}

TEST(LineReader, ALineLongerThanTheBufferComesInParts) {
  CLineReader reader(8);
  EXPECT_EQ(Read(reader, "abcdefghijklmnopqrs\nx\n", 64),
            (Strings{"^abcdefgh", "ijklmnop", "qrs", "^x"}));
}

TEST(LineReader, ALineAsLongAsTheBufferIsEndedByAnEmptyPart) {
  CLineReader reader(8);
  EXPECT_EQ(Read(reader, "abcdefgh\nx", 64), (Strings{"^abcdefgh", "", "^x$"}));
}

TEST(LineReader, APartEndsWithAWholeCharacter) {
  CLineReader reader(8);
  EXPECT_EQ(Read(reader, "abcdef\xE2\x82\xACgh\n", 64), (Strings{"^abcdef", "\xE2\x82\xACgh"}));
}

TEST(LineReader, TheByteBehindEachTextMayBeBorrowed) {
  CLineReader reader(16);
  std::size_t room = 0;
  char* const space = reader.Space(room);
  ASSERT_EQ(room, 16u);
  std::memcpy(space, "ab\nabcdefghijklm", 16);
  reader.Add(16);
  std::string out;
  tagLine line = {};
  const auto terminate = [&] {
    const char kept = line.m_Text[line.m_Length];
    line.m_Text[line.m_Length] = '\0';
    out += line.m_Text;
    out += '|';
    line.m_Text[line.m_Length] = kept;
  };
  while (reader.Next(line))
    terminate();
  if (reader.Rest(line)) terminate();
  EXPECT_EQ(out, "ab|abcdefghijklm|");
}

TEST(LineReader, RandomStreamsAreNeitherLostNorChanged) {
  std::mt19937 random(20240315);
  for (int round = 0; round < Kelvik::Rounds() * 10; ++round) {
    std::string stream;
    const std::size_t bytes = random() % 400;
    for (std::size_t i = 0; i < bytes; ++i) {
      const auto kind = random() % 12;
      stream += kind == 0 ? '\n' : kind == 1 ? '\0' : static_cast<char>(random() % 256);
    }
    CLineReader reader(8 + random() % 40);
    std::string joined;
    bool isFirst = true;
    for (const tagPiece& piece : ReadPieces(reader, stream, 1 + random() % 64)) {
      EXPECT_EQ(piece.m_Text.find('\n'), std::string::npos);
      joined += piece.m_IsStart && !isFirst ? "\n" : "";
      joined += piece.m_Text;
      isFirst = false;
    }
    if (!stream.empty() && stream.back() == '\n') stream.pop_back();
    EXPECT_EQ(joined, stream) << "round " << round;
  }
}

}  // namespace
