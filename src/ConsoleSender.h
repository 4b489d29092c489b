// Who sent a datagram to the console.
#ifndef KELVIK_CONSOLESENDER_H_
#define KELVIK_CONSOLESENDER_H_

#include <netinet/in.h>

#include <cstdint>

#include "UdpTable.h"

namespace Kelvik {

// A sender as the console sees it, and what it is measured by. Host byte order.
struct tagSender {
  uint32_t m_Address;
  uint16_t m_Port;
  uint16_t m_ConsolePort;      // the console's own
  uint16_t m_FirstChosenPort;  // the ports that the system chooses for who asks for none
  uint16_t m_LastChosenPort;
  uint32_t m_User;  // the one who may command beside root
};

enum class eSenderEntry {
  kOther,    // the socket is not the sender's
  kTrusted,  // it may be, and is the user's or root's
  kForeign,  // it may be, and is somebody else's
};

// What a socket of the table says about the sender.
//
// A datagram may outlive its socket, and sockets that allow it share a port: by the time the table
// is read, the port may show only a socket that another user merely borrowed the port of. What
// nobody can borrow unseen is a socket that is connected to the console, or one whose port the
// system chose; others do not count as trusted.
eSenderEntry JudgeEntry(const tagUdpEntry& entry, const tagSender& sender);

// Whether the sender of a datagram that the socket has just received is on the loopback network and
// one of its sockets belongs to this process's effective user or to root, and none to anybody else.
// False when that cannot be found out.
bool IsTrustedSender(int socket, const sockaddr_in& from);

}  // namespace Kelvik

#endif  // KELVIK_CONSOLESENDER_H_
