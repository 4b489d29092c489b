// Records with a name and a number, and the proof that none of them is missing, doubled, torn or
// out of its order.

#ifndef KELVIK_LOSSTOOLS_H_
#define KELVIK_LOSSTOOLS_H_

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "KelvikExtra.h"
#include "OutputTools.h"
#include "Rounds.h"
#include "Sanitizers.h"

// First line of a test that forks while threads run, which the thread sanitizer cannot follow.
#if KELVIK_TEST_THREAD_SANITIZER
#define KELVIK_SKIP_UNDER_THREAD_SANITIZER() \
  GTEST_SKIP() << "the thread sanitizer cannot fork a process that has threads"
#else
#define KELVIK_SKIP_UNDER_THREAD_SANITIZER() static_cast<void>(0)
#endif

// First line of a test that forks while other threads use the heap. The locks of the address
// sanitizer's allocator stay as they were in the child, which then hangs in its first malloc.
#if KELVIK_TEST_ADDRESS_SANITIZER
#define KELVIK_SKIP_UNDER_ADDRESS_SANITIZER() \
  GTEST_SKIP() << "a child of fork cannot use the address sanitizer's heap when others did"
#else
#define KELVIK_SKIP_UNDER_ADDRESS_SANITIZER() static_cast<void>(0)
#endif

namespace Kelvik {

constexpr uint32_t kHugeFile = 1024 * 1024 * 1024;  // bytes: no rotation comes in between

// "name number fill": the fill is long enough for torn lines to show.
inline int LogNumber(const char* name, int number) {
  static const char kFill[] = "........................................";
  return KLog(eLogLevelInfo, nullptr, nullptr, "%s %d %s\n", name, number, kFill);
}

inline std::string NumberLine(const std::string& name, int number) {
  return name + " " + std::to_string(number) + " ........................................";
}

// How often each number of each name stands in the text, and whether a name's numbers rise.
struct tagFound {
  std::map<std::string, std::vector<int>> m_Numbers;
  std::string m_Problem;  // empty, or the first line that is torn, doubled or out of order
};

inline tagFound FindNumbers(const std::string& text) {
  tagFound found;
  const auto complain = [&](const std::string& what, const std::string& line) {
    if (found.m_Problem.empty()) found.m_Problem = what + ": '" + line.substr(0, 200) + "'";
  };
  if (!text.empty() && text.back() != '\n') complain("no line end", "");
  for (const std::string& line : Lines(text)) {
    char name[64] = {};
    int number = -1;
    if (std::sscanf(line.c_str(), "%63s %d", name, &number) != 2 ||
        line != NumberLine(name, number)) {
      complain("torn", line);
      continue;
    }
    std::vector<int>& numbers = found.m_Numbers[name];
    if (!numbers.empty() && number <= numbers.back()) complain("doubled or late", line);
    numbers.push_back(number);
  }
  return found;
}

// The text is nothing but the numbers 0 to count - 1 of each name.
inline testing::AssertionResult IsAllThere(const std::string& text,
                                           const std::map<std::string, int>& counts) {
  const tagFound found = FindNumbers(text);
  if (!found.m_Problem.empty()) return testing::AssertionFailure() << found.m_Problem;
  for (const auto& [name, numbers] : found.m_Numbers) {
    if (counts.count(name) == 0) return testing::AssertionFailure() << "unknown " << name;
  }
  for (const auto& [name, count] : counts) {
    const auto entry = found.m_Numbers.find(name);
    const std::size_t there = entry == found.m_Numbers.end() ? 0 : entry->second.size();
    if (there != static_cast<std::size_t>(count)) {
      return testing::AssertionFailure() << name << ": " << there << " of " << count << " records";
    }
  }
  return testing::AssertionSuccess();
}

inline tagKelvikStatistics Statistics() {
  tagKelvikStatistics statistics = {};
  EXPECT_EQ(0, KelvikExtra_GetStatistics(&statistics, sizeof(statistics)));
  return statistics;
}

// m_LogMaxCount, which has no alignment of its own.
inline uint32_t KeptFiles() {
  tagAttribute attribute = {};
  CGlobal::Instance()->CopyAttribute(attribute);
  return attribute.m_LogMaxCount;
}

// Threads that log numbers under their names "t0", "t1", ... until they are stopped, in bursts, so
// that the files stay of a size that can be looked through.
class CLoggers {
 public:
  explicit CLoggers(int threads) : m_Counts(static_cast<std::size_t>(threads)) {
    for (int i = 0; i < threads; ++i) {
      m_Threads.emplace_back([this, i] {
        const std::string name = "t" + std::to_string(i);
        int number = 0;
        while (!m_Stop.load(std::memory_order_relaxed)) {
          const int result = LogNumber(name.c_str(), number);
          if (result == eResultInvalid) continue;  // refused while the buffers are exchanged
          if (result != eResultSuccess) break;
          m_Counts[static_cast<std::size_t>(i)].store(++number, std::memory_order_relaxed);
          if (number % 64 == 0) PauseMs(1);
        }
      });
    }
  }
  CLoggers(const CLoggers&) = delete;
  CLoggers& operator=(const CLoggers&) = delete;
  ~CLoggers() { Stop(); }

  void Stop() {
    m_Stop = true;
    for (std::thread& thread : m_Threads)
      if (thread.joinable()) thread.join();
  }

  // For the end of a process that they outlive.
  void Detach() {
    for (std::thread& thread : m_Threads)
      thread.detach();
  }

  bool HaveAllBegun(int count = 1) const {
    for (const auto& each : m_Counts)
      if (each.load() < count) return false;
    return true;
  }

  // What each has logged, by name. After Stop.
  std::map<std::string, int> Counts() const {
    std::map<std::string, int> counts;
    for (std::size_t i = 0; i < m_Counts.size(); ++i)
      counts["t" + std::to_string(i)] = m_Counts[i].load();
    return counts;
  }

 private:
  std::atomic<bool> m_Stop{false};
  std::vector<std::atomic<int>> m_Counts;
  std::vector<std::thread> m_Threads;
};

// Waits for a child process of one's own. Returns its exit code, -signal, or -1000 when it had to
// be killed at the limit.
inline int WaitForProcess(pid_t pid, int limitMs) {
  int status = 0;
  if (!WaitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, limitMs)) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return -1000;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace Kelvik

#endif  // KELVIK_LOSSTOOLS_H_
