// A run is known by its number (m_Generation). A worker notes the number when it begins and leaves
// its loop as soon as the number has moved on or the running flag is clear, so that ending a run
// and beginning the next one from inside RunTask leaves two workers that never mix.
//
// A handle belongs to whoever takes it out of m_Handle: another thread joins it, the worker itself
// detaches it and counts itself in m_Leaving, which the next Destroy() from outside waits for.

#include "Thread.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

#include "Kelvik.h"
#include "NoCancel.h"
#include "Relaxed.h"
#include "SelfReport.h"

namespace Kelvik {

// What a worker knows about itself; lives on its stack for as long as it may touch the CThread. The
// destructor also runs when a callback ends the worker with pthread_exit().
class CWorker {
 public:
  explicit CWorker(CThread* thread);
  CWorker(const CWorker&) = delete;
  CWorker& operator=(const CWorker&) = delete;
  ~CWorker();

  // The calling thread as a worker of the given object, or null.
  static CWorker* Current(const CThread* thread);

  CThread* const m_Thread;
  uint32_t m_Generation = 0;  // the run it serves
  bool m_Detached = false;    // counted in m_Leaving; written and read by the worker alone
};

namespace {

thread_local CWorker* t_Worker = nullptr;

bool IsThread(pthread_t handle) {
  return pthread_equal(handle, pthread_t{}) == 0;
}

// Locks a statically initialised mutex for a scope.
class CLock {
 public:
  explicit CLock(pthread_mutex_t* mutex) : m_Mutex(mutex) { pthread_mutex_lock(m_Mutex); }
  CLock(const CLock&) = delete;
  CLock& operator=(const CLock&) = delete;
  ~CLock() { pthread_mutex_unlock(m_Mutex); }

 private:
  pthread_mutex_t* const m_Mutex;
};

// As pthread_create with default attributes, the new thread blocking all signals but those that a
// fault of its own raises. *error: errno as pthread_create left it.
int StartBlocked(pthread_t* handle, void* (*routine)(void*), void* argument, int* error) {
  sigset_t blocked;
  sigset_t previous;
  sigfillset(&blocked);
  for (int synchronous : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS}) {
    sigdelset(&blocked, synchronous);
  }
  pthread_sigmask(SIG_SETMASK, &blocked, &previous);
  const int code = pthread_create(handle, nullptr, routine, argument);
  *error = errno;
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  return code;
}

void ReportCreateFailure(int code, int error) {
  ReportSystemError("Thread", "Create", 105, error);
  int line;
  const char* text;
  switch (code) {
    case EAGAIN:
      line = 109;
      text = "pthread_create failed with EAGAIN (thread num limit arrived)\n";
      break;
    case EINVAL:
      line = 112;
      text = "pthread_create failed with EINVAL (create thread with invalid parameters)\n";
      break;
    case ENOMEM:
      line = 115;
      text = "pthread_create failed with ENOMEM (no memeory to create thread)\n";
      break;
    default:
      ReportNumber("Thread", "Create", 118, "result", code);
      return;
  }
  ReportMessage("Thread", "Create", line, text);
}

}  // namespace

CWorker::CWorker(CThread* thread) : m_Thread(thread) {
  t_Worker = this;
}

CWorker::~CWorker() {
  t_Worker = nullptr;
  if (!m_Detached) return;
  CLock lock(&m_Thread->m_Lock);
  if (m_Thread->m_Leaving > 0) --m_Thread->m_Leaving;  // 0: forgotten after fork()
  pthread_cond_broadcast(&m_Thread->m_Gone);
}

CWorker* CWorker::Current(const CThread* thread) {
  return t_Worker != nullptr && t_Worker->m_Thread == thread ? t_Worker : nullptr;
}

CThread::CThread(const char* name)
    : m_Running(false),
      m_Execute(nullptr),
      m_Name(name),
      m_Handle(),
      m_Generation(0),
      m_Leaving(0),
      m_ProcessId(0),
      m_Lock(PTHREAD_MUTEX_INITIALIZER),
      m_Gone(PTHREAD_COND_INITIALIZER) {
  Initialize();
}

CThread::CThread(const CThread&) : CThread(nullptr) {}

// cppcheck-suppress operatorEqVarError ; nothing is taken from the other one
CThread& CThread::operator=(const CThread&) {
  return *this;
}

CThread::~CThread() {
  do {
    Destroy();
  } while (IsRunning());  // a worker that was on its way out may have begun another run
}

int CThread::Initialize() {
  return Destroy();
}

int CThread::Create(IExecute* execute) {
  int code = 0;
  int error = 0;
  const int result = Begin(execute, &code, &error);
  if (result == eResultExists) {
    ReportMessage("Thread", "Create", 87, "console already running");
  } else if (result != eResultSuccess) {
    ReportCreateFailure(code, error);
  }
  return result;
}

// Create() without its reports. *code: what pthread_create returned; *error: the errno it left.
int CThread::Begin(IExecute* execute, int* code, int* error) {
  ForgetParent();
  CLock lock(&m_Lock);
  // The loop: while a worker is joined, another thread may begin a run, and that may end as well.
  while (!RelaxedLoad(m_Running) && IsThread(m_Handle)) {
    Retire();
  }
  if (RelaxedLoad(m_Running)) return eResultExists;
  m_Execute = execute;
  RelaxedStore(m_Running, true);
  RelaxedStore(m_Generation, m_Generation + 1);
  RelaxedStore(m_ProcessId, getpid());
  pthread_t handle{};
  *code = StartBlocked(&handle, &CThread::Thread, this, error);
  if (*code == 0 && IsThread(handle)) {
    m_Handle = handle;
    return eResultSuccess;
  }
  Clear();
  return eResultUnavailable;
}

int CThread::Destroy() {
  ForgetParent();
  CLock lock(&m_Lock);
  RelaxedStore(m_Running, false);
  const uint32_t ended = m_Generation;
  Retire();
  // A worker that waited here for itself, or for one that waits for it, would wait for ever.
  while (m_Leaving > 0 && !IsCurrent()) {
    pthread_cond_wait(&m_Gone, &m_Lock);
  }
  if (m_Generation == ended) Clear();
  return eResultSuccess;
}

// Takes the handle, if there is one, and sees its worker off. Caller holds m_Lock, which is
// released while another thread's worker is joined.
void CThread::Retire() {
  const pthread_t handle = m_Handle;
  if (!IsThread(handle)) return;
  m_Handle = pthread_t{};
  if (pthread_equal(handle, pthread_self()) != 0) {
    CWorker* const worker = CWorker::Current(this);
    pthread_detach(handle);
    if (worker != nullptr) {
      worker->m_Detached = true;
      ++m_Leaving;
    }
    return;
  }
  const CNoCancel whole;  // a join that does not come to its end leaves the handle to nobody
  pthread_mutex_unlock(&m_Lock);
  pthread_join(handle, nullptr);
  pthread_mutex_lock(&m_Lock);
}

// Caller holds m_Lock; there is no handle to lose.
void CThread::Clear() {
  RelaxedStore(m_Running, false);
  m_Execute = nullptr;
  m_Name = nullptr;
  m_Handle = pthread_t{};
}

bool CThread::IsOfParent() const {
  const pid_t process = RelaxedLoad(m_ProcessId);
  return process != 0 && process != getpid();
}

// The first use in a child made by fork(): the lock may be held by a worker that lives in the
// parent alone, and no worker is to be joined.
void CThread::ForgetParent() {
  if (IsOfParent()) RenewLock();
}

void CThread::RenewLock() {
  pthread_mutex_init(&m_Lock, nullptr);
  pthread_cond_init(&m_Gone, nullptr);
  m_Leaving = 0;
  m_Handle = pthread_t{};
  RelaxedStore(m_ProcessId, 0);
}

void CThread::AfterForkInChild() {
  RenewLock();
  Clear();
}

void* CThread::Thread(void* argument) {
  auto* const thread = static_cast<CThread*>(argument);
  if (thread == nullptr) return nullptr;
  CWorker worker(thread);
  ThreadRun(thread);
  return nullptr;
}

int CThread::ThreadRun(CThread* thread) {
  if (thread == nullptr) return eResultFailure;
  uint32_t generation = 0;
  {
    CLock lock(&thread->m_Lock);
    CWorker* const worker = CWorker::Current(thread);
    // Its run was ended before it came here, and another run may have begun: not its own.
    if (worker != nullptr && pthread_equal(thread->m_Handle, pthread_self()) == 0) {
      return eResultSuccess;
    }
    if (thread->m_Execute == nullptr) return eResultFailure;
    generation = thread->m_Generation;
    if (worker != nullptr) worker->m_Generation = generation;
  }
  while (IExecute* const execute = thread->NextExecutor(generation)) {
    if (execute->RunTask() != 0) thread->EndRun(generation);
  }
  thread->EndRun(generation);
  return eResultSuccess;
}

// The executor of the given run, or null when that run has ended.
CThread::IExecute* CThread::NextExecutor(uint32_t generation) {
  CLock lock(&m_Lock);
  return RelaxedLoad(m_Running) && m_Generation == generation ? m_Execute : nullptr;
}

void CThread::EndRun(uint32_t generation) {
  CLock lock(&m_Lock);
  if (m_Generation == generation) RelaxedStore(m_Running, false);
}

pthread_t CThread::GetHandle() const {
  if (IsOfParent()) return pthread_t{};
  CLock lock(&m_Lock);
  return m_Handle;
}

bool CThread::IsRunning() const {
  return RelaxedLoad(m_Running);
}

bool CThread::IsCurrent() const {
  return CWorker::Current(this) != nullptr;
}

bool CThread::KeepsRunning() const {
  const CWorker* const worker = CWorker::Current(this);
  if (worker != nullptr && worker->m_Generation != RelaxedLoad(m_Generation)) return false;
  return RelaxedLoad(m_Running);
}

uint32_t CThread::Generation() const {
  return RelaxedLoad(m_Generation);
}

}  // namespace Kelvik
