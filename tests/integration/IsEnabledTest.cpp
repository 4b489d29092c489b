// KelvikExtra_IsEnabled answers what the record's call would find.

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "KelvikExtra.h"
#include "RecordTools.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

int SetLevel(int level, int on, const char* module) {
  return module == nullptr ? SetAttribute(eAttributeLevel, level, &on, sizeof(on))
                           : SetAttributeByModule(eAttributeLevel, level, &on, sizeof(on), module);
}

// Both kinds of call, at every level, for names of every kind.
void CompareWithRecords(const char* when) {
  static const char* const kModules[] = {nullptr, "",    "net",     "NET",    "n", "network",
                                         "disk",  "dis", "unknown", "diskio", "%"};
  for (int level = eLogLevelDebug; level <= eLogLevelFatal; ++level) {
    for (const char* module : kModules) {
      const int logged = KLog(Level(level), module, "t", "record\n");
      EXPECT_TRUE(logged == eResultSuccess || logged == eResultDisabled) << logged;
      EXPECT_EQ(logged == eResultSuccess ? 1 : 0, KelvikExtra_IsEnabled(level, module))
          << when << ": level " << level << " of " << (module == nullptr ? "null" : module);
      const int located = KLogV1(Level(level), module, "t", "f", "f", 1, "record\n");
      EXPECT_EQ(located == eResultSuccess ? 1 : 0, KelvikExtra_IsEnabled(level, nullptr))
          << when << ": located, level " << level;
    }
  }
}

CHILD_CASE(AnswerAsRecords) {
  CompareWithRecords("without modules");
  EXPECT_EQ(0, registerModule("network", "V1"));
  CompareWithRecords("with one module");
  EXPECT_EQ(0, SetLevel(eLogLevelDebug, 1, "network"));
  EXPECT_EQ(0, SetLevel(eLogLevelError, 0, "network"));
  CompareWithRecords("with a module of its own levels");
  EXPECT_EQ(0, registerModule("disk", "V1"));
  EXPECT_EQ(0, SetLevel(eLogLevelInfo, 1, nullptr));
  EXPECT_EQ(0, SetLevel(eLogLevelFatal, 0, nullptr));
  CompareWithRecords("with two modules");
  for (int mask = 0; mask < 256; ++mask) {
    Global().m_LevelMask = static_cast<uint8_t>(mask);
    for (int level = eLogLevelDebug; level <= eLogLevelFatal; ++level)
      EXPECT_EQ(mask >> level & 1, KelvikExtra_IsEnabled(level, nullptr)) << mask << " " << level;
  }
  return 0;
}

TEST(IsEnabled, AgreesWithTheCallForEveryLevelModuleAndMask) {
  EXPECT_TRUE(Passes("AnswerAsRecords"));
}

CHILD_CASE(AskForOutputs) {
  for (const int output : {eOutputTerminal, eOutputSyslog, eOutputFile}) {
    const char off = 0;
    EXPECT_EQ(0, SetAttribute(eAttributeOutput, output, &off, 1));
  }
  EXPECT_EQ(1, KelvikExtra_IsEnabled(eLogLevelError, "net"));
  EXPECT_EQ(0, KelvikExtra_IsEnabled(eLogLevelInfo, "net"));
  return 0;
}

TEST(IsEnabled, OutputsDoNotMatter) {
  EXPECT_TRUE(Passes("AskForOutputs"));
}

CHILD_CASE(AskForBadLevels) {
  Global().m_LevelMask = 0xff;
  for (const int level : {INT_MIN, -1, 0, 6, 7, 8, 32, 33, INT_MAX})
    EXPECT_EQ(0, KelvikExtra_IsEnabled(level, "net")) << level;
  return 0;
}

TEST(IsEnabled, BadLevelIsOffAndNotReported) {
  const tagChildResult result = RunChild("AskForBadLevels");
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ("", result.m_Output);
}

// Made before the context, so destroyed after it.
struct tagAsksLast {
  ~tagAsksLast() {
    if (KelvikExtra_IsEnabled(eLogLevelFatal, nullptr) != 0) _exit(3);
    if (KelvikExtra_IsEnabled(eLogLevelFatal, "net") != 0) _exit(4);
  }
};

CHILD_CASE(AskAfterTheEnd) {
  static tagAsksLast asker;
  return KelvikExtra_IsEnabled(eLogLevelFatal, "net") == 1 ? 0 : 5;
}

TEST(IsEnabled, NothingIsEnabledOnceTheContextHasEnded) {
  EXPECT_TRUE(Passes("AskAfterTheEnd"));
}

CHILD_CASE(AskWhileModulesCome) {
  const int rounds = Rounds();
  std::vector<std::thread> threads;
  bool isOver = false;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&isOver] {
      while (!__atomic_load_n(&isOver, __ATOMIC_RELAXED)) {
        EXPECT_EQ(1, KelvikExtra_IsEnabled(eLogLevelFatal, "net"));
        EXPECT_EQ(1, KelvikExtra_IsEnabled(eLogLevelFatal, nullptr));
      }
    });
  }
  for (int i = 0; i < rounds; ++i) {
    EXPECT_EQ(0, registerModule(("net" + std::to_string(i)).c_str(), "V1"));
    EXPECT_EQ(0, SetLevel(eLogLevelDebug, i % 2, "net"));
    EXPECT_EQ(i % 2, KelvikExtra_IsEnabled(eLogLevelDebug, "net"));
  }
  __atomic_store_n(&isOver, true, __ATOMIC_RELAXED);
  for (std::thread& thread : threads)
    thread.join();
  return 0;
}

TEST(IsEnabled, IsAskedWhileModulesAreRegisteredAndLevelsChange) {
  EXPECT_TRUE(Passes("AskWhileModulesCome"));
}

CHILD_CASE(AskPlacesForNull) {
  tagKelvikPlace place = {};
  char note[KELVIK_PASSED_OVER_BYTES] = "kept";
  EXPECT_EQ(0, KelvikExtra_IsNth(nullptr, 1, note));
  EXPECT_EQ(0, KelvikExtra_IsNth(&place, 1, nullptr));
  EXPECT_EQ(0, KelvikExtra_IsDue(nullptr, 1, note));
  EXPECT_EQ(0, KelvikExtra_IsDue(&place, 1, nullptr));
  EXPECT_STREQ("kept", note);
  EXPECT_EQ(1, KelvikExtra_IsNth(&place, 3, note));
  EXPECT_STREQ("", note);
  return 0;
}

TEST(Place, NullPointerIsRefused) {
  EXPECT_TRUE(Passes("AskPlacesForNull"));
}

}  // namespace
}  // namespace Kelvik
