// The "<N>" in front of a line by which syslog and service managers give it a level.

#ifndef KELVIK_KELVIKLOG_PRIORITY_H_
#define KELVIK_KELVIKLOG_PRIORITY_H_

#include <cstddef>

#include "Kelvik.h"

namespace KelvikLog {

// Bytes of a priority, "<0>" to "<7>".
constexpr std::size_t kPriorityBytes = 3;

// Reads the priority that the line begins with: 0 to 2 (emergency, alert, critical) are fatal, 3 is
// error, 4 warning, 5 and 6 (notice, informational) info, 7 debug. Returns false, and leaves level
// alone, when the line begins with anything else. line need not be NUL-terminated.
bool ReadPriority(const char* line, std::size_t length, eLogLevel& level);

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_PRIORITY_H_
