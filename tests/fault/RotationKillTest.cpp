// A process is killed at every system call of a rotation with its index update, before and after
// the kernel has done it: at the restart the configuration file is the one before or the one after,
// and the ring holds no more files than it may. Runs natively only: the process is stepped with
// ptrace.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <set>
#include <string>

#include "../integration/LossTools.h"

namespace Kelvik {
namespace {

constexpr uint32_t kCount = 3;
constexpr int kMinStops = 20;
constexpr int kMaxStops = 10000;
constexpr int kRestartMs = 5000;

struct tagRing {
  CTempDir m_Logs;
  CTempDir m_Etc;
  std::string Config() const { return m_Etc.File("kelvik.ini"); }
};

// The engine as the process starts it: each record is written by its call, on this thread.
void Start(const tagRing& ring) {
  SetConfigFilePath(ring.Config().c_str());
  UseSize(ring.m_Logs.LogPath(), 0, 1024, kCount);
  Initialize();
  UseSize(ring.m_Logs.LogPath(), 0, 1024, kCount);
}

// Logs until the file that is written is past its size, so that the next record rotates.
void FillFile(int& number) {
  do {
    LogNumber("a", number++);
  } while (Look(Output().m_FileSize) <= 1024);
}

// In the child: a full ring, then the stepped rotation.
[[noreturn]] void RotateStepped(const tagRing& ring) {
  Start(ring);
  int number = 1000;
  for (uint32_t files = 0; files < kCount; ++files)
    FillFile(number);
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(3);
  raise(SIGSTOP);
  LogNumber("a", number);
  _exit(0);
}

enum eEnd { kKilled, kRotated, kBroken };

// Lets a child rotate and kills it at its stop number `stop`, counted from 1. *before: the
// configuration file before the rotation.
eEnd RotateAndKill(const tagRing& ring, int stop, std::string* before) {
  const pid_t child = fork();
  if (child == -1) return kBroken;
  if (child == 0) RotateStepped(ring);
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return kBroken;
  *before = ReadFile(ring.Config());
  for (int stops = 0; stops < stop; ++stops) {
    if (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) != 0) return kBroken;
    if (waitpid(child, &status, 0) != child) return kBroken;
    if (WIFEXITED(status)) return WEXITSTATUS(status) == 0 ? kRotated : kBroken;
    if (!WIFSTOPPED(status)) return kBroken;
  }
  kill(child, SIGKILL);
  if (waitpid(child, &status, 0) != child || !WIFSIGNALED(status)) return kBroken;
  return kKilled;
}

// The next run of the program: rotates several times. Its exit code.
int Restart(const tagRing& ring) {
  const pid_t child = fork();
  if (child == 0) {
    Start(ring);
    int number = 2000;
    if (LogNumber("a", number++) != 0) _exit(4);
    const std::size_t files = ListFolder(ring.m_Logs.Path()).size();
    if (files > kCount) _exit(5);
    for (uint32_t i = 0; i < kCount; ++i)
      FillFile(number);
    if (Statistics().m_RecordsLost != 0) _exit(6);
    _exit(ListFolder(ring.m_Logs.Path()).size() == kCount ? 0 : 7);
  }
  return WaitForProcess(child, kRestartMs);
}

TEST(RotationKill, ConfigurationIsOldOrNewAndTheRingKeepsItsCount) {
  int stops = 0;
  int old = 0;
  int changed = 0;
  for (int stop = 1; stop < kMaxStops; ++stop) {
    SCOPED_TRACE("killed at stop " + std::to_string(stop));
    const tagRing ring;
    std::string before;
    const eEnd end = RotateAndKill(ring, stop, &before);
    ASSERT_NE(kBroken, end);
    const std::string after = ReadFile(ring.Config());
    ASSERT_FALSE(before.empty());
    ASSERT_EQ('\n', after.back());
    ASSERT_EQ(Lines(before).size(), Lines(after).size()) << after;
    if (end == kRotated) {
      ASSERT_NE(before, after);
      stops = stop - 1;
      break;
    }
    // Another file name and another index, or nothing at all.
    std::set<std::string> keys;
    for (std::size_t i = 0; i < Lines(before).size(); ++i) {
      const std::string line = Lines(after).at(i);
      if (line != Lines(before).at(i)) keys.insert(line.substr(0, line.find('=')));
    }
    ++(keys.empty() ? old : changed);
    if (!keys.empty()) {
      // Within a second a slot may get the name that it had before.
      ASSERT_EQ(1u, keys.count("LogIndex")) << after;
      ASSERT_LE(keys.size(), 2u) << after;
      ASSERT_EQ(0u, keys.rbegin()->find(keys.size() == 2 ? "fileName_" : "LogIndex")) << after;
    }
    ASSERT_EQ(0, Restart(ring));
    ASSERT_LE(ListFolder(ring.m_Etc.Path()).size(), 1u) << "nothing strays";
  }
  EXPECT_GE(stops, kMinStops);
  EXPECT_GT(old, 0);
  EXPECT_GT(changed, 0);
  std::printf("%d stops: %d with the old configuration, %d with the new one\n", stops, old,
              changed);
}

}  // namespace
}  // namespace Kelvik
