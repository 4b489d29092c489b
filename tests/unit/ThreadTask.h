// What the tests of CThread run on their workers.

#ifndef KELVIK_THREADTASK_H_
#define KELVIK_THREADTASK_H_

#include <pthread.h>

#include <atomic>
#include <functional>
#include <utility>

#include "RealClock.h"
#include "Thread.h"

namespace Kelvik {

constexpr int kLimitMs = 10000;
constexpr int kPauseMs = 20;  // shows that something does not happen

inline bool IsNone(pthread_t handle) {
  return pthread_equal(handle, pthread_t{}) != 0;
}

// An executor that calls a function and counts the calls.
class CTask : public CThread::IExecute {
 public:
  explicit CTask(std::function<int()> body) : m_Body(std::move(body)) {}
  int RunTask() override {
    ++m_Calls;
    return m_Body();
  }
  bool WaitForCalls(int calls) {
    return WaitUntil([&] { return m_Calls >= calls; }, kLimitMs);
  }

  std::atomic<int> m_Calls{0};

 private:
  std::function<int()> m_Body;
};

inline int Pace() {
  PauseMs(1);
  return 0;
}

}  // namespace Kelvik

#endif  // KELVIK_THREADTASK_H_
