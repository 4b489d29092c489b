// What a call that makes a record meets first: whether its level lets it pass at all. Inline, in a
// handful of instructions, and before the arguments are touched, since most records of a program
// that logs much are dropped here.
//
// A gate that finds nothing has not decided anything: the call then takes the long way, which makes
// the checks in their order and reports what is to be reported.
#ifndef KELVIK_LEVELGATE_H_
#define KELVIK_LEVELGATE_H_

#include <cstddef>
#include <cstdint>

#include "Attribute.h"
#include "Context.h"
#include "EntryPoint.h"
#include "Global.h"
#include "Kelvik.h"
#include "Output.h"
#include "Relaxed.h"

namespace Kelvik {

struct tagLevelGate {
  // The context, where it takes records and the call is in order; else null.
  static CGlobal* Open(eLogLevel level, const char* format) {
    constexpr unsigned kLevels = 5;
    CGlobal* global = AcquireLoad(g_Context);
    if (global == nullptr || RelaxedLoad(global->m_Output.m_Ended) != COutput::eLifeOpen ||
        static_cast<unsigned>(level) - 1U >= kLevels || format == nullptr) {
      return nullptr;
    }
    return global;
  }

  // Finds the settings that a record of the module (may be null) goes by, where they are known
  // already.
  static bool FindSettings(const CGlobal& global, const char* module,
                           const tagAttribute*& settings) {
    settings = &global.m_Attribute;
    if (module == nullptr || global.FirstModule() == nullptr) return true;
    return FindByAddress(global, module, settings);
  }

  // Whether the settings have the level (1 to 5) switched off; counts the record that is dropped.
  static bool IsDropped(CGlobal& global, eLogLevel level, const tagAttribute& settings) {
    if ((RelaxedLoad(settings.m_LevelMask) & 1U << level) != 0) return false;
    RelaxedAdd(global.m_Output.m_BelowLevel, 1);
    return true;
  }

  // Makes a record that was not dropped, with the settings that were found.
  static int MakeRecord(CGlobal& global, eLogLevel level, const char* module, const char* title,
                        const tagAttribute& settings, tagMessage& message) {
    return Sheltered([&] { return MakeOpenly(global, level, module, title, settings, message); });
  }

  // The same for a caller who lets an exception pass.
  static int MakeOpenly(CGlobal& global, eLogLevel level, const char* module, const char* title,
                        const tagAttribute& settings, tagMessage& message) {
    return global.m_Output.MakeRecord(level, module, title, settings, message);
  }

  // The place of a name by its address, for literals that stand side by side as for objects.
  static size_t HintIndex(const char* module) {
    constexpr uint32_t kGoldenRatio = 0x9E3779B1U;
    const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(module));
    return static_cast<uint32_t>(address * kGoldenRatio) >> (32 - CGlobal::kHintBits);
  }

  // Finds what applies to the name that was looked up from the same address last, when it is the
  // same letter by letter: another text may stand there by now. Reads nothing behind its end.
  static bool FindByAddress(const CGlobal& global, const char* module,
                            const tagAttribute*& settings) {
    const CGlobal::tagKnownName* known = AcquireLoad(global.m_Hints[HintIndex(module)]);
    settings = AcquireLoad(known->m_Attribute);
    const char* name = known->m_Name;
    for (;; name += 4, module += 4) {
      if (name[0] != module[0]) return false;
      if (name[0] == '\0') return true;
      if (name[1] != module[1]) return false;
      if (name[1] == '\0') return true;
      if (name[2] != module[2]) return false;
      if (name[2] == '\0') return true;
      if (name[3] != module[3]) return false;
      if (name[3] == '\0') return true;
    }
  }
};

// For functions with variable arguments and no buffer of their own: saving the arguments makes the
// compiler guard the frame, which costs as much as the rest of a record that is dropped.
#define KELVIK_UNGUARDED_FRAME __attribute__((no_stack_protector))

}  // namespace Kelvik

#endif  // KELVIK_LEVELGATE_H_
