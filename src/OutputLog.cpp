// The output engine's own forms of Log and Logs, which C++ programs call. The records of the C
// families do not come by here.

#include <cstdarg>
#include <cstring>

#include "Context.h"
#include "Output.h"
#include "OutputInternal.h"
#include "RecordDelivery.h"
#include "RecordGate.h"

namespace Kelvik {

int COutput::LogList(eLogLevel level, const char* module, const char* title,
                     const tagAttribute& settings, const tagSourcePlace* place, const char* format,
                     va_list list) {
  int result;
  if (IsTurnedAway(level, settings, result)) return result;
  tagMessage message;
  message.m_Format = format;
  message.m_Place = place;
  va_copy(message.m_List, list);
  result = MakeRecord(level, module, title, settings, message);
  va_end(message.m_List);
  return result;
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* format, ...) {
  va_list list;
  va_start(list, format);
  const int result = LogList(level, module, title, *GlobalSettings(), nullptr, format, list);
  va_end(list);
  return result;
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* format,
                 const tagArguments& arguments) {
  return LogList(level, module, title, *ModuleSettings(module), nullptr, format, arguments.m_List);
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* file,
                 const char* func, int line, const char* format, ...) {
  const tagSourcePlace place = {file, func, line};
  va_list list;
  va_start(list, format);
  const int result = LogList(level, module, title, *GlobalSettings(), &place, format, list);
  va_end(list);
  return result;
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* file,
                 const char* func, int line, const char* format, const tagArguments& arguments) {
  const tagSourcePlace place = {file, func, line};
  return LogList(level, module, title, *GlobalSettings(), &place, format, arguments.m_List);
}

int COutput::Logs(eLogLevel level, const char* module, const char* title, const char* text,
                  int length, const tagAbsoluteTime& time, int skip) {
  static_cast<void>(title);
  static_cast<void>(time);
  if (text == nullptr || length < 0) return eResultInvalid;
  if (RelaxedLoad(m_Ended) != eLifeOpen) return eResultFailure;
  // A direct call may name any skip; syslog must not look outside the text.
  const int textLength = static_cast<int>(::strnlen(text, static_cast<size_t>(length)));
  const int bounded = skip < 0 ? 0 : skip < textLength ? skip : textLength;
  return Deliver({level, module, text, length, bounded, nullptr});
}

}  // namespace Kelvik
