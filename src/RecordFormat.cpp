#include "RecordFormat.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Kelvik {
namespace {

// What a failing vsnprintf leaves in its field, and whether it terminates it, is the C library's
// affair. Formatting once more into a zeroed field shows exactly what was stored before the
// failure.
__attribute__((format(printf, 3, 0))) int FormatUpToFailure(char* field, int room,
                                                            const char* format, va_list arguments) {
  memset(field, 0, static_cast<size_t>(room));
  static_cast<void>(vsnprintf(field, static_cast<size_t>(room), format, arguments));
  field[room - 1] = '\0';
  return static_cast<int>(strlen(field));
}

}  // namespace

int FormatMessage(char* field, int room, const char* format, va_list arguments) {
  const int callersErrno = errno;
  va_list again;
  va_copy(again, arguments);
  int length = vsnprintf(field, static_cast<size_t>(room), format, arguments);
  if (length < 0) {
    errno = callersErrno;
    length = FormatUpToFailure(field, room, format, again);
  } else {
    if (length > room - 1) length = room - 1;
    // "%c" of 0, and conversions that the application registered, store NUL bytes.
    const void* const inner = memchr(field, '\0', static_cast<size_t>(length));
    if (inner != nullptr) length = static_cast<int>(static_cast<const char*>(inner) - field);
  }
  va_end(again);
  return length;
}

}  // namespace Kelvik
