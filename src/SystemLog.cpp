#include "SystemLog.h"

#include <syslog.h>

#include "Relaxed.h"
#include "SelfReport.h"

namespace Kelvik {
namespace {

// Syslog's priority of a level, or -1 for an invalid one.
int Priority(eLogLevel level) {
  switch (level) {
    case eLogLevelDebug:
      return LOG_DEBUG;
    case eLogLevelInfo:
      return LOG_INFO;
    case eLogLevelWarning:
      return LOG_WARNING;
    case eLogLevelError:
      return LOG_ERR;
    case eLogLevelFatal:
      return LOG_CRIT;
  }
  return -1;
}

}  // namespace

bool WriteSystemLog(eLogLevel level, const char* text, int reportLine, uintptr_t& counter) {
  const int priority = Priority(level);
  if (priority == -1) {
    ReportNumber("Output", "Logs", reportLine, "level invalid", static_cast<int>(level));
    return false;
  }
  ::syslog(priority, "%s", text);
  RelaxedAdd(counter, 1);
  return true;
}

}  // namespace Kelvik
