// The system log as a list. In an executable that links kelvik_syslog_capture every call of syslog
// ends here, and nothing reaches the machine's own log.

#ifndef KELVIK_SYSLOGCAPTURE_H_
#define KELVIK_SYSLOGCAPTURE_H_

#include <cstddef>
#include <string>
#include <vector>

namespace Kelvik {

struct tagSyslogRecord {
  int m_Priority;
  std::string m_Text;
};

// All threads may call these at any time.
class CSyslogCapture {
 public:
  static std::vector<tagSyslogRecord> Records();
  static std::size_t Count();
  static void Clear();
  // How often openlog was called since the start or the last Clear.
  static int OpenlogCalls();
};

}  // namespace Kelvik

#endif  // KELVIK_SYSLOGCAPTURE_H_
