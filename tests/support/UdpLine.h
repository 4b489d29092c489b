// A line of the system's table of UDP sockets, as the kernel prints it on this machine.

#ifndef KELVIK_UDPLINE_H_
#define KELVIK_UDPLINE_H_

#include <arpa/inet.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace Kelvik {

// Address and peer in host byte order; 0x300 bytes wait.
inline std::string UdpLine(uint32_t address, unsigned port, uint32_t peer, unsigned peerPort,
                           const std::string& user, const std::string& inode = "123456789012") {
  char line[256];
  std::snprintf(line, sizeof(line),
                "  123: %08X:%04X %08X:%04X 07 00000000:00000300 00:00000000 00000000  %s        0 "
                "%s 2 ffff888003c5a000 0\n",
                htonl(address), port, htonl(peer), peerPort, user.c_str(), inode.c_str());
  return line;
}

}  // namespace Kelvik

#endif  // KELVIK_UDPLINE_H_
