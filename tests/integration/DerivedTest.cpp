// A program's own classes on top of the library's, with libkelvik.so's run-time type data.

#include <gtest/gtest.h>

#include <typeinfo>

#include "Guard.h"
#include "Mutex.h"
#include "Output.h"
#include "Signal.h"
#include "Thread.h"

namespace Kelvik {
namespace {

class CNamedMutex : public CMutex {};

class CNamedSignal : public CSignal {};

class CNamedGuard : public CGuard {
 public:
  using CGuard::CGuard;
};

class CPolymorphicTask : public CThread::IExecute {
 public:
  explicit CPolymorphicTask(CSignal* done) : m_Done(done) {}
  virtual ~CPolymorphicTask() = default;
  int RunTask() override {
    m_Done->signal();
    return 1;
  }

 private:
  CSignal* m_Done;
};

TEST(Derived, MutexIsCastBothWays) {
  CNamedMutex own;
  CMutex plain;
  CMutex* mutex = &own;
  EXPECT_EQ(&own, dynamic_cast<CNamedMutex*>(mutex));
  mutex = &plain;
  EXPECT_EQ(nullptr, dynamic_cast<CNamedMutex*>(mutex));
  EXPECT_EQ(typeid(CMutex), typeid(*mutex));
  EXPECT_STREQ("N6Kelvik6CMutexE", typeid(*mutex).name());
}

TEST(Derived, SignalIsCastBothWays) {
  CNamedSignal own;
  CSignal plain;
  CSignal* signal = &own;
  EXPECT_EQ(&own, dynamic_cast<CNamedSignal*>(signal));
  signal = &plain;
  EXPECT_EQ(nullptr, dynamic_cast<CNamedSignal*>(signal));
  EXPECT_EQ(typeid(CSignal), typeid(*signal));
}

TEST(Derived, GuardIsCast) {
  CMutex mutex;
  ASSERT_EQ(0, mutex.create());
  {
    CNamedGuard own(&mutex);
    CGuard* guard = &own;
    EXPECT_EQ(&own, dynamic_cast<CNamedGuard*>(guard));
  }
  EXPECT_EQ(0, mutex.trylock());
  EXPECT_EQ(0, mutex.unlock());
  EXPECT_EQ(0, mutex.destroy());
}

TEST(Derived, TaskRunsAndIsCast) {
  CNamedSignal done;
  ASSERT_EQ(0, done.create());
  CPolymorphicTask task(&done);
  CThread::IExecute* execute = &task;
  EXPECT_EQ(&task, dynamic_cast<CPolymorphicTask*>(execute));
  CThread thread("task");
  ASSERT_EQ(0, thread.Create(execute));
  EXPECT_EQ(0, done.wait(10000));
  EXPECT_EQ(0, thread.Destroy());
  EXPECT_EQ(0, done.destroy());
}

// The engine's type data is the library's own.
TEST(Derived, EngineIsATask) {
  COutput output;
  CThread::IExecute* execute = &output;
  EXPECT_EQ(&output, dynamic_cast<COutput*>(execute));
  CNamedSignal done;
  CPolymorphicTask task(&done);
  execute = &task;
  EXPECT_EQ(nullptr, dynamic_cast<COutput*>(execute));
}

// What is thrown in a program and caught there by its base.
TEST(Derived, IsCaughtByItsBase) {
  const auto thrower = [] { throw CNamedMutex(); };
  EXPECT_THROW(thrower(), CMutex);
}

}  // namespace
}  // namespace Kelvik
