// Writes that fail: interrupted, short, refused, on a full disk, on a descriptor that is gone. What
// is lost, what is reported, and that file output goes on.

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

#include "KelvikExtra.h"
#include "OutputTools.h"
#include "PrintedText.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kAttempt[] = "Attempt to write to the file failed for more than 1 second\n";

int Write(const std::string& text) {
  return Output().WriteLogBySzie(text.data(), static_cast<int>(text.size()));
}

// Another file behind the library's descriptor.
void Replace(int other) {
  const int fd = Look(Output().m_CurrentFd);
  EXPECT_EQ(fd, dup2(other, fd));
  close(other);
}

// --- EBADF ---

CHILD_CASE(LostDescriptor) {
  CPrintedText printed;
  UseSize(args[0], 0);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, Write("a\n"));
  SwitchTerminal(true);
  EXPECT_EQ(0, close(Output().m_CurrentFd));
  const int64_t start = RealClockMs();
  EXPECT_EQ(1, Write("lost\n"));
  const int64_t took = RealClockMs() - start;
  EXPECT_GE(took, 1000);
  EXPECT_LT(took, ScaledMs(1500));
  const std::string text = printed.Take();
  EXPECT_THAT(text, HasSubstr("[Kelvik][Internal] Output WriteLogBySzie "));
  EXPECT_THAT(text, HasSubstr(kAttempt));
  EXPECT_THAT(text, HasSubstr("\033[33m"));
  const int64_t again = RealClockMs();
  EXPECT_EQ(0, Write("b\n")) << "it is opened again";
  EXPECT_LT(RealClockMs() - again, ScaledMs(500));
  EXPECT_EQ("a\nb\n", AllText(args[1])) << "the report is not in the file";
  return 0;
}

TEST(WriteFailure, LostDescriptorIsTriedForASecondReportedAndOpenedAgain) {
  EXPECT_TRUE(RunCase("LostDescriptor"));
}

CHILD_CASE(LostInWriter) {
  CPrintedText printed;
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "a\n");
  SwitchTerminal(true);
  EXPECT_EQ(0, close(Look(Output().m_CurrentFd)));
  EXPECT_EQ(0, LogLine("lost"));
  EXPECT_EQ(0, WriteBufferContent2File());
  std::string text;
  EXPECT_TRUE(WaitUntil(
      [&] {
        text += printed.Take();
        return text.find(kAttempt) != std::string::npos;
      },
      4000));
  EXPECT_THAT(text, HasSubstr("[Kelvik][Internal] Output WriteLogBySzie "));
  EXPECT_EQ(0, Look(Output().m_BackLength));
  EXPECT_EQ(0, LogLine("b"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "a\nb\n");
  return 0;
}

TEST(WriteFailure, WriterDropsTheBatchOfALostDescriptorReportsAndGoesOn) {
  EXPECT_TRUE(RunCase("LostInWriter"));
}

CHILD_CASE(LostClosingForm) {
  CPrintedText printed;
  UseSize(args[0], 0);
  EXPECT_EQ(0, Output().WriteLogBySzieV1("a\n", 2));
  SwitchTerminal(true);
  EXPECT_EQ(0, close(Output().m_CurrentFd));
  EXPECT_EQ(1, Output().WriteLogBySzieV1("lost\n", 5));
  const std::string text = printed.Take();
  EXPECT_THAT(text, HasSubstr("[Kelvik][Internal] Output WriteLogBySzieV1 "));
  EXPECT_THAT(text, HasSubstr(kAttempt));
  return 0;
}

TEST(WriteFailure, ClosingFormReportsUnderItsOwnName) {
  EXPECT_TRUE(RunCase("LostClosingForm"));
}

CHILD_CASE(LostByTime) {
  CPrintedText printed;
  UseSize(args[0], 0, 0);
  COutput& output = Output();
  const bool isClosing = args[2] == "WriteLogByTimeV1";
  const auto write = [&](const char* text) {
    const auto length = static_cast<int>(std::strlen(text));
    return isClosing ? output.WriteLogByTimeV1(text, length) : output.WriteLogByTime(text, length);
  };
  EXPECT_EQ(0, write("a\n"));
  SwitchTerminal(true);
  EXPECT_EQ(0, close(output.m_CurrentFd));
  EXPECT_EQ(1, write("lost\n"));
  const std::string text = printed.Take();
  EXPECT_THAT(text, HasSubstr("[Kelvik][Internal] Output " + args[2] + " "));
  EXPECT_THAT(text, HasSubstr(kAttempt));
  EXPECT_EQ(0, write("b\n")) << "it is opened again";
  EXPECT_EQ("a\nb\n", AllText(args[1]));
  return 0;
}

TEST(WriteFailure, TimeWritersReportUnderTheirOwnNames) {
  EXPECT_TRUE(RunCase("LostByTime", {"WriteLogByTime"}));
  EXPECT_TRUE(RunCase("LostByTime", {"WriteLogByTimeV1"}));
}

CHILD_CASE(StopWhileLost) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "a\n");
  EXPECT_EQ(0, close(Look(Output().m_CurrentFd)));
  EXPECT_EQ(0, LogLine("lost"));
  EXPECT_EQ(0, WriteBufferContent2File());
  PauseMs(100);
  const int64_t start = RealClockMs();
  EXPECT_EQ(0, Output().Stop());
  EXPECT_LT(RealClockMs() - start, ScaledMs(1500));
  return 0;
}

TEST(WriteFailure, StopReturnsWhileTheWriterTriesALostDescriptor) {
  EXPECT_TRUE(RunCase("StopWhileLost"));
}

// --- EINTR and short writes ---

void Ignore(int) {}

CHILD_CASE(Interrupted) {
  UseSize(args[0], 0);
  EXPECT_EQ(0, Write("a\n"));
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  EXPECT_EQ(4096, fcntl(ends[1], F_SETPIPE_SZ, 4096));
  Replace(ends[1]);
  struct sigaction action = {};
  action.sa_handler = Ignore;  // without SA_RESTART
  sigaction(SIGUSR1, &action, nullptr);
  const pthread_t caller = pthread_self();
  std::string expected(4096, 'f');
  EXPECT_EQ(0, Write(expected));  // the pipe is full
  std::string got;
  std::thread reader([&] {
    char piece[512];
    for (int i = 0; i < 50; ++i) {
      pthread_kill(caller, SIGUSR1);  // nothing written yet, later a part
      PauseMs(2);
      if (i >= 10 && got.size() < 4096 + 8000) {
        const ssize_t size = read(ends[0], piece, sizeof(piece));
        if (size > 0) got.append(piece, static_cast<size_t>(size));
      }
    }
  });
  const std::string record = std::string(7999, 'r') + "\n";
  EXPECT_EQ(0, Write(record));
  reader.join();
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  char piece[8192];
  for (ssize_t size; (size = read(ends[0], piece, sizeof(piece))) > 0;)
    got.append(piece, static_cast<size_t>(size));
  EXPECT_EQ(expected + record, got);
  EXPECT_EQ(2 + 4096 + 8000, Output().m_FileSize);
  return 0;
}

TEST(WriteFailure, InterruptedAndShortWritesAreCompleted) {
  EXPECT_TRUE(RunCase("Interrupted"));
}

CHILD_CASE(FileLimit) {
  signal(SIGXFSZ, SIG_IGN);
  UseSize(args[0], 0);
  EXPECT_EQ(0, Write(Bytes('a', 4000)));
  const rlimit limit = {5000, RLIM_INFINITY};
  EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
  EXPECT_EQ(1, Write(Bytes('b', 4000)));
  EXPECT_EQ(0, Output().m_DiskFull);
  EXPECT_EQ(1u, ListFolder(args[1]).size());
  const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
  EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &none));
  EXPECT_EQ(0, Write("c\n"));
  EXPECT_THAT(AllText(args[1]), testing::EndsWith("c\n"));
  return 0;
}

TEST(WriteFailure, WriteThatStaysShortFailsAndTheNextOneWorks) {
  EXPECT_TRUE(RunCase("FileLimit"));
}

CHILD_CASE(OtherError) {
  signal(SIGPIPE, SIG_IGN);
  CPrintedText printed;
  UseSize(args[0], 4096);
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(0, Output().WriteLogBySzie(nullptr, 0));
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  close(ends[0]);
  Replace(ends[1]);
  SwitchTerminal(true);
  const int64_t start = RealClockMs();
  EXPECT_EQ(1, Write("lost\n"));
  EXPECT_EQ(0, LogLine("dropped"));
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(1, Output().WriteLogBySzie(nullptr, 0));
  EXPECT_EQ(0, Output().m_BackLength);
  EXPECT_LT(RealClockMs() - start, ScaledMs(500)) << "not tried again";
  EXPECT_EQ(2, Output().m_FileSize);
  EXPECT_THAT(printed.Take(), Not(HasSubstr("Attempt")));
  return 0;
}

TEST(WriteFailure, OtherErrorDropsTheTextAtOnceAndSilently) {
  EXPECT_TRUE(RunCase("OtherError"));
}

// --- A full disk ---

uint32_t Count() {
  tagAttribute attribute;
  CGlobal::Instance()->CopyAttribute(attribute);
  return attribute.m_LogMaxCount;
}

CHILD_CASE(FullDevice) {
  UseSize(args[0], 0, 4, 3);
  for (const char* text : {"aaaaa\n", "bbbbb\n", "ccccc\n"})
    EXPECT_EQ(0, Write(text));
  EXPECT_EQ(3u, ListFolder(args[1]).size());
  CGlobal::Instance()->SetLogMaxSize(1000);
  for (const uint32_t left : {2u, 1u, 1u}) {
    Replace(open("/dev/full", O_WRONLY));
    EXPECT_EQ(1, Write("lost\n"));
    EXPECT_THAT(ListFolder(args[1]), IsEmpty());
    EXPECT_EQ(left, Count());
    EXPECT_EQ(0, Output().m_DiskFull);
    EXPECT_EQ(0, Output().m_FileIndex);
    EXPECT_EQ(0, Output().m_FileSize);
    EXPECT_EQ(-1, Output().m_CurrentFd);
    for (int slot = 0; slot < kSlotCount; ++slot) {
      EXPECT_EQ(-1, Output().m_FileFds[slot]);
      EXPECT_STREQ("", Output().m_FileNames[slot]);
    }
    EXPECT_EQ(0, Write("on\n"));
    EXPECT_EQ("on\n", AllText(args[1]));
  }
  return 0;
}

TEST(FullDisk, FilesAreClearedAndOneFewerIsKeptDownToOne) {
  EXPECT_TRUE(RunCase("FullDevice"));
}

// Batches of the time writer; args[2]: "closing" for the form that closes its file.
CHILD_CASE(FullByTime) {
  UseSize(args[0], 4096, 0, 3);
  CGlobal::Instance()->SetLogMaxDuration(1000);
  COutput& output = Output();
  const auto write = [&](const char* text) {
    EXPECT_EQ(0, LogLine(text));
    EXPECT_EQ(0, WriteBufferContent2File());
    return args[2] == "closing" ? output.WriteLogByTimeV1(nullptr, 0)
                                : output.WriteLogByTime(nullptr, 0);
  };
  for (const uint32_t left : {2u, 1u, 1u}) {
    EXPECT_EQ(0, output.WriteLogByTime("direct\n", 7));  // leaves the file open
    Replace(open("/dev/full", O_WRONLY));
    EXPECT_EQ(1, write("lost"));
    EXPECT_THAT(ListFolder(args[1]), IsEmpty());
    EXPECT_EQ(left, Count());
    EXPECT_EQ(0, output.m_DiskFull);
    EXPECT_EQ(0, output.m_BackLength);
    EXPECT_EQ(-1, output.m_CurrentFd);
    EXPECT_EQ(0, write("on"));
    EXPECT_EQ("on\n", AllText(args[1]));
  }
  // Any other error costs the batch alone.
  EXPECT_EQ(0, output.WriteLogByTime("direct\n", 7));
  signal(SIGPIPE, SIG_IGN);
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  close(ends[0]);
  Replace(ends[1]);
  EXPECT_EQ(1, write("lost"));
  EXPECT_EQ(0, output.m_BackLength);
  EXPECT_EQ(args[2] == "closing", output.m_CurrentFd == -1) << "closed after a failure too";
  EXPECT_EQ(0, output.CloseFile());
  EXPECT_EQ(0, write("again"));
  EXPECT_EQ("on\ndirect\nagain\n", AllText(args[1]));
  return 0;
}

TEST(FullDisk, TimeWriterClearsTheFilesAndGoesOn) {
  EXPECT_TRUE(RunCase("FullByTime", {"keeping"}));
  EXPECT_TRUE(RunCase("FullByTime", {"closing"}));
}

CHILD_CASE(FullInWriter) {
  UseSize(args[0], 4096, 1000, 3);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "a\n");
  for (const uint32_t left : {2u, 1u, 1u}) {
    {
      CGuard order(&Output().m_BufferMutex);
      CGuard hold(&Output().m_WriteMutex);
      Replace(open("/dev/full", O_WRONLY));
    }
    EXPECT_EQ(0, LogLine("lost"));
    EXPECT_EQ(0, WriteBufferContent2File());
    EXPECT_TRUE(WaitUntil([&] { return Look(Output().m_CurrentFd) == -1; }, 3000));
    EXPECT_TRUE(WaitUntil([&] { return Look(Output().m_DiskFull) == 0 && Count() == left; }, 3000));
    EXPECT_THAT(ListFolder(args[1]), IsEmpty());
    EXPECT_EQ(0, Look(Output().m_BackLength));
    EXPECT_EQ(0, LogLine("on"));
    EXPECT_EQ(0, WriteBufferContent2File());
    ExpectTextSoon(args[1], "on\n");
  }
  return 0;
}

TEST(FullDisk, WriterClearsTheFilesAndGoesOn) {
  EXPECT_TRUE(RunCase("FullInWriter"));
}

constexpr int kNoMount = 77;

// Real files on a real small disk; buffered (args[2] 4096) or direct (0).
CHILD_CASE(SmallDisk) {
  const std::string disk = args[0] + "disk";
  EXPECT_EQ(0, mkdir(disk.c_str(), 0700));
  if (unshare(CLONE_NEWNS) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", disk.c_str(), "tmpfs", 0, "size=64k") != 0)
    return kNoMount;
  UseSize(disk + "/", static_cast<uint32_t>(std::stoul(args[2])), 1024 * 1024, 3);
  EXPECT_EQ(0, Initialize());
  for (int i = 0; i < 2000; ++i) {
    LogLine(std::to_string(i) + std::string(200, '.'));
    if (i % 10 == 9) {
      WriteBufferContent2File();
      WaitUntil([] { return Look(Output().m_BackLength) == 0; }, 3000);
    }
  }
  EXPECT_EQ(1u, Count());
  EXPECT_EQ(0, Look(Output().m_DiskFull));
  EXPECT_EQ(1u, ListFolder(disk).size());
  SetBufferBytes(0);
  EXPECT_EQ(0, ClearFileInfo());
  EXPECT_EQ(0, LogLine("the last one"));
  EXPECT_THAT(AllText(disk), testing::EndsWith("the last one\n"));
  EXPECT_EQ(0, Output().CloseFile());
  EXPECT_EQ(0, umount2(disk.c_str(), MNT_DETACH));
  return 0;
}

TEST(FullDisk, SmallOneIsClearedAgainAndAgain) {
  for (const char* bufferBytes : {"0", "4096"}) {
    const CTempDir logs;
    const tagChildResult result =
        RunChild("SmallDisk", {logs.LogPath(), logs.Path(), bufferBytes}, 30000);
    if (result.m_ExitCode == kNoMount) {
      GTEST_SKIP() << "SKIPPED: mounting a small disk needs the right to do so (root)";
    }
    EXPECT_TRUE(Succeeded(result));
  }
}

// The waiting record has looked at the disk before; one that comes late is refused all the same.
CHILD_CASE(FullWhileARecordWaits) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("kept"));
  std::atomic<bool> isReady{false};
  std::atomic<int> result{-1};
  Output().m_BufferMutex.lock();
  std::thread waiting([&] {
    isReady = true;
    result = LogLine("refused");
  });
  EXPECT_TRUE(WaitUntil([&] { return isReady.load(); }, 5000));
  PauseMs(50);
  EXPECT_EQ(-1, result.load());
  RelaxedStore(Output().m_DiskFull, 1);
  Output().m_BufferMutex.unlock();
  waiting.join();
  EXPECT_EQ(eResultInvalid, result.load());
  tagKelvikStatistics statistics = {};
  EXPECT_EQ(0, KelvikExtra_GetStatistics(&statistics, sizeof(statistics)));
  EXPECT_EQ(1u, statistics.m_RecordsRefused);
  RelaxedStore(Output().m_DiskFull, 0);
  EXPECT_EQ(0, LogLine("goes on"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "kept\ngoes on\n");
  return 0;
}

TEST(FullDisk, RecordThatWaitedForTheBufferIsRefused) {
  EXPECT_TRUE(RunCase("FullWhileARecordWaits"));
}

}  // namespace
}  // namespace Kelvik
