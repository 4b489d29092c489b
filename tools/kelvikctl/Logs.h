// kelvikctl logs: prints the ring of log files that a configuration file lists, and follows it.

#ifndef KELVIK_KELVIKCTL_LOGS_H_
#define KELVIK_KELVIKCTL_LOGS_H_

#include "Options.h"

namespace KelvikCtl {

// Returns when all is printed; with m_IsFollowing when a signal ends it, or when nobody reads the
// output any more.
void PrintLogs(const tagOptions& options);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_LOGS_H_
