// Bytes at any address. memcpy of a few bytes is a call where the compiler works for small code;
// these never are.
#ifndef KELVIK_COPYBYTES_H_
#define KELVIK_COPYBYTES_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Kelvik {

template <class tagWord>
struct [[gnu::packed, gnu::may_alias]] tagUnaligned {
  tagWord m_Word;
};

template <class tagWord>
inline tagWord LoadUnaligned(const char* from) {
  return reinterpret_cast<const tagUnaligned<tagWord>*>(from)->m_Word;
}

template <class tagWord>
inline void StoreUnaligned(char* to, tagWord word) {  // NOLINT(readability-non-const-parameter)
  reinterpret_cast<tagUnaligned<tagWord>*>(to)->m_Word = word;
}

// Copies a text that mostly is short. The fields do not overlap.
inline void CopyBytes(char* to, const char* from, size_t count) {
  if (count > 16) {
    memcpy(to, from, count);
  } else if (count >= 8) {
    const auto first = LoadUnaligned<uint64_t>(from);
    const auto last = LoadUnaligned<uint64_t>(from + count - 8);
    StoreUnaligned(to, first);
    StoreUnaligned(to + count - 8, last);
  } else if (count >= 4) {
    const auto first = LoadUnaligned<uint32_t>(from);
    const auto last = LoadUnaligned<uint32_t>(from + count - 4);
    StoreUnaligned(to, first);
    StoreUnaligned(to + count - 4, last);
  } else if (count != 0) {
    to[0] = from[0];
    to[count / 2] = from[count / 2];
    to[count - 1] = from[count - 1];
  }
}

}  // namespace Kelvik

#endif  // KELVIK_COPYBYTES_H_
