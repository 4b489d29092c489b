#include "SocketTable.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "UdpTable.h"

namespace KelvikCtl {

namespace {

constexpr std::size_t kFileBytes = 4 << 20;
constexpr uint32_t kLoopbackNetwork = 127;

}  // namespace

std::vector<tagUdpSocket> ParseUdpTable(const std::string& text) {
  std::vector<tagUdpSocket> sockets;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    Kelvik::tagUdpEntry entry;
    if (!Kelvik::ParseUdpLine(line.c_str(), entry)) continue;
    sockets.push_back({entry.m_Address, entry.m_Port,
                       entry.m_PeerAddress != 0 || entry.m_PeerPort != 0, entry.m_WaitingBytes,
                       static_cast<uid_t>(entry.m_User), entry.m_Inode});
  }
  return sockets;
}

std::vector<tagUdpSocket> ReadUdpTable() {
  return ParseUdpTable(ReadSmallFile("/proc/net/udp"));
}

bool IsLoopback(const tagUdpSocket& socket) {
  return socket.m_Address >> 24 == kLoopbackNetwork;
}

std::optional<tagUdpSocket> FindBoundSocket(const std::string& host, uint16_t port) {
  in_addr address = {};
  if (inet_pton(AF_INET, host.c_str(), &address) != 1) return std::nullopt;
  std::optional<tagUdpSocket> found;
  for (const tagUdpSocket& socket : ReadUdpTable()) {
    const bool isExact = socket.m_Address == ntohl(address.s_addr);
    if (socket.m_Port != port || socket.m_IsConnected) continue;
    if (isExact || (socket.m_Address == 0 && !found)) found = socket;
  }
  return found;
}

std::string UserName(uid_t user) {
  const passwd* const entry = getpwuid(user);
  return entry == nullptr ? "user " + std::to_string(user) : entry->pw_name;
}

std::string ReadSmallFile(const std::string& path) {
  std::string text;
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd == -1) return text;
  char piece[16384];
  ssize_t size;
  while (((size = read(fd, piece, sizeof(piece))) > 0 || (size == -1 && errno == EINTR)) &&
         text.size() < kFileBytes) {
    if (size > 0) text.append(piece, static_cast<std::size_t>(size));
  }
  close(fd);
  return text;
}

}  // namespace KelvikCtl
