#include "Client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Datagram.h"
#include "Failure.h"

namespace KelvikCtl {

namespace {

bool IsOwnAddress(sockaddr_in address) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  address.sin_port = 0;
  const bool isOwn = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  close(fd);
  return isOwn;
}

}  // namespace

CClient::CClient(const std::string& host, uint16_t port) : m_Host(host), m_Port(port), m_Fd(-1) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
    throw CFailure(kExitUsage, host + " is no address of the form 127.0.0.1");
  }
  m_Fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (m_Fd == -1) Fail(errno);
  if (!IsOwnAddress(address)) {
    close(m_Fd);
    throw CFailure(kExitUsage, host +
                                   " is no address of this machine; a process elsewhere cannot "
                                   "answer on a terminal here");
  }
  if (connect(m_Fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    const int error = errno;
    close(m_Fd);
    Fail(error);
  }
}

CClient::~CClient() {
  close(m_Fd);
}

void CClient::Send(const std::string& text) {
  uint8_t datagram[Kelvik::kDatagramBytes];
  const std::size_t size = Kelvik::PackDatagram(datagram, text.data(), text.size());
  if (size == 0) {
    throw CFailure(kExitUsage, "a command has 1 to " + std::to_string(Kelvik::kDatagramTextBytes) +
                                   " bytes, this one " + std::to_string(text.size()));
  }
  SendBytes(datagram, size);
}

void CClient::Probe() {
  SendBytes("", 0);
}

void CClient::SendBytes(const void* bytes, std::size_t size) {
  ssize_t sent;
  do {
    sent = send(m_Fd, bytes, size, MSG_NOSIGNAL);
  } while (sent == -1 && errno == EINTR);
  if (sent == -1) Fail(errno);
  CheckHeard();
}

void CClient::CheckHeard() {
  // A receive hands out the error of an earlier datagram. A console sends nothing; what comes all
  // the same is dropped.
  char nothing;
  if (recv(m_Fd, &nothing, sizeof(nothing), MSG_DONTWAIT) == -1 && errno != EAGAIN &&
      errno != EINTR) {
    Fail(errno);
  }
}

void CClient::Fail(int error) const {
  throw CFailure(kExitNoAnswer, error == ECONNREFUSED
                                    ? "nobody listens on " + Name()
                                    : "cannot send to " + Name() + ": " + std::strerror(error));
}

}  // namespace KelvikCtl
