// The quick way to the context for code that runs once a record.
#ifndef KELVIK_CONTEXT_H_
#define KELVIK_CONTEXT_H_

#include "Global.h"
#include "Relaxed.h"

namespace Kelvik {

// The context once it has been made, else null. Set by CGlobal::Instance() alone.
extern CGlobal* g_Context __attribute__((visibility("hidden")));

// As CGlobal::Instance(), without its call and guard once the context exists.
inline CGlobal* Context() {
  CGlobal* context = AcquireLoad(g_Context);
  return context != nullptr ? context : CGlobal::Instance();
}

inline const tagAttribute* GlobalSettings() {
  return Context()->GetAttribute();
}

// The settings that a module's records go by; null: the global ones.
inline const tagAttribute* ModuleSettings(const char* module) {
  CGlobal* global = Context();
  return module == nullptr ? global->GetAttribute() : global->GetAttribute(module);
}

// In a child made by fork(), where a thread that was inside ConfigFileInitialize may not exist.
void FreeInitializeInChild();

}  // namespace Kelvik

#endif  // KELVIK_CONTEXT_H_
