// kelvikctl check: reads a configuration file and tells what is wrong in it.

#ifndef KELVIK_KELVIKCTL_CHECKFILE_H_
#define KELVIK_KELVIKCTL_CHECKFILE_H_

#include <string>

namespace KelvikCtl {

// Prints a line "path:number: what" for each finding. Returns the exit code: kExitDone when there
// is none, else kExitRefused. Throws CFailure when the file cannot be read.
int CheckFile(const std::string& path);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_CHECKFILE_H_
