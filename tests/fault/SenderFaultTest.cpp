// Who sent a datagram, when the system does not tell: the socket table, the range of ports and the
// console's own port are missing, broken or of another form. Nobody is trusted by mistake.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "ConsoleClient.h"
#include "ConsoleSender.h"
#include "OpenSeam.h"
#include "UdpLine.h"
#include "UdpTable.h"

namespace {

enum class eFake {
  kNone,      // the system's own
  kMissing,   // cannot be opened
  kComplete,  // the text, then the end
  kBroken,    // the text, then an error
};

// What stands in for a file of the system.
struct tagFakeFile {
  const char* m_Path;
  eFake m_Kind = eFake::kNone;
  std::string m_Text = {};
  int m_WriteEnd = -1;  // held open for a broken one: reading on says EAGAIN
};

tagFakeFile gTable{"/proc/net/udp"};
tagFakeFile gRange{"/proc/sys/net/ipv4/ip_local_port_range"};
bool gFailName = false;

int OpenFake(tagFakeFile& file) {
  int ends[2];
  if (file.m_Kind == eFake::kMissing || pipe2(ends, O_NONBLOCK | O_CLOEXEC) != 0) {
    errno = ENOENT;
    return -1;
  }
  EXPECT_EQ(static_cast<ssize_t>(file.m_Text.size()),
            write(ends[1], file.m_Text.data(), file.m_Text.size()));
  if (file.m_Kind == eFake::kComplete) {
    close(ends[1]);
  } else {
    if (file.m_WriteEnd != -1) close(file.m_WriteEnd);
    file.m_WriteEnd = ends[1];
  }
  return ends[0];
}

tagFakeFile* FindFake(const char* path) {
  for (tagFakeFile* file : {&gTable, &gRange}) {
    if (file->m_Kind != eFake::kNone && std::strcmp(path, file->m_Path) == 0) return file;
  }
  return nullptr;
}

}  // namespace

bool Kelvik::AnswersOpen(const char* path, int* descriptor) {
  tagFakeFile* const fake = FindFake(path);
  if (fake != nullptr) *descriptor = OpenFake(*fake);
  return fake != nullptr;
}

extern "C" {

int __real_getsockname(int fd, sockaddr* address, socklen_t* length);

int __wrap_getsockname(int fd, sockaddr* address, socklen_t* length);
int __wrap_getsockname(int fd, sockaddr* address, socklen_t* length) {
  if (!gFailName) return __real_getsockname(fd, address, length);
  errno = ENOBUFS;
  return -1;
}

}  // extern "C"

namespace Kelvik {
namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr uint32_t kElsewhere = 0x0A000001;
constexpr char kHeading[] = "   sl  local_address rem_address   st tx_queue rx_queue  uid inode\n";

// A socket of this process's user.
std::string Line(uint32_t address, unsigned port, uint32_t peer, unsigned peerPort) {
  return UdpLine(address, port, peer, peerPort, std::to_string(geteuid()));
}

class SenderFault : public testing::Test {
 protected:
  void SetUp() override {
    m_Console = BindPlainSocket(0);
    ASSERT_NE(-1, m_Console);
  }
  void TearDown() override {
    for (tagFakeFile* file : {&gTable, &gRange}) {
      file->m_Kind = eFake::kNone;
      if (file->m_WriteEnd != -1) close(file->m_WriteEnd);
      file->m_WriteEnd = -1;
    }
    gFailName = false;
    close(m_Console);
  }

  static void SetTable(eFake kind, const std::string& lines = {}) {
    gTable.m_Kind = kind;
    gTable.m_Text = kHeading + lines;
  }
  static void SetRange(eFake kind, const std::string& text = {}) {
    gRange.m_Kind = kind;
    gRange.m_Text = text;
  }
  bool IsTrusted(uint16_t port) const { return IsTrustedSender(m_Console, LoopbackAddress(port)); }

  int m_Console = -1;
};

// The ports of the table's sockets, in their order.
std::vector<int> PortsOfTable(bool& isComplete) {
  std::vector<int> ports;
  CUdpTable table;
  for (tagUdpEntry entry; table.Next(entry);)
    ports.push_back(entry.m_Port);
  isComplete = table.IsComplete();
  return ports;
}

TEST_F(SenderFault, WithoutTheTableNobodyIsTrusted) {
  SetTable(eFake::kComplete, Line(kLoopback, 40000, 0, 0));
  EXPECT_TRUE(IsTrusted(40000));
  SetTable(eFake::kMissing);
  EXPECT_FALSE(IsTrusted(40000));
  bool isComplete = true;
  EXPECT_TRUE(PortsOfTable(isComplete).empty());
  EXPECT_FALSE(isComplete);
}

TEST_F(SenderFault, WhoStandsInATableThatCannotBeReadToItsEndIsNotTrusted) {
  SetTable(eFake::kBroken, Line(kLoopback, 40000, 0, 0));
  EXPECT_FALSE(IsTrusted(40000));
  bool isComplete = true;
  EXPECT_EQ(std::vector<int>{40000}, PortsOfTable(isComplete));
  EXPECT_FALSE(isComplete);
}

TEST_F(SenderFault, LineThatNoFieldHoldsIsPassedOver) {
  for (const size_t length : {1023u, 1024u, 1025u, 5000u}) {
    SetTable(eFake::kComplete,
             Line(kLoopback, 1, 0, 0) + std::string(length, 'x') + "\n" + Line(kLoopback, 2, 0, 0));
    bool isComplete = false;
    EXPECT_EQ((std::vector<int>{1, 2}), PortsOfTable(isComplete)) << length;
    EXPECT_TRUE(isComplete);
  }
}

TEST_F(SenderFault, DigitsOfEitherCaseAreReadAndALineWithoutAnEndIsNone) {
  std::string small = Line(kLoopback, 0xABCD, 0, 0);
  small.replace(small.find("ABCD"), 4, "abcd");
  std::string cut = Line(kLoopback, 2, 0, 0);
  cut.pop_back();
  SetTable(eFake::kComplete, small + cut);
  bool isComplete = false;
  EXPECT_EQ(std::vector<int>{0xABCD}, PortsOfTable(isComplete));
  EXPECT_TRUE(isComplete);
}

TEST_F(SenderFault, RangeOfPortsThatCannotBeReadIsTheKernelsUsualOne) {
  SetTable(eFake::kComplete, Line(kLoopback, 20000, 0, 0) + Line(kLoopback, 50000, 0, 0));
  const struct {
    eFake m_Kind;
    const char* m_Text;
  } unreadable[] = {
      {eFake::kMissing, ""},         {eFake::kBroken, ""},
      {eFake::kComplete, ""},        {eFake::kComplete, "many\n"},
      {eFake::kComplete, "0\t60\n"}, {eFake::kComplete, "20001\t19999\n"},
      {eFake::kComplete, "19999\n"}, {eFake::kComplete, "19999\t65536\n"},
  };
  for (const auto& range : unreadable) {
    SetRange(range.m_Kind, range.m_Text);
    EXPECT_FALSE(IsTrusted(20000)) << range.m_Text;
    EXPECT_TRUE(IsTrusted(50000)) << range.m_Text;
  }
  SetRange(eFake::kComplete, "19999\t20001\n");
  EXPECT_TRUE(IsTrusted(20000));
  EXPECT_FALSE(IsTrusted(50000));
}

TEST_F(SenderFault, ConnectionCountsOnlyToTheConsolesOwnPortAndNetwork) {
  const unsigned console = PortOf(m_Console);
  SetTable(eFake::kComplete, Line(kLoopback, 999, kLoopback, console));
  EXPECT_TRUE(IsTrusted(999));
  gFailName = true;
  EXPECT_FALSE(IsTrusted(999)) << "the console's port is not known";
  gFailName = false;
  SetTable(eFake::kComplete, Line(kLoopback, 999, kElsewhere, console));
  EXPECT_FALSE(IsTrusted(999));
}

}  // namespace
}  // namespace Kelvik
