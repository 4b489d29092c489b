#include "Terminal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Failure.h"

namespace KelvikCtl {

CTerminal::CTerminal() : m_Master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
  termios mode = {};
  const char* path = nullptr;
  if (m_Master != -1 && grantpt(m_Master) == 0 && unlockpt(m_Master) == 0 &&
      tcgetattr(m_Master, &mode) == 0) {
    cfmakeraw(&mode);
    if (tcsetattr(m_Master, TCSANOW, &mode) == 0) path = ptsname(m_Master);
  }
  if (path == nullptr) {
    const int error = errno;
    if (m_Master != -1) close(m_Master);
    throw CFailure(kExitRefused,
                   std::string("cannot make a pseudo-terminal: ") + std::strerror(error));
  }
  m_Path = path;
  winsize size = {};
  // For displays that fit their lines to the terminal.
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) ioctl(m_Master, TIOCSWINSZ, &size);
}

CTerminal::~CTerminal() {
  close(m_Master);
}

CTerminal::eRead CTerminal::Read(char* bytes, std::size_t room, std::size_t& size) {
  size = 0;
  ssize_t count;
  do {
    count = read(m_Master, bytes, room);
  } while (count == -1 && errno == EINTR);
  if (count > 0) {
    size = static_cast<std::size_t>(count);
    return eRead::kBytes;
  }
  return count == -1 && errno == EAGAIN ? eRead::kNothingYet : eRead::kClosed;
}

}  // namespace KelvikCtl
