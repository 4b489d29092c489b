// The names of a document's nodes: what a plain map says of them, whatever the names are.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "IniCollisions.h"
#include "IniFile.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

constexpr int kLevels = 10;  // 1024 names of one hash, twice as many as the table takes

const std::vector<std::string>& NamesOfOneHash() {
  static const std::vector<std::string> names = CollidingNames(kLevels);
  return names;
}

std::vector<std::string> NumberedNames() {
  std::vector<std::string> names;
  for (int i = 0; i < 1024; ++i)
    names.push_back("Setting_" + std::to_string(i));
  return names;
}

TEST(IniNames, CollidingNamesAreOfOneHash) {
  const std::vector<std::string>& names = NamesOfOneHash();
  ASSERT_EQ(std::size_t{1} << kLevels, names.size());
  for (const std::string& name : names)
    ASSERT_EQ(xini_names_t::hash_of(names[0].c_str()), xini_names_t::hash_of(name.c_str()));
  EXPECT_EQ(xini_names_t::hash_of("Name"), xini_names_t::hash_of("nAME"));
  EXPECT_NE(xini_names_t::hash_of("a"), xini_names_t::hash_of("b"));
}

// Keys are made, found in another case, renamed and removed at random.
TEST(IniNames, AreFoundAsInAPlainMap) {
  for (const std::vector<std::string>& names : {NumberedNames(), NamesOfOneHash()}) {
    std::mt19937 engine(static_cast<unsigned>(names.size()));
    const auto any = [&](std::size_t limit) {
      return std::uniform_int_distribution<std::size_t>(0, limit - 1)(engine);
    };
    xini_section_t section(nullptr);
    std::map<std::string, xini_keyvalue_t*> model;
    for (int step = 0; step < 200 * Rounds(); ++step) {
      // At first most steps make a key, later as many remove one.
      const std::string& name = names[any(names.size())];
      const auto known = model.find(name);
      xini_keyvalue_t* const key = known != model.end() ? known->second : nullptr;
      std::string upper = name;
      for (char& letter : upper)
        letter = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
      ASSERT_EQ(key, section.find_knode(upper)) << step;
      if (key == nullptr) {
        model[name] = &section[upper];
        continue;
      }
      ASSERT_EQ(key, &section[upper]);
      const std::string& other = names[any(names.size())];
      switch (any(4)) {
        case 0:
          ASSERT_TRUE(section.key_remove(upper));
          model.erase(known);
          break;
        case 1:
          ASSERT_EQ(other == name || model.count(other) == 0, section.rename_nsub(key, other));
          if (other != name && model.count(other) == 0) {
            model.erase(known);
            model[other] = key;
          }
          break;
        default: {
          std::unique_ptr<xini_keyvalue_t> same(xini_keyvalue_t::try_create(name + "=", nullptr));
          ASSERT_FALSE(section.push_node(same.get()));
          break;
        }
      }
    }
    EXPECT_GT(model.size(), 300u);
    for (const std::string& name : names) {
      const auto known = model.find(name);
      ASSERT_EQ(known != model.end() ? known->second : nullptr, section.find_knode(name)) << name;
    }
  }
}

TEST(IniNames, SectionsOfOneHashAreFoundAndRenamed) {
  const std::vector<std::string>& names = NamesOfOneHash();
  xini_file_t doc("");
  std::vector<xini_section_t*> sections;
  for (const std::string& name : names)
    sections.push_back(&doc[name]);
  for (std::size_t i = 0; i < names.size(); i += 7)
    ASSERT_TRUE(doc.rename_nsub(sections[i], "renamed " + std::to_string(i)));
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string renamed = "RENAMED " + std::to_string(i);
    ASSERT_EQ(i % 7 == 0 ? nullptr : sections[i], doc.find_sect(names[i]));
    ASSERT_EQ(i % 7 == 0 ? sections[i] : nullptr, doc.find_sect(renamed));
  }
  doc.set_dirty(false);
  doc.release();
  EXPECT_EQ(nullptr, doc.find_sect(names[1]));
}

}  // namespace
}  // namespace Kelvik
