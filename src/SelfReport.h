// The library's records about itself: rejected calls and internal failures.
//
// Each is an ordinary record, level error, module "Kelvik", title "Internal". While a thread makes
// one, whatever fails below it on that thread makes no second one. Call these with no library lock
// held: the record takes the whole road of a record. errno is preserved; nothing is thrown.
//
// source: the reporting source file without its extension. function, line: where the report comes
// from, as operators know it; fixed, not the compiler's.
#ifndef KELVIK_SELFREPORT_H_
#define KELVIK_SELFREPORT_H_

namespace Kelvik {

// Which sinks a report may reach.
enum class eReportSink {
  kAll,
  kNoFile,  // about the log file itself, so never written to it
};

// "%s %s %d %s\n"
void ReportMessage(const char* source, const char* function, int line, const char* message);

// "%s %s %d %s : %d\n", with the offending number.
void ReportNumber(const char* source, const char* function, int line, const char* message,
                  int number);

// "%s %s %d Failed syserr:%d %s\n", with an errno value and its text.
void ReportSystemError(const char* source, const char* function, int line, int error);

// "%s %s %d Failed:%d syserr:%d %s\n", with the descriptor (-1 for none), an errno value and its
// text.
void ReportSocketError(const char* source, const char* function, int line, int descriptor,
                       int error);

// A log file that refused every attempt for more than a second; reaches terminal and syslog only.
void ReportFileFailure(const char* function, int line);

// Whether the calling thread makes a report.
bool IsReporting();

// False while the calling thread makes a report that must not reach the log file.
bool ReportMayUseFile();

}  // namespace Kelvik

#endif  // KELVIK_SELFREPORT_H_
