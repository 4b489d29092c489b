#include "ConsoleSender.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include "FileIo.h"

namespace Kelvik {
namespace {

constexpr char kRangePath[] = "/proc/sys/net/ipv4/ip_local_port_range";
constexpr size_t kRangeBytes = 32;
constexpr uint16_t kFirstChosenPort = 32768;  // as the kernel comes
constexpr uint16_t kLastChosenPort = 60999;
constexpr uint32_t kLoopbackNetwork = 127;
constexpr uint32_t kRoot = 0;

void ReadChosenPorts(tagSender& sender) {
  sender.m_FirstChosenPort = kFirstChosenPort;
  sender.m_LastChosenPort = kLastChosenPort;
  int32_t fd = LiftDescriptor(open(kRangePath, O_RDONLY | O_CLOEXEC));
  if (fd == -1) return;
  char text[kRangeBytes + 1] = {};
  const ssize_t size = read(fd, text, kRangeBytes);
  CloseDescriptor(fd);
  if (size <= 0) return;
  char* rest = text;
  const long first = std::strtol(rest, &rest, 10);
  const long last = std::strtol(rest, &rest, 10);
  if (first < 1 || first > last || last > UINT16_MAX) return;
  sender.m_FirstChosenPort = static_cast<uint16_t>(first);
  sender.m_LastChosenPort = static_cast<uint16_t>(last);
}

uint16_t PortOf(int socket) {
  sockaddr_in own = {};
  socklen_t room = sizeof(own);
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &room) != 0) return 0;
  return ntohs(own.sin_port);
}

}  // namespace

eSenderEntry JudgeEntry(const tagUdpEntry& entry, const tagSender& sender) {
  const bool isItsAddress = entry.m_Address == sender.m_Address || entry.m_Address == 0;
  if (entry.m_Port != sender.m_Port || !isItsAddress) return eSenderEntry::kOther;
  if (entry.m_User != sender.m_User && entry.m_User != kRoot) return eSenderEntry::kForeign;
  const bool isConnectedToUs =
      entry.m_PeerPort == sender.m_ConsolePort && entry.m_PeerAddress >> 24 == kLoopbackNetwork;
  const bool isChosen =
      entry.m_Port >= sender.m_FirstChosenPort && entry.m_Port <= sender.m_LastChosenPort;
  return isConnectedToUs || isChosen ? eSenderEntry::kTrusted : eSenderEntry::kOther;
}

bool IsTrustedSender(int socket, const sockaddr_in& from) {
  tagSender sender = {};
  sender.m_Address = ntohl(from.sin_addr.s_addr);
  sender.m_Port = ntohs(from.sin_port);
  // Elsewhere the table is not ours, and a port here says nothing about who is there.
  if (sender.m_Address >> 24 != kLoopbackNetwork || sender.m_Port == 0) return false;
  sender.m_ConsolePort = PortOf(socket);
  sender.m_User = geteuid();
  ReadChosenPorts(sender);
  bool isTrusted = false;
  CUdpTable table;
  for (tagUdpEntry entry; table.Next(entry);) {
    const eSenderEntry judged = JudgeEntry(entry, sender);
    if (judged == eSenderEntry::kForeign) return false;
    isTrusted = isTrusted || judged == eSenderEntry::kTrusted;
  }
  return isTrusted && table.IsComplete();
}

}  // namespace Kelvik
