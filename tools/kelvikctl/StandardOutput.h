// Standard output: our own lines, and bytes that come from a process.

#ifndef KELVIK_KELVIKCTL_STANDARDOUTPUT_H_
#define KELVIK_KELVIKCTL_STANDARDOUTPUT_H_

#include <cstddef>
#include <string>

namespace KelvikCtl {

enum class eWrite { kDone, kStopped, kFailed };

// Writes all bytes as they are, waiting for a reader that is slow. kStopped when, before all was
// written, stopFd (-1: none) became readable or the reader took nothing for waitMs (-1: for ever).
eWrite WriteOut(const char* bytes, std::size_t size, int stopFd, int waitMs = -1);

// A line of ours, at once. Whether it could be written shows at the end (FinishOutput).
void PrintLine(const std::string& line);

// False when standard output has failed. A reader that went away (EPIPE) has seen what it wanted.
bool FinishOutput();

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_STANDARDOUTPUT_H_
