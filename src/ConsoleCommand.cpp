// What the console's commands do: each is a call that the application could make itself, so the
// called functions check the values, take their locks and report what they refuse.

#include <cxxabi.h>

#include <cstdio>
#include <cstring>

#include "AttributeRequest.h"
#include "CommandText.h"
#include "Console.h"
#include "Global.h"
#include "Kelvik.h"
#include "Output.h"

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

void ObeyAll(char* text) {
  CCommandText commands(text);
  tagCommand command;
  while (commands.Next(command))
    Obey(command);
}

}  // namespace

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
