// What a process's own three displays print, read back. The text comes from another process and is
// believed nothing: any bytes give a result or none.

#ifndef KELVIK_KELVIKCTL_STATUSTEXT_H_
#define KELVIK_KELVIKCTL_STATUSTEXT_H_

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Words.h"

namespace KelvikCtl {

// The display "Kelvik" / "attribute".
struct tagStatus {
  std::array<bool, kSwitchCount> m_On = {};
  std::string m_Path;  // where log files go, with the date in it
};

// Nothing when the text is not exactly such a display.
std::optional<tagStatus> ParseStatus(const std::string& text);

// The display "Kelvik" / "module": names in byte order. A name may hold any character.
std::optional<std::vector<std::string>> ParseModules(const std::string& text);

// The display "Kelvik" / "cmd": (module, title) in the order of registration.
using DisplayNames = std::vector<std::pair<std::string, std::string>>;
std::optional<DisplayNames> ParseDisplays(const std::string& text);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_STATUSTEXT_H_
