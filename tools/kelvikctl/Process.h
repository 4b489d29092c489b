// One process as an operator sees it: readings, and changes that are confirmed by readings.

#ifndef KELVIK_KELVIKCTL_PROCESS_H_
#define KELVIK_KELVIKCTL_PROCESS_H_

#include <string>
#include <vector>

#include "Client.h"
#include "Display.h"
#include "Options.h"
#include "StatusText.h"

namespace KelvikCtl {

// Everything that fails throws CFailure.
class CProcess {
 public:
  explicit CProcess(const tagOptions& options)
      : m_Client(options.m_Host, options.m_Port),
        m_TimeOutMs(options.m_TimeOutMs),
        m_Display(m_Client, options.m_TimeOutMs) {}

  CClient& Client() { return m_Client; }
  CDisplay& Display() { return m_Display; }
  int TimeOutMs() const { return m_TimeOutMs; }

  std::string StatusDisplay();
  tagStatus Status();
  std::vector<std::string> Modules();
  DisplayNames Displays();

  // Sends the text and waits until the process has read it. Returns the status afterwards.
  tagStatus Send(const std::string& text);

  // Switches, globally when the module is empty, and confirms what the status shows of it. Returns
  // what it was before; of a module, the opposite.
  bool Switch(eSwitch which, bool on, const std::string& module);

  // The name of the module that a level command with this word reaches; refuses the words with
  // which it would reach another one than was meant, or the global level.
  std::string ResolveModule(const std::string& word);

 private:
  CClient m_Client;
  const int m_TimeOutMs;
  CDisplay m_Display;
};

// "-leveldbg 1" or "-leveldbg 1 net".
std::string SwitchCommand(eSwitch which, bool on, const std::string& module);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_PROCESS_H_
