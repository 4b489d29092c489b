// Log files that change after a time: records written at once, and the writers called by
// themselves. The wall clock stands where a case puts it.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstring>

#include "ConfigTools.h"
#include "FakeClock.h"
#include "TimeRotationTools.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Runs a case whose third argument is a configuration path in another folder.
testing::AssertionResult RunWithConfig(const std::string& name) {
  const CTempDir etc;
  return RunCase(name, {etc.File("kelvik.ini")});
}

// --- Records written at once ---

CHILD_CASE(Direct) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 0, 10);
  EXPECT_THAT(LogFiles(args[1]), IsEmpty());
  EXPECT_EQ(0, LogLine("a"));
  clock.Set(kNoon + 9, 999999);
  EXPECT_EQ(0, LogLine("b"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a b "));
  // The record that finds the time up is the last one of its file.
  clock.Set(kNoon + 10);
  EXPECT_EQ(0, LogLine("c"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a b c ", "20240315120010.log:"));
  clock.Set(kNoon + 12);
  EXPECT_EQ(0, LogLine("d"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a b c ", "20240315120010.log:d "));
  // The time counts from the record that rotated; without records nothing rotates.
  clock.Set(kNoon + 19);
  EXPECT_EQ(0, LogLine("e"));
  clock.Set(kNoon + 500);
  EXPECT_EQ(2u, LogFiles(args[1]).size());
  EXPECT_EQ(0, LogLine("f"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a b c ",
                                             "20240315120010.log:d e f ", "20240315120820.log:"));
  // The ring is full: the oldest file goes.
  clock.Set(kNoon + 510);
  EXPECT_EQ(0, LogLine("g"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120010.log:d e f ", "20240315120820.log:g ",
                                             "20240315120830.log:"));
  EXPECT_EQ(0, Output().m_FileIndex);
  return 0;
}

TEST(TimeRotation, FileLivesFromItsFirstRecordToTheOneThatFindsItsTimeUp) {
  EXPECT_TRUE(RunCase("Direct"));
}

CHILD_CASE(OneFile) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 0, 1, 1);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(0, LogLine(std::to_string(i)));
    EXPECT_EQ(1u, LogFiles(args[1]).size());
    clock.AdvanceMs(1000);
  }
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120004.log:"));
  return 0;
}

TEST(TimeRotation, RingOfOneReplacesItsFile) {
  EXPECT_TRUE(RunCase("OneFile"));
}

CHILD_CASE(NoFile) {
  CFakeClock clock(kNoon);
  for (const uint32_t duration : {0u, 0x80000000u, 0xFFFFFFFFu}) {
    UseTime(args[0], 0, duration);
    EXPECT_EQ(0, LogLine("x"));
    UseTime(args[0], 4096, duration);
    EXPECT_EQ(0, LogLine("x"));
  }
  EXPECT_THAT(LogFiles(args[1]), IsEmpty());
  EXPECT_EQ(0, Output().m_TimeMode);
  // The longest duration is one.
  UseTime(args[0], 0, 0x7FFFFFFF);
  EXPECT_EQ(0, LogLine("x"));
  clock.Set(kNoon + 400000000);
  EXPECT_EQ(0, LogLine("y"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:x y "));
  return 0;
}

TEST(TimeRotation, DurationBelowOneWritesNoFile) {
  EXPECT_TRUE(RunCase("NoFile"));
}

CHILD_CASE(NegativeSize) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 0, 10);
  CGlobal::Instance()->SetLogMaxSize(0x80000000u);
  EXPECT_EQ(0, LogLine("x"));
  EXPECT_EQ(1, Output().m_TimeMode);
  EXPECT_EQ(0, Output().m_SizeMode);
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:x "));
  return 0;
}

TEST(TimeRotation, SizeOfTwoGigabytesOrMoreCountsAsNone) {
  EXPECT_TRUE(RunCase("NegativeSize"));
}

CHILD_CASE(Index) {
  CFakeClock clock(kNoon);
  SetConfigFilePath(args[2].c_str());
  UseTime(args[0], 0, 10, 2);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(0, LogLine("x"));
    clock.AdvanceMs(10000);
    Entries entries = ReadEntries(args[2]);
    const int slot = Output().m_FileIndex;
    EXPECT_EQ(i % 2, slot);
    EXPECT_EQ(std::to_string(slot), entries["global/logindex"]);
    EXPECT_EQ(args[0] + Output().m_FileNames[slot],
              entries["filename/filename_" + std::to_string(slot)]);
  }
  return 0;
}

TEST(TimeRotation, EveryNewFileIsEnteredInTheIndex) {
  EXPECT_TRUE(RunWithConfig("Index"));
}

CHILD_CASE(Reopen) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 0, 1000);
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, Output().CloseFile());
  SetConfigFilePath(args[2].c_str());
  clock.AdvanceMs(5000);
  EXPECT_EQ(0, LogLine("b"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a b "));
  EXPECT_FALSE(Exists(args[2])) << "a file that is reopened is in the index already";
  return 0;
}

TEST(TimeRotation, ClosedFileIsReopenedByItsNameWithoutAnEntry) {
  EXPECT_TRUE(RunWithConfig("Reopen"));
}

// args: log path in a folder that is not there, the folder.
CHILD_CASE(OpenFails) {
  CFakeClock clock(kNoon);
  UseTime(args[0] + "sub/", 0, 10);
  EXPECT_EQ(3, LogLine("a"));
  EXPECT_EQ(-1, Output().m_FileFds[0]);
  clock.AdvanceMs(3000);
  EXPECT_EQ(3, LogLine("b"));
  EXPECT_EQ(0, Output().m_FileIndex);
  EXPECT_EQ(0, mkdir((args[1] + "/sub").c_str(), 0700));
  EXPECT_EQ(0, LogLine("c"));
  EXPECT_THAT(Contents(args[1] + "/sub"), ElementsAre("20240315120000.log:c "));
  // At a rotation: the record is written, the next file is not there yet.
  EXPECT_EQ(0, rename((args[1] + "/sub").c_str(), (args[1] + "/away").c_str()));
  clock.AdvanceMs(10000);
  EXPECT_EQ(3, LogLine("d"));
  EXPECT_EQ(1, Output().m_FileIndex);
  EXPECT_EQ(3, LogLine("e"));
  EXPECT_EQ(1, Output().m_FileIndex);
  EXPECT_EQ(0, rename((args[1] + "/away").c_str(), (args[1] + "/sub").c_str()));
  EXPECT_EQ(0, LogLine("f"));
  EXPECT_THAT(Contents(args[1] + "/sub"),
              ElementsAre("20240315120000.log:c d ", "20240315120013.log:f "));
  return 0;
}

TEST(TimeRotation, FailedOpenIsTriedAgainWithTheSameSlotAndName) {
  EXPECT_TRUE(RunCase("OpenFails"));
}

// Calls of the writer itself, with the names and flags that the buffered file step would set.
void Stamp(const char* name, bool rotate) {
  CGuard guard(&Output().m_BufferMutex);
  std::memset(Output().m_NextFileName, 0, sizeof(Output().m_NextFileName));
  std::strcpy(Output().m_NextFileName, name);
  Output().m_RotatePending = rotate ? 1 : 0;
}

CHILD_CASE(SameName) {
  UseTime(args[0], 0, 10);
  Stamp("same.log", false);
  EXPECT_EQ(0, Output().WriteLogByTime("fir", 3));
  Stamp("same.log", true);
  EXPECT_EQ(0, Output().WriteLogByTime("st\n", 3));
  // Twice the same name: the next file is the same one, written over from its start.
  EXPECT_EQ(0, Output().WriteLogByTime("XY", 2));
  EXPECT_THAT(Contents(args[1]), ElementsAre("same.log:XYrst "));
  EXPECT_EQ(1, Output().m_FileIndex);
  EXPECT_EQ(0, Output().m_RotatePending);
  return 0;
}

TEST(TimeRotation, SameNameTwiceWritesOverTheFileFromItsStart) {
  EXPECT_TRUE(RunCase("SameName"));
}

CHILD_CASE(OtherName) {
  UseTime(args[0], 0, 10);
  const std::string restored = args[1] + "/restored.log";
  const std::string next = args[1] + "/next.log";
  EXPECT_TRUE(WriteFile(restored, "old\n"));
  EXPECT_TRUE(WriteFile(next, "older\n"));
  Output().SetLogName(0, restored.c_str());
  Output().SetLogName(1, next.c_str());
  Output().SetCurrentFileInfo(0, 4);
  Stamp("new.log", false);
  EXPECT_EQ(0, Output().WriteLogByTime("x\n", 2));
  EXPECT_EQ(1, Output().m_FileIndex);
  EXPECT_STREQ("new.log", Output().m_FileNames[1]);
  EXPECT_THAT(Contents(args[1]), ElementsAre("new.log:x ", "restored.log:old "));
  return 0;
}

TEST(TimeRotation, SlotWithAnotherNameMovesOnAndDeletesTheNextSlotsFile) {
  EXPECT_TRUE(RunCase("OtherName"));
}

CHILD_CASE(BareNextName) {
  // The next slot's file is looked for under the log path first, then as it is named.
  UseTime(args[0], 0, 10);
  EXPECT_TRUE(WriteFile(args[1] + "/bare.log", "old\n"));
  Output().SetLogName(0, "/tmp/restored.log");
  Output().SetLogName(1, "bare.log");
  Output().SetCurrentFileInfo(0, 4);
  Stamp("new.log", false);
  EXPECT_EQ(0, Output().WriteLogByTime("x\n", 2));
  EXPECT_THAT(Contents(args[1]), ElementsAre("new.log:x "));
  return 0;
}

TEST(TimeRotation, BareNameOfTheNextSlotIsDeletedUnderTheLogPath) {
  EXPECT_TRUE(RunCase("BareNextName"));
}

CHILD_CASE(NoName) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 0, 10);
  EXPECT_EQ(0, Output().WriteLogByTime("x\n", 2));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:x "));
  return 0;
}

TEST(TimeRotation, WriterCalledBeforeAnyRecordNamesItsFileByTheClock) {
  EXPECT_TRUE(RunCase("NoName"));
}

CHILD_CASE(NewFileIsNotAppended) {
  // A slot without a name takes its new file from the start; nothing is cut off.
  UseTime(args[0], 0, 10);
  EXPECT_TRUE(WriteFile(args[1] + "/new.log", "0123456789"));
  Stamp("new.log", false);
  EXPECT_EQ(0, Output().WriteLogByTime("ab", 2));
  EXPECT_THAT(Contents(args[1]), ElementsAre("new.log:ab23456789"));
  return 0;
}

TEST(TimeRotation, FirstFileOfASlotIsWrittenOverNotShortened) {
  EXPECT_TRUE(RunCase("NewFileIsNotAppended"));
}

CHILD_CASE(Sizes) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 0, 10);
  EXPECT_EQ(0, LogLine("abc"));
  EXPECT_EQ(4, Output().m_FileSize);
  clock.AdvanceMs(10000);
  EXPECT_EQ(0, LogLine("abc"));
  EXPECT_EQ(8, Output().m_FileSize) << "a rotation leaves it alone";
  return 0;
}

TEST(TimeRotation, DirectWritesAddToTheSizeAndRotationsLeaveIt) {
  EXPECT_TRUE(RunCase("Sizes"));
}

// --- The form that closes its file ---

CHILD_CASE(Closing) {
  UseTime(args[0], 4096, 10);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, Output().Stop());  // the writer is this thread
  COutput& output = Output();
  const int before = OpenDescriptors();
  const auto wait = [&](const char* text) {
    CGuard guard(&output.m_WriteMutex);
    std::memcpy(output.m_BackBuffer, text, std::strlen(text));
    output.m_BackLength = static_cast<int32_t>(std::strlen(text));
  };
  Stamp("a.log", false);
  wait("one ");
  EXPECT_EQ(0, output.WriteLogByTimeV1(nullptr, 0));
  EXPECT_EQ(-1, output.m_CurrentFd);
  EXPECT_EQ(-1, output.m_FileFds[0]);
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(0, output.m_BackLength);
  EXPECT_EQ(0, output.m_FileSize) << "a batch does not count";
  // It is reopened by its name, at its end; a file that somebody deleted comes back.
  wait("two ");
  EXPECT_EQ(0, output.WriteLogByTimeV1(nullptr, 0));
  EXPECT_THAT(Contents(args[1]), ElementsAre("a.log:one two "));
  EXPECT_EQ(0, remove((args[1] + "/a.log").c_str()));
  wait("three ");
  // With a rotation the new file stands empty and closed.
  Stamp("a.log", true);
  EXPECT_EQ(0, output.WriteLogByTimeV1(nullptr, 0));
  EXPECT_EQ(1, output.m_FileIndex);
  Stamp("b.log", false);
  EXPECT_EQ(before, OpenDescriptors());
  // A direct write leaves it open.
  Stamp("a.log", false);
  EXPECT_EQ(0, output.WriteLogByTimeV1("four ", 5));
  EXPECT_NE(-1, output.m_CurrentFd);
  EXPECT_EQ(before + 1, OpenDescriptors());
  EXPECT_EQ(5, output.m_FileSize);
  EXPECT_THAT(Contents(args[1]), ElementsAre("a.log:three four "));
  return 0;
}

TEST(TimeRotation, ClosingFormClosesAfterEachBatchAndReopensAtTheEnd) {
  EXPECT_TRUE(RunCase("Closing"));
}

CHILD_CASE(ClosingRotates) {
  UseTime(args[0], 0, 10, 2);
  SetConfigFilePath(args[2].c_str());
  COutput& output = Output();
  Stamp("a.log", false);
  EXPECT_EQ(0, output.WriteLogByTimeV1("x", 1));
  for (const char* name : {"b.log", "c.log", "d.log"}) {
    Stamp(name, true);
    EXPECT_EQ(0, output.WriteLogByTimeV1(nullptr, 0));
    const int slot = output.m_FileIndex;
    EXPECT_STREQ(name, output.m_FileNames[slot]);
    EXPECT_EQ(-1, output.m_FileFds[slot]);
    EXPECT_EQ(-1, output.m_CurrentFd);
    Entries entries = ReadEntries(args[2]);
    EXPECT_EQ(std::to_string(slot), entries["global/logindex"]);
    EXPECT_EQ(args[0] + name, entries["filename/filename_" + std::to_string(slot)]);
    EXPECT_LE(LogFiles(args[1]).size(), 2u);
  }
  EXPECT_THAT(Contents(args[1]), ElementsAre("c.log:", "d.log:"));
  return 0;
}

TEST(TimeRotation, ClosingFormLeavesTheNewFileEmptyAndClosed) {
  EXPECT_TRUE(RunWithConfig("ClosingRotates"));
}

}  // namespace
}  // namespace Kelvik
