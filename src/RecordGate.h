// What turns a record away before it is made.
#ifndef KELVIK_RECORDGATE_H_
#define KELVIK_RECORDGATE_H_

#include "Attribute.h"
#include "Output.h"
#include "Relaxed.h"

namespace Kelvik {

inline bool LevelPasses(eLogLevel level, const tagAttribute& attribute) {
  const auto bit = static_cast<unsigned>(level);
  // The mask has eight bits; a level beyond them (only a direct call can bring one) never passes.
  return bit < 8 && (RelaxedLoad(attribute.m_LevelMask) >> bit & 1) != 0;
}

// Whether a record ends here; result says why then.
inline bool COutput::IsTurnedAway(eLogLevel level, const tagAttribute& settings, int& result) {
  if (RelaxedLoad(m_Ended) != eLifeOpen) {
    result = eResultFailure;
    return true;
  }
  if (LevelPasses(level, settings)) return false;
  RelaxedAdd(m_BelowLevel, 1);
  result = eResultDisabled;
  return true;
}

}  // namespace Kelvik

#endif  // KELVIK_RECORDGATE_H_
