// The table of modules: lookup by a part of a name, snapshots, registration beside other threads.

#include <gtest/gtest.h>
#include <strings.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "ConfigTools.h"
#include "RealClock.h"
#include "RecordTools.h"
#include "Rounds.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

CHILD_CASE(Lookup) {
  CGlobal& context = Context();
  tagAttribute* const global = context.GetAttribute();
  EXPECT_EQ(global, context.GetAttribute("")) << "no module yet";
  EXPECT_EQ(global, context.GetAttribute("net"));
  for (const char* name : {"network", "Zebra", "alpha.net", "zebra two"})
    EXPECT_EQ(0, context.InsertModuleName(name, nullptr)) << name;
  const auto record = [&](const char* name) { return &context.m_ModuleAttribute.at(name); };
  const struct {
    const char* m_Argument;
    const char* m_Found;  // null: the global record
  } cases[] = {
      {"NET", "alpha.net"},    {"network", "network"}, {"WORK", "network"},
      {"zebra", "Zebra"},      {"ZEBRA", "Zebra"},     {"zebra t", "zebra two"},
      {"", "Zebra"},           {"e", "Zebra"},         {"alpha.net", "alpha.net"},
      {"alpha.net ", nullptr}, {"networks", nullptr},  {"x", nullptr},
      {" ", "zebra two"},      {"a.n", "alpha.net"},   {"a?n", nullptr},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(row.m_Found == nullptr ? global : record(row.m_Found),
              context.GetAttribute(row.m_Argument))
        << row.m_Argument;
  }
  EXPECT_EQ(global, context.GetAttribute(std::string(5000, 'n').c_str()));
  return 0;
}

TEST(ModuleTable, FirstModuleInByteOrderWhoseNameContainsTheArgumentIsFound) {
  EXPECT_TRUE(Passes("Lookup"));
}

CHILD_CASE(InsertAndPop) {
  CPrintedText printed;
  CGlobal& context = Context();
  Global().m_LevelMask = 0x12;
  Store(Global().m_OutputThreadID, true);
  context.SetLogMaxSize(4096);
  EXPECT_EQ(0, context.PopModuleName("net")) << "not in the table";
  EXPECT_EQ(0, context.InsertModuleName("net", nullptr));
  tagAttribute* const net = context.GetAttribute("net");
  EXPECT_NE(&Global(), net);
  EXPECT_EQ(0, std::memcmp(net, &Global(), sizeof(*net))) << "a full copy";
  Global().m_LevelMask = 0x3e;
  Store(Global().m_OutputThreadID, false);
  EXPECT_EQ(0x12, net->m_LevelMask) << "a later change does not reach it";
  EXPECT_EQ(1, net->m_OutputThreadID);
  EXPECT_EQ(3, context.InsertModuleName("net", "V2"));
  EXPECT_EQ(0x12, net->m_LevelMask) << "a second registration changes nothing";
  // Exact names here: another case, or a part of the name, is another module.
  EXPECT_EQ(0, context.PopModuleName("NET"));
  EXPECT_EQ(0, context.PopModuleName("ne"));
  EXPECT_EQ(0, context.InsertModuleName("NET", nullptr));
  EXPECT_EQ(0x3e, context.m_ModuleAttribute.at("NET").m_LevelMask);
  EXPECT_EQ(0, context.InsertModuleName("ne", nullptr));
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(3, context.PopModuleName("net")) << "it is there, and stays";
  EXPECT_EQ(0, context.PopModuleName("unknown"));
  EXPECT_EQ(3u, context.m_ModuleAttribute.size());
  EXPECT_EQ(net, &context.m_ModuleAttribute.at("net"));
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(ModuleTable, ModuleIsASnapshotThatIsMadeOnceAndStays) {
  EXPECT_TRUE(Passes("InsertAndPop"));
}

CHILD_CASE(LookupAgain) {
  CGlobal& context = Context();
  const auto record = [&](const char* name) { return &context.m_ModuleAttribute.at(name); };
  const auto expect = [&](const char* argument, const tagAttribute* found) {
    EXPECT_EQ(found, context.GetAttribute(argument)) << argument;
    std::thread([&] { EXPECT_EQ(found, context.GetAttribute(argument)) << argument; }).join();
    EXPECT_EQ(found, context.GetAttribute(argument)) << argument;
  };
  // The same thread asks the same things, and each registration changes the answers.
  expect("net", &Global());
  expect("", &Global());
  EXPECT_EQ(0, context.InsertModuleName("network", nullptr));
  expect("net", record("network"));
  expect("", record("network"));
  EXPECT_EQ(0, context.InsertModuleName("ethernet", nullptr));
  expect("net", record("ethernet"));
  expect("network", record("network"));
  EXPECT_EQ(0, context.InsertModuleName("wire", nullptr));
  expect("net", record("ethernet"));
  expect("", record("ethernet"));
  expect("ire", record("wire"));
  // Many names in turn, known and unknown, short and long.
  for (int round = 0; round < 3; ++round) {
    for (char first = 'a'; first <= 'z'; ++first) {
      const std::string unknown = std::string(1, first) + "?";
      EXPECT_EQ(&Global(), context.GetAttribute(unknown.c_str())) << unknown;
      EXPECT_EQ(&Global(), context.GetAttribute((unknown + std::string(30, 'x')).c_str()));
      EXPECT_EQ(record("wire"), context.GetAttribute("WIRE"));
      EXPECT_EQ(record("network"), context.GetAttribute("twork"));
    }
  }
  return 0;
}

TEST(ModuleTable, RegistrationShowsInTheNextLookupOfEveryThread) {
  EXPECT_TRUE(Passes("LookupAgain"));
}

// What applies to a name, found without the context's help.
const tagAttribute* Expected(const std::string& name) {
  const auto isPart = [&name](const std::string& text) {
    for (size_t at = 0; at + name.size() <= text.size(); ++at) {
      if (::strncasecmp(text.c_str() + at, name.c_str(), name.size()) == 0) return true;
    }
    return false;
  };
  for (const auto& module : Context().m_ModuleAttribute) {
    if (isPart(module.first)) return &module.second;
  }
  return &Global();
}

// All texts come from one address, and differ in a letter, in their length, or in their case.
CHILD_CASE(OneAddress) {
  CPrintedText printed;
  Store(Global().m_OutputConsole, false);
  char field[64];
  const auto expect = [&field](const std::string& name) {
    std::memcpy(field, name.c_str(), name.size() + 1);
    const tagAttribute* found = Context().GetAttribute(field);
    EXPECT_EQ(Expected(name), found) << name;
    // The record goes by the same settings.
    const int result = KLog(eLogLevelDebug, field, "rx", "text\n");
    EXPECT_EQ((__atomic_load_n(&found->m_LevelMask, __ATOMIC_RELAXED) & 2) != 0 ? 0 : 2, result)
        << name;
  };
  const auto expectAll = [&] {
    for (const char* name : {"net", "nat", "ne", "neT", "network", "n", "", "et", "netw", "w"})
      expect(name);
    for (size_t length = 1; length < 40; ++length)
      expect(std::string(length, 'x'));
    for (int number = 0; number < 400; ++number)  // more than are remembered
      expect("conn-" + std::to_string(number));
  };
  expectAll();
  int count = 0;
  const std::string names[] = {
      "network", "Ethernet", std::string(30, 'X'), "pre-conn-123", "a-conn-39", "xxxxx", "conn-7"};
  for (const std::string& name : names) {
    EXPECT_EQ(0, Context().InsertModuleName(name.c_str(), nullptr));
    Context().m_ModuleAttribute.at(name).m_LevelMask = ++count % 2 == 0 ? 0x3e : 0x30;
    expectAll();
  }
  return 0;
}

TEST(ModuleTable, TextIsComparedLetterByLetterWhereverItStands) {
  EXPECT_TRUE(Passes("OneAddress"));
}

std::string ModuleName(int number) {
  char name[32];
  std::snprintf(name, sizeof(name), "module-%03d", number * 77 % 200);  // in no order
  return name;
}

// The processor time of lookups of two names in turn, which stand at one address.
std::clock_t LookupTime(const std::string& one, const std::string& other) {
  char field[64];
  const std::clock_t start = std::clock();
  for (int i = 0; i < 500; ++i) {
    const std::string& name = i % 2 == 0 ? one : other;
    std::memcpy(field, name.c_str(), name.size() + 1);
    EXPECT_EQ(&Global(), Context().GetAttribute(field)) << field;
  }
  return std::clock() - start;
}

CHILD_CASE(LookupTime) {
  for (int i = 0; i < 200; ++i)
    EXPECT_EQ(0, Context().InsertModuleName(ModuleName(i).c_str(), nullptr));
  LookupTime("socket", "thread");
  const std::clock_t known = LookupTime("socket", "thread");
  // Too long to be kept: these are looked for among all modules every time.
  const std::clock_t walked = LookupTime(std::string(30, 's'), std::string(30, 't'));
  EXPECT_LT(known * 4, walked);
  return 0;
}

TEST(ModuleTable, NameThatWasAskedForIsFoundAgainWithoutAWalkThroughTheModules) {
  EXPECT_TRUE(Passes("LookupTime", {}, 20000));
}

CHILD_CASE(RegisterBesideLogging) {
  CPrintedText printed;
  Store(Global().m_OutputConsole, false);
  Global().m_LevelMask = 0x30;
  constexpr int kModules = 200;
  std::atomic<bool> isOver{false};
  std::atomic<int> turns{0};
  std::vector<std::thread> loggers;
  for (int i = 0; i < 4; ++i) {
    loggers.emplace_back([&, i] {
      while (!isOver) {
        const std::string name = ModuleName((turns + i) % kModules);
        EXPECT_EQ(0, KLog(eLogLevelError, name.c_str(), "rx", "text %d\n", i));
        EXPECT_EQ(2, KLogs(eLogLevelDebug, name.c_str(), "rx", "text\n", 5));
        EXPECT_EQ(0x30, __atomic_load_n(&Context().GetAttribute(name.c_str())->m_LevelMask,
                                        __ATOMIC_RELAXED));
        ++turns;
      }
    });
  }
  tagAttribute* records[kModules] = {};
  for (int i = 0; i < kModules; ++i) {
    const std::string name = ModuleName(i);
    EXPECT_EQ(0, registerModule(name.c_str(), nullptr));
    records[i] = Context().GetAttribute(name.c_str());
    EXPECT_NE(&Global(), records[i]) << name;
    const int turn = turns;
    WaitUntil([&] { return turns > turn; }, 5000);
  }
  isOver = true;
  for (std::thread& logger : loggers)
    logger.join();
  for (int i = 0; i < kModules; ++i)
    EXPECT_EQ(records[i], Context().GetAttribute(ModuleName(i).c_str())) << "it has moved";
  EXPECT_EQ(static_cast<size_t>(kModules), Context().m_ModuleAttribute.size());
  return 0;
}

TEST(ModuleTable, ModulesAreRegisteredBesideThreadsThatLog) {
  for (int round = 0; round < (Rounds() + 9) / 10; ++round)
    ASSERT_TRUE(Passes("RegisterBesideLogging", {}, 30000));
}

// args: how many names, and a configuration path, whose file takes its time between look and entry.
CHILD_CASE(RegisterTogether) {
  const int names = std::stoi(args.at(0));
  if (args.size() > 1) SetConfigFilePath(args.at(1).c_str());
  std::atomic<int> arrived{0};
  std::atomic<int> first{0};
  std::atomic<int> again{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int number = 0; number < names; ++number) {
        ++arrived;
        while (arrived.load() < 8 * (number + 1))  // all at the same name
          std::this_thread::yield();
        const int result = Context().InsertModuleName(ModuleName(number).c_str(), "V1");
        if (result == 0) ++first;
        if (result == 3) ++again;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(names, first.load());
  EXPECT_EQ(7 * names, again.load());
  EXPECT_EQ(static_cast<size_t>(names), Context().m_ModuleAttribute.size());
  return 0;
}

TEST(ModuleTable, OfThreadsThatRegisterOneNameOneSucceeds) {
  EXPECT_TRUE(Passes("RegisterTogether", {"50"}, 20000));
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(WriteFile(path, ManyComments()));
  EXPECT_TRUE(Passes("RegisterTogether", {"5", path}, 20000));
}

}  // namespace
}  // namespace Kelvik
