// A log file that cannot be written or opened, for each reason there is: the described results, no
// caller blocked beyond the described second, nothing that spins afterwards, and logging resumes by
// itself when the fault is gone.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "../integration/LossTools.h"
#include "CallSeam.h"

namespace Kelvik {
namespace {

constexpr int kSecondMs = 1000;
constexpr uid_t kNobody = 65534;

// Milliseconds of processor time that this process uses while it rests.
int64_t IdleCostMs() {
  const auto used = [] {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * INT64_C(1000) +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
  };
  const int64_t before = used();
  PauseMs(200);
  return used() - before;
}

void ExpectBalance() {
  const tagKelvikStatistics now = Statistics();
  EXPECT_EQ(now.m_RecordsAccepted, now.m_RecordsWritten + now.m_RecordsLost);
}

// args: log path, folder, "direct" or "buffered".
bool Begin(const std::vector<std::string>& args, uint32_t maxSize = kHugeFile) {
  const bool isBuffered = args.at(2) == "buffered";
  UseSize(args.at(0), isBuffered ? 4096 : 0, maxSize);
  EXPECT_EQ(0, Initialize());
  LogNumber("before", 0);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  return isBuffered;
}

// The fault is gone: the next record is in its file.
void ExpectRecovery(const std::string& folder) {
  EXPECT_EQ(0, LogNumber("after", 0));
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_NE(std::string::npos, AllText(folder).find(NumberLine("after", 0) + "\n"));
  ExpectBalance();
}

void ForBoth(const std::string& name) {
  for (const char* way : {"direct", "buffered"})
    EXPECT_TRUE(RunCase(name, {way}, 20000)) << way;
}

CHILD_CASE(FailWrites) {
  const bool isBuffered = Begin(args);
  for (const int error : {EIO, EFBIG, EDQUOT, EINVAL, EPIPE}) {
    const uint64_t lost = Statistics().m_RecordsLost;
    FailCall(kWrite, 1, true, error);
    const int64_t start = RealClockMs();
    EXPECT_EQ(0, LogNumber("lost", 0)) << "the caller is told nothing";
    EXPECT_EQ(isBuffered ? 1 : 0, KelvikExtra_Flush(5000, 0));
    EXPECT_LT(RealClockMs() - start, ScaledMs(kSecondMs));
    EXPECT_LT(IdleCostMs(), 100);
    StopFailing();
    EXPECT_EQ(lost + 1, Statistics().m_RecordsLost);
    EXPECT_EQ(error, Statistics().m_LastError);
  }
  ExpectRecovery(args.at(1));
  EXPECT_EQ(NumberLine("before", 0) + "\n" + NumberLine("after", 0) + "\n", AllText(args.at(1)));
  return 0;
}

TEST(FileFault, FailedWriteDropsItsRecordsAndNoMore) {
  ForBoth("FailWrites");
}

CHILD_CASE(WriteHalf) {
  Begin(args);
  const uint64_t written = Statistics().m_BytesWritten;
  // Interrupted, then done.
  FailCall(kWrite, 1, false, EINTR);
  LogNumber("a", 0);
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  StopFailing();
  EXPECT_EQ(written + NumberLine("a", 0).size() + 1, Statistics().m_BytesWritten);
  EXPECT_EQ(0u, Statistics().m_WriteErrors);
  ExpectRecovery(args.at(1));
  return 0;
}

TEST(FileFault, InterruptedWriteGoesOn) {
  ForBoth("WriteHalf");
}

CHILD_CASE(CloseBehindTheBack) {
  const bool isBuffered = Begin(args);
  close(Look(Output().m_CurrentFd));
  const int64_t start = RealClockMs();
  LogNumber("lost", 0);
  const int64_t logged = RealClockMs() - start;
  EXPECT_EQ(isBuffered ? 1 : 0, KelvikExtra_Flush(10000, 0));
  const int64_t flushed = RealClockMs() - start;
  EXPECT_LT(logged, isBuffered ? ScaledMs(500) : ScaledMs(2500));
  EXPECT_GE(flushed, 1001);
  EXPECT_LT(flushed, ScaledMs(2500));
  EXPECT_EQ(EBADF, Statistics().m_LastError);
  ExpectRecovery(args.at(1));
  EXPECT_LT(IdleCostMs(), 100);
  EXPECT_EQ(std::string::npos, AllText(args.at(1)).find("lost"));
  return 0;
}

TEST(FileFault, ClosedDescriptorIsTriedForASecondAndThenTheFileIsReopened) {
  ForBoth("CloseBehindTheBack");
}

CHILD_CASE(RunOutOfDescriptors) {
  const bool isBuffered = Begin(args);
  Output().CloseFile();
  // The undefined behaviour sanitizer looks at a new thread's first call through a descriptor.
  PauseMs(ScaledMs(100));
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  const int next = dup(0);  // the lowest that is free
  close(next);
  rlimit none = limit;
  none.rlim_cur = static_cast<rlim_t>(next);
  EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
  const int64_t start = RealClockMs();
  LogNumber("late", 0);
  EXPECT_EQ(isBuffered ? 1 : 0, KelvikExtra_Flush(5000, 0));
  EXPECT_LT(RealClockMs() - start, ScaledMs(kSecondMs));
  EXPECT_LT(IdleCostMs(), 100);
  EXPECT_EQ(EMFILE, Statistics().m_LastError);
  EXPECT_GE(Statistics().m_OpenErrors, 1u);
  EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
  ExpectRecovery(args.at(1));
  // A batch waits for its file; a record that was written directly cannot.
  EXPECT_EQ(isBuffered, AllText(args.at(1)).find("late") != std::string::npos);
  return 0;
}

TEST(FileFault, NoDescriptorLeftIsNoEnd) {
  ForBoth("RunOutOfDescriptors");
}

CHILD_CASE(LoseWriteAccess) {
  const bool isRoot = geteuid() == 0;
  if (isRoot) {
    // Root may write everywhere.
    if (chown(args.at(1).c_str(), kNobody, kNobody) != 0 || setegid(kNobody) != 0 ||
        seteuid(kNobody) != 0) {
      return 1;
    }
  }
  const bool isBuffered = Begin(args, 1024);
  EXPECT_EQ(0, chmod(args.at(1).c_str(), 0500));
  // The open file goes on until it is full; the next one cannot be made.
  for (int number = 0; number < 60; ++number) {
    LogNumber("readonly", number);
    if (isBuffered && number % 10 == 9) KelvikExtra_Flush(5000, 0);
  }
  EXPECT_EQ(EACCES, Statistics().m_LastError);
  EXPECT_LT(IdleCostMs(), 100);
  EXPECT_EQ(0, chmod(args.at(1).c_str(), 0700));
  ExpectRecovery(args.at(1));
  // The leak sanitizer looks into the process as its owner.
  if (isRoot && (seteuid(0) != 0 || setegid(0) != 0 || prctl(PR_SET_DUMPABLE, 1) != 0)) return 1;
  return 0;
}

TEST(FileFault, ReadOnlyFolderStopsOnlyUntilItIsWritable) {
  ForBoth("LoseWriteAccess");
}

CHILD_CASE(LoseTheFolder) {
  const std::string folder = args.at(1) + "/away";
  EXPECT_EQ(0, mkdir(folder.c_str(), 0700));
  std::vector<std::string> inFolder = args;
  inFolder.at(0) = folder + "/";
  const bool isBuffered = Begin(inFolder, 1024);
  std::filesystem::remove_all(folder);
  for (int number = 0; number < 60; ++number) {
    LogNumber("away", number);
    if (isBuffered && number % 10 == 9) KelvikExtra_Flush(5000, 0);
  }
  EXPECT_EQ(ENOENT, Statistics().m_LastError);
  EXPECT_LT(IdleCostMs(), 100);
  EXPECT_EQ(0, mkdir(folder.c_str(), 0700));
  ExpectRecovery(folder);
  return 0;
}

TEST(FileFault, FolderThatIsDeletedAndMadeAgain) {
  ForBoth("LoseTheFolder");
}

CHILD_CASE(LoseTheFile) {
  Begin(args, 1024);
  const std::vector<std::string> names = ListFolder(args.at(1));
  EXPECT_EQ(1u, names.size());
  EXPECT_EQ(0, unlink((args.at(1) + "/" + names.at(0)).c_str()));
  int number = 0;
  while (Statistics().m_Rotations == 0 && number < 1000) {
    LogNumber("unlinked", number++);
    KelvikExtra_Flush(5000, 0);
  }
  // What went into the file without a name is gone with it; nothing failed.
  EXPECT_EQ(0u, Statistics().m_WriteErrors + Statistics().m_OpenErrors);
  ExpectRecovery(args.at(1));
  return 0;
}

TEST(FileFault, DeletedLogFileIsReplacedByTheNextRotation) {
  ForBoth("LoseTheFile");
}

CHILD_CASE(FailTheIndex) {
  EXPECT_EQ(0, SetConfigFilePath(args.at(3).c_str()));
  UseSize(args.at(0), 0, 1024, 3);
  EXPECT_EQ(0, Initialize());
  LogNumber("a", 0);
  const std::string before = ReadFile(args.at(3));
  FailCall(kRename, 1, true, EIO);
  int number = 1;
  while (Statistics().m_Rotations < 2)
    EXPECT_EQ(0, LogNumber("a", number++));
  EXPECT_EQ(before, ReadFile(args.at(3))) << "the old configuration, whole";
  StopFailing();
  while (Statistics().m_Rotations < 4)
    EXPECT_EQ(0, LogNumber("a", number++));
  EXPECT_NE(before, ReadFile(args.at(3)));
  EXPECT_EQ(0u, Statistics().m_RecordsLost) << "logging goes on without its index";
  return 0;
}

TEST(FileFault, IndexThatCannotBeSavedStopsNoRecord) {
  const CTempDir etc;
  EXPECT_TRUE(RunCase("FailTheIndex", {"direct", etc.File("kelvik.ini")}));
}

}  // namespace
}  // namespace Kelvik
