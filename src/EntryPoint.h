// The bodies behind the exported functions, one for both families. What a family says in its
// reports of bad arguments comes in as data. The exported functions themselves are never called
// from inside the library: a program may have functions of the same names.

#ifndef KELVIK_ENTRYPOINT_H_
#define KELVIK_ENTRYPOINT_H_

#include <cstdarg>
#include <cstdint>
#include <exception>

#include "Global.h"
#include "Kelvik.h"
#include "OutputInternal.h"

namespace Kelvik {

// What the report of a function's bad argument carries.
struct tagShell {
  const char* m_Function;  // exported name
  uint16_t m_Line;         // line number
  bool m_IsPrefixed;       // the prefixed family's, whose source file has a name of its own
};

// Runs body, which returns a result code, for an exported function, without letting an exception
// out into C. Only std::exception is held back: the unwinding of a cancelled thread must go on.
template <class tBody>
inline int Sheltered(tBody body) {
  try {
    return body();
  } catch (const std::exception&) {
    return eResultFailure;
  }
}

// Runs body, which throws nothing, but not at all once the context has ended.
template <class tBody>
int WhileAlive(tBody body) {
  return CGlobal::IsEnded() ? static_cast<int>(eResultFailure) : body();
}

// The same for a body that may throw.
template <class tBody>
int Guarded(tBody body) {
  return WhileAlive([&]() -> int { return Sheltered(body); });
}

// KLog and KLogV1. The caller ends arguments with va_end.
int EntryLog(const tagShell& shell, eLogLevel level, const char* module, const char* title,
             const char* format, va_list arguments);
int EntryLog(const tagShell& shell, eLogLevel level, const char* module, const char* title,
             const tagSourcePlace& place, const char* format, va_list arguments);

// KLogs and KLogsV1; place is null for KLogs.
int EntryLogs(const tagShell& shell, eLogLevel level, const char* module, const char* title,
              const tagSourcePlace* place, const char* data, int length);

int EntryStateRegister(const char* module, const char* title, KelvikStateCallback callback,
                       void* context);
int EntrySetParamRegister(const char* module, const char* title, KelvikParamCallback callback,
                          void* context);
int EntryStateUnregister(const char* module, const char* title);
int EntrySetParamUnregister(const char* module, const char* title);

int EntryRegisterModule(const tagShell& shell, const char* module, const char* version);
int EntryUnregisterModule(const tagShell& shell, const char* module);

int EntryInitialize();
int EntrySetConfigFilePath(const tagShell& shell, const char* path);
int EntrySetLogFilePath(const tagShell& shell, const char* path);
int EntryWriteBuffer();
int EntryClearFileInfo();
int EntryConsoleCreate(const char* address, unsigned int port);
int EntryConsoleDestroy();

}  // namespace Kelvik

#endif  // KELVIK_ENTRYPOINT_H_
