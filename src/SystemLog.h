// The syslog sink.
#ifndef KELVIK_SYSTEMLOG_H_
#define KELVIK_SYSTEMLOG_H_

#include <cstdint>

#include "Kelvik.h"

namespace Kelvik {

// Gives the text to syslog and counts it. Returns false for an invalid level, which is reported as
// of that line.
bool WriteSystemLog(eLogLevel level, const char* text, int reportLine, uintptr_t& counter);

}  // namespace Kelvik

#endif  // KELVIK_SYSTEMLOG_H_
