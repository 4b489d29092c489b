// A fuzz input read piece by piece; past its end every number is 0 and every text is empty.

#ifndef KELVIK_FUZZBYTES_H_
#define KELVIK_FUZZBYTES_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace Kelvik {

class CFuzzBytes {
 public:
  CFuzzBytes(const uint8_t* data, size_t size) : m_Next(data), m_End(data + size) {}

  bool IsAtEnd() const { return m_Next == m_End; }

  uint8_t Byte() { return IsAtEnd() ? uint8_t{0} : *m_Next++; }

  // 0 to count - 1.
  unsigned Pick(unsigned count) { return Byte() % count; }

  // Little-endian, of the given number of bytes, at most 8.
  uint64_t Number(unsigned bytes) {
    uint64_t value = 0;
    for (unsigned index = 0; index < bytes; ++index)
      value |= uint64_t{Byte()} << (8 * index);
    return value;
  }

  // Up to a NUL byte, which is taken too, or to the end.
  std::string Text() {
    std::string text;
    while (!IsAtEnd()) {
      const char byte = static_cast<char>(Byte());
      if (byte == '\0') break;
      text += byte;
    }
    return text;
  }

  // All that is left.
  std::string Rest() {
    std::string text;
    while (!IsAtEnd())
      text += static_cast<char>(Byte());
    return text;
  }

 private:
  const uint8_t* m_Next;
  const uint8_t* m_End;
};

// Ends the run, as a finding, when what must hold does not.
inline void FuzzRequire(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace Kelvik

#endif  // KELVIK_FUZZBYTES_H_
