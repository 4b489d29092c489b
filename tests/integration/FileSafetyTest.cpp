// What a log file may be: planted links, pipes and folders, closed standard streams, paths that do
// not fit.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "FakeClock.h"
#include "OutputTools.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

int Write(const std::string& text) {
  return Output().WriteLogBySzie(text.data(), static_cast<int>(text.size()));
}

// --- Things planted under a name that the ring will use ---

// args[2]: what; it is planted at path, and target is a file of somebody else.
void Plant(const std::string& what, const std::string& path, const std::string& target) {
  if (what == "link") {
    EXPECT_EQ(0, symlink(target.c_str(), path.c_str()));
  } else if (what == "dangling") {
    EXPECT_EQ(0, symlink((target + ".none").c_str(), path.c_str()));
  } else if (what == "fifo") {
    EXPECT_EQ(0, mkfifo(path.c_str(), 0600));
  } else if (what == "folder") {
    EXPECT_EQ(0, mkdir(path.c_str(), 0700));
  } else if (what == "device") {
    EXPECT_EQ(0, symlink("/dev/null", path.c_str()));
  } else {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    std::strcpy(address.sun_path, path.c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
  }
}

const char* const kPlants[] = {"link",   "dangling", "fifo",  "read-fifo",
                               "folder", "device",   "socket"};

// args[2]: what, args[3]: the planted name; "first" or "rotation" follows from it.
CHILD_CASE(Planted) {
  CFakeClock clock(kNoon);
  const std::string path = args[0] + args[3];
  const std::string target = args[0] + "target";
  const bool isFirst = args[3] == kNoonName;
  EXPECT_TRUE(WriteFile(target, "precious\n"));
  UseSize(args[0], 0, 1, 3);
  if (!isFirst) {
    EXPECT_EQ(0, Write("a\n"));
  }
  Plant(args[2] == "read-fifo" ? "fifo" : args[2], path, target);
  int reader = -1;
  if (args[2] == "read-fifo") reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  const int before = OpenDescriptors();
  const int64_t start = RealClockMs();
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(3, Write("lost\n"));
  EXPECT_LT(RealClockMs() - start, ScaledMs(1000));
  EXPECT_LE(OpenDescriptors(), before) << "a refused file stays open";
  EXPECT_EQ("precious\n", ReadFile(target));
  EXPECT_FALSE(Exists(target + ".none"));
  EXPECT_TRUE(Exists(path)) << "what somebody planted is not removed";
  if (reader != -1) {
    char byte;
    EXPECT_LE(read(reader, &byte, 1), 0);
  }
  EXPECT_EQ(0, remove(path.c_str()));
  EXPECT_EQ(0, Write("b\n"));
  EXPECT_EQ("b\n", ReadFile(args[0] + Output().m_FileNames[Output().m_FileIndex]));
  return 0;
}

TEST(FileSafety, PlantedNameOfTheFirstFileIsAnOpenFailure) {
  for (const char* what : kPlants)
    EXPECT_TRUE(RunCase("Planted", {what, kNoonName})) << what;
}

TEST(FileSafety, PlantedNameOfTheNextFileIsAnOpenFailure) {
  for (const char* what : kPlants)
    EXPECT_TRUE(RunCase("Planted", {what, "20240315120000_1.log"})) << what;
}

CHILD_CASE(PlantedPending) {
  CFakeClock clock(kNoon);
  EXPECT_TRUE(WriteFile(args[0] + "target", "precious\n"));
  UseSize(args[0], 0, 1000, 3);
  EXPECT_EQ(0, Write("a\n"));
  clock.AdvanceMs(1000);
  const std::string path = args[0] + "20240315120001.log";
  Plant(args[2], path, args[0] + "target");
  Output().m_RotatePending = 1;
  EXPECT_EQ(3, Write("b\n"));
  EXPECT_EQ(3, Write("c\n"));
  EXPECT_EQ("precious\n", ReadFile(args[0] + "target"));
  EXPECT_EQ("a\nb\n", ReadFile(args[0] + kNoonName));
  EXPECT_EQ(0, remove(path.c_str()));
  EXPECT_EQ(0, Write("d\n"));
  return 0;
}

TEST(FileSafety, PlantedNameOfAPendingRotationIsAnOpenFailure) {
  for (const char* what : {"link", "dangling", "fifo", "folder", "socket"})
    EXPECT_TRUE(RunCase("PlantedPending", {what})) << what;
}

CHILD_CASE(Restored) {
  // The user's own path may be a link, but no open blocks.
  UseSize(args[0], 0);
  EXPECT_TRUE(WriteFile(args[0] + "target", "old\n"));
  const std::string path = args[0] + "restored-log-file.log";
  Plant(args[2], path, args[0] + "target");
  Output().SetLogName(0, path.c_str());
  Output().SetCurrentFileInfo(0, 4);
  const int64_t start = RealClockMs();
  if (args[2] == "link") {
    EXPECT_EQ(0, Write("new\n"));
    EXPECT_EQ("old\nnew\n", ReadFile(args[0] + "target"));
  } else {
    EXPECT_EQ(3, Write("lost\n"));
  }
  EXPECT_LT(RealClockMs() - start, ScaledMs(500));
  return 0;
}

TEST(FileSafety, RestoredPathIsOpenedAsItStandsAndNeverBlocks) {
  for (const char* what : {"link", "fifo", "folder"})
    EXPECT_TRUE(RunCase("Restored", {what})) << what;
}

// --- Descriptors ---

CHILD_CASE(Daemon) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1, 3);
  close(0);
  close(1);
  close(2);
  bool isFine = true;
  for (int i = 0; i < 12; ++i) {
    isFine = isFine && Write("a line\n") == 0 && Output().m_CurrentFd >= 3;
    isFine = isFine && (fcntl(Output().m_CurrentFd, F_GETFD) & FD_CLOEXEC) != 0;
    clock.AdvanceMs(i % 3 * 1000);
    if (i % 5 == 4) Output().CloseFile();
    if (i % 4 == 3) Output().m_RotatePending = 1;
    // Nothing but what the program itself may put there.
    for (int fd = 0; fd < 3; ++fd)
      isFine = isFine && fcntl(fd, F_GETFD) == -1;
  }
  return isFine ? 0 : 1;
}

TEST(FileSafety, DaemonWithoutStandardStreamsKeepsThemFreeOfLogFiles) {
  EXPECT_TRUE(RunCase("Daemon"));
}

CHILD_CASE(DaemonRaw) {
  UseSize(args[0], 0, 1, 3);
  Output().SetLogName(0, "first.log");
  Output().SetLogName(1, "second.log");
  close(0);
  close(1);
  close(2);
  bool isFine = true;
  for (int i = 0; i < 5; ++i) {
    isFine = isFine && KLogs(eLogLevelInfo, "m", "t", "raw\n", 4) == 0;
    isFine = isFine && Output().m_CurrentFd >= 3;
    isFine = isFine && (fcntl(Output().m_CurrentFd, F_GETFD) & FD_CLOEXEC) != 0;
  }
  return isFine ? 0 : 1;
}

TEST(FileSafety, RawFilesStayOffTheStandardStreamsToo) {
  EXPECT_TRUE(RunCase("DaemonRaw"));
}

CHILD_CASE(NoLeak) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1, 3);
  EXPECT_EQ(0, Write("a\n"));
  const int before = OpenDescriptors();
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(0, Write("a\n"));
    if (i % 7 == 0) Output().m_RotatePending = 1;
    if (i % 3 == 0) clock.AdvanceMs(1000);
  }
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(0, ClearFileInfo());
  EXPECT_EQ(before - 1, OpenDescriptors());
  return 0;
}

TEST(FileSafety, RotationsKeepOneFileOpen) {
  EXPECT_TRUE(RunCase("NoLeak"));
}

// --- Paths ---

CHILD_CASE(LongPath) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 0, 1, 3);
  // A folder whose path fills the field together with its final '/'.
  const size_t length = std::stoul(args[2]);
  std::string path = args[0];
  while (path.size() < length) {
    const size_t piece = std::min<size_t>(100, length - path.size() - 1);
    path += std::string(piece, 'd');
    EXPECT_EQ(0, mkdir(path.c_str(), 0700)) << path;
    path += "/";
    if (length - path.size() == 1) path.pop_back(), path += "//";
  }
  EXPECT_EQ(length, path.size());
  EXPECT_EQ(0, SetAttribute(eAttributeOther, eOtherLogPath, path.c_str(), 1));
  for (const char* text : {"a\n", "b\n", "c\n", "d\n"}) {
    EXPECT_EQ(0, Write(text));
    clock.AdvanceMs(1000);
  }
  EXPECT_EQ("b\nc\nd\n", AllText(path));
  return 0;
}

TEST(FileSafety, LogPathThatFillsItsFieldIsUsedWhole) {
  for (const char* length : {"254", "255", "256"})
    EXPECT_TRUE(RunCase("LongPath", {length})) << length;
}

// --- Removal ---

CHILD_CASE(BareName) {
  // A file that this process opened and that is away from the log path goes under its bare name.
  CFakeClock clock(kNoon);
  const std::string sub = args[0] + "sub/";
  EXPECT_EQ(0, mkdir(sub.c_str(), 0700));
  EXPECT_EQ(0, chdir(args[1].c_str()));
  UseSize(sub, 0, 1, 1);
  EXPECT_EQ(0, Write("a\n"));
  EXPECT_TRUE(WriteFile(args[0] + kNoonName, "stays while the other is there\n"));
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, Write("b\n"));
  EXPECT_THAT(ListFolder(args[1]), ElementsAre(kNoonName, "sub"));
  EXPECT_EQ(0, rename((sub + "20240315120001.log").c_str(), "20240315120001.log"));
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, Write("c\n"));
  EXPECT_THAT(ListFolder(args[1]), ElementsAre(kNoonName, "sub"));
  EXPECT_THAT(Contents(sub), ElementsAre("20240315120002.log:c "));
  return 0;
}

TEST(FileSafety, FileThatIsNotUnderTheLogPathIsRemovedUnderItsBareName) {
  EXPECT_TRUE(RunCase("BareName"));
}

}  // namespace
}  // namespace Kelvik
