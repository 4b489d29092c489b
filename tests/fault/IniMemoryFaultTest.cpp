// Memory runs out at every allocation of loading, changing and saving an INI document: nothing is
// lost, torn or leaked (the address sanitizer looks for that), and no exception leaves a
// destructor.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "../unit/IniCollisions.h"
#include "FailingNew.h"
#include "FileTools.h"
#include "IniFile.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

// Names and values are too long for a string's own room, so each one needs memory.
const std::string kLong = "_that_is_longer_than_a_short_string";
const std::string kFile = "\xEF\xBB\xBF; preamble\n\n[first" + kLong + "]\nkey" + kLong + "=value" +
                          kLong + "\n\n; about" + kLong + "\n[second" + kLong + "]\nother" + kLong +
                          "=1\n\n; wanders" + kLong + "\n[FIRST" + kLong + "]\nthird" + kLong +
                          "=1\n[" + kLong + "\rlast=1\n";
constexpr int kSteps = 6;

// The changes one by one; each is a change of its own in the file.
void Change(xini_file_t& doc, int step) {
  xini_section_t& first = doc["first" + kLong];
  switch (step) {
    case 1:
      first["key" + kLong] = ("new value" + kLong).c_str();
      break;
    case 2:
      doc["new section" + kLong]["new key" + kLong].set_nvalue<int>(7);
      break;
    case 3:
      first.key_remove("third" + kLong);
      break;
    case 4:
      first.rename_nsub(&first["key" + kLong], "renamed key" + kLong);
      break;
    case 5:
      doc.rename_nsub(doc.find_sect("second" + kLong), "renamed section" + kLong);
      break;
    default: {
      std::istringstream lines("; appended" + kLong + "\n[appended" + kLong + "]\n");
      doc << lines;
      break;
    }
  }
}

class IniMemoryFault : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (access("/dev/shm", W_OK | X_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
  }

  std::string Path() const { return m_Folder.File("app.ini"); }

  CTempDir m_Folder;
};

// A whole document: it holds the lines that no change touches, and saving it again changes nothing.
bool IsWhole(const std::string& bytes, const std::string& path) {
  for (const char* line : {"\xEF\xBB\xBF; preamble\n", "; about", "; wanders", "other", "=1\n"}) {
    if (bytes.find(line) == std::string::npos) return false;
  }
  if (bytes.find("\nlast=1\n") == std::string::npos) return false;
  const xini_file_t doc(path);
  return doc.dump(path) && ReadFile(path) == bytes;
}

TEST_F(IniMemoryFault, FileIsWholeWhereverMemoryRunsOut) {
  const std::string path = Path();
  int untouched = 0;
  int changed = 0;
  for (int nth = 1;; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth));
    ASSERT_TRUE(WriteFile(path, kFile));
    bool isThrown = false;
    FailNew(nth);
    try {
      xini_file_t doc(path);
      for (int step = 1; step <= kSteps; ++step)
        Change(doc, step);
    } catch (const std::bad_alloc&) {
      isThrown = true;
    }
    const bool hasFailed = StopFailingNew();
    const std::string bytes = ReadFile(path);
    if (bytes == kFile) {
      ++untouched;
    } else {
      ++changed;
      ASSERT_TRUE(IsWhole(bytes, path)) << bytes;
    }
    ASSERT_TRUE(hasFailed || !isThrown);
    if (!hasFailed) break;
  }
  EXPECT_GT(untouched, 20);
  EXPECT_GT(changed, 20);
}

// The steps that need memory to be done leave the document as it was, or are done.
TEST_F(IniMemoryFault, EachChangeIsDoneOrNot) {
  for (int step = 1; step <= kSteps; ++step) {
    bool hasFailed = true;
    for (int nth = 1; hasFailed; ++nth) {
      SCOPED_TRACE("step " + std::to_string(step) + ", allocation " + std::to_string(nth));
      ASSERT_TRUE(WriteFile(Path(), kFile));
      xini_file_t doc(Path());
      FailNew(nth);
      try {
        Change(doc, step);
      } catch (const std::bad_alloc&) {
      }
      hasFailed = StopFailingNew();
      // Whatever was done, the step can be done again, and names and lines still agree.
      Change(doc, step);
      EXPECT_NE(nullptr, doc.find_sect("first" + kLong));
      doc.release();
      ASSERT_TRUE(IsWhole(ReadFile(Path()), Path())) << ReadFile(Path());
    }
  }
}

// Names of one hash: at some of them the table grows, and at one it gives up. Each name is taken in
// or refused, and the others stay.
TEST_F(IniMemoryFault, NameIsEnteredOrNot) {
  const std::vector<std::string> names = CollidingNames(10);
  ASSERT_EQ(1024u, names.size());
  xini_section_t section(nullptr);
  int refused = 0;
  for (std::size_t i = 0; i + 1 < names.size(); ++i) {
    SCOPED_TRACE(i);
    std::unique_ptr<xini_keyvalue_t> key(xini_keyvalue_t::try_create(names[i] + "=", nullptr));
    for (int nth = 1; key != nullptr; ++nth) {
      FailNew(nth);
      try {
        if (section.push_node(key.get())) key.release();
      } catch (const std::bad_alloc&) {
        ++refused;
      }
      StopFailingNew();
      ASSERT_EQ(key == nullptr, section.find_knode(names[i]) != nullptr);
    }
    ASSERT_NE(nullptr, section.find_knode(names[i / 2]));
    // The newest key gets the next name and its own one back.
    xini_keyvalue_t* const newest = section.find_knode(names[i]);
    for (const std::string& name : {names[i + 1], names[i]}) {
      bool isRenamed = false;
      for (int nth = 1; !isRenamed; ++nth) {
        FailNew(nth);
        try {
          isRenamed = section.rename_nsub(newest, name);
        } catch (const std::bad_alloc&) {
          ++refused;
        }
        StopFailingNew();
        ASSERT_EQ(newest, section.find_knode(newest->kname()));
      }
      ASSERT_EQ(name, newest->kname());
    }
  }
  EXPECT_GT(refused, 2000);
  for (std::size_t i = 0; i + 1 < names.size(); ++i)
    ASSERT_NE(nullptr, section.find_knode(names[i]));
}

// A removed key leaves a comment block that a new header takes along.
TEST_F(IniMemoryFault, HeaderBehindARemovedKeyIsEnteredOrNot) {
  bool hasFailed = true;
  for (int nth = 1; hasFailed; ++nth) {
    SCOPED_TRACE(nth);
    std::istringstream before("[a]\n; b" + kLong + "\n\n; c\n\nk=1\n");
    std::istringstream header("[new section" + kLong + "]\n");
    xini_file_t doc("");
    doc << before;
    ASSERT_TRUE(doc["a"].key_remove("k"));
    FailNew(nth);
    try {
      doc << header;
    } catch (const std::bad_alloc&) {
    }
    hasFailed = StopFailingNew();
    doc["new section" + kLong]["x"] = "1";
    doc.set_dirty(false);
  }
}

}  // namespace
}  // namespace Kelvik
