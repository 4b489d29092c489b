// Waiting until what was logged is in its file, and on the disk.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <string>
#include <thread>

#include "LossTools.h"

namespace {

std::atomic<int> gSyncs{0};
std::atomic<int> gSyncError{0};  // 0: the sync is done
std::atomic<bool> gHoldsSync{false};

}  // namespace

extern "C" {
int __real_fdatasync(int fd);
int __wrap_fdatasync(int fd);
int __wrap_fdatasync(int fd) {
  ++gSyncs;
  while (gHoldsSync)
    usleep(1000);
  if (gSyncError != 0) {
    errno = gSyncError;
    return -1;
  }
  return __real_fdatasync(fd);
}
}

namespace Kelvik {
namespace {

// What the folder's files hold at this moment; read to their ends, they might never come to one.
std::string TextNow(const std::string& folder) {
  std::string all;
  for (const std::string& name : ListFolder(folder)) {
    const std::string path = folder + "/" + name;
    std::string text(static_cast<std::size_t>(FileSize(path)), '\0');
    std::ifstream(path, std::ios::binary).read(&text[0], static_cast<std::streamsize>(text.size()));
    all += text;
  }
  return all;
}

CHILD_CASE(FlushUnderLoad) {
  UseSize(args.at(0), 4096, kHugeFile);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  for (int round = 0; round < Rounds(); ++round) {
    constexpr int kRecords = 20;
    CLoggers loggers(4);
    EXPECT_TRUE(WaitUntil([&] { return loggers.HaveAllBegun(); }, 5000));
    for (int number = 0; number < kRecords; ++number)
      EXPECT_EQ(0, LogNumber("main", number));
    EXPECT_EQ(0, KelvikExtra_Flush(5000, 0)) << "round " << round;
    const std::string text = TextNow(args.at(1));
    for (int number = 0; number < kRecords; ++number)
      EXPECT_NE(std::string::npos, text.find(NumberLine("main", number) + "\n")) << number;
    loggers.Stop();
    EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
    std::map<std::string, int> counts = loggers.Counts();
    counts["main"] = kRecords;
    EXPECT_TRUE(IsAllThere(AllText(args.at(1)), counts));
    EXPECT_EQ(0, ClearFileInfo());
  }
  return 0;
}

TEST(Flush, EveryRecordBeforeTheCallIsInItsFile) {
  EXPECT_TRUE(RunCase("FlushUnderLoad", {}, 30000));
}

CHILD_CASE(FlushWithoutWriter) {
  UseSize(args.at(0), 4096, kHugeFile);
  EXPECT_EQ(0, KelvikExtra_Flush(0, 0)) << "nothing was logged";
  LogNumber("a", 0);
  EXPECT_EQ("", AllText(args.at(1)));
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_TRUE(IsAllThere(AllText(args.at(1)), {{"a", 1}}));
  EXPECT_EQ(0, KelvikExtra_Flush(0, 0));
  return 0;
}

TEST(Flush, WorksWithoutAWriterThread) {
  EXPECT_TRUE(RunCase("FlushWithoutWriter"));
}

CHILD_CASE(FlushIntoAHang) {
  UseSize(args.at(0), 4096, kHugeFile);
  EXPECT_EQ(0, Initialize());
  LogNumber("a", 0);
  std::atomic<bool> isHeld{false};
  std::atomic<bool> mayEnd{false};
  std::thread hang([&] {
    CGuard guard(&Output().m_WriteMutex);  // as a write that does not come back
    isHeld = true;
    WaitUntil([&] { return mayEnd.load(); }, 8000);
  });
  EXPECT_TRUE(WaitUntil([&] { return isHeld.load(); }, 5000));
  const int64_t start = RealClockMs();
  EXPECT_EQ(4, KelvikExtra_Flush(100, 0));
  EXPECT_EQ(4, KelvikExtra_Flush(100, 1));
  EXPECT_EQ(4, KelvikExtra_Flush(0, 0));
  EXPECT_GE(RealClockMs() - start, 200);
  EXPECT_LT(RealClockMs() - start, ScaledMs(2000));
  mayEnd = true;
  hang.join();
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_TRUE(IsAllThere(AllText(args.at(1)), {{"a", 1}}));
  return 0;
}

TEST(Flush, GivesUpInTimeWhenAWriteHangs) {
  EXPECT_TRUE(RunCase("FlushIntoAHang"));
}

CHILD_CASE(FlushWithoutFolder) {
  const std::string folder = args.at(1) + "/later";
  UseSize(folder + "/", 4096, kHugeFile);
  EXPECT_EQ(0, Initialize());
  LogNumber("a", 0);
  const int64_t start = RealClockMs();
  EXPECT_EQ(1, KelvikExtra_Flush(5000, 0));
  EXPECT_LT(RealClockMs() - start, ScaledMs(2000)) << "a failure is no time-out";
  EXPECT_EQ(ENOENT, Statistics().m_LastError);
  EXPECT_EQ(0, mkdir(folder.c_str(), 0700));
  LogNumber("a", 1);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_TRUE(IsAllThere(AllText(folder), {{"a", 2}})) << "the batch had waited";
  return 0;
}

TEST(Flush, FailedOpenIsReportedAndTheBatchWaits) {
  EXPECT_TRUE(RunCase("FlushWithoutFolder"));
}

CHILD_CASE(FlushToDisk) {
  UseSize(args.at(0), 4096, 64 * 1024, 5);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  LogNumber("a", 0);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_EQ(0, gSyncs);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 1));
  EXPECT_EQ(1, gSyncs);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 1));
  EXPECT_EQ(1, gSyncs) << "nothing new to sync";
  // A file that was left behind by a rotation is synced as well.
  for (int number = 1; Statistics().m_Rotations == 0; ++number)
    LogNumber("a", number);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 1));
  EXPECT_EQ(3, gSyncs);
  // An error is told, and the next flush tries again.
  LogNumber("b", 0);
  gSyncError = EIO;
  EXPECT_EQ(1, KelvikExtra_Flush(5000, 1));
  gSyncError = EINVAL;  // as a special file says
  LogNumber("b", 1);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 1));
  return 0;
}

TEST(Flush, ToDiskSyncsEveryFileThatHasNewText) {
  EXPECT_TRUE(RunCase("FlushToDisk"));
}

void* SyncOnce(void*) {
  KelvikExtra_Flush(20000, 1);
  return nullptr;
}

CHILD_CASE(FlushCancelled) {
  UseSize(args.at(0), 4096, kHugeFile);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogNumber("main", 0));
  EXPECT_EQ(0, KelvikExtra_Flush(20000, 0));
  const int open = OpenDescriptors();
  gHoldsSync = true;
  pthread_t flusher;
  EXPECT_EQ(0, pthread_create(&flusher, nullptr, &SyncOnce, nullptr));
  EXPECT_TRUE(WaitUntil([] { return gSyncs == 1; }, 20000));
  EXPECT_EQ(0, pthread_cancel(flusher));
  PauseMs(50);
  gHoldsSync = false;
  EXPECT_EQ(0, pthread_join(flusher, nullptr));
  EXPECT_EQ(open, OpenDescriptors());
  return 0;
}

TEST(Flush, ThreadThatIsCancelledInASyncLeavesNoDescriptorBehind) {
#if KELVIK_TEST_THREAD_SANITIZER
  GTEST_SKIP() << "the thread sanitizer does not follow threads that are cancelled";
#endif
  EXPECT_TRUE(RunCase("FlushCancelled"));
}

}  // namespace
}  // namespace Kelvik
