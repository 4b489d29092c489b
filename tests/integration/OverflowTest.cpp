// What becomes of a full buffer that meets one that is not written yet.

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "LossTools.h"

namespace Kelvik {
namespace {

constexpr int kThreads = 4;
constexpr int kEach = 2000;

// kThreads threads log kEach numbers each, as fast as they can.
std::map<std::string, int> LogFromThreads() {
  std::vector<std::thread> threads;
  std::map<std::string, int> counts;
  for (int i = 0; i < kThreads; ++i) {
    const std::string name = "t" + std::to_string(i);
    counts[name] = kEach;
    threads.emplace_back([name] {
      for (int number = 0; number < kEach; ++number)
        EXPECT_EQ(0, LogNumber(name.c_str(), number));
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  return counts;
}

CHILD_CASE(WriteUnderOverload) {
  for (int round = 0; round < Rounds(); ++round) {
    const CTempDir folder;
    Output().CloseFile();
    ClearFileInfo();
    UseSize(folder.LogPath(), 1024, kHugeFile);
    if (round == 0) {
      EXPECT_EQ(0, Initialize());
      EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
    }
    const std::map<std::string, int> counts = LogFromThreads();
    EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
    EXPECT_TRUE(IsAllThere(AllText(folder.Path()), counts)) << "round " << round;
  }
  EXPECT_EQ(0u, Statistics().m_RecordsLost);
  return 0;
}

TEST(OverflowWrite, EveryRecordIsThereAtFullSpeed) {
  EXPECT_TRUE(RunCase("WriteUnderOverload", {}, 30000));
}

CHILD_CASE(WriteWithRotation) {
  UseSize(args.at(0), 2048, 64 * 1024, 10);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  for (int number = 0; number < 5000; ++number)
    EXPECT_EQ(0, LogNumber("a", number));
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_GT(Statistics().m_Rotations, 1u);
  // Within a second the names do not tell the order: the files are put behind one another by their
  // first numbers.
  std::map<int, std::string> files;
  for (const std::string& name : ListFolder(args.at(1))) {
    const std::string text = ReadFile(args.at(1) + "/" + name);
    files[std::atoi(text.c_str() + 2)] = text;
  }
  std::string all;
  for (const auto& [first, text] : files)
    all += text;
  EXPECT_TRUE(IsAllThere(all, {{"a", 5000}}));
  return 0;
}

TEST(OverflowWrite, RotationLosesNothing) {
  EXPECT_TRUE(RunCase("WriteWithRotation"));
}

// The writer cannot run while the test holds its lock, so what is handed over stays unwritten.
CHILD_CASE(HandOverTwice) {
  const bool write = args.at(2) == "write";
  UseSize(args.at(0), 1024, kHugeFile);
  EXPECT_EQ(0, KelvikExtra_SetOverflow(write ? eOverflowWrite : eOverflowReplace));
  LogNumber("a", 0);  // no writer thread: nobody writes but a caller
  EXPECT_EQ(0, WriteBufferContent2File());
  LogNumber("a", 1);
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(write ? NumberLine("a", 0) + "\n" : "", AllText(args.at(1)));
  EXPECT_EQ(write ? 0u : 1u, Statistics().m_RecordsReplaced);
  EXPECT_EQ(write ? 1u : 0u, Statistics().m_RecordsWritten);
  EXPECT_EQ(2u, Statistics().m_RecordsAccepted);
  return 0;
}

TEST(OverflowReplace, UnwrittenBatchIsReplacedAndCounted) {
  EXPECT_TRUE(RunCase("HandOverTwice", {"replace"}));
}

TEST(OverflowWrite, UnwrittenBatchIsWrittenFirst) {
  EXPECT_TRUE(RunCase("HandOverTwice", {"write"}));
}

CHILD_CASE(ReplaceUnderOverload) {
  UseSize(args.at(0), 1024, kHugeFile);
  EXPECT_EQ(0, Initialize());
  LogFromThreads();
  KelvikExtra_Flush(5000, 0);
  const tagKelvikStatistics now = Statistics();
  const tagFound found = FindNumbers(AllText(args.at(1)));
  EXPECT_EQ("", found.m_Problem);
  uint64_t there = 0;
  for (const auto& [name, numbers] : found.m_Numbers)
    there += numbers.size();
  EXPECT_EQ(static_cast<uint64_t>(kThreads) * kEach, now.m_RecordsAccepted);
  EXPECT_EQ(now.m_RecordsAccepted, now.m_RecordsWritten + now.m_RecordsReplaced);
  EXPECT_EQ(now.m_RecordsWritten, there);
  EXPECT_EQ(now.m_BytesFormatted, now.m_BytesWritten + now.m_BytesReplaced);
  return 0;
}

TEST(OverflowReplace, WhatIsMissingIsCounted) {
  EXPECT_TRUE(RunCase("ReplaceUnderOverload"));
}

CHILD_CASE(ChangeSizeWhileLogging) {
  UseSize(args.at(0), 1024, kHugeFile);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  CLoggers loggers(kThreads);
  EXPECT_TRUE(WaitUntil([&] { return loggers.HaveAllBegun(); }, 5000));
  for (int round = 0; round < Rounds() * 5; ++round) {
    // 0: every record is written directly.
    const uint32_t sizes[] = {0, 1024, 4096, 65536, 1500};
    SetBufferBytes(sizes[round % 5]);
    PauseMs(2);
  }
  loggers.Stop();
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_TRUE(IsAllThere(AllText(args.at(1)), loggers.Counts()));
  return 0;
}

TEST(OverflowWrite, ChangedBufferSizeLosesNothing) {
  EXPECT_TRUE(RunCase("ChangeSizeWhileLogging", {}, 30000));
}

CHILD_CASE(RefusePolicy) {
  EXPECT_EQ(3, KelvikExtra_SetOverflow(static_cast<eOverflowPolicy>(2)));
  EXPECT_EQ(3, KelvikExtra_SetOverflow(static_cast<eOverflowPolicy>(-1)));
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowReplace));
  return 0;
}

TEST(Overflow, UnknownPolicyIsRefused) {
  EXPECT_TRUE(RunCase("RefusePolicy"));
}

// The key decides: args are the path of the configuration file and "write" or "replace".
CHILD_CASE(UseKey) {
  EXPECT_EQ(0, SetConfigFilePath(args.at(2).c_str()));
  EXPECT_EQ(0, Initialize());
  UseSize(args.at(0), 1024, kHugeFile);
  Output().Stop();  // from here on nobody writes but a caller
  LogNumber("a", 0);
  WriteBufferContent2File();
  LogNumber("a", 1);
  WriteBufferContent2File();
  EXPECT_EQ(args.at(3) == "write" ? 0u : 1u, Statistics().m_RecordsReplaced);
  return 0;
}

TEST(Overflow, KeyOfTheConfigurationFileDecides) {
  const struct {
    const char* m_Text;
    const char* m_Policy;
  } cases[] = {
      {"[Global]\nOverflow=write\n", "write"},     {"[global]\noverflow = Write \n", "write"},
      {"[Global]\nOverflow=replace\n", "replace"}, {"[Global]\nOverflow=\n", "replace"},
      {"[Global]\nOverflow=writes\n", "replace"},  {"[Global]\nOverflow=1\n", "replace"},
      {"[net]\nOverflow=write\n", "replace"},      {"", "replace"},
  };
  for (const auto& each : cases) {
    const CTempDir work;
    const std::string config = work.File("kelvik.ini");
    ASSERT_TRUE(WriteFile(config, each.m_Text));
    EXPECT_TRUE(RunCase("UseKey", {config, each.m_Policy})) << each.m_Text;
  }
}

CHILD_CASE(SaveEverything) {
  EXPECT_EQ(0, SetConfigFilePath(args.at(2).c_str()));
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, CGlobal::Instance()->SaveAttribute2File("all"));
  return 0;
}

TEST(Overflow, KeyIsNeverAddedAndNeverChanged) {
  const CTempDir work;
  const std::string config = work.File("kelvik.ini");
  EXPECT_TRUE(RunCase("SaveEverything", {config}));
  EXPECT_NE(std::string::npos, ReadFile(config).find("writeInterval="));
  EXPECT_EQ(std::string::npos, ReadFile(config).find("verflow"));
  ASSERT_TRUE(WriteFile(config, "[Global]\nOverflow=write\n"));
  EXPECT_TRUE(RunCase("SaveEverything", {config}));
  EXPECT_EQ(0u, ReadFile(config).find("[Global]\nOverflow=write\n"));
}

}  // namespace
}  // namespace Kelvik
