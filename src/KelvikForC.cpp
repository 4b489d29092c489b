// The prefixed family. Only names, line numbers and va_list handling: the bodies are
// EntryPoint.cpp and AttributeRequest.cpp. The line numbers are part of the messages, whatever
// stands on the lines of this file. Nothing here may need Kelvik.cpp: a program that links the
// static library may have functions with the plain names.

#define KELVIK_NO_PLAIN_NAMES
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

constexpr bool kIsPrefixed = true;

constexpr tagShell kLogShell = {"Kelvik_KLog", 45, kIsPrefixed};
constexpr tagShell kLogV1Shell = {"Kelvik_KLogV1", 68, kIsPrefixed};
constexpr tagShell kLogsShell = {"Kelvik_KLogs", 109, kIsPrefixed};
constexpr tagShell kLogsV1Shell = {"Kelvik_KLogsV1", 124, kIsPrefixed};
constexpr tagShell kRegisterModuleShell = {"Kelvik_RegisterModule", 509, kIsPrefixed};
constexpr tagShell kUnregisterModuleShell = {"Kelvik_UnregisterModule", 522, kIsPrefixed};
constexpr tagShell kSetConfigFilePathShell = {"Kelvik_SetConfigFilePath", 543, kIsPrefixed};
constexpr tagShell kSetLogFilePathShell = {"Kelvik_SetLogFilePath", 556, kIsPrefixed};

}  // namespace

KELVIK_UNGUARDED_FRAME int Kelvik_KLog(eLogLevel level, const char* module, const char* title,
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

KELVIK_UNGUARDED_FRAME int Kelvik_KLogV1(eLogLevel level, const char* module, const char* title,
                                         const char* file, const char* func, int line,
                                         const char* format, ...) {
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

int Kelvik_KLogs(eLogLevel level, const char* module, const char* title, const char* data,
                 int length) {
  return Kelvik::EntryLogs(kLogsShell, level, module, title, nullptr, data, length);
}

int Kelvik_KLogsV1(eLogLevel level, const char* module, const char* title, const char* file,
                   const char* func, int line, const char* data, int length) {
  const tagSourcePlace place = {file, func, line};
  return Kelvik::EntryLogs(kLogsV1Shell, level, module, title, &place, data, length);
}

int Kelvik_ModuleStateRegister(const char* module, const char* title, KelvikStateCallback callback,
                               void* context) {
  return Kelvik::EntryStateRegister(module, title, callback, context);
}

int Kelvik_ModuleSetParamRegister(const char* module, const char* title,
                                  KelvikParamCallback callback, void* context) {
  return Kelvik::EntrySetParamRegister(module, title, callback, context);
}

int Kelvik_ModuleStateUnregister(const char* module, const char* title) {
  return Kelvik::EntryStateUnregister(module, title);
}

int Kelvik_ModuleSetParamUnregister(const char* module, const char* title) {
  return Kelvik::EntrySetParamUnregister(module, title);
}

int Kelvik_SetAttributeByModule(int kind, int option, const void* value, int length,
                                const char* module) {
  return Kelvik::RequestAttributeByModule(Kelvik::kPrefixedRequestShell, kind, option, value,
                                          length, module);
}

int Kelvik_SetAttribute(int kind, int option, const void* value, int length) {
  return Kelvik::RequestAttribute(Kelvik::kPrefixedRequestShell, kind, option, value, length);
}

int Kelvik_RegisterModule(const char* module, const char* version) {
  return Kelvik::EntryRegisterModule(kRegisterModuleShell, module, version);
}

int Kelvik_UnregisterModule(const char* module) {
  return Kelvik::EntryUnregisterModule(kUnregisterModuleShell, module);
}

int Kelvik_Initialize(void) {
  return Kelvik::EntryInitialize();
}

int Kelvik_SetConfigFilePath(const char* path) {
  return Kelvik::EntrySetConfigFilePath(kSetConfigFilePathShell, path);
}

int Kelvik_SetLogFilePath(const char* path) {
  return Kelvik::EntrySetLogFilePath(kSetLogFilePathShell, path);
}

int Kelvik_WriteBufferContent2File(void) {
  return Kelvik::EntryWriteBuffer();
}

int Kelvik_ClearFileInfo(void) {
  return Kelvik::EntryClearFileInfo();
}

int Kelvik_NetworkConsoleCreate(const char* address, unsigned int port) {
  return Kelvik::EntryConsoleCreate(address, port);
}

int Kelvik_NetworkConsoleDestroy(void) {
  return Kelvik::EntryConsoleDestroy();
}
