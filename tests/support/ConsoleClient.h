// What a test of the console needs: ports, a plain sender that frames by itself (it shares nothing
// with the code under test), and a running console whose work can be waited for.

#ifndef KELVIK_CONSOLECLIENT_H_
#define KELVIK_CONSOLECLIENT_H_

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Kelvik.h"
#include "RealClock.h"

namespace Kelvik {

inline sockaddr_in LoopbackAddress(uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// A socket bound to the port of the loopback address without any option (0: the system chooses), or
// -1 with errno set.
inline int BindPlainSocket(uint16_t port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = LoopbackAddress(port);
  if (fd != -1 && bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
    return fd;
  }
  const int error = errno;
  if (fd != -1) close(fd);
  errno = error;
  return -1;
}

// The port that a socket is bound to.
inline uint16_t PortOf(int fd) {
  sockaddr_in address = {};
  socklen_t length = sizeof(address);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

// A port that nobody had a moment ago. The system hands them out in no order, so that tests that
// run at the same time do not meet.
inline uint16_t FindFreePort() {
  const int fd = BindPlainSocket(0);
  if (fd == -1) {
    std::perror("bind");
    std::abort();
  }
  const uint16_t port = PortOf(fd);
  close(fd);
  return port;
}

// The bytes of a command datagram.
inline std::string Frame(const std::string& text) {
  std::string bytes = "\xF9\x51";
  bytes += static_cast<char>(text.size() >> 8);
  bytes += static_cast<char>(text.size() & 0xFF);
  return bytes + text;
}

// Sends datagrams to a console.
class CConsoleClient {
 public:
  explicit CConsoleClient(uint16_t port) : m_Fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = LoopbackAddress(port);
    if (m_Fd == -1 ||
        connect(m_Fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      std::perror("connect");
      std::abort();
    }
  }
  CConsoleClient(const CConsoleClient&) = delete;
  CConsoleClient& operator=(const CConsoleClient&) = delete;
  ~CConsoleClient() { close(m_Fd); }

  // False when the system says that nobody listens (about this datagram or the one before).
  bool SendRaw(const std::string& bytes) {
    return send(m_Fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
  }
  bool Send(const std::string& text) { return SendRaw(Frame(text)); }

  // Whether a socket is bound to the port. Sends an empty datagram, which the console passes over.
  bool IsSomeoneThere() {
    SendRaw("");  // takes an error of an earlier datagram away
    return SendRaw("") && SendRaw("");
  }

 private:
  int m_Fd;
};

// The console of this process on a port of its own, for children. Handling is in the order of
// arrival, so once Sync has returned, everything sent before has been dealt with.
class CTestConsole {
 public:
  CTestConsole() : m_Port(FindFreePort()), m_Client(m_Port) {
    ModuleSetParamRegister("TestConsole", "sync", &TakeSync, this);
    if (NetworkConsoleCreate(nullptr, m_Port) != eResultSuccess) {
      std::fprintf(stderr, "no console on port %u\n", static_cast<unsigned>(m_Port));
      std::abort();
    }
  }
  CTestConsole(const CTestConsole&) = delete;
  CTestConsole& operator=(const CTestConsole&) = delete;
  ~CTestConsole() {
    NetworkConsoleDestroy();
    ModuleSetParamUnregister("TestConsole", "sync");
  }

  uint16_t Port() const { return m_Port; }
  CConsoleClient& Client() { return m_Client; }

  // False when no answer came within the limit. Asks again, since a datagram may be dropped.
  bool Sync(int limitMs = 5000) {
    const int number = ++m_Asked;
    const auto isAnswered = [&] { return m_Answered.load() >= number; };
    return WaitUntil(
        [&] {
          m_Client.Send("-set TestConsole sync " + std::to_string(number));
          return isAnswered() || WaitUntil(isAnswered, 100);
        },
        limitMs);
  }

  // Sends a text and waits until it has been obeyed.
  bool Obey(const std::string& text) { return m_Client.Send(text) && Sync(); }

 private:
  static int TakeSync(int value, void* self) {
    static_cast<CTestConsole*>(self)->m_Answered = value;
    return 0;
  }

  const uint16_t m_Port;
  CConsoleClient m_Client;
  int m_Asked = 0;
  std::atomic<int> m_Answered{0};
};

}  // namespace Kelvik

#endif  // KELVIK_CONSOLECLIENT_H_
