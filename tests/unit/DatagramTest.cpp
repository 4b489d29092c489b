#include "Datagram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>

namespace Kelvik {
namespace {

using Field = std::array<uint8_t, kDatagramBytes>;

Field FieldOf(std::initializer_list<uint8_t> bytes) {
  Field field = {};
  std::copy(bytes.begin(), bytes.end(), field.begin());
  return field;
}

struct tagCase {
  const char* m_Name;
  Field m_Field;
  int m_Received;
  eDatagram m_Kind;
  uint16_t m_Magic;
  uint16_t m_Length;
};

const tagCase kCases[] = {
    {"nothing received", FieldOf({}), 0, eDatagram::kNothing, 0, 0},
    {"one byte", FieldOf({0xF9}), 1, eDatagram::kTooShort, 0, 0},
    {"head alone", FieldOf({0xF9, 0x51, 0, 0}), 4, eDatagram::kTooShort, 0, 0},
    {"head that promises text", FieldOf({0xF9, 0x51, 0, 1}), 4, eDatagram::kTooShort, 0, 0},
    {"shortest command", FieldOf({0xF9, 0x51, 0, 1, 'x'}), 5, eDatagram::kCommand, 0xF951, 1},
    {"little-endian magic", FieldOf({0x51, 0xF9, 0, 1, 'x'}), 5, eDatagram::kBadMagic, 0x51F9, 1},
    {"other magic", FieldOf({0xF9, 0x50, 0, 1, 'x'}), 5, eDatagram::kBadMagic, 0xF950, 1},
    {"magic before length", FieldOf({0, 0, 0, 0, 'x'}), 5, eDatagram::kBadMagic, 0, 0},
    {"length 0", FieldOf({0xF9, 0x51, 0, 0, 'x'}), 5, eDatagram::kBadLength, 0xF951, 0},
    {"length too small", FieldOf({0xF9, 0x51, 0, 1, 'x', 'y'}), 6, eDatagram::kBadLength, 0xF951,
     1},
    {"length too large", FieldOf({0xF9, 0x51, 0, 3, 'x', 'y'}), 6, eDatagram::kBadLength, 0xF951,
     3},
    {"little-endian length", FieldOf({0xF9, 0x51, 1, 0, 'x'}), 5, eDatagram::kBadLength, 0xF951,
     256},
    {"largest length", FieldOf({0xF9, 0x51, 0xFF, 0xFF, 'x'}), 5, eDatagram::kBadLength, 0xF951,
     0xFFFF},
    {"longest command", FieldOf({0xF9, 0x51, 0x07, 0xFC, 'x'}), 2048, eDatagram::kCommand, 0xF951,
     2044},
    {"cut to the field", FieldOf({0xF9, 0x51, 0x07, 0xFD, 'x'}), 2048, eDatagram::kBadLength,
     0xF951, 2045},
    {"failed receive", FieldOf({}), -1, eDatagram::kBadMagic, 0, 0},
};

TEST(Datagram, IsJudgedByItsHeadAndSize) {
  for (const tagCase& row : kCases) {
    SCOPED_TRACE(row.m_Name);
    const tagDatagramCheck check = CheckDatagram(row.m_Field.data(), row.m_Received);
    EXPECT_EQ(check.m_Kind, row.m_Kind);
    EXPECT_EQ(check.m_Magic, row.m_Magic);
    EXPECT_EQ(check.m_Length, row.m_Length);
  }
}

TEST(Datagram, PackedBytesAreMagicLengthAndText) {
  Field field;
  field.fill(0xEE);
  const std::string text = "-leveldbg 1 net";
  ASSERT_EQ(PackDatagram(field.data(), text.data(), text.size()), 19u);
  const uint8_t head[] = {0xF9, 0x51, 0x00, 0x0F};
  EXPECT_TRUE(std::equal(std::begin(head), std::end(head), field.begin()));
  EXPECT_EQ(std::string(field.begin() + 4, field.begin() + 19), text);
  EXPECT_EQ(field[19], 0xEE);
}

TEST(Datagram, EveryLengthThatFitsIsPackedAsACommand) {
  const std::string text(kDatagramTextBytes, 'w');
  for (size_t length = 1; length <= kDatagramTextBytes; ++length) {
    Field field = {};
    const size_t size = PackDatagram(field.data(), text.data(), length);
    ASSERT_EQ(size, length + kDatagramHeadBytes);
    const tagDatagramCheck check = CheckDatagram(field.data(), static_cast<int>(size));
    ASSERT_EQ(check.m_Kind, eDatagram::kCommand) << length;
    ASSERT_EQ(check.m_Length, length);
  }
}

TEST(Datagram, EmptyAndOverlongTextsAreNotPacked) {
  const std::string text(kDatagramTextBytes + 1, 'w');
  for (const size_t length : {size_t{0}, text.size()}) {
    Field field;
    field.fill(0xEE);
    EXPECT_EQ(PackDatagram(field.data(), text.data(), length), 0u);
    EXPECT_TRUE(std::all_of(field.begin(), field.end(), [](uint8_t byte) { return byte == 0xEE; }));
  }
}

}  // namespace
}  // namespace Kelvik
