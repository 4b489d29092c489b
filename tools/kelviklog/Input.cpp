#include "Input.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace KelvikLog {

CInput::~CInput() {
  if (m_IsOwned) {
    close(m_Fd);
  }
}

namespace {

// A larger pipe lets writer and reader run longer before one waits for the other. Anything else
// than a pipe refuses, and a pipe that may not grow stays as it is.
void WidenPipe(int fd) {
  constexpr int kPipeBytes = 262144;
  if (fcntl(fd, F_GETPIPE_SZ) < kPipeBytes) {
    static_cast<void>(fcntl(fd, F_SETPIPE_SZ, kPipeBytes));
  }
}

}  // namespace

bool CInput::Open(const std::string& name, std::string& problem) {
  if (name == "-") {
    m_Name = "standard input";
    m_Fd = STDIN_FILENO;
    WidenPipe(m_Fd);
    return true;
  }
  m_Name = name;
  m_Fd = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  m_IsOwned = m_Fd >= 0;
  if (m_IsOwned) {
    WidenPipe(m_Fd);
  } else {
    problem = m_Name + ": " + std::strerror(errno);
  }
  return m_IsOwned;
}

int64_t CInput::Size() const {
  struct stat status = {};
  if (fstat(m_Fd, &status) != 0 || !S_ISREG(status.st_mode)) return -1;
  const off_t at = lseek(m_Fd, 0, SEEK_CUR);
  return at < status.st_size ? int64_t{status.st_size} - at : 0;
}

eReadResult CInput::Read(int stopFd, int limitMs, char* space, std::size_t room, std::size_t& count,
                         std::string& problem) {
  for (;;) {
    pollfd waits[] = {{stopFd, POLLIN, 0}, {m_Fd, POLLIN, 0}};
    const int ready = poll(waits, 2, limitMs);
    if (ready == 0) return eReadResult::kQuiet;
    if (ready < 0 && errno != EINTR) {
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
