// What is to be said about the lines of a configuration file.

#ifndef KELVIK_KELVIKCTL_CONFIGCHECK_H_
#define KELVIK_KELVIKCTL_CONFIGCHECK_H_

#include <string>
#include <vector>

namespace KelvikCtl {

struct tagFinding {
  int m_Line;  // from 1
  std::string m_Text;
};

// Unknown keys, values that are ignored or taken for others, and what a save would drop or move, in
// the order of the lines. The text is a whole file.
std::vector<tagFinding> CheckConfig(const std::string& text);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_CONFIGCHECK_H_
