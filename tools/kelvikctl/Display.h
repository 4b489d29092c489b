// Asks a process for one of its displays and takes what it prints.

#ifndef KELVIK_KELVIKCTL_DISPLAY_H_
#define KELVIK_KELVIKCTL_DISPLAY_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "Client.h"
#include "Clock.h"
#include "Terminal.h"

namespace KelvikCtl {

enum class eWait { kTerminal, kStopped, kTimeOut };

// Waits until the terminal or stopFd (-1: none) has something to say. Throws when nobody listens.
eWait WaitForTerminal(CClient& client, const CTerminal& terminal, int stopFd, int64_t deadline);

// What an operator needs to know when the process does not open the terminal in time: throws
// kExitNoAnswer with the reason, as far as the system tells it.
[[noreturn]] void FailWithoutAnswer(CClient& client, const CTerminal& terminal, int timeOutMs);

// Datagrams are handled in order, so an answer also proves that everything sent before was read.
class CDisplay {
 public:
  // timeOutMs: from one sign of the process to the next.
  CDisplay(CClient& client, int timeOutMs, int stopFd = -1)
      : m_Client(client), m_TimeOutMs(timeOutMs), m_StopFd(stopFd) {}

  // Takes the next bytes; false: enough.
  using Sink = std::function<bool(const char* bytes, std::size_t size)>;

  // Hands on what the process prints, as it comes, until it has closed the terminal. A display that
  // is not registered prints nothing. Returns false when the sink or stopFd ended it. Throws
  // CFailure when no answer comes, when it stops in the middle, and when it goes on until latest.
  bool Show(const std::string& module, const std::string& title, const Sink& sink,
            int64_t latest = kNever);

  // The whole display; it has a megabyte and one time-out to end in.
  std::string Read(const std::string& module, const std::string& title);

 private:
  CClient& m_Client;
  const int m_TimeOutMs;
  const int m_StopFd;
};

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_DISPLAY_H_
