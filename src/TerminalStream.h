// Standard output as the records' stream. It is the application's as well, so everything goes
// through it, under its own lock where more than one piece must stay together.
#ifndef KELVIK_TERMINALSTREAM_H_
#define KELVIK_TERMINALSTREAM_H_

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace Kelvik {

// The colour of nearly every record, and what ends every other one.
inline constexpr char kColourReset[] = "\033[0m";

// Holds standard output's own lock, so that no other thread's text comes in between.
class CStreamGuard {
 public:
  CStreamGuard() { ::flockfile(stdout); }
  ~CStreamGuard() { ::funlockfile(stdout); }
  CStreamGuard(const CStreamGuard&) = delete;
  CStreamGuard& operator=(const CStreamGuard&) = delete;
};

// Caller holds the stream's lock, or writes one piece only.
inline bool PrintPiece(const char* text, size_t length) {
  return std::fwrite(text, 1, length, stdout) == length;
}

inline bool PrintText(const char* text) {
  return PrintPiece(text, std::strlen(text));
}

// A text in its colour, in pieces. Caller holds the stream's lock. Returns false when the stream
// does not take it all.
bool PrintColoured(const char* colour, const char* text);

}  // namespace Kelvik

#endif  // KELVIK_TERMINALSTREAM_H_
