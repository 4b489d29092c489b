// 64 threads log while others change everything there is to change.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "LossTools.h"

namespace Kelvik {
namespace {

constexpr int kThreads = 64;

// 5 s a case with the usual 20 rounds, so 10 s of change in all; a minute each in a soak.
int StressMs() {
  const int ms = Rounds() <= 20 ? Rounds() * 250 : Rounds() * 300;
  return ms < 60000 ? ms : 60000;
}

// Runs tasks in threads of their own, again and again with rising numbers, until it is destroyed.
class CRepeater {
 public:
  ~CRepeater() {
    m_Stop = true;
    for (std::thread& thread : m_Threads)
      thread.join();
  }
  void Add(std::function<void(int)> task) {
    m_Threads.emplace_back([this, task = std::move(task)] {
      for (int i = 0; !m_Stop.load(std::memory_order_relaxed); ++i) {
        task(i);
        if (i % 8 == 7) PauseMs(1);
      }
    });
  }

 private:
  std::atomic<bool> m_Stop{false};
  std::vector<std::thread> m_Threads;
};

void Switch(int kind, int option, int i) {
  const char value = static_cast<char>(i & 1);
  SetAttribute(kind, option, &value, 1);
}

// Logs the numbers "t0", "t1", ...
void LogFromThreads(CRepeater& repeater) {
  for (int i = 0; i < kThreads; ++i) {
    repeater.Add([name = "t" + std::to_string(i)](int number) { LogNumber(name.c_str(), number); });
  }
}

// What changes the look of records and nothing about which of them are kept.
void ChangeLooks(CRepeater& repeater) {
  repeater.Add([](int i) {
    Switch(eAttributeOther, eOtherDateTime, i);
    Switch(eAttributeOther, eOtherThreadId, i / 2);
    Switch(eAttributeOther, eOtherLocation, i / 4);
  });
  repeater.Add([](int i) {
    const std::string name = "module" + std::to_string(i % 100);
    SetAttribute(eAttributeOther, eOtherFocusModule, name.c_str(), static_cast<int>(name.size()));
    registerModule(name.c_str(), "V1");
    ModuleStateRegister(
        name.c_str(), "state", [](int, const char*, const char*, void*) { return 0; }, nullptr);
    const char on = 1;
    SetAttributeByModule(eAttributeLevel, 1 + i % 5, &on, 1, name.c_str());
    ModuleStateUnregister(name.c_str(), "state");
    UnregisterModule(name.c_str());
  });
  repeater.Add([](int i) {
    const uint32_t sizes[] = {1024, 4096, 0, 65536, 2000};
    SetBufferBytes(sizes[i % 5]);
    SetIntervalMs(i % 3 == 0 ? 200 : 0);
    PauseMs(1);
  });
  repeater.Add([](int) {
    WriteBufferContent2File();
    Statistics();
    KelvikExtra_Flush(1, 0);
    Output().CloseFile();
  });
}

// And what costs records, but tears none.
void ChangeOutputs(CRepeater& repeater, const std::string& device) {
  repeater.Add([device](int i) {
    Switch(eAttributeOutput, eOutputTerminal, i);
    if (i % 16 == 0) Output().RedirectTTY(device.c_str(), static_cast<int>(device.size()));
  });
  repeater.Add([](int i) {
    for (int level = eLogLevelDebug; level <= eLogLevelFatal; ++level)
      Switch(eAttributeLevel, level, i / level);
    Switch(eAttributeOutput, eOutputFile, i % 4 != 0 ? 1 : 0);
    KelvikExtra_SetOverflow(i % 2 == 0 ? eOverflowWrite : eOverflowReplace);
  });
  repeater.Add([](int i) {
    if (i % 100 == 99) ClearFileInfo();
    const int kib = 1 + i % 7 * 8;
    SetAttribute(eAttributeOther, eOtherLogMaxSize, &kib, sizeof(kib));
  });
}

// And what may open a file over another one of the same second.
void ChangeRing(CRepeater& repeater, const std::string& logPath) {
  repeater.Add([logPath](int i) {
    const int count = 1 + i % 10;
    const int kib = i % 5 == 0 ? 0 : 16;
    const int seconds = 1;
    SetAttribute(eAttributeOther, eOtherLogMaxCount, &count, sizeof(count));
    SetAttribute(eAttributeOther, eOtherLogMaxDuration, &seconds, sizeof(seconds));
    SetAttribute(eAttributeOther, eOtherLogMaxSize, &kib, sizeof(kib));
    const std::string path = i % 3 == 0 ? logPath + "other-" : logPath;
    SetAttribute(eAttributeOther, eOtherLogPath, path.c_str(), static_cast<int>(path.size()));
    PauseMs(5);
  });
  repeater.Add([](int i) {
    const char data[] = "raw\n";
    KLogs(eLogLevelError, "raw", "data", data, sizeof(data) - 1);
    KLogV1(eLogLevelError, "net", "rx", "file.c", "function", i, "located %d\n", i);
    Output().m_Focus.Clear();
    CGlobal::Instance()->SaveAttribute2File("all");
    PauseMs(1);
  });
}

// The record behind its prefix: "t12 345 ....". Empty when the line holds no whole record.
std::string RecordIn(const std::string& line) {
  char name[64] = {};
  int number = -1;
  const std::size_t start = line.find_last_of('t');
  if (start == std::string::npos ||
      std::sscanf(line.c_str() + start, "%63s %d", name, &number) != 2) {
    return "";
  }
  const std::string record = line.substr(start);
  return record == NumberLine(name, number) && start <= 40 && line.find("...") >= start ? record
                                                                                        : "";
}

// The lines that are no whole records; the last one of a file may be one that is being written.
std::vector<std::string> TornLines(const std::string& text) {
  std::vector<std::string> torn;
  for (const std::string& line : Lines(text.substr(0, text.rfind('\n') + 1)))
    if (RecordIn(line).empty()) torn.push_back(line.substr(0, 200));
  return torn;
}

CHILD_CASE(ChangeAllButTheRing) {
  UseSize(args.at(0), 4096, 64 * 1024, 5);
  EXPECT_EQ(0, SetConfigFilePath(args.at(2).c_str()));
  EXPECT_EQ(0, Initialize());
  UseSize(args.at(0), 4096, 64 * 1024, 5);
  {
    CRepeater repeater;
    LogFromThreads(repeater);
    ChangeLooks(repeater);
    ChangeOutputs(repeater, "/dev/null");
    // A reader beside them.
    const int64_t end = RealClockMs() + StressMs() / 2;
    while (RealClockMs() < end) {
      for (const std::string& name : ListFolder(args.at(1)))
        EXPECT_EQ(std::vector<std::string>{}, TornLines(ReadFile(args.at(1) + "/" + name)));
      if (testing::Test::HasFailure()) break;
      PauseMs(10);
    }
  }
  for (const std::string& name : ListFolder(args.at(1)))
    EXPECT_EQ(std::vector<std::string>{}, TornLines(ReadFile(args.at(1) + "/" + name)));
  return 0;
}

TEST(Stress, LinesAreWholeWhileEverythingChanges) {
  const CTempDir work;
  EXPECT_TRUE(RunCase("ChangeAllButTheRing", {work.File("kelvik.ini")}, StressMs() + 20000));
}

CHILD_CASE(ChangeAll) {
  EXPECT_EQ(0, SetConfigFilePath(args.at(2).c_str()));
  UseSize(args.at(0), 4096, 64 * 1024, 5);
  EXPECT_EQ(0, Initialize());
  UseSize(args.at(0), 4096, 64 * 1024, 5);
  {
    CRepeater repeater;
    LogFromThreads(repeater);
    ChangeLooks(repeater);
    ChangeOutputs(repeater, "/dev/null");
    ChangeRing(repeater, args.at(0));
    PauseMs(StressMs());
  }
  const tagKelvikStatistics now = Statistics();
  KelvikExtra_Flush(5000, 0);
  EXPECT_GT(now.m_RecordsWritten, 0u);
  EXPECT_GT(now.m_Rotations, 0u);
  EXPECT_GE(now.m_RecordsAccepted, now.m_RecordsWritten + now.m_RecordsLost);
  return 0;
}

TEST(Stress, NothingBreaksWhileEverythingChanges) {
  const CTempDir work;
  EXPECT_TRUE(RunCase("ChangeAll", {work.File("kelvik.ini")}, StressMs() + 20000));
}

// Each round is a ring of files that is large enough for what 64 threads log.
CHILD_CASE(LoseNothing) {
  constexpr int kEach = 300;
  UseSize(args.at(0), 4096, 200 * 1024, 10);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  CRepeater repeater;
  ChangeLooks(repeater);
  const int64_t end = RealClockMs() + StressMs() / 2;
  do {
    EXPECT_EQ(0, ClearFileInfo());
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([name = "t" + std::to_string(i)] {
        for (int number = 0; number < kEach; ++number) {
          int result;
          do {
            result = LogNumber(name.c_str(), number);
          } while (result == eResultInvalid);  // refused while the buffers are exchanged
          EXPECT_EQ(0, result);
        }
      });
    }
    for (std::thread& thread : threads)
      thread.join();
    EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
    std::multimap<std::string, int> there;
    for (const std::string& line : Lines(AllText(args.at(1))))
      there.emplace(RecordIn(line), 0);
    EXPECT_EQ(static_cast<std::size_t>(kThreads) * kEach, there.size());
    for (int i = 0; i < kThreads; ++i) {
      for (int number = 0; number < kEach; ++number)
        EXPECT_EQ(1u, there.count(NumberLine("t" + std::to_string(i), number)));
    }
  } while (RealClockMs() < end && !testing::Test::HasFailure());
  EXPECT_EQ(0u, Statistics().m_RecordsLost);
  return 0;
}

TEST(Stress, WithThePolicyToWriteEveryRecordIsThere) {
  EXPECT_TRUE(RunCase("LoseNothing", {}, StressMs() + 20000));
}

}  // namespace
}  // namespace Kelvik
