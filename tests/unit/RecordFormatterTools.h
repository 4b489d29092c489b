// A message formatted by FormatMessage beside the same one by the C library.
// RecordFormatterTools.cpp counts the library's calls, which the linker sends to it
// (CMakeLists.txt).

#ifndef KELVIK_RECORDFORMATTERTOOLS_H_
#define KELVIK_RECORDFORMATTERTOOLS_H_

#include <gtest/gtest.h>

#include <string>

// The formats are made up in these tests, so the compiler cannot see whether they fit.
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace Kelvik {

constexpr int kRoomMax = 1024;
constexpr char kJunk = '\x5a';

extern int g_LibraryCalls;  // of vsnprintf, by any of its names, since the last Here began

struct tagFormatted {
  std::string m_Text;
  int m_Length = 0;  // below 0: vsnprintf failed
  int m_Errno = 0;
};

tagFormatted ByLibrary(int room, const char* format, ...);
tagFormatted Here(int room, const char* format, ...);

// The two are the same; the room and the format explain a difference.
void ExpectEqual(const tagFormatted& here, const tagFormatted& library, int room,
                 const std::string& format);

// Returns whether the library was left out of it.
template <class... tagValues>
bool Compare(int room, const std::string& format, tagValues... values) {
  const tagFormatted library = ByLibrary(room, format.c_str(), values...);
  const tagFormatted here = Here(room, format.c_str(), values...);
  const bool isOwn = g_LibraryCalls == 0;
  ExpectEqual(here, library, room, format);
  return isOwn;
}

template <class... tagValues>
void ExpectDoneHere(const char* format, tagValues... values) {
  EXPECT_TRUE(Compare(kRoomMax, format, values...)) << format << " was left to the library";
}

template <class... tagValues>
void ExpectLeft(const char* format, tagValues... values) {
  EXPECT_FALSE(Compare(kRoomMax, format, values...)) << format << " was done here";
}

}  // namespace Kelvik

#endif  // KELVIK_RECORDFORMATTERTOOLS_H_
