#include "FileName.h"

#include <cstdio>
#include <cstring>

namespace Kelvik {
namespace {

constexpr size_t kLongestName = 32;  // characters that a slot keeps of a name
static_assert(kLongestName < kFileNameBytes, "the terminator has its place");

// Stores first + second; an empty path when they do not fit.
bool StorePath(char (&path)[kFilePathBytes], const char* first, size_t firstLength,
               const char* second, size_t secondLength) {
  path[0] = '\0';
  if (firstLength >= kFilePathBytes || secondLength >= kFilePathBytes - firstLength) return false;
  memcpy(path, first, firstLength);
  memcpy(path + firstLength, second, secondLength);
  path[firstLength + secondLength] = '\0';
  return true;
}

}  // namespace

void MakeFileName(char (&name)[kFileNameBytes], const tagAbsoluteTime& time) {
  const int length = snprintf(name, kLongestName + 1, "%04d%02d%02d%02d%02d%02d.log", time.m_Year,
                              time.m_Month, time.m_Day, time.m_Hour, time.m_Minute, time.m_Second);
  if (length < 0) name[0] = '\0';
}

void MakeNumberedFileName(char (&name)[kFileNameBytes], const tagAbsoluteTime& time, int slot) {
  const int length =
      snprintf(name, kLongestName + 1, "%04d%02d%02d%02d%02d%02d_%d.log", time.m_Year, time.m_Month,
               time.m_Day, time.m_Hour, time.m_Minute, time.m_Second, slot);
  if (length < 0) name[0] = '\0';
}

bool IsPath(const char* name) {
  return strchr(name, '/') != nullptr;
}

bool JoinPath(char (&path)[kFilePathBytes], const char* folder, const char* name) {
  return StorePath(path, folder, strnlen(folder, kLogPathBytes), name, strlen(name));
}

bool SlotPath(char (&path)[kFilePathBytes], const char* folder, const char* name) {
  if (IsPath(name)) return StorePath(path, "", 0, name, strlen(name));
  return JoinPath(path, folder, name);
}

const char* BareName(const char* name) {
  const char* const slash = strrchr(name, '/');
  return slash == nullptr ? name : slash + 1;
}

}  // namespace Kelvik
