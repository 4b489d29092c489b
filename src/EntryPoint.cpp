#include "EntryPoint.h"

#include <cstdint>

#include "Console.h"
#include "Context.h"
#include "ModuleState.h"
#include "Output.h"
#include "SelfReport.h"

namespace Kelvik {

namespace {

bool IsEmpty(const char* text) {
  return text == nullptr || *text == '\0';
}

// Levels are 1 to 5; the one unsigned comparison also refuses 0 and negative values.
bool IsLevel(eLogLevel level) {
  constexpr unsigned kLevels = 5;
  return static_cast<unsigned>(level) - 1u < kLevels;
}

const char* SourceOf(const tagShell& shell) {
  return shell.m_IsPrefixed ? "KelvikForC" : "Kelvik";
}

int RejectLevel(const tagShell& shell, eLogLevel level) {
  ReportNumber(SourceOf(shell), shell.m_Function, shell.m_Line, "level invalid",
               static_cast<int>(level));
  return eResultInvalid;
}

// A report is a record: on its way the program's rotation callback may be called, and throw.
int Reject(const tagShell& shell, const char* message) {
  return Sheltered([&]() -> int {
    ReportMessage(SourceOf(shell), shell.m_Function, shell.m_Line, message);
    return eResultInvalid;
  });
}

COutput& Output() {
  return Context()->GetOutput();
}

CModuleState& ModuleState() {
  return Context()->GetModuleState();
}

CConsole& Console() {
  return Context()->GetConsole();
}

}  // namespace

// The caller's format, checked where the caller is compiled; clang does not see that in a lambda.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

// place is null for a record that was made without one.
int LogRecord(const tagShell& shell, eLogLevel level, const char* module, const char* title,
              const tagSourcePlace* place, const char* format, va_list list) {
  tagArguments arguments(list);
  return Guarded([&]() -> int {
    if (format == nullptr) return eResultInvalid;
    if (!IsLevel(level)) return RejectLevel(shell, level);
    if (place == nullptr) return Output().Log(level, module, title, format, arguments);
    return Output().Log(level, module, title, place->m_File, place->m_Function, place->m_Line,
                        format, arguments);
  });
}

}  // namespace

int EntryLog(const tagShell& shell, eLogLevel level, const char* module, const char* title,
             const char* format, va_list list) {
  return LogRecord(shell, level, module, title, nullptr, format, list);
}

int EntryLog(const tagShell& shell, eLogLevel level, const char* module, const char* title,
             const tagSourcePlace& place, const char* format, va_list list) {
  return LogRecord(shell, level, module, title, &place, format, list);
}

#pragma GCC diagnostic pop

int EntryLogs(const tagShell& shell, eLogLevel level, const char* module, const char* title,
              const tagSourcePlace* place, const char* data, int length) {
  return Guarded([&]() -> int {
    if (data == nullptr || length < 1) return eResultInvalid;
    if (!IsLevel(level)) return RejectLevel(shell, level);
    if (place == nullptr) return Output().Logs(level, module, title, data, length);
    return Output().Logs(level, module, title, place->m_File, place->m_Function, place->m_Line,
                         data, length);
  });
}

int EntryStateRegister(const char* module, const char* title, KelvikStateCallback callback,
                       void* context) {
  return WhileAlive([&]() -> int {
    if (IsEmpty(module) || IsEmpty(title) || callback == nullptr) return eResultInvalid;
    return ModuleState().Register(module, title, callback, context);
  });
}

int EntrySetParamRegister(const char* module, const char* title, KelvikParamCallback callback,
                          void* context) {
  return WhileAlive([&]() -> int {
    if (IsEmpty(module) || IsEmpty(title) || callback == nullptr) return eResultInvalid;
    return ModuleState().SetParamRegister(module, title, callback, context);
  });
}

int EntryStateUnregister(const char* module, const char* title) {
  return WhileAlive([&]() -> int {
    if (IsEmpty(module) || IsEmpty(title)) return eResultInvalid;
    return ModuleState().Unregister(module, title);
  });
}

int EntrySetParamUnregister(const char* module, const char* title) {
  return WhileAlive([&]() -> int {
    if (IsEmpty(module) || IsEmpty(title)) return eResultInvalid;
    return ModuleState().SetParamUnregister(module, title);
  });
}

int EntryRegisterModule(const tagShell& shell, const char* module, const char* version) {
  return Guarded([&]() -> int {
    if (IsEmpty(module)) return Reject(shell, "module invalid");
    // That the module is there already is no failure; that memory ran out is one.
    const int inserted = Context()->InsertModuleName(module, version);
    return inserted == eResultFailure ? eResultFailure : eResultSuccess;
  });
}

int EntryUnregisterModule(const tagShell& shell, const char* module) {
  return WhileAlive([&]() -> int {
    if (IsEmpty(module)) return Reject(shell, "module invalid");
    Context()->PopModuleName(module);
    return eResultSuccess;
  });
}

int EntryInitialize() {
  return Guarded([]() -> int {
    Context()->ConfigFileInitialize();
    return eResultSuccess;
  });
}

int EntrySetConfigFilePath(const tagShell& shell, const char* path) {
  return WhileAlive([&]() -> int {
    if (IsEmpty(path)) return Reject(shell, "path invalid");
    Context()->SetConfigFilePath(path);
    return eResultSuccess;
  });
}

int EntrySetLogFilePath(const tagShell& shell, const char* path) {
  return WhileAlive([&]() -> int {
    if (IsEmpty(path)) return Reject(shell, "path invalid");
    Context()->SetLogFilePath(path);
    return eResultSuccess;
  });
}

int EntryWriteBuffer() {
  return Guarded([]() -> int { return Output().WriteBuffer2File(); });
}

int EntryClearFileInfo() {
  return Guarded([]() -> int { return Output().ClearFileInfo(); });
}

int EntryConsoleCreate(const char* address, unsigned int port) {
  return Guarded([&]() -> int { return Console().Create(address, static_cast<uint16_t>(port)); });
}

int EntryConsoleDestroy() {
  return WhileAlive([]() -> int { return Console().Destroy(); });
}

}  // namespace Kelvik
