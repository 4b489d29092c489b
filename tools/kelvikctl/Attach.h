// "attach": the process's terminal output on this shell for a while.

#ifndef KELVIK_KELVIKCTL_ATTACH_H_
#define KELVIK_KELVIKCTL_ATTACH_H_

#include "Options.h"
#include "Process.h"

namespace KelvikCtl {

// Sends the process's standard output to a pseudo-terminal and prints what comes from there, until
// a signal, the end of --for, or the process ends it. Before it returns, throws or stops (SIGTSTP)
// the process has been told to send its output back ("-console"), and has closed the
// pseudo-terminal or not done so in time (throws CFailure). After a stop it attaches anew.
void Attach(CProcess& process, const tagOptions& options);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_ATTACH_H_
