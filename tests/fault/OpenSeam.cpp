#include "OpenSeam.h"

#include <fcntl.h>

#include <cstdarg>

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);

int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(list, int) : 0;
  va_end(list);
  int descriptor = -1;
  return Kelvik::AnswersOpen(path, &descriptor) ? descriptor : __real_open(path, flags, mode);
}

int __wrap_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(list, int) : 0;
  va_end(list);
  int descriptor = -1;
  return Kelvik::AnswersOpen(path, &descriptor) ? descriptor : __real_open64(path, flags, mode);
}

}  // extern "C"
