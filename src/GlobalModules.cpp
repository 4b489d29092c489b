// The modules: registration, and the lookup of the settings that apply to a name.
//
// A record asks for its module's settings, and which module that is takes a walk through all of
// them. So the names that were asked for are kept with their answers (m_Known): the first 256 that
// are shorter than 24 bytes, for good. Whoever registers a module corrects the answers that it
// changes, so a reader has nothing to check but the letters of the name. It finds the place of a
// name by its address (m_Hints), since the same text mostly comes from the same place, and else by
// its letters (m_Buckets). No memory is allocated for it, no thread's own storage is used, and a
// reader takes no lock.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "Global.h"
#include "Kelvik.h"
#include "LevelGate.h"
#include "Relaxed.h"
#include "ScopeLock.h"
#include "TextMatch.h"

namespace Kelvik {

tagAttribute* CGlobal::FindAttribute(const char* module) {
  const tagAttribute* known;
  return tagLevelGate::FindByAddress(*this, module, known) ? const_cast<tagAttribute*>(known)
                                                           : FindByLetters(module);
}

// For a name that does not stand where its address says.
tagAttribute* CGlobal::FindByLetters(const char* module) {
  uint32_t hash = 0;
  size_t length = 0;
  for (; module[length] != '\0'; ++length) {
    if (length == kKnownNameBytes - 1) return WalkModules(module);
    hash = hash * 31 + static_cast<unsigned char>(module[length]);
  }
  tagKnownName*& bucket = m_Buckets[hash % kKnownBuckets];
  tagKnownName* known = AcquireLoad(bucket);
  while (known != nullptr && std::strcmp(known->m_Name, module) != 0)
    known = known->m_Next;
  if (known == nullptr) {
    // Against registrations, which a walk outside could miss. Whoever finds it taken asks again.
    if (m_ModuleMutex.trylock() != eResultSuccess) return WalkModules(module);
    known = AddKnownName(module, length, bucket);
    m_ModuleMutex.unlock();
    if (known == nullptr) return WalkModules(module);
  }
  ReleaseStore(m_Hints[tagLevelGate::HintIndex(module)], known);
  return AcquireLoad(known->m_Attribute);
}

// The empty name is the first, and every hint's until there is a better one: so none is null.
void CGlobal::AddEmptyName() {
  tagKnownName* empty = AddKnownName("", 0, m_Buckets[0]);
  for (tagKnownName*& hint : m_Hints)
    hint = empty;
}

// Returns null when there is no room. Caller holds m_ModuleMutex.
CGlobal::tagKnownName* CGlobal::AddKnownName(const char* module, size_t length,
                                             tagKnownName*& bucket) {
  const uint32_t place = m_KnownCount;
  if (place == kKnownNames) return nullptr;
  // Taken first: a signal handler that logs may add a name of its own from here on.
  RelaxedStore(m_KnownCount, place + 1);
  tagKnownName& known = m_Known[place];
  std::memcpy(known.m_Name, module, length + 1);
  known.m_Attribute = WalkModules(module);
  known.m_Next = bucket;
  ReleaseStore(bucket, &known);
  return &known;
}

tagAttribute* CGlobal::WalkModules(const char* module) {
  for (const tagModuleNode* node = FirstModule(); node != nullptr; node = NextModule(node)) {
    if (ContainsIgnoreCase(node->m_Name, module)) return node->m_Attribute;
  }
  return &m_Attribute;
}

bool CGlobal::IsRegistered(const char* module) const {
  const tagModuleNode* node = FirstModule();
  while (node != nullptr && std::strcmp(node->m_Name, module) != 0)
    node = NextModule(node);
  return node != nullptr;
}

int CGlobal::InsertModuleName(const char* module, const char* version) {
  if (module == nullptr) return eResultInvalid;
  try {
    const std::string name(module);
    if (IsRegistered(module)) return eResultInvalid;
    // Read without the lock: a file is read, and text printed, on the way.
    tagAttribute snapshot;
    CopyAttribute(snapshot);
    ReadAttributeByConfigFile(module, snapshot, version == nullptr ? "" : version);
    auto node = std::make_unique<tagModuleNode>();
    const CScopeLock guard(m_ModuleMutex);
    const auto inserted = m_ModuleAttribute.emplace(name, snapshot);
    if (!inserted.second) return eResultInvalid;
    node->m_Name = inserted.first->first.c_str();
    node->m_Attribute = &inserted.first->second;
    PublishModule(node.release());
    return eResultSuccess;
  } catch (const std::bad_alloc&) {
    return eResultFailure;
  }
}

// Puts the module into the readers' list, and then into the answers that it changes. The node is
// complete before a reader can meet it, and none is ever taken out. Caller holds m_ModuleMutex.
void CGlobal::PublishModule(tagModuleNode* node) {
  tagModuleNode** link = &m_FirstModule;
  while (*link != nullptr && std::strcmp((*link)->m_Name, node->m_Name) < 0) {
    link = &(*link)->m_Next;
  }
  node->m_Next = *link;
  ReleaseStore(*link, node);
  for (uint32_t i = 0; i < m_KnownCount; ++i) {
    tagKnownName& known = m_Known[i];
    if (ContainsIgnoreCase(node->m_Name, known.m_Name)) {
      ReleaseStore(known.m_Attribute, WalkModules(known.m_Name));
    }
  }
}

const CGlobal::tagModuleNode* CGlobal::NextModule(const tagModuleNode* node) {
  return AcquireLoad(node->m_Next);
}

void CGlobal::FreeModules() {
  while (m_FirstModule != nullptr) {
    tagModuleNode* next = m_FirstModule->m_Next;
    delete m_FirstModule;
    m_FirstModule = next;
  }
  m_ModuleAttribute.clear();
}

// Nothing is ever removed: a module that is gone could come back, and readers hold its record. The
// results are kept as applications know them, inverted as they are.
int CGlobal::PopModuleName(const char* module) {
  if (module == nullptr) return eResultInvalid;
  return IsRegistered(module) ? eResultInvalid : eResultSuccess;
}

}  // namespace Kelvik
