// One conversion of a printf format, as the C library would write it.
#ifndef KELVIK_RECORDFORMATTER_H_
#define KELVIK_RECORDFORMATTER_H_

#include <cstdarg>

namespace Kelvik {

// A va_list as an object: it is handed on by reference on every machine.
struct tagArgumentList {
  va_list m_List;
};

struct tagFormatPlaces {
  char* m_At;          // behind the text that was written; nullptr for what is not done here
  const char* m_From;  // behind the conversion
};

// Does %d %i %u %x %X %o with hh h l ll z t j, %c and %s, and where the C library is known %p and
// %f, with the flags, widths and precisions that the C standard defines for them, '*' included.
// `from` stands behind the '%'; the text goes to [at, end), without a NUL. Refuses what else there
// is, a null string or pointer, a %c of 0, and what does not fit: then the bytes in [at, end) and
// the argument list mean nothing any more. Leaves errno alone; no heap.
tagFormatPlaces FormatConversion(char* at, const char* end, const char* from,
                                 tagArgumentList& arguments);

}  // namespace Kelvik

#endif  // KELVIK_RECORDFORMATTER_H_
