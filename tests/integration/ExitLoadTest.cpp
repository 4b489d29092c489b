// The end of the process, in all its forms and under load: in time, and with every record that a
// call had accepted before the end began.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "ConsoleClient.h"
#include "LossTools.h"

namespace Kelvik {
namespace {

constexpr int kThreads = 8;
constexpr int kEndMs = 2000;

// What the child tells its parent until its last moment.
struct tagShared {
  volatile int64_t m_EndBegan = 0;          // RealClockMs; read once the child is gone
  std::atomic<int> m_Accepted[kThreads]{};  // records of each thread
};

// A file's bytes as a tagShared.
tagShared* MapShared(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  void* memory = mmap(nullptr, sizeof(tagShared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (memory == MAP_FAILED) std::abort();
  return static_cast<tagShared*>(memory);
}

// Logs until the library refuses, which it does when it ends.
void LogUntilRefused(int index, tagShared* shared) {
  const std::string name = "t" + std::to_string(index);
  for (int number = 0; LogNumber(name.c_str(), number) == 0; ++number) {
    shared->m_Accepted[index] = number + 1;
    if (number % 64 == 63) PauseMs(1);
  }
}

bool HaveAllLogged(const tagShared* shared, int count) {
  for (const auto& accepted : shared->m_Accepted)
    if (accepted < count) return false;
  return true;
}

// args: log path, folder, way to end, policy, shared file.
CHILD_CASE(EndUnderLoad) {
  const std::string way = args.at(2);
  const bool write = args.at(3) == "write";
  tagShared* shared = MapShared(args.at(4));
  // Without the policy nothing may be replaced: the buffer is larger than what is logged.
  UseSize(args.at(0), write ? 1024 : 4 * 1024 * 1024, kHugeFile);
  if (way == "full config") SetConfigFilePath("/dev/full");
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, KelvikExtra_SetOverflow(write ? eOverflowWrite : eOverflowReplace));
  if (way == "console") NetworkConsoleCreate(nullptr, FindFreePort());
  const bool isQuiet = way == "full buffers";
  for (int i = 0; i < kThreads; ++i) {
    std::thread thread([=] {
      if (!isQuiet) return LogUntilRefused(i, shared);
      const std::string name = "t" + std::to_string(i);
      for (int number = 0; number < 100; ++number)
        if (LogNumber(name.c_str(), number) == 0) shared->m_Accepted[i] = number + 1;
    });
    thread.detach();
  }
  EXPECT_TRUE(WaitUntil([&] { return HaveAllLogged(shared, 100); }, 5000));
  shared->m_EndBegan = RealClockMs();
  if (way == "thread") {
    std::thread([] { std::exit(0); }).detach();
    for (;;)
      PauseMs(1000);
  }
  if (way == "exit") std::exit(0);
  return 0;
}

void EndAndCount(const std::string& way, const std::string& policy) {
  SCOPED_TRACE(way + ", " + policy);
  const CTempDir logs;
  const CTempDir work;
  ASSERT_TRUE(WriteFile(work.File("shared"), std::string(sizeof(tagShared), '\0')));
  tagShared* shared = MapShared(work.File("shared"));
  tagChildOptions options;
  options.m_LimitMs = 20000;
  // The thread sanitizer waits for a second of its own at the end of a process with threads.
  options.m_Environment = {{"TSAN_OPTIONS", "halt_on_error=1:atexit_sleep_ms=0"}};
  const tagChildResult result = RunChild(
      "EndUnderLoad", {logs.LogPath(), logs.Path(), way, policy, work.File("shared")}, options);
  ASSERT_TRUE(Succeeded(result));
  EXPECT_LT(RealClockMs() - shared->m_EndBegan, ScaledMs(kEndMs));

  const tagFound found = FindNumbers(AllText(logs.Path()));
  EXPECT_EQ("", found.m_Problem);
  for (int i = 0; i < kThreads; ++i) {
    // The numbers without a gap, and at least those that the thread knew to be accepted.
    const auto entry = found.m_Numbers.find("t" + std::to_string(i));
    ASSERT_NE(found.m_Numbers.end(), entry);
    const int there = static_cast<int>(entry->second.size());
    EXPECT_EQ(there - 1, entry->second.back());
    EXPECT_GE(there, shared->m_Accepted[i]);
  }
  munmap(shared, sizeof(tagShared));
}

void EndInRounds(const std::string& way) {
  for (int round = 0; round < Rounds() / 4 + 1; ++round) {
    for (const char* policy : {"replace", "write"}) {
      EndAndCount(way, policy);
      if (testing::Test::HasFailure()) return;
    }
  }
}

TEST(ExitLoad, MainReturnsWhileThreadsLog) {
  EndInRounds("return");
}

TEST(ExitLoad, ExitFromAnotherThread) {
  EndInRounds("thread");
}

TEST(ExitLoad, ExitInMainWhileThreadsLog) {
  EndInRounds("exit");
}

TEST(ExitLoad, BuffersThatAreFull) {
  EndInRounds("full buffers");
}

TEST(ExitLoad, ConsoleThatRuns) {
  EndInRounds("console");
}

TEST(ExitLoad, ConfigurationPathOnAFullDisk) {
  EndInRounds("full config");
}

CHILD_CASE(EndWithoutFolder) {
  tagShared* shared = MapShared(args.at(2));
  UseSize("/nonexistent/kelvik/", 4096, kHugeFile);
  EXPECT_EQ(0, Initialize());
  for (int i = 0; i < kThreads; ++i)
    std::thread([=] { LogUntilRefused(i, shared); }).detach();
  EXPECT_TRUE(WaitUntil([&] { return HaveAllLogged(shared, 100); }, 5000));
  shared->m_EndBegan = RealClockMs();
  return 0;
}

TEST(ExitLoad, FolderThatDoesNotExistDoesNotHoldTheEndUp) {
  const CTempDir work;
  ASSERT_TRUE(WriteFile(work.File("shared"), std::string(sizeof(tagShared), '\0')));
  tagShared* shared = MapShared(work.File("shared"));
  EXPECT_TRUE(RunCase("EndWithoutFolder", {work.File("shared")}, 20000));
  EXPECT_LT(RealClockMs() - shared->m_EndBegan, ScaledMs(kEndMs));
  munmap(shared, sizeof(tagShared));
}

}  // namespace
}  // namespace Kelvik
