#include "UdpTable.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "FileIo.h"

namespace Kelvik {
namespace {

constexpr char kTablePath[] = "/proc/net/udp";
constexpr unsigned kNoDigit = 255;

unsigned DigitOf(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  return kNoDigit;
}

// The numbers of a line, one after the other. The first one that is missing, or too large for its
// place, ends the reading for good.
class CNumbers {
 public:
  explicit CNumbers(const char* text) : m_At(text), m_IsGood(true) {}

  bool IsGood() const { return m_IsGood; }

  // A number behind any blanks, and the colon that must follow it when follow is ':'.
  uint64_t Take(unsigned base, uint64_t limit, char follow = ' ') {
    uint64_t value = 0;
    while (*m_At == ' ')
      ++m_At;
    const char* const start = m_At;
    for (unsigned digit; m_IsGood && (digit = DigitOf(*m_At)) < base; ++m_At) {
      m_IsGood = value <= (limit - digit) / base;
      value = value * base + digit;
    }
    m_IsGood = m_IsGood && m_At != start && (follow == ' ' || *m_At == follow);
    if (m_IsGood && follow != ' ') ++m_At;
    return m_IsGood ? value : 0;
  }

  uint32_t TakeHex32(char follow = ' ') {
    return static_cast<uint32_t>(Take(16, UINT32_MAX, follow));
  }
  uint16_t TakePort() { return static_cast<uint16_t>(Take(16, UINT16_MAX)); }

 private:
  const char* m_At;
  bool m_IsGood;
};

}  // namespace

bool ParseUdpLine(const char* line, tagUdpEntry& entry) {
  CNumbers numbers(line);
  numbers.Take(10, UINT32_MAX, ':');  // place in the kernel's hash
  // The kernel prints the address as the number that its bytes make in the host's order.
  entry.m_Address = ntohl(numbers.TakeHex32(':'));
  entry.m_Port = numbers.TakePort();
  entry.m_PeerAddress = ntohl(numbers.TakeHex32(':'));
  entry.m_PeerPort = numbers.TakePort();
  numbers.TakeHex32();     // state
  numbers.TakeHex32(':');  // bytes waiting to be sent
  entry.m_WaitingBytes = numbers.TakeHex32();
  numbers.TakeHex32(':');  // timer
  numbers.Take(16, UINT64_MAX);
  numbers.TakeHex32();  // retransmissions
  entry.m_User = static_cast<uint32_t>(numbers.Take(10, UINT32_MAX));
  numbers.Take(10, UINT32_MAX);  // timeout
  entry.m_Inode = numbers.Take(10, UINT64_MAX);
  return numbers.IsGood();
}

CUdpTable::CUdpTable()
    : m_Fd(LiftDescriptor(open(kTablePath, O_RDONLY | O_CLOEXEC))),
      m_IsComplete(false),
      m_Begin(m_Field),
      m_End(m_Field),
      m_Field() {}

CUdpTable::~CUdpTable() {
  CloseDescriptor(m_Fd);
}

bool CUdpTable::Next(tagUdpEntry& entry) {
  for (const char* line; (line = NextLine()) != nullptr;) {
    if (ParseUdpLine(line, entry)) return true;
  }
  return false;
}

// The next line, terminated; null when there is none. The rest of a line that fills the field
// counts as a line of its own, which is none of the table's.
const char* CUdpTable::NextLine() {
  for (;;) {
    char* const line = m_Begin;
    char* const end =
        static_cast<char*>(std::memchr(line, '\n', static_cast<size_t>(m_End - line)));
    if (end != nullptr) {
      *end = '\0';
      m_Begin = end + 1;
      return line;
    }
    if (m_End == m_Field + kFieldBytes && line == m_Field) {
      *m_End = '\0';
      m_Begin = m_End;
      return line;
    }
    if (!Fill()) return nullptr;
  }
}

// Reads on behind what has not been looked at.
bool CUdpTable::Fill() {
  if (m_Fd == -1 || m_IsComplete) return false;
  const auto kept = static_cast<size_t>(m_End - m_Begin);
  std::memmove(m_Field, m_Begin, kept);
  m_Begin = m_Field;
  m_End = m_Field + kept;
  ssize_t size;
  do {
    size = read(m_Fd, m_End, kFieldBytes - kept);
  } while (size == -1 && errno == EINTR);
  m_IsComplete = size == 0;
  if (size > 0) m_End += size;
  return size > 0;
}

}  // namespace Kelvik
