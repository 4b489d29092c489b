#include "Datagram.h"

#include <cstring>

namespace Kelvik {
namespace {

constexpr size_t kMagicOffset = 0;
constexpr size_t kLengthOffset = 2;

uint16_t ReadWord(const uint8_t* bytes) {
  return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

void WriteWord(uint8_t* bytes, size_t value) {
  bytes[0] = static_cast<uint8_t>(value >> 8);
  bytes[1] = static_cast<uint8_t>(value);
}

}  // namespace

tagDatagramCheck CheckDatagram(const uint8_t* field, int received) {
  if (received == 0) return {eDatagram::kNothing, 0, 0};
  // Unsigned on purpose: a failed receive passes for a long datagram, of zeros.
  const auto size = static_cast<unsigned>(received);
  if (size <= kDatagramHeadBytes) return {eDatagram::kTooShort, 0, 0};
  const uint16_t magic = ReadWord(field + kMagicOffset);
  const uint16_t length = ReadWord(field + kLengthOffset);
  if (magic != kDatagramMagic) return {eDatagram::kBadMagic, magic, length};
  if (length == 0 || length != size - kDatagramHeadBytes) {
    return {eDatagram::kBadLength, magic, length};
  }
  return {eDatagram::kCommand, magic, length};
}

size_t PackDatagram(uint8_t* field, const char* text, size_t length) {
  if (length == 0 || length > kDatagramTextBytes) return 0;
  WriteWord(field + kMagicOffset, kDatagramMagic);
  WriteWord(field + kLengthOffset, length);
  std::memcpy(field + kDatagramHeadBytes, text, length);
  return kDatagramHeadBytes + length;
}

}  // namespace Kelvik
