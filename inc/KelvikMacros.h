// Logging by macros: the arguments of a record that is not made are not evaluated, and levels below
// a minimum are not compiled at all. C99 and C++17, no extension of a compiler.
//
//   KELVIK_DEBUG(module, title, format, ...)              as Kelvik_KLog
//   KELVIK_DEBUG_IF(condition, module, title, format, ...)
//   KELVIK_DEBUG_EVERY_N(n, module, title, format, ...)   the 1st, the (n + 1)th, ... of this place
//   KELVIK_DEBUG_EVERY_MS(ms, module, title, format, ...) at most one in ms milliseconds
//
// and the same four as KELVIK_DEBUG_AT, KELVIK_DEBUG_AT_IF, KELVIK_DEBUG_AT_EVERY_N and
// KELVIK_DEBUG_AT_EVERY_MS, which carry file, function and line, as Kelvik_KLogV1. Likewise
// KELVIK_INFO, KELVIK_WARNING, KELVIK_ERROR and KELVIK_FATAL.
//
// Each is a statement. It first asks whether the level passes, as its call would: the module's own
// levels, or with _AT the global ones. When it does not, nothing but module is evaluated (with _AT
// not even that), and nothing is counted, in the library's statistics neither. When it does,
// condition, n or ms is evaluated, and the rest, once each, when that lets the record through.
// What the call returns is not told: a program that wants to know calls the function. format is
// checked as in the call.
//
// _EVERY_N and _EVERY_MS count for each place in the source, threads together (static data of 8
// bytes; in a C function with external linkage it must not be inline). n below 2 logs all. A record
// after others that were passed over begins with "(<number> passed over) ", so that format must be
// a string literal here, without positions ("%1$d"), and followed by at most 30 arguments. Every
// call whose level passes is either logged or counted once, by whichever threads.
//
// Macros may be used wherever the functions may: in any thread, not in a signal handler.

#ifndef KELVIK_KELVIKMACROS_H_
#define KELVIK_KELVIKMACROS_H_

#include "Kelvik.h"
#include "KelvikExtra.h"

// The levels as the preprocessor knows them: the values of eLogLevel, and one above them.
#define KELVIK_LEVEL_DEBUG 1
#define KELVIK_LEVEL_INFO 2
#define KELVIK_LEVEL_WARNING 3
#define KELVIK_LEVEL_ERROR 4
#define KELVIK_LEVEL_FATAL 5
#define KELVIK_LEVEL_NONE 6

// Calls below this level leave nothing in the object code, neither text nor argument; the compiler
// still reads and checks them. Define it before the first inclusion, or with -D; a program's files
// may differ.
#ifndef KELVIK_MIN_LEVEL
#define KELVIK_MIN_LEVEL KELVIK_LEVEL_DEBUG
#endif
#if KELVIK_MIN_LEVEL < KELVIK_LEVEL_DEBUG || KELVIK_MIN_LEVEL > KELVIK_LEVEL_NONE
#error "KELVIK_MIN_LEVEL is one of KELVIK_LEVEL_DEBUG (1) to KELVIK_LEVEL_NONE (6)"
#endif

// The file that _AT carries. A program may define it before the first inclusion, for example as a
// shorter name.
#ifndef KELVIK_FILE
#define KELVIK_FILE __FILE__
#endif

#define KELVIK_DEBUG(module, title, ...) \
  KELVIK_DEBUG_IS_(PLAIN)(eLogLevelDebug, module, title, __VA_ARGS__)
#define KELVIK_DEBUG_IF(condition, module, title, ...) \
  KELVIK_DEBUG_IS_(IF)(eLogLevelDebug, condition, module, title, __VA_ARGS__)
#define KELVIK_DEBUG_EVERY_N(n, module, title, ...) \
  KELVIK_DEBUG_IS_(EVERY_N)(eLogLevelDebug, n, module, title, __VA_ARGS__)
#define KELVIK_DEBUG_EVERY_MS(ms, module, title, ...) \
  KELVIK_DEBUG_IS_(EVERY_MS)(eLogLevelDebug, ms, module, title, __VA_ARGS__)
#define KELVIK_DEBUG_AT(module, title, ...) \
  KELVIK_DEBUG_IS_(AT)(eLogLevelDebug, module, title, __VA_ARGS__)
#define KELVIK_DEBUG_AT_IF(condition, module, title, ...) \
  KELVIK_DEBUG_IS_(AT_IF)(eLogLevelDebug, condition, module, title, __VA_ARGS__)
#define KELVIK_DEBUG_AT_EVERY_N(n, module, title, ...) \
  KELVIK_DEBUG_IS_(AT_EVERY_N)(eLogLevelDebug, n, module, title, __VA_ARGS__)
#define KELVIK_DEBUG_AT_EVERY_MS(ms, module, title, ...) \
  KELVIK_DEBUG_IS_(AT_EVERY_MS)(eLogLevelDebug, ms, module, title, __VA_ARGS__)

#define KELVIK_INFO(module, title, ...) \
  KELVIK_INFO_IS_(PLAIN)(eLogLevelInfo, module, title, __VA_ARGS__)
#define KELVIK_INFO_IF(condition, module, title, ...) \
  KELVIK_INFO_IS_(IF)(eLogLevelInfo, condition, module, title, __VA_ARGS__)
#define KELVIK_INFO_EVERY_N(n, module, title, ...) \
  KELVIK_INFO_IS_(EVERY_N)(eLogLevelInfo, n, module, title, __VA_ARGS__)
#define KELVIK_INFO_EVERY_MS(ms, module, title, ...) \
  KELVIK_INFO_IS_(EVERY_MS)(eLogLevelInfo, ms, module, title, __VA_ARGS__)
#define KELVIK_INFO_AT(module, title, ...) \
  KELVIK_INFO_IS_(AT)(eLogLevelInfo, module, title, __VA_ARGS__)
#define KELVIK_INFO_AT_IF(condition, module, title, ...) \
  KELVIK_INFO_IS_(AT_IF)(eLogLevelInfo, condition, module, title, __VA_ARGS__)
#define KELVIK_INFO_AT_EVERY_N(n, module, title, ...) \
  KELVIK_INFO_IS_(AT_EVERY_N)(eLogLevelInfo, n, module, title, __VA_ARGS__)
#define KELVIK_INFO_AT_EVERY_MS(ms, module, title, ...) \
  KELVIK_INFO_IS_(AT_EVERY_MS)(eLogLevelInfo, ms, module, title, __VA_ARGS__)

#define KELVIK_WARNING(module, title, ...) \
  KELVIK_WARNING_IS_(PLAIN)(eLogLevelWarning, module, title, __VA_ARGS__)
#define KELVIK_WARNING_IF(condition, module, title, ...) \
  KELVIK_WARNING_IS_(IF)(eLogLevelWarning, condition, module, title, __VA_ARGS__)
#define KELVIK_WARNING_EVERY_N(n, module, title, ...) \
  KELVIK_WARNING_IS_(EVERY_N)(eLogLevelWarning, n, module, title, __VA_ARGS__)
#define KELVIK_WARNING_EVERY_MS(ms, module, title, ...) \
  KELVIK_WARNING_IS_(EVERY_MS)(eLogLevelWarning, ms, module, title, __VA_ARGS__)
#define KELVIK_WARNING_AT(module, title, ...) \
  KELVIK_WARNING_IS_(AT)(eLogLevelWarning, module, title, __VA_ARGS__)
#define KELVIK_WARNING_AT_IF(condition, module, title, ...) \
  KELVIK_WARNING_IS_(AT_IF)(eLogLevelWarning, condition, module, title, __VA_ARGS__)
#define KELVIK_WARNING_AT_EVERY_N(n, module, title, ...) \
  KELVIK_WARNING_IS_(AT_EVERY_N)(eLogLevelWarning, n, module, title, __VA_ARGS__)
#define KELVIK_WARNING_AT_EVERY_MS(ms, module, title, ...) \
  KELVIK_WARNING_IS_(AT_EVERY_MS)(eLogLevelWarning, ms, module, title, __VA_ARGS__)

#define KELVIK_ERROR(module, title, ...) \
  KELVIK_ERROR_IS_(PLAIN)(eLogLevelError, module, title, __VA_ARGS__)
#define KELVIK_ERROR_IF(condition, module, title, ...) \
  KELVIK_ERROR_IS_(IF)(eLogLevelError, condition, module, title, __VA_ARGS__)
#define KELVIK_ERROR_EVERY_N(n, module, title, ...) \
  KELVIK_ERROR_IS_(EVERY_N)(eLogLevelError, n, module, title, __VA_ARGS__)
#define KELVIK_ERROR_EVERY_MS(ms, module, title, ...) \
  KELVIK_ERROR_IS_(EVERY_MS)(eLogLevelError, ms, module, title, __VA_ARGS__)
#define KELVIK_ERROR_AT(module, title, ...) \
  KELVIK_ERROR_IS_(AT)(eLogLevelError, module, title, __VA_ARGS__)
#define KELVIK_ERROR_AT_IF(condition, module, title, ...) \
  KELVIK_ERROR_IS_(AT_IF)(eLogLevelError, condition, module, title, __VA_ARGS__)
#define KELVIK_ERROR_AT_EVERY_N(n, module, title, ...) \
  KELVIK_ERROR_IS_(AT_EVERY_N)(eLogLevelError, n, module, title, __VA_ARGS__)
#define KELVIK_ERROR_AT_EVERY_MS(ms, module, title, ...) \
  KELVIK_ERROR_IS_(AT_EVERY_MS)(eLogLevelError, ms, module, title, __VA_ARGS__)

#define KELVIK_FATAL(module, title, ...) \
  KELVIK_FATAL_IS_(PLAIN)(eLogLevelFatal, module, title, __VA_ARGS__)
#define KELVIK_FATAL_IF(condition, module, title, ...) \
  KELVIK_FATAL_IS_(IF)(eLogLevelFatal, condition, module, title, __VA_ARGS__)
#define KELVIK_FATAL_EVERY_N(n, module, title, ...) \
  KELVIK_FATAL_IS_(EVERY_N)(eLogLevelFatal, n, module, title, __VA_ARGS__)
#define KELVIK_FATAL_EVERY_MS(ms, module, title, ...) \
  KELVIK_FATAL_IS_(EVERY_MS)(eLogLevelFatal, ms, module, title, __VA_ARGS__)
#define KELVIK_FATAL_AT(module, title, ...) \
  KELVIK_FATAL_IS_(AT)(eLogLevelFatal, module, title, __VA_ARGS__)
#define KELVIK_FATAL_AT_IF(condition, module, title, ...) \
  KELVIK_FATAL_IS_(AT_IF)(eLogLevelFatal, condition, module, title, __VA_ARGS__)
#define KELVIK_FATAL_AT_EVERY_N(n, module, title, ...) \
  KELVIK_FATAL_IS_(AT_EVERY_N)(eLogLevelFatal, n, module, title, __VA_ARGS__)
#define KELVIK_FATAL_AT_EVERY_MS(ms, module, title, ...) \
  KELVIK_FATAL_IS_(AT_EVERY_MS)(eLogLevelFatal, ms, module, title, __VA_ARGS__)

// What follows is not for direct use.

#if KELVIK_MIN_LEVEL <= KELVIK_LEVEL_DEBUG
#define KELVIK_DEBUG_IS_(form) KELVIK_KEPT_##form##_
#else
#define KELVIK_DEBUG_IS_(form) KELVIK_REMOVED_##form##_
#endif
#if KELVIK_MIN_LEVEL <= KELVIK_LEVEL_INFO
#define KELVIK_INFO_IS_(form) KELVIK_KEPT_##form##_
#else
#define KELVIK_INFO_IS_(form) KELVIK_REMOVED_##form##_
#endif
#if KELVIK_MIN_LEVEL <= KELVIK_LEVEL_WARNING
#define KELVIK_WARNING_IS_(form) KELVIK_KEPT_##form##_
#else
#define KELVIK_WARNING_IS_(form) KELVIK_REMOVED_##form##_
#endif
#if KELVIK_MIN_LEVEL <= KELVIK_LEVEL_ERROR
#define KELVIK_ERROR_IS_(form) KELVIK_KEPT_##form##_
#else
#define KELVIK_ERROR_IS_(form) KELVIK_REMOVED_##form##_
#endif
#if KELVIK_MIN_LEVEL <= KELVIK_LEVEL_FATAL
#define KELVIK_FATAL_IS_(form) KELVIK_KEPT_##form##_
#else
#define KELVIK_FATAL_IS_(form) KELVIK_REMOVED_##form##_
#endif

// How names become the texts of a call: Kelvik.hpp takes more kinds of names.
#define KELVIK_NAME_ const char*
#define KELVIK_SET_(variable, name) (variable = (name))
#define KELVIK_NAME_TEXT_(variable) (variable)
#define KELVIK_TEXT_(name) (name)
#define KELVIK_UNREAD_(name) (name)

#ifdef __cplusplus
#define KELVIK_NULL_ nullptr
#define KELVIK_NUMBER_(value) static_cast<uint32_t>(value)
#else
#define KELVIK_NULL_ ((const char*)0)
#define KELVIK_NUMBER_(value) ((uint32_t)(value))
#endif

// Each is one expression, so that a temporary whose text is a name lives until the record is made.
// gate: what has to hold beside the level.
#define KELVIK_RECORD_(level, gate, module, title, ...)                                \
  KELVIK_NAME_ kelvikModule_;                                                          \
  (void)(KelvikExtra_IsEnabled(level, KELVIK_SET_(kelvikModule_, module)) && (gate) && \
         Kelvik_KLog(level, KELVIK_NAME_TEXT_(kelvikModule_), KELVIK_TEXT_(title), __VA_ARGS__))
#define KELVIK_RECORD_AT_(level, gate, module, title, ...)                                      \
  (void)(KelvikExtra_IsEnabled(level, KELVIK_NULL_) && (gate) &&                                \
         Kelvik_KLogV1(level, KELVIK_TEXT_(module), KELVIK_TEXT_(title), KELVIK_FILE, __func__, \
                       __LINE__, __VA_ARGS__))

#define KELVIK_KEPT_PLAIN_(level, module, title, ...)     \
  do {                                                    \
    KELVIK_RECORD_(level, 1, module, title, __VA_ARGS__); \
  } while (0)
#define KELVIK_KEPT_IF_(level, condition, module, title, ...)     \
  do {                                                            \
    KELVIK_RECORD_(level, condition, module, title, __VA_ARGS__); \
  } while (0)
#define KELVIK_KEPT_AT_(level, module, title, ...)           \
  do {                                                       \
    KELVIK_RECORD_AT_(level, 1, module, title, __VA_ARGS__); \
  } while (0)
#define KELVIK_KEPT_AT_IF_(level, condition, module, title, ...)     \
  do {                                                               \
    KELVIK_RECORD_AT_(level, condition, module, title, __VA_ARGS__); \
  } while (0)

// record: KELVIK_RECORD_ or KELVIK_RECORD_AT_; ask: the function that decides, number its argument.
// The call that is never run has the format checked where it stands: a warning about the longer one
// would be one about this header, which compilers do not tell when it is a system header.
#define KELVIK_SOMETIMES_(record, ask, number, level, module, title, ...)                 \
  do {                                                                                    \
    static struct tagKelvikPlace kelvikPlace_ = {0, 0};                                   \
    char kelvikNote_[KELVIK_PASSED_OVER_BYTES];                                           \
    if (0) (void)Kelvik_KLog(level, KELVIK_NULL_, KELVIK_NULL_, __VA_ARGS__);             \
    record(level, ask(&kelvikPlace_, KELVIK_NUMBER_(number), kelvikNote_), module, title, \
           "%s" KELVIK_FIRST_(__VA_ARGS__), kelvikNote_ KELVIK_REST_(__VA_ARGS__));       \
  } while (0)
#define KELVIK_KEPT_EVERY_N_(level, n, module, title, ...) \
  KELVIK_SOMETIMES_(KELVIK_RECORD_, KelvikExtra_IsNth, n, level, module, title, __VA_ARGS__)
#define KELVIK_KEPT_EVERY_MS_(level, ms, module, title, ...) \
  KELVIK_SOMETIMES_(KELVIK_RECORD_, KelvikExtra_IsDue, ms, level, module, title, __VA_ARGS__)
#define KELVIK_KEPT_AT_EVERY_N_(level, n, module, title, ...) \
  KELVIK_SOMETIMES_(KELVIK_RECORD_AT_, KelvikExtra_IsNth, n, level, module, title, __VA_ARGS__)
#define KELVIK_KEPT_AT_EVERY_MS_(level, ms, module, title, ...) \
  KELVIK_SOMETIMES_(KELVIK_RECORD_AT_, KelvikExtra_IsDue, ms, level, module, title, __VA_ARGS__)

// Read by the compiler and never run, at any optimisation.
#define KELVIK_REMOVED_PLAIN_(level, module, title, ...)                                         \
  do {                                                                                           \
    if (0) (void)Kelvik_KLog(level, KELVIK_UNREAD_(module), KELVIK_UNREAD_(title), __VA_ARGS__); \
  } while (0)
#define KELVIK_REMOVED_IF_(level, condition, module, title, ...)                              \
  do {                                                                                        \
    if (0) {                                                                                  \
      if (condition) {                                                                        \
        (void)Kelvik_KLog(level, KELVIK_UNREAD_(module), KELVIK_UNREAD_(title), __VA_ARGS__); \
      }                                                                                       \
    }                                                                                         \
  } while (0)
#define KELVIK_REMOVED_EVERY_N_(level, n, module, title, ...) \
  KELVIK_REMOVED_IF_(level, KELVIK_NUMBER_(n) != 0, module, title, __VA_ARGS__)
#define KELVIK_REMOVED_EVERY_MS_ KELVIK_REMOVED_EVERY_N_
#define KELVIK_REMOVED_AT_ KELVIK_REMOVED_PLAIN_
#define KELVIK_REMOVED_AT_IF_ KELVIK_REMOVED_IF_
#define KELVIK_REMOVED_AT_EVERY_N_ KELVIK_REMOVED_EVERY_N_
#define KELVIK_REMOVED_AT_EVERY_MS_ KELVIK_REMOVED_EVERY_N_

// A format and what follows it: its arguments with a comma before each, or nothing.
#define KELVIK_FIRST_(...) KELVIK_FIRST_OF_(__VA_ARGS__, 0)
#define KELVIK_FIRST_OF_(first, ...) first
#define KELVIK_REST_(...)                                                                          \
  KELVIK_PICK_(__VA_ARGS__, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY,      \
               MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, \
               MANY, MANY, MANY, MANY, MANY, NONE, 0)                                              \
  (__VA_ARGS__)
#define KELVIK_PICK_(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, a16, a17, \
                     a18, a19, a20, a21, a22, a23, a24, a25, a26, a27, a28, a29, a30, a31, rest, \
                     ...)                                                                        \
  KELVIK_REST_##rest##_
#define KELVIK_REST_NONE_(first)
#define KELVIK_REST_MANY_(first, ...) , __VA_ARGS__

#endif  // KELVIK_KELVIKMACROS_H_
