// A save is killed at every system call, before and after the kernel has done it: the file is then
// the old one or the new one, whole, and the next save leaves nothing behind. Runs natively only:
// the saving process is stepped with ptrace.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "FileTools.h"
#include "IniFile.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

using Names = std::vector<std::string>;

// What is in the document before and after.
const std::string kOld = "[a]\nk=1\n; a line that only the old document has\n";
const std::string kNew = "[a]\nk=2\n\n[b]\nx=" + std::string(9000, 'n') + "\n";

constexpr int kMinStops = 20;     // a save has at least ten system calls
constexpr int kMaxStops = 10000;  // the stepping must end

// In the child: makes itself stepped, saves and ends.
[[noreturn]] void SaveStepped(const std::string& path) {
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(3);
  raise(SIGSTOP);
  _exit(xini_saver_t::save(path, kNew) ? 0 : 1);
}

enum eEnd { kKilled, kSaved, kBroken };

// Lets a child save and kills it at its stop number `stop`, counted from 1.
eEnd SaveAndKill(const std::string& path, int stop) {
  const pid_t child = fork();
  if (child == -1) return kBroken;
  if (child == 0) SaveStepped(path);
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return kBroken;
  for (int stops = 0; stops < stop; ++stops) {
    if (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) != 0) return kBroken;
    if (waitpid(child, &status, 0) != child) return kBroken;
    if (WIFEXITED(status)) return WEXITSTATUS(status) == 0 ? kSaved : kBroken;
    if (!WIFSTOPPED(status)) return kBroken;
  }
  kill(child, SIGKILL);
  if (waitpid(child, &status, 0) != child || !WIFSIGNALED(status)) return kBroken;
  return kKilled;
}

struct tagOutcome {
  int m_Stops = 0;   // places at which the save was killed
  int m_Old = 0;     // how often the old file was there afterwards
  int m_New = 0;     // how often the new one was
  int m_Strays = 0;  // how often a temporary file was left
};

// Kills a save at one stop after the other until it comes through. `prepare` makes the folder's
// content, `path` is saved to, `target` is the file behind it.
void KillEverywhere(const std::function<void(const CTempDir&)>& prepare, const std::string& path,
                    const std::string& target, const Names& left, tagOutcome& outcome) {
  for (int stop = 1; stop < kMaxStops; ++stop) {
    SCOPED_TRACE("killed at stop " + std::to_string(stop));
    const CTempDir folder;
    prepare(folder);
    const bool wasThere = Exists(folder.File(target));
    const eEnd end = SaveAndKill(folder.File(path), stop);
    ASSERT_NE(kBroken, end);

    const std::string bytes = ReadFile(folder.File(target));
    const bool isNew = bytes == kNew;
    const bool isOld = wasThere ? bytes == kOld : !Exists(folder.File(target));
    ASSERT_TRUE(isNew || isOld) << bytes.size() << " bytes";
    if (end == kSaved) {
      ASSERT_TRUE(isNew);
      ASSERT_EQ(left, ListFolder(folder.Path()));
      outcome.m_Stops = stop - 1;
      return;
    }
    ++(isNew ? outcome.m_New : outcome.m_Old);
    for (const std::string& name : ListFolder(folder.Path())) {
      if (name == "." + target + ".kelvik-tmp") {
        ++outcome.m_Strays;
      } else {
        ASSERT_NE(left.end(), std::find(left.begin(), left.end(), name)) << name;
      }
    }
    ASSERT_TRUE(xini_saver_t::save(folder.File(path), kOld));
    ASSERT_EQ(kOld, ReadFile(folder.File(target)));
    ASSERT_EQ(left, ListFolder(folder.Path()));
  }
  FAIL() << "the save never ended";
}

void ExpectKilledOnBothSides(const tagOutcome& outcome) {
  EXPECT_GE(outcome.m_Stops, kMinStops);
  EXPECT_EQ(outcome.m_Stops, outcome.m_Old + outcome.m_New);
  EXPECT_GT(outcome.m_Old, 0);
  EXPECT_GT(outcome.m_New, 0);
  EXPECT_GT(outcome.m_Strays, 0);
  std::printf("%d stops: %d old, %d new, %d with a temporary file left\n", outcome.m_Stops,
              outcome.m_Old, outcome.m_New, outcome.m_Strays);
}

TEST(IniSaveKill, ExistingFileIsOldOrNew) {
  tagOutcome outcome;
  const auto prepare = [](const CTempDir& folder) {
    ASSERT_TRUE(WriteFile(folder.File("app.ini"), kOld));
    ASSERT_EQ(0, chmod(folder.File("app.ini").c_str(), 0640));
  };
  ASSERT_NO_FATAL_FAILURE(KillEverywhere(prepare, "app.ini", "app.ini", {"app.ini"}, outcome));
  ExpectKilledOnBothSides(outcome);
}

TEST(IniSaveKill, NewFileIsAbsentOrWhole) {
  tagOutcome outcome;
  const auto prepare = [](const CTempDir&) {};
  ASSERT_NO_FATAL_FAILURE(KillEverywhere(prepare, "app.ini", "app.ini", {"app.ini"}, outcome));
  ExpectKilledOnBothSides(outcome);
}

TEST(IniSaveKill, FileBehindALinkIsOldOrNew) {
  tagOutcome outcome;
  const auto prepare = [](const CTempDir& folder) {
    ASSERT_TRUE(WriteFile(folder.File("real.ini"), kOld));
    ASSERT_EQ(0, symlink("real.ini", folder.File("link.ini").c_str()));
  };
  ASSERT_NO_FATAL_FAILURE(
      KillEverywhere(prepare, "link.ini", "real.ini", {"link.ini", "real.ini"}, outcome));
  ExpectKilledOnBothSides(outcome);
}

TEST(IniSaveKill, StrayFileOfAnEarlierKillDoesNoHarm) {
  tagOutcome outcome;
  const auto prepare = [](const CTempDir& folder) {
    ASSERT_TRUE(WriteFile(folder.File("app.ini"), kOld));
    ASSERT_TRUE(WriteFile(folder.File(".app.ini.kelvik-tmp"), kNew.substr(0, 100)));
  };
  ASSERT_NO_FATAL_FAILURE(KillEverywhere(prepare, "app.ini", "app.ini", {"app.ini"}, outcome));
  ExpectKilledOnBothSides(outcome);
}

}  // namespace
}  // namespace Kelvik
