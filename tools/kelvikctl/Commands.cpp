#include "Commands.h"

#include <cstdio>

#include "Attach.h"
#include "Changes.h"
#include "CheckFile.h"
#include "Failure.h"
#include "Logs.h"
#include "Process.h"
#include "ProcessList.h"
#include "SocketTable.h"
#include "StandardOutput.h"
#include "Watch.h"

namespace KelvikCtl {

namespace {

void ListModules(CProcess& process) {
  for (const std::string& module : process.Modules())
    PrintLine(Printable(module));
}

void ListDisplays(CProcess& process) {
  for (const auto& [module, title] : process.Displays())
    PrintLine(Printable(module) + " " + Printable(title));
}

// A display that prints nothing may be there all the same.
void RequireDisplay(CProcess& process, const tagOptions& options) {
  for (const auto& [module, title] : process.Displays()) {
    if (EqualsIgnoringCase(module, options.m_Module) && EqualsIgnoringCase(title, options.m_Title))
      return;
  }
  throw CFailure(kExitRefused, "the process has no display '" + options.m_Module + " " +
                                   options.m_Title + "'; kelvikctl list shows those it has");
}

void Show(CProcess& process, const tagOptions& options) {
  bool isEmpty = true;
  process.Display().Show(options.m_Module, options.m_Title,
                         [&isEmpty](const char* bytes, std::size_t size) {
                           isEmpty = false;
                           return WriteOut(bytes, size, -1) == eWrite::kDone;
                         });
  if (isEmpty) RequireDisplay(process, options);
}

void SendText(CProcess& process, const tagOptions& options) {
  process.Send(options.m_Text);
  PrintLine("sent, and read by the process: " + options.m_Text);
}

void ListProcesses() {
  char line[64];
  std::snprintf(line, sizeof(line), "%7s %-12s %5s  ", "PID", "USER", "PORT");
  PrintLine(std::string(line) + "COMMAND");
  for (const tagConsoleProcess& process : FindConsoleProcesses()) {
    std::snprintf(line, sizeof(line), "%7d %-12.32s %5u  ", static_cast<int>(process.m_Pid),
                  UserName(process.m_User).c_str(), unsigned{process.m_Port});
    PrintLine(line + Printable(process.m_Command));
  }
}

}  // namespace

int RunCommand(const tagOptions& options) {
  if (options.m_Action == eAction::kPs) {
    ListProcesses();
    return kExitDone;
  }
  if (options.m_Action == eAction::kLogs) {
    PrintLogs(options);
    return kExitDone;
  }
  if (options.m_Action == eAction::kCheck) return CheckFile(options.m_Config);
  CProcess process(options);
  switch (options.m_Action) {
    case eAction::kStatus: {
      const std::string text = process.StatusDisplay();
      WriteOut(text.data(), text.size(), -1);
      break;
    }
    case eAction::kModules:
      ListModules(process);
      break;
    case eAction::kList:
      ListDisplays(process);
      break;
    case eAction::kShow:
      Show(process, options);
      break;
    case eAction::kWatch:
      RequireDisplay(process, options);
      Watch(process, options);
      break;
    case eAction::kSwitch:
      ChangeSwitch(process, options);
      break;
    case eAction::kLimit:
      ChangeLimit(process, options);
      break;
    case eAction::kPath:
      ChangePath(process, options);
      break;
    case eAction::kFocus:
      ChangeFocus(process, options);
      break;
    case eAction::kTty:
    case eAction::kConsole:
      ChangeTerminal(process, options);
      break;
    case eAction::kAttach:
      Attach(process, options);
      break;
    case eAction::kSet:
      SetParameter(process, options);
      break;
    case eAction::kSave:
      SaveSettings(process, options);
      break;
    case eAction::kSend:
      SendText(process, options);
      break;
    case eAction::kPs:
    case eAction::kLogs:
    case eAction::kCheck:
      break;
  }
  return kExitDone;
}

}  // namespace KelvikCtl
