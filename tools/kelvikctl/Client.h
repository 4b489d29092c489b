// Sends command texts to the console of one process.

#ifndef KELVIK_KELVIKCTL_CLIENT_H_
#define KELVIK_KELVIKCTL_CLIENT_H_

#include <cstdint>
#include <string>

namespace KelvikCtl {

// A connected UDP socket: on this machine the system itself says when nobody is bound to the port.
// Everything that fails throws CFailure.
class CClient {
 public:
  // host: dotted decimal. An address of another machine is refused: the console answers on
  // terminals alone, and a process elsewhere would open a terminal of its own machine by that name.
  CClient(const std::string& host, uint16_t port);
  CClient(const CClient&) = delete;
  CClient& operator=(const CClient&) = delete;
  ~CClient();

  // The text is neither empty nor longer than a datagram takes (else kExitUsage).
  void Send(const std::string& text);
  // An empty datagram, which a console passes over.
  void Probe();
  // Throws when the system has said that nobody listens. Descriptor() is then readable.
  void CheckHeard();

  int Descriptor() const { return m_Fd; }
  const std::string& Host() const { return m_Host; }
  uint16_t Port() const { return m_Port; }
  std::string Name() const { return m_Host + ":" + std::to_string(m_Port); }

 private:
  void SendBytes(const void* bytes, std::size_t size);
  [[noreturn]] void Fail(int error) const;

  const std::string m_Host;
  const uint16_t m_Port;
  int m_Fd;
};

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_CLIENT_H_
