// The commands that change the process: each is confirmed by a reading where the status shows it,
// and else by an answer that comes after it.

#ifndef KELVIK_KELVIKCTL_CHANGES_H_
#define KELVIK_KELVIKCTL_CHANGES_H_

#include "Options.h"
#include "Process.h"

namespace KelvikCtl {

// All throw CFailure when it cannot be done.
void ChangeSwitch(CProcess& process, const tagOptions& options);
void ChangeLimit(CProcess& process, const tagOptions& options);
void ChangePath(CProcess& process, const tagOptions& options);
void ChangeFocus(CProcess& process, const tagOptions& options);
void ChangeTerminal(CProcess& process, const tagOptions& options);
void SetParameter(CProcess& process, const tagOptions& options);
void SaveSettings(CProcess& process, const tagOptions& options);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_CHANGES_H_
