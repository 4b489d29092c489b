#include "Utf8.h"

namespace KelvikLog {

namespace {

// Bytes of the sequence that begins with this byte, 1 for a byte that begins none.
std::size_t SequenceBytes(unsigned char lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 1;
}

bool IsContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

}  // namespace

std::size_t WholeCharacters(const char* text, std::size_t length) {
  // An unfinished sequence has its lead among the last three bytes.
  for (std::size_t back = 1; back <= 3 && back < length; ++back) {
    const auto byte = static_cast<unsigned char>(text[length - back]);
    if (!IsContinuation(byte)) {
      return SequenceBytes(byte) > back ? length - back : length;
    }
  }
  return length;
}

}  // namespace KelvikLog
