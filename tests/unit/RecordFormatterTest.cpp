// Which messages are formatted without the C library, and that nothing beyond a field or a format
// is touched.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "RecordFormat.h"
#include "RecordFormatterTools.h"

namespace Kelvik {
namespace {

TEST(RecordFormatter, DoesWhatLogLinesAreMadeOf) {
  ExpectDoneHere("");
  ExpectDoneHere("\n");
  ExpectDoneHere("state changed to connected\n");
  ExpectDoneHere("packet %d from %s len %u\n", 12345, "10.0.0.1", 1500U);
  ExpectDoneHere("%d%%", 100);
  ExpectDoneHere("%i %x %X %o %c|", -7, 48879U, 48879U, 8U, 'c');
  ExpectDoneHere("%ld %lu %lld %llu %zu", LONG_MIN, ULONG_MAX, LLONG_MIN, ULLONG_MAX, SIZE_MAX);
  ExpectDoneHere("%hhd %hhu %hd %hu %jd %td %zd", -1, 511, -1, 65537, intmax_t{-1}, ptrdiff_t{-2},
                 ssize_t{-3});
  ExpectDoneHere("%5d|%-5d|%05d|%+d|% d|%.3d|%+.0d", 42, 42, -42, 42, 42, 7, 0);
  ExpectDoneHere("%#x %#X %#o %#x %#o %#.0o %08lx", 255, 255, 8, 0, 0, 0, 48879L);
  ExpectDoneHere("%8s|%-8s|%.2s|%8.3s|%3c|%-3c|", "text", "text", "text", "text", 'c', 'c');
  ExpectDoneHere("%*d|%*d|%.*d|%.*s|%-*s|", 6, 1, -6, 2, 3, 4, -1, "whole", 7, "left");
  unsigned long long power = 1;
  for (int digits = 0; digits <= 19; ++digits, power *= 10) {
    ExpectDoneHere("%d %u %lld %lld %llu %llu", static_cast<int>(power),
                   static_cast<unsigned>(power), static_cast<long long>(power - 1),
                   static_cast<long long>(0 - power), power, power + 1);
  }
}

TEST(RecordFormatter, DoesWhatOneKnownLibraryDefines) {
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  int local = 0;
  ExpectDoneHere("%p|%20p|%-20p|", static_cast<void*>(&local), &local, &local);
  ExpectDoneHere("%f %.0f %.3f %8.2f|%-8.2f|%08.2f|%+.1f|% .1f", 3.25, 2.5, -0.0625, 3.14159, 2.0,
                 -2.0, 1.0, 1.0);
  ExpectDoneHere("%.0f %.0f %.0f %.1f %.2f %.1f", 0.5, 1.5, 2.5, 0.25, 0.125, 9.95);
  ExpectDoneHere("%f %f %.20f %lf %F", 0.0, -0.0, 0.1, 1e19, 18446744073709549568.0);
#else
  GTEST_SKIP() << "SKIPPED: not the C library whose %p and %f are done here";
#endif
}

TEST(RecordFormatter, LeavesTheRestToTheLibrary) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const char* const null = nullptr;
  for (const char* const format : {"%s", "%.3s", "%10s", "%p", "%20p"})
    ExpectLeft(format, null);
  for (const char* const format : {"%c",
                                   "%5c",
                                   "%m",
                                   "%lc",
                                   "%'d",
                                   "%I32d",
                                   "%5%",
                                   "%y",
                                   "%",
                                   "a%",
                                   "%5",
                                   "%-",
                                   "%.",
                                   "%l",
                                   "%ll",
                                   "%h",
                                   "%#d",
                                   "%05c",
                                   "%qd",
                                   "%Ld",
                                   "%1$d",
                                   "%2147483648d",
                                   "%.2147483648d",
                                   "%99999999999d",
                                   "%99999d",
                                   "%.99999d",
                                   "% u",
                                   "%+x"}) {
    ExpectLeft(format, 0);
  }
  for (const char* const format : {"%a", "%e", "%g", "%E", "%G", "%A", "%#.0f", "%.21f", "%'f"}) {
    ExpectLeft(format, 1.5);
  }
  for (const double value : {kInfinity, -kInfinity, std::nan(""), 1e20, 1e-40, 1e-300, 4e-324}) {
    ExpectLeft("%f", value);
  }
  ExpectLeft("%Lf", 1.5L);
  EXPECT_EQ(Here(kRoomMax, nullptr).m_Length, 0);
  ExpectLeft("%ls", L"wide");
  for (const int count : {kRoomMax, -kRoomMax, 99999, -99999})
    ExpectLeft("%*d", count, 1);
  ExpectLeft("%.*d", 99999, 1);
  int stored = 0;
  // In a literal: the hardened library takes %n from nowhere else.
  EXPECT_EQ(Here(kRoomMax, "four%n", &stored).m_Text, "four");
  EXPECT_EQ(g_LibraryCalls, 1);
  EXPECT_EQ(stored, 4);
}

TEST(RecordFormatter, LeavesWhatDoesNotFit) {
  const std::string text(kRoomMax - 1, 't');
  EXPECT_FALSE(Compare(kRoomMax, text + "t"));
  EXPECT_FALSE(Compare(kRoomMax, "%st", text.c_str()));
  EXPECT_FALSE(Compare(kRoomMax, "%*d", kRoomMax, 1));
  for (int room = 1; room <= 80; ++room) {
    for (int length = 0; length <= 80; ++length) {
      const std::string part(static_cast<size_t>(length), 'x');
      Compare(room, part);
      Compare(room, part + "%d", INT_MIN);
      Compare(room, "%s", part.c_str());
      Compare(room, part + "%lld|%s", LLONG_MIN, part.c_str());
      Compare(room, "%*d%.*d", length, 7, length, 8);
    }
  }
}

// The two ends of a page behind which nothing may be touched.
class CPageEnd {
 public:
  CPageEnd() : m_PageBytes(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
    void* const pages =
        mmap(nullptr, 2 * m_PageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) std::abort();
    m_End = static_cast<char*>(pages) + m_PageBytes;
    if (mprotect(m_End, m_PageBytes, PROT_NONE) != 0) std::abort();
  }
  CPageEnd(const CPageEnd&) = delete;
  CPageEnd& operator=(const CPageEnd&) = delete;
  ~CPageEnd() { munmap(m_End - m_PageBytes, 2 * m_PageBytes); }

  // The bytes as the page's last.
  char* Put(const std::string& bytes) {
    memcpy(m_End - bytes.size(), bytes.data(), bytes.size());
    return m_End - bytes.size();
  }

 private:
  size_t m_PageBytes;
  char* m_End;
};

int FormatInto(char* field, int room, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = FormatMessage(field, room, format, arguments);
  va_end(arguments);
  return length;
}

TEST(RecordFormatter, ReadsAndWritesNothingBeyondTheEnds) {
  CPageEnd formatPage;
  CPageEnd textPage;
  CPageEnd fieldPage;
  for (size_t length = 0; length < 70; ++length) {
    const std::string part(length, 'y');
    // No NUL stands behind the text: the precision ends it.
    const char* const text = textPage.Put(part);
    const std::string format = part + "%.*s|%d";
    const std::string expected = part + part + "|-5";
    const char* const formatAtEnd = formatPage.Put(std::string(format.c_str(), format.size() + 1));
    const size_t room = expected.size() + 1;
    char* const field = fieldPage.Put(std::string(room, kJunk));
    EXPECT_EQ(
        FormatInto(field, static_cast<int>(room), formatAtEnd, static_cast<int>(length), text, -5),
        static_cast<int>(expected.size()));
    EXPECT_EQ(field, expected);
    char wide[kRoomMax];
    FormatInto(wide, kRoomMax, formatAtEnd, static_cast<int>(length), text, -5);
    EXPECT_EQ(wide, expected);
  }
}

TEST(RecordFormatter, ReadsNothingBehindAFormatThatEndsEarly) {
  CPageEnd page;
  for (const char* const rest : {"%", "%5", "%-", "%.", "%.5", "%h", "%hh", "%l", "%ll", "%z"}) {
    for (const char* const text : {"", "text", "a longer text"}) {
      const std::string format = std::string(text) + rest;
      const char* const atEnd = page.Put(std::string(format.c_str(), format.size() + 1));
      ExpectEqual(Here(kRoomMax, atEnd, 1), ByLibrary(kRoomMax, atEnd, 1), kRoomMax, format);
      EXPECT_EQ(g_LibraryCalls, 2) << format;  // it fails, and what it stored is shown
    }
  }
}

}  // namespace
}  // namespace Kelvik
