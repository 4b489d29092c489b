// What a process prints, read back.

#include "StatusText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KelvikCtl {
namespace {

const std::string kStatus =
    "[Attribute] module:Kelvik title:attribute.\n"
    "[Output mode] printf:true system:false file:true datetime:false tid:true.\n"
    "[Log level] debug:true info:false warning:false error:true fatal:false.\n"
    "[Log file] path:/var/log/.\n";

TEST(StatusText, EverySwitchAndThePathAreRead) {
  const auto status = ParseStatus(kStatus);
  ASSERT_TRUE(status);
  const std::array<bool, kSwitchCount> expected = {true, false, true,  false, true,
                                                   true, false, false, true,  false};
  EXPECT_EQ(expected, status->m_On);
  EXPECT_EQ("/var/log/", status->m_Path);
}

TEST(StatusText, EachSwitchStandsForItself) {
  for (std::size_t which = 0; which < kSwitchCount; ++which) {
    std::string text = "[Attribute] module:a title:b.\n[Output mode]";
    const char* const names[] = {"printf", "system", "file",    "datetime", "tid",
                                 "debug",  "info",   "warning", "error",    "fatal"};
    for (std::size_t at = 0; at < kSwitchCount; ++at) {
      if (at == kFirstLevel) text += ".\n[Log level]";
      text += std::string(" ") + names[at] + ":" + (at == which ? "true" : "false");
    }
    const auto status = ParseStatus(text + ".\n[Log file] path:.\n");
    ASSERT_TRUE(status) << which;
    for (std::size_t at = 0; at < kSwitchCount; ++at)
      EXPECT_EQ(at == which, status->m_On.at(at)) << which << " " << at;
  }
}

// A path belongs to whoever set it: it may look like the rest of the display.
TEST(StatusText, PathIsTakenAsItStands) {
  const std::string head = kStatus.substr(0, kStatus.find("/var"));
  for (const std::string path :
       {"", ".", ".\n", "a.\n[Log level] debug:false", "%d", "\033[31m", "]\n["}) {
    const auto status = ParseStatus(head + path + ".\n");
    ASSERT_TRUE(status) << path;
    EXPECT_EQ(path, status->m_Path);
    EXPECT_TRUE(status->m_On.at(kSwitchDebug)) << path;
  }
}

TEST(StatusText, NoPartOfADisplayIsADisplay) {
  for (std::size_t length = 0; length < kStatus.size(); ++length)
    EXPECT_FALSE(ParseStatus(kStatus.substr(0, length))) << length;
}

TEST(StatusText, AnythingElseIsNoStatus) {
  const std::vector<std::string> texts = {
      "x" + kStatus,
      kStatus + "x",
      "\n",
      std::string(100000, '['),
      std::string("\0\0\0", 3),
      "[Attribute] module:.\n.\n",
      "[Attribute] module:.\n[Output mode] printf:TRUE system:false file:true datetime:false "
      "tid:true.\n[Log level] debug:true info:false warning:false error:true fatal:false.\n"
      "[Log file] path:.\n"};
  for (const std::string& text : texts)
    EXPECT_FALSE(ParseStatus(text)) << text.substr(0, 40);
}

TEST(StatusText, ModulesKeepTheirOrderAndTheirNames) {
  const std::string heading = "==========Register Module==========\n";
  struct tagCase {
    std::string m_Text;
    std::vector<std::string> m_Modules;
  };
  const tagCase cases[] = {{"", {}},
                           {"[net]\n", {"net"}},
                           {"[b]\n[a]\n", {"b", "a"}},
                           {"[]\n", {""}},
                           {"[a]b]\n[[c]\n", {"a]b", "[c"}},
                           {"[two\nlines]\n", {"two\nlines"}}};
  for (const tagCase& one : cases) {
    const auto modules = ParseModules(heading + one.m_Text);
    ASSERT_TRUE(modules) << one.m_Text;
    EXPECT_EQ(one.m_Modules, *modules);
  }
  for (const std::string text : {"net", "[net]", "[net]\nx", "[net\n", "\n"})
    EXPECT_FALSE(ParseModules(heading + text)) << text;
  EXPECT_FALSE(ParseModules(""));
  EXPECT_FALSE(ParseModules("[net]\n"));
}

TEST(StatusText, DisplaysAreModuleAndTitle) {
  const std::string heading = "==========Cmd Module==========\n";
  const auto displays =
      ParseDisplays(heading + "moudle:[net], title:[counters]\nmoudle:[], title:[a b]\n");
  ASSERT_TRUE(displays);
  const DisplayNames expected = {{"net", "counters"}, {"", "a b"}};
  EXPECT_EQ(expected, *displays);
  EXPECT_TRUE(ParseDisplays(heading)->empty());
  for (const std::string text : {"module:[net], title:[a]\n", "moudle:[net]\n",
                                 "moudle:[net], title:[a]", "moudle:[net], title:[a]\nmoudle:["})
    EXPECT_FALSE(ParseDisplays(heading + text)) << text;
}

}  // namespace
}  // namespace KelvikCtl
