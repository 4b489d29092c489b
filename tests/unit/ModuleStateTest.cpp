#include "ModuleState.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "Kelvik.h"
#include "RealClock.h"
#include "Rounds.h"

namespace {

// While set, the calling thread gets no memory.
thread_local bool t_FailNew = false;

}  // namespace

// Not inlined: the compiler would take each pair of them for a new that free() ends.
__attribute__((noinline)) void* operator new(std::size_t bytes) {
  void* const memory = t_FailNew ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

__attribute__((noinline)) void operator delete(void* memory) noexcept {
  std::free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace Kelvik {
namespace {

constexpr int kLimitMs = 10000;

// What the callbacks below were called with; param of each registration points at one.
struct tagCalls {
  std::atomic<int> m_Count{0};
  int m_Number = 0;  // fd or value
  std::string m_Module;
  std::string m_Title;
  int m_Result = 0;  // what the callback returns
};

int Display(int fd, const char* module, const char* title, void* param) {
  auto* const calls = static_cast<tagCalls*>(param);
  calls->m_Number = fd;
  calls->m_Module = module;
  calls->m_Title = title;
  ++calls->m_Count;
  return calls->m_Result;
}

int Take(int value, void* param) {
  auto* const calls = static_cast<tagCalls*>(param);
  calls->m_Number = value;
  ++calls->m_Count;
  return calls->m_Result;
}

TEST(ModuleState, DisplayRunsWithTheCallersNamesAndDescriptor) {
  CModuleState state;
  tagCalls calls;
  ASSERT_EQ(state.Register("net", "state", Display, &calls), eResultSuccess);
  EXPECT_EQ(calls.m_Count, 0);
  EXPECT_EQ(state.Log(7, "NET", "State"), eResultSuccess);
  EXPECT_EQ(calls.m_Count, 1);
  EXPECT_EQ(calls.m_Number, 7);
  EXPECT_EQ(calls.m_Module, "NET");
  EXPECT_EQ(calls.m_Title, "State");
}

TEST(ModuleState, ParameterRunsWithTheValue) {
  CModuleState state;
  tagCalls calls;
  ASSERT_EQ(state.SetParamRegister("net", "interval", Take, &calls), eResultSuccess);
  EXPECT_EQ(state.Set("Net", "INTERVAL", -25), eResultSuccess);
  EXPECT_EQ(calls.m_Count, 1);
  EXPECT_EQ(calls.m_Number, -25);
}

TEST(ModuleState, ResultOfACallbackIsIgnored) {
  CModuleState state;
  tagCalls calls;
  calls.m_Result = 5;
  ASSERT_EQ(state.Register("net", "state", Display, &calls), eResultSuccess);
  ASSERT_EQ(state.SetParamRegister("net", "state", Take, &calls), eResultSuccess);
  EXPECT_EQ(state.Log(1, "net", "state"), eResultSuccess);
  EXPECT_EQ(state.Set("net", "state", 1), eResultSuccess);
  EXPECT_EQ(calls.m_Count, 2);
}

TEST(ModuleState, RegistrationIsTwoNamesACallbackAndItsParameter) {
  EXPECT_EQ(offsetof(tagModule, m_Module), 0u);
  EXPECT_EQ(offsetof(tagModule, m_Title), 128u);
  EXPECT_EQ(offsetof(tagModule, m_Callback), 256u);
  EXPECT_EQ(offsetof(tagModule, m_Param), 256u + sizeof(DisplayCallback));
  EXPECT_EQ(sizeof(tagModule), 256u + sizeof(DisplayCallback) + sizeof(void*));
}

TEST(ModuleState, UnknownPairIsNotFoundAndNothingIsCalled) {
  CModuleState state;
  tagCalls calls;
  ASSERT_EQ(state.Register("net", "state", Display, &calls), eResultSuccess);
  ASSERT_EQ(state.SetParamRegister("net", "interval", Take, &calls), eResultSuccess);
  const struct {
    const char* m_Module;
    const char* m_Title;
  } unknown[] = {{"net", "stat"},    {"ne", "state"},  {"net", "states"},
                 {"nets", "state"},  {"state", "net"}, {"", ""},
                 {nullptr, "state"}, {"net", nullptr}, {nullptr, nullptr}};
  for (const auto& pair : unknown) {
    EXPECT_EQ(state.Log(1, pair.m_Module, pair.m_Title), eResultFailure);
    EXPECT_EQ(state.Set(pair.m_Module, pair.m_Title, 1), eResultFailure);
    EXPECT_EQ(state.Unregister(pair.m_Module, pair.m_Title), eResultFailure);
    EXPECT_EQ(state.SetParamUnregister(pair.m_Module, pair.m_Title), eResultFailure);
  }
  EXPECT_EQ(state.Set("net", "intervals", 1), eResultFailure);
  EXPECT_EQ(state.Set("nets", "interval", 1), eResultFailure);
  // Each list answers for itself alone.
  EXPECT_EQ(state.Log(1, "net", "interval"), eResultFailure);
  EXPECT_EQ(state.Set("net", "state", 1), eResultFailure);
  EXPECT_EQ(calls.m_Count, 0);
}

TEST(ModuleState, PairIsTakenOnceInAnyLetterCase) {
  CModuleState state;
  tagCalls first;
  tagCalls second;
  ASSERT_EQ(state.Register("net", "state", Display, &first), eResultSuccess);
  EXPECT_EQ(state.Register("Net", "State", Display, &second), eResultExists);
  ASSERT_EQ(state.SetParamRegister("net", "interval", Take, &first), eResultSuccess);
  EXPECT_EQ(state.SetParamRegister("NET", "Interval", Take, &second), eResultExists);
  EXPECT_EQ(state.GetModules().size(), 1u);
  EXPECT_EQ(state.Log(1, "net", "state"), eResultSuccess);
  EXPECT_EQ(state.Set("net", "interval", 1), eResultSuccess);
  EXPECT_EQ(first.m_Count, 2);
  EXPECT_EQ(second.m_Count, 0);
}

TEST(ModuleState, PairMayStandInEachOfTheTwoLists) {
  CModuleState state;
  tagCalls display;
  tagCalls parameter;
  EXPECT_EQ(state.Register("net", "state", Display, &display), eResultSuccess);
  EXPECT_EQ(state.SetParamRegister("net", "state", Take, &parameter), eResultSuccess);
  EXPECT_EQ(state.Unregister("net", "state"), eResultSuccess);
  EXPECT_EQ(state.Set("net", "state", 3), eResultSuccess);
  EXPECT_EQ(parameter.m_Count, 1);
  EXPECT_EQ(display.m_Count, 0);
}

TEST(ModuleState, UnregisteredPairIsGoneAndMayBeRegisteredAgain) {
  CModuleState state;
  tagCalls calls;
  ASSERT_EQ(state.Register("net", "state", Display, &calls), eResultSuccess);
  ASSERT_EQ(state.SetParamRegister("net", "state", Take, &calls), eResultSuccess);
  EXPECT_EQ(state.Unregister("NET", "STATE"), eResultSuccess);
  EXPECT_EQ(state.Unregister("net", "state"), eResultFailure);
  EXPECT_EQ(state.SetParamUnregister("NET", "STATE"), eResultSuccess);
  EXPECT_EQ(state.SetParamUnregister("net", "state"), eResultFailure);
  EXPECT_EQ(state.Log(1, "net", "state"), eResultFailure);
  EXPECT_EQ(state.Set("net", "state", 1), eResultFailure);
  EXPECT_EQ(state.Register("net", "state", Display, &calls), eResultSuccess);
  EXPECT_EQ(state.SetParamRegister("net", "state", Take, &calls), eResultSuccess);
}

TEST(ModuleState, RecordsStandInOrderWithZeroFilledNames) {
  CModuleState state;
  tagCalls calls;
  ASSERT_EQ(state.Register("net", "b", Display, &calls), eResultSuccess);
  ASSERT_EQ(state.Register("disk", "a", Display, nullptr), eResultSuccess);
  ASSERT_EQ(state.Register("Net", "a", Display, nullptr), eResultSuccess);
  ASSERT_EQ(state.Unregister("disk", "a"), eResultSuccess);
  ASSERT_EQ(state.Register("mem", "", Display, nullptr), eResultSuccess);
  std::string names;
  for (const tagModule& record : state.GetModules()) {
    names += std::string(record.m_Module) + "/" + record.m_Title + " ";
  }
  EXPECT_EQ(names, "net/b Net/a mem/ ");
  const tagModule& first = state.GetModules().front();
  tagModule expected;
  memset(&expected, 0, sizeof(expected));
  strcpy(expected.m_Module, "net");
  strcpy(expected.m_Title, "b");
  EXPECT_EQ(memcmp(first.m_Module, expected.m_Module, sizeof(expected.m_Module)), 0);
  EXPECT_EQ(memcmp(first.m_Title, expected.m_Title, sizeof(expected.m_Title)), 0);
  EXPECT_EQ(first.m_Callback, &Display);
  EXPECT_EQ(first.m_Param, &calls);
}

TEST(ModuleState, NamesOf127CharactersFitAndLongerOnesAreRefused) {
  CModuleState state;
  tagCalls calls;
  const std::string fits(127, 'n');
  const std::string tooLong(128, 'n');
  const std::string huge(100000, 'n');
  EXPECT_EQ(state.Register(fits.c_str(), fits.c_str(), Display, &calls), eResultSuccess);
  EXPECT_EQ(state.SetParamRegister(fits.c_str(), fits.c_str(), Take, &calls), eResultSuccess);
  for (const std::string* name : {&tooLong, &huge}) {
    EXPECT_EQ(state.Register(name->c_str(), "a", Display, &calls), eResultInvalid);
    EXPECT_EQ(state.Register("a", name->c_str(), Display, &calls), eResultInvalid);
    EXPECT_EQ(state.SetParamRegister(name->c_str(), "a", Take, &calls), eResultInvalid);
    EXPECT_EQ(state.SetParamRegister("a", name->c_str(), Take, &calls), eResultInvalid);
    EXPECT_EQ(state.SetParamUnregister(name->c_str(), "a"), eResultFailure);
    EXPECT_EQ(state.Log(1, "a", name->c_str()), eResultFailure);
  }
  EXPECT_EQ(state.GetModules().size(), 1u);
  EXPECT_EQ(state.Log(1, fits.c_str(), fits.c_str()), eResultSuccess);
  EXPECT_EQ(state.Set(fits.c_str(), fits.c_str(), 1), eResultSuccess);
  EXPECT_EQ(calls.m_Count, 2);
}

TEST(ModuleState, NullArgumentsAreRefused) {
  CModuleState state;
  EXPECT_EQ(state.Register(nullptr, "a", Display, nullptr), eResultInvalid);
  EXPECT_EQ(state.Register("a", nullptr, Display, nullptr), eResultInvalid);
  EXPECT_EQ(state.Register("a", "a", nullptr, nullptr), eResultInvalid);
  EXPECT_EQ(state.SetParamRegister(nullptr, "a", Take, nullptr), eResultInvalid);
  EXPECT_EQ(state.SetParamRegister("a", nullptr, Take, nullptr), eResultInvalid);
  EXPECT_EQ(state.SetParamRegister("a", "a", nullptr, nullptr), eResultInvalid);
  EXPECT_TRUE(state.GetModules().empty());
}

TEST(ModuleState, InitializeDropsDisplaysAndKeepsParameters) {
  CModuleState state;
  tagCalls calls;
  ASSERT_EQ(state.Register("net", "state", Display, &calls), eResultSuccess);
  ASSERT_EQ(state.SetParamRegister("net", "state", Take, &calls), eResultSuccess);
  EXPECT_EQ(state.Initialize(), eResultSuccess);
  EXPECT_TRUE(state.GetModules().empty());
  EXPECT_EQ(state.Log(1, "net", "state"), eResultFailure);
  EXPECT_EQ(calls.m_Count, 0);
  EXPECT_EQ(state.Set("net", "state", 1), eResultSuccess);
  EXPECT_EQ(calls.m_Count, 1);
}

TEST(ModuleState, CopyOfTheDisplaysIsTheCallersOwn) {
  CModuleState state;
  ASSERT_EQ(state.Register("net", "state", Display, nullptr), eResultSuccess);
  std::list<tagModule> copy = state.CopyModules();
  ASSERT_EQ(copy.size(), 1u);
  EXPECT_STREQ(copy.front().m_Module, "net");
  copy.clear();
  EXPECT_EQ(state.GetModules().size(), 1u);
}

TEST(ModuleState, WithoutMemoryNothingIsStoredAndNothingIsThrown) {
  CModuleState state;
  ASSERT_EQ(state.Register("net", "state", Display, nullptr), eResultSuccess);
  t_FailNew = true;
  const int display = state.Register("net", "other", Display, nullptr);
  const int parameter = state.SetParamRegister("net", "other", Take, nullptr);
  const bool isCopyEmpty = state.CopyModules().empty();
  const int removed = state.Unregister("net", "state");
  t_FailNew = false;
  EXPECT_EQ(display, eResultFailure);
  EXPECT_EQ(parameter, eResultFailure);
  EXPECT_TRUE(isCopyEmpty);
  EXPECT_EQ(removed, eResultSuccess);
  EXPECT_EQ(state.Log(1, "net", "other"), eResultFailure);
  EXPECT_EQ(state.Set("net", "other", 1), eResultFailure);
  EXPECT_EQ(state.Register("net", "other", Display, nullptr), eResultSuccess);
}

// A registration whose callback changes the registry that is calling it.
struct tagSelfChange {
  CModuleState* m_State;
  int m_Unregistered = -1;
  int m_Registered = -1;
  int m_Nested = -1;
};

int ChangeFromDisplay(int fd, const char* module, const char* title, void* param) {
  auto* const change = static_cast<tagSelfChange*>(param);
  change->m_Unregistered = change->m_State->Unregister(module, title);
  change->m_Registered = change->m_State->Register(module, title, Display, param);
  EXPECT_EQ(change->m_State->Unregister(module, title), eResultSuccess);
  change->m_Nested = change->m_State->Log(fd, "inner", "display");
  return 0;
}

int ChangeFromParameter(int value, void* param) {
  auto* const change = static_cast<tagSelfChange*>(param);
  change->m_Unregistered = change->m_State->SetParamUnregister("net", "interval");
  change->m_Registered = change->m_State->SetParamRegister("new", "one", Take, param);
  change->m_Nested = change->m_State->Set("inner", "parameter", value);
  return 0;
}

TEST(ModuleState, CallbackMayUnregisterItselfRegisterAndRunOthers) {
  CModuleState state;
  tagCalls inner;
  ASSERT_EQ(state.Register("inner", "display", Display, &inner), eResultSuccess);
  ASSERT_EQ(state.SetParamRegister("inner", "parameter", Take, &inner), eResultSuccess);
  tagSelfChange display{&state};
  ASSERT_EQ(state.Register("net", "state", ChangeFromDisplay, &display), eResultSuccess);
  EXPECT_EQ(state.Log(9, "net", "state"), eResultSuccess);
  EXPECT_EQ(inner.m_Number, 9);
  tagSelfChange parameter{&state};
  ASSERT_EQ(state.SetParamRegister("net", "interval", ChangeFromParameter, &parameter),
            eResultSuccess);
  EXPECT_EQ(state.Set("net", "interval", 8), eResultSuccess);
  EXPECT_EQ(inner.m_Number, 8);
  for (const tagSelfChange& change : {display, parameter}) {
    EXPECT_EQ(change.m_Unregistered, eResultSuccess);
    EXPECT_EQ(change.m_Registered, eResultSuccess);
    EXPECT_EQ(change.m_Nested, eResultSuccess);
  }
  EXPECT_EQ(inner.m_Count, 2);
  EXPECT_EQ(state.Log(1, "net", "state"), eResultFailure);
  EXPECT_EQ(state.Set("net", "interval", 1), eResultFailure);
}

struct tagGate {
  std::atomic<bool> m_Entered{false};
  std::atomic<bool> m_Open{false};
  std::atomic<bool> m_Passed{false};  // it opened in time
};

int WaitAtGate(int, const char*, const char*, void* param) {
  auto* const gate = static_cast<tagGate*>(param);
  gate->m_Entered = true;
  gate->m_Passed = WaitUntil([&] { return gate->m_Open.load(); }, kLimitMs);
  return 0;
}

TEST(ModuleState, OtherThreadsAreNotHeldUpByARunningCallback) {
  CModuleState state;
  tagGate gate;
  tagCalls calls;
  ASSERT_EQ(state.Register("net", "slow", WaitAtGate, &gate), eResultSuccess);
  std::thread console([&] { EXPECT_EQ(state.Log(1, "net", "slow"), eResultSuccess); });
  ASSERT_TRUE(WaitUntil([&] { return gate.m_Entered.load(); }, kLimitMs));
  EXPECT_EQ(state.Register("net", "other", Display, &calls), eResultSuccess);
  EXPECT_EQ(state.Log(1, "net", "other"), eResultSuccess);
  EXPECT_EQ(state.Unregister("net", "slow"), eResultSuccess);
  EXPECT_EQ(state.Log(1, "net", "slow"), eResultFailure);
  EXPECT_EQ(state.Initialize(), eResultSuccess);
  EXPECT_EQ(calls.m_Count, 1);
  gate.m_Open = true;
  console.join();
  EXPECT_TRUE(gate.m_Passed);
}

int CountOnly(int, const char*, const char*, void* param) {
  ++*static_cast<std::atomic<int>*>(param);
  return 0;
}

TEST(ModuleState, RegistrationBesideRunningCallbacksLosesNothing) {
  CModuleState state;
  std::atomic<int> runs(0);
  std::atomic<bool> done(false);
  std::thread console([&] {
    while (!done) {
      state.Log(1, "net", "0");
      state.Log(1, "net", "1");
      for (const tagModule& record : state.CopyModules())
        EXPECT_STREQ(record.m_Module, "net");
    }
  });
  std::vector<std::thread> owners;
  for (const char* title : {"0", "1"}) {
    owners.emplace_back([&, title] {
      for (int round = 0; round < Rounds() * 100; ++round) {
        EXPECT_EQ(state.Register("net", title, CountOnly, &runs), eResultSuccess);
        EXPECT_EQ(state.Log(1, "net", title), eResultSuccess);
        EXPECT_EQ(state.Unregister("net", title), eResultSuccess);
      }
    });
  }
  for (std::thread& owner : owners)
    owner.join();
  done = true;
  console.join();
  EXPECT_GE(runs, Rounds() * 200);
  EXPECT_TRUE(state.GetModules().empty());
}

}  // namespace
}  // namespace Kelvik
