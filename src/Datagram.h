// The wire format of the network console.
//
//   offset  size    field
//   0       2       magic, 0xF951
//   2       2       length of the text in bytes, never 0
//   4       length  text: words separated by blanks, without a terminator
//
// Both numbers are big-endian. One datagram carries one text; nothing is ever sent back.
#ifndef KELVIK_DATAGRAM_H_
#define KELVIK_DATAGRAM_H_

#include <cstddef>
#include <cstdint>

namespace Kelvik {

constexpr uint16_t kDatagramMagic = 0xF951;
constexpr size_t kDatagramBytes = 2048;  // the console receives no more of a datagram
constexpr size_t kDatagramHeadBytes = 4;
constexpr size_t kDatagramTextBytes = kDatagramBytes - kDatagramHeadBytes;

enum class eDatagram {
  kNothing,    // no datagram, or one without a byte: passed over silently
  kTooShort,   // fewer than five bytes
  kBadMagic,   // m_Magic tells which
  kBadLength,  // m_Length is 0 or not what follows the head
  kCommand,    // a text of m_Length bytes at kDatagramHeadBytes
};

struct tagDatagramCheck {
  eDatagram m_Kind;
  uint16_t m_Magic;   // as received; 0 when too short
  uint16_t m_Length;  // as received; 0 when too short
};

// Judges what a receive call returned for a field of kDatagramBytes that was zeros before. A failed
// receive (-1) counts as a datagram with the magic 0.
tagDatagramCheck CheckDatagram(const uint8_t* field, int received);

// Writes the datagram of a text to field (kDatagramBytes). Returns its size; 0, with nothing
// written, when length is 0 or more than kDatagramTextBytes.
size_t PackDatagram(uint8_t* field, const char* text, size_t length);

}  // namespace Kelvik

#endif  // KELVIK_DATAGRAM_H_
