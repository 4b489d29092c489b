// The counters of the additions and their display. KelvikExtraTest.cpp holds the first version.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "ConsoleClient.h"
#include "LossTools.h"
#include "SyslogCapture.h"

namespace Kelvik {
namespace {

CHILD_CASE(CountBatches) {
  UseSize(args.at(0), 1024, kHugeFile);
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  LogBytes('a', 400);
  LogBytes('b', 300);
  tagKelvikStatistics now = Statistics();
  EXPECT_EQ(700u, now.m_BytesFormatted);
  EXPECT_EQ(700u, now.m_BufferHighWater);
  EXPECT_EQ(0u, now.m_Batches + now.m_Writes + now.m_BytesHandedOver);
  LogBytes('c', 400);  // hands the first two over
  now = Statistics();
  EXPECT_EQ(1u, now.m_Batches);
  EXPECT_EQ(700u, now.m_BytesHandedOver);
  EXPECT_EQ(0u, now.m_Writes) << "there is no writer thread";
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  now = Statistics();
  EXPECT_EQ(2u, now.m_Batches);
  EXPECT_EQ(2u, now.m_Writes);
  EXPECT_EQ(1100u, now.m_BytesWritten);
  EXPECT_EQ(1100u, now.m_BytesHandedOver);
  EXPECT_EQ(700u, now.m_BufferHighWater);
  EXPECT_EQ(3u, now.m_RecordsWritten);
  return 0;
}

TEST(Statistics, BatchesBytesAndHighWaterAreCounted) {
  EXPECT_TRUE(RunCase("CountBatches"));
}

CHILD_CASE(CountWhatIsNotTaken) {
  UseSize(args.at(0), 1024, kHugeFile);
  const char off = 0;
  SetAttribute(eAttributeLevel, eLogLevelDebug, &off, 1);
  EXPECT_EQ(2, KLog(eLogLevelDebug, nullptr, nullptr, "off\n"));
  EXPECT_EQ(2, KLog(eLogLevelDebug, nullptr, nullptr, "off\n"));
  EXPECT_EQ(2, KLogs(eLogLevelDebug, nullptr, nullptr, "off\n", 4));
  Put(Output().m_DiskFull, 1);
  EXPECT_EQ(3, LogNumber("a", 0));
  Put(Output().m_DiskFull, 0);
  EXPECT_EQ(0, LogNumber("a", 0));
  EXPECT_EQ(0, ClearFileInfo());
  const tagKelvikStatistics now = Statistics();
  EXPECT_EQ(3u, now.m_RecordsBelowLevel);
  EXPECT_EQ(1u, now.m_RecordsRefused);
  EXPECT_EQ(1u, now.m_RecordsAccepted);
  EXPECT_EQ(1u, now.m_RecordsDropped);
  EXPECT_EQ(now.m_BytesFormatted, now.m_BytesDropped);
  EXPECT_EQ(0u, now.m_RecordsReplaced);
  return 0;
}

TEST(Statistics, RecordsThatAreNotTakenAreCountedApart) {
  EXPECT_TRUE(RunCase("CountWhatIsNotTaken"));
}

// The disk is found full while the record waits for the buffer.
CHILD_CASE(CountWhatIsRefusedLate) {
  UseSize(args.at(0), 1024, kHugeFile);
  LogNumber("a", 0);
  Output().m_BufferMutex.lock();
  std::atomic<pid_t> caller{0};
  std::thread logger([&] {
    caller = gettid();
    EXPECT_EQ(3, LogNumber("a", 1));
  });
  EXPECT_TRUE(WaitUntil(
      [&] {
        const std::string stat = ReadFile("/proc/self/task/" + std::to_string(caller) + "/stat");
        return stat.find(") S ") != std::string::npos;
      },
      20000));
  Put(Output().m_DiskFull, 1);
  Output().m_BufferMutex.unlock();
  logger.join();
  EXPECT_EQ(1u, Statistics().m_RecordsRefused);
  EXPECT_EQ(1u, Statistics().m_RecordsAccepted);
  return 0;
}

TEST(Statistics, RecordRefusedBehindTheLockIsCounted) {
  EXPECT_TRUE(RunCase("CountWhatIsRefusedLate", {}, 60000));
}

CHILD_CASE(CountOtherSinks) {
  const char on = 1;
  UseSize(args.at(0), 1024, kHugeFile);
  SwitchTerminal(true);
  SetAttribute(eAttributeOutput, eOutputSyslog, &on, 1);
  for (int number = 0; number < 5; ++number)
    LogNumber("a", number);
  SwitchTerminal(false);
  LogNumber("a", 5);
  EXPECT_EQ(5u, Statistics().m_TerminalRecords);
  EXPECT_EQ(6u, Statistics().m_SystemRecords);
  EXPECT_EQ(6u, CSyslogCapture::Count());
  EXPECT_EQ(6u, Statistics().m_RecordsAccepted);
  return 0;
}

TEST(Statistics, TerminalAndSyslogRecordsAreCounted) {
  EXPECT_TRUE(RunCase("CountOtherSinks"));
}

CHILD_CASE(CountRemovedFiles) {
  UseSize(args.at(0), 0, 1024, 2);
  for (int number = 0; number < 100; ++number)
    LogNumber("a", number);
  const tagKelvikStatistics now = Statistics();
  EXPECT_GT(now.m_Rotations, 2u);
  EXPECT_EQ(now.m_Rotations - 1, now.m_FilesRemoved) << "two of the files are left";
  EXPECT_EQ(2u, ListFolder(args.at(1)).size());
  EXPECT_EQ(0, ClearFileInfo());
  EXPECT_EQ(now.m_FilesRemoved + 2, Statistics().m_FilesRemoved);
  return 0;
}

TEST(Statistics, RotationsAndRemovedFilesAreCounted) {
  EXPECT_TRUE(RunCase("CountRemovedFiles"));
}

CHILD_CASE(CountDatagrams) {
  SwitchTerminal(false);
  CTestConsole console;
  EXPECT_TRUE(console.Obey("-leveldbg 1"));
  const tagKelvikStatistics before = Statistics();
  EXPECT_GE(before.m_DatagramsAccepted, 2u) << "the command and the question behind it";
  EXPECT_EQ(0u, before.m_DatagramsRefused);
  EXPECT_TRUE(console.Client().SendRaw("not framed at all"));
  EXPECT_TRUE(console.Client().SendRaw("another"));
  EXPECT_TRUE(console.Sync());
  EXPECT_EQ(2u, Statistics().m_DatagramsRefused);
  return 0;
}

TEST(Statistics, ConsoleDatagramsAreCounted) {
  EXPECT_TRUE(RunCase("CountDatagrams"));
}

CHILD_CASE(NoteTheLastError) {
  UseSize(args.at(1) + "/missing/", 0, kHugeFile);
  const int64_t before = time(nullptr);
  LogNumber("a", 0);
  const tagKelvikStatistics now = Statistics();
  EXPECT_EQ(ENOENT, now.m_LastError);
  EXPECT_GE(now.m_LastErrorTime, before);
  EXPECT_LE(now.m_LastErrorTime, static_cast<int64_t>(time(nullptr)));
  return 0;
}

TEST(Statistics, TheLastErrorHasItsTime) {
  EXPECT_TRUE(RunCase("NoteTheLastError"));
}

CHILD_CASE(BalanceUnderLoad) {
  UseSize(args.at(0), 1024, 32 * 1024, 2);
  EXPECT_EQ(0, Initialize());
  CLoggers loggers(4);
  for (int round = 0; round < Rounds() * 10; ++round) {
    const tagKelvikStatistics now = Statistics();
    // At most what two buffers hold is neither written nor lost.
    const uint64_t settled = now.m_RecordsWritten + now.m_RecordsLost;
    EXPECT_GE(now.m_RecordsAccepted, settled);
    EXPECT_LE(now.m_RecordsAccepted - settled, 2u * 1024 / 40);
    EXPECT_EQ(now.m_RecordsLost, now.m_RecordsReplaced + now.m_RecordsDropped);
    PauseMs(1);
  }
  loggers.Stop();
  KelvikExtra_Flush(5000, 0);
  const tagKelvikStatistics now = Statistics();
  uint64_t logged = 0;
  for (const auto& [name, count] : loggers.Counts())
    logged += static_cast<uint64_t>(count);
  EXPECT_EQ(logged, now.m_RecordsAccepted);
  EXPECT_EQ(now.m_RecordsAccepted, now.m_RecordsWritten + now.m_RecordsLost);
  EXPECT_EQ(now.m_BytesFormatted, now.m_BytesWritten + now.m_BytesReplaced + now.m_BytesDropped);
  return 0;
}

TEST(Statistics, AcceptedIsWrittenLostOrWaitingAtAnyTime) {
  EXPECT_TRUE(RunCase("BalanceUnderLoad", {}, 20000));
}

CHILD_CASE(ShowTheCounters) {
  const std::string page = args.at(1) + "/page";
  EXPECT_TRUE(WriteFile(page, ""));
  const auto show = [&] {
    Output().LogTerminal(page.c_str(), static_cast<int>(page.size()), "Kelvik", 6, "statistics",
                         10);
    return ReadFile(page);
  };
  UseSize(args.at(0), 0, kHugeFile);
  LogNumber("a", 0);
  EXPECT_EQ(std::string::npos, show().find("records accepted")) << "not there by default";
  EXPECT_EQ(0, KelvikExtra_RegisterStatistics());
  EXPECT_EQ(6, KelvikExtra_RegisterStatistics());
  const std::string text = show();
  for (const char* line :
       {"[Statistics] module:Kelvik title:statistics.\n", "records accepted: 1\n",
        "records written: 1\n", "records replaced: 0\n", "rotations: 0\n", "last error: 0 at 0\n"})
    EXPECT_NE(std::string::npos, text.find(line)) << line << text;
  return 0;
}

TEST(Statistics, DisplayIsThereOnceItIsRegistered) {
  EXPECT_TRUE(RunCase("ShowTheCounters"));
}

}  // namespace
}  // namespace Kelvik
