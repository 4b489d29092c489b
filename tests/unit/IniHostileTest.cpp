// Files that are meant to do harm: they load, and save, in a time that grows with their size only.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "IniCollisions.h"
#include "IniTools.h"
#include "ThreadClock.h"

namespace Kelvik {
namespace {

// The sanitizers and the emulator take ten times as long: they get a tenth of the sizes. What is
// quadratic still takes longer than the limits there.
#ifdef KELVIK_SLOW_BUILD
constexpr int kScale = 10;
#else
constexpr int kScale = 1;
#endif

// All counts below are those of the full size.
std::string Repeat(const std::string& text, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count / kScale; ++i)
    all += text;
  return all;
}

std::string Numbered(const std::string& before, const std::string& after, int count) {
  std::string all;
  for (int i = 0; i < count / kScale; ++i)
    all += before + std::to_string(i) + after;
  return all;
}

std::string FallingKeys(int count) {
  std::string all;
  for (int i = count / kScale; i > 0; --i)
    all += std::to_string(1000000 + i) + "=\n";
  return all;
}

// Keys, or sections, that the table of names cannot hold.
std::string Colliding(const std::string& before, const std::string& after) {
  static const std::vector<std::string> names = CollidingNames(kScale == 1 ? 17 : 10);
  std::string all;
  for (const std::string& name : names)
    all += before + name + after;
  return all;
}

// Quadratic work on any of these would take hours.
TEST(IniHostile, FilesLoadAndSaveInBoundedTime) {
  const std::string comments = Repeat(";\n", 200000);
  const struct {
    const char* m_What;
    std::string m_Bytes;
  } files[] = {
      {"10 MB line", "k=" + Repeat("x", 10000000)},
      {"10 MB name", "[" + Repeat("x", 10000000) + "]\n"},
      {"10 MB without any line end", Repeat("\xC3", 10000000)},
      {"lone carriage returns", "x" + Repeat("\r", 3000000) + "y=1\n"},
      {"carriage returns between keys", Repeat("k=1\r", 1000000)},
      {"NUL bytes", Repeat(std::string(1, '\0'), 5000000)},
      {"blanks", Repeat(" ", 5000000)},
      {"empty lines", Repeat("\n", 1000000)},
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
      {"keys in falling order", FallingKeys(300000)},
      {"keys of one hash", Colliding("", "=1\n")},
      {"sections of one hash", Colliding("[", "]\n")},
  };
  const CTempDir folder;
  const std::string path = folder.File("hostile.ini");
  const std::string copy = folder.File("copy.ini");
  for (const auto& file : files) {
    SCOPED_TRACE(file.m_What);
    ASSERT_TRUE(WriteFile(path, file.m_Bytes));
    const double start = ThreadSeconds();
    {
      const xini_file_t doc(path);
      ASSERT_TRUE(doc.dump(copy));
    }
    const std::string saved = ReadFile(copy);
    {
      const xini_file_t doc(copy);
      ASSERT_TRUE(doc.dump(copy));
    }
    const double seconds = ThreadSeconds() - start;
    EXPECT_TRUE(saved == ReadFile(copy));
    EXPECT_LT(seconds, 60.0);
  }
}

TEST(IniHostile, ManyKeysAreRemovedInBoundedTime) {
  constexpr int kKeys = 200000 / kScale;
  std::istringstream lines(Numbered("k", "=1\n", 200000));
  xini_file_t doc("");
  doc << lines;
  const double start = ThreadSeconds();
  for (int i = 0; i < kKeys; ++i) {
    // From both ends to the middle.
    const int number = i % 2 == 0 ? i / 2 : kKeys - 1 - i / 2;
    ASSERT_TRUE(doc[""].key_remove("k" + std::to_string(number)));
  }
  EXPECT_LT(ThreadSeconds() - start, 30.0);
  EXPECT_EQ("", Written(doc));
  doc.set_dirty(false);
}

}  // namespace
}  // namespace Kelvik
