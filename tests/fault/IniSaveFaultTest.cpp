// Every system call of a save fails in turn, with every error that matters, once or from there on;
// the disk is full. The file is the old one when the save says so and the new one when it says
// that.

#include "FaultySaver.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "FileTools.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

using Names = std::vector<std::string>;

const std::string kOld = "[a]\nk=1\n; a line that only the old document has\n";
const std::string kNew = "[a]\nk=2\n\n[b]\nx=" + std::string(9000, 'n') + "\n";
constexpr mode_t kMode = 0640;
constexpr int kMaxCalls = 1000;

class IniSaveFault : public testing::Test {
 protected:
  // Thousands of saves in memory: a disk would take a minute for them.
  static void SetUpTestSuite() {
    if (access("/dev/shm", W_OK | X_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
  }
};

// The ways in which a file lies in its folder.
enum eLie { kPlain, kNewFile, kBehindLink, kBehindDanglingLink, kWithStray, kWithTwoNames };
constexpr eLie kLies[] = {kPlain,     kNewFile,     kBehindLink, kBehindDanglingLink,
                          kWithStray, kWithTwoNames};

bool IsThereBefore(eLie lie) {
  return lie != kNewFile && lie != kBehindDanglingLink;
}

// The path that is saved to; real.ini is the file itself.
std::string MakeLie(const CTempDir& folder, eLie lie) {
  const std::string real = folder.File("real.ini");
  const std::string other = folder.File("other.ini");
  if (IsThereBefore(lie)) {
    EXPECT_TRUE(WriteFile(real, kOld));
    EXPECT_EQ(0, chmod(real.c_str(), kMode));
  }
  if (lie == kBehindLink || lie == kBehindDanglingLink) {
    EXPECT_EQ(0, symlink("real.ini", other.c_str()));
    return other;
  }
  if (lie == kWithStray) {
    EXPECT_TRUE(WriteFile(folder.File(".real.ini.kelvik-tmp"), "half"));
  }
  if (lie == kWithTwoNames) {
    EXPECT_EQ(0, link(real.c_str(), other.c_str()));
  }
  return real;
}

Names NamesAfter(eLie lie) {
  if (lie == kPlain || lie == kNewFile || lie == kWithStray) return {"real.ini"};
  return {"other.ini", "real.ini"};
}

// Saves with the given faults and judges what is left. Returns the save's result.
bool SaveAndJudge(eLie lie, const tagFaults& faults, bool mayLeaveStray) {
  const CTempDir folder;
  const std::string path = MakeLie(folder, lie);
  const int descriptors = OpenDescriptors();
  Faults() = faults;
  const bool isSaved = xini_faulty_saver_t::save(path, kNew);
  const std::string failed =
      faults.m_FailAt > 0 && faults.m_FailAt <= static_cast<int>(Faults().m_Calls.size())
          ? Faults().m_Calls[static_cast<std::size_t>(faults.m_FailAt) - 1]
          : "";
  SCOPED_TRACE("failed: " + failed);
  EXPECT_EQ(descriptors, OpenDescriptors());

  const std::string real = folder.File("real.ini");
  const bool isOld = IsThereBefore(lie) ? ReadFile(real) == kOld : !Exists(real);
  if (isSaved) {
    EXPECT_EQ(kNew, ReadFile(real));
  } else if (lie != kWithTwoNames || (failed != "write" && failed != "ftruncate")) {
    // In place, a failed write has gone too far; so has a sync, which leaves the new bytes.
    EXPECT_TRUE(isOld || (lie == kWithTwoNames && failed == "fsync" && ReadFile(real) == kNew));
  }
  if (isOld && IsThereBefore(lie)) {
    struct stat status = {};
    EXPECT_EQ(0, stat(real.c_str(), &status));
    EXPECT_EQ(kMode, status.st_mode & 07777);
  }
  for (const std::string& name : ListFolder(folder.Path())) {
    const Names known = NamesAfter(lie);
    const bool isStray = name == ".real.ini.kelvik-tmp" && (mayLeaveStray || lie == kWithStray);
    EXPECT_TRUE(isStray || std::count(known.begin(), known.end(), name) == 1) << name;
  }
  Faults() = {};
  EXPECT_TRUE(xini_faulty_saver_t::save(path, kOld));
  EXPECT_EQ(kOld, ReadFile(real));
  EXPECT_EQ(NamesAfter(lie), ListFolder(folder.Path()));
  return isSaved;
}

int CallsOfASave(eLie lie) {
  const CTempDir folder;
  const std::string path = MakeLie(folder, lie);
  Faults() = {};
  EXPECT_TRUE(xini_faulty_saver_t::save(path, kNew));
  const int calls = static_cast<int>(Faults().m_Calls.size());
  EXPECT_GE(calls, 5);
  EXPECT_LT(calls, kMaxCalls);
  return calls;
}

constexpr int kErrors[] = {ENOSPC, EIO,    EDQUOT, EACCES, EPERM,  EROFS,  EBUSY, EXDEV,
                           ENOMEM, EMFILE, EINVAL, ENOSYS, ENOENT, ENOLCK, EFBIG};

TEST_F(IniSaveFault, AnyCallMayFailOnce) {
  int saved = 0;
  int refused = 0;
  for (const eLie lie : kLies) {
    const int calls = CallsOfASave(lie);
    for (int call = 1; call <= calls; ++call) {
      for (const int error : kErrors) {
        SCOPED_TRACE("lie " + std::to_string(lie) + ", call " + std::to_string(call) + ", " +
                     strerror(error));
        tagFaults faults;
        faults.m_FailAt = call;
        faults.m_Error = error;
        ++(SaveAndJudge(lie, faults, false) ? saved : refused);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
  EXPECT_GT(saved, 0);
  EXPECT_GT(refused, 0);
}

TEST_F(IniSaveFault, AllCallsFromOneOnMayFail) {
  for (const eLie lie : kLies) {
    const int calls = CallsOfASave(lie);
    for (int call = 1; call <= calls; ++call) {
      for (const int error : {ENOSPC, EIO, EACCES, EPERM}) {
        SCOPED_TRACE("lie " + std::to_string(lie) + ", call " + std::to_string(call) + ", " +
                     strerror(error));
        tagFaults faults;
        faults.m_FailAt = call;
        faults.m_IsLasting = true;
        faults.m_Error = error;
        SaveAndJudge(lie, faults, true);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
}

TEST_F(IniSaveFault, InterruptedCallIsRepeated) {
  for (const eLie lie : kLies) {
    const int calls = CallsOfASave(lie);
    for (int call = 1; call <= calls; ++call) {
      tagFaults faults;
      faults.m_FailAt = call;
      faults.m_Error = EINTR;
      const CTempDir folder;
      const std::string path = MakeLie(folder, lie);
      Faults() = faults;
      const bool isSaved = xini_faulty_saver_t::save(path, kNew);
      const std::string name = Faults().m_Calls[static_cast<std::size_t>(call) - 1];
      if (name == "open" || name == "create" || name == "write" || name == "fsync" ||
          name == "close") {
        EXPECT_TRUE(isSaved) << name;
        EXPECT_EQ(kNew, ReadFile(folder.File("real.ini"))) << name;
      }
    }
  }
}

TEST_F(IniSaveFault, DataIsSyncedBeforeTheRenameAndTheFolderAfterIt) {
  for (const eLie lie : {kPlain, kNewFile}) {
    const CTempDir folder;
    const std::string path = MakeLie(folder, lie);
    Faults() = {};
    Faults().m_MostWritten = 1000;
    ASSERT_TRUE(xini_faulty_saver_t::save(path, kNew));
    EXPECT_EQ(kNew, ReadFile(path));
    Names order;
    for (const std::string& call : Faults().m_Calls) {
      const bool isOfInterest = call == "create" || call == "write" || call == "fsync" ||
                                call == "rename" || call == "open folder";
      if (isOfInterest && (order.empty() || order.back() != call)) order.push_back(call);
    }
    EXPECT_EQ(Names({"create", "write", "fsync", "rename", "open folder", "fsync"}), order);
  }
}

TEST_F(IniSaveFault, PlaceThatCannotBeExchangedIsWrittenInPlace) {
  for (const int error : {EBUSY, EXDEV, EPERM, EACCES, EROFS}) {
    const CTempDir folder;
    const std::string path = MakeLie(folder, kPlain);
    struct stat before = {};
    ASSERT_EQ(0, stat(path.c_str(), &before));
    Faults() = {};
    ASSERT_TRUE(xini_faulty_saver_t::save(path, kOld + " "));
    const auto at = std::find(Faults().m_Calls.begin(), Faults().m_Calls.end(), "rename");
    ASSERT_NE(Faults().m_Calls.end(), at);
    const int call = static_cast<int>(at - Faults().m_Calls.begin()) + 1;
    ASSERT_EQ(0, stat(path.c_str(), &before));
    Faults() = {};
    Faults().m_FailAt = call;
    Faults().m_Error = error;
    EXPECT_TRUE(xini_faulty_saver_t::save(path, kNew)) << strerror(error);
    struct stat after = {};
    ASSERT_EQ(0, stat(path.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(kNew, ReadFile(path));
    EXPECT_EQ(Names({"real.ini"}), ListFolder(folder.Path()));
  }
}

TEST_F(IniSaveFault, DiskThatFillsUpLeavesTheOldFile) {
  for (const eLie lie : {kPlain, kNewFile, kBehindLink, kWithStray}) {
    for (const std::size_t room : {1u, 2u, 1000u, 9000u}) {
      tagFaults faults;
      faults.m_Room = room;
      EXPECT_FALSE(SaveAndJudge(lie, faults, false)) << room;
    }
  }
}

TEST_F(IniSaveFault, DiskWithoutRoomForGrowthLeavesAFileThatIsWrittenInPlace) {
  const CTempDir folder;
  const std::string path = MakeLie(folder, kWithTwoNames);
  Faults() = {};
  ASSERT_TRUE(xini_faulty_saver_t::save(path, kOld + " "));
  const auto at = std::find(Faults().m_Calls.begin(), Faults().m_Calls.end(), "fallocate");
  ASSERT_NE(Faults().m_Calls.end(), at);
  const int call = static_cast<int>(at - Faults().m_Calls.begin()) + 1;
  Faults() = {};
  Faults().m_FailAt = call;
  Faults().m_Error = ENOSPC;
  EXPECT_FALSE(xini_faulty_saver_t::save(path, kNew));
  EXPECT_EQ(kOld + " ", ReadFile(path));
}

// A daemon without standard streams: what it prints must not land in the file that is saved.
CHILD_CASE(SaveWithoutStandardStreams) {
  int kept[3] = {};
  for (int fd = 0; fd < 3; ++fd) {
    kept[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 100);
    close(fd);
  }
  Faults() = {};
  const bool isSaved = xini_faulty_saver_t::save(args.at(0), kNew);
  const bool areFree =
      fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1;
  for (int fd = 0; fd < 3; ++fd)
    dup2(kept[fd], fd);
  EXPECT_TRUE(isSaved);
  EXPECT_TRUE(areFree);
  EXPECT_GE(Faults().m_LowestFd, 3);
  return 0;
}

TEST_F(IniSaveFault, StandardStreamsAreNeverUsed) {
  for (const eLie lie : kLies) {
    const CTempDir folder;
    const std::string path = MakeLie(folder, lie);
    EXPECT_TRUE(Succeeded(RunChild("SaveWithoutStandardStreams", {path})));
    EXPECT_EQ(kNew, ReadFile(path));
    EXPECT_EQ(NamesAfter(lie), ListFolder(folder.Path()));
  }
}

// The size limit of the process stands for a full disk: nothing is injected.
CHILD_CASE(SaveUnderSizeLimit) {
  signal(SIGXFSZ, SIG_IGN);
  struct rlimit limit = {};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
  limit.rlim_cur = 4096;
  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
  Faults() = {};
  return xini_faulty_saver_t::save(args.at(0), kNew) ? 0 : 1;
}

TEST_F(IniSaveFault, FileSizeLimitLeavesTheOldFile) {
  for (const eLie lie : {kPlain, kNewFile, kWithTwoNames}) {
    const CTempDir folder;
    const std::string path = MakeLie(folder, lie);
    EXPECT_EQ(1, RunChild("SaveUnderSizeLimit", {path}).m_ExitCode);
    EXPECT_EQ(IsThereBefore(lie) ? kOld : "", ReadFile(path));
    EXPECT_EQ(IsThereBefore(lie) ? NamesAfter(lie) : Names(), ListFolder(folder.Path()));
  }
}

bool WriteText(const char* path, const std::string& text) {
  return WriteFile(path, text);
}

// A file system of 16 KiB of its own, in a mount name space of its own. 77: not allowed here.
CHILD_CASE(SaveOnFullDisk) {
  const std::string folder = args.at(0);
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 ||
      !WriteText("/proc/self/uid_map", "0 " + user + " 1\n") ||
      !WriteText("/proc/self/setgroups", "deny") ||
      !WriteText("/proc/self/gid_map", "0 " + group + " 1\n") ||
      mount("none", folder.c_str(), "tmpfs", 0, "size=16k") != 0) {
    return 77;
  }
  const std::string path = folder + "/app.ini";
  const std::string old(6000, 'o');
  Faults() = {};
  if (!xini_faulty_saver_t::save(path, old)) return 1;
  // Two pages for the old file and two at most for the new one: this one does not fit beside it.
  if (xini_faulty_saver_t::save(path, std::string(12000, 'n'))) return 2;
  if (ReadFile(path) != old || ListFolder(folder) != Names({"app.ini"})) return 3;
  if (!xini_faulty_saver_t::save(path, std::string(6000, 'n'))) return 4;
  return ReadFile(path) == std::string(6000, 'n') ? 0 : 5;
}

TEST_F(IniSaveFault, FullDiskLeavesTheOldFile) {
  const CTempDir folder;
  const tagChildResult result = RunChild("SaveOnFullDisk", {folder.Path()});
  if (result.m_ExitCode == 77) {
    GTEST_SKIP() << "SKIPPED: no mount name space here, so no small disk to fill";
  }
  EXPECT_TRUE(Succeeded(result));
}

// A mounted file is a place that cannot be exchanged: rename gives EBUSY.
CHILD_CASE(SaveOverMountedFile) {
  const std::string folder = args.at(0);
  const std::string user = std::to_string(geteuid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 ||
      !WriteText("/proc/self/uid_map", "0 " + user + " 1\n") ||
      mount((folder + "/other").c_str(), (folder + "/app.ini").c_str(), nullptr, MS_BIND,
            nullptr) != 0) {
    return 77;
  }
  Faults() = {};
  return xini_faulty_saver_t::save(folder + "/app.ini", kNew) ? 0 : 1;
}

TEST_F(IniSaveFault, MountedFileIsWrittenInPlace) {
  const CTempDir folder;
  ASSERT_TRUE(WriteFile(folder.File("app.ini"), "hidden"));
  ASSERT_TRUE(WriteFile(folder.File("other"), kOld));
  const tagChildResult result = RunChild("SaveOverMountedFile", {folder.Path()});
  if (result.m_ExitCode == 77) GTEST_SKIP() << "SKIPPED: no mount name space here";
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(kNew, ReadFile(folder.File("other")));
  EXPECT_EQ("hidden", ReadFile(folder.File("app.ini")));
  EXPECT_EQ(Names({"app.ini", "other"}), ListFolder(folder.Path()));
}

}  // namespace
}  // namespace Kelvik
