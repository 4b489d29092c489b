// Kelvik.hpp: the macros with names of any kind, and callbacks that live as long as an object.

#include "Kelvik.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "RealClock.h"
#include "RecordTools.h"
#include "Rounds.h"

namespace {

std::atomic<int> s_Allocations{0};

}  // namespace

void* operator new(std::size_t size) {
  s_Allocations.fetch_add(1, std::memory_order_relaxed);
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) std::abort();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace Kelvik {
namespace {

using namespace std::literals;

static_assert(!std::is_copy_constructible<CStateRegistration>::value, "move-only");
static_assert(!std::is_copy_assignable<CParamRegistration>::value, "move-only");
static_assert(std::is_nothrow_move_constructible<CStateRegistration>::value, "moves");
static_assert(std::is_nothrow_move_assignable<CParamRegistration>::value, "moves");
static_assert(std::is_nothrow_default_constructible<CName>::value, "cheap");

const std::string kLong(300, 'm');
const std::string kCut(127, 'm');

std::string Printed(const std::function<void()>& log) {
  testing::internal::CaptureStdout();
  log();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

CHILD_CASE(LogNamesOfAllKinds) {
  UseBareRecords();
  const std::string text = "network-receive";
  const std::string_view part = std::string_view(text).substr(0, 3);
  const auto make = [](const char* name) { return std::string(name) + " of more than 16 bytes"; };
  struct {
    std::function<void()> m_Log;
    std::string m_Shown;
  } const rows[] = {
      {[&] { KELVIK_INFO("net", "rx", "%d\n", 1); }, "[net][rx] 1\n"},
      {[&] { KELVIK_INFO(part, "rx"sv, "%d\n", 2); }, "[net][rx] 2\n"},
      {[&] { KELVIK_INFO(text, std::string_view(text).substr(8), "3\n"); },
       "[network-receive][receive] 3\n"},
      {[&] { KELVIK_INFO(nullptr, nullptr, "4\n"); }, "4\n"},
      {[&] { KELVIK_INFO(std::string_view(), std::string_view(), "5\n"); }, "5\n"},
      {[&] { KELVIK_INFO("", ""sv, "6\n"); }, Printed([] { KLog(eLogLevelInfo, "", "", "6\n"); })},
      {[&] { KELVIK_INFO(kLong, std::string_view(kLong), "7\n"); },
       "[" + kCut + "][" + kCut + "] 7\n"},
      {[&] { KELVIK_INFO(std::string_view(kLong).substr(0, 127), "t", "8\n"); },
       "[" + kCut + "][t] 8\n"},
      {[&] { KELVIK_INFO(std::string_view(kLong).substr(0, 128), "t", "9\n"); },
       "[" + kCut + "][t] 9\n"},
      {[&] { KELVIK_INFO(kLong.c_str(), "t", "10\n"); }, "[" + kLong + "][t] 10\n"},
      {[&] { KELVIK_INFO("net\0rx"sv, "a\0b"sv, "11\n"); }, "[net][a] 11\n"},
      // Temporaries live until the record is made.
      {[&] { KELVIK_INFO(make("m"), make("t"), "%s\n", make("text").c_str()); },
       "[m of more than 16 bytes][t of more than 16 bytes] text of more than 16 bytes\n"},
      {[&] { KELVIK_INFO(make("m").c_str(), make("t").c_str(), "13\n"); },
       "[m of more than 16 bytes][t of more than 16 bytes] 13\n"},
      {[&] { KELVIK_INFO_IF(text.size() > 3, part, "rx", "14\n"); }, "[net][rx] 14\n"},
      {[&] { KELVIK_INFO_EVERY_N(2, part, text, "15\n"); }, "[net][network-receive] 15\n"},
      {[&] { KELVIK_INFO_EVERY_MS(2, text, part, "16\n"); }, "[network-receive][net] 16\n"},
  };
  for (const auto& row : rows) {
    const std::string shown =
        row.m_Shown[0] == '\033' ? row.m_Shown : Shown(eLogLevelInfo, row.m_Shown);
    EXPECT_EQ(shown, Printed(row.m_Log)) << row.m_Shown;
  }
  int line = 0;
  const std::string located = Printed([&] {
    line = __LINE__ + 1;
    KELVIK_INFO_AT(part, "rx"sv, "here\n");
  });
  EXPECT_EQ(Shown(eLogLevelInfo, "[net][rx] [" + std::string(__FILE__) + " operator() " +
                                     std::to_string(line) + "] here\n"),
            located);
  return 0;
}

TEST(CppNames, EveryKindIsLoggedAndLongOnesAreCut) {
  EXPECT_TRUE(Passes("LogNamesOfAllKinds"));
}

CHILD_CASE(CountAllocations) {
  UseBareRecords();
  const std::string text = "a name that is longer than a small string is";
  KELVIK_INFO(text, text, "the first record makes the stream's buffer\n");
  const int before = s_Allocations.load();
  for (int i = 0; i < 10; ++i) {
    KELVIK_INFO(text, std::string_view(text).substr(1), "%d\n", i);
    KELVIK_INFO(kLong, "t"sv, "%d\n", i);
    KELVIK_INFO_EVERY_N(2, text, "t"sv, "%d\n", i);
    KELVIK_INFO_AT_EVERY_MS(0, text, "t"sv, "%d\n", i);
    EXPECT_TRUE(IsEnabled(eLogLevelInfo, std::string_view(text)));
  }
  const int after = s_Allocations.load();
  EXPECT_EQ(before, after);
  const std::string copy(text);
  EXPECT_LT(after, s_Allocations.load()) << "the count counts";
  return 0;
}

TEST(CppNames, RecordNeedsNoHeap) {
  EXPECT_TRUE(Passes("CountAllocations"));
}

CHILD_CASE(UseModules) {
  const std::string_view module = "network"sv.substr(0, 3);
  EXPECT_EQ(eResultInvalid, RegisterModule(""));
  EXPECT_EQ(0, RegisterModule(module, "V1"));
  EXPECT_FALSE(IsEnabled(eLogLevelDebug, module));
  EXPECT_EQ(0, SetModuleLevel(module, eLogLevelDebug, true));
  EXPECT_TRUE(IsEnabled(eLogLevelDebug, module));
  EXPECT_TRUE(IsEnabled(eLogLevelDebug, "NET"));
  EXPECT_FALSE(IsEnabled(eLogLevelDebug, "network"));
  EXPECT_FALSE(IsEnabled(eLogLevelDebug, nullptr));
  EXPECT_EQ(0, SetModuleLevel(std::string(module), eLogLevelDebug, false));
  EXPECT_FALSE(IsEnabled(eLogLevelDebug, std::string(module)));
  return 0;
}

TEST(CppNames, ModulesAreRegisteredAndSetByViews) {
  EXPECT_TRUE(Passes("UseModules"));
}

// One place for all threads, with a step that the last call sets to 1.
void LogSome(uint32_t n) {
  KELVIK_INFO_EVERY_N(n, nullptr, nullptr, "n\n");
}

void LogInTime(uint32_t ms) {
  KELVIK_INFO_EVERY_MS(ms, "m"sv, nullptr, "t\n");
}

CHILD_CASE(LogFromThreads) {
  UseBareRecords();
  constexpr int kThreads = 4;
  const int calls = std::atoi(args.at(0).c_str());
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([calls] {
      for (int i = 0; i < calls; ++i) {
        LogSome(7);
        LogInTime(1);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  LogSome(1);
  LogInTime(0);
  return 0;
}

// The records of a place and what they tell to have passed over.
int CountCalls(const std::string& printed, const std::string& start, const std::string& end,
               int* records) {
  int calls = 0;
  for (std::string line : Lines(printed)) {
    if (line.compare(0, 4, "\033[0m") == 0) line.erase(0, 4);
    const std::string record = start + end;
    if (line.size() < record.size() || line.compare(0, start.size(), start) != 0 ||
        line.compare(line.size() - end.size(), end.size(), end) != 0) {
      continue;
    }
    ++*records;
    const int passedOver = line == record ? 0 : std::atoi(line.c_str() + start.size() + 1);
    EXPECT_EQ(record, line == record ? line : start + line.substr(line.find(") ") + 2)) << line;
    calls += 1 + passedOver;
  }
  return calls;
}

TEST(CppMacros, EveryCallOfManyThreadsIsLoggedOrToldToBePassedOver) {
  const int calls = 50 * Rounds();
  const tagChildResult result = RunChild("LogFromThreads", {std::to_string(calls)}, 60000);
  ASSERT_TRUE(Succeeded(result));
  int records = 0;
  EXPECT_EQ(4 * calls + 1, CountCalls(result.m_Output, "", "n", &records));
  EXPECT_EQ((4 * calls + 6) / 7 + 1, records);
  records = 0;
  EXPECT_EQ(4 * calls + 1, CountCalls(result.m_Output, "[m] ", "t", &records));
  EXPECT_GE(records, 2);
}

// What the display of (module, title) writes; nullopt when there is none.
std::optional<std::string> Show(const char* module, const char* title) {
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  const int result = Context().GetModuleState().Log(ends[1], module, title);
  close(ends[1]);
  std::string text(256, '\0');
  const ssize_t length = read(ends[0], text.data(), text.size());
  close(ends[0]);
  text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return result == eResultSuccess ? std::optional(text) : std::nullopt;
}

int Set(const char* module, const char* title, int value) {
  return Context().GetModuleState().Set(module, title, value);
}

CHILD_CASE(RegisterInScopes) {
  int seen = 0;
  {
    const std::string_view text = "network state";
    const CStateRegistration state(text.substr(0, 3), text.substr(8), [](int fd, auto m, auto t) {
      const std::string both = std::string(m) + "/" + std::string(t);
      return write(fd, both.data(), both.size()) > 0 ? 0 : 1;
    });
    const CParamRegistration param(text.substr(0, 3), text.substr(8), [&](int value) {
      seen = value;
      return 0;
    });
    EXPECT_TRUE(state);
    EXPECT_EQ(0, state.Result());
    EXPECT_TRUE(param);
    EXPECT_EQ("NET/State", Show("NET", "State"));
    EXPECT_EQ(0, Set("net", "state", 42));
    EXPECT_EQ(42, seen);
    const CStateRegistration again("Net", "State", [](int, auto, auto) { return 0; });
    EXPECT_FALSE(again);
    EXPECT_EQ(eResultExists, again.Result());
    EXPECT_EQ("net/state", Show("net", "state")) << "a refused object takes nothing away";
  }
  EXPECT_EQ(std::nullopt, Show("net", "state"));
  EXPECT_EQ(1, Set("net", "state", 43));
  EXPECT_EQ(42, seen);
  return 0;
}

TEST(CppRegistration, LastsAsLongAsItsObject) {
  EXPECT_TRUE(Passes("RegisterInScopes"));
}

CHILD_CASE(RegisterBadNames) {
  const auto nothing = [](int) { return 0; };
  const std::string most(127, 'x');
  struct {
    std::string m_Module;
    std::string m_Title;
    int m_Result;
  } const rows[] = {{"", "t", 3},     {"m", "", 3},         {std::string("\0m", 2), "t", 3},
                    {most, most, 0},  {most + "x", "t", 3}, {"m", most + "x", 3},
                    {kLong, kLong, 3}};
  for (const auto& row : rows) {
    const CParamRegistration param(row.m_Module, row.m_Title, nothing);
    EXPECT_EQ(row.m_Result, param.Result()) << row.m_Module.size() << " " << row.m_Title.size();
    EXPECT_EQ(row.m_Result == 0, static_cast<bool>(param));
  }
  EXPECT_EQ(3, CParamRegistration("m", "t", nullptr).Result());
  EXPECT_EQ(3, CStateRegistration("m", "t", StateFunction()).Result());
  EXPECT_EQ(3, CStateRegistration().Result());
  EXPECT_EQ(1, Set("m", "t", 1));
  return 0;
}

TEST(CppRegistration, BadNameOrNoFunctionRegistersNothing) {
  EXPECT_TRUE(Passes("RegisterBadNames"));
}

CHILD_CASE(MoveRegistrations) {
  int seen = 0;
  const auto take = [&](int value) {
    seen = value;
    return 0;
  };
  CParamRegistration last;
  {
    CParamRegistration first("net", "a", take);
    CParamRegistration second(std::move(first));
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(3, first.Result());
    EXPECT_TRUE(second);
    last = std::move(second);
  }
  EXPECT_EQ(0, Set("net", "a", 1)) << "the one that was moved to keeps it";
  EXPECT_EQ(1, seen);
  last = CParamRegistration("net", "b", take);
  EXPECT_EQ(1, Set("net", "a", 2)) << "assigned over";
  EXPECT_EQ(0, Set("net", "b", 3));
  CParamRegistration& same = last;
  last = std::move(same);
  EXPECT_EQ(0, Set("net", "b", 4)) << "assigned to itself";
  std::vector<CParamRegistration> many;
  for (int i = 0; i < 10; ++i)
    many.emplace_back("net", "number " + std::to_string(i), take);
  EXPECT_EQ(0, Set("net", "number 0", 5)) << "moved by the vector as it grew";
  EXPECT_EQ(5, seen);
  last.Reset();
  last.Reset();
  EXPECT_EQ(1, Set("net", "b", 6));
  return 0;
}

TEST(CppRegistration, MovesWithItsObject) {
  EXPECT_TRUE(Passes("MoveRegistrations"));
}

CHILD_CASE(ResetInside) {
  auto owned = std::make_shared<int>(7);
  const std::weak_ptr<int> watched = owned;
  CParamRegistration param;
  param = CParamRegistration("net", "self", [&param, owned = std::move(owned)](int) {
    param.Reset();
    EXPECT_EQ(7, *owned) << "the function lives until it returns";
    EXPECT_EQ(1, Set("net", "self", 1));
    return 0;
  });
  EXPECT_EQ(0, Set("net", "self", 1));
  EXPECT_TRUE(watched.expired());
  // What throws ends its run all the same: the destructor does not wait for it.
  {
    const CParamRegistration throws("net", "throws",
                                    [](int) -> int { throw std::runtime_error("no"); });
    EXPECT_THROW(Set("net", "throws", 1), std::runtime_error);
  }
  return 0;
}

TEST(CppRegistration, FunctionMayEndItsOwnRegistration) {
  EXPECT_TRUE(Passes("ResetInside"));
}

CHILD_CASE(WaitForRun) {
  std::atomic<bool> isRunning{false};
  std::atomic<bool> mayEnd{false};
  std::atomic<bool> hasEnded{false};
  std::optional<CParamRegistration> param;
  param.emplace("net", "slow", [&](int) {
    isRunning = true;
    while (!mayEnd)
      PauseMs(1);
    hasEnded = true;
    return 0;
  });
  std::thread runner([] { Set("net", "slow", 1); });
  EXPECT_TRUE(WaitUntil([&] { return isRunning.load(); }, 10000));
  std::thread releaser([&] {
    PauseMs(30);
    mayEnd = true;
  });
  param.reset();
  EXPECT_TRUE(hasEnded) << "the function could have used what dies now";
  runner.join();
  releaser.join();
  return 0;
}

TEST(CppRegistration, DestructorWaitsForARunOfAnotherThread) {
  EXPECT_TRUE(Passes("WaitForRun"));
}

CHILD_CASE(ComeAndGo) {
  const int rounds = 5 * Rounds();
  std::atomic<bool> isOver{false};
  std::vector<std::thread> runners;
  for (int t = 0; t < 2; ++t) {
    runners.emplace_back([&] {
      while (!isOver)
        Set("net", "short", 1);
    });
  }
  int runs = 0;
  for (int i = 0; i < rounds || (runs == 0 && i < 1000 * rounds); ++i) {
    auto local = std::make_unique<std::atomic<int>>(0);
    {
      const CParamRegistration param("net", "short", [&](int value) { return *local += value; });
      EXPECT_TRUE(param);
      std::this_thread::yield();
    }
    runs += *local;
    local.reset();  // a late run would meet freed memory
  }
  isOver = true;
  for (std::thread& runner : runners)
    runner.join();
  EXPECT_LT(0, runs);
  return 0;
}

TEST(CppRegistration, NoRunOutlivesItsObjectUnderThreads) {
  EXPECT_TRUE(Passes("ComeAndGo", {}, 60000));
}

CHILD_CASE(ForkWhileRunning) {
  std::atomic<bool> isRunning{false};
  std::atomic<bool> mayEnd{false};
  std::optional<CParamRegistration> param;
  param.emplace("net", "slow", [&](int) {
    isRunning = true;
    while (!mayEnd)
      PauseMs(1);
    return 0;
  });
  std::thread runner([] { Set("net", "slow", 1); });
  EXPECT_TRUE(WaitUntil([&] { return isRunning.load(); }, 10000));
  const pid_t pid = fork();
  if (pid == 0) {
    param.reset();  // the run is the parent's
    CParamRegistration own("net", "own", [](int) { return 0; });
    _exit(own && Set("net", "own", 1) == 0 ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(pid, waitpid(pid, &status, 0));
  EXPECT_EQ(0, status);
  mayEnd = true;
  param.reset();
  runner.join();
  return 0;
}

TEST(CppRegistration, ChildOfForkDoesNotWaitForTheParentsRun) {
  EXPECT_TRUE(Passes("ForkWhileRunning", {}, 30000));
}

}  // namespace
}  // namespace Kelvik
