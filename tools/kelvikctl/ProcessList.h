// The processes that an operator can reach.

#ifndef KELVIK_KELVIKCTL_PROCESSLIST_H_
#define KELVIK_KELVIKCTL_PROCESSLIST_H_

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KelvikCtl {

struct tagConsoleProcess {
  pid_t m_Pid;
  uid_t m_User;
  uint16_t m_Port;
  std::string m_Command;  // its words with blanks between them
};

// The processes that have libkelvik.so mapped and an unconnected UDP socket on a loopback address,
// a line for each such socket, in the order of their numbers. A process that is linked with the
// static library is not found, nor one that /proc keeps from this user.
std::vector<tagConsoleProcess> FindConsoleProcesses();

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_PROCESSLIST_H_
