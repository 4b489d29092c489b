// One worker loop on a thread of its own.
#ifndef KELVIK_THREAD_H_
#define KELVIK_THREAD_H_

#include <pthread.h>
#include <sys/types.h>

#include <cstdint>

#include "Export.h"

namespace Kelvik {

class CWorker;

// Runs IExecute::RunTask over and over on a worker thread, from Create() until RunTask asks to stop
// or Destroy() is called. Each Create() begins a run of its own, and a worker obeys its own run
// alone: one that was ended never takes part in the next run, even when the object runs again by
// the time it looks.
//
// Create and Destroy may be called from any thread, also from inside RunTask: a worker never joins
// itself. Workers block every signal but SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP and
// SIGSYS, so that the application's handlers run on its own threads.
//
// Results are eResult codes; nothing is thrown. Failures are reported through the library's log,
// with no lock of this class held.
class KELVIK_API CThread {
 public:
  // The work of a thread.
  class IExecute {
   public:
    // One step of the work, called on the worker thread without a pause in between: it must block
    // or pace itself. Returns 0 to be called again, anything else to end the run.
    virtual int RunTask() = 0;

   protected:
    ~IExecute() = default;  // not owned, so never deleted through this interface
  };

  // name: kept for no longer than the constructor runs, which clears every field.
  explicit CThread(const char* name);
  // A thread is never duplicated: the copy is idle, and an assignment changes nothing.
  CThread(const CThread& other);
  CThread& operator=(const CThread& other);
  // Ends as Destroy() does. Called on a worker of this object (exit() inside RunTask) it does not
  // wait for that worker, which must not return into the loop afterwards.
  ~CThread();

  // Clears running flag, executor, name and handle; a worker that still runs is ended first, as by
  // Destroy(). Returns eResultSuccess.
  int Initialize();

  // Starts a run. execute: not owned, outlives the run. A worker of an earlier run that ended by
  // itself is joined first. Returns eResultSuccess; eResultExists while a run goes on (reported);
  // eResultUnavailable when the system gives no thread (reported; the object is idle then).
  int Create(IExecute* execute);

  // Ends the run and returns once no worker is left but those that other threads' calls wait for at
  // this moment. It does not wake a worker that blocks inside RunTask: it waits until RunTask
  // returns. Called on a worker of this object it does not wait for that worker, which ends when
  // its RunTask returns; Create() may be called at once. In a child made by fork(), where no worker
  // exists, it only clears the fields. Returns eResultSuccess.
  int Destroy();

  // The start routine: argument is the CThread. Returns null.
  static void* Thread(void* argument);

  // The worker loop. Returns eResultFailure at once when thread or its executor is null, else
  // eResultSuccess when the run has ended.
  static int ThreadRun(CThread* thread);

  // The name: null at all times (see the constructor).
  const char* GetName() const { return m_Name; }

  // The worker's handle, pthread_t{} while there is none.
  pthread_t GetHandle() const;

  // Whether a run goes on: from a successful Create() until RunTask asked to stop or Destroy().
  bool IsRunning() const;

  // Whether the calling thread is a worker of this object, the current one or one that was ended
  // and has not returned yet.
  KELVIK_INTERNAL bool IsCurrent() const;

  // Whether the calling worker may go on. False once its own run has ended, even when another run
  // has begun; on a thread that is no worker of this object it is IsRunning(). A RunTask that loops
  // by itself asks this once a pass. Takes no lock.
  KELVIK_INTERNAL bool KeepsRunning() const;

  // The number of the latest run, counted by Create() and wrapping.
  KELVIK_INTERNAL uint32_t Generation() const;

  // In a child made by fork(), where no worker exists: idle, with its lock made anew. For the
  // child's only thread.
  KELVIK_INTERNAL void AfterForkInChild();

 private:
  friend class CWorker;

  KELVIK_INTERNAL int Begin(IExecute* execute, int* code, int* error);
  KELVIK_INTERNAL bool IsOfParent() const;
  KELVIK_INTERNAL void ForgetParent();
  KELVIK_INTERNAL void RenewLock();
  KELVIK_INTERNAL void Retire();
  KELVIK_INTERNAL void Clear();
  KELVIK_INTERNAL IExecute* NextExecutor(uint32_t generation);
  KELVIK_INTERNAL void EndRun(uint32_t generation);

  bool m_Running;       // written under m_Lock, read without it as well
  IExecute* m_Execute;  // not owned; guarded by m_Lock
  const char* m_Name;
  pthread_t m_Handle;     // to be joined by whoever takes it; guarded by m_Lock
  uint32_t m_Generation;  // counts the runs; written under m_Lock, read without it as well
  uint32_t m_Leaving;     // workers that ended themselves and have not returned; guarded by m_Lock
  pid_t m_ProcessId;  // of the latest run, 0: none; written under m_Lock, read without it as well
  // Never held while joining, reporting or calling the executor. Initialised statically and thus
  // never destroyed: a worker that calls exit() may pass here after the destructor.
  mutable pthread_mutex_t m_Lock;
  pthread_cond_t m_Gone;  // m_Leaving went down
};

}  // namespace Kelvik

#endif  // KELVIK_THREAD_H_
