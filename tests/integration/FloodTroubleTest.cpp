// A flood, whose callers write their batches, by a clock that stands where it is put, so that it is
// known who writes: when it begins and ends, and what becomes of it in a rotation, on a disk that
// hangs or is full, in a fork.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "FakeClock.h"
#include "ForkTools.h"

namespace Kelvik {
namespace {

constexpr int64_t kYearMs = INT64_C(365) * 24 * 3600 * 1000;
constexpr int64_t kWrapMs = 399 * (INT64_C(1) << 32);  // the clock's 32 bits wrap, in April 2024
constexpr int kPipeBytes = 4096;

// Logs until a buffer is handed over.
void FillBuffer(int& number) {
  const uint64_t batches = Statistics().m_Batches;
  while (Statistics().m_Batches == batches)
    EXPECT_EQ(0, LogNumber("a", number++));
}

bool IsWriterWoken() {
  return Output().m_Signal.wait(0) == 0;
}

// Fills a buffer after each of the pauses. Returns for each who writes it: "c", the caller did, or
// "w", it is left to the writer, which is woken for that alone. For a process without a writer.
std::string WhoWrites(CFakeClock& clock, const std::vector<int64_t>& pausesMs, int& number) {
  std::string who;
  for (const int64_t pause : pausesMs) {
    clock.AdvanceMs(pause);
    IsWriterWoken();  // takes back what was pending
    FillBuffer(number);
    const bool isWritten = Look(Output().m_BackLength) == 0;
    EXPECT_NE(isWritten, IsWriterWoken());
    who += isWritten ? 'c' : 'w';
  }
  return who;
}

// From here on, while the clock stands, each full buffer is its caller's.
void BeginFlood(CFakeClock& clock, int& number) {
  for (const int64_t pause : {0, 2, 2, 2}) {
    clock.AdvanceMs(pause);
    FillBuffer(number);
  }
}

// The log file becomes another one, whose descriptor is closed here.
void ReplaceFile(int other) {
  const int fd = Look(Output().m_CurrentFd);
  EXPECT_EQ(fd, dup2(other, fd));
  close(other);
}

// args: ..., the milliseconds at which the clock stands at first.
CHILD_CASE(FloodByTheClock) {
  const int64_t start = std::stoll(args.at(2));
  CFakeClock clock(start / 1000, static_cast<int>(start % 1000 * 1000));
  UseSize(args.at(0), 1024, kHugeFile);
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  int number = 0;
  EXPECT_EQ("wwwww", WhoWrites(clock, {0, 2, 0, 2, 1}, number)) << "five milliseconds are a burst";
  EXPECT_EQ("cccc", WhoWrites(clock, {1, 2, 0, 2}, number));
  EXPECT_EQ("wwwwwc", WhoWrites(clock, {3, 2, 1, 1, 1, 1}, number)) << "a pause ended the flood";
  EXPECT_EQ("wwwwwwww", WhoWrites(clock, {3, 3, 3, 3, 3, 3, 3, 3}, number)) << "not quick enough";
  EXPECT_EQ("wwwcc", WhoWrites(clock, {0, 2, 2, 2, 2}, number));
  EXPECT_EQ("wwwc", WhoWrites(clock, {-1, 2, 2, 2}, number)) << "the clock went back";
  EXPECT_EQ("wwwc", WhoWrites(clock, {-kYearMs, 2, 2, 2}, number));
  EXPECT_EQ("wwwc", WhoWrites(clock, {kYearMs, 2, 2, 2}, number));
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  EXPECT_TRUE(IsAllThere(AllText(args.at(1)), {{"a", number}}));
  EXPECT_EQ(0u, Statistics().m_RecordsLost);
  return 0;
}

TEST(FloodTrouble, BeginsAndEndsByTheClock) {
  EXPECT_TRUE(RunCase("FloodByTheClock", {std::to_string(kNoon * 1000)})) << "at noon";
  for (int ms = 0; ms <= 6; ++ms) {
    EXPECT_TRUE(RunCase("FloodByTheClock", {std::to_string(kWrapMs - ms)}))
        << ms << " ms before the clock wraps";
  }
}

// Between the settings of the policy: the flood is known, and is the callers' as soon as nothing
// may be lost.
CHILD_CASE(FloodWithBothPolicies) {
  CFakeClock clock(kNoon);
  UseSize(args.at(0), 1024, kHugeFile);
  int number = 0;
  EXPECT_EQ("wwwwww", WhoWrites(clock, {0, 2, 2, 2, 2, 2}, number));
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  EXPECT_EQ("cc", WhoWrites(clock, {2, 2}, number));
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowReplace));
  EXPECT_EQ("ww", WhoWrites(clock, {2, 2}, number));
  return 0;
}

TEST(FloodTrouble, PolicyMayChangeInTheFlood) {
  EXPECT_TRUE(RunCase("FloodWithBothPolicies"));
}

std::atomic<int> g_Calls{0};

// The caller's own thread calls back, and holds no lock: another thread can use both.
void LogElsewhere(const char*, void* caller) {
  EXPECT_NE(0, pthread_equal(pthread_self(), *static_cast<pthread_t*>(caller)));
  std::thread([] {
    EXPECT_EQ(0, LogNumber("other", g_Calls++));
    Statistics();
  }).join();
  EXPECT_EQ(0, LogNumber("callback", g_Calls - 1));
}

CHILD_CASE(RotateInAFlood) {
  CFakeClock clock(kNoon);
  UseSize(args.at(0), 1024, 4096, 10);
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  int number = 0;
  BeginFlood(clock, number);
  pthread_t self = pthread_self();
  EXPECT_EQ(0, KelvikExtra_SetRotationCallback(LogElsewhere, &self));
  while (g_Calls < 5 && number < 1000)
    EXPECT_EQ("c", WhoWrites(clock, {0}, number));
  EXPECT_EQ(5, g_Calls);
  EXPECT_EQ(0, KelvikExtra_SetRotationCallback(nullptr, nullptr));
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  EXPECT_EQ(0u, Statistics().m_RecordsLost);
  EXPECT_EQ(static_cast<uint64_t>(number) + 10, Statistics().m_RecordsWritten);
  return 0;
}

TEST(FloodTrouble, RotationCallsBackWithNoLockHeld) {
  EXPECT_TRUE(RunCase("RotateInAFlood"));
}

CHILD_CASE(HangInAFlood) {
  CFakeClock clock(kNoon);
  UseSize(args.at(0), 2 * kPipeBytes, kHugeFile);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  int number = 0;
  BeginFlood(clock, number);
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  // The file becomes a pipe that takes less than a batch.
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  EXPECT_EQ(kPipeBytes, fcntl(ends[1], F_SETPIPE_SZ, kPipeBytes));
  EXPECT_EQ(0, fcntl(ends[0], F_SETFL, O_NONBLOCK));
  ReplaceFile(ends[1]);
  std::atomic<bool> hasWritten{false};
  std::thread caller([&] {
    FillBuffer(number);
    hasWritten = true;
  });
  int waiting = 0;
  EXPECT_TRUE(WaitUntil(
      [&] { return ioctl(ends[0], FIONREAD, &waiting) == 0 && waiting == kPipeBytes; }, kLimitMs));
  const int64_t start = RealClockMs();
  for (int other = 0; other < 20; ++other)
    EXPECT_EQ(0, LogNumber("other", other));
  EXPECT_EQ(4, KelvikExtra_Flush(100, 0));
  EXPECT_LT(RealClockMs() - start, ScaledMs(2000)) << "somebody else waited for the disk";
  EXPECT_FALSE(hasWritten);
  std::string got;
  const auto readOn = [&] {
    char piece[kPipeBytes];
    const ssize_t size = read(ends[0], piece, sizeof(piece));
    if (size > 0) got.append(piece, static_cast<size_t>(size));
    return size > 0;
  };
  EXPECT_TRUE(WaitUntil(
      [&] {
        while (readOn()) {
        }
        return hasWritten.load();
      },
      kLimitMs));
  caller.join();
  while (readOn()) {
  }
  const tagFound found = FindNumbers(got);
  EXPECT_EQ("", found.m_Problem) << "the batch is whole";
  EXPECT_EQ(1u, found.m_Numbers.size());
  ReplaceFile(open("/dev/null", O_WRONLY));
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  EXPECT_EQ(0u, Statistics().m_RecordsLost);
  EXPECT_EQ(static_cast<uint64_t>(number) + 20, Statistics().m_RecordsWritten);
  return 0;
}

TEST(FloodTrouble, DiskThatHangsHoldsUpNoOtherCallerThatOnlyBuffers) {
  EXPECT_TRUE(RunCase("HangInAFlood", {}, 4 * kLimitMs));
}

CHILD_CASE(FullDiskInAFlood) {
  CFakeClock clock(kNoon);
  UseSize(args.at(0), 1024, kHugeFile, 4);
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  int number = 0;
  BeginFlood(clock, number);
  ReplaceFile(open("/dev/full", O_WRONLY));
  const uint64_t batches = Statistics().m_Batches;
  while (Statistics().m_Batches == batches) {
    errno = ERANGE;
    EXPECT_EQ(0, LogNumber("a", number++));
    EXPECT_EQ(ERANGE, errno);
  }
  EXPECT_EQ(ENOSPC, Statistics().m_LastError);
  EXPECT_EQ(static_cast<uint64_t>(number), Statistics().m_RecordsAccepted);
  EXPECT_EQ(0, Look(Output().m_FrontLength)) << "both buffers were cleared";
  EXPECT_EQ(0, Look(Output().m_BackLength));
  EXPECT_EQ(3u, KeptFiles());
  EXPECT_EQ("", AllText(args.at(1)));
  const uint64_t lost = Statistics().m_RecordsLost;
  const int first = number;
  EXPECT_EQ("cc", WhoWrites(clock, {0, 0}, number)) << "the flood goes on";
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
  const tagFound found = FindNumbers(AllText(args.at(1)));
  EXPECT_EQ("", found.m_Problem);
  EXPECT_EQ(static_cast<size_t>(number - first), found.m_Numbers.at("a").size());
  EXPECT_EQ(lost, Statistics().m_RecordsLost);
  EXPECT_EQ(static_cast<uint64_t>(number), Statistics().m_RecordsWritten + lost);
  return 0;
}

TEST(FloodTrouble, FullDiskIsClearedByTheCaller) {
  EXPECT_TRUE(RunCase("FullDiskInAFlood"));
}

// The descriptor was closed by somebody else: the caller tries for a second and reports it, with no
// lock held.
CHILD_CASE(ClosedFileInAFlood) {
  CFakeClock clock(kNoon);
  UseSize(args.at(0), 1024, kHugeFile);
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  int number = 0;
  BeginFlood(clock, number);
  SwitchTerminal(true);
  close(Look(Output().m_CurrentFd));
  const int64_t start = RealClockMs();
  const uint64_t batches = Statistics().m_Batches;
  const uint64_t printed = Statistics().m_TerminalRecords;
  const int first = number;
  FillBuffer(number);
  EXPECT_GE(RealClockMs() - start, 1001);
  EXPECT_EQ(batches + 1, Statistics().m_Batches);
  EXPECT_EQ(printed + static_cast<uint64_t>(number - first) + 1, Statistics().m_TerminalRecords);
  SwitchTerminal(false);
  EXPECT_EQ(EBADF, Statistics().m_LastError);
  EXPECT_EQ("c", WhoWrites(clock, {0}, number)) << "the file was opened again";
  return 0;
}

TEST(FloodTrouble, ClosedDescriptorIsReportedByTheCaller) {
  EXPECT_TRUE(RunCase("ClosedFileInAFlood"));
}

// In the child its parent's flood goes on; it has a writer as soon as that ends.
CHILD_CASE(ForkInAFlood) {
  CFakeClock clock(kNoon);
  StartEngine(args.at(0), 1024);
  int number = 0;
  BeginFlood(clock, number);
  const pid_t pid = fork();
  if (pid == 0) {
    const int first = number;
    FillBuffer(number);
    if (Look(Output().m_BackLength) != 0) _exit(21);
    clock.AdvanceMs(3);
    FillBuffer(number);
    if (!WaitUntil([] { return Look(Output().m_BackLength) == 0; }, kLimitMs)) _exit(22);
    const uint64_t waiting = Look(Output().m_FrontLength) == 0 ? 0 : 1;
    const tagKelvikStatistics now = Statistics();
    if (now.m_RecordsWritten + waiting != static_cast<uint64_t>(number - first)) _exit(23);
    std::exit(0);
  }
  EXPECT_EQ(0, WaitForProcess(pid, 2 * kLimitMs));
  return 0;
}

TEST(FloodTrouble, ForkedChildHasItsWriterWhenTheFloodEnds) {
  KELVIK_SKIP_UNDER_THREAD_SANITIZER();
  KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN();
  EXPECT_TRUE(RunFork("ForkInAFlood"));
}

}  // namespace
}  // namespace Kelvik
