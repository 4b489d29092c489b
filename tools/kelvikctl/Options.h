// The command line of kelvikctl.

#ifndef KELVIK_KELVIKCTL_OPTIONS_H_
#define KELVIK_KELVIKCTL_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Words.h"

namespace KelvikCtl {

enum class eAction {
  kStatus,
  kModules,
  kList,
  kShow,     // m_Module, m_Title
  kWatch,    // m_Module, m_Title, m_EveryMs
  kSwitch,   // m_Switch, m_On; of a level also m_Module, m_ForMs
  kLimit,    // m_Limit, m_Number
  kPath,     // m_Text
  kFocus,    // m_Text
  kTty,      // m_Text
  kConsole,  //
  kAttach,   // m_ForMs
  kSet,      // m_Module, m_Title, m_Number
  kSave,     // m_Text
  kSend,     // m_Text
  kPs,
  kLogs,   // m_Config, m_IsFollowing, m_Lines, m_Module, m_Text
  kCheck,  // m_Config
};

struct tagOptions {
  std::string m_Host = "127.0.0.1";
  uint16_t m_Port = 8799;
  int m_TimeOutMs = 5000;

  eAction m_Action = eAction::kStatus;
  std::string m_Module;  // empty: none given
  std::string m_Title;
  std::string m_Text;
  eSwitch m_Switch = kSwitchTerminal;
  bool m_On = false;
  const tagLimit* m_Limit = nullptr;
  int32_t m_Number = 0;
  std::optional<int> m_ForMs;
  int m_EveryMs = 2000;
  std::string m_Config;
  bool m_IsFollowing = false;
  std::optional<uint64_t> m_Lines;  // none: all
};

// Reads and checks everything that can be checked without the process; all texts that will be sent
// fit into a datagram then. Returns the exit code when the program has nothing more to do: help was
// printed. Throws CFailure for bad usage.
std::optional<int> ParseOptions(int argc, char** argv, tagOptions& options);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_OPTIONS_H_
