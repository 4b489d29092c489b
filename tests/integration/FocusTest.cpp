// The focus: the records of one module are shown in cyan.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "RecordTools.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

std::string Cyan(const std::string& text) {
  return "\033[36m" + text + "\033[0m";
}

CHILD_CASE(InFocus) {
  CPrintedText printed;
  UseBareRecords();
  EXPECT_EQ(0, Engine().ResetFocusModule("net", 3));
  for (int level = 1; level <= 5; ++level) {
    for (const char* module : {"net", "NET", "nEt"}) {
      SCOPED_TRACE(testing::Message() << module << " level " << level);
      const std::string prefix = "[" + std::string(module) + "] ";
      const bool isCyan = level <= 3;
      const auto expected = [&](const std::string& text) {
        return isCyan ? Cyan(text) : Shown(level, text);
      };
      EXPECT_EQ(0, LogList(level, module, nullptr, "x\n"));
      EXPECT_EQ(expected(prefix + "x\n"), printed.Take());
      EXPECT_EQ(0, LogListAt(level, module, nullptr, "a.c", nullptr, 1, "x\n"));
      EXPECT_EQ(expected(prefix + "[a.c 1] x\n"), printed.Take());
      EXPECT_EQ(0, Engine().Logs(Level(level), module, nullptr, "x\n", 2));
      EXPECT_EQ(prefix + expected("x\n"), printed.Take());
      EXPECT_EQ(0, Engine().Logs(Level(level), module, nullptr, "a.c", nullptr, 1, "x\n", 2));
      EXPECT_EQ(prefix + "[a.c 1] " + expected("x\n"), printed.Take());
    }
    // The whole name counts, and a title does not.
    for (const char* module : {"ne", "nets", "", static_cast<const char*>(nullptr)}) {
      EXPECT_EQ(0, LogList(level, module, "net", "x\n"));
      const std::string shown = printed.Take();
      EXPECT_EQ(std::string::npos, shown.find("\033[36m")) << shown;
    }
  }
  return 0;
}

TEST(Focus, ItsModuleIsCyanAtLevelsOneToThreeInAnyLetterCase) {
  EXPECT_TRUE(Passes("InFocus"));
}

CHILD_CASE(FocusTable) {
  CPrintedText printed;
  UseBareRecords();
  const struct {
    const char* m_Name;
    int m_Length;
    const char* m_Module;  // the record's
    bool m_IsInFocus;
  } cases[] = {
      {"net", 3, "net", true},      {"FALSE", 5, "net", false},
      {"FALSE", 5, "FALSE", false}, {"net", 1, "NET", true},  // the length counts as zero or not
      {"false", 5, "net", false},   {"net", -1, "net", true},
      {"FaLsE", 1, "net", false},   {"falsehood", 9, "FALSEHOOD", true},
      {"net", 0, "net", false},     {"net", 300, "net", true},
      {nullptr, 3, "net", false},   {"net", 3, "net", true},
      {"", 1, "net", false},        {"", 1, "", false},  // an empty name is no focus
      {" net", 4, "net", false},    {"true", 4, "True", true},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(testing::Message()
                 << (row.m_Name == nullptr ? "null" : row.m_Name) << " " << row.m_Length);
    EXPECT_EQ(0, Engine().ResetFocusModule(row.m_Name, row.m_Length));
    EXPECT_EQ(0, LogList(1, row.m_Module, nullptr, "x\n"));
    const std::string text = "[" + std::string(row.m_Module) + "] x\n";
    EXPECT_EQ(row.m_IsInFocus ? Cyan(text) : Shown(1, text), printed.Take());
  }
  return 0;
}

TEST(Focus, FalseAndNothingSwitchItOff) {
  EXPECT_TRUE(Passes("FocusTable"));
}

CHILD_CASE(CopyOfTheName) {
  CPrintedText printed;
  UseBareRecords();
  std::string name(3000, 'n');
  EXPECT_EQ(0, Engine().ResetFocusModule(name.c_str(), 3000));
  const std::string module = name;
  name.assign(3000, 'x');
  EXPECT_EQ(0, LogList(1, module.c_str(), nullptr, "x\n"));
  EXPECT_EQ(Cyan("[" + module + "] x\n"), printed.Take());
  return 0;
}

TEST(Focus, NameIsCopied) {
  EXPECT_TRUE(Passes("CopyOfTheName"));
}

CHILD_CASE(FocusBesideThreads) {
  CPrintedText printed;
  UseBareRecords();
  constexpr int kThreads = 8;
  // Two names that differ in every letter and in length: half of one is no name of anybody.
  const std::string names[] = {std::string(20, 'a'), std::string(900, 'b')};
  std::atomic<bool> isOver{false};
  std::atomic<int> records{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      while (!isOver) {
        const char* const module = i == 0 ? "aaaaaaaaaabbbbbbbbbb" : names[i % 2].c_str();
        EXPECT_EQ(0, KLog(Level(1 + i % 3), module, nullptr, "x\n"));
        EXPECT_EQ(0, KLogs(Level(1 + i % 3), module, nullptr, "x\n", 2));
        ++records;
      }
    });
  }
  for (int round = 0; round < Rounds() * 5; ++round) {
    for (const std::string& name : names) {
      Engine().ResetFocusModule(name.c_str(), static_cast<int>(name.size()));
      std::this_thread::yield();
    }
    Engine().ResetFocusModule(round % 2 == 0 ? "false" : nullptr, 5);
    const int before = records;
    while (records == before)
      std::this_thread::yield();
  }
  isOver = true;
  for (std::thread& thread : threads)
    thread.join();
  const std::string shown = printed.Take();
  EXPECT_EQ(std::string::npos, shown.find("\033[36m[aaaaaaaaaabbbbbbbbbb]")) << "a mixture";
  return 0;
}

TEST(Focus, IsChangedBesideThreadsThatLog) {
  EXPECT_TRUE(Passes("FocusBesideThreads", {}, 30000));
}

}  // namespace
}  // namespace Kelvik
