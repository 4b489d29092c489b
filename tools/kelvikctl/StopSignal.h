// The signals that end or stop the program, as something that can be waited for.

#ifndef KELVIK_KELVIKCTL_STOPSIGNAL_H_
#define KELVIK_KELVIKCTL_STOPSIGNAL_H_

namespace KelvikCtl {

// While it lives SIGINT, SIGTERM, SIGHUP and SIGQUIT, and with catchesStop SIGTSTP, are noted
// instead of obeyed; they interrupt a write. A signal that the parent had ignored stays ignored.
// SIGPIPE is ignored for good: the write fails instead. One at a time.
class CStopSignal {
 public:
  // Throws CFailure when the system refuses.
  explicit CStopSignal(bool catchesStop);
  CStopSignal(const CStopSignal&) = delete;
  CStopSignal& operator=(const CStopSignal&) = delete;
  ~CStopSignal();

  // Becomes readable when a signal has come, and stays so until Take().
  int Descriptor() const;
  bool HasCome() const;
  // A signal that came, once; 0 when there was none. One that ends goes before one that stops.
  int Take();
  // Stops the process as SIGTSTP would have; returns when it goes on.
  void StopNow();
};

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_STOPSIGNAL_H_
