// Makes records of lines.

#ifndef KELVIK_KELVIKLOG_LINELOGGER_H_
#define KELVIK_KELVIKLOG_LINELOGGER_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "Kelvik.h"
#include "LineReader.h"

namespace KelvikLog {

// What every record of a run has in common.
struct tagRecordStyle {
  const char* m_Module = nullptr;  // null: records carry none
  const char* m_Title = nullptr;   // null: records carry none
  eLogLevel m_Level = eLogLevelInfo;
  bool m_ReadsPriority = false;  // "<0>" to "<7>" in front of a line gives its level and is removed
  bool m_Escapes = false;        // control bytes of a line are shown as "\xNN" (AppendEscaped)
  std::size_t m_PrefixBytes = 0;  // what the library puts in front of each record
};

// Bytes that the library puts in front of a record with this module and title (null: none).
std::size_t PrefixBytes(bool hasTime, bool hasThreadId, const char* module, const char* title);

// For one thread.
class CLineLogger {
 public:
  // The texts in style must outlive the logger.
  explicit CLineLogger(const tagRecordStyle& style);

  // Logs the line as one record, or as several that hold all of it when it is too long for one. A
  // NUL byte is shown as "\0", or as the style says.
  void Log(const tagLine& line);

  // Records that the library refused.
  uint64_t Refused() const { return m_Refused; }

 private:
  bool MustShow(const char* text, std::size_t length) const;
  void LogText(char* text, std::size_t length);

  const tagRecordStyle m_Style;
  const std::size_t m_Room;  // bytes of a line that fit a record
  eLogLevel m_Level;         // of the line that is being logged
  std::string m_Shown;       // a text in which bytes were replaced
  uint64_t m_Refused = 0;
};

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_LINELOGGER_H_
