// The command datagram server.
//
// Create and Destroy change the members in turns (m_Change), so that a socket and its worker always
// belong together. The turn is no lock: it is kept while Destroy waits for the worker, whose
// callback may call Create or Destroy itself. Such a call does not wait for the turn, since the
// turn waits for it; the console is then ending anyway.

#include "Console.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ConsoleSender.h"
#include "Datagram.h"
#include "FileIo.h"
#include "Global.h"
#include "Kelvik.h"
#include "KelvikExtra.h"
#include "NoCancel.h"
#include "Relaxed.h"
#include "SelfReport.h"

namespace Kelvik {
namespace {

constexpr char kDefaultAddress[] = "127.0.0.1";
constexpr uint16_t kDefaultPort = 8799;
constexpr int kWaitMs = 1000;
constexpr unsigned kPauseMs = 10;  // after each pass; limits the rate of commands

constexpr int kRunningLine = 41;
constexpr int kSocketLine = 62;
constexpr int kOptionLine = 72;
constexpr int kBindLine = 88;

// What of a descriptor's state calls for a receive: data, and whatever a receive would report.
constexpr short kReceiveEvents = POLLIN | POLLPRI | POLLERR | POLLHUP | POLLNVAL;

int Bind(int socket, const char* address, uint16_t port) {
  sockaddr_in local = {};
  local.sin_family = AF_INET;
  local.sin_port = htons(port);
  // inet_addr's result for a text that is no address is the broadcast address, which can be bound.
  if (inet_aton(address, &local.sin_addr) == 0) {
    errno = EADDRNOTAVAIL;
    return -1;
  }
  return bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof(local));
}

// Waits until the socket has something, at most a second. A wake-up ends the wait as well.
bool WaitForDatagram(int socket, int wakeFd) {
  pollfd fds[] = {{socket, POLLIN | POLLPRI, 0}, {wakeFd, POLLIN, 0}};
  static_cast<void>(poll(fds, wakeFd == -1 ? 1 : 2, kWaitMs));
  return (fds[0].revents & kReceiveEvents) != 0;
}

// One received datagram; zeros follow it.
struct tagReceived {
  uint8_t m_Field[kDatagramBytes + 1];  // terminates the longest text too
  int m_Size;                           // as the receive call returned it
  sockaddr_in m_Sender;
};

// Never waits: another process that has the same socket may have taken what was there.
void Receive(int socket, tagReceived& received) {
  socklen_t room = sizeof(received.m_Sender);
  const ssize_t size = recvfrom(socket, received.m_Field, kDatagramBytes, MSG_DONTWAIT,
                                reinterpret_cast<sockaddr*>(&received.m_Sender), &room);
  const bool isNothing = size == -1 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
  received.m_Size = isNothing ? 0 : static_cast<int>(size);
}

// Reports a framing error on standard output; true when the datagram is a command.
bool IsCommand(const tagReceived& received, int& length) {
  const tagDatagramCheck check = CheckDatagram(received.m_Field, received.m_Size);
  length = check.m_Length;
  switch (check.m_Kind) {
    case eDatagram::kNothing:
      break;
    case eDatagram::kTooShort:
      std::printf("[%s] [%s] receive length:%d is error.\n", "Kelvik", "Internal", received.m_Size);
      break;
    case eDatagram::kBadMagic:
      std::printf("[%s] [%s] receive command magic:%x is error.\n", "Kelvik", "Internal",
                  static_cast<unsigned>(check.m_Magic));
      break;
    case eDatagram::kBadLength:
      std::printf("[%s] [%s] receive:%d command length:%d is error.\n", "Kelvik", "Internal",
                  received.m_Size, length);
      break;
    case eDatagram::kCommand:
      return true;
  }
  return false;
}

bool IsDenied(unsigned restrictions, int socket, const tagReceived& received) {
  return (restrictions & eRestrictSenders) != 0 && received.m_Size > 0 &&
         !IsTrustedSender(socket, received.m_Sender);
}

}  // namespace

CConsole::CConsole()
    : m_Running(false),
      m_Socket(-1),
      m_Worker("Kelvik::CConsole"),
      m_Accepted(0),
      m_Refused(0),
      m_DeniedDatagrams(0),
      m_DeniedCommands(0),
      m_Restrictions(0),
      m_WakeFd(-1),
      m_ProcessId(0),
      m_Change(eChange::kNone),
      m_ChangeProcess(0),
      m_Lock(PTHREAD_MUTEX_INITIALIZER),
      m_Changed(PTHREAD_COND_INITIALIZER) {
  Initialize();
}

CConsole::~CConsole() {
  Destroy();
}

int CConsole::Initialize() {
  return Destroy();
}

// Waits for the calling thread's turn. False on a worker that the thread whose turn it is waits
// for.
bool CConsole::BeginChange(eChange change) {
  bool isMine = true;
  pthread_mutex_lock(&m_Lock);
  // A turn taken before fork() has nobody to end it in the child.
  while (isMine && m_Change != eChange::kNone && m_ChangeProcess == getpid()) {
    isMine = m_Change != eChange::kEnding || !m_Worker.IsCurrent();
    if (isMine) pthread_cond_wait(&m_Changed, &m_Lock);
  }
  if (isMine) {
    m_Change = change;
    m_ChangeProcess = getpid();
  }
  pthread_mutex_unlock(&m_Lock);
  return isMine;
}

void CConsole::EndChange() {
  pthread_mutex_lock(&m_Lock);
  m_Change = eChange::kNone;
  pthread_cond_broadcast(&m_Changed);
  pthread_mutex_unlock(&m_Lock);
}

int CConsole::Create(const char* address, unsigned short port) {
  const CNoCancel whole;
  const bool isMine = BeginChange(eChange::kCreating);
  if (!isMine || RelaxedLoad(m_Running)) {
    if (isMine) EndChange();
    ReportMessage("Console", "Create", kRunningLine, "console already running");
    return eResultExists;
  }
  RelaxedStore(m_Running, true);
  m_ProcessId = getpid();
  int line = 0;
  int error = 0;
  const int socket = OpenSocket(address == nullptr ? kDefaultAddress : address,
                                port == 0 ? kDefaultPort : port, &line, &error);
  int result = eResultUnavailable;
  if (line == 0) {
    RelaxedStore(m_Socket, socket);
    // Without it the worker's time-out ends the wait.
    m_WakeFd = LiftDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    result = m_Worker.Create(this);
  }
  if (result != eResultSuccess) Close();
  EndChange();
  if (line != 0) ReportSocketError("Console", "Create", line, socket, error);
  return result;
}

// Returns the bound socket. On a failure *line and *error say which, and the result is the number
// that the socket had, closed already.
int CConsole::OpenSocket(const char* address, unsigned short port, int* line, int* error) {
  errno = 0;
  int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
  const int on = 1;
  // Descriptor 0 is refused: a process without standard input is no place for a console.
  if (socket <= 0 || (socket = LiftDescriptor(socket)) == -1) {
    *line = kSocketLine;
  } else if (setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == -1) {
    *line = kOptionLine;
  } else if (Bind(socket, address, port) == -1) {
    *line = kBindLine;
  } else {
    return socket;
  }
  *error = errno;
  if (socket != -1) close(socket);
  return socket;
}

int CConsole::RunTask() {
  // Its own run's: when that run ends in a callback, the members may belong to another one.
  const int socket = RelaxedLoad(m_Socket);
  const int wakeFd = m_WakeFd;
  const auto isOn = [this] { return RelaxedLoad(m_Running) && m_Worker.KeepsRunning(); };
  while (isOn()) {
    tagReceived received = {};
    if (WaitForDatagram(socket, wakeFd)) Receive(socket, received);
    int length = 0;
    // What a stranger sends is not even printed: he could fill what collects the output.
    if (IsDenied(RelaxedLoad(m_Restrictions), socket, received)) {
      RelaxedAdd(m_DeniedDatagrams, 1);
    } else if (IsCommand(received, length)) {
      RelaxedAdd(m_Accepted, 1);
      // Dispose() looks at no address, so none is made into a text.
      Dispose(nullptr, received.m_Sender.sin_port,
              reinterpret_cast<char*>(received.m_Field) + kDatagramHeadBytes, length);
    } else if (received.m_Size != 0) {
      RelaxedAdd(m_Refused, 1);
    }
    if (isOn()) CGlobal::Instance()->Sleep(kPauseMs);
  }
  return eResultFailure;
}

int CConsole::Destroy() {
  const CNoCancel whole;
  if (!BeginChange(eChange::kEnding)) return eResultSuccess;
  RelaxedStore(m_Running, false);
  WakeWorker();
  m_Worker.Destroy();
  Close();
  EndChange();
  return eResultSuccess;
}

void CConsole::WakeWorker() {
  if (m_WakeFd == -1 || m_ProcessId != getpid()) return;
  const uint64_t one = 1;
  static_cast<void>(write(m_WakeFd, &one, sizeof(one)) == sizeof(one));
}

// Back to the start values. Caller's turn; no worker uses the descriptors.
void CConsole::Close() {
  RelaxedStore(m_Running, false);
  const int socket = m_Socket;
  RelaxedStore(m_Socket, -1);
  if (socket != -1) {
    // After fork() the socket is the parent's as well, and its shutdown would end both.
    if (m_ProcessId == getpid()) shutdown(socket, SHUT_RDWR);
    close(socket);
  }
  CloseDescriptor(m_WakeFd);
}

void CConsole::GetCounters(uint64_t& accepted, uint64_t& refused) const {
  accepted = RelaxedLoad(m_Accepted);
  refused = RelaxedLoad(m_Refused);
}

int CConsole::Restrict(unsigned flags) {
  constexpr unsigned kKnown = eRestrictTerminals | eRestrictLogPath | eRestrictSenders;
  if ((flags & ~kKnown) != 0) return eResultInvalid;
  RelaxedStore(m_Restrictions, flags);
  return eResultSuccess;
}

void CConsole::GetDenied(uint64_t& datagrams, uint64_t& commands) const {
  datagrams = RelaxedLoad(m_DeniedDatagrams);
  commands = RelaxedLoad(m_DeniedCommands);
}

void CConsole::AfterForkInChild() {
  pthread_mutex_init(&m_Lock, nullptr);
  pthread_cond_init(&m_Changed, nullptr);
  m_Change = eChange::kNone;
  m_Worker.AfterForkInChild();
  Close();
  m_Accepted = 0;
  m_Refused = 0;
  m_DeniedDatagrams = 0;
  m_DeniedCommands = 0;
}

}  // namespace Kelvik
