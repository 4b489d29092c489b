// Raw records in files: written at once, in two files that take turns.

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <thread>

#include "FakeClock.h"
#include "OutputTools.h"
#include "PrintedText.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

int LogRaw(const std::string& text) {
  return KLogs(eLogLevelInfo, "net", "rx", text.c_str(), static_cast<int>(text.size()));
}

int LogRawAt(const std::string& text) {
  return KLogsV1(eLogLevelInfo, "net", "rx", "a.c", "main", 1, text.c_str(),
                 static_cast<int>(text.size()));
}

using RawLog = int (*)(const std::string&);
RawLog Form(const std::string& name) {
  return name == "plain" ? LogRaw : LogRawAt;
}

// Two named slots that nobody has opened yet.
void NameTwo() {
  Output().SetLogName(0, "first.log");
  Output().SetLogName(1, "second.log");
}

CHILD_CASE(NoName) {
  const RawLog log = Form(args[2]);
  UseSize(args[0], 4096);
  EXPECT_EQ(3, log("a\n"));
  EXPECT_THAT(ListFolder(args[1]), IsEmpty());
  EXPECT_STREQ("", Output().m_FileNames[0]);
  EXPECT_EQ(-1, Output().m_CurrentFd);
  SwitchFile(false);
  EXPECT_EQ(0, log("a\n"));
  SwitchFile(true);
  const char off = 0;
  SetAttribute(eAttributeLevel, eLogLevelInfo, &off, 1);
  EXPECT_EQ(2, log("a\n"));
  return 0;
}

TEST(RawFile, SlotWithoutANameIsAnOpenFailure) {
  for (const char* form : {"plain", "location"})
    EXPECT_TRUE(RunCase("NoName", {form}));
}

CHILD_CASE(SameFile) {
  const RawLog log = Form(args[2]);
  CFakeClock clock(kNoon);
  UseSize(args[0], 0);
  const char on = 1;
  SetAttribute(eAttributeOther, eOtherDateTime, &on, 1);
  SetAttribute(eAttributeOther, eOtherThreadId, &on, 1);
  EXPECT_EQ(0, Output().WriteLogBySzie("a\n", 2));
  EXPECT_EQ(0, log("raw\n")) << "without any prefix";
  EXPECT_EQ(0, Output().WriteLogBySzie("b\n", 2));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a raw b "));
  EXPECT_EQ(8, Output().m_FileSize);
  const std::string bytes("x\0y\n", 4);
  EXPECT_EQ(0, log(bytes)) << "the length counts, not the text's end";
  EXPECT_EQ("a\nraw\nb\n" + bytes, AllText(args[1]));
  return 0;
}

TEST(RawFile, RecordGoesAsItIsToTheFileThatIsOpen) {
  for (const char* form : {"plain", "location"})
    EXPECT_TRUE(RunCase("SameFile", {form}));
}

CHILD_CASE(NotBuffered) {
  UseSize(args[0], 4096);
  NameTwo();
  EXPECT_EQ(0, LogLine("waits"));
  EXPECT_EQ(0, LogRaw("raw\n"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("first.log:raw "));
  EXPECT_EQ(6, Output().m_FrontLength);
  EXPECT_EQ(4, Output().m_Signal.wait(0));
  return 0;
}

TEST(RawFile, RecordPassesTheBuffer) {
  EXPECT_TRUE(RunCase("NotBuffered"));
}

CHILD_CASE(Turns) {
  const RawLog log = Form(args[2]);
  UseSize(args[0], 0, 100, static_cast<uint32_t>(std::stoi(args[3])));
  NameTwo();
  EXPECT_EQ(0, log(Bytes('a', 80)));
  EXPECT_EQ(0, log(Bytes('b', 20)));
  EXPECT_EQ(100, Output().m_FileSize) << "equal to the limit";
  EXPECT_EQ(0, log(Bytes('c', 30)));
  EXPECT_EQ(0, Output().m_FileIndex);
  EXPECT_EQ(130, Output().m_FileSize);
  for (int turn = 1; turn < 6; ++turn) {
    const char letter = static_cast<char>('m' + turn);
    EXPECT_EQ(0, log(Bytes(letter, 110)));
    EXPECT_EQ(turn % 2, Output().m_FileIndex);
    EXPECT_EQ(Output().m_CurrentFd, Output().m_FileFds[turn % 2]);
    const std::string name = turn % 2 == 0 ? "first.log" : "second.log";
    EXPECT_EQ(Bytes(letter, 110), ReadFile(args[0] + name)) << "removed and made anew";
    // A slot that is opened for the first time does not begin a count of its own.
    EXPECT_EQ(turn == 1 ? 240 : 110, Output().m_FileSize);
  }
  EXPECT_THAT(ListFolder(args[1]), ElementsAre("first.log", "second.log"));
  EXPECT_STREQ("first.log", Output().m_FileNames[0]);
  EXPECT_STREQ("second.log", Output().m_FileNames[1]);
  return 0;
}

TEST(RawFile, TwoFilesTakeTurnsWhateverTheCount) {
  for (const char* form : {"plain", "location"})
    for (const char* count : {"1", "2", "10"})
      EXPECT_TRUE(RunCase("Turns", {form, count})) << form << count;
}

// args[2]: the limit, which counts as a signed number; args[3]: the slot of the first record.
CHILD_CASE(NoLimit) {
  UseSize(args[0], 0, static_cast<uint32_t>(std::stoul(args[2])), 3);
  NameTwo();
  int slot = std::stoi(args[3]);
  for (const char* text : {"a\n", "b\n", "c\n"}) {
    EXPECT_EQ(0, LogRaw(text));
    EXPECT_EQ(slot, Output().m_FileIndex) << text;
    EXPECT_EQ(text, ReadFile(args[0] + Output().m_FileNames[slot]));
    slot = 1 - slot;
  }
  return 0;
}

TEST(RawFile, EveryRecordBeginsAFileWithoutALimit) {
  EXPECT_TRUE(RunCase("NoLimit", {"0", "0"}));
  EXPECT_TRUE(RunCase("NoLimit", {"2147483648", "1"}));
}

CHILD_CASE(FromSlotFive) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 10, 10);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(0, Output().WriteLogBySzie("0123456789\n", 11));
    clock.AdvanceMs(1000);
  }
  EXPECT_EQ(4, Output().m_FileIndex);
  SetConfigFilePath((args[0] + "kelvik.ini").c_str());
  EXPECT_EQ(0, LogRaw("raw of more than 10\n"));
  EXPECT_EQ(1, Output().m_FileIndex);
  EXPECT_EQ("raw of more than 10\n", ReadFile(args[0] + "20240315120001.log"));
  EXPECT_EQ(5u, ListFolder(args[1]).size()) << "no new name and no entry in the index";
  EXPECT_EQ(0, LogRaw("next\n"));
  EXPECT_EQ(0, Output().m_FileIndex);
  EXPECT_EQ("next\n", ReadFile(args[0] + "20240315120000.log"));
  return 0;
}

TEST(RawFile, RingOfFormattedRecordsIsLeftForItsFirstTwoSlots) {
  EXPECT_TRUE(RunCase("FromSlotFive"));
}

CHILD_CASE(OldFile) {
  UseSize(args[0], 0, 100, 3);
  NameTwo();
  EXPECT_TRUE(WriteFile(args[0] + "first.log", "0123456789"));
  EXPECT_EQ(0, LogRaw("ab"));
  EXPECT_EQ("ab23456789", ReadFile(args[0] + "first.log")) << "neither cut nor continued";
  return 0;
}

TEST(RawFile, FileOfAnEarlierRunIsWrittenOverFromItsStart) {
  EXPECT_TRUE(RunCase("OldFile"));
}

CHILD_CASE(Lost) {
  CPrintedText printed;
  UseSize(args[0], 0);
  NameTwo();
  const RawLog log = Form(args[2]);
  EXPECT_EQ(0, log("a\n"));
  EXPECT_EQ(0, close(Output().m_CurrentFd));
  SwitchTerminal(true);
  const int64_t start = RealClockMs();
  EXPECT_EQ(1, log("lost\n"));
  EXPECT_GE(RealClockMs() - start, 1000);
  EXPECT_LT(RealClockMs() - start, ScaledMs(1500));
  EXPECT_THAT(printed.Take(),
              HasSubstr("[Kelvik][Internal] Output Logs " + args[3] +
                        " Attempt to write to the file failed for more than 1 second\n"));
  EXPECT_EQ("a\n", AllText(args[1]));
  EXPECT_EQ(2, Output().m_FileSize);
  return 0;
}

TEST(RawFile, LostDescriptorIsReportedWithTheLineOfItsForm) {
  EXPECT_TRUE(RunCase("Lost", {"plain", "1159"}));
  EXPECT_TRUE(RunCase("Lost", {"location", "1525"}));
}

CHILD_CASE(Errors) {
  signal(SIGPIPE, SIG_IGN);
  UseSize(args[0], 0, 1000, 3);
  NameTwo();
  EXPECT_EQ(0, LogRaw("a\n"));
  const int fd = Output().m_CurrentFd;
  const int full = open("/dev/full", O_WRONLY);
  EXPECT_EQ(fd, dup2(full, fd));
  EXPECT_EQ(1, LogRaw("lost\n"));
  EXPECT_EQ(0, Output().m_DiskFull);
  EXPECT_EQ(2, Output().m_FileSize);
  EXPECT_EQ("a\n", AllText(args[1])) << "a full disk clears no file here";
  EXPECT_EQ(3u, static_cast<uint32_t>(CGlobal::Instance()->m_Attribute.m_LogMaxCount));
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  close(ends[0]);
  EXPECT_EQ(fd, dup2(ends[1], fd));
  EXPECT_EQ(1, LogRaw("lost\n"));
  return 0;
}

TEST(RawFile, FailedWriteIsAResultAndNothingElse) {
  EXPECT_TRUE(RunCase("Errors"));
}

CHILD_CASE(SlowFile) {
  UseSize(args[0], 4096);
  NameTwo();
  EXPECT_EQ(0, LogRaw("a\n"));
  EXPECT_EQ(0, LogLine("one"));
  // The file becomes a pipe that takes 4096 bytes and then blocks.
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  EXPECT_EQ(4096, fcntl(ends[1], F_SETPIPE_SZ, 4096));
  const int fd = Output().m_CurrentFd;
  EXPECT_EQ(fd, dup2(ends[1], fd));
  close(ends[1]);
  const std::string record = Bytes('r', 8000);
  std::thread raw([&record] { EXPECT_EQ(0, LogRaw(record)); });
  const auto isStuck = [&ends] {
    int waiting = 0;
    return ioctl(ends[0], FIONREAD, &waiting) == 0 && waiting == 4096;
  };
  EXPECT_TRUE(WaitUntil(isStuck, 5000));
  const int64_t start = RealClockMs();
  EXPECT_EQ(0, LogLine("two"));
  EXPECT_LT(RealClockMs() - start, ScaledMs(500)) << "a caller that buffers waited for the write";
  std::string got;
  char piece[1000];
  while (got.size() < record.size()) {
    const ssize_t size = read(ends[0], piece, sizeof(piece));
    if (size <= 0) break;
    got.append(piece, static_cast<size_t>(size));
  }
  raw.join();
  EXPECT_EQ(record, got);
  EXPECT_EQ(8, Output().m_FrontLength);
  SwitchFile(false);  // what waits has nowhere to go
  return 0;
}

TEST(RawFile, SlowWriteKeepsNobodyFromTheBuffer) {
  EXPECT_TRUE(RunCase("SlowFile"));
}

CHILD_CASE(Unopened) {
  UseSize(args[0] + "sub/", 0, 10, 3);
  NameTwo();
  EXPECT_EQ(3, LogRaw("a\n"));
  EXPECT_EQ(3, LogRaw("a\n"));
  EXPECT_STREQ("first.log", Output().m_FileNames[0]);
  EXPECT_EQ(-1, Output().m_FileFds[0]);
  return 0;
}

TEST(RawFile, MissingFolderIsAnOpenFailure) {
  EXPECT_TRUE(RunCase("Unopened"));
}

}  // namespace
}  // namespace Kelvik
