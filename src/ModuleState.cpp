#include "ModuleState.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "Kelvik.h"
#include "ScopeLock.h"

namespace Kelvik {
namespace {

// Both lists hold the same record; the detour over void (*)() is the cast that compilers accept as
// meant.
DisplayCallback ToStored(ParameterCallback callback) {
  return reinterpret_cast<DisplayCallback>(reinterpret_cast<void (*)()>(callback));
}

ParameterCallback FromStored(DisplayCallback callback) {
  return reinterpret_cast<ParameterCallback>(reinterpret_cast<void (*)()>(callback));
}

bool Fits(const char* name) {
  return name != nullptr && strnlen(name, kModuleNameBytes) < kModuleNameBytes;
}

// The first record of the pair, or the list's end.
auto FirstMatch(std::list<tagModule>& list, const char* module, const char* title) {
  return std::find_if(list.begin(), list.end(), [=](const tagModule& record) {
    return strcasecmp(record.m_Module, module) == 0 && strcasecmp(record.m_Title, title) == 0;
  });
}

}  // namespace

CModuleState::CModuleState() {
  m_Mutex.create();
  Initialize();
}

CModuleState::~CModuleState() {
  Initialize();
  {
    const CScopeLock guard(m_Mutex);
    m_ParamModules.clear();
  }
  m_Mutex.destroy();
}

int CModuleState::Register(const char* module, const char* title, DisplayCallback callback,
                           void* param) {
  return Add(m_Modules, module, title, callback, param);
}

int CModuleState::SetParamRegister(const char* module, const char* title,
                                   ParameterCallback callback, void* param) {
  return Add(m_ParamModules, module, title, ToStored(callback), param);
}

int CModuleState::Unregister(const char* module, const char* title) {
  return Remove(m_Modules, module, title);
}

int CModuleState::SetParamUnregister(const char* module, const char* title) {
  return Remove(m_ParamModules, module, title);
}

int CModuleState::Log(int fd, const char* module, const char* title) {
  DisplayCallback callback = nullptr;
  void* param = nullptr;
  if (!Find(m_Modules, module, title, &callback, &param)) return eResultFailure;
  callback(fd, module, title, param);
  return eResultSuccess;
}

int CModuleState::Set(const char* module, const char* title, int value) {
  DisplayCallback callback = nullptr;
  void* param = nullptr;
  if (!Find(m_ParamModules, module, title, &callback, &param)) return eResultFailure;
  FromStored(callback)(value, param);
  return eResultSuccess;
}

std::list<tagModule> CModuleState::CopyModules() {
  const CScopeLock guard(m_Mutex);
  try {
    return m_Modules;
  } catch (const std::bad_alloc&) {
    return {};
  }
}

int CModuleState::Initialize() {
  std::list<tagModule> dropped;
  {
    const CScopeLock guard(m_Mutex);
    dropped.swap(m_Modules);
  }
  return eResultSuccess;
}

int CModuleState::Add(std::list<tagModule>& list, const char* module, const char* title,
                      DisplayCallback callback, void* param) {
  if (!Fits(module) || !Fits(title) || callback == nullptr) return eResultInvalid;
  // Allocated before the lock is taken and moved over whole, so that nothing fails halfway.
  std::list<tagModule> fresh;
  try {
    fresh.emplace_back();
  } catch (const std::bad_alloc&) {
    return eResultFailure;
  }
  tagModule& record = fresh.front();
  memset(&record, 0, sizeof(record));
  memcpy(record.m_Module, module, strlen(module));
  memcpy(record.m_Title, title, strlen(title));
  record.m_Callback = callback;
  record.m_Param = param;
  const CScopeLock guard(m_Mutex);
  if (FirstMatch(list, module, title) != list.end()) return eResultExists;
  list.splice(list.end(), fresh);
  return eResultSuccess;
}

int CModuleState::Remove(std::list<tagModule>& list, const char* module, const char* title) {
  if (module == nullptr || title == nullptr) return eResultFailure;
  std::list<tagModule> removed;
  const CScopeLock guard(m_Mutex);
  const auto found = FirstMatch(list, module, title);
  if (found == list.end()) return eResultFailure;
  removed.splice(removed.end(), list, found);
  return eResultSuccess;
}

// Copies callback and parameter of the first match. Returns whether there is one.
bool CModuleState::Find(std::list<tagModule>& list, const char* module, const char* title,
                        DisplayCallback* callback, void** param) {
  if (module == nullptr || title == nullptr) return false;
  const CScopeLock guard(m_Mutex);
  const auto found = FirstMatch(list, module, title);
  if (found == list.end()) return false;
  *callback = found->m_Callback;
  *param = found->m_Param;
  return true;
}

void CModuleState::BeforeFork() {
  m_Mutex.lock();
}

void CModuleState::AfterForkInParent() {
  m_Mutex.unlock();
}

void CModuleState::AfterForkInChild() {
  m_Mutex.AfterForkInChild();
}

}  // namespace Kelvik
