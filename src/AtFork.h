// pthread_atfork without the linkage table that it costs a shared library.
#ifndef KELVIK_ATFORK_H_
#define KELVIK_ATFORK_H_

#include <pthread.h>

#include <cstddef>

#if defined(__GLIBC__) && !defined(__UCLIBC__)
// glibc's pthread_atfork is a piece of static code that calls this, part of its interface
// since 2.3.2, for the object that it is linked into. That call would be the library's only one
// through a table.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(),
                                 void* object) noexcept;
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" void* __dso_handle __attribute__((visibility("hidden")));
#endif

namespace Kelvik {

// As pthread_atfork.
inline void WatchForks(void (*prepare)(), void (*parent)(), void (*child)()) {
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  static_cast<void>(::__register_atfork(prepare, parent, child, &__dso_handle));
#else
  static_cast<void>(::pthread_atfork(prepare, parent, child));
#endif
}

}  // namespace Kelvik

#endif  // KELVIK_ATFORK_H_
