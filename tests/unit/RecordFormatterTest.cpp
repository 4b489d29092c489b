// Which messages are formatted without the C library, and that they are byte for byte its own.

#include <fenv.h>
#include <gtest/gtest.h>
#include <langinfo.h>
#include <locale.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "RecordFormat.h"
#include "Rounds.h"
#include "TempDir.h"

namespace {
int g_LibraryCalls = 0;  // of vsnprintf, by any of its names
}

extern "C" {
const char* __asan_default_options();
const char* __tsan_default_options();

// The sanitizers abort on formats that the C library defines and they do not know.
const char* __asan_default_options() {
  return "check_printf=0";
}
const char* __tsan_default_options() {
  return "check_printf=0";
}

int __real_vsnprintf(char* field, size_t room, const char* format, va_list arguments);
int __wrap_vsnprintf(char* field, size_t room, const char* format, va_list arguments);
int __real___vsnprintf_chk(char* field, size_t room, int flag, size_t size, const char* format,
                           va_list arguments);
int __wrap___vsnprintf_chk(char* field, size_t room, int flag, size_t size, const char* format,
                           va_list arguments);

int __wrap_vsnprintf(char* field, size_t room, const char* format, va_list arguments) {
  ++g_LibraryCalls;
  return __real_vsnprintf(field, room, format, arguments);
}

int __wrap___vsnprintf_chk(char* field, size_t room, int flag, size_t size, const char* format,
                           va_list arguments) {
  ++g_LibraryCalls;
  return __real___vsnprintf_chk(field, room, flag, size, format, arguments);
}
}

namespace Kelvik {
namespace {

// The formats are made up here, so the compiler cannot see whether they fit.
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

constexpr int kRoomMax = 1024;
constexpr char kJunk = '\x5a';

struct tagFormatted {
  std::string m_Text;
  int m_Length = 0;  // below 0: vsnprintf failed
  int m_Errno = 0;
};

constexpr int kErrnoBefore = ENOTTY;

tagFormatted ByLibrary(int room, const char* format, ...) {
  char field[kRoomMax + 1] = {};
  va_list arguments;
  va_start(arguments, format);
  errno = kErrnoBefore;
  const int printed = __real_vsnprintf(field, static_cast<size_t>(room), format, arguments);
  const int errnoAfter = errno;
  va_end(arguments);
  field[room - 1] = '\0';
  return {field, printed, errnoAfter};
}

tagFormatted Here(int room, const char* format, ...) {
  char field[kRoomMax + 1];
  memset(field, kJunk, sizeof(field));
  va_list arguments;
  va_start(arguments, format);
  g_LibraryCalls = 0;
  errno = kErrnoBefore;
  const int length = FormatMessage(field, room, format, arguments);
  const int errnoAfter = errno;
  va_end(arguments);
  EXPECT_EQ(field[room], kJunk) << format;
  return {std::string(field, strnlen(field, static_cast<size_t>(room))), length, errnoAfter};
}

void ExpectEqual(const tagFormatted& here, const tagFormatted& library, int room,
                 const std::string& format) {
  if (here.m_Text == library.m_Text && here.m_Errno == library.m_Errno &&
      here.m_Length == static_cast<int>(here.m_Text.size())) {
    return;
  }
  ADD_FAILURE() << "format \"" << format << "\" room " << room << ": \"" << here.m_Text << "\" ("
                << here.m_Length << ", errno " << here.m_Errno << "), not \"" << library.m_Text
                << "\" (errno " << library.m_Errno << ")";
}

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

// An argument as it is passed. A long is an int or a long long.
using tagValue = std::variant<int, long long, const void*, double>;

// A format for four arguments, with the arguments.
class CGeneratedCase {
 public:
  explicit CGeneratedCase(std::mt19937_64& random, bool prefersReals = false)
      : m_Random(random), m_PrefersReals(prefersReals) {
    m_Room = Pick(4) == 0 ? 1 + Pick(100) : 1 + Pick(kRoomMax);
    const int conversions = Pick(5);
    for (int index = 0; index < conversions; ++index) {
      AddText();
      AddConversion();
    }
    AddText();
    while (m_Count < kValues)
      Add(0);
  }

  bool Run() const {
    return std::visit(
        [this](auto first, auto second, auto third, auto fourth) {
          return Compare(m_Room, m_Format, first, second, third, fourth);
        },
        m_Values[0], m_Values[1], m_Values[2], m_Values[3]);
  }

 private:
  static constexpr int kValues = 4;

  int Pick(int count) { return static_cast<int>(m_Random() % static_cast<unsigned>(count)); }

  void Add(tagValue value) { m_Values[m_Count++] = value; }

  void AddText() {
    const int length = Pick(3) == 0 ? Pick(40) : Pick(9);
    for (int index = 0; index < length; ++index) {
      const char byte = static_cast<char>(1 + Pick(255));
      m_Format += byte == '%' ? '$' : byte;
    }
    if (Pick(30) == 0) m_Format += "%%";
    if (Pick(300) == 0) m_Format += "%m";
    if (Pick(600) == 0) m_Format += "%5%";
  }

  uint64_t Number() {
    const uint64_t bits = m_Random() >> Pick(64);
    switch (Pick(4)) {
      case 0:
        return bits;
      case 1:
        return 0 - bits;
      case 2:
        return uint64_t{1} << Pick(64);
      default: {
        uint64_t power = 1;
        for (int digits = Pick(20); digits > 0; --digits)
          power *= 10;
        return power - static_cast<uint64_t>(Pick(2));
      }
    }
  }

  double Real() {
    static constexpr double kPowers[] = {1, 2, 4, 8, 10, 16, 100, 1000, 1024, 1e4, 65536, 1e6, 1e9};
    const auto number = static_cast<double>(static_cast<int64_t>(Number()));
    switch (Pick(4)) {
      case 0: {
        const uint64_t bits = m_Random();
        double real;
        memcpy(&real, &bits, sizeof(real));
        return real;
      }
      case 1:
        return static_cast<double>(Pick(2000) - 1000) / kPowers[Pick(13)];
      case 2:
        return std::ldexp(number, -Pick(70));
      default:
        return number / kPowers[Pick(13)];
    }
  }

  const char* Text() {
    static constexpr char kText[] =
        "a text of more than sixty bytes, from behind which any length can be taken";
    if (Pick(200) == 0) return nullptr;
    return kText +
           (Pick(3) == 0 ? Pick(sizeof(kText)) : static_cast<int>(sizeof(kText)) - 1 - Pick(12));
  }

  // A star takes an argument; the conversion needs one more.
  void AddCount(int most) {
    if (Pick(6) == 0 && m_Count + 2 <= kValues) {
      m_Format += '*';
      Add(Pick(500) == 0 ? Pick(40000) - 20000 : Pick(2 * most) - most);
    } else if (Pick(400) == 0) {
      m_Format += std::to_string(uint64_t{INT_MAX} + 1 + static_cast<unsigned>(Pick(4)));
    } else {
      m_Format += std::to_string(Pick(most));
    }
  }

  void AddConversion() {
    if (m_Count == kValues) return;
    m_Format += '%';
    if (Pick(2) == 0) {
      for (const char flag : {'-', '+', ' ', '#', '0', '0'}) {
        if (Pick(5) == 0) m_Format += flag;
      }
      if (Pick(500) == 0) m_Format += Pick(2) == 0 ? '\'' : 'I';
      if (Pick(2) == 0) AddCount(Pick(10) == 0 ? 300 : 25);
      if (Pick(3) == 0) {
        m_Format += '.';
        if (Pick(5) != 0) AddCount(Pick(10) == 0 ? 300 : 22);
      }
    }
    AddLetter();
  }

  void AddLetter() {
    const int kind = m_PrefersReals && Pick(3) != 0 ? 9 : Pick(10);
    if (kind < 6) {
      AddWhole();
    } else if (kind == 6) {
      m_Format += 's';
      Add(static_cast<const void*>(Text()));
    } else if (kind == 7) {
      m_Format += 'c';
      Add(Pick(20) == 0 ? 0 : Pick(256));
    } else if (kind == 8) {
      m_Format += 'p';
      Add(reinterpret_cast<const void*>(static_cast<uintptr_t>(Pick(20) == 0 ? 0 : Number())));
    } else {
      m_Format += Pick(10) == 0 ? "feEgGaAF"[Pick(8)] : 'f';
      Add(Real());
    }
  }

  void AddWhole() {
    static constexpr const char* kSizes[] = {"", "", "", "h", "hh", "l", "ll", "z", "t", "j"};
    const int size = Pick(10);
    m_Format += kSizes[size];
    m_Format += "diuxXo"[Pick(6)];
    const bool isLong = size == 6 || size == 9 || (size > 4 && sizeof(long) == sizeof(long long));
    if (isLong) {
      Add(static_cast<long long>(Number()));
    } else {
      Add(static_cast<int>(static_cast<uint32_t>(Number())));
    }
  }

  std::mt19937_64& m_Random;
  bool m_PrefersReals;
  std::string m_Format;
  tagValue m_Values[kValues];
  int m_Count = 0;
  int m_Room;
};

// Runs so many cases, and expects that a share of them was done here.
void RunGenerated(uint64_t seed, int cases, bool prefersReals, int leastPercentHere) {
  std::mt19937_64 random(seed);
  int here = 0;
  for (int index = 0; index < cases && !::testing::Test::HasFailure(); ++index) {
    if (CGeneratedCase(random, prefersReals).Run()) ++here;
  }
  ::testing::Test::RecordProperty("cases", cases);
  ::testing::Test::RecordProperty("done_here", here);
  EXPECT_GE(here, cases / 100 * leastPercentHere);
}

TEST(RecordFormatter, EqualsTheLibraryForGeneratedFormats) {
  RunGenerated(static_cast<uint64_t>(Rounds()), 40000 * Rounds(), false, 30);
}

TEST(RecordFormatter, EqualsTheLibraryInEveryRoundingMode) {
  const int before = fegetround();
  for (const int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    if (fesetround(mode) != 0) continue;
    RunGenerated(static_cast<uint64_t>(mode) + 7, 1000 * Rounds(), true, 10);
    fesetround(before);
  }
}

// A locale that is made here, of the system's sources, and in effect as long as this lives.
class CMadeLocale {
 public:
  explicit CMadeLocale(const char* source) {
    const std::string name = std::string(source) + ".UTF-8";
    const std::string command = "localedef -c -i " + std::string(source) + " -f UTF-8 " +
                                m_Folder.Path() + "/" + name + " >/dev/null 2>&1";
    // Warnings are a failure to localedef; whether the locale can be used is what counts.
    static_cast<void>(!std::system(command.c_str()));
    setenv("LOCPATH", m_Folder.Path().c_str(), 1);
    m_IsThere = setlocale(LC_ALL, name.c_str()) != nullptr;
    unsetenv("LOCPATH");
  }
  CMadeLocale(const CMadeLocale&) = delete;
  CMadeLocale& operator=(const CMadeLocale&) = delete;
  ~CMadeLocale() { setlocale(LC_ALL, "C"); }
  bool IsThere() const { return m_IsThere; }

 private:
  CTempDir m_Folder;
  bool m_IsThere;
};

TEST(RecordFormatter, EqualsTheLibraryUnderADecimalComma) {
  const CMadeLocale locale("de_DE");
  if (!locale.IsThere()) GTEST_SKIP() << "SKIPPED: no locale de_DE.UTF-8 can be made here";
  ASSERT_STREQ(nl_langinfo(RADIXCHAR), ",");
  EXPECT_EQ(Here(kRoomMax, "%.2f", 3.25).m_Text, "3,25");
  ExpectLeft("%'d", 1234567);
  RunGenerated(11, 2000 * Rounds(), true, 10);
}

TEST(RecordFormatter, EqualsTheLibraryUnderADecimalPointOfSeveralBytes) {
  const CMadeLocale locale("ps_AF");
  if (!locale.IsThere()) GTEST_SKIP() << "SKIPPED: no locale ps_AF.UTF-8 can be made here";
  ASSERT_GT(strlen(nl_langinfo(RADIXCHAR)), 1U);
  ExpectLeft("%.2f", 3.25);
  RunGenerated(12, 2000 * Rounds(), true, 5);
}

}  // namespace
}  // namespace Kelvik
