// printf formatting of a record's message into a bounded field.
#ifndef KELVIK_RECORDFORMAT_H_
#define KELVIK_RECORDFORMAT_H_

#include <cstdarg>

namespace Kelvik {

// Formats as vsnprintf(field, room, ...) does (room >= 1) and returns the length of the text that
// stands in the field: it ends at room - 1, or at a NUL byte that a conversion produced. When
// vsnprintf fails, what it stored before stays, terminated. errno is seen by %m as the caller left
// it, and may have changed afterwards. Bytes behind the text may change too.
//
// A program that gave a standard conversion another meaning (register_printf_specifier of 'd') does
// not see that in effect; letters of its own it does.
int FormatMessage(char* field, int room, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

}  // namespace Kelvik

#endif  // KELVIK_RECORDFORMAT_H_
