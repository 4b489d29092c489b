#include "Priority.h"

namespace KelvikLog {

bool ReadPriority(const char* line, std::size_t length, eLogLevel& level) {
  static constexpr eLogLevel kLevels[] = {
      eLogLevelFatal,   eLogLevelFatal, eLogLevelFatal, eLogLevelError,
      eLogLevelWarning, eLogLevelInfo,  eLogLevelInfo,  eLogLevelDebug,
  };
  if (length < kPriorityBytes || line[0] != '<' || line[1] < '0' || line[1] > '7' ||
      line[2] != '>') {
    return false;
  }
  level = kLevels[line[1] - '0'];
  return true;
}

}  // namespace KelvikLog
