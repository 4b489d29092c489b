#include "Process.h"

#include "Failure.h"

namespace KelvikCtl {

namespace {

constexpr char kOwnModule[] = "Kelvik";

[[noreturn]] void FailToRead(const char* title) {
  throw CFailure(kExitRefused, std::string("what the process prints as \"Kelvik\" \"") + title +
                                   "\" is not that display");
}

std::string OnOff(bool on) {
  return on ? "on" : "off";
}

}  // namespace

std::string CProcess::StatusDisplay() {
  std::string text = m_Display.Read(kOwnModule, "attribute");
  if (!ParseStatus(text)) FailToRead("attribute");
  return text;
}

tagStatus CProcess::Status() {
  return *ParseStatus(StatusDisplay());
}

std::vector<std::string> CProcess::Modules() {
  auto modules = ParseModules(m_Display.Read(kOwnModule, "module"));
  if (!modules) FailToRead("module");
  return *modules;
}

DisplayNames CProcess::Displays() {
  auto displays = ParseDisplays(m_Display.Read(kOwnModule, "cmd"));
  if (!displays) FailToRead("cmd");
  return *displays;
}

tagStatus CProcess::Send(const std::string& text) {
  m_Client.Send(text);
  return Status();
}

bool CProcess::Switch(eSwitch which, bool on, const std::string& module) {
  const std::string command = SwitchCommand(which, on, module);
  if (!module.empty()) {
    Send(command);
    return !on;
  }
  const bool before = Status().m_On.at(which);
  const bool after = Send(command).m_On.at(which);
  if (after != on) {
    throw CFailure(kExitRefused, std::string(SwitchWords(which).m_Name) + " is " + OnOff(after) +
                                     " all the same");
  }
  return before;
}

std::string CProcess::ResolveModule(const std::string& word) {
  const std::vector<std::string> modules = Modules();
  const std::string* const first = FindModule(modules, word);
  if (first == nullptr) {
    throw CFailure(kExitRefused, "no registered module's name contains '" + Printable(word) +
                                     "'; nothing was changed");
  }
  for (const std::string& module : modules) {
    if (EqualsIgnoringCase(module, word) && !EqualsIgnoringCase(*first, word)) {
      throw CFailure(kExitRefused, "the process takes '" + Printable(word) + "' for its module '" +
                                       Printable(*first) +
                                       "', which comes first; nothing was changed");
    }
  }
  return *first;
}

std::string SwitchCommand(eSwitch which, bool on, const std::string& module) {
  std::vector<std::string> words = {SwitchWords(which).m_Command, on ? "1" : "0"};
  if (!module.empty()) words.push_back(module);
  return JoinWords(words);
}

}  // namespace KelvikCtl
