// The kernel's table of UDP sockets.

#include "SocketTable.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ConsoleClient.h"

namespace KelvikCtl {
namespace {

TEST(SocketTable, LinesOfTheTableAreReadAndOthersPassedOver) {
  const uint32_t raw = htonl(0x7F000001);  // as the kernel prints it on this machine
  char line[256];
  std::snprintf(line, sizeof(line),
                "  123: %08X:225F 00000000:0000 07 00000000:00000300 00:00000000 00000000  1000    "
                "    0 123456789012 2 0000000000000000 0\n",
                raw);
  std::string connected = line;
  connected.replace(connected.find("00000000:0000"), 13, "0100007F:0035");
  const auto sockets = ParseUdpTable("  sl  local_address rem_address   st tx_queue\n" +
                                     std::string(line) + "nonsense\n\n 1: 2: 3:\n" + connected);
  ASSERT_EQ(2u, sockets.size());
  EXPECT_EQ(0x7F000001u, sockets[0].m_Address);
  EXPECT_EQ(8799, sockets[0].m_Port);
  EXPECT_FALSE(sockets[0].m_IsConnected);
  EXPECT_EQ(0x300u, sockets[0].m_WaitingBytes);
  EXPECT_EQ(1000u, sockets[0].m_User);
  EXPECT_EQ(123456789012u, sockets[0].m_Inode);
  EXPECT_TRUE(IsLoopback(sockets[0]));
  EXPECT_TRUE(sockets[1].m_IsConnected);
}

TEST(SocketTable, SocketOfThisProcessIsFound) {
  const int fd = Kelvik::BindPlainSocket(0);
  ASSERT_NE(-1, fd);
  const uint16_t port = Kelvik::PortOf(fd);
  const auto found = FindBoundSocket("127.0.0.1", port);
  struct stat status = {};
  fstat(fd, &status);
  ASSERT_TRUE(found);
  EXPECT_EQ(static_cast<uint64_t>(status.st_ino), found->m_Inode);
  EXPECT_EQ(getuid(), found->m_User);
  EXPECT_EQ(0u, found->m_WaitingBytes);

  Kelvik::CConsoleClient client(port);
  EXPECT_TRUE(client.Send("-foo"));
  EXPECT_NE(0u, FindBoundSocket("127.0.0.1", port)->m_WaitingBytes);
  close(fd);
  EXPECT_FALSE(FindBoundSocket("127.0.0.1", port));
}

}  // namespace
}  // namespace KelvikCtl
