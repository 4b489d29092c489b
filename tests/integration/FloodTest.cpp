// Who writes when buffer after buffer is full: the writer in a burst, the callers in a flood.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "LossTools.h"

namespace Kelvik {
namespace {

constexpr int kFloodMs = 100;  // far beyond a burst
constexpr int kLimitMs = 20000;
constexpr int kThreads = 4;
constexpr int kEnough = 100;  // records that fill several buffers, on a machine too busy for time

int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// Logs until a buffer is handed over. Nobody writes but callers, since no writer was started.
// Returns whether the batch is still to be written.
bool FillUntilHandedOver(int& number) {
  const uint64_t batches = Statistics().m_Batches;
  while (Statistics().m_Batches == batches)
    EXPECT_EQ(0, LogNumber("a", number++));
  return Output().m_BackLength > 0;
}

CHILD_CASE(FloodWithoutWriter) {
  UseSize(args.at(0), 1024, kHugeFile);
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  int number = 0;
  EXPECT_TRUE(FillUntilHandedOver(number)) << "a burst is the writer's";
  const int64_t end = NowMs() + kLimitMs;
  bool waits = true;
  while (waits && NowMs() < end)
    waits = FillUntilHandedOver(number);
  EXPECT_FALSE(waits) << "a flood is its caller's";
  PauseMs(kFloodMs);
  EXPECT_TRUE(FillUntilHandedOver(number)) << "after a pause it is a burst again";
  EXPECT_EQ(0u, Statistics().m_RecordsLost);
  return 0;
}

TEST(Flood, IsWrittenByItsCallers) {
  EXPECT_TRUE(RunCase("FloodWithoutWriter", {}, 2 * kLimitMs));
}

CHILD_CASE(SlowWithoutWriter) {
  UseSize(args.at(0), 1024, kHugeFile);
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  int number = 0;
  for (int buffer = 0; buffer < 20; ++buffer) {
    EXPECT_TRUE(FillUntilHandedOver(number)) << "buffer " << buffer;
    PauseMs(5);
  }
  return 0;
}

TEST(Flood, BuffersThatFillSlowlyAreTheWriters) {
  EXPECT_TRUE(RunCase("SlowWithoutWriter"));
}

// Without eOverflowWrite no caller ever waits for a file.
CHILD_CASE(ReplaceWithoutWriter) {
  UseSize(args.at(0), 1024, kHugeFile);
  int number = 0;
  const int64_t end = NowMs() + kFloodMs;
  while (NowMs() < end)
    EXPECT_TRUE(FillUntilHandedOver(number));
  EXPECT_EQ("", AllText(args.at(1)));
  EXPECT_EQ(0u, Statistics().m_RecordsWritten);
  return 0;
}

TEST(Flood, OfRecordsThatMayBeReplacedIsTheWriters) {
  EXPECT_TRUE(RunCase("ReplaceWithoutWriter"));
}

// Each thread logs for a while, so that the flood passes from the writer to the callers.
CHILD_CASE(FloodFromThreads) {
  UseSize(args.at(0), 2048, kHugeFile);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  std::vector<std::thread> threads;
  std::vector<int> counts(kThreads, 0);
  const int64_t end = NowMs() + kFloodMs;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&counts, end, i] {
      const std::string name = "t" + std::to_string(i);
      int number = 0;
      while (NowMs() < end)
        EXPECT_EQ(0, LogNumber(name.c_str(), number++));
      counts[static_cast<std::size_t>(i)] = number;
    });
  }
  std::map<std::string, int> expected;
  for (int i = 0; i < kThreads; ++i) {
    threads[static_cast<std::size_t>(i)].join();
    expected["t" + std::to_string(i)] = counts[static_cast<std::size_t>(i)];
  }
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  EXPECT_TRUE(IsAllThere(AllText(args.at(1)), expected));
  EXPECT_EQ(0u, Statistics().m_RecordsLost);
  return 0;
}

TEST(Flood, FromThreadsLosesNothingAndKeepsTheirOrder) {
  EXPECT_TRUE(RunCase("FloodFromThreads", {}, 3 * kLimitMs));
}

CHILD_CASE(FloodWithRotation) {
  UseSize(args.at(0), 1024, 8 * 1024, 10);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  int number = 0;
  const int64_t end = NowMs() + kFloodMs;
  while (number < 10 * kEnough || NowMs() < end)
    EXPECT_EQ(0, LogNumber("a", number++));
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  // The ring holds the last records, without a gap.
  std::map<int, int> files;  // by their first numbers
  for (const std::string& name : ListFolder(args.at(1))) {
    const tagFound found = FindNumbers(ReadFile(args.at(1) + "/" + name));
    EXPECT_EQ("", found.m_Problem);
    const std::vector<int>& numbers = found.m_Numbers.at("a");
    EXPECT_EQ(static_cast<int>(numbers.size()), numbers.back() - numbers.front() + 1);
    files[numbers.front()] = numbers.back();
  }
  EXPECT_GT(files.size(), 1u);
  EXPECT_LE(files.size(), 10u);
  int next = files.begin()->first;
  for (const auto& [first, last] : files) {
    EXPECT_EQ(next, first);
    next = last + 1;
  }
  EXPECT_EQ(number, next);
  return 0;
}

TEST(Flood, RotatesWithoutAGap) {
  EXPECT_TRUE(RunCase("FloodWithRotation", {}, 3 * kLimitMs));
}

// Several threads come to write one batch. Only who finds it takes another file for it: a ring of
// one file would otherwise stand empty.
CHILD_CASE(FloodOfShortFiles) {
  UseSize(args.at(0), 1024, 1, 1);
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  for (int round = 0; round < Rounds(); ++round) {
    const int64_t end = NowMs() + 20;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([end] {
        for (int number = 0; number < kEnough || NowMs() < end; ++number)
          EXPECT_EQ(0, LogNumber("a", number));
      });
    }
    for (std::thread& thread : threads)
      thread.join();
    EXPECT_NE("", AllText(args.at(1))) << "round " << round;
  }
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  const tagKelvikStatistics now = Statistics();
  EXPECT_EQ(now.m_Batches, now.m_Writes);
  EXPECT_EQ(now.m_Batches, now.m_Rotations + 1);
  EXPECT_EQ(0u, now.m_RecordsLost);
  return 0;
}

TEST(Flood, LeavesNoFileForABatchThatIsWritten) {
  EXPECT_TRUE(RunCase("FloodOfShortFiles", {}, 3 * kLimitMs));
}

}  // namespace
}  // namespace Kelvik
