// The plain family. Only names, line numbers and va_list handling: the bodies are EntryPoint.cpp
// and AttributeRequest.cpp. The line numbers are part of the messages, whatever stands on the
// lines of this file.

#include "Kelvik.h"

#include <cstdarg>

#include "AttributeRequest.h"
#include "EntryPoint.h"
#include "LevelGate.h"

using Kelvik::CGlobal;
using Kelvik::tagAttribute;
using Kelvik::tagLevelGate;
using Kelvik::tagMessage;
using Kelvik::tagShell;
using Kelvik::tagSourcePlace;

namespace {

constexpr bool kIsPrefixed = false;

constexpr tagShell kLogShell = {"KLog", 47, kIsPrefixed};
constexpr tagShell kLogV1Shell = {"KLogV1", 70, kIsPrefixed};
constexpr tagShell kLogsShell = {"KLogs", 111, kIsPrefixed};
constexpr tagShell kLogsV1Shell = {"KLogsV1", 126, kIsPrefixed};
constexpr tagShell kRegisterModuleShell = {"registerModule", 518, kIsPrefixed};
constexpr tagShell kUnregisterModuleShell = {"UnregisterModule", 531, kIsPrefixed};
constexpr tagShell kSetConfigFilePathShell = {"SetConfigFilePath", 552, kIsPrefixed};
constexpr tagShell kSetLogFilePathShell = {"SetLogFilePath", 565, kIsPrefixed};

}  // namespace

KELVIK_UNGUARDED_FRAME int KLog(eLogLevel level, const char* module, const char* title,
                                const char* format, ...) {
  CGlobal* const global = tagLevelGate::Open(level, format);
  const tagAttribute* settings;
  if (global == nullptr || !tagLevelGate::FindSettings(*global, module, settings)) {
    va_list list;
    va_start(list, format);
    const int result = Kelvik::EntryLog(kLogShell, level, module, title, format, list);
    va_end(list);
    return result;
  }
  if (tagLevelGate::IsDropped(*global, level, *settings)) return eResultDisabled;
  tagMessage message;
  message.m_Format = format;
  message.m_Place = nullptr;
  va_start(message.m_List, format);
  const int result = tagLevelGate::MakeRecord(*global, level, module, title, *settings, message);
  va_end(message.m_List);
  return result;
}

KELVIK_UNGUARDED_FRAME int KLogV1(eLogLevel level, const char* module, const char* title,
                                  const char* file, const char* func, int line, const char* format,
                                  ...) {
  CGlobal* const global = tagLevelGate::Open(level, format);
  const tagSourcePlace place = {file, func, line};
  if (global == nullptr) {
    va_list list;
    va_start(list, format);
    const int result = Kelvik::EntryLog(kLogV1Shell, level, module, title, place, format, list);
    va_end(list);
    return result;
  }
  const tagAttribute& settings = *global->GetAttribute();
  if (tagLevelGate::IsDropped(*global, level, settings)) return eResultDisabled;
  tagMessage message;
  message.m_Format = format;
  message.m_Place = &place;
  va_start(message.m_List, format);
  const int result = tagLevelGate::MakeRecord(*global, level, module, title, settings, message);
  va_end(message.m_List);
  return result;
}

int KLogs(eLogLevel level, const char* module, const char* title, const char* data, int length) {
  return Kelvik::EntryLogs(kLogsShell, level, module, title, nullptr, data, length);
}

int KLogsV1(eLogLevel level, const char* module, const char* title, const char* file,
            const char* func, int line, const char* data, int length) {
  const tagSourcePlace place = {file, func, line};
  return Kelvik::EntryLogs(kLogsV1Shell, level, module, title, &place, data, length);
}

int ModuleStateRegister(const char* module, const char* title, KelvikStateCallback callback,
                        void* context) {
  return Kelvik::EntryStateRegister(module, title, callback, context);
}

int ModuleSetParamRegister(const char* module, const char* title, KelvikParamCallback callback,
                           void* context) {
  return Kelvik::EntrySetParamRegister(module, title, callback, context);
}

int ModuleStateUnregister(const char* module, const char* title) {
  return Kelvik::EntryStateUnregister(module, title);
}

int ModuleSetParamUnregister(const char* module, const char* title) {
  return Kelvik::EntrySetParamUnregister(module, title);
}

int SetAttributeByModule(int kind, int option, const void* value, int length, const char* module) {
  return Kelvik::RequestAttributeByModule(Kelvik::kPlainRequestShell, kind, option, value, length,
                                          module);
}

int SetAttribute(int kind, int option, const void* value, int length) {
  return Kelvik::RequestAttribute(Kelvik::kPlainRequestShell, kind, option, value, length);
}

int registerModule(const char* module, const char* version) {
  return Kelvik::EntryRegisterModule(kRegisterModuleShell, module, version);
}

int UnregisterModule(const char* module) {
  return Kelvik::EntryUnregisterModule(kUnregisterModuleShell, module);
}

int Initialize(void) {
  return Kelvik::EntryInitialize();
}

int SetConfigFilePath(const char* path) {
  return Kelvik::EntrySetConfigFilePath(kSetConfigFilePathShell, path);
}

int SetLogFilePath(const char* path) {
  return Kelvik::EntrySetLogFilePath(kSetLogFilePathShell, path);
}

int WriteBufferContent2File(void) {
  return Kelvik::EntryWriteBuffer();
}

int ClearFileInfo(void) {
  return Kelvik::EntryClearFileInfo();
}

int NetworkConsoleCreate(const char* address, unsigned int port) {
  return Kelvik::EntryConsoleCreate(address, port);
}

int NetworkConsoleDestroy(void) {
  return Kelvik::EntryConsoleDestroy();
}
