// Which settings a record goes by: its module's or the global ones, by the way it was made.

#include <gtest/gtest.h>

#include <string>

#include "FakeClock.h"
#include "RecordTools.h"
#include "SyslogCapture.h"

namespace Kelvik {
namespace {

// The six ways to make a record "x\n" of level 2, title "rx", with or without a place.
struct tagWay {
  const char* m_Name;
  int (*m_Make)(const char* module);
  bool m_IsMaskOfModule;
  bool m_IsPrefixOfModule;
  bool m_IsLocated;
  bool m_IsRaw;
};

const tagWay kWays[] = {
    {"Log variadic",
     [](const char* module) { return Engine().Log(Level(2), module, "rx", "%c\n", 'x'); }, false,
     false, false, false},
    {"Log list", [](const char* module) { return LogList(2, module, "rx", "%c\n", 'x'); }, true,
     true, false, false},
    {"Log variadic with place",
     [](const char* module) {
       return Engine().Log(Level(2), module, "rx", "a.c", "main", 1, "%c\n", 'x');
     },
     false, false, true, false},
    {"Log list with place",
     [](const char* module) { return LogListAt(2, module, "rx", "a.c", "main", 1, "%c\n", 'x'); },
     false, false, true, false},
    {"Logs", [](const char* module) { return Engine().Logs(Level(2), module, "rx", "x\n", 2); },
     true, false, false, true},
    {"Logs with place",
     [](const char* module) {
       return Engine().Logs(Level(2), module, "rx", "a.c", "main", 1, "x\n", 2);
     },
     true, false, true, true},
};

struct tagSwitches {
  bool m_Level;
  bool m_DateTime;
  bool m_ThreadId;
  bool m_Location;
};

void Apply(tagAttribute& attribute, const tagSwitches& switches) {
  attribute.m_LevelMask = switches.m_Level ? 0x04 : 0x3a;
  Store(attribute.m_OutputDateTime, switches.m_DateTime);
  Store(attribute.m_OutputThreadID, switches.m_ThreadId);
  Store(attribute.m_OutputLocation, switches.m_Location);
}

tagSwitches FromBits(int bits) {
  return {(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0, (bits & 8) != 0};
}

CHILD_CASE(EverySwitch) {
  CPrintedText printed;
  CFakeClock clock(kMoment, kMomentMicros);
  EXPECT_EQ(0, Context().InsertModuleName("network", nullptr));
  tagAttribute& module = *Context().GetAttribute("network");
  EXPECT_NE(&module, &Global());
  // The module's sinks count nowhere.
  Store(module.m_OutputConsole, false);
  Store(module.m_OutputSystem, true);
  Store(module.m_OutputFile, true);
  for (int bits = 0; bits < 256; ++bits) {
    const tagSwitches global = FromBits(bits);
    const tagSwitches own = FromBits(bits >> 4);
    Apply(Global(), global);
    Apply(module, own);
    for (const tagWay& way : kWays) {
      // Known by a part of its name, unknown, and no name at all.
      for (const char* name : {"NET", "else", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(testing::Message() << way.m_Name << " bits " << bits << " module "
                                        << (name == nullptr ? "none" : name));
        const bool isOwn = name != nullptr && std::string(name) == "NET";
        const tagSwitches& mask = isOwn && way.m_IsMaskOfModule ? own : global;
        const tagSwitches& prefix = isOwn && way.m_IsPrefixOfModule ? own : global;
        std::string expected;
        if (mask.m_Level) {
          if (prefix.m_DateTime) expected += std::string(kMomentText) + " ";
          if (prefix.m_ThreadId) expected += "[" + std::to_string(getpid()) + "]";
          if (name != nullptr) expected += "[" + std::string(name) + "]";
          expected += "[rx] ";
          if (way.m_IsLocated && global.m_Location) expected += "[a.c main 1] ";
          expected = way.m_IsRaw ? expected + Shown(2, "x\n") : Shown(2, expected + "x\n");
        }
        EXPECT_EQ(mask.m_Level ? 0 : 2, way.m_Make(name));
        EXPECT_EQ(expected, printed.Take());
      }
    }
  }
  EXPECT_EQ(0u, CSyslogCapture::Count());
  return 0;
}

TEST(RecordSwitches, EachOverloadTakesThemFromTheDescribedSettings) {
  EXPECT_TRUE(Passes("EverySwitch", {}, 30000));
}

CHILD_CASE(LevelBits) {
  CPrintedText printed;
  Store(Global().m_OutputDateTime, false);
  for (int mask = 0; mask < 256; ++mask) {
    Global().m_LevelMask = static_cast<uint8_t>(mask);
    for (int level = 1; level <= 5; ++level) {
      const int expected = (mask & (1 << level)) != 0 ? 0 : 2;
      EXPECT_EQ(expected, LogList(level, "net", nullptr, "x\n")) << mask << " " << level;
      EXPECT_EQ(expected == 0 ? Shown(level, "[net] x\n") : "", printed.Take());
      EXPECT_EQ(expected, Engine().Logs(Level(level), "net", nullptr, "x\n", 2));
      EXPECT_EQ(expected == 0 ? "[net] " + Shown(level, "x\n") : "", printed.Take());
    }
  }
  return 0;
}

TEST(RecordSwitches, EachLevelHasItsBitAndNoOther) {
  EXPECT_TRUE(Passes("LevelBits"));
}

CHILD_CASE(Sinks) {
  CPrintedText printed;
  UseBareRecords();
  for (int bits = 0; bits < 4; ++bits) {
    Store(Global().m_OutputConsole, (bits & 1) != 0);
    Store(Global().m_OutputSystem, (bits & 2) != 0);
    for (const tagWay& way : kWays) {
      CSyslogCapture::Clear();
      EXPECT_EQ(0, way.m_Make("net")) << way.m_Name;
      EXPECT_EQ((bits & 1) != 0, !printed.Take().empty()) << way.m_Name;
      EXPECT_EQ((bits & 2) != 0 ? 1u : 0u, CSyslogCapture::Count()) << way.m_Name;
    }
  }
  return 0;
}

TEST(RecordSwitches, EachSinkIsSwitchedByItself) {
  EXPECT_TRUE(Passes("Sinks"));
}

}  // namespace
}  // namespace Kelvik
