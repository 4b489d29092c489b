// The callbacks that an application hangs on the console, by module and title.
#ifndef KELVIK_MODULESTATE_H_
#define KELVIK_MODULESTATE_H_

#include <list>

#include "Export.h"
#include "Mutex.h"

namespace Kelvik {

constexpr int kModuleNameBytes = 128;  // bytes of a module's name or a title with its NUL

// Prints the state of (module, title) on the terminal behind fd, which stays the caller's. The
// result is ignored.
using DisplayCallback = int (*)(int fd, const char* module, const char* title, void* param);

// Takes a value from the console. The result is ignored.
using ParameterCallback = int (*)(int value, void* param);

// One registration.
struct tagModule {
  char m_Module[kModuleNameBytes];  // terminated, zero-filled
  char m_Title[kModuleNameBytes];   // terminated, zero-filled
  DisplayCallback m_Callback;       // in the list of parameters: a ParameterCallback, cast
  void* m_Param;                    // the application's, handed back to the callback
};

// Two independent lists of callbacks, displays and parameters, each in the order of registration.
// Names are compared without regard to letter case; the first match counts. A null name matches
// nothing.
//
// Any thread may call any method but GetModules at any time, also from inside a callback. No lock
// is held while a callback runs. A callback that has begun runs to its end even when it is
// unregistered meanwhile, so what param points at must outlive it.
//
// Results are eResult codes; nothing is logged or thrown.
class KELVIK_API CModuleState {
 public:
  CModuleState();
  CModuleState(const CModuleState&) = delete;
  CModuleState& operator=(const CModuleState&) = delete;
  ~CModuleState();

  // Adds a display callback; the names are copied. Returns eResultSuccess; eResultExists when the
  // pair has one; eResultInvalid for a null argument or a name of kModuleNameBytes characters or
  // more; eResultFailure without memory. Nothing is stored unless it returns eResultSuccess.
  int Register(const char* module, const char* title, DisplayCallback callback, void* param);

  // The same for a parameter callback.
  int SetParamRegister(const char* module, const char* title, ParameterCallback callback,
                       void* param);

  // Removes a display callback. Returns eResultSuccess, or eResultFailure when the pair has none.
  int Unregister(const char* module, const char* title);

  // The same for a parameter callback.
  int SetParamUnregister(const char* module, const char* title);

  // Runs the display callback of the pair with the names as given here. Returns eResultSuccess
  // whatever the callback returned, or eResultFailure when the pair has none.
  int Log(int fd, const char* module, const char* title);

  // Runs the parameter callback of the pair. Returns as Log.
  int Set(const char* module, const char* title, int value);

  // The display list itself, for a caller that knows that no other thread uses this object.
  std::list<tagModule>& GetModules() { return m_Modules; }

  // A copy of the display list as it stands; empty without memory.
  KELVIK_INTERNAL std::list<tagModule> CopyModules();

  // Drops the display callbacks; the parameter callbacks stay. Returns eResultSuccess.
  int Initialize();

  // Around fork(): the lists are whole in the child.
  KELVIK_INTERNAL void BeforeFork();
  KELVIK_INTERNAL void AfterForkInParent();
  KELVIK_INTERNAL void AfterForkInChild();

 private:
  KELVIK_INTERNAL int Add(std::list<tagModule>& list, const char* module, const char* title,
                          DisplayCallback callback, void* param);
  KELVIK_INTERNAL int Remove(std::list<tagModule>& list, const char* module, const char* title);
  KELVIK_INTERNAL bool Find(std::list<tagModule>& list, const char* module, const char* title,
                            DisplayCallback* callback, void** param);

  std::list<tagModule> m_Modules;       // displays; guarded by m_Mutex
  std::list<tagModule> m_ParamModules;  // parameters; guarded by m_Mutex
  CMutex m_Mutex;                       // never held while a callback runs
};

}  // namespace Kelvik

#endif  // KELVIK_MODULESTATE_H_
