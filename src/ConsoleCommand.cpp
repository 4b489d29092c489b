// What the console's commands do: each is a call that the application could make itself, so the
// called functions check the values, take their locks and report what they refuse.

#include <cxxabi.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "AttributeRequest.h"
#include "CommandText.h"
#include "Console.h"
#include "FileIo.h"
#include "Global.h"
#include "Kelvik.h"
#include "KelvikExtra.h"
#include "Output.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

int LengthOf(const char* text) {
  return static_cast<int>(std::strlen(text));
}

void Request(const tagCommandRow& row, const void* value, int length) {
  RequestAttribute(kPlainRequestShell, row.m_Kind, row.m_Option, value, length);
}

// The request by module refuses a null module; only the level commands have one to act on.
void Switch(const tagCommand& command) {
  const tagCommandRow& row = *command.m_Row;
  const unsigned char value = command.m_On ? 1 : 0;
  if (command.m_Module == nullptr) Request(row, &value, 1);
  RequestAttributeByModule(kPlainRequestShell, row.m_Kind, row.m_Option, &value, 1,
                           command.m_Module);
}

void Obey(const tagCommand& command) {
  CGlobal& global = *CGlobal::Instance();
  const char* const* const words = command.m_Words;
  switch (command.m_Row->m_Command) {
    case eCommand::kSwitch:
      Switch(command);
      break;
    case eCommand::kText:
      Request(*command.m_Row, words[0], LengthOf(words[0]));
      break;
    case eCommand::kNumber:
      Request(*command.m_Row, &command.m_Number, sizeof(command.m_Number));
      break;
    case eCommand::kPlain:
      Request(*command.m_Row, nullptr, 0);
      break;
    case eCommand::kShow:
      global.GetOutput().LogTerminal(words[0], LengthOf(words[0]), words[1], LengthOf(words[1]),
                                     words[2], LengthOf(words[2]));
      break;
    case eCommand::kSet:
      global.GetOutput().SetParam(words[0], LengthOf(words[0]), words[1], LengthOf(words[1]),
                                  command.m_Number);
      break;
    case eCommand::kSave:
      global.SaveAttribute2File(words[0]);
      break;
    case eCommand::kBufferSize:
      global.SetBufferSize(words[0]);
      break;
    case eCommand::kInterval:
      global.SetInterval(words[0]);
      break;
  }
}

constexpr size_t kTerminalNameBytes = 256;

// Stores the system's own name of the terminal at path; false when there is none. That name stands
// in a folder that only root changes, while the path may be a link which somebody turns elsewhere
// once it has been looked at.
bool NameTerminal(const char* path, char (&name)[kTerminalNameBytes]) {
  struct stat status;
  // Opening may do something by itself, to a pipe for one.
  if (stat(path, &status) != 0 || !S_ISCHR(status.st_mode)) return false;
  int32_t fd = OpenTerminal(path);
  if (fd == -1) return false;
  const bool isTerminal = ttyname_r(fd, name, sizeof(name)) == 0;
  CloseDescriptor(fd);
  return isTerminal;
}

// Whether the restrictions let the command through. A terminal's path gives way to its name, which
// is stored in the field.
bool IsAllowed(unsigned restrictions, tagCommand& command, char (&terminal)[kTerminalNameBytes]) {
  const tagCommandRow& row = *command.m_Row;
  const bool isText = row.m_Command == eCommand::kText;
  if (isText && row.m_Option == eOtherLogPath) return (restrictions & eRestrictLogPath) == 0;
  const bool opensTerminal =
      row.m_Command == eCommand::kShow || (isText && row.m_Option == eOtherRedirectTty);
  if (!opensTerminal || (restrictions & eRestrictTerminals) == 0) return true;
  if (!NameTerminal(command.m_Words[0], terminal)) return false;
  command.m_Words[0] = terminal;
  return true;
}

}  // namespace

// A command that is not allowed has no effect, and the next one is read.
void CConsole::ObeyAll(char* text) {
  CCommandText commands(text);
  tagCommand command;
  while (commands.Next(command)) {
    char terminal[kTerminalNameBytes];
    if (IsAllowed(RelaxedLoad(m_Restrictions), command, terminal)) {
      Obey(command);
    } else {
      RelaxedAdd(m_DeniedCommands, 1);
      std::printf("[%s] [%s] command %s is refused.\n", "Kelvik", "Internal",
                  command.m_Row->m_Word);
    }
  }
}

int CConsole::Dispose(const char*, unsigned short, char* text, int length) {
  if (text == nullptr) return eResultSuccess;
  std::printf("[%s] [%s] receive command: %s, length: %d\n", "Kelvik", "Internal", text, length);
  try {
    ObeyAll(text);
  } catch (...) {
    // Out of memory, or thrown by a callback: the rest of the text is dropped, the process lives.
    // What is no C++ exception is the unwinding of a thread that a callback ends; it must go on.
    if (abi::__cxa_current_exception_type() == nullptr) throw;
  }
  return eResultSuccess;
}

}  // namespace Kelvik
