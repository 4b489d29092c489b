// The ring of log files that change by size. The wall clock stands still, so names are known.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <thread>

#include "FakeClock.h"
#include "OutputTools.h"
#include "PrintedText.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

int Write(const std::string& text) {
  return Output().WriteLogBySzie(text.data(), static_cast<int>(text.size()));
}

// Puts a text into the back buffer as a hand-over does.
void Wait(const std::string& text) {
  CGuard guard(&Output().m_WriteMutex);
  std::memcpy(Output().m_BackBuffer, text.data(), text.size());
  Output().m_BackLength = static_cast<int32_t>(text.size());
}

// --- Names and limits ---

CHILD_CASE(FirstFile) {
  CFakeClock clock(kNoon);
  UseSize(args[0] + "app-", 0);
  umask(0);
  EXPECT_EQ(0, Write("a\n"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("app-20240315120000.log:a "));
  EXPECT_STREQ(kNoonName, Output().m_FileNames[0]);
  struct stat status = {};
  EXPECT_EQ(0, stat((args[0] + "app-" + kNoonName).c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 07777);
  EXPECT_EQ(0, Output().m_FileIndex);
  EXPECT_EQ(0, Output().m_NewFileOpened);
  EXPECT_EQ(Output().m_FileFds[0], Output().m_CurrentFd);
  EXPECT_EQ(2, Output().m_FileSize);
  return 0;
}

TEST(SizeWriter, FileIsNamedByTheClockBehindThePathAsItStands) {
  EXPECT_TRUE(RunCase("FirstFile"));
}

CHILD_CASE(Limit) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 10, 3);
  EXPECT_EQ(0, Write("aaaa\n"));
  EXPECT_EQ(0, Write("bbbb\n"));
  EXPECT_EQ(10, Output().m_FileSize);
  clock.Set(kNoon + 1);
  EXPECT_EQ(0, Write("c\n")) << "equal to the limit";
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:aaaa bbbb c "));
  clock.Set(kNoon + 2);
  EXPECT_EQ(0, Write("a record far longer than a file\n"));
  EXPECT_THAT(Contents(args[1]),
              ElementsAre("20240315120000.log:aaaa bbbb c ",
                          "20240315120002.log:a record far longer than a file "));
  EXPECT_EQ(1, Output().m_FileIndex);
  EXPECT_EQ(32, Output().m_FileSize);
  EXPECT_EQ(-1, Output().m_FileFds[0]) << "the file that was left is closed";
  return 0;
}

TEST(SizeWriter, FileEqualToTheLimitIsNotRotated) {
  EXPECT_TRUE(RunCase("Limit"));
}

CHILD_CASE(Ring) {
  const int count = std::stoi(args[2]);
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1, static_cast<uint32_t>(count));
  for (int i = 0; i < 25; ++i) {
    EXPECT_EQ(0, Write(std::to_string(i) + "\n"));
    EXPECT_EQ(i % count, Output().m_FileIndex);
    EXPECT_EQ(static_cast<size_t>(std::min(i + 1, count)), ListFolder(args[1]).size());
    clock.AdvanceMs(1000);
  }
  std::string expected;
  for (int i = 25 - count; i < 25; ++i)
    expected += std::to_string(i) + "\n";
  EXPECT_EQ(expected, AllText(args[1]));
  return 0;
}

TEST(SizeWriter, RingKeepsTheNewestFiles) {
  for (const char* count : {"1", "2", "3", "10"})
    EXPECT_TRUE(RunCase("Ring", {count})) << count;
}

CHILD_CASE(OneSecond) {
  const int count = std::stoi(args[2]);
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1, static_cast<uint32_t>(count));
  for (int i = 0; i <= 20; ++i)
    EXPECT_EQ(0, Write(std::to_string(i) + "\n"));
  EXPECT_EQ(static_cast<size_t>(count), ListFolder(args[1]).size());
  std::string text;
  for (int i = 1; i <= count; ++i)
    text += ReadFile(args[0] + Output().m_FileNames[(Output().m_FileIndex + i) % count]);
  std::string expected;
  for (int i = 21 - count; i <= 20; ++i)
    expected += std::to_string(i) + "\n";
  EXPECT_EQ(expected, text);
  return 0;
}

TEST(SizeWriter, TwentyRotationsInOneSecondShareNoFile) {
  for (const char* count : {"1", "2", "3", "4", "10"})
    EXPECT_TRUE(RunCase("OneSecond", {count})) << count;
}

CHILD_CASE(SecondName) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1, 3);
  EXPECT_EQ(0, Write("a\n"));
  EXPECT_EQ(0, Write("b\n"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a ", "20240315120000_1.log:b "));
  EXPECT_EQ(0, Write("c\n"));
  EXPECT_STREQ("20240315120000_2.log", Output().m_FileNames[2]);
  // Such a name stands under the log path when it is reopened.
  EXPECT_EQ(0, Output().CloseFile());
  CGlobal::Instance()->SetLogMaxSize(100);
  EXPECT_EQ(0, Write("d\n"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a ", "20240315120000_1.log:b ",
                                             "20240315120000_2.log:c d "));
  return 0;
}

TEST(SizeWriter, SecondFileOfASecondCarriesItsSlot) {
  EXPECT_TRUE(RunCase("SecondName"));
}

CHILD_CASE(RestoredName) {
  // A path from an earlier run that ends in the name of this second counts as taken.
  CFakeClock clock(kNoon);
  const std::string& prefix = args[2];
  UseSize(args[0] + prefix, 0, 1, 3);
  EXPECT_TRUE(WriteFile(args[0] + prefix + kNoonName, "old\n"));
  EXPECT_EQ(0, Output().SetLogName(0, (args[0] + prefix + kNoonName).c_str()));
  EXPECT_EQ(0, Output().SetCurrentFileInfo(0, 4));
  EXPECT_EQ(0, Write("new\n"));
  EXPECT_THAT(Contents(args[1]), ElementsAre(prefix + "20240315120000.log:old ",
                                             prefix + "20240315120000_1.log:new "));
  return 0;
}

TEST(SizeWriter, RestoredPathTakesItsNameToo) {
  EXPECT_TRUE(RunCase("RestoredName", {""}));
  EXPECT_TRUE(RunCase("RestoredName", {"app-"}));
}

CHILD_CASE(OldContent) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1, 2);
  EXPECT_TRUE(WriteFile(args[0] + kNoonName, "old\n"));
  EXPECT_TRUE(WriteFile(args[0] + "20240315120001.log", "old\n"));
  EXPECT_TRUE(WriteFile(args[0] + "20240315120002.log", "0123456789"));
  // The first file of a slot is opened to be continued.
  EXPECT_EQ(0, Write("ab"));
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, Write("cd"));
  EXPECT_THAT(Contents(args[1]),
              ElementsAre("20240315120000.log:old ab", "20240315120001.log:old cd",
                          "20240315120002.log:0123456789"));
  EXPECT_EQ(2, Output().m_FileSize);
  // One that replaces a file of the slot is written from its start and not shortened.
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, Write("ef"));
  EXPECT_THAT(Contents(args[1]),
              ElementsAre("20240315120001.log:old cd", "20240315120002.log:ef23456789"));
  return 0;
}

TEST(SizeWriter, FileOfTheSameNameIsContinuedInAFreeSlotAndWrittenOverInAUsedOne) {
  EXPECT_TRUE(RunCase("OldContent"));
}

CHILD_CASE(Restart) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 6, 2);
  EXPECT_TRUE(WriteFile(args[0] + "20240101000000.log", "one\n"));
  EXPECT_TRUE(WriteFile(args[0] + "20240102000000.log", "two\n"));
  Output().SetLogName(0, (args[0] + "20240101000000.log").c_str());
  Output().SetLogName(1, (args[0] + "20240102000000.log").c_str());
  Output().SetCurrentFileInfo(1, 4);
  EXPECT_EQ(0, Write("abc\n"));
  EXPECT_THAT(Contents(args[1]),
              ElementsAre("20240101000000.log:one ", "20240102000000.log:two abc "));
  EXPECT_EQ(8, Output().m_FileSize);
  EXPECT_EQ(0, Write("def\n"));
  EXPECT_THAT(Contents(args[1]),
              ElementsAre("20240102000000.log:two abc ", "20240315120000.log:def "));
  return 0;
}

TEST(SizeWriter, RestoredRingIsContinuedAndItsOldestFileRemovedFirst) {
  EXPECT_TRUE(RunCase("Restart"));
}

CHILD_CASE(Counts) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1, 5);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(0, Write("x\n"));
    clock.AdvanceMs(1000);
  }
  EXPECT_EQ(4, Output().m_FileIndex);
  for (const uint32_t count : {2u, 0u, 0x80000000u, 0xFFFFFFFFu}) {
    CGlobal::Instance()->StoreLogMaxCount(count);
    EXPECT_EQ(0, Write("x\n"));
    EXPECT_EQ(0, Output().m_FileIndex) << count;
    clock.AdvanceMs(1000);
  }
  for (const uint32_t count : {11u, 200u, 0x7FFFFFFFu}) {
    CGlobal::Instance()->StoreLogMaxCount(count);
    for (int i = 0; i < 30; ++i) {
      EXPECT_EQ(0, Write("x\n"));
      EXPECT_GE(Output().m_FileIndex, 0);
      EXPECT_LT(Output().m_FileIndex, 10);
      clock.AdvanceMs(1000);
    }
  }
  return 0;
}

TEST(SizeWriter, CountIsSignedAndSlotsStayInTheRing) {
  EXPECT_TRUE(RunCase("Counts"));
}

CHILD_CASE(Saturates) {
  UseSize(args[0], 0, INT_MAX, 3);
  EXPECT_EQ(0, Write("a\n"));
  Output().m_FileSize = INT_MAX - 1;
  EXPECT_EQ(0, Write("abc\n"));
  EXPECT_EQ(INT_MAX, Output().m_FileSize);
  EXPECT_EQ(0, Write("abc\n"));
  EXPECT_EQ(INT_MAX, Output().m_FileSize);
  EXPECT_EQ(1u, ListFolder(args[1]).size());
  return 0;
}

TEST(SizeWriter, FileSizeStopsAtItsGreatestNumber) {
  EXPECT_TRUE(RunCase("Saturates"));
}

CHILD_CASE(Batch) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 4096, 5, 3);
  EXPECT_EQ(0, Output().Start());
  EXPECT_EQ(0, Output().Stop());
  Wait("first batch\n");
  EXPECT_EQ(0, Output().WriteLogBySzie(nullptr, 0));
  EXPECT_EQ(12, Output().m_FileSize);
  EXPECT_EQ(0, Output().m_BackLength);
  EXPECT_EQ(Output().GetTickCount(), Output().m_LastFlushTime);
  clock.AdvanceMs(1000);
  const uint32_t flushed = Output().m_LastFlushTime;
  EXPECT_EQ(0, Write("direct\n"));
  EXPECT_EQ(flushed, Output().m_LastFlushTime) << "a direct record is no batch";
  EXPECT_THAT(Contents(args[1]),
              ElementsAre("20240315120000.log:first batch ", "20240315120001.log:direct "));
  return 0;
}

TEST(SizeWriter, BatchesCountAndRotateAsRecordsDo) {
  EXPECT_TRUE(RunCase("Batch"));
}

// --- Pending rotation ---

CHILD_CASE(Pending) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1000, 3);
  EXPECT_EQ(0, Write("long "));
  Output().m_RotatePending = 1;
  EXPECT_EQ(0, Write("line\n"));
  EXPECT_EQ(0, Output().m_RotatePending);
  EXPECT_EQ(1, Output().m_FileIndex);
  EXPECT_EQ(0, Output().m_FileSize);
  // The same second, the plain name again: the file is written over from its start.
  EXPECT_STREQ(kNoonName, Output().m_FileNames[1]);
  EXPECT_EQ(0, Write("AB"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:ABng line "));
  clock.AdvanceMs(1000);
  Output().m_RotatePending = 1;
  EXPECT_EQ(0, Write("C"));
  clock.AdvanceMs(1000);
  Output().m_RotatePending = 1;
  EXPECT_EQ(0, Write("D"));
  EXPECT_EQ(0, Output().m_FileIndex);
  EXPECT_LE(ListFolder(args[1]).size(), 3u);
  return 0;
}

TEST(SizeWriter, PendingRotationFollowsTheWriteAndUsesThePlainName) {
  EXPECT_TRUE(RunCase("Pending"));
}

// --- Opens that fail ---

CHILD_CASE(FirstOpen) {
  CFakeClock clock(kNoon);
  UseSize(args[0] + "sub/", 0);
  EXPECT_EQ(3, Write("a\n"));
  EXPECT_STREQ(kNoonName, Output().m_FileNames[0]) << "the slot keeps its name";
  EXPECT_EQ(-1, Output().m_FileFds[0]);
  EXPECT_EQ(0, Output().m_NewFileOpened);
  clock.AdvanceMs(5000);
  EXPECT_EQ(3, Write("b\n"));
  EXPECT_EQ(0, LogLine("c")) << "the buffered step drops the result";
  EXPECT_EQ(0, mkdir((args[0] + "sub").c_str(), 0700));
  EXPECT_EQ(0, Write("d\n"));
  EXPECT_THAT(Contents(args[1] + "/sub"), ElementsAre("20240315120000.log:d "));
  return 0;
}

TEST(SizeWriter, FailedOpenIsTriedAgainUnderTheSameName) {
  EXPECT_TRUE(RunCase("FirstOpen"));
}

CHILD_CASE(RotationOpen) {
  CFakeClock clock(kNoon);
  const std::string sub = args[0] + "sub";
  const std::string away = args[0] + "away";
  EXPECT_EQ(0, mkdir(sub.c_str(), 0700));
  UseSize(sub + "/", 0, 1, 3);
  for (const char* text : {"a\n", "b\n", "c\n"}) {
    EXPECT_EQ(0, Write(text));
    clock.AdvanceMs(1000);
  }
  EXPECT_EQ(0, rename(sub.c_str(), away.c_str()));
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(3, Write("lost\n"));
    EXPECT_EQ(0, Output().m_FileIndex) << "the same slot again";
    EXPECT_EQ(-1, Output().m_CurrentFd);
    clock.AdvanceMs(1000);
  }
  EXPECT_EQ(0, rename(away.c_str(), sub.c_str()));
  EXPECT_EQ(0, Write("d\n"));
  EXPECT_EQ(0, Output().m_FileIndex);
  const std::string text = AllText(sub);
  EXPECT_THAT(text, HasSubstr("b\nc\n"));
  EXPECT_THAT(text, HasSubstr("d\n"));
  EXPECT_THAT(text, Not(HasSubstr("lost")));
  EXPECT_EQ(0, Write("e\n"));
  EXPECT_EQ(1, Output().m_FileIndex);
  return 0;
}

TEST(SizeWriter, FailedOpenAtARotationKeepsTheSlotAndRemovesNothingMore) {
  EXPECT_TRUE(RunCase("RotationOpen"));
}

CHILD_CASE(BlockedRotation) {
  // A folder under the next name: only the oldest file goes, whatever is tried.
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1, 3);
  for (const char* text : {"a\n", "b\n", "c\n"}) {
    EXPECT_EQ(0, Write(text));
    clock.AdvanceMs(1000);
  }
  EXPECT_EQ(0, mkdir((args[0] + "20240315120003.log").c_str(), 0700));
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(3, Write("lost\n"));
  EXPECT_EQ("b\n", ReadFile(args[0] + "20240315120001.log"));
  EXPECT_EQ("c\n", ReadFile(args[0] + "20240315120002.log"));
  EXPECT_EQ(0, rmdir((args[0] + "20240315120003.log").c_str()));
  EXPECT_EQ(0, Write("d\n"));
  EXPECT_EQ("b\nc\nd\n", AllText(args[1]));
  return 0;
}

TEST(SizeWriter, BlockedNameAtARotationCostsTheOldestFileAlone) {
  EXPECT_TRUE(RunCase("BlockedRotation"));
}

// --- Files that others delete, and the closing form ---

CHILD_CASE(Deleted) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 10, 2);
  EXPECT_EQ(0, Write("a\n"));
  EXPECT_EQ(0, remove((args[0] + kNoonName).c_str()));
  EXPECT_EQ(0, Write("bbbbbbbbb\n"));
  EXPECT_THAT(ListFolder(args[1]), IsEmpty());
  EXPECT_EQ(12, Output().m_FileSize);
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, Write("c\n"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120001.log:c "));
  return 0;
}

TEST(SizeWriter, DeletedFileIsWrittenOnUntilItsRotation) {
  EXPECT_TRUE(RunCase("Deleted"));
}

CHILD_CASE(Closing) {
  CFakeClock clock(kNoon);
  COutput& output = Output();
  UseSize(args[0], 4096, 20, 3);
  EXPECT_EQ(0, output.Start());
  EXPECT_EQ(0, output.Stop());
  const int before = OpenDescriptors();
  Wait("one\n");
  EXPECT_EQ(0, output.WriteLogBySzieV1(nullptr, 0));
  EXPECT_EQ(-1, output.m_CurrentFd);
  EXPECT_EQ(-1, output.m_FileFds[0]);
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(4, output.m_FileSize);
  Wait("two\n");
  EXPECT_EQ(0, output.WriteLogBySzieV1(nullptr, 0));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:one two "));
  EXPECT_EQ(0, remove((args[0] + kNoonName).c_str()));
  Wait("three\n");
  EXPECT_EQ(0, output.WriteLogBySzieV1(nullptr, 0));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:three "));
  // A direct record leaves the file open.
  EXPECT_EQ(0, output.WriteLogBySzieV1("four four\n", 10));
  EXPECT_NE(-1, output.m_CurrentFd);
  EXPECT_EQ(before + 1, OpenDescriptors());
  // Rotations among closed files keep the ring's size.
  for (int i = 0; i < 12; ++i) {
    clock.AdvanceMs(1000);
    Wait("a batch of more than 20 bytes\n");
    EXPECT_EQ(0, output.WriteLogBySzieV1(nullptr, 0));
    EXPECT_EQ(before, OpenDescriptors());
    EXPECT_LE(ListFolder(args[1]).size(), 3u);
  }
  EXPECT_EQ(3u, ListFolder(args[1]).size());
  return 0;
}

TEST(SizeWriter, ClosingFormClosesAfterEachBatchAndRecreatesADeletedFile) {
  EXPECT_TRUE(RunCase("Closing"));
}

CHILD_CASE(ClosingFails) {
  COutput& output = Output();
  UseSize(args[0], 4096);
  EXPECT_EQ(0, output.Start());
  EXPECT_EQ(0, output.Stop());
  EXPECT_EQ(0, output.WriteLogBySzieV1("a\n", 2));
  const int bad = open("/dev/null", O_RDONLY);
  const int fd = output.m_CurrentFd;
  // Neither EBADF nor ENOSPC: a pipe without a reader.
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  close(ends[0]);
  signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(fd, dup2(ends[1], fd));
  Wait("lost\n");
  EXPECT_EQ(1, output.WriteLogBySzieV1(nullptr, 0));
  EXPECT_EQ(0, output.m_BackLength);
  EXPECT_EQ(-1, output.m_CurrentFd);
  EXPECT_EQ(-1, output.m_FileFds[0]);
  EXPECT_EQ(-1, fcntl(fd, F_GETFD));
  Wait("b\n");
  EXPECT_EQ(0, output.WriteLogBySzieV1(nullptr, 0));
  EXPECT_EQ("a\nb\n", AllText(args[1]));
  close(bad);
  return 0;
}

TEST(SizeWriter, ClosingFormClosesAfterAFailureToo) {
  EXPECT_TRUE(RunCase("ClosingFails"));
}

}  // namespace
}  // namespace Kelvik
