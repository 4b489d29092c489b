// The list of log files that a configuration file keeps.

#ifndef KELVIK_KELVIKLOG_RINGINDEX_H_
#define KELVIK_KELVIKLOG_RINGINDEX_H_

#include <string>

namespace KelvikLog {

// Gives the library the ring's first count files from the configuration file, which stays as it is.
// For options that win over the file: the library read the list under the file's own count and
// size, and would forget the files beyond, or the size of the one that is continued. After
// Initialize, before the first record.
void RestoreRing(const std::string& config, int count);

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_RINGINDEX_H_
