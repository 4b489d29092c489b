// What tests of fork() share. For one source file of a program.
#ifndef KELVIK_FORKTOOLS_H_
#define KELVIK_FORKTOOLS_H_

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "LossTools.h"

namespace Kelvik {

// Far beyond what any step takes: a child syncs its file, and a busy disk holds that up for
// seconds.
constexpr int kLimitMs = 30000;

// The leak sanitizer would miss what only the stacks of the parent's threads refer to.
inline testing::AssertionResult RunFork(const std::string& name,
                                        const std::vector<std::string>& more = {}) {
  const CTempDir logs;
  tagChildOptions options;
  options.m_LimitMs = 150000;
  options.m_Environment = {{"ASAN_OPTIONS", "detect_leaks=0"}};
  std::vector<std::string> args = {logs.LogPath(), logs.Path()};
  args.insert(args.end(), more.begin(), more.end());
  return Succeeded(RunChild(name, args, options));
}

inline void LogNumbers(const std::string& name, int count) {
  for (int number = 0; number < count; ++number)
    if (LogNumber(name.c_str(), number) != 0) _exit(11);
}

constexpr char kWarmUp[] = "warm-up\n";

// A thread that starts takes memory, and a child made meanwhile has the locks of the address
// sanitizer's heap as they were: its own writer would hang in its start. So the parent's has begun
// here; without that sanitizer a fork may come at any step of it.
inline void LetTheWriterBegin() {
  if (KELVIK_TEST_ADDRESS_SANITIZER == 0) return;
  EXPECT_EQ(0, KLog(eLogLevelInfo, nullptr, nullptr, "%s", kWarmUp));
  EXPECT_EQ(0, KelvikExtra_Flush(kLimitMs, 0));
}

inline std::string TextBehindWarmUp(const std::string& folder) {
  std::string text = AllText(folder);
  for (std::size_t at = 0; (at = text.find(kWarmUp, at)) != std::string::npos;)
    text.erase(at, std::strlen(kWarmUp));
  return text;
}

inline void StartEngine(const std::string& logPath, uint32_t bufferBytes) {
  UseSize(logPath, bufferBytes, kHugeFile);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(eOverflowWrite));
  LetTheWriterBegin();
}

CHILD_CASE(StartThreadInForkedChild) {
  std::atomic<bool> mayEnd{false};
  std::thread other([&] { WaitUntil([&] { return mayEnd.load(); }, kLimitMs); });
  const pid_t pid = fork();
  if (pid == 0) {
    std::thread([] {}).join();
    _exit(0);
  }
  const int code = WaitForProcess(pid, kLimitMs);
  mayEnd = true;
  other.join();
  return code == 0 ? 0 : 1;
}

// Whether the child of a process with threads can start one. Any kernel can; an emulator may not,
// which shows without the library.
inline bool CanForkedChildStartThread() {
  const bool isEmulated = ChildCommand("").size() > 2;
  if (!isEmulated) return true;
  static const bool canStart = RunChild("StartThreadInForkedChild").m_ExitCode == 0;
  return canStart;
}

#define KELVIK_SKIP_WITHOUT_THREADS_IN_FORKED_CHILDREN() \
  if (!CanForkedChildStartThread())                      \
  GTEST_SKIP() << "the emulator cannot start a thread in a forked child"

}  // namespace Kelvik

#endif  // KELVIK_FORKTOOLS_H_
