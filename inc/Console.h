// The network console: a UDP command server for the operator of the running process.
#ifndef KELVIK_CONSOLE_H_
#define KELVIK_CONSOLE_H_

#include <pthread.h>
#include <sys/types.h>

#include <cstdint>

#include "Export.h"
#include "Thread.h"

namespace Kelvik {

// Receives command datagrams on a socket of its own and obeys them one at a time, in the order of
// their arrival, on its worker thread. Never answers.
//
// Create, Destroy and Initialize may be called from any thread, also from a callback that a command
// runs; they take turns. A worker obeys its own run alone: one that was ended in a callback never
// touches the socket or the state of a run that began since. Results are eResult codes; nothing is
// thrown.
class KELVIK_API CConsole : public CThread::IExecute {
 public:
  CConsole();
  ~CConsole();
  CConsole(const CConsole&) = delete;
  CConsole& operator=(const CConsole&) = delete;

  // Sets the members to their start values; a console that runs is ended first. Returns
  // eResultSuccess.
  int Initialize();

  // Binds address (dotted decimal as inet_addr takes it; null: "127.0.0.1") and port (0: 8799) and
  // starts the worker. Returns eResultSuccess; eResultExists when the console runs already, which
  // it also does for a worker that another thread is just ending; eResultUnavailable when the
  // socket or the thread cannot be made. Every refusal is reported, and leaves nothing open.
  int Create(const char* address, unsigned short port);

  // The worker's body: receives and obeys datagrams until its run is over. Returns eResultFailure,
  // which ends the worker.
  int RunTask() override;

  // Ends the worker and closes the socket. Waits for the worker, so at most a second, or as long as
  // a callback runs; called on the worker itself it returns at once, and the worker ends when the
  // datagram in hand is done. In a child made by fork() only the child's copies are closed.
  // Returns eResultSuccess, also when there is nothing to end.
  int Destroy();

  // Obeys the commands of a terminated text, which is cut into words in place; length is only
  // printed. address and port name the sender and are not used. What throws ends the text. Returns
  // eResultSuccess.
  int Dispose(const char* address, unsigned short port, char* text, int length);

  bool m_Running;  // from Create to Destroy; one thread writes it at a time, any reads it
  int m_Socket;    // -1: none; as m_Running
  // Runs RunTask from Create to Destroy.
  CThread m_Worker;

  // Datagrams that were obeyed and that were not, since the process (or the forked child) began;
  // modulo the width of a pointer.
  KELVIK_INTERNAL void GetCounters(uint64_t& accepted, uint64_t& refused) const;

  // From now on only what the flags (eConsoleRestriction) leave is obeyed; also by later runs, and
  // in a child made by fork(). Returns eResultSuccess, or eResultInvalid, changing nothing, for
  // flags that it does not know.
  KELVIK_INTERNAL int Restrict(unsigned flags);

  // Datagrams and commands that were not obeyed because of Restrict; counted as GetCounters counts.
  KELVIK_INTERNAL void GetDenied(uint64_t& datagrams, uint64_t& commands) const;

  // In a child made by fork(): closed, whatever the parent was doing with it; Create works again.
  // The parent's console stays open. For the child's only thread.
  KELVIK_INTERNAL void AfterForkInChild();

 private:
  enum class eChange { kNone, kCreating, kEnding };

  KELVIK_INTERNAL bool BeginChange(eChange change);
  KELVIK_INTERNAL void EndChange();
  KELVIK_INTERNAL int OpenSocket(const char* address, unsigned short port, int* line, int* error);
  KELVIK_INTERNAL void Close();
  KELVIK_INTERNAL void WakeWorker();
  KELVIK_INTERNAL void ObeyAll(char* text);

  // Additions behind the members above.
  uintptr_t m_Accepted;         // datagrams obeyed
  uintptr_t m_Refused;          // datagrams with wrong framing
  uintptr_t m_DeniedDatagrams;  // datagrams of other users
  uintptr_t m_DeniedCommands;
  uint32_t m_Restrictions;  // eConsoleRestriction
  int m_WakeFd;             // eventfd that ends the worker's wait; -1: none, the time-out does
  pid_t m_ProcessId;        // the process that made the socket
  eChange m_Change;         // what a thread is about to do to the members above; m_Lock
  pid_t m_ChangeProcess;    // the process of that thread; m_Lock
  // Never held while waiting for a worker, reporting or running a callback. Initialised statically
  // and thus never destroyed: a worker that calls exit() may pass here after the destructor.
  pthread_mutex_t m_Lock;
  pthread_cond_t m_Changed;  // m_Change became kNone
};

}  // namespace Kelvik

#endif  // KELVIK_CONSOLE_H_
