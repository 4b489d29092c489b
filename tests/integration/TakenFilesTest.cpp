// Somebody else takes the ring's files away, or puts something in their place, between two uses.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "LossTools.h"

namespace Kelvik {
namespace {

std::string SlotName(int slot) {
  return Look(Output().m_FileNames[slot][0]) == '\0' ? "" : Output().m_FileNames[slot];
}

// Fills the current file past its limit and moves on. Returns the path of the file that was left,
// which has text that no flush has synced.
std::string LeaveFile(const std::string& folder) {
  const int slot = Look(Output().m_FileIndex);
  for (int number = 0; Look(Output().m_FileIndex) == slot; ++number) {
    EXPECT_LT(number, 100);
    EXPECT_EQ(0, LogNumber("left", number));
  }
  return folder + "/" + SlotName(slot);
}

CHILD_CASE(FlushAfterRemoval) {
  UseSize(args.at(0), 0, 1024, 5);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogNumber("first", 0));
  const std::string removed = LeaveFile(args.at(1));
  EXPECT_EQ(0, unlink(removed.c_str())) << removed;
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 1)) << "there is nothing left to sync";

  // A link under the name is not followed: what it leads to is none of the library's.
  const std::string replaced = LeaveFile(args.at(1));
  const std::string aside = args.at(1) + "/aside";
  EXPECT_EQ(0, rename(replaced.c_str(), aside.c_str()));
  EXPECT_EQ(0, symlink(aside.c_str(), replaced.c_str()));
  EXPECT_EQ(1, KelvikExtra_Flush(5000, 1));
  EXPECT_EQ(1, KelvikExtra_Flush(5000, 1)) << "it is tried again";
  EXPECT_EQ(0, unlink(replaced.c_str()));
  EXPECT_EQ(0, rename(aside.c_str(), replaced.c_str()));
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 1));
  return 0;
}

TEST(TakenFiles, FlushForgetsAFileThatIsGoneAndFailsForOneThatIsALink) {
  EXPECT_TRUE(RunCase("FlushAfterRemoval"));
}

int LogRaw(char letter, int bytes) {
  const std::string text = Bytes(letter, bytes);
  return KLogs(eLogLevelInfo, nullptr, nullptr, text.c_str(), bytes);
}

CHILD_CASE(RawAfterRemoval) {
  UseSize(args.at(0), 0, 64, 2);
  EXPECT_EQ(0, Initialize());
  Output().SetLogName(0, "first.log");
  Output().SetLogName(1, "second.log");
  const std::string first = args.at(1) + "/first.log";
  EXPECT_EQ(0, LogRaw('a', 100));
  EXPECT_EQ(0, LogRaw('b', 100));
  EXPECT_EQ(0, unlink(first.c_str()));
  const uint64_t removals = Statistics().m_FilesRemoved;
  EXPECT_EQ(0, LogRaw('c', 100));
  EXPECT_EQ(removals, Statistics().m_FilesRemoved) << "somebody else removed it";
  EXPECT_EQ(Bytes('c', 100), ReadFile(first));

  // Something that is no log file: the record is refused, the other one stays as it is.
  EXPECT_EQ(0, LogRaw('d', 100));
  EXPECT_EQ(0, unlink(first.c_str()));
  EXPECT_EQ(0, mkdir(first.c_str(), 0700));
  EXPECT_TRUE(WriteFile(first + "/inside", "kept"));
  const uint64_t errors = Statistics().m_OpenErrors;
  EXPECT_EQ(3, LogRaw('e', 100));
  EXPECT_EQ(errors + 1, Statistics().m_OpenErrors);
  EXPECT_EQ("kept", ReadFile(first + "/inside"));
  EXPECT_EQ(Bytes('d', 100), ReadFile(args.at(1) + "/second.log"));
  return 0;
}

TEST(TakenFiles, RawRecordsGoOnWithoutAFileAndRefuseWhatIsNone) {
  EXPECT_TRUE(RunCase("RawAfterRemoval"));
}

}  // namespace
}  // namespace Kelvik
