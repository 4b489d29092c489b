// The records of a child process: its switches, its moment, and what the terminal makes of a text.

#ifndef KELVIK_RECORDTOOLS_H_
#define KELVIK_RECORDTOOLS_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ChildProcess.h"
#include "FileTools.h"
#include "Global.h"
#include "Kelvik.h"
#include "PrintedText.h"

namespace Kelvik {

constexpr int64_t kMoment = 1710504000;  // 2024-03-15 12:00:00 UTC
constexpr int kMomentMicros = 7000;
constexpr char kMomentText[] = "2024-03-15 12:00:00.007";
constexpr char kZeroText[] = "0000-00-00 00:00:00.000";

inline CGlobal& Context() {
  return *CGlobal::Instance();
}

inline COutput& Engine() {
  return Context().GetOutput();
}

inline tagAttribute& Global() {
  return *Context().GetAttribute();
}

inline eLogLevel Level(int number) {
  return static_cast<eLogLevel>(number);
}

inline void Store(uint8_t& field, bool on) {
  __atomic_store_n(&field, static_cast<uint8_t>(on ? 1 : 0), __ATOMIC_RELAXED);
}

// Every level passes, nothing stands in front of a record.
inline void UseBareRecords() {
  Global().m_LevelMask = 0x3e;
  Store(Global().m_OutputDateTime, false);
  Store(Global().m_OutputThreadID, false);
}

// A record as the terminal shows it at a level, when its module is not in focus.
inline std::string Shown(int level, const std::string& text) {
  if (level == eLogLevelError) return "\033[33m" + text + "\033[0m";
  if (level == eLogLevelFatal) return "\033[31m" + text + "\033[0m";
  return "\033[0m" + text;
}

// Calls the overloads that take a list.
__attribute__((format(printf, 4, 5))) inline int LogList(int level, const char* module,
                                                         const char* title, const char* format,
                                                         ...) {
  va_list list;
  va_start(list, format);
  const int result = Engine().Log(Level(level), module, title, format, tagArguments(list));
  va_end(list);
  return result;
}

__attribute__((format(printf, 7, 8))) inline int LogListAt(int level, const char* module,
                                                           const char* title, const char* file,
                                                           const char* func, int line,
                                                           const char* format, ...) {
  va_list list;
  va_start(list, format);
  const int result =
      Engine().Log(Level(level), module, title, file, func, line, format, tagArguments(list));
  va_end(list);
  return result;
}

// Runs a child in UTC; it explains its end when that was a bad one.
inline testing::AssertionResult Passes(const std::string& name,
                                       const std::vector<std::string>& args = {},
                                       int limitMs = kChildDefaultLimitMs) {
  tagChildOptions options;
  options.m_LimitMs = limitMs;
  options.m_Environment = {{"TZ", "UTC0"}};
  return Succeeded(RunChild(name, args, options));
}

}  // namespace Kelvik

#endif  // KELVIK_RECORDTOOLS_H_
