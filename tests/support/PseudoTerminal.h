// A terminal that a test looks at from the other side.

#ifndef KELVIK_PSEUDOTERMINAL_H_
#define KELVIK_PSEUDOTERMINAL_H_

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "RealClock.h"

namespace Kelvik {

// A raw pseudo-terminal: what is written to its device arrives byte for byte. It keeps its device
// open, so that a writer that comes and goes does not end it.
class CPseudoTerminal {
 public:
  CPseudoTerminal() : m_Master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)), m_Slave(-1) {
    const char* path = nullptr;
    if (m_Master != -1 && grantpt(m_Master) == 0 && unlockpt(m_Master) == 0) {
      path = ptsname(m_Master);
    }
    if (path != nullptr) {
      m_Path = path;
      m_Slave = open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    termios mode = {};
    if (m_Slave == -1 || tcgetattr(m_Slave, &mode) != 0) Die();
    cfmakeraw(&mode);
    if (tcsetattr(m_Slave, TCSANOW, &mode) != 0) Die();
  }
  CPseudoTerminal(const CPseudoTerminal&) = delete;
  CPseudoTerminal& operator=(const CPseudoTerminal&) = delete;
  ~CPseudoTerminal() {
    close(m_Slave);
    close(m_Master);
  }

  const std::string& Path() const { return m_Path; }
  int Slave() const { return m_Slave; }

  // Reads until the text has arrived or the limit has passed. Returns all that came and was not
  // taken before.
  std::string ReadUntil(const std::string& text, int limitMs = 5000) {
    std::string got;
    WaitUntil(
        [&] {
          got += Take();
          return got.find(text) != std::string::npos;
        },
        limitMs);
    return got;
  }

  // What has arrived by now.
  std::string Take() {
    std::string got;
    pollfd waiting = {m_Master, POLLIN, 0};
    char piece[4096];
    while (poll(&waiting, 1, 0) == 1 && (waiting.revents & POLLIN) != 0) {
      const ssize_t size = read(m_Master, piece, sizeof(piece));
      if (size <= 0) break;
      got.append(piece, static_cast<std::size_t>(size));
    }
    return got;
  }

 private:
  [[noreturn]] static void Die() {
    std::perror("pseudo-terminal");
    std::abort();
  }

  int m_Master;
  int m_Slave;
  std::string m_Path;
};

}  // namespace Kelvik

#endif  // KELVIK_PSEUDOTERMINAL_H_
