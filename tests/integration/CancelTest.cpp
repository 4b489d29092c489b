// Threads that are cancelled while they log: the others go on, and nothing is left halfway.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <string>

#include "ConsoleClient.h"
#include "LossTools.h"

namespace Kelvik {
namespace {

constexpr int kLimitMs = 20000;

std::atomic<int> g_Records{0};
std::string g_Way;
uint16_t g_Port = 0;

// Ends only by being cancelled. first: not null in one of the threads.
void* LogForEver(void* first) {
  for (;;) {
    KLog(eLogLevelInfo, "net", nullptr, "record %d\n", ++g_Records);
    if (g_Way == "flush") KelvikExtra_Flush(100, 0);
    if (g_Way == "raw") KLogs(eLogLevelInfo, "net", nullptr, "raw\n", 4);
    if (g_Way == "clear") ClearFileInfo();
    if (g_Way == "save") CGlobal::Instance()->SaveAttribute2File("all");
    if (g_Way == "console") {
      NetworkConsoleCreate(nullptr, g_Port);
      NetworkConsoleDestroy();
    }
    if (g_Way == "stop" && first != nullptr) {
      Output().Stop();
      Output().Start();
    }
    pthread_testcancel();
  }
}

// args: ..., the buffer's size, what the threads do besides.
CHILD_CASE(CancelWhileLogging) {
  g_Way = args.at(3);
  g_Port = FindFreePort();
  EXPECT_EQ(0, SetConfigFilePath((args.at(1) + "/cancel.ini").c_str()));
  UseSize(args.at(0), static_cast<uint32_t>(std::stoul(args.at(2))), 4096, 3);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  for (int round = 0; round < Rounds(); ++round) {
    pthread_t threads[2];
    for (pthread_t& thread : threads)
      EXPECT_EQ(
          0, pthread_create(&thread, nullptr, &LogForEver, &thread == threads ? &g_Port : nullptr));
    const int before = g_Records;
    EXPECT_TRUE(WaitUntil([&] { return g_Records > before + 2 + round; }, kLimitMs));
    if (g_Way == "flood") PauseMs(20);  // by then the threads write their batches themselves
    for (const pthread_t thread : threads) {
      void* result = nullptr;
      EXPECT_EQ(0, pthread_cancel(thread));
      EXPECT_EQ(0, pthread_join(thread, &result));
      EXPECT_EQ(PTHREAD_CANCELED, result);
    }
    EXPECT_EQ(0, LogNumber("main", round)) << "round " << round;
  }
  EXPECT_EQ(0, Output().Stop());
  EXPECT_EQ(0, Output().Start());
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, g_Port));
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  EXPECT_EQ(0, ClearFileInfo());
  EXPECT_EQ(0, LogNumber("last", 0));
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  return 0;
}

TEST(Cancel, ThreadsThatAreCancelledInARecordLeaveNoLockBehind) {
#if KELVIK_TEST_THREAD_SANITIZER
  GTEST_SKIP() << "the thread sanitizer does not follow threads that are cancelled";
#endif
  for (const char* bufferBytes : {"0", "1024"}) {
    for (const char* way :
         {"record", "flood", "raw", "flush", "clear", "save", "console", "stop"}) {
      EXPECT_TRUE(RunCase("CancelWhileLogging", {bufferBytes, way}, 60000))
          << bufferBytes << " " << way;
    }
  }
}

}  // namespace
}  // namespace Kelvik
