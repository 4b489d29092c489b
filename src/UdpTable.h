// The kernel's table of the UDP sockets over IPv4, as /proc/net/udp shows it.
#ifndef KELVIK_UDPTABLE_H_
#define KELVIK_UDPTABLE_H_

#include <cstddef>
#include <cstdint>

namespace Kelvik {

// Addresses and ports in host byte order.
struct tagUdpEntry {
  uint32_t m_Address;  // 0: any
  uint16_t m_Port;
  uint32_t m_PeerAddress;  // with m_PeerPort; both 0: not connected
  uint16_t m_PeerPort;
  uint32_t m_WaitingBytes;  // of datagrams that nobody has read, with the kernel's overhead
  uint32_t m_User;          // who made the socket
  uint64_t m_Inode;
};

// Reads a line of the table. False for one that is not of its form, such as its heading.
bool ParseUdpLine(const char* line, tagUdpEntry& entry);

// Goes through the table of the network that this process is in. For one thread; nothing is
// allocated.
class CUdpTable {
 public:
  CUdpTable();
  CUdpTable(const CUdpTable&) = delete;
  CUdpTable& operator=(const CUdpTable&) = delete;
  ~CUdpTable();

  // The next socket. False at the end of the table, or when it cannot be read on.
  bool Next(tagUdpEntry& entry);

  // After the last Next: whether it was the end of the table.
  bool IsComplete() const { return m_IsComplete; }

 private:
  const char* NextLine();
  bool Fill();

  static constexpr size_t kFieldBytes = 1024;  // a line has 128

  int32_t m_Fd;       // -1: there is no table
  bool m_IsComplete;  // read to its end
  char* m_Begin;      // of what has not been looked at, in m_Field
  char* m_End;        // of what was read
  char m_Field[kFieldBytes + 1];
};

}  // namespace Kelvik

#endif  // KELVIK_UDPTABLE_H_
