// Memory runs out at the Nth allocation inside an exported function, for every N: the function
// returns a result, throws nothing into its caller in C, and works again afterwards.

#include <gtest/gtest.h>

#include <string>

#include "ChildProcess.h"
#include "FailingNew.h"
#include "FileTools.h"
#include "Global.h"
#include "Kelvik.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

constexpr int kManyAllocations = 10000;

// Runs call with the Nth allocation failing for N = 1, 2, ... until no allocation is left to fail.
// check sees the result of each run that lacked memory. Returns the number of these runs.
template <class tCall, class tCheck>
int FailEach(tCall call, tCheck check) {
  for (int fail = 1; fail < kManyAllocations; ++fail) {
    FailNew(fail);
    const int result = call();
    if (!StopFailingNew()) {
      EXPECT_EQ(eResultSuccess, result);
      return fail - 1;
    }
    check(result);
  }
  ADD_FAILURE() << "no end of allocations";
  return kManyAllocations;
}

int Show(int, const char*, const char*, void*) {
  return 0;
}

int Take(int, void*) {
  return 0;
}

CHILD_CASE(RegisterWithoutMemory) {
  CGlobal& context = *CGlobal::Instance();
  // Longer than what a string holds by itself.
  const char name[] = "a module whose name needs memory of its own";
  const int runs = FailEach([&] { return registerModule(name, "V1"); },
                            [&](int result) {
                              EXPECT_EQ(eResultFailure, result);
                              EXPECT_TRUE(context.m_ModuleAttribute.empty());
                              EXPECT_EQ(context.GetAttribute(), context.GetAttribute(name));
                            });
  EXPECT_GE(runs, 1);
  EXPECT_EQ(1u, context.m_ModuleAttribute.count(name));
  EXPECT_NE(context.GetAttribute(), context.GetAttribute(name));
  return 0;
}

TEST(WithoutMemory, ModuleIsRegisteredWholeOrNotAtAll) {
  EXPECT_TRUE(Succeeded(RunChild("RegisterWithoutMemory")));
}

CHILD_CASE(UnregisterWithoutMemory) {
  const char name[] = "a module whose name needs memory of its own";
  const char other[] = "another module whose name needs memory of its own";
  EXPECT_EQ(0, registerModule(name, "V1"));
  CGlobal& context = *CGlobal::Instance();
  const auto unexpected = [](int result) { ADD_FAILURE() << "asked for memory: " << result; };
  EXPECT_EQ(0, FailEach([&] { return context.PopModuleName(other); }, unexpected));
  EXPECT_EQ(0, FailEach([&] { return UnregisterModule(other); }, unexpected));
  FailNew(1);
  EXPECT_EQ(eResultInvalid, context.PopModuleName(name));
  EXPECT_FALSE(StopFailingNew());
  EXPECT_EQ(1u, context.m_ModuleAttribute.count(name));
  return 0;
}

TEST(WithoutMemory, QuestionForAModuleNeedsNone) {
  EXPECT_TRUE(Succeeded(RunChild("UnregisterWithoutMemory")));
}

CHILD_CASE(RegisterCallbackWithoutMemory) {
  CGlobal::Instance();
  EXPECT_GE(FailEach([] { return ModuleStateRegister("net", "state", Show, nullptr); },
                     [](int result) {
                       EXPECT_EQ(eResultFailure, result);
                       EXPECT_EQ(eResultFailure, ModuleStateUnregister("net", "state"));
                     }),
            1);
  EXPECT_GE(FailEach([] { return Kelvik_ModuleSetParamRegister("net", "state", Take, nullptr); },
                     [](int result) {
                       EXPECT_EQ(eResultFailure, result);
                       EXPECT_EQ(eResultFailure, ModuleSetParamUnregister("net", "state"));
                     }),
            1);
  EXPECT_EQ(eResultSuccess, ModuleStateUnregister("net", "state"));
  EXPECT_EQ(eResultSuccess, ModuleSetParamUnregister("net", "state"));
  return 0;
}

TEST(WithoutMemory, CallbackIsRegisteredWholeOrNotAtAll) {
  EXPECT_TRUE(Succeeded(RunChild("RegisterCallbackWithoutMemory")));
}

CHILD_CASE(UseEverythingWithoutMemory) {
  const char on = 1;
  const auto any = [](int result) {
    EXPECT_TRUE(result == eResultSuccess || result == eResultFailure) << result;
  };
  EXPECT_EQ(0, SetConfigFilePath(args.at(0).c_str()));
  FailEach([] { return registerModule("net", "V1"); }, any);
  FailEach([] { return Initialize(); }, any);
  FailEach([&] { return SetAttribute(eAttributeOther, eOtherFocusModule, "net", 3); }, any);
  FailEach([&] { return SetAttribute(eAttributeLevel, eLogLevelDebug, &on, 1); }, any);
  FailEach([] { return KLog(eLogLevelError, "net", "rx", "%s\n", "text"); }, any);
  FailEach([] { return ClearFileInfo(); }, any);
  EXPECT_EQ(0, KLog(eLogLevelError, "net", "rx", "works again\n"));
  return 0;
}

TEST(WithoutMemory, NoFunctionThrows) {
  CTempDir folder;
  ASSERT_TRUE(WriteFile(folder.File("kelvik.ini"),
                        "[Global]\nLogIndex=0\nbufferSize=4\n[net]\nLevelDbg=1\n"
                        "[fileName]\nfileName_0=/nonexistent/20240315083000.log\n"));
  const tagChildResult result =
      RunChild("UseEverythingWithoutMemory", {folder.File("kelvik.ini")}, 20000);
  EXPECT_TRUE(Succeeded(result));
  EXPECT_NE(std::string::npos, result.m_Output.find("works again\n"));
}

}  // namespace
}  // namespace Kelvik
