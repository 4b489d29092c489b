// "watch": a display again and again.

#ifndef KELVIK_KELVIKCTL_WATCH_H_
#define KELVIK_KELVIKCTL_WATCH_H_

#include "Options.h"
#include "Process.h"

namespace KelvikCtl {

// Prints the display every m_EveryMs milliseconds until a signal comes or nobody reads: on a
// terminal in place of the one before, else one after the other with an empty line between them.
void Watch(CProcess& process, const tagOptions& options);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_WATCH_H_
