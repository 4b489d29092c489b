// From a call to a record, and from the record to its sinks.
//
// A record is composed once, on the caller's stack, and goes to terminal, syslog and the buffered
// file step. No lock is held up to there.

#include <cerrno>
#include <cstring>

#include "Context.h"
#include "Output.h"
#include "OutputInternal.h"
#include "RecordDelivery.h"
#include "RecordFormat.h"
#include "RecordPrefix.h"
#include "Relaxed.h"
#include "SelfReport.h"
#include "TimeStamp.h"

namespace Kelvik {
namespace {

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

// The prefix of nearly every record: a date, of which dateTimeLength bytes stand there already,
// module and title, nothing else. Returns its length, or 0 for any other prefix.
inline int WriteUsualPrefix(char* field, const char* module, const char* title,
                            const tagAttribute& settings, int dateTimeLength) {
  if (dateTimeLength == 0 || RelaxedLoad(settings.m_OutputThreadID) != 0 || module == nullptr ||
      title == nullptr) {
    return 0;
  }
  char* const end = PutUsualNames(field + dateTimeLength, module, title);
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

int WritePrefix(char* field, int room, const tagRecordHead& head, int& dateTimeLength) {
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

int COutput::MakeRecord(eLogLevel level, const char* module, const char* title,
                        const tagAttribute& settings, tagMessage& message) {
  const int callerErrno = errno;
  tagRecordText record;
  char* const text = record.m_Text;
  // 0 in a second that is not known yet
  int dateTimeLength = RelaxedLoad(settings.m_OutputDateTime) != 0 ? PutKnownTimeStamp(text) : 0;
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

}  // namespace Kelvik
