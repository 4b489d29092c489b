// What the tests of attribute requests have in common: the context's global attribute as a value.

#ifndef KELVIK_ATTRIBUTEREQUESTTOOLS_H_
#define KELVIK_ATTRIBUTEREQUESTTOOLS_H_

#include <cstring>

#include "Global.h"

namespace Kelvik {

constexpr int kOn = 1;
constexpr char kText[] = "text of a value";

inline CGlobal& Context() {
  return *CGlobal::Instance();
}

inline tagAttribute Copy() {
  tagAttribute attribute;
  Context().CopyAttribute(attribute);
  return attribute;
}

inline bool Equal(const tagAttribute& left, const tagAttribute& right) {
  return std::memcmp(&left, &right, sizeof(left)) == 0;
}

inline void SwitchDateTimeOff() {
  Context().GetAttribute()->m_OutputDateTime = 0;
}

}  // namespace Kelvik

#endif  // KELVIK_ATTRIBUTEREQUESTTOOLS_H_
