// KelvikExtra_IsEnabled, which the macros ask before each record: built for speed.

#include <exception>

#include "Context.h"
#include "Global.h"
#include "Kelvik.h"
#include "KelvikExtra.h"
#include "LevelGate.h"
#include "Relaxed.h"

namespace {

// Where the gate of the records has not decided: see tagLevelGate.
[[gnu::noinline]] int IsEnabledLongWay(int level, const char* module) {
  // The level before the shift: only these have a bit that records go by.
  if (level < eLogLevelDebug || level > eLogLevelFatal || Kelvik::CGlobal::IsEnded()) return 0;
  try {
    Kelvik::CGlobal* global = Kelvik::Context();
    const Kelvik::tagAttribute* settings =
        module == nullptr ? global->GetAttribute() : global->GetAttribute(module);
    return Kelvik::RelaxedLoad(settings->m_LevelMask) >> level & 1;
  } catch (const std::exception&) {
    return 0;
  }
}

}  // namespace

int KelvikExtra_IsEnabled(int level, const char* module) {
  using Kelvik::tagLevelGate;
  const auto known = static_cast<eLogLevel>(level);
  const Kelvik::CGlobal* const global = tagLevelGate::Open(known, "");
  const Kelvik::tagAttribute* settings;
  if (global == nullptr || !tagLevelGate::FindSettings(*global, module, settings)) {
    return IsEnabledLongWay(level, module);
  }
  return Kelvik::RelaxedLoad(settings->m_LevelMask) >> level & 1;
}
