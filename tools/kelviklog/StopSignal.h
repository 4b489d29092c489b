// The wish to end: SIGTERM, SIGINT and SIGHUP.

#ifndef KELVIK_KELVIKLOG_STOPSIGNAL_H_
#define KELVIK_KELVIKLOG_STOPSIGNAL_H_

#include <string>

namespace KelvikLog {

// Remembers the first of the signals, without interrupting a write; the same signal once more ends
// the process at once, so that one that is stuck in a write can be ended. A signal that the parent
// had ignored stays ignored. SIGPIPE and SIGXFSZ are ignored: the writes fail instead. One per
// process; what it sets lasts until the process ends.
class CStopSignal {
 public:
  // Returns false, with the reason, when the system refuses.
  bool Install(std::string& problem);

  // Becomes readable, and stays so, when a signal has come.
  int Descriptor() const { return m_ReadFd; }

 private:
  int m_ReadFd = -1;
};

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_STOPSIGNAL_H_
