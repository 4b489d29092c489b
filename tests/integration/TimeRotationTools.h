// Settings for log files that change after a time.

#ifndef KELVIK_TIMEROTATIONTOOLS_H_
#define KELVIK_TIMEROTATIONTOOLS_H_

#include <cstdint>
#include <string>

#include "OutputTools.h"

namespace Kelvik {

// Files of so many seconds in a ring of count, records without a prefix, nothing on the terminal.
// bufferBytes 0: every record is written at once.
inline void UseTime(const std::string& logPath, uint32_t bufferBytes, uint32_t seconds,
                    uint32_t count = 3) {
  UseSize(logPath, bufferBytes, 0, count);
  CGlobal::Instance()->SetLogMaxDuration(seconds);
}

}  // namespace Kelvik

#endif  // KELVIK_TIMEROTATIONTOOLS_H_
