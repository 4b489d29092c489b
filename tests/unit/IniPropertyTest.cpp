// Generated INI documents: what is saved stays the same from the first save on, and everything that
// can be seen of a document is what a plain model says.

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "IniModel.h"
#include "IniTools.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

// The sanitizers and the emulator, which take several times as long, see the first of them.
#ifdef KELVIK_SLOW_BUILD
constexpr int kDocumentsPerRound = 20;
#else
constexpr int kDocumentsPerRound = 200;
#endif

// Pieces that meet each other in all ways: the same names in other case, blanks, brackets, signs of
// other kinds, lone carriage returns, NUL and foreign bytes.
const std::vector<std::string> kLines = {"",           "",           "",           " ",
                                         "; c",        "# d",        ";",          "  ; in",
                                         "[a]",        "[A]",        "[b]",        "[ b ] x",
                                         "[]",         "[c]d]",      "[[c]",       "[a b]",
                                         "[open",      "[]]",        "k=1",        "K=2",
                                         "l = a=b",    " m=;#[x]",   "[n=5",       "[n]=5",
                                         "=v",         "garbage",    "a;b=1",      "o=",
                                         "\rk=1\r",    "p=1\rq=2",   "\r\r",       "; c\r[b]\rk=3",
                                         "x\ry=1",     "\xC3\xA4=1", "[\xC3\xA4]", "\xFF",
                                         "k\xFF=\x80", "[\xC3\x84]", "=",          "k l = m n",
                                         "\tk=9\v",    "[ ]"};

class CGenerator {
 public:
  explicit CGenerator(unsigned seed) : m_Engine(seed) {}

  // 0 to limit - 1.
  std::size_t Number(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(m_Engine);
  }

  std::string Lines(std::size_t most) {
    std::string text;
    const std::size_t count = Number(most + 1);
    for (std::size_t i = 0; i < count; ++i) {
      text += Number(20) == 0 ? Noise() : kLines[Number(kLines.size())];
      const std::size_t end = Number(12);
      text += end == 0 ? "\r\n" : end == 1 ? "\r" : "\n";
    }
    if (Number(3) == 0) text += kLines[Number(kLines.size())];
    return text;
  }

  std::string File() {
    const std::size_t head = Number(8);
    return (head == 0 ? "\xEF\xBB\xBF" : head == 1 ? Noise() : "") + Lines(25);
  }

 private:
  std::string Noise() {
    static const std::string kSigns("[]=;#\r\n\0 ak\xEF", 12);
    std::string text;
    for (std::size_t left = Number(12); left > 0; --left) {
      const bool isAnyByte = Number(3) == 0;
      text += isAnyByte ? static_cast<char>(Number(256)) : kSigns[Number(kSigns.size())];
    }
    return text;
  }

  std::mt19937 m_Engine;
};

void ExpectSameLookups(const CIniModel& model, const xini_file_t& doc) {
  for (const char* section : {"", "a", "B", "c", "[c", "a b", "n", "\xC3\xA4", "absent", " "}) {
    const xini_section_t* found = doc.find_sect(section);
    ASSERT_EQ(model.HasSection(section), found != nullptr) << section;
    if (found == nullptr) continue;
    for (const char* key : {"k", "L", "m", "[n", "o", "p", "q", "y", "k l", "\xC3\xA4", "absent"}) {
      const std::string* value = model.Find(section, key);
      const xini_keyvalue_t* node = found->find_knode(key);
      ASSERT_EQ(value != nullptr, node != nullptr) << section << "/" << key;
      if (node != nullptr) {
        ASSERT_EQ(Visible(*value), Visible(node->value()));
      }
    }
  }
  for (const auto& name : model.Names()) {
    const xini_section_t* section = doc.find_sect(name.first);
    ASSERT_NE(nullptr, section) << Visible(name.first);
    const xini_keyvalue_t* key = section->find_knode(name.second);
    ASSERT_NE(nullptr, key) << Visible(name.second);
    ASSERT_EQ(Visible(*model.Find(name.first, name.second)), Visible(key->value()));
  }
}

std::string BytesOf(const xini_file_t& doc, const CMemoryFile& file) {
  return doc.dump(file.Path()) ? ReadFile(file.Path()) : "dump failed";
}

TEST(IniProperty, BytesAreEqualFromTheFirstSaveOnAndLookupsAgree) {
  for (int i = 0; i < Rounds() * kDocumentsPerRound; ++i) {
    CGenerator generator(static_cast<unsigned>(i));
    const std::string bytes = generator.File();
    SCOPED_TRACE("document " + std::to_string(i) + ": " + Visible(bytes));
    const CMemoryFile file;
    file.Fill(bytes);
    const CIniModel model(bytes);
    const xini_file_t doc(file.Path());
    ASSERT_FALSE(doc.is_dirty());
    ASSERT_NO_FATAL_FAILURE(ExpectSameLookups(model, doc));
    const CMemoryFile first;
    const std::string saved = BytesOf(doc, first);
    ASSERT_EQ(Visible(model.Saved()), Visible(saved));

    const xini_file_t again(first.Path());
    ASSERT_NO_FATAL_FAILURE(ExpectSameLookups(model, again));
    ASSERT_EQ(Visible(saved), Visible(BytesOf(again, CMemoryFile())));
    ASSERT_EQ(Visible(saved), Visible(CIniModel(saved).Saved()));
  }
}

TEST(IniProperty, ChangesDoWhatTheModelDoes) {
  const std::vector<std::string> sections = {"", "a", "B", "new", "a b"};
  const std::vector<std::string> keys = {"k", "L", "m", "fresh", "k l"};
  for (int i = 0; i < Rounds() * kDocumentsPerRound; ++i) {
    CGenerator generator(static_cast<unsigned>(i) + 1000000);
    const std::string bytes = generator.File();
    SCOPED_TRACE("document " + std::to_string(i) + ": " + Visible(bytes));
    const CMemoryFile file;
    file.Fill(bytes);
    CIniModel model(bytes);
    xini_file_t doc(file.Path());
    for (int step = 0; step < 12; ++step) {
      const std::string& section = sections[generator.Number(sections.size())];
      const std::string& key = keys[generator.Number(keys.size())];
      const std::size_t what = generator.Number(4);
      if (what == 0) {
        const std::string value = std::to_string(generator.Number(3));
        doc[section][key] = value.c_str();
        model.Set(section, key, value);
      } else if (what == 1) {
        xini_section_t* found = doc.find_sect(section);
        ASSERT_EQ(model.Remove(section, key), found != nullptr && found->key_remove(key));
      } else {
        const std::string lines = generator.Lines(6);
        std::istringstream stream(lines);
        doc << stream;
        model.Append(lines);
      }
      ASSERT_NO_FATAL_FAILURE(ExpectSameLookups(model, doc));
    }
    ASSERT_EQ(Visible(model.Saved()), Visible(BytesOf(doc, CMemoryFile()))) << "after changes";
    doc.set_dirty(false);
  }
}

}  // namespace
}  // namespace Kelvik
