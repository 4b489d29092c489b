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

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* format, ...) {
  const tagAttribute& global = *GlobalSettings();
  int result;
  if (IsTurnedAway(level, global, result)) return result;
  tagMessage message;
  message.m_Format = format;
  message.m_Place = nullptr;
  va_start(message.m_List, format);
  result = MakeRecord(level, module, title, global, message);
  va_end(message.m_List);
  return result;
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* format,
                 const tagArguments& arguments) {
  const tagAttribute& own = *ModuleSettings(module);
  int result;
  if (IsTurnedAway(level, own, result)) return result;
  tagMessage message;
  message.m_Format = format;
  message.m_Place = nullptr;
  va_copy(message.m_List, arguments.m_List);
  result = MakeRecord(level, module, title, own, message);
  va_end(message.m_List);
  return result;
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* file,
                 const char* func, int line, const char* format, ...) {
  va_list list;
  va_start(list, format);
  const int result = Log(level, module, title, file, func, line, format, tagArguments(list));
  va_end(list);
  return result;
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* file,
                 const char* func, int line, const char* format, const tagArguments& arguments) {
  const tagAttribute& global = *GlobalSettings();
  int result;
  if (IsTurnedAway(level, global, result)) return result;
  const tagSourcePlace place = {file, func, line};
  tagMessage message;
  message.m_Format = format;
  message.m_Place = &place;
  va_copy(message.m_List, arguments.m_List);
  result = MakeRecord(level, module, title, global, message);
  va_end(message.m_List);
  return result;
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
