// Calls of the system that fail on command. In an executable that has CallSeam.cpp, OpenSeam.cpp
// and FailingNew.cpp among its sources and the calls below wrapped by the linker (CMakeLists.txt),
// the library's own calls and its operator new come here first.

#ifndef KELVIK_CALLSEAM_H_
#define KELVIK_CALLSEAM_H_

namespace Kelvik {

enum eCall { kOpen, kWrite, kRename, kFsync, kMalloc, kThread, kCallCount };

// From now on the nth call (1: the next) of that kind by any thread fails with the error, and with
// forGood every later one, until StopFailing. A sync is never done: it only counts.
void FailCall(eCall call, int nth, bool forGood, int error);
void StopFailing();

// Calls of that kind since the last FailCall; those of exempt threads do not count.
int CallsSince(eCall call);

// What the calling thread does until the end of the scope never fails and is not counted: a test's
// own work.
class CExempt {
 public:
  CExempt();
  CExempt(const CExempt&) = delete;
  CExempt& operator=(const CExempt&) = delete;
  ~CExempt();

 private:
  const bool m_Was;
};

}  // namespace Kelvik

#endif  // KELVIK_CALLSEAM_H_
