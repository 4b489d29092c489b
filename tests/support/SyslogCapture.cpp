// The C library's inline forms of syslog would stand in the way of the definitions below.
#undef _FORTIFY_SOURCE

#include "SyslogCapture.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace Kelvik {
namespace {

struct tagCaptured {
  std::mutex m_Mutex;
  std::vector<tagSyslogRecord> m_Records;
  int m_OpenlogCalls = 0;
};

// Never destroyed: records may come from the process's last destructors.
tagCaptured& Captured() {
  static tagCaptured* captured = new tagCaptured;
  return *captured;
}

__attribute__((format(printf, 2, 0))) void Keep(int priority, const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(length < 0 ? 0 : static_cast<std::size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, args);
  if (!text.empty()) {
    text.pop_back();
  }
  const std::lock_guard<std::mutex> guard(Captured().m_Mutex);
  Captured().m_Records.push_back({priority, text});
}

}  // namespace

std::vector<tagSyslogRecord> CSyslogCapture::Records() {
  const std::lock_guard<std::mutex> guard(Captured().m_Mutex);
  return Captured().m_Records;
}

std::size_t CSyslogCapture::Count() {
  const std::lock_guard<std::mutex> guard(Captured().m_Mutex);
  return Captured().m_Records.size();
}

void CSyslogCapture::Clear() {
  const std::lock_guard<std::mutex> guard(Captured().m_Mutex);
  Captured().m_Records.clear();
  Captured().m_OpenlogCalls = 0;
}

int CSyslogCapture::OpenlogCalls() {
  const std::lock_guard<std::mutex> guard(Captured().m_Mutex);
  return Captured().m_OpenlogCalls;
}

}  // namespace Kelvik

extern "C" {

void vsyslog(int priority, const char* format, va_list args) {
  Kelvik::Keep(priority, format, args);
}

void syslog(int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  Kelvik::Keep(priority, format, args);
  va_end(args);
}

// What calls of the two become in code built with _FORTIFY_SOURCE.
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int, const char* format,
                                                        ...) {
  va_list args;
  va_start(args, format);
  Kelvik::Keep(priority, format, args);
  va_end(args);
}

__attribute__((format(printf, 3, 0))) void __vsyslog_chk(int priority, int, const char* format,
                                                         va_list args) {
  Kelvik::Keep(priority, format, args);
}

void openlog(const char*, int, int) {
  const std::lock_guard<std::mutex> guard(Kelvik::Captured().m_Mutex);
  ++Kelvik::Captured().m_OpenlogCalls;
}

}  // extern "C"
