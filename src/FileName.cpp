#include "FileName.h"

#include <cstdio>
#include <cstring>

namespace Kelvik {
namespace {

constexpr size_t kLongestName = 32;                 // characters that a slot keeps of a name
constexpr size_t kWholeNameBytes = 6 * 5 + 16 + 1;  // six 16-bit numbers, "_-2147483648.log"
static_assert(kLongestName < kFileNameBytes, "the terminator has its place");
static_assert(kLogPathBytes < kFilePathBytes, "a folder leaves room for a name");

// Stores first, which fits, + second; an empty path when they do not fit together.
bool StorePath(char (&path)[kFilePathBytes], const char* first, size_t firstLength,
               const char* second, size_t secondLength) {
  path[0] = '\0';
  if (secondLength >= kFilePathBytes - firstLength) return false;
  memcpy(path, first, firstLength);
  memcpy(path + firstLength, second, secondLength);
  path[firstLength + secondLength] = '\0';
  return true;
}

void StoreName(char (&name)[kFileNameBytes], const char* whole) {
  const size_t length = strnlen(whole, kLongestName);
  memcpy(name, whole, length);
  name[length] = '\0';
}

}  // namespace

void MakeFileName(char (&name)[kFileNameBytes], const tagAbsoluteTime& time) {
  char whole[kWholeNameBytes];
  snprintf(whole, sizeof(whole), "%04d%02d%02d%02d%02d%02d.log", time.m_Year, time.m_Month,
           time.m_Day, time.m_Hour, time.m_Minute, time.m_Second);
  StoreName(name, whole);
}

void MakeNumberedFileName(char (&name)[kFileNameBytes], const tagAbsoluteTime& time, int slot) {
  char whole[kWholeNameBytes];
  snprintf(whole, sizeof(whole), "%04d%02d%02d%02d%02d%02d_%d.log", time.m_Year, time.m_Month,
           time.m_Day, time.m_Hour, time.m_Minute, time.m_Second, slot);
  StoreName(name, whole);
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

bool EndsInName(const char* path, const char* name) {
  const size_t pathLength = strlen(path);
  const size_t nameLength = strlen(name);
  return pathLength >= nameLength && strcmp(path + (pathLength - nameLength), name) == 0;
}

}  // namespace Kelvik
