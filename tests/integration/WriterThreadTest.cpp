// The writer thread: what it writes, what it drops, how it ends, and what many threads leave
// behind.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "FakeClock.h"
#include "OutputTools.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

using testing::IsEmpty;

CHILD_CASE(Writes) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("one"));
  EXPECT_EQ(0, Output().m_Signal.signal());
  PauseMs(50);
  EXPECT_THAT(ListFolder(args[1]), IsEmpty()) << "text moves at a hand-over only";
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "one\n");
  EXPECT_TRUE(WaitUntil([] { return Look(Output().m_LastFlushTime) != 0; }, 3000));
  EXPECT_EQ(Output().GetTickCount(), Look(Output().m_LastFlushTime));
  EXPECT_EQ(0, Look(Output().m_BackLength));
  EXPECT_EQ(4, Look(Output().m_FileSize));
  return 0;
}

TEST(Writer, BatchIsWrittenAndCounted) {
  EXPECT_TRUE(RunCase("Writes"));
}

CHILD_CASE(FileOff) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  const int64_t start = RealClockMs();
  DropBatch();
  EXPECT_THAT(ListFolder(args[1]), IsEmpty());
  SwitchFile(true);
  EXPECT_EQ(0, LogLine("kept"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "kept\n");
  EXPECT_GE(RealClockMs() - start, 990) << "a pause of a second comes before the next look";
  return 0;
}

TEST(Writer, BatchIsDroppedWhileFileOutputIsOffAndWritingGoesOnAfterwards) {
  EXPECT_TRUE(RunCase("FileOff"));
}

CHILD_CASE(NoMode) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("dropped"));
  Put(Output().m_SizeMode, 0);
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_TRUE(WaitUntil([] { return Look(Output().m_BackLength) == 0; }, 3000));
  EXPECT_THAT(ListFolder(args[1]), IsEmpty());
  EXPECT_EQ(0, LogLine("kept"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "kept\n");
  return 0;
}

TEST(Writer, BatchIsDroppedWhileNoModeIsSet) {
  EXPECT_TRUE(RunCase("NoMode"));
}

// --- Its end ---

CHILD_CASE(Stops) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  if (args[2] == "pausing") {
    DropBatch();
  } else {
    PauseMs(50);
  }
  const int64_t start = RealClockMs();
  EXPECT_EQ(0, Output().Stop());
  EXPECT_LT(RealClockMs() - start, ScaledMs(500));
  EXPECT_FALSE(Output().m_Thread.IsRunning());
  EXPECT_EQ(0, Output().Stop()) << "a second time";
  return 0;
}

TEST(Writer, StopReturnsAtOnceAlsoInThePauseWithoutFileOutput) {
  EXPECT_TRUE(RunCase("Stops", {"waiting"}));
  EXPECT_TRUE(RunCase("Stops", {"pausing"}));
}

CHILD_CASE(StopStart) {
  UseSize(args[0], 4096);
  std::string expected;
  EXPECT_EQ(0, Output().Stop()) << "before any start";
  for (int i = 0; i < Rounds(); ++i) {
    EXPECT_EQ(0, Output().Start());
    const std::string line = std::to_string(i);
    EXPECT_EQ(0, LogLine(line));
    expected += line + "\n";
    EXPECT_EQ(0, WriteBufferContent2File());
    ExpectTextSoon(args[1], expected);
    EXPECT_EQ(0, Output().Stop());
  }
  return 0;
}

TEST(Writer, StoppedOneStartsAgain) {
  EXPECT_TRUE(RunCase("StopStart", {}, 30000));
}

CHILD_CASE(WaitFails) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  PauseMs(50);
  EXPECT_EQ(0, Output().m_Signal.destroy());
  rusage before = {};
  getrusage(RUSAGE_SELF, &before);
  PauseMs(500);
  rusage after = {};
  getrusage(RUSAGE_SELF, &after);
  const auto cpuMs = [](const rusage& usage) {
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
  };
  EXPECT_LT(cpuMs(after) - cpuMs(before), 250) << "it does not spin";
  EXPECT_TRUE(Output().m_Thread.IsRunning());
  EXPECT_EQ(0, LogLine("served"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "served\n");
  const int64_t start = RealClockMs();
  EXPECT_EQ(0, Output().Stop());
  EXPECT_LT(RealClockMs() - start, ScaledMs(500));
  return 0;
}

TEST(Writer, ServesAndStopsAlsoWhenItsWaitFails) {
  EXPECT_TRUE(RunCase("WaitFails"));
}

std::atomic<int> gHandled{0};

void CountSignal(int) {
  gHandled.fetch_add(1);
}

CHILD_CASE(Signals) {
  UseSize(args[0], 4096);
  struct sigaction action = {};
  action.sa_handler = CountSignal;
  sigaction(SIGUSR1, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  EXPECT_EQ(0, Initialize());
  PauseMs(20);
  sigset_t mine;
  sigemptyset(&mine);
  sigaddset(&mine, SIGUSR1);
  sigaddset(&mine, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &mine, nullptr);
  kill(getpid(), SIGUSR1);
  kill(getpid(), SIGTERM);
  PauseMs(100);
  EXPECT_EQ(0, gHandled.load()) << "the writer took a signal of the application";
  pthread_sigmask(SIG_UNBLOCK, &mine, nullptr);
  EXPECT_EQ(2, gHandled.load());
  return 0;
}

TEST(Writer, LeavesSignalsToTheApplicationsThreads) {
  EXPECT_TRUE(RunCase("Signals"));
}

// --- The writer and its callers ---

CHILD_CASE(SlowDisk) {
  UseSize(args[0], 65536);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("opens the file"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "opens the file\n");
  // The file becomes a pipe that takes 4096 bytes and then blocks.
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  EXPECT_EQ(4096, fcntl(ends[1], F_SETPIPE_SZ, 4096));
  const int fd = Look(Output().m_CurrentFd);
  EXPECT_EQ(fd, dup2(ends[1], fd));
  close(ends[1]);
  std::string expected;
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(0, LogBytes('a', 1000));
    expected += Bytes('a', 1000);
  }
  EXPECT_EQ(0, WriteBufferContent2File());
  PauseMs(100);  // the writer is stuck by now
  const int64_t start = RealClockMs();
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(0, LogBytes('b', 1000));
  EXPECT_LT(RealClockMs() - start, ScaledMs(500)) << "a caller waited for the disk";
  std::string got;
  char piece[1000];
  while (got.size() < expected.size()) {
    const ssize_t size = read(ends[0], piece, sizeof(piece));
    if (size <= 0) break;
    got.append(piece, static_cast<size_t>(size));
  }
  EXPECT_EQ(expected, got) << "a short write was not completed";
  // What waits goes to a file that takes it.
  const int sink = open("/dev/null", O_WRONLY);
  EXPECT_EQ(fd, dup2(sink, fd));
  return 0;
}

TEST(Writer, CallerThatOnlyBuffersDoesNotWaitForASlowDisk) {
  EXPECT_TRUE(RunCase("SlowDisk"));
}

// --- Many threads ---

constexpr int kThreads = 64;

// Lines "thread number padding", each whole, and each thread's numbers rising; consecutive too when
// asked for.
void CheckLines(const std::string& text, bool consecutive) {
  std::map<int, int> last;
  EXPECT_TRUE(text.empty() || text.back() == '\n');
  for (const std::string& line : Lines(text)) {
    int thread = -1;
    int number = -1;
    char rest[64] = "";
    ASSERT_EQ(3, std::sscanf(line.c_str(), "%d %d %63s", &thread, &number, rest)) << line;
    ASSERT_STREQ("abcdefghijklmnopqrstuvwxyz.", rest) << line;
    const auto found = last.find(thread);
    if (found != last.end()) {
      ASSERT_LT(found->second, number) << line;
      if (consecutive) {
        ASSERT_EQ(found->second + 1, number) << line;
      }
    }
    last[thread] = number;
  }
}

void LogFromManyThreads(int records) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread, records] {
      for (int i = 0; i < records; ++i)
        KLog(eLogLevelInfo, nullptr, nullptr, "%d %d abcdefghijklmnopqrstuvwxyz.\n", thread, i);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

// The ring's text from the oldest file to the newest.
std::string RingText(const std::string& folder, int count) {
  std::string text;
  const int current = Look(Output().m_FileIndex);
  for (int i = 1; i <= count; ++i) {
    const std::string name = Output().m_FileNames[(current + i) % count];
    if (!name.empty()) text += ReadFile(folder + "/" + name);
  }
  return text;
}

CHILD_CASE(ManyDirect) {
  UseSize(args[0], 0, 20000, 4);
  EXPECT_EQ(0, Initialize());
  LogFromManyThreads(10 * Rounds());
  EXPECT_LE(ListFolder(args[1]).size(), 4u);
  EXPECT_GE(ListFolder(args[1]).size(), 2u);
  for (const std::string& name : ListFolder(args[1]))
    EXPECT_LE(FileSize(args[1] + "/" + name), 20000 + 40) << name;
  CheckLines(RingText(args[1], 4), true);
  return 0;
}

TEST(ManyThreads, DirectRecordsStayWholeAndConsecutiveThroughRotations) {
  EXPECT_TRUE(RunCase("ManyDirect", {}, 30000));
}

CHILD_CASE(ManyBuffered) {
  UseSize(args[0], 4096, 20000, 4);
  EXPECT_EQ(0, Initialize());
  LogFromManyThreads(10 * Rounds());
  EXPECT_EQ(0, WriteBufferContent2File());
  WaitUntil([] { return Look(Output().m_BackLength) == 0; }, 3000);
  EXPECT_LE(ListFolder(args[1]).size(), 4u);
  CheckLines(RingText(args[1], 4), false);
  return 0;
}

TEST(ManyThreads, BufferedRecordsStayWholeAndInOrderThroughRotations) {
  EXPECT_TRUE(RunCase("ManyBuffered", {}, 30000));
}

CHILD_CASE(ManyChanges) {
  UseSize(args[0], 4096, 20000, 4);
  EXPECT_EQ(0, Initialize());
  std::atomic<bool> isOver{false};
  std::thread changer([&] {
    const uint32_t kSizes[] = {512, 4096, 1024, 0, 9000, 2000000};
    for (unsigned i = 0; !isOver.load(); ++i) {
      SetBufferBytes(kSizes[i % 6]);
      if (i % 7 == 0) SwitchFile(i % 2 == 0);
      if (i % 5 == 0) WriteBufferContent2File();
      if (i % 11 == 0) Output().CloseFile();
      if (i % 23 == 0) ClearFileInfo();
      PauseMs(1);
    }
  });
  LogFromManyThreads(10 * Rounds());
  isOver = true;
  changer.join();
  SwitchFile(true);
  SetBufferBytes(0);
  EXPECT_EQ(0, LogLine("0 1000000 abcdefghijklmnopqrstuvwxyz."));
  CheckLines(RingText(args[1], 4), false);
  EXPECT_NE(std::string::npos, AllText(args[1]).find("0 1000000 abc")) << "file output stopped";
  return 0;
}

TEST(ManyThreads, RecordsStayWholeWhileSettingsChangeAndFilesAreCleared) {
  EXPECT_TRUE(RunCase("ManyChanges", {}, 30000));
}

// Each of them may wake the worker that another one's Start has just begun.
CHILD_CASE(StopAndStartTogether) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 50 * Rounds(); ++round) {
        if (i != 0) Output().Stop();
        if (i != 1) Output().Start();
        if (i != 2 && round % 3 == 0) std::this_thread::yield();
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(0, Output().Stop());
  EXPECT_FALSE(Output().m_Thread.IsRunning());
  EXPECT_EQ(0, Output().Start());
  EXPECT_EQ(0, ClearFileInfo());
  EXPECT_EQ(0, LogLine("still written"));
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_TRUE(WaitUntil(
      [&] { return AllText(args[1]).find("still written\n") != std::string::npos; }, 30000));
  return 0;
}

TEST(Writer, StopsAndStartsOfSeveralThreadsComeToTheirEnds) {
  EXPECT_TRUE(RunCase("StopAndStartTogether", {}, 60000));
}

}  // namespace
}  // namespace Kelvik
