// The one mark of what libkelvik.so exports. Everything without it stays hidden: the library is
// compiled with -fvisibility=hidden. Usable from C99 and C++.

#ifndef KELVIK_EXPORT_H_
#define KELVIK_EXPORT_H_

#if defined(__GNUC__)
#define KELVIK_API __attribute__((visibility("default")))
#else
#define KELVIK_API
#endif

#endif  // KELVIK_EXPORT_H_
