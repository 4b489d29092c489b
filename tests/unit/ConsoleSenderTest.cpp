// Who sent a datagram: the lines of the kernel's socket table, and what they say about a sender.

#include "ConsoleSender.h"

#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ConsoleClient.h"
#include "UdpLine.h"
#include "UdpTable.h"

namespace Kelvik {
namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr uint16_t kConsolePort = 8799;

// --- The table ---

TEST(UdpTable, LineGivesItsFields) {
  tagUdpEntry entry = {};
  ASSERT_TRUE(ParseUdpLine(UdpLine(kLoopback, 40000, 0x7F000002, 8799, "1000").c_str(), entry));
  EXPECT_EQ(kLoopback, entry.m_Address);
  EXPECT_EQ(40000, entry.m_Port);
  EXPECT_EQ(0x7F000002u, entry.m_PeerAddress);
  EXPECT_EQ(8799, entry.m_PeerPort);
  EXPECT_EQ(0x300u, entry.m_WaitingBytes);
  EXPECT_EQ(1000u, entry.m_User);
  EXPECT_EQ(123456789012u, entry.m_Inode);
  ASSERT_TRUE(
      ParseUdpLine(UdpLine(0, 65535, 0, 0, "4294967295", "18446744073709551615").c_str(), entry));
  EXPECT_EQ(65535, entry.m_Port);
  EXPECT_EQ(4294967295u, entry.m_User);
  EXPECT_EQ(UINT64_MAX, entry.m_Inode);
}

TEST(UdpTable, LineOfAnotherFormIsNone) {
  const std::string good = UdpLine(kLoopback, 40000, 0, 0, "1000");
  tagUdpEntry entry;
  ASSERT_TRUE(ParseUdpLine(good.c_str(), entry));
  for (size_t length = 0; length < good.find("123456789012"); ++length)
    EXPECT_FALSE(ParseUdpLine(good.substr(0, length).c_str(), entry)) << length;
  const char* const others[] = {
      "",
      "\n",
      "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid\n",
      " 1: 2: 3:\n",
      " 1: 0100007F 9C40 00000000:0000 07 0:0 0:0 0 0 0 5\n",
  };
  for (const char* line : others)
    EXPECT_FALSE(ParseUdpLine(line, entry)) << line;
  // Numbers past their place.
  EXPECT_FALSE(ParseUdpLine(UdpLine(kLoopback, 0x10000, 0, 0, "1000").c_str(), entry));
  EXPECT_FALSE(ParseUdpLine(UdpLine(kLoopback, 1, 0, 0, "4294967296").c_str(), entry));
  EXPECT_FALSE(
      ParseUdpLine(UdpLine(kLoopback, 1, 0, 0, "0", "18446744073709551616").c_str(), entry));
}

// How often the table of this network has the port.
int CountPort(uint16_t port, tagUdpEntry& found) {
  int count = 0;
  CUdpTable table;
  for (tagUdpEntry entry; table.Next(entry);) {
    if (entry.m_Port != port || entry.m_Address != kLoopback) continue;
    found = entry;
    ++count;
  }
  EXPECT_TRUE(table.IsComplete());
  return count;
}

TEST(UdpTable, EverySocketOfThisProcessIsFound) {
  // More lines than are read at a time.
  int fds[40];
  for (int& fd : fds)
    fd = BindPlainSocket(0);
  for (const int fd : fds) {
    ASSERT_NE(-1, fd);
    struct stat status = {};
    ASSERT_EQ(0, fstat(fd, &status));
    tagUdpEntry entry = {};
    EXPECT_EQ(1, CountPort(PortOf(fd), entry));
    EXPECT_EQ(static_cast<uint64_t>(status.st_ino), entry.m_Inode);
    EXPECT_EQ(geteuid(), entry.m_User);
  }
  for (const int fd : fds)
    close(fd);
}

// --- The sender ---

tagSender Sender(uint16_t port) {
  return {kLoopback, port, kConsolePort, 32768, 60999, 1000};
}

TEST(ConsoleSender, SocketIsJudgedByItsPortUserAndPeer) {
  constexpr uint32_t kAny = 0;
  constexpr eSenderEntry kTrusted = eSenderEntry::kTrusted;
  constexpr eSenderEntry kForeign = eSenderEntry::kForeign;
  constexpr eSenderEntry kOther = eSenderEntry::kOther;
  const struct {
    const char* m_Case;
    uint16_t m_SenderPort;
    tagUdpEntry m_Entry;
    eSenderEntry m_Judged;
  } rows[] = {
      {"connected", 40000, {kLoopback, 40000, kLoopback, 8799, 0, 1000, 1}, kTrusted},
      {"root", 40000, {kLoopback, 40000, kLoopback, 8799, 0, 0, 1}, kTrusted},
      {"chosen port", 40000, {kAny, 40000, kAny, 0, 0, 1000, 1}, kTrusted},
      {"first chosen", 32768, {kAny, 32768, kAny, 0, 0, 1000, 1}, kTrusted},
      {"last chosen", 60999, {kAny, 60999, kAny, 0, 0, 1000, 1}, kTrusted},
      {"below", 32767, {kAny, 32767, kAny, 0, 0, 1000, 1}, kOther},
      {"above", 61000, {kAny, 61000, kAny, 0, 0, 0, 1}, kOther},
      {"below, connected", 999, {kLoopback, 999, kLoopback, 8799, 0, 1000, 1}, kTrusted},
      {"a service that a stranger borrowed", 8799, {kLoopback, 8799, kAny, 0, 0, 1000, 1}, kOther},
      {"connected elsewhere", 999, {kLoopback, 999, kLoopback, 53, 0, 1000, 1}, kOther},
      {"another user", 40000, {kLoopback, 40000, kLoopback, 8799, 0, 1001, 1}, kForeign},
      {"another user's service", 999, {kAny, 999, kAny, 0, 0, 1001, 1}, kForeign},
      {"another port", 40001, {kLoopback, 40000, kLoopback, 8799, 0, 1000, 1}, kOther},
      {"another user elsewhere", 40000, {0x0A000001, 40000, kAny, 0, 0, 1001, 1}, kOther},
      {"own socket elsewhere", 40000, {0x0A000001, 40000, kAny, 0, 0, 1000, 1}, kOther},
  };
  for (const auto& row : rows)
    EXPECT_EQ(row.m_Judged, JudgeEntry(row.m_Entry, Sender(row.m_SenderPort))) << row.m_Case;
}

class ConsoleSenderSocket : public testing::Test {
 protected:
  void SetUp() override {
    m_Console = BindPlainSocket(0);
    m_Client = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = LoopbackAddress(PortOf(m_Console));
    ASSERT_EQ(0, connect(m_Client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
  }
  void TearDown() override {
    close(m_Console);
    close(m_Client);
  }

  int m_Console = -1;
  int m_Client = -1;
};

TEST_F(ConsoleSenderSocket, OwnSocketIsTrustedWhileItIsOpen) {
  const sockaddr_in from = LoopbackAddress(PortOf(m_Client));
  EXPECT_TRUE(IsTrustedSender(m_Console, from));
  close(m_Client);
  m_Client = -1;
  EXPECT_FALSE(IsTrustedSender(m_Console, from));
}

TEST_F(ConsoleSenderSocket, WhoIsNotOnTheLoopbackNetworkIsNotTrusted) {
  sockaddr_in from = LoopbackAddress(PortOf(m_Client));
  for (const uint32_t address : {0x0A000001u, 0x7E000001u, 0x80000001u, 0u, 0xFFFFFFFFu}) {
    from.sin_addr.s_addr = htonl(address);
    EXPECT_FALSE(IsTrustedSender(m_Console, from)) << address;
  }
}

// A socket that shares its port with others that allow it, made by the user.
int BindSharedSocket(uint16_t port, uid_t user) {
  const auto own = static_cast<uid_t>(setfsuid(user));
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  setfsuid(own);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  const sockaddr_in address = LoopbackAddress(port);
  EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
  return fd;
}

TEST_F(ConsoleSenderSocket, PortThatIsSharedWithAnotherUserIsNotTrusted) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: only root can make a socket of another user";
  constexpr uid_t kNobody = 65534;
  const int own = BindSharedSocket(0, 0);
  const sockaddr_in from = LoopbackAddress(PortOf(own));
  EXPECT_TRUE(IsTrustedSender(m_Console, from));
  const int others = BindSharedSocket(PortOf(own), kNobody);
  struct stat status = {};
  EXPECT_EQ(0, fstat(others, &status));
  if (status.st_uid == kNobody) {
    EXPECT_FALSE(IsTrustedSender(m_Console, from));
  }
  close(others);
  EXPECT_TRUE(IsTrustedSender(m_Console, from));
  close(own);
  if (status.st_uid != kNobody) GTEST_SKIP() << "SKIPPED: no socket of another user here";
}

TEST_F(ConsoleSenderSocket, WithoutAPortNobodyIsTrusted) {
  EXPECT_FALSE(IsTrustedSender(m_Console, LoopbackAddress(0)));
}

}  // namespace
}  // namespace Kelvik
