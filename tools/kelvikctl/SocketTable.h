// The UDP sockets of this machine, as the kernel lists them in /proc/net/udp.

#ifndef KELVIK_KELVIKCTL_SOCKETTABLE_H_
#define KELVIK_KELVIKCTL_SOCKETTABLE_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KelvikCtl {

struct tagUdpSocket {
  uint32_t m_Address;       // local, host byte order; 0: any
  uint16_t m_Port;          // local
  bool m_IsConnected;       // it has a peer; a console has none
  uint32_t m_WaitingBytes;  // of datagrams that nobody has read, with the kernel's overhead
  uid_t m_User;
  uint64_t m_Inode;
};

// Lines that are not of the table's form, its heading among them, are passed over.
std::vector<tagUdpSocket> ParseUdpTable(const std::string& text);

// The table of this process's network.
std::vector<tagUdpSocket> ReadUdpTable();

bool IsLoopback(const tagUdpSocket& socket);

// The socket that is bound to the address, or to any address, and the port. With several it is not
// known which one the kernel serves; one of them is returned.
std::optional<tagUdpSocket> FindBoundSocket(const std::string& host, uint16_t port);

// The user's name, else its number.
std::string UserName(uid_t user);

// A file of at most some megabytes, such as those of /proc, whose size is not known before;
// empty when it cannot be read.
std::string ReadSmallFile(const std::string& path);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_SOCKETTABLE_H_
