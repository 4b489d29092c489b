// From a call to a record, and from the record to its sinks.
//
// A formatted record is composed once, on the caller's stack, and goes to terminal, syslog and the
// buffered file step. A raw record's data goes out as the caller gave it; only the terminal sees a
// short prefix, and the file gets the bytes at once. No lock is held up to the file sink.

#include <syslog.h>

#include <algorithm>
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

// Writes prefix and location into a field of which dateTimeLength bytes stand there already (0:
// none), and gives the length of the date-time text (0 when it is switched off).
[[gnu::noinline]] int WritePrefix(char* field, int room, const tagRecordHead& head,
                                  int& dateTimeLength) {
  tagRecordPrefix prefix = {
      nullptr,       0,           RelaxedLoad(head.m_Prefix->m_OutputThreadID) != 0, 0,
      head.m_Module, head.m_Title};
  if (dateTimeLength != 0 || RelaxedLoad(head.m_Prefix->m_OutputDateTime) != 0) {
    if (dateTimeLength == 0) dateTimeLength = PutNewTimeStamp(field);
    prefix.m_DateTime = field;
    prefix.m_DateTimeLength = dateTimeLength;
  }
  if (prefix.m_ShowThreadID) {
    prefix.m_ThreadID = static_cast<unsigned long>(Context()->GetCurrentThreadID());
  }
  int length = WriteRecordPrefix(field, room, prefix);
  if (head.m_Place != nullptr && RelaxedLoad(GlobalSettings()->m_OutputLocation) != 0) {
    length += WriteLocation(field + length, room - length, head.m_Place->m_File,
                            head.m_Place->m_Function, head.m_Place->m_Line);
  }
  return length;
}

// The prefix of nearly every record: a date in a second that is known, module and title, nothing
// else. Returns its length, or 0 for any other prefix; dateTimeLength as WritePrefix takes it.
inline int WriteUsualPrefix(char* field, const char* module, const char* title,
                            const tagAttribute& settings, int& dateTimeLength) {
  if (RelaxedLoad(settings.m_OutputDateTime) == 0 || RelaxedLoad(settings.m_OutputThreadID) != 0 ||
      module == nullptr || title == nullptr) {
    return 0;
  }
  const int length = PutKnownTimeStamp(field);
  dateTimeLength = length;
  if (length == 0) return 0;
  char* const end = PutUsualNames(field + length, module, title);
  return end != nullptr ? static_cast<int>(end - field) : 0;
}

// A record with room for a colour sequence before and behind it, so that the terminal takes it in
// one piece. Not zeroed: only what is written is read.
struct tagRecordText {
  char m_Lead[kColourBytes];
  char m_Text[kRecordBytes];
  char m_Tail[kColourBytes];
};

}  // namespace

// By value, so that a record that only the file sees is never stored.
inline int COutput::Deliver(tagRecord record) {
  const tagAttribute* global = GlobalSettings();
  if (RelaxedLoad(global->m_OutputConsole) != 0) {
    const tagRecord printed = record;
    PrintRecord(printed);
  }
  if (RelaxedLoad(global->m_OutputSystem) != 0) {
    const char* const text = record.m_Text + std::min(record.m_Skip, record.m_Length);
    if (!WriteSystemLog(record.m_Level, text, kSinkLevelLine, m_SystemRecords)) {
      return eResultInvalid;
    }
  }
  // Switched off, or put back to its default by the end of the process, which has lost the record.
  if (RelaxedLoad(global->m_OutputFile) == 0) {
    return RelaxedLoad(m_Ended) == eLifeOpen ? eResultSuccess : eResultFailure;
  }
  // Reports are errors; the question costs a look at the thread's own storage.
  if (record.m_Level == eLogLevelError && !ReportMayUseFile()) return eResultSuccess;
  return StoreRecord(record.m_Text, record.m_Length);
}

// Whether a record ends here; result says why then.
inline bool COutput::IsTurnedAway(eLogLevel level, const tagAttribute& settings, int& result) {
  if (RelaxedLoad(m_Ended) != eLifeOpen) {
    result = eResultFailure;
    return true;
  }
  if (LevelPasses(level, settings)) return false;
  RelaxedAdd(m_BelowLevel, 1);
  result = eResultDisabled;
  return true;
}

int COutput::MakeRecord(eLogLevel level, const char* module, const char* title,
                        const tagAttribute& settings, tagMessage& message) {
  const int callerErrno = errno;
  tagRecordText record;
  char* const text = record.m_Text;
  int dateTimeLength = 0;
  int length = 0;
  if (message.m_Place == nullptr) {
    length = WriteUsualPrefix(text, module, title, settings, dateTimeLength);
  }
  if (length == 0) {
    int given = dateTimeLength;
    length =
        WritePrefix(text, kRecordBytes, {level, module, title, &settings, message.m_Place}, given);
    dateTimeLength = given;
  }
  errno = callerErrno;  // "%m" means the caller's
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // the caller's format
  length += FormatMessage(text + length, kRecordBytes - length, message.m_Format, message.m_List);
#pragma GCC diagnostic pop
  const int skip = dateTimeLength == 0 ? 0 : dateTimeLength + 1;
  const int result = Deliver({level, module, text, length, skip, text});
  errno = callerErrno;
  return result;
}

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

int COutput::Logs(eLogLevel level, const char* module, const char* title, const char* data,
                  int length) {
  return LogRaw({level, module, title, GlobalSettings(), nullptr}, data, length, kRawLevelLine,
                kRawWriter);
}

int COutput::Logs(eLogLevel level, const char* module, const char* title, const char* file,
                  const char* func, int line, const char* data, int length) {
  const tagSourcePlace place = {file, func, line};
  return LogRaw({level, module, title, GlobalSettings(), &place}, data, length,
                kLocatedRawLevelLine, kLocatedRawWriter);
}

int COutput::LogRaw(const tagRecordHead& head, const char* data, int length, int levelLine,
                    const tagWriter& writer) {
  if (data == nullptr || length < 0) return eResultInvalid;
  int turnedAway;
  if (IsTurnedAway(head.m_Level, *ModuleSettings(head.m_Module), turnedAway)) return turnedAway;
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
    result = WriteAndSettle(writer, data, length);
  }
  errno = callerErrno;
  return result;
}

}  // namespace Kelvik
