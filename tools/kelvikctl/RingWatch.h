// Waits until there may be something new in a ring of log files.

#ifndef KELVIK_KELVIKCTL_RINGWATCH_H_
#define KELVIK_KELVIKCTL_RINGWATCH_H_

#include <string>

namespace KelvikCtl {

// An alarm clock and no more: whoever is woken looks for himself, and where the system tells of no
// changes, as for files of another machine, the wait ends by its limit.
class CRingWatch {
 public:
  // config: the configuration file, which exists. stopFd: ends every wait when it is readable.
  CRingWatch(const std::string& config, int stopFd);
  CRingWatch(const CRingWatch&) = delete;
  CRingWatch& operator=(const CRingWatch&) = delete;
  ~CRingWatch();

  // The open file that grows; -1: none.
  void Follow(int fd);

  // Waits until the configuration file has been saved, the file has grown or limitMs milliseconds
  // have passed. False when the program should end: it was told to, or nobody reads its output.
  bool Wait(int limitMs);

 private:
  enum class eWoken { kStop, kSaved, kGrown, kTimeOut };
  eWoken Poll(int limitMs, bool alsoGrown);

  const int m_StopFd;
  const int m_SavedFd;  // inotify; -1 where there is none
  const int m_GrownFd;
  int m_File = -1;   // that is followed
  int m_Watch = -1;  // its watch
};

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_RINGWATCH_H_
