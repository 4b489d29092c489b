#include "Attach.h"

#include <signal.h>

#include <algorithm>

#include "Clock.h"
#include "Failure.h"
#include "StandardOutput.h"
#include "StopSignal.h"
#include "Terminal.h"

namespace KelvikCtl {

namespace {

constexpr std::size_t kReadBytes = 4096;
constexpr int kLastWaitMs = 200;  // for a reader that takes nothing, once the output goes back

enum class eEnd {
  kStopped,    // by a signal, the clock, or a standard output that takes no more
  kClosed,     // by the process: its output goes elsewhere, or it has ended
  kNoTerminal  // the process did not open it in time
};

// One stretch of attached output.
class CAttachment {
 public:
  CAttachment(CProcess& process, const CStopSignal& stop)
      : m_Process(process), m_Client(process.Client()), m_Stop(stop) {}

  eEnd Run(int64_t deadline) {
    m_Client.Send(JoinWords({"-tty", m_Terminal.Path()}));
    // The process names the device on it at once.
    const int64_t opened = NowMs() + m_Process.TimeOutMs();
    const eWait first =
        WaitForTerminal(m_Client, m_Terminal, m_Stop.Descriptor(), std::min(opened, deadline));
    if (first == eWait::kTimeOut && NowMs() < deadline) return eEnd::kNoTerminal;
    // Where much is printed the terminal always has something to say.
    while (NowMs() < deadline && WaitForTerminal(m_Client, m_Terminal, m_Stop.Descriptor(),
                                                 deadline) == eWait::kTerminal) {
      if (!Relay(m_Stop.Descriptor(), LeftMs(deadline))) {
        return m_IsClosed ? eEnd::kClosed : eEnd::kStopped;
      }
    }
    return eEnd::kStopped;
  }

  // Sends the output back and prints what still comes.
  void GoBack() {
    m_Client.Send("-console");
    const int64_t end = NowMs() + m_Process.TimeOutMs();
    while (!m_IsClosed) {
      if (NowMs() >= end || WaitForTerminal(m_Client, m_Terminal, -1, end) != eWait::kTerminal) {
        FailToGoBack();
      }
      Relay(-1, kLastWaitMs);
    }
  }

  const CTerminal& Terminal() const { return m_Terminal; }

 private:
  // Prints what has come. False when nothing more is to be relayed.
  bool Relay(int stopFd, int waitMs) {
    char bytes[kReadBytes];
    std::size_t size = 0;
    switch (m_Terminal.Read(bytes, sizeof(bytes), size)) {
      case CTerminal::eRead::kNothingYet:
        return true;
      case CTerminal::eRead::kClosed:
        m_IsClosed = true;
        return false;
      case CTerminal::eRead::kBytes:
        break;
    }
    if (m_IsLost) return false;
    const eWrite result = WriteOut(bytes, size, stopFd, waitMs);
    // Where nobody reads any more, what the process prints is taken and dropped: it must not wait.
    m_IsLost = result == eWrite::kFailed || (result == eWrite::kStopped && stopFd == -1);
    return !m_IsLost;
  }

  // The terminal is still open. A process that answers has read the command.
  [[noreturn]] void FailToGoBack() {
    m_Process.Status();
    throw CFailure(kExitRefused,
                   "the process cannot open its console: its terminal output is lost until "
                   "'kelvikctl tty PATH' sends it somewhere");
  }

  CProcess& m_Process;
  CClient& m_Client;
  const CStopSignal& m_Stop;
  CTerminal m_Terminal;
  bool m_IsClosed = false;
  bool m_IsLost = false;
};

// The process has closed the terminal without being asked.
[[noreturn]] void FailClosed(CProcess& process) {
  process.Client().Probe();
  throw CFailure(kExitRefused, "somebody else has sent the terminal output elsewhere");
}

}  // namespace

void Attach(CProcess& process, const tagOptions& options) {
  CStopSignal stop(true);
  const int64_t deadline = options.m_ForMs ? NowMs() + *options.m_ForMs : kNever;
  int signal = SIGTSTP;
  while (signal == SIGTSTP && NowMs() < deadline) {
    CAttachment attachment(process, stop);
    switch (attachment.Run(deadline)) {
      case eEnd::kNoTerminal:
        FailWithoutAnswer(process.Client(), attachment.Terminal(), process.TimeOutMs());
      case eEnd::kClosed:
        FailClosed(process);
      case eEnd::kStopped:
        attachment.GoBack();
        break;
    }
    signal = stop.Take();
    if (signal == SIGTSTP) stop.StopNow();
  }
}

}  // namespace KelvikCtl
