#include "RecordFormatterTools.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "RecordFormat.h"

int Kelvik::g_LibraryCalls = 0;

extern "C" {
const char* __asan_default_options();
const char* __tsan_default_options();

// The sanitizers abort on formats that the C library defines and they do not know.
const char* __asan_default_options() {
  return "check_printf=0";
}
const char* __tsan_default_options() {
  return "check_printf=0";
}

int __real_vsnprintf(char* field, size_t room, const char* format, va_list arguments);
int __wrap_vsnprintf(char* field, size_t room, const char* format, va_list arguments);
int __real___vsnprintf_chk(char* field, size_t room, int flag, size_t size, const char* format,
                           va_list arguments);
int __wrap___vsnprintf_chk(char* field, size_t room, int flag, size_t size, const char* format,
                           va_list arguments);

int __wrap_vsnprintf(char* field, size_t room, const char* format, va_list arguments) {
  ++Kelvik::g_LibraryCalls;
  return __real_vsnprintf(field, room, format, arguments);
}

int __wrap___vsnprintf_chk(char* field, size_t room, int flag, size_t size, const char* format,
                           va_list arguments) {
  ++Kelvik::g_LibraryCalls;
  return __real___vsnprintf_chk(field, room, flag, size, format, arguments);
}
}

namespace Kelvik {
namespace {

constexpr int kErrnoBefore = ENOTTY;

}  // namespace

tagFormatted ByLibrary(int room, const char* format, ...) {
  char field[kRoomMax + 1] = {};
  va_list arguments;
  va_start(arguments, format);
  errno = kErrnoBefore;
  const int printed = __real_vsnprintf(field, static_cast<size_t>(room), format, arguments);
  const int errnoAfter = errno;
  va_end(arguments);
  field[room - 1] = '\0';
  return {field, printed, errnoAfter};
}

tagFormatted Here(int room, const char* format, ...) {
  char field[kRoomMax + 1];
  memset(field, kJunk, sizeof(field));
  va_list arguments;
  va_start(arguments, format);
  g_LibraryCalls = 0;
  errno = kErrnoBefore;
  const int length = FormatMessage(field, room, format, arguments);
  const int errnoAfter = errno;
  va_end(arguments);
  EXPECT_EQ(field[room], kJunk) << format;
  return {std::string(field, strnlen(field, static_cast<size_t>(room))), length, errnoAfter};
}

void ExpectEqual(const tagFormatted& here, const tagFormatted& library, int room,
                 const std::string& format) {
  if (here.m_Text == library.m_Text && here.m_Errno == library.m_Errno &&
      here.m_Length == static_cast<int>(here.m_Text.size())) {
    return;
  }
  ADD_FAILURE() << "format \"" << format << "\" room " << room << ": \"" << here.m_Text << "\" ("
                << here.m_Length << ", errno " << here.m_Errno << "), not \"" << library.m_Text
                << "\" (errno " << library.m_Errno << ")";
}

}  // namespace Kelvik
