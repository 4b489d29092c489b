// What the tests of the entry points have in common: the context behind them, and callbacks that
// note their calls.

#ifndef KELVIK_ENTRYPOINTTOOLS_H_
#define KELVIK_ENTRYPOINTTOOLS_H_

#include "Families.h"
#include "Global.h"

namespace Kelvik {

inline CGlobal& Context() {
  return *CGlobal::Instance();
}

inline void SwitchDateTimeOff() {
  Context().GetAttribute()->m_OutputDateTime = 0;
}

inline eLogLevel Level(int number) {
  return static_cast<eLogLevel>(number);
}

// A display callback: counts its calls in the int of its context.
inline int Show(int, const char*, const char*, void* context) {
  ++*static_cast<int*>(context);
  return 3;
}

// A parameter callback: puts the value into the int of its context.
inline int Take(int value, void* context) {
  *static_cast<int*>(context) = value;
  return 3;
}

}  // namespace Kelvik

#endif  // KELVIK_ENTRYPOINTTOOLS_H_
