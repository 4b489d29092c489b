#include "SelfReport.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>

#include "Global.h"
#include "Kelvik.h"
#include "LevelGate.h"
#include "OutputInternal.h"

namespace Kelvik {
namespace {

constexpr size_t kErrorTextBytes = 128;

struct tagReportState {
  bool m_Reporting;
  bool m_ToNoFile;
};

thread_local tagReportState t_Report = {false, false};

// Marks the calling thread as reporting for a scope and keeps its errno.
class CReport {
 public:
  explicit CReport(eReportSink sink) : m_Errno(errno), m_Allowed(!t_Report.m_Reporting) {
    if (m_Allowed) t_Report = {true, sink == eReportSink::kNoFile};
  }
  CReport(const CReport&) = delete;
  CReport& operator=(const CReport&) = delete;
  ~CReport() {
    if (m_Allowed) t_Report = {false, false};
    errno = m_Errno;
  }

  // False when the thread makes another report already: this one is left out.
  bool IsAllowed() const { return m_Allowed; }

 private:
  const int m_Errno;
  const bool m_Allowed;
};

// strerror_r comes in two forms: one returns the text, the other a code and fills the buffer.
[[maybe_unused]] const char* ErrorTextOf(const char* text, const char*) {
  return text;
}

[[maybe_unused]] const char* ErrorTextOf(int code, const char* buffer) {
  return code == 0 ? buffer : "Unknown error";
}

// The text of an errno value; buffer holds kErrorTextBytes and outlives the result.
const char* ErrorText(int error, char* buffer) {
  const int callerErrno = errno;
  buffer[0] = '\0';
  const char* const text = ErrorTextOf(strerror_r(error, buffer, kErrorTextBytes), buffer);
  errno = callerErrno;
  return text;
}

// The global settings decide, whatever a module of that name has.
__attribute__((format(printf, 2, 3))) void Report(eReportSink sink, const char* format, ...) {
  CReport report(sink);
  if (!report.IsAllowed()) return;
  CGlobal& global = *CGlobal::Instance();
  const tagAttribute& settings = *global.GetAttribute();
  if (tagLevelGate::Open(eLogLevelError, format) == nullptr ||
      tagLevelGate::IsDropped(global, eLogLevelError, settings)) {
    return;
  }
  tagMessage message;
  message.m_Format = format;
  message.m_Place = nullptr;
  va_start(message.m_List, format);
  tagLevelGate::MakeOpenly(global, eLogLevelError, "Kelvik", "Internal", settings, message);
  va_end(message.m_List);
}

}  // namespace

void ReportMessage(const char* source, const char* function, int line, const char* message) {
  Report(eReportSink::kAll, "%s %s %d %s\n", source, function, line, message);
}

void ReportNumber(const char* source, const char* function, int line, const char* message,
                  int number) {
  Report(eReportSink::kAll, "%s %s %d %s : %d\n", source, function, line, message, number);
}

void ReportSystemError(const char* source, const char* function, int line, int error) {
  char buffer[kErrorTextBytes];
  Report(eReportSink::kAll, "%s %s %d Failed syserr:%d %s\n", source, function, line, error,
         ErrorText(error, buffer));
}

void ReportSocketError(const char* source, const char* function, int line, int descriptor,
                       int error) {
  char buffer[kErrorTextBytes];
  Report(eReportSink::kAll, "%s %s %d Failed:%d syserr:%d %s\n", source, function, line, descriptor,
         error, ErrorText(error, buffer));
}

void ReportFileFailure(const char* function, int line) {
  Report(eReportSink::kNoFile, "%s %s %d %s\n", "Output", function, line,
         "Attempt to write to the file failed for more than 1 second");
}

bool IsReporting() {
  return t_Report.m_Reporting;
}

bool ReportMayUseFile() {
  return !t_Report.m_ToNoFile;
}

}  // namespace Kelvik
