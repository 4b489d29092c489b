// Disks without room, true ones: a small file system, a limit of the file size, /dev/full.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "../integration/LossTools.h"

namespace Kelvik {
namespace {

constexpr int kNoMount = 77;  // exit code: no file system can be mounted here

// Fills what is left of the folder's file system.
void FillDisk(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const std::string block(1024, 'x');
  while (write(fd, block.data(), block.size()) > 0) {
  }
  while (write(fd, "x", 1) > 0) {
  }
  close(fd);
}

// A file system of half a megabyte over the folder, for this process alone.
bool MountSmallDisk(const std::string& folder) {
  return unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=512k") == 0;
}

bool IsWholeConfig(const std::string& path) {
  const std::string text = ReadFile(path);
  return text.find("[Global]\n") != std::string::npos && text.back() == '\n';
}

// args: log path, folder, "direct" or "buffered".
CHILD_CASE(FillSmallDisk) {
  if (!MountSmallDisk(args.at(1))) return kNoMount;
  const std::string config = args.at(1) + "/kelvik.ini";
  const std::string filler = args.at(1) + "/filler";
  EXPECT_EQ(0, SetConfigFilePath(config.c_str()));
  UseSize(args.at(0), args.at(2) == "buffered" ? 4096 : 0, 32 * 1024, 4);
  EXPECT_EQ(0, Initialize());
  for (int number = 0; number < 500; ++number)
    LogNumber("before", number);
  KelvikExtra_Flush(5000, 0);
  EXPECT_TRUE(IsWholeConfig(config));
  for (uint32_t expected = 3; expected >= 1; --expected) {
    FillDisk(filler);
    const int64_t start = RealClockMs();
    for (int number = 0; number < 1000 && Statistics().m_LastError != ENOSPC; ++number) {
      LogNumber("full", number);
      KelvikExtra_Flush(5000, 0);
    }
    LogNumber("full", 1000);
    KelvikExtra_Flush(5000, 0);
    EXPECT_LT(RealClockMs() - start, ScaledMs(5000));
    EXPECT_EQ(ENOSPC, Statistics().m_LastError);
    EXPECT_TRUE(IsWholeConfig(config));
    EXPECT_GE(KeptFiles(), 1u);
    if (KeptFiles() == 1) break;
  }
  EXPECT_LT(KeptFiles(), 4u) << "fewer files are kept";
  EXPECT_EQ(0, unlink(filler.c_str()));
  EXPECT_EQ(0, LogNumber("after", 0));
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  std::string text;
  for (const std::string& name : ListFolder(args.at(1)))
    if (name.find(".log") != std::string::npos) text += ReadFile(args.at(1) + "/" + name);
  EXPECT_NE(std::string::npos, text.find(NumberLine("after", 0) + "\n"));
  EXPECT_TRUE(IsWholeConfig(config));
  const tagKelvikStatistics now = Statistics();
  EXPECT_EQ(now.m_RecordsAccepted, now.m_RecordsWritten + now.m_RecordsLost);
  EXPECT_GT(now.m_RecordsLost, 0u);
  return 0;
}

TEST(DiskFull, FilesGiveWayAndLoggingResumes) {
  for (const char* way : {"direct", "buffered"}) {
    const CTempDir logs;
    tagChildOptions options;
    options.m_LimitMs = 30000;
    const tagChildResult result =
        RunChild("FillSmallDisk", {logs.LogPath(), logs.Path(), way}, options);
    if (result.m_ExitCode == kNoMount) GTEST_SKIP() << "SKIPPED: cannot mount a file system";
    EXPECT_TRUE(Succeeded(result)) << way;
  }
}

CHILD_CASE(LimitFileSize) {
  signal(SIGXFSZ, SIG_IGN);
  UseSize(args.at(0), args.at(2) == "buffered" ? 4096 : 0, kHugeFile);
  EXPECT_EQ(0, Initialize());
  rlimit limit = {};
  getrlimit(RLIMIT_FSIZE, &limit);
  rlimit small = limit;
  small.rlim_cur = 20000;
  EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
  const int64_t start = RealClockMs();
  for (int number = 0; number < 1000; ++number) {
    LogNumber("a", number);
    if (number % 20 == 19) KelvikExtra_Flush(5000, 0);
  }
  EXPECT_LT(RealClockMs() - start, ScaledMs(5000));
  tagKelvikStatistics now = Statistics();
  EXPECT_EQ(EFBIG, now.m_LastError);
  EXPECT_EQ(now.m_RecordsAccepted, now.m_RecordsWritten + now.m_RecordsLost);
  EXPECT_EQ(20000u, now.m_BytesWritten);
  EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
  EXPECT_EQ(0, LogNumber("after", 0));
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  EXPECT_NE(std::string::npos, AllText(args.at(1)).find(NumberLine("after", 0) + "\n"));
  return 0;
}

TEST(DiskFull, LimitOfTheFileSizeLosesRecordsOnlyWhileItHolds) {
  for (const char* way : {"direct", "buffered"})
    EXPECT_TRUE(RunCase("LimitFileSize", {way}, 20000)) << way;
}

CHILD_CASE(ConfigOnFullDevice) {
  EXPECT_EQ(0, SetConfigFilePath("/dev/full"));
  UseSize(args.at(0), args.at(2) == "buffered" ? 1024 : 0, 2048, 3);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  EXPECT_EQ(0, registerModule("net", "V1"));
  for (int number = 0; number < 500; ++number)
    EXPECT_EQ(0, LogNumber("a", number));
  CGlobal::Instance()->SaveAttribute2File("all");
  EXPECT_EQ(0, KelvikExtra_Flush(5000, 0));
  const tagKelvikStatistics now = Statistics();
  EXPECT_EQ(500u, now.m_RecordsWritten);
  EXPECT_GT(now.m_Rotations, 5u);
  EXPECT_EQ(3u, ListFolder(args.at(1)).size());
  EXPECT_EQ(0, ClearFileInfo());
  return 0;
}

TEST(DiskFull, ConfigurationThatCannotBeWrittenStopsNoRecord) {
  for (const char* way : {"direct", "buffered"})
    EXPECT_TRUE(RunCase("ConfigOnFullDevice", {way})) << way;
}

}  // namespace
}  // namespace Kelvik
