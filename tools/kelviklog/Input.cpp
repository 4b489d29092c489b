#include "Input.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace KelvikLog {

CInput::~CInput() {
  if (m_IsOwned) {
    close(m_Fd);
  }
}

bool CInput::Open(const std::string& name, std::string& problem) {
  if (name == "-") {
    m_Name = "standard input";
    m_Fd = STDIN_FILENO;
    return true;
  }
  m_Name = name;
  m_Fd = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  m_IsOwned = m_Fd >= 0;
  if (!m_IsOwned) {
    problem = m_Name + ": " + std::strerror(errno);
  }
  return m_IsOwned;
}

eReadResult CInput::Read(int stopFd, char* space, std::size_t room, std::size_t& count,
                         std::string& problem) {
  for (;;) {
    pollfd waits[] = {{stopFd, POLLIN, 0}, {m_Fd, POLLIN, 0}};
    if (poll(waits, 2, -1) < 0 && errno != EINTR) {
      problem = m_Name + ": " + std::strerror(errno);
      return eReadResult::kFailed;
    }
    if (waits[0].revents != 0) return eReadResult::kStopped;
    if (waits[1].revents == 0) continue;
    const ssize_t got = read(m_Fd, space, room);
    if (got > 0) {
      count = static_cast<std::size_t>(got);
      return eReadResult::kBytes;
    }
    if (got == 0) return eReadResult::kEnd;
    if (errno != EINTR && errno != EAGAIN) {
      problem = m_Name + ": " + std::strerror(errno);
      return eReadResult::kFailed;
    }
  }
}

}  // namespace KelvikLog
