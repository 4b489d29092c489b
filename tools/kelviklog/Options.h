// The command line of kelviklog.

#ifndef KELVIK_KELVIKLOG_OPTIONS_H_
#define KELVIK_KELVIKLOG_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Kelvik.h"

namespace KelvikLog {

// Exit codes.
constexpr int kExitDelivered = 0;  // every record reached every output
constexpr int kExitFailed = 1;     // one did not, or an input could not be read; one line says why
constexpr int kExitUsage = 64;     // the command line is wrong; one line says what

// What was asked for. An empty optional was not given, so that the configuration file or the
// default decides.
struct tagOptions {
  std::vector<std::string> m_Files;  // "-" is standard input; never empty
  std::optional<std::string> m_Module;
  std::optional<std::string> m_Title;
  std::optional<eLogLevel> m_Level;
  std::optional<std::string> m_Folder;  // as given
  std::optional<std::string> m_Config;
  std::optional<int32_t> m_SizeKib;
  std::optional<int32_t> m_Duration;  // seconds
  std::optional<int32_t> m_Count;
  std::optional<bool> m_Terminal;
  std::optional<bool> m_File;
  std::optional<bool> m_Time;
  std::optional<bool> m_Escape;
  std::optional<bool> m_Progress;
  bool m_Syslog = false;
  bool m_ThreadId = false;
  bool m_ReadsPriority = false;
};

// Fills options. Returns nothing when the program is to go on; else the exit code it ends with:
// help or version were asked for and printed, or one line on standard error says what is wrong.
std::optional<int> ParseOptions(int argc, char** argv, tagOptions& options);

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_OPTIONS_H_
