// The ring of log files as a configuration file lists it.

#ifndef KELVIK_KELVIKCTL_RINGINDEX_H_
#define KELVIK_KELVIKCTL_RINGINDEX_H_

#include <optional>
#include <string>
#include <vector>

namespace KelvikCtl {

// The paths of the ring's files, from the oldest to the one that is being written: the slots behind
// LogIndex, and around to it. A slot that a lowered LogMaxCount has left behind comes first when
// its file is older than that of the slot before it. No file need be there. Empty when there is no
// entry; nothing when the configuration file cannot be read.
std::optional<std::vector<std::string>> ReadRing(const std::string& config);

// Fails unless the path names a regular file that can be read.
void RequireFile(const std::string& path);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_RINGINDEX_H_
