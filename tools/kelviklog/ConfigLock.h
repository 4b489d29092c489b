// Keeps two instances from using one configuration file, and so one ring, at a time.

#ifndef KELVIK_KELVIKLOG_CONFIGLOCK_H_
#define KELVIK_KELVIKLOG_CONFIGLOCK_H_

#include <string>

namespace KelvikLog {

// The lock is on a file beside the configuration file, "<path>.lock", since the configuration file
// itself is replaced by each save. The system gives the lock back when the process ends, however it
// ends; the file is removed at the end of the scope, and a left-over one does no harm.
class CConfigLock {
 public:
  CConfigLock() = default;
  CConfigLock(const CConfigLock&) = delete;
  CConfigLock& operator=(const CConfigLock&) = delete;
  ~CConfigLock();

  // Takes the lock of this configuration file, which need not exist, without waiting. Returns
  // false, with the reason, when another process has it, when path names no file, or when the lock
  // file cannot be made.
  bool Take(const std::string& path, std::string& problem);

 private:
  std::string m_LockPath;
  int m_Fd = -1;
};

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_CONFIGLOCK_H_
