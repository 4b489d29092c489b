#include "Changes.h"

#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "Clock.h"
#include "Failure.h"
#include "StandardOutput.h"
#include "StopSignal.h"

namespace KelvikCtl {

namespace {

std::string OnOff(bool on) {
  return on ? "on" : "off";
}

std::string ForModule(const std::string& module) {
  return module.empty() ? "" : " for module " + Printable(module);
}

void WaitFor(const CStopSignal& stop, int ms) {
  const int64_t end = NowMs() + ms;
  pollfd waiting = {stop.Descriptor(), POLLIN, 0};
  while (!stop.HasCome() && NowMs() < end)
    poll(&waiting, 1, LeftMs(end));
}

// Switches a level for a while. From the moment at which it may be switched, it is switched back
// whatever happens.
void HoldLevel(CProcess& process, const tagOptions& options, const std::string& module) {
  const std::string name = SwitchWords(options.m_Switch).m_Name + ForModule(module);
  CStopSignal stop(false);
  if (module.empty() && process.Status().m_On.at(options.m_Switch) == options.m_On) {
    PrintLine(name + " is " + OnOff(options.m_On) + " already and stays so");
    return;
  }
  try {
    process.Switch(options.m_Switch, options.m_On, options.m_Module);
    char seconds[32];
    std::snprintf(seconds, sizeof(seconds), "%g s", *options.m_ForMs / 1000.0);
    PrintLine(name + " is " + OnOff(options.m_On) + " for " + seconds);
    WaitFor(stop, *options.m_ForMs);
  } catch (const CFailure&) {
    process.Client().Send(SwitchCommand(options.m_Switch, !options.m_On, options.m_Module));
    throw;
  }
  process.Switch(options.m_Switch, !options.m_On, options.m_Module);
  PrintLine(name + " is " + OnOff(!options.m_On) + " again");
}

}  // namespace

void ChangeSwitch(CProcess& process, const tagOptions& options) {
  const std::string module =
      options.m_Module.empty() ? "" : process.ResolveModule(options.m_Module);
  if (options.m_ForMs) {
    HoldLevel(process, options, module);
    return;
  }
  const bool before = process.Switch(options.m_Switch, options.m_On, options.m_Module);
  const std::string now =
      SwitchWords(options.m_Switch).m_Name + ForModule(module) + " is " + OnOff(options.m_On);
  PrintLine(module.empty() ? now + ", was " + OnOff(before) : now);
}

void ChangeLimit(CProcess& process, const tagOptions& options) {
  const std::string number = std::to_string(options.m_Number);
  process.Send(JoinWords({options.m_Limit->m_Command, number}));
  PrintLine(std::string(options.m_Limit->m_Name) + " is set to " + number);
}

void ChangePath(CProcess& process, const tagOptions& options) {
  const std::string before = process.Status().m_Path;
  const std::string after = process.Send(JoinWords({"-logpath", options.m_Text})).m_Path;
  // From a per-cent sign on the display shows it with the date in it.
  const std::size_t same = options.m_Text.find('%');
  if (after.substr(0, same) != options.m_Text.substr(0, same)) {
    throw CFailure(kExitRefused, "the path is " + Printable(after) + " all the same");
  }
  PrintLine("path is " + Printable(after) + ", was " + Printable(before));
}

void ChangeFocus(CProcess& process, const tagOptions& options) {
  const bool isOff =
      EqualsIgnoringCase(options.m_Text, "off") || EqualsIgnoringCase(options.m_Text, "false");
  process.Send(JoinWords({"-focus", isOff ? "false" : options.m_Text}));
  PrintLine(isOff ? "no module is in focus"
                  : "module " + Printable(options.m_Text) + " is in focus");
}

void ChangeTerminal(CProcess& process, const tagOptions& options) {
  if (options.m_Action == eAction::kConsole) {
    process.Send("-console");
    PrintLine("terminal output is sent back");
    return;
  }
  struct stat status = {};
  if (stat(options.m_Text.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
    throw CFailure(kExitUsage, "there is no " + options.m_Text);
  }
  process.Send(JoinWords({"-tty", options.m_Text}));
  PrintLine("terminal output is sent to " + options.m_Text);
}

void SetParameter(CProcess& process, const tagOptions& options) {
  const std::string number = std::to_string(options.m_Number);
  process.Send(JoinWords({"-set", options.m_Module, options.m_Title, number}));
  PrintLine(number + " was passed to " + options.m_Module + " " + options.m_Title);
}

void SaveSettings(CProcess& process, const tagOptions& options) {
  const std::string& what = options.m_Text;
  const bool isAll = EqualsIgnoringCase(what, "all");
  const bool isGlobal = EqualsIgnoringCase(what, "global");
  std::string saved = isAll ? "everything" : "the global settings";
  if (!isAll && !isGlobal) {
    if (ContainsIgnoringCase("global", what) || ContainsIgnoringCase("all", what)) {
      throw CFailure(kExitUsage, "the process takes '" + what + "' for a part of global or all");
    }
    saved.clear();
    for (const std::string& module : process.Modules()) {
      if (!ContainsIgnoringCase(module, what)) continue;
      saved += (saved.empty() ? "module " : ", module ") + Printable(module);
    }
    if (saved.empty()) {
      throw CFailure(kExitRefused, "no registered module's name contains '" + what + "'");
    }
  }
  // Saving the global settings switches the time prefix on, so one that is off afterwards tells
  // that nothing was saved.
  if (!process.Send(JoinWords({"-sav", what})).m_On.at(kSwitchTime) && (isAll || isGlobal)) {
    throw CFailure(kExitRefused, "nothing was saved: the process has no configuration file");
  }
  PrintLine("the process was told to save " + saved);
}

}  // namespace KelvikCtl
