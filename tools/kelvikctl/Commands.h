// What kelvikctl's commands do.

#ifndef KELVIK_KELVIKCTL_COMMANDS_H_
#define KELVIK_KELVIKCTL_COMMANDS_H_

#include "Options.h"

namespace KelvikCtl {

// Does what the options say and returns the exit code; throws CFailure when it cannot be done.
int RunCommand(const tagOptions& options);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_COMMANDS_H_
