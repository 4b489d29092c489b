// The application is told of each finished file.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "LossTools.h"

namespace Kelvik {
namespace {

constexpr uint32_t kFileBytes = 2048;

struct tagTold {
  std::vector<std::string> m_Paths;
  std::vector<std::string> m_Texts;  // the files' content at that moment
};

void Tell(const char* path, void* context) {
  auto* told = static_cast<tagTold*>(context);
  told->m_Paths.push_back(path);
  told->m_Texts.push_back(ReadFile(path));
}

CHILD_CASE(TellOfDirectFiles) {
  tagTold told;
  UseSize(args.at(0), 0, kFileBytes, 10);
  EXPECT_EQ(0, KelvikExtra_SetRotationCallback(Tell, &told));
  int number = 0;
  while (Statistics().m_Rotations < 8)
    LogNumber("a", number++);
  EXPECT_EQ(8u, told.m_Paths.size());
  std::string all;
  for (std::size_t i = 0; i < told.m_Paths.size(); ++i) {
    EXPECT_EQ(0u, told.m_Paths[i].find(args.at(0))) << told.m_Paths[i];
    EXPECT_GT(told.m_Texts[i].size(), kFileBytes);
    EXPECT_EQ(told.m_Texts[i], ReadFile(told.m_Paths[i])) << "it was finished";
    all += told.m_Texts[i];
  }
  EXPECT_TRUE(IsAllThere(all, {{"a", number - 1}})) << "the last record is in the ninth file";
  EXPECT_EQ(0, KelvikExtra_SetRotationCallback(nullptr, nullptr));
  while (Statistics().m_Rotations < 9)
    LogNumber("a", number++);
  EXPECT_EQ(8u, told.m_Paths.size());
  return 0;
}

TEST(RotationCallback, IsToldOfEachFinishedFileOnce) {
  EXPECT_TRUE(RunCase("TellOfDirectFiles"));
}

CHILD_CASE(TellOfBufferedFiles) {
  static tagTold told;  // the writer thread uses it until the end
  UseSize(args.at(0), 1024, kFileBytes, 10);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  EXPECT_EQ(0, KelvikExtra_SetRotationCallback(Tell, &told));
  for (int number = 0; Statistics().m_Rotations < 5; ++number) {
    LogNumber("a", number);
    if (number % 10 == 0) KelvikExtra_Flush(5000, 0);
  }
  Output().Stop();  // the writer's calls have returned
  EXPECT_EQ(5u, told.m_Paths.size());
  for (std::size_t i = 0; i < told.m_Paths.size(); ++i)
    EXPECT_EQ(told.m_Texts[i], ReadFile(told.m_Paths[i]));
  return 0;
}

TEST(RotationCallback, IsToldByTheWriterThread) {
  EXPECT_TRUE(RunCase("TellOfBufferedFiles"));
}

// Whatever the callback throws does not reach a program in C.
CHILD_CASE(ThrowFromTheCallback) {
  UseSize(args.at(0), 0, 1, 10);  // each record is past the limit of its file
  EXPECT_EQ(
      0, KelvikExtra_SetRotationCallback(
             [](const char*, void*) { throw std::runtime_error("from the callback"); }, nullptr));
  LogNumber("a", 0);
  EXPECT_EQ(1, LogNumber("a", 1));
  EXPECT_EQ(1, SetLogFilePath(""));
  EXPECT_EQ(1, SetConfigFilePath(nullptr));
  EXPECT_EQ(1, UnregisterModule(""));
  EXPECT_EQ(1, registerModule("", "V1"));
  EXPECT_EQ(1, KLog(static_cast<eLogLevel>(9), "m", "t", "no such level"));
  EXPECT_EQ(1, NetworkConsoleCreate("no address", 1));
  EXPECT_EQ(0, KelvikExtra_SetRotationCallback(nullptr, nullptr));
  EXPECT_EQ(3, SetLogFilePath(""));
  EXPECT_EQ(0, LogNumber("a", 2));
  return 0;
}

TEST(RotationCallback, ExceptionEndsTheCallWithAFailure) {
  EXPECT_TRUE(RunCase("ThrowFromTheCallback"));
}

std::atomic<int> gCalls{0};

// Every lock of the library is free: another thread can log, rotate, read and change things.
void UseEverything(const char*, void*) {
  if (gCalls.fetch_add(1) > 2) return;
  EXPECT_EQ(0, LogLine("from the callback"));
  std::thread other([] {
    EXPECT_EQ(0, LogLine("from another thread"));
    EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
    Statistics();
    registerModule("module", "V1");
    EXPECT_EQ(0, Output().CloseFile());
  });
  other.join();
}

CHILD_CASE(LogFromTheCallback) {
  UseSize(args.at(0), 0, kFileBytes, 3);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetRotationCallback(UseEverything, nullptr));
  for (int number = 0; gCalls < 3 && number < 1000; ++number)
    LogNumber("a", number);
  EXPECT_GE(gCalls, 3);
  EXPECT_NE(std::string::npos, AllText(args.at(1)).find("from another thread\n"));
  return 0;
}

TEST(RotationCallback, HoldsNoLock) {
  EXPECT_TRUE(RunCase("LogFromTheCallback"));
}

// What Initialize reports of a writer that runs already ends a file, and so calls back.
CHILD_CASE(InitializeFromTheCallback) {
  UseSize(args.at(0), 0, 1, 10);  // each record is past the limit of its file
  EXPECT_EQ(0, Output().Start());
  LogNumber("a", 0);
  const auto again = [](const char*, void* isThrowing) {
    gCalls.fetch_add(1);
    EXPECT_EQ(0, Initialize());
    std::thread other([] { EXPECT_EQ(3, CGlobal::Instance()->ConfigFileInitialize()); });
    other.join();
    if (isThrowing != nullptr) throw std::runtime_error("from the callback");
  };
  const bool isThrowing = args.at(2) == "throws";
  EXPECT_EQ(0, KelvikExtra_SetRotationCallback(again, isThrowing ? &gCalls : nullptr));
  EXPECT_EQ(isThrowing ? 1 : 0, Initialize());
  EXPECT_EQ(1, gCalls);
  EXPECT_EQ(3, CGlobal::Instance()->ConfigFileInitialize()) << "it has run";
  EXPECT_EQ(1, gCalls);
  return 0;
}

TEST(RotationCallback, FindsNoInitializeUnderWay) {
  EXPECT_TRUE(RunCase("InitializeFromTheCallback", {"returns"}));
  EXPECT_TRUE(RunCase("InitializeFromTheCallback", {"throws"}));
}

}  // namespace
}  // namespace Kelvik
