// A process that ends, or is killed, and one that goes on with its ring of files.

#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <memory>
#include <random>

#include "ChildProcess.h"
#include "ConfigTools.h"
#include "FakeClock.h"
#include "Kelvik.h"
#include "RealClock.h"
#include "Rounds.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;

constexpr int64_t kNoon = 1710504000;  // 2024-03-15 12:00:00 UTC

// args: configuration path, first number, records, start of the wall clock (0: the real one),
// milliseconds that it advances with each record. Logs "line <number>" padded to 100 bytes, each
// written at once.
CHILD_CASE(LogLines) {
  CGlobal& context = *CGlobal::Instance();
  context.m_Attribute.m_BufferSize = 0;
  context.m_Attribute.m_OutputConsole = 0;
  context.m_Attribute.m_OutputDateTime = 0;
  const int64_t start = std::stoll(args[3]);
  std::unique_ptr<CFakeClock> clock;
  if (start != 0) clock = std::make_unique<CFakeClock>(start);
  SetConfigFilePath(args[0].c_str());
  EXPECT_EQ(0, Initialize());
  std::printf("started\n");
  std::fflush(stdout);
  const long first = std::stol(args[1]);
  for (long i = first; i < first + std::stol(args[2]); ++i) {
    EXPECT_EQ(0, KLog(eLogLevelError, nullptr, nullptr, "line %-94ld\n", i));
    if (clock != nullptr) clock->AdvanceMs(std::stoll(args[4]));
  }
  return 0;
}

constexpr size_t kLineBytes = 100;

std::string Line(long number) {
  char text[kLineBytes + 1];
  std::snprintf(text, sizeof(text), "line %-94ld\n", number);
  return text;
}

struct tagRing {
  explicit tagRing(const std::string& settings, const std::string& logPath = "")
      : m_Config(m_Etc.File("kelvik.ini")) {
    EXPECT_TRUE(WriteFile(m_Config, "[Global]\nOutputFile=1\nLogFilePath=" +
                                        (logPath.empty() ? m_Logs.LogPath() : logPath) + "\n" +
                                        settings));
  }

  tagChildResult Run(long first, long records, int64_t start = 0, int64_t stepMs = 0) {
    tagChildOptions options;
    options.m_Environment = {{"TZ", "UTC0"}};
    options.m_Folder = m_Logs.Path();
    return RunChild("LogLines",
                    {m_Config, std::to_string(first), std::to_string(records),
                     std::to_string(start), std::to_string(stepMs)},
                    options);
  }

  std::vector<std::string> Files() const { return LogFiles(m_Logs.Path()); }

  // The text of the ring's files from the oldest on, by the index.
  std::string Text(int count) const {
    Entries entries = ReadEntries(m_Config);
    const int current = std::atoi(entries["global/logindex"].c_str());
    std::string text;
    for (int i = 1; i <= count; ++i) {
      const std::string slot = std::to_string((current + i) % count);
      text += ReadFile(entries["filename/filename_" + slot]);
    }
    return text;
  }

  CTempDir m_Etc;
  CTempDir m_Logs;
  std::string m_Config;
};

// --- Rotation by size ---

TEST(Restart, SizeRotationAppendsToTheSameFile) {
  tagRing ring("logMaxSize=64\nlogMaxCount=3\n");
  ASSERT_TRUE(Succeeded(ring.Run(0, 2, kNoon)));
  ASSERT_TRUE(Succeeded(ring.Run(2, 2, kNoon + 60)));
  EXPECT_THAT(ring.Files(), ElementsAre("20240315120000.log"));
  EXPECT_EQ(Line(0) + Line(1) + Line(2) + Line(3), ReadFile(ring.m_Logs.File(ring.Files()[0])));
}

TEST(Restart, SizeOfTheFileCountsFromWhatItHolds) {
  tagRing ring("logMaxSize=1\nlogMaxCount=3\n");
  // 11 lines pass 1 KiB: the twelfth record goes to the next file, in whichever run it comes.
  ASSERT_TRUE(Succeeded(ring.Run(0, 11, kNoon)));
  ASSERT_TRUE(Succeeded(ring.Run(11, 1, kNoon + 60)));
  EXPECT_THAT(ring.Files(), ElementsAre("20240315120000.log", "20240315120100.log"));
  EXPECT_EQ(Line(11), ReadFile(ring.m_Logs.File("20240315120100.log")));
}

TEST(Restart, OldestFileIsDeletedNext) {
  tagRing ring("logMaxSize=1\nlogMaxCount=3\n");
  ASSERT_TRUE(Succeeded(ring.Run(0, 11, kNoon)));
  ASSERT_TRUE(Succeeded(ring.Run(11, 11, kNoon + 60)));
  ASSERT_TRUE(Succeeded(ring.Run(22, 11, kNoon + 120)));
  ASSERT_TRUE(Succeeded(ring.Run(33, 11, kNoon + 180)));
  EXPECT_THAT(ring.Files(),
              ElementsAre("20240315120100.log", "20240315120200.log", "20240315120300.log"));
  ASSERT_TRUE(Succeeded(ring.Run(44, 1, kNoon + 240)));
  EXPECT_THAT(ring.Files(),
              ElementsAre("20240315120200.log", "20240315120300.log", "20240315120400.log"));
}

TEST(Restart, FileOfTheIndexThatIsGoneIsMadeAgain) {
  tagRing ring("logMaxSize=1\nlogMaxCount=3\n");
  ASSERT_TRUE(Succeeded(ring.Run(0, 1, kNoon)));
  ASSERT_EQ(0, remove(ring.m_Logs.File("20240315120000.log").c_str()));
  ASSERT_TRUE(Succeeded(ring.Run(1, 1, kNoon + 60)));
  EXPECT_THAT(ring.Files(), ElementsAre("20240315120000.log"));
  EXPECT_EQ(Line(1), ReadFile(ring.m_Logs.File("20240315120000.log")));
}

// A log path that is no folder and has none: what the index lists is a path all the same.
TEST(Restart, RelativePathWithoutAFolderIsContinuedAndCounted) {
  tagRing ring("logMaxSize=1\nlogMaxCount=2\n", "app-");
  const char* const others = "20240315120000.log";
  ASSERT_TRUE(WriteFile(ring.m_Logs.File(others), "not of the ring\n"));
  ASSERT_TRUE(Succeeded(ring.Run(0, 1, kNoon)));
  ASSERT_TRUE(Succeeded(ring.Run(1, 1, kNoon + 60)));
  EXPECT_THAT(ring.Files(), ElementsAre(others, "app-20240315120000.log"));
  EXPECT_EQ(Line(0) + Line(1), ReadFile(ring.m_Logs.File("app-20240315120000.log")));
  ASSERT_TRUE(Succeeded(ring.Run(2, 11, kNoon + 120)));
  ASSERT_TRUE(Succeeded(ring.Run(13, 11, kNoon + 180)));
  EXPECT_THAT(ring.Files(),
              ElementsAre(others, "app-20240315120200.log", "app-20240315120300.log"));
}

// Real time: many names of the same second, in the same run and in the next.
TEST(Restart, TenRestartsBySizeKeepTheCountAndTheTail) {
  for (const int count : {1, 2, 3, 10}) {
    tagRing ring("logMaxSize=1\nlogMaxCount=" + std::to_string(count) + "\n");
    long next = 0;
    for (int run = 0; run < 11; ++run) {
      const long records = 7 + 13 * run;
      ASSERT_TRUE(Succeeded(ring.Run(next, records)));
      next += records;
      ASSERT_LE(ring.Files().size(), static_cast<size_t>(count)) << "run " << run;
      std::string tail;
      for (long i = 0; i < next; ++i)
        tail += Line(i);
      const std::string text = ring.Text(count);
      ASSERT_EQ(0u, text.size() % kLineBytes);
      // All files but the last one are full.
      ASSERT_GE(text.size(), std::min(tail.size(), static_cast<size_t>(count - 1) * 1024));
      ASSERT_EQ(tail.substr(tail.size() - text.size()), text) << "run " << run;
    }
    EXPECT_EQ(static_cast<size_t>(count), ring.Files().size());
  }
}

// --- Rotation by time ---

TEST(Restart, TimeRotationMovesToTheNextSlotAndDeletesItsFile) {
  tagRing ring("logMaxSize=0\nlogMaxDuration=3600\nlogMaxCount=3\n");
  for (int run = 0; run < 3; ++run) {
    ASSERT_TRUE(Succeeded(ring.Run(run, 1, kNoon + 60 * run)));
  }
  EXPECT_THAT(ring.Files(),
              ElementsAre("20240315120000.log", "20240315120100.log", "20240315120200.log"));
  ASSERT_TRUE(Succeeded(ring.Run(3, 1, kNoon + 180)));
  EXPECT_THAT(ring.Files(),
              ElementsAre("20240315120100.log", "20240315120200.log", "20240315120300.log"));
  EXPECT_EQ(Line(1) + Line(2) + Line(3), ring.Text(3));
}

TEST(Restart, TenRestartsByTimeKeepTheCountAndTheTail) {
  for (const int count : {1, 2, 3, 10}) {
    tagRing ring("logMaxSize=0\nlogMaxDuration=2\nlogMaxCount=" + std::to_string(count) + "\n");
    long next = 0;
    std::string tail;
    for (int run = 0; run < 11; ++run) {
      // Half a second a record: the run takes several files.
      ASSERT_TRUE(Succeeded(ring.Run(next, 17, kNoon + 100 * run, 500)));
      for (int i = 0; i < 17; ++i)
        tail += Line(next++);
      ASSERT_LE(ring.Files().size(), static_cast<size_t>(count)) << "run " << run;
      const std::string text = ring.Text(count);
      ASSERT_EQ(tail.substr(tail.size() - text.size()), text) << "run " << run;
      // The run may have ended just behind a rotation, with an empty file.
      ASSERT_GE(text.size(), static_cast<size_t>(count - 1) * kLineBytes);
    }
    EXPECT_EQ(static_cast<size_t>(count), ring.Files().size());
  }
}

// A restart within the second in which the last file was named shares its name, and loses nothing.
TEST(Restart, TimeRotationWithinTheSameSecondAppends) {
  tagRing ring("logMaxSize=0\nlogMaxDuration=3600\nlogMaxCount=3\n");
  for (int run = 0; run < 5; ++run)
    ASSERT_TRUE(Succeeded(ring.Run(run, 1, kNoon)));
  ASSERT_THAT(ring.Files(), ElementsAre("20240315120000.log"));
  EXPECT_EQ(Line(0) + Line(1) + Line(2) + Line(3) + Line(4),
            ReadFile(ring.m_Logs.File("20240315120000.log")));
}

// --- Killed ---

// Kills runs at random moments; between them the ring never holds more files than it may, and no
// file is forgotten.
void KillAtRandomMoments(const std::string& settings, size_t count, int64_t start, int64_t stepMs) {
  tagRing ring(settings);
  std::minstd_rand random(20240315);
  size_t written = 0;
  for (int round = 0; round < Rounds(); ++round) {
    CChild child(
        ChildCommand("LogLines", {ring.m_Config, "0", "100000000",
                                  std::to_string(start + 1000 * round), std::to_string(stepMs)}));
    // Not before it has begun to log.
    ASSERT_TRUE(child.WaitForOutput("started\n", 10000));
    PauseMs(static_cast<int>(random() % 60));
    child.Signal(SIGKILL);
    ASSERT_EQ(SIGKILL, child.Wait().m_Signal);
    const std::vector<std::string> files = ring.Files();
    ASSERT_LE(files.size(), count) << "round " << round;
    // What is on the disk is in the index: the next run will remove it in its turn.
    std::string indexed;
    for (const auto& entry : ReadEntries(ring.m_Config))
      indexed += entry.second + "\n";
    for (const std::string& name : files) {
      ASSERT_NE(std::string::npos, indexed.find(ring.m_Logs.File(name) + "\n")) << name;
      written += static_cast<size_t>(FileSize(ring.m_Logs.File(name)));
    }
  }
  // A ring of one is without a file for as long as the index is being saved.
  if (count > 1) {
    EXPECT_LT(0u, written);
  }
  // The next run that ends by itself leaves the ring and the folder of the index in order.
  ASSERT_TRUE(Succeeded(ring.Run(0, 200, start + 1000000, stepMs)));
  EXPECT_EQ(count, ring.Files().size());
  EXPECT_THAT(ListFolder(ring.m_Etc.Path()), ElementsAre("kelvik.ini"));
}

TEST(Restart, KilledBySizeNeverLeavesMoreFilesThanTheCount) {
  KillAtRandomMoments("logMaxSize=1\nlogMaxCount=3\n", 3, kNoon, 300);
  KillAtRandomMoments("logMaxSize=1\nlogMaxCount=1\n", 1, kNoon, 300);
}

TEST(Restart, KilledByTimeNeverLeavesMoreFilesThanTheCount) {
  KillAtRandomMoments("logMaxSize=0\nlogMaxDuration=2\nlogMaxCount=3\n", 3, kNoon, 300);
  KillAtRandomMoments("logMaxSize=0\nlogMaxDuration=2\nlogMaxCount=1\n", 1, kNoon, 300);
}

}  // namespace
}  // namespace Kelvik
