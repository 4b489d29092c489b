#include "Display.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "Failure.h"
#include "SocketTable.h"
#include "Words.h"

namespace KelvikCtl {

namespace {

constexpr std::size_t kReadBytes = 4096;
constexpr std::size_t kReadingBytes = 1 << 20;

std::string Seconds(int ms) {
  char text[32];
  std::snprintf(text, sizeof(text), "%g s", ms / 1000.0);
  return text;
}

}  // namespace

eWait WaitForTerminal(CClient& client, const CTerminal& terminal, int stopFd, int64_t deadline) {
  for (;;) {
    // The socket is only watched for errors: a console sends nothing.
    pollfd waiting[] = {
        {terminal.Descriptor(), POLLIN, 0}, {stopFd, POLLIN, 0}, {client.Descriptor(), 0, 0}};
    const int ready = poll(waiting, 3, LeftMs(deadline));
    if (ready == -1 && errno != EINTR) return eWait::kTimeOut;
    if (ready <= 0) {
      if (NowMs() >= deadline) return eWait::kTimeOut;
      continue;
    }
    if (waiting[1].revents != 0) return eWait::kStopped;
    if (waiting[0].revents != 0) return eWait::kTerminal;
    client.CheckHeard();
  }
}

void FailWithoutAnswer(CClient& client, const CTerminal& terminal, int timeOutMs) {
  const auto socket = FindBoundSocket(client.Host(), client.Port());
  client.Probe();  // a process that has ended meanwhile has taken its queue with it
  std::string reason = "no answer from " + client.Name() + " in " + Seconds(timeOutMs);
  const uid_t user = geteuid();
  if (socket && socket->m_WaitingBytes != 0) {
    reason += ": it does not read its commands now (stopped, or busy in a callback)";
  } else if (socket && socket->m_User != user && socket->m_User != 0) {
    const std::string owner = UserName(socket->m_User);
    reason += ": the process belongs to " + owner + " and cannot open the pseudo-terminal " +
              terminal.Path() + " of " + UserName(user) + "; run kelvikctl as " + owner;
  } else {
    reason += ": it has read its commands, but did not open the pseudo-terminal " +
              terminal.Path() + " or print there (not allowed to, or no console of Kelvik)";
  }
  throw CFailure(kExitNoAnswer, reason);
}

bool CDisplay::Show(const std::string& module, const std::string& title, const Sink& sink,
                    int64_t latest) {
  CTerminal terminal;
  bool hasBegun = false;
  m_Client.Send(JoinWords({"-show", terminal.Path(), module, title}));
  for (;;) {
    char bytes[kReadBytes];
    std::size_t size = 0;
    const int64_t deadline = std::min(latest, NowMs() + m_TimeOutMs);
    const eWait wait = NowMs() >= latest ? eWait::kTimeOut
                                         : WaitForTerminal(m_Client, terminal, m_StopFd, deadline);
    switch (wait) {
      case eWait::kStopped:
        return false;
      case eWait::kTimeOut:
        if (hasBegun) {
          throw CFailure(kExitNoAnswer, "the display did not come to its end in time");
        }
        FailWithoutAnswer(m_Client, terminal, m_TimeOutMs);
      case eWait::kTerminal:
        break;
    }
    switch (terminal.Read(bytes, sizeof(bytes), size)) {
      case CTerminal::eRead::kBytes:
        hasBegun = true;
        if (!sink(bytes, size)) return false;
        break;
      case CTerminal::eRead::kNothingYet:
        break;
      case CTerminal::eRead::kClosed:
        return true;
    }
  }
}

std::string CDisplay::Read(const std::string& module, const std::string& title) {
  std::string text;
  const Sink append = [&text](const char* bytes, std::size_t size) {
    text.append(bytes, std::min(size, kReadingBytes - text.size()));
    return text.size() < kReadingBytes;
  };
  Show(module, title, append, NowMs() + m_TimeOutMs);
  return text;
}

}  // namespace KelvikCtl
