// From a call to a record, and from the record to its sinks.
//
// A formatted record is composed once, on the caller's stack, and goes to terminal, syslog and the
// buffered file step. A raw record's data goes out as the caller gave it; only the terminal sees a
// short prefix, and the file gets the bytes at once. No lock is held up to the file sink.

#include <syslog.h>

#include <cerrno>
#include <cstring>

#include "Context.h"
#include "Output.h"
#include "OutputInternal.h"
#include "RecordFormat.h"
#include "RecordPrefix.h"
#include "Relaxed.h"
#include "SelfReport.h"
#include "TimeStamp.h"

namespace Kelvik {
namespace {

constexpr int kSinkLevelLine = 1600;
constexpr int kRawLevelLine = 1043;
constexpr int kLocatedRawLevelLine = 1409;

bool LevelPasses(eLogLevel level, const tagAttribute& attribute) {
  const auto bit = static_cast<unsigned>(level);
  // The mask has eight bits; a level beyond them (only a direct call can bring one) never passes.
  return bit < 8 && (RelaxedLoad(attribute.m_LevelMask) >> bit & 1) != 0;
}

// Syslog's priority of a level, or -1 for an invalid one.
int Priority(eLogLevel level) {
  switch (level) {
    case eLogLevelDebug:
      return LOG_DEBUG;
    case eLogLevelInfo:
      return LOG_INFO;
    case eLogLevelWarning:
      return LOG_WARNING;
    case eLogLevelError:
      return LOG_ERR;
    case eLogLevelFatal:
      return LOG_CRIT;
  }
  return -1;
}

// Returns false for an invalid level, which is reported.
bool WriteSystemLog(eLogLevel level, const char* text, int reportLine, uintptr_t& counter) {
  const int priority = Priority(level);
  if (priority == -1) {
    ReportNumber("Output", "Logs", reportLine, "level invalid", static_cast<int>(level));
    return false;
  }
  ::syslog(priority, "%s", text);
  RelaxedAdd(counter, 1);
  return true;
}

const tagAttribute* ModuleSettings(const char* module) {
  CGlobal* global = Context();
  return module == nullptr ? global->GetAttribute() : global->GetAttribute(module);
}

const tagAttribute* GlobalSettings() {
  return Context()->GetAttribute();
}

// Takes the time of a second's first record. One that cannot be had is reported once and shown as
// zero.
[[gnu::noinline]] int PutNewTimeStamp(char* field) {
  tagTimeStamp stamp;
  if (!TakeTimeStamp(stamp)) {
    ReportNumber("Global", "GetDateTime", 469, "localtime failed",
                 static_cast<int>(stamp.m_Seconds));
  }
  std::memcpy(field, stamp.m_Text, sizeof(stamp.m_Text));
  return stamp.m_TextLength;
}

// Writes prefix and location, and gives the length of the date-time text (0 when it is switched
// off).
inline int WritePrefix(char* field, int room, const tagRecordHead& head, int& dateTimeLength) {
  tagRecordPrefix prefix = {
      nullptr,       0,           RelaxedLoad(head.m_Prefix->m_OutputThreadID) != 0, 0,
      head.m_Module, head.m_Title};
  if (RelaxedLoad(head.m_Prefix->m_OutputDateTime) != 0) {
    dateTimeLength = PutKnownTimeStamp(field);
    if (dateTimeLength == 0) dateTimeLength = PutNewTimeStamp(field);
    prefix.m_DateTime = field;
    prefix.m_DateTimeLength = dateTimeLength;
  }
  if (prefix.m_ShowThreadID) {
    prefix.m_ThreadID = static_cast<unsigned long>(Context()->GetCurrentThreadID());
  }
  int length = WriteRecordPrefix(field, room, prefix);
  if (head.m_Located && RelaxedLoad(GlobalSettings()->m_OutputLocation) != 0) {
    length +=
        WriteLocation(field + length, room - length, head.m_File, head.m_Function, head.m_Line);
  }
  return length;
}

// A record with room for a colour sequence before and behind it, so that the terminal takes it in
// one piece. Not zeroed: only what is written is read.
struct tagRecordText {
  char m_Lead[kColourBytes];
  char m_Text[kRecordBytes];
  char m_Tail[kColourBytes];
};

}  // namespace

inline int COutput::Deliver(const tagRecord& record) {
  const tagAttribute* global = GlobalSettings();
  if (RelaxedLoad(global->m_OutputConsole) != 0) PrintRecord(record);
  if (RelaxedLoad(global->m_OutputSystem) != 0 &&
      !WriteSystemLog(record.m_Level, record.m_Text + record.m_Skip, kSinkLevelLine,
                      m_SystemRecords)) {
    return eResultInvalid;
  }
  // Switched off, or put back to its default by the end of the process, which has lost the record.
  if (RelaxedLoad(global->m_OutputFile) == 0) {
    return RelaxedLoad(m_Ended) == eLifeOpen ? eResultSuccess : eResultFailure;
  }
  // Reports are errors; the question costs a look at the thread's own storage.
  if (record.m_Level == eLogLevelError && !ReportMayUseFile()) return eResultSuccess;
  return StoreRecord(record.m_Text, record.m_Length);
}

inline __attribute__((always_inline)) int COutput::LogWith(const tagRecordHead& head,
                                                           const char* format,
                                                           const tagArguments& arguments) {
  if (RelaxedLoad(m_Ended) != eLifeOpen) return eResultFailure;
  if (!LevelPasses(head.m_Level, *head.m_Filter)) {
    RelaxedAdd(m_BelowLevel, 1);
    return eResultDisabled;
  }
  const int callerErrno = errno;
  tagRecordText record;
  int dateTimeLength = 0;
  int length = WritePrefix(record.m_Text, kRecordBytes, head, dateTimeLength);
  errno = callerErrno;  // "%m" means the caller's
  length += FormatMessage(record.m_Text + length, kRecordBytes - length, format, arguments.m_List);
  const int skip = dateTimeLength == 0 ? 0 : dateTimeLength + 1;
  const int result = Deliver({head.m_Level, head.m_Module, record.m_Text, length,
                              skip < length ? skip : length, record.m_Text});
  errno = callerErrno;
  return result;
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* format, ...) {
  const tagAttribute* global = GlobalSettings();
  va_list list;
  va_start(list, format);
  const int result = LogWith({level, module, title, global, global, false, nullptr, nullptr, -1},
                             format, tagArguments(list));
  va_end(list);
  return result;
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* format,
                 const tagArguments& arguments) {
  const tagAttribute* own = ModuleSettings(module);
  return LogWith({level, module, title, own, own, false, nullptr, nullptr, -1}, format, arguments);
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* file,
                 const char* func, int line, const char* format, ...) {
  const tagAttribute* global = GlobalSettings();
  va_list list;
  va_start(list, format);
  const int result = LogWith({level, module, title, global, global, true, file, func, line}, format,
                             tagArguments(list));
  va_end(list);
  return result;
}

int COutput::Log(eLogLevel level, const char* module, const char* title, const char* file,
                 const char* func, int line, const char* format, const tagArguments& arguments) {
  const tagAttribute* global = GlobalSettings();
  return LogWith({level, module, title, global, global, true, file, func, line}, format, arguments);
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

int COutput::Logs(eLogLevel level, const char* module, const char* title, const char* data,
                  int length) {
  return LogRaw(
      {level, module, title, ModuleSettings(module), GlobalSettings(), false, nullptr, nullptr, -1},
      data, length, kRawLevelLine, kRawWriter);
}

int COutput::Logs(eLogLevel level, const char* module, const char* title, const char* file,
                  const char* func, int line, const char* data, int length) {
  return LogRaw(
      {level, module, title, ModuleSettings(module), GlobalSettings(), true, file, func, line},
      data, length, kLocatedRawLevelLine, kLocatedRawWriter);
}

int COutput::LogRaw(const tagRecordHead& head, const char* data, int length, int levelLine,
                    const tagWriter& writer) {
  if (data == nullptr || length < 0) return eResultInvalid;
  if (RelaxedLoad(m_Ended) != eLifeOpen) return eResultFailure;
  if (!LevelPasses(head.m_Level, *head.m_Filter)) {
    RelaxedAdd(m_BelowLevel, 1);
    return eResultDisabled;
  }
  const int callerErrno = errno;
  const tagAttribute* global = GlobalSettings();
  int result = eResultSuccess;
  if (RelaxedLoad(global->m_OutputConsole) != 0) {
    char prefix[kRawPrefixBytes];
    int dateTimeLength = 0;
    WritePrefix(prefix, kRawPrefixBytes, head, dateTimeLength);
    PrintRaw(head.m_Level, head.m_Module, prefix, data);
  }
  if (RelaxedLoad(global->m_OutputSystem) != 0 &&
      !WriteSystemLog(head.m_Level, data, levelLine, m_SystemRecords)) {
    result = eResultInvalid;
  } else if (RelaxedLoad(global->m_OutputFile) == 0) {
    if (RelaxedLoad(m_Ended) != eLifeOpen) result = eResultFailure;  // as in Deliver
  } else if (ReportMayUseFile()) {
    const tagWriter* failed = nullptr;
    result = Write(writer, data, length, failed);
    Settle(failed);
  }
  errno = callerErrno;
  return result;
}

}  // namespace Kelvik
