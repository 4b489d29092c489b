#include "StopSignal.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace KelvikLog {

namespace {

int gWriteFd = -1;  // set before the handler is installed

void OnSignal(int /*number*/) {
  const int error = errno;
  // A full pipe is readable already.
  [[maybe_unused]] const ssize_t written = write(gWriteFd, "", 1);
  errno = error;
}

void Catch(int number) {
  struct sigaction action = {};
  if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
    return;
  }
  action = {};
  action.sa_handler = OnSignal;
  // Writes go on where they were; poll() ends in any case.
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigaction(number, &action, nullptr);
}

}  // namespace

bool CStopSignal::Install(std::string& problem) {
  int ends[2] = {};
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    problem = std::string("cannot make a pipe: ") + std::strerror(errno);
    return false;
  }
  m_ReadFd = ends[0];
  gWriteFd = ends[1];
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    Catch(number);
  }
  static_cast<void>(signal(SIGPIPE, SIG_IGN));
  static_cast<void>(signal(SIGXFSZ, SIG_IGN));
  return true;
}

}  // namespace KelvikLog
