// Sets the library up as the options say, and tells at the end what became of the records.

#ifndef KELVIK_KELVIKLOG_OUTPUTS_H_
#define KELVIK_KELVIKLOG_OUTPUTS_H_

#include <chrono>
#include <cstdint>
#include <string>

#include "LineLogger.h"
#include "Options.h"

namespace KelvikLog {

// The process's outputs. For one thread; one per process.
class COutputs {
 public:
  // options must outlive the object.
  explicit COutputs(const tagOptions& options) : m_Options(options) {}

  // Gives the library its settings (defaults, then the configuration file, then the options) and
  // starts it. Returns the exit code, with the reason, when the program cannot go on; else
  // kExitDelivered.
  int Start(std::string& problem);

  // Records are shown on a terminal. After Start.
  bool HasTerminal() const { return m_HasTerminal; }

  // The records' style under the settings that came out. After Start.
  tagRecordStyle Style() const;

  // Sends what was printed on its way. When standard output takes nothing any more, it is switched
  // off for the rest of the run. Returns false when the program should end: the reader of standard
  // output is gone, or there is no other output.
  bool Flush();

  // For how many milliseconds records may still wait in the buffers before HandOver is due; -1: for
  // ever, as there are no files. Call it when records were logged; the time counts from the first
  // call after a HandOver.
  int HandOverDueMs();

  // Sends what waits in the buffers to the files.
  void HandOver();

  // Waits until every record is where it should be. refused: records that the library did not take.
  // Returns false, with the reason, when one was lost.
  bool Finish(uint64_t refused, std::string& problem);

 private:
  void ApplyOptions() const;
  bool CheckFolder(std::string& problem) const;

  const tagOptions& m_Options;
  std::string m_LogPath;       // what the names of log files are appended to
  bool m_HasFile = false;      // file output is on
  bool m_HasTerminal = false;  // terminal output is on, and standard output is a terminal
  bool m_IsWaiting = false;    // records were logged since the last HandOver, at first at
  std::chrono::steady_clock::time_point m_WaitsSince;
  std::string m_TerminalProblem;  // why standard output was switched off
};

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_OUTPUTS_H_
