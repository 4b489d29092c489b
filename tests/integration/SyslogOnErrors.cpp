// In a program that links this, records for the system log go to standard error instead, as
// "<priority>text".

// The C library's inline forms of syslog would stand in the way of the definitions below.
#undef _FORTIFY_SOURCE

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

namespace {

__attribute__((format(printf, 2, 0))) void Print(int priority, const char* format, va_list args) {
  std::fprintf(stderr, "<%d>", priority);
  std::vfprintf(stderr, format, args);
}

}  // namespace

extern "C" {

void syslog(int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  Print(priority, format, args);
  va_end(args);
}

void vsyslog(int priority, const char* format, va_list args) {
  Print(priority, format, args);
}

// What a hardened program calls instead.
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int flag, const char* format,
                                                        ...);
void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
  va_list args;
  va_start(args, format);
  Print(priority, format, args);
  va_end(args);
}

}  // extern "C"
