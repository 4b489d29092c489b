// Files that are meant to do harm: they load, and save, in a time that grows with their size only.

#include <gtest/gtest.h>
#include <time.h>

#include <sstream>
#include <string>

#include "IniTools.h"

namespace Kelvik {
namespace {

// Processor seconds of this thread.
double CpuSeconds() {
  struct timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::string Repeat(const std::string& text, std::size_t count) {
  std::string all;
  all.reserve(text.size() * count);
  for (std::size_t i = 0; i < count; ++i)
    all += text;
  return all;
}

std::string Numbered(const std::string& before, const std::string& after, int count) {
  std::string all;
  for (int i = 0; i < count; ++i)
    all += before + std::to_string(i) + after;
  return all;
}

// Quadratic work on any of these would take hours.
TEST(IniHostile, FilesLoadAndSaveInBoundedTime) {
  const std::string comments = Repeat(";\n", 200000);
  const struct {
    const char* m_What;
    std::string m_Bytes;
  } files[] = {
      {"10 MB line", "k=" + std::string(10000000, 'x')},
      {"10 MB name", "[" + std::string(10000000, 'x') + "]\n"},
      {"10 MB without any line end", std::string(10000000, '\xC3')},
      {"lone carriage returns", "x" + std::string(3000000, '\r') + "y=1\n"},
      {"carriage returns between keys", Repeat("k=1\r", 1000000)},
      {"NUL bytes", std::string(5000000, '\0')},
      {"blanks", std::string(5000000, ' ')},
      {"empty lines", std::string(1000000, '\n')},
      {"a million sections", Numbered("[s", "]\n", 1000000)},
      {"one section a million times", Repeat("[s]\n", 1000000)},
      {"two sections in turn", Repeat("[a]\n[b]\n", 500000)},
      {"comments wander from header to header",
       "[a]\nk=1\n[b]\nk=1\n\n" + comments + Repeat("[a]\n[b]\n", 200000)},
      {"comments that stay are looked at again and again",
       "[a]\nk=1\n" + comments + Repeat("[b]\n[a]\n", 200000)},
      {"comments wander between sections that grow",
       "[a]\nk=1\n[b]\nk=1\n\n" + comments +
           Numbered("[a]\n;\n[b]\nk", "=1\n[a]\n[b]\n;\n[a]\nk=1\n", 60000)},
      {"the same key a million times", Repeat("k=1\n", 1000000)},
      {"keys in falling order",
       [] {
         std::string all;
         for (int i = 300000; i > 0; --i)
           all += std::to_string(1000000 + i) + "=\n";
         return all;
       }()},
  };
  const CTempDir folder;
  const std::string path = folder.File("hostile.ini");
  const std::string copy = folder.File("copy.ini");
  for (const auto& file : files) {
    SCOPED_TRACE(file.m_What);
    ASSERT_TRUE(WriteFile(path, file.m_Bytes));
    const double start = CpuSeconds();
    {
      const xini_file_t doc(path);
      ASSERT_TRUE(doc.dump(copy));
    }
    const std::string saved = ReadFile(copy);
    {
      const xini_file_t doc(copy);
      ASSERT_TRUE(doc.dump(copy));
    }
    const double seconds = CpuSeconds() - start;
    EXPECT_TRUE(saved == ReadFile(copy));
    EXPECT_LT(seconds, 60.0);
  }
}

TEST(IniHostile, ManyKeysAreRemovedInBoundedTime) {
  std::istringstream lines(Numbered("k", "=1\n", 200000));
  xini_file_t doc("");
  doc << lines;
  const double start = CpuSeconds();
  for (int i = 0; i < 200000; ++i) {
    // From both ends to the middle.
    const int number = i % 2 == 0 ? i / 2 : 199999 - i / 2;
    ASSERT_TRUE(doc[""].key_remove("k" + std::to_string(number)));
  }
  EXPECT_LT(CpuSeconds() - start, 30.0);
  EXPECT_EQ("", Written(doc));
  doc.set_dirty(false);
}

}  // namespace
}  // namespace Kelvik
