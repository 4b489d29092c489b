// What libkelvik.so exports. Everything without a mark stays hidden: the library is compiled with
// -fvisibility=hidden. Usable from C99 and C++.
//
//   KELVIK_API       exported: a function, or a class with its methods
//   KELVIK_INTERNAL  a method of an exported class that the library alone calls, private ones
//                    included; a program that is linked with libkelvik.so cannot

#ifndef KELVIK_EXPORT_H_
#define KELVIK_EXPORT_H_

#if defined(__GNUC__)
#define KELVIK_API __attribute__((visibility("default")))
#define KELVIK_INTERNAL __attribute__((visibility("hidden")))
#else
#define KELVIK_API
#define KELVIK_INTERNAL
#endif

#endif  // KELVIK_EXPORT_H_
