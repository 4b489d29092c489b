// The fields of the settings record and of the broken-down time stay where programs find them.
#include "Attribute.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

namespace Kelvik {
namespace {

struct tagPlace {
  const char* m_Name;
  size_t m_Offset;
  size_t m_Bytes;
};

#define KELVIK_PLACE(type, member)                        \
  tagPlace {                                              \
#member, offsetof(type, member), sizeof(type::member) \
  }

constexpr tagPlace kAttributePlaces[] = {
    KELVIK_PLACE(tagAttribute, m_OutputConsole),  KELVIK_PLACE(tagAttribute, m_OutputSystem),
    KELVIK_PLACE(tagAttribute, m_OutputFile),     KELVIK_PLACE(tagAttribute, m_OutputDateTime),
    KELVIK_PLACE(tagAttribute, m_OutputThreadID), KELVIK_PLACE(tagAttribute, m_OutputLocation),
    KELVIK_PLACE(tagAttribute, m_LevelMask),      KELVIK_PLACE(tagAttribute, m_LogPath),
    KELVIK_PLACE(tagAttribute, m_LogMaxSize),     KELVIK_PLACE(tagAttribute, m_LogMaxDuration),
    KELVIK_PLACE(tagAttribute, m_LogMaxCount),    KELVIK_PLACE(tagAttribute, m_BufferSize),
    KELVIK_PLACE(tagAttribute, m_WriteInterval),
};

constexpr tagPlace kTimePlaces[] = {
    KELVIK_PLACE(tagAbsoluteTime, m_Year),     KELVIK_PLACE(tagAbsoluteTime, m_Month),
    KELVIK_PLACE(tagAbsoluteTime, m_Reserved), KELVIK_PLACE(tagAbsoluteTime, m_Day),
    KELVIK_PLACE(tagAbsoluteTime, m_Hour),     KELVIK_PLACE(tagAbsoluteTime, m_Minute),
    KELVIK_PLACE(tagAbsoluteTime, m_Second),   KELVIK_PLACE(tagAbsoluteTime, m_Millisecond),
};

#undef KELVIK_PLACE

TEST(Attribute, FieldsFollowEachOtherWithoutGaps) {
  constexpr size_t kBytes[] = {1, 1, 1, 1, 1, 1, 1, 256, 4, 4, 4, 4, 4};
  size_t offset = 0;
  size_t index = 0;
  for (const tagPlace& place : kAttributePlaces) {
    EXPECT_EQ(place.m_Offset, offset) << place.m_Name;
    EXPECT_EQ(place.m_Bytes, kBytes[index]) << place.m_Name;
    offset += kBytes[index++];
  }
  EXPECT_EQ(sizeof(tagAttribute), offset);
}

TEST(Attribute, ALogPathThatFillsItsFieldLeavesTheNeighboursAlone) {
  tagAttribute attribute = {};
  attribute.m_LevelMask = 0x30;
  const uint32_t size = 1048576;
  memcpy(&attribute.m_LogMaxSize, &size, sizeof(size));
  const std::string path(kLogPathBytes, 'p');
  memcpy(attribute.m_LogPath, path.data(), path.size());

  uint32_t sizeAfter = 0;
  memcpy(&sizeAfter, &attribute.m_LogMaxSize, sizeof(sizeAfter));
  EXPECT_EQ(sizeAfter, size);
  EXPECT_EQ(attribute.m_LevelMask, 0x30);
}

TEST(Attribute, IsCopiedAsPlainBytes) {
  EXPECT_TRUE(std::is_trivially_copyable<tagAttribute>::value);
  EXPECT_TRUE(std::is_standard_layout<tagAttribute>::value);
  EXPECT_EQ(alignof(tagAttribute), 1U);
}

TEST(AbsoluteTime, IsEightFieldsOfSixteenBitsInOrder) {
  size_t offset = 0;
  for (const tagPlace& place : kTimePlaces) {
    EXPECT_EQ(place.m_Offset, offset) << place.m_Name;
    EXPECT_EQ(place.m_Bytes, 2U) << place.m_Name;
    offset += 2;
  }
  EXPECT_EQ(sizeof(tagAbsoluteTime), offset);
}

}  // namespace
}  // namespace Kelvik
