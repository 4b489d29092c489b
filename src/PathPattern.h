// A log path shown with the date filled into its conversions.
#ifndef KELVIK_PATHPATTERN_H_
#define KELVIK_PATHPATTERN_H_

#include <cstddef>

#include "Attribute.h"

namespace Kelvik {

// Expands pattern (a field of kLogPathBytes that may lack a terminator) as a printf format with the
// seven integers year, month, day, hour, minute, second, millisecond, in this order, into text
// (room bytes, room >= 1, cut and terminated).
//
// Only integer conversions are taken (flags, width, precision; d i u x X o c); "%%" is a per-cent
// sign. Anything else, an eighth conversion included, stands in the text as it is typed (what
// follows its '%' is read on as text, so a conversion behind it still takes the next value). A
// width cannot make it grow past the field. A "%c" of 0 ends the text, as the NUL it stands for
// ends any C string. Nothing is read but the seven values. Returns the length.
int ExpandPathPattern(char* text, size_t room, const char* pattern, const tagAbsoluteTime& time);

}  // namespace Kelvik

#endif  // KELVIK_PATHPATTERN_H_
