// Where and how a document's bytes get into its file: replaced or written in place, links, modes,
// owners, files left by a killed process, several savers at once.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "IniTools.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

using Names = std::vector<std::string>;

struct stat Status(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(0, stat(path.c_str(), &status)) << path;
  return status;
}

class IniSave : public testing::Test {
 protected:
  std::string File(const std::string& name) const { return m_Folder.File(name); }
  void Make(const std::string& name, const std::string& bytes, mode_t mode = 0644) {
    ASSERT_TRUE(WriteFile(File(name), bytes));
    ASSERT_EQ(0, chmod(File(name).c_str(), mode));
  }
  Names Left() const { return ListFolder(m_Folder.Path()); }

  CTempDir m_Folder;
};

TEST_F(IniSave, FileIsReplacedAndNothingElseStays) {
  Make("app.ini", "old bytes, more than the new ones");
  const ino_t old = Status(File("app.ini")).st_ino;
  const int held = open(File("app.ini").c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "new"));
  EXPECT_EQ("new", ReadFile(File("app.ini")));
  EXPECT_NE(old, Status(File("app.ini")).st_ino);
  EXPECT_EQ(Names({"app.ini"}), Left());
  // Who reads the old file goes on reading it whole.
  struct stat status = {};
  EXPECT_EQ(0, fstat(held, &status));
  EXPECT_EQ(33, status.st_size);
  close(held);
}

TEST_F(IniSave, DescriptorsAreClosed) {
  const int before = OpenDescriptors();
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "1"));
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "2"));
  EXPECT_FALSE(xini_saver_t::save(File("none/app.ini"), "3"));
  EXPECT_EQ(before, OpenDescriptors());
}

TEST_F(IniSave, ModeStays) {
  for (const mode_t mode : {0600u, 0640u, 0664u, 0755u, 0666u, 0200u}) {
    Make("app.ini", "old", mode);
    EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "new"));
    EXPECT_EQ(mode, Status(File("app.ini")).st_mode & 07777);
  }
}

TEST_F(IniSave, NewFileFollowsTheUmask) {
  for (const mode_t mask : {0022u, 0077u, 0000u}) {
    const mode_t old = umask(mask);
    EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "new"));
    umask(old);
    EXPECT_EQ(0666 & ~mask, Status(File("app.ini")).st_mode & 07777);
    ASSERT_EQ(0, unlink(File("app.ini").c_str()));
  }
}

TEST_F(IniSave, OwnerStays) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: only root can give a file to another user";
  Make("app.ini", "old", 0640);
  ASSERT_EQ(0, chown(File("app.ini").c_str(), 12345, 54321));
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "new"));
  EXPECT_EQ("new", ReadFile(File("app.ini")));
  EXPECT_EQ(12345u, Status(File("app.ini")).st_uid);
  EXPECT_EQ(54321u, Status(File("app.ini")).st_gid);
  EXPECT_EQ(0640u, Status(File("app.ini")).st_mode & 07777);
}

TEST_F(IniSave, LinkIsFollowedAndStays) {
  const CTempDir other;
  Make("real.ini", "old");
  ASSERT_EQ(0, symlink(File("real.ini").c_str(), other.File("far.ini").c_str()));
  ASSERT_EQ(0, symlink("far.ini", other.File("near.ini").c_str()));
  EXPECT_TRUE(xini_saver_t::save(other.File("near.ini"), "new"));
  EXPECT_EQ("new", ReadFile(File("real.ini")));
  EXPECT_EQ(Names({"far.ini", "near.ini"}), ListFolder(other.Path()));
  EXPECT_EQ(Names({"real.ini"}), Left());
  struct stat status = {};
  EXPECT_EQ(0, lstat(other.File("near.ini").c_str(), &status));
  EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST_F(IniSave, FileBehindADanglingLinkIsCreated) {
  ASSERT_EQ(0, symlink("real.ini", File("link.ini").c_str()));
  EXPECT_TRUE(xini_saver_t::save(File("link.ini"), "new"));
  EXPECT_EQ("new", ReadFile(File("real.ini")));
  EXPECT_EQ(Names({"link.ini", "real.ini"}), Left());
  struct stat status = {};
  EXPECT_EQ(0, lstat(File("link.ini").c_str(), &status));
  EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST_F(IniSave, LinksInACircleAreNoFile) {
  ASSERT_EQ(0, symlink("b", File("a").c_str()));
  ASSERT_EQ(0, symlink("a", File("b").c_str()));
  EXPECT_FALSE(xini_saver_t::save(File("a"), "new"));
  EXPECT_EQ(Names({"a", "b"}), Left());
}

TEST_F(IniSave, RelativePathIsTakenFromTheWorkingFolder) {
  char* old = getcwd(nullptr, 0);
  ASSERT_EQ(0, chdir(m_Folder.Path().c_str()));
  EXPECT_TRUE(xini_saver_t::save("app.ini", "1"));
  EXPECT_TRUE(xini_saver_t::save("./app.ini", "2"));
  ASSERT_EQ(0, chdir(old));
  std::free(old);
  EXPECT_EQ("2", ReadFile(File("app.ini")));
  EXPECT_EQ(Names({"app.ini"}), Left());
}

TEST_F(IniSave, FileWithAnotherNameIsWrittenInPlace) {
  Make("app.ini", "old bytes, more than the new ones");
  ASSERT_EQ(0, link(File("app.ini").c_str(), File("other.ini").c_str()));
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "new"));
  EXPECT_EQ("new", ReadFile(File("other.ini")));
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "longer than before"));
  EXPECT_EQ("longer than before", ReadFile(File("other.ini")));
  EXPECT_EQ(Names({"app.ini", "other.ini"}), Left());
}

TEST_F(IniSave, PathThatIsNoFileIsRefused) {
  EXPECT_FALSE(xini_saver_t::save("", "new"));
  EXPECT_FALSE(xini_saver_t::save(m_Folder.Path(), "new"));
  EXPECT_FALSE(xini_saver_t::save(m_Folder.Path() + "/", "new"));
  EXPECT_FALSE(xini_saver_t::save(File("new/"), "new"));
  EXPECT_FALSE(xini_saver_t::save(File("none/new.ini"), "new"));
  EXPECT_FALSE(xini_saver_t::save(File(std::string(300, 'x')), "new"));
  EXPECT_TRUE(Left().empty());
}

TEST_F(IniSave, LongestNameIsSaved) {
  const std::string name(255, 'x');
  EXPECT_TRUE(xini_saver_t::save(File(name), "1"));
  EXPECT_TRUE(xini_saver_t::save(File(name), "2"));
  EXPECT_EQ("2", ReadFile(File(name)));
  EXPECT_EQ(Names({name}), Left());
}

TEST_F(IniSave, DevicesAreWrittenInPlace) {
  EXPECT_TRUE(xini_saver_t::save("/dev/null", "new"));
  EXPECT_TRUE(S_ISCHR(Status("/dev/null").st_mode));
  if (!Exists("/dev/full")) GTEST_SKIP() << "SKIPPED: no /dev/full here";
  EXPECT_FALSE(xini_saver_t::save("/dev/full", "new"));
  EXPECT_TRUE(xini_saver_t::save("/dev/full", ""));
}

TEST_F(IniSave, PipeGetsTheBytes) {
  ASSERT_EQ(0, mkfifo(File("pipe").c_str(), 0600));
  std::string read;
  std::thread reader([&] { read = ReadFile(File("pipe")); });
  EXPECT_TRUE(xini_saver_t::save(File("pipe"), "new"));
  reader.join();
  EXPECT_EQ("new", read);
  EXPECT_EQ(Names({"pipe"}), Left());
}

// Root has every right, so it saves as somebody else; it becomes root again for the sanitizers,
// which look at the process at its end.
CHILD_CASE(SaveAsPlainUser) {
  const bool isRoot = geteuid() == 0;
  if (isRoot && (setegid(65534) != 0 || seteuid(65534) != 0)) return 3;
  const bool isSaved = xini_saver_t::save(args.at(0), args.at(1));
  if (isRoot && (seteuid(0) != 0 || setegid(0) != 0)) return 3;
  return isSaved ? 0 : 1;
}

TEST_F(IniSave, WritableFileInAClosedFolderIsWrittenInPlace) {
  Make("app.ini", "old bytes", 0666);
  const ino_t old = Status(File("app.ini")).st_ino;
  ASSERT_EQ(0, chmod(m_Folder.Path().c_str(), 0555));
  EXPECT_TRUE(Succeeded(RunChild("SaveAsPlainUser", {File("app.ini"), "new"})));
  EXPECT_EQ("new", ReadFile(File("app.ini")));
  EXPECT_EQ(old, Status(File("app.ini")).st_ino);
  EXPECT_EQ(1, RunChild("SaveAsPlainUser", {File("new.ini"), "new"}).m_ExitCode);
  EXPECT_EQ(Names({"app.ini"}), Left());
}

TEST_F(IniSave, FileWithoutWriteRightIsRefusedThoughTheFolderIsOpen) {
  Make("app.ini", "old", 0444);
  ASSERT_EQ(0, chmod(m_Folder.Path().c_str(), 0777));
  EXPECT_EQ(1, RunChild("SaveAsPlainUser", {File("app.ini"), "new"}).m_ExitCode);
  EXPECT_EQ("old", ReadFile(File("app.ini")));
  EXPECT_EQ(Names({"app.ini"}), Left());
}

TEST_F(IniSave, FileOfAnotherUserIsWrittenInPlaceAndStaysHis) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: only root can give a file to another user";
  Make("app.ini", "old", 0666);
  ASSERT_EQ(0, chmod(m_Folder.Path().c_str(), 0777));
  EXPECT_TRUE(Succeeded(RunChild("SaveAsPlainUser", {File("app.ini"), "new"})));
  EXPECT_EQ("new", ReadFile(File("app.ini")));
  EXPECT_EQ(0u, Status(File("app.ini")).st_uid);
  EXPECT_EQ(Names({"app.ini"}), Left());
}

TEST_F(IniSave, StrayFilesOfKilledSaversAreRemoved) {
  Make(".app.ini.kelvik-tmp", "half", 0600);
  Make(".app.ini.kelvik-tmp1", "half", 0600);
  Make(".app.ini.kelvik-tmp2", "half", 0600);
  Make(".other.ini.kelvik-tmp", "not ours", 0600);
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "new"));
  EXPECT_EQ(Names({".other.ini.kelvik-tmp", "app.ini"}), Left());
  EXPECT_EQ("new", ReadFile(File("app.ini")));
}

TEST_F(IniSave, TemporaryFileOfASaverAtWorkIsLeftAlone) {
  Make(".app.ini.kelvik-tmp", "at work", 0600);
  const int fd = open(File(".app.ini.kelvik-tmp").c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(0, flock(fd, LOCK_EX));
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "new"));
  EXPECT_EQ(Names({".app.ini.kelvik-tmp", "app.ini"}), Left());
  EXPECT_EQ("at work", ReadFile(File(".app.ini.kelvik-tmp")));
  close(fd);
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "newer"));
  EXPECT_EQ(Names({"app.ini"}), Left());
}

TEST_F(IniSave, PlantedNamesAreNeitherFollowedNorRemoved) {
  Make("victim", "whole");
  ASSERT_EQ(0, symlink("victim", File(".app.ini.kelvik-tmp").c_str()));
  ASSERT_EQ(0, mkfifo(File(".app.ini.kelvik-tmp1").c_str(), 0600));
  ASSERT_EQ(0, mkdir(File(".app.ini.kelvik-tmp2").c_str(), 0700));
  EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "new"));
  EXPECT_EQ("whole", ReadFile(File("victim")));
  EXPECT_EQ("new", ReadFile(File("app.ini")));
  EXPECT_EQ(5u, Left().size());
}

// Saves documents of different lengths, each of one letter, until it is ended.
CHILD_CASE(SaveForEver) {
  std::printf("saving\n");
  std::fflush(stdout);
  for (std::size_t i = 0;; ++i) {
    const std::string bytes(1 + (i * 7919) % 20000, args.at(1)[0]);
    if (!xini_saver_t::save(args.at(0), bytes)) return 1;
  }
}

bool IsOfOneLetter(const std::string& bytes) {
  return !bytes.empty() && bytes.find_first_not_of(bytes[0]) == std::string::npos;
}

TEST_F(IniSave, SeveralSaversAndKillsNeverTearTheFile) {
  Make("app.ini", "o");
  for (int round = 0; round < 1 + Rounds() / 5; ++round) {
    std::vector<std::unique_ptr<CChild>> children;
    for (const char* letter : {"a", "b", "c"}) {
      children.push_back(
          std::make_unique<CChild>(ChildCommand("SaveForEver", {File("app.ini"), letter})));
    }
    for (const auto& child : children)
      ASSERT_TRUE(child->WaitForOutput("saving", 10000));
    for (int look = 0; look < 50; ++look) {
      const std::string bytes = ReadFile(File("app.ini"));
      ASSERT_TRUE(IsOfOneLetter(bytes)) << bytes.size() << " bytes";
      usleep(500);
    }
    for (const auto& child : children) {
      child->Signal(SIGKILL);
      EXPECT_EQ(SIGKILL, child->Wait().m_Signal);
    }
    ASSERT_TRUE(IsOfOneLetter(ReadFile(File("app.ini"))));
    EXPECT_TRUE(xini_saver_t::save(File("app.ini"), "n"));
    EXPECT_EQ(Names({"app.ini"}), Left());
  }
}

TEST_F(IniSave, ThreadsMaySaveTheSameFile) {
  std::vector<std::thread> threads;
  std::vector<int> failures(4, 0);
  for (std::size_t i = 0; i < failures.size(); ++i) {
    threads.emplace_back([&, i] {
      for (int save = 0; save < Rounds(); ++save) {
        const std::string bytes(1 + i * 5000, static_cast<char>('a' + i));
        if (!xini_saver_t::save(File("app.ini"), bytes)) ++failures[i];
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(std::vector<int>(4, 0), failures);
  EXPECT_TRUE(IsOfOneLetter(ReadFile(File("app.ini"))));
  EXPECT_EQ(Names({"app.ini"}), Left());
}

}  // namespace
}  // namespace Kelvik
