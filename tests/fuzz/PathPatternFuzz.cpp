// A log path of any bytes, expanded: it stays in its field, and equals what printf makes of the
// same path after every '%' that starts no accepted conversion was doubled.
//
// Input: room (2 bytes), seven values (2 bytes each), the pattern.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzBytes.h"
#include "PathPattern.h"

namespace Kelvik {
namespace {

constexpr size_t kMostRoom = 600;
constexpr unsigned long kMostCount = 2 * kMostRoom;  // more blanks than any field here can take

tagAbsoluteTime ReadTime(CFuzzBytes& bytes) {
  tagAbsoluteTime time = {};
  for (uint16_t* const field : {&time.m_Year, &time.m_Month, &time.m_Day, &time.m_Hour,
                                &time.m_Minute, &time.m_Second, &time.m_Millisecond}) {
    *field = static_cast<uint16_t>(bytes.Number(2));
  }
  return time;
}

unsigned long ReadCount(const char*& at) {
  const size_t length = strspn(at, "0123456789");
  const unsigned long count = length == 0 ? 0 : strtoul(at, nullptr, 10);
  at += length;
  return std::min<unsigned long>(count, INT_MAX);
}

// Appends the conversion behind a '%' and returns its length, or 0 when it is none. printf refuses
// counts that fill gigabytes; smaller ones stand for them here, that leave as many blanks and zeros
// as any field takes.
size_t CopyConversion(const char* from, std::string& format) {
  const char* at = from + strspn(from, "-+ #0");
  std::string conversion(from, at);
  const bool hasWidth = isdigit(static_cast<unsigned char>(*at)) != 0;
  unsigned long width = ReadCount(at);
  const bool hasPrecision = *at == '.';
  if (hasPrecision) ++at;
  const unsigned long precision = hasPrecision ? ReadCount(at) : 0;
  if (*at == '\0' || strchr("diuxXoc", *at) == nullptr) return 0;

  const unsigned long zeros = std::min(precision, kMostCount);
  const unsigned long blanks = *at == 'c' ? width : width - std::min(width, precision);
  width = std::min(blanks, kMostCount) + (blanks == width ? 0 : zeros);
  if (hasWidth) conversion += std::to_string(width);
  if (hasPrecision) conversion += "." + std::to_string(zeros);
  format += "%" + conversion + *at;
  return static_cast<size_t>(at + 1 - from);
}

std::string PrintfFormat(const std::string& pattern) {
  std::string format;
  int taken = 0;
  for (const char* at = pattern.c_str(); *at != '\0';) {
    if (*at != '%') {
      format += *at++;
      continue;
    }
    ++at;
    if (*at == '%') {
      format += "%%";
      ++at;
      continue;
    }
    const size_t length = taken < 7 ? CopyConversion(at, format) : 0;
    if (length == 0) format += "%%";
    if (length != 0) ++taken;
    at += length;
  }
  return format;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string Printed(const std::string& pattern, const tagAbsoluteTime& time, size_t room) {
  std::vector<char> text(room, '\0');
  snprintf(text.data(), room, PrintfFormat(pattern).c_str(), int{time.m_Year}, int{time.m_Month},
           int{time.m_Day}, int{time.m_Hour}, int{time.m_Minute}, int{time.m_Second},
           int{time.m_Millisecond});
  return text.data();
}
#pragma GCC diagnostic pop

void ExpandAny(CFuzzBytes bytes) {
  const size_t room = 1 + static_cast<size_t>(bytes.Number(2)) % kMostRoom;
  const tagAbsoluteTime time = ReadTime(bytes);
  std::string pattern = bytes.Rest().substr(0, static_cast<size_t>(kLogPathBytes));
  std::vector<char> field(pattern.begin(), pattern.end());
  if (field.size() < static_cast<size_t>(kLogPathBytes)) field.push_back('\0');
  pattern = pattern.c_str();

  std::vector<char> text(room, '\x5a');
  const int length = ExpandPathPattern(text.data(), room, field.data(), time);
  FuzzRequire(length >= 0 && static_cast<size_t>(length) < room, "the length is below the room");
  FuzzRequire(strnlen(text.data(), room) == static_cast<size_t>(length), "the text ends there");
  FuzzRequire(Printed(pattern, time, room) == text.data(), "the text is printf's");
}

}  // namespace
}  // namespace Kelvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Kelvik::ExpandAny(Kelvik::CFuzzBytes(data, size));
  return 0;
}
