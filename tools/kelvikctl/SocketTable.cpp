#include "SocketTable.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <sstream>

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
    uint32_t address = 0;
    uint32_t port = 0;
    uint32_t peer = 0;
    uint32_t peerPort = 0;
    uint32_t waiting = 0;
    uint32_t user = 0;
    uint64_t inode = 0;
    const int fields =
        std::sscanf(line.c_str(),
                    " %*10u: %8" SCNx32 ":%4" SCNx32 " %8" SCNx32 ":%4" SCNx32
                    " %*2x %*8x:%8" SCNx32 " %*2x:%*8x %*8x %10" SCNu32 " %*10u %19" SCNu64,
                    &address, &port, &peer, &peerPort, &waiting, &user, &inode);
    if (fields != 7) continue;
    // The kernel prints the address as the number that its bytes make in the host's order.
    sockets.push_back({ntohl(address), static_cast<uint16_t>(port), peer != 0 || peerPort != 0,
                       waiting, static_cast<uid_t>(user), inode});
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
