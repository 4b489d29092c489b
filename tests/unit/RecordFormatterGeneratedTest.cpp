// Generated messages are byte for byte the C library's, in every rounding mode and locale.

#include <fenv.h>
#include <gtest/gtest.h>
#include <langinfo.h>
#include <locale.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <variant>

#include "RecordFormatterTools.h"
#include "Rounds.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

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
