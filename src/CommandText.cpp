#include "CommandText.h"

#include <strings.h>

#include "Kelvik.h"
#include "TextNumber.h"

namespace Kelvik {
namespace {

constexpr tagCommandRow kRows[] = {
    {"-printf", eCommand::kSwitch, 0, eAttributeOutput, eOutputTerminal},
    {"-syslog", eCommand::kSwitch, 0, eAttributeOutput, eOutputSyslog},
    {"-file", eCommand::kSwitch, 0, eAttributeOutput, eOutputFile},
    {"-leveldbg", eCommand::kSwitch, 0, eAttributeLevel, eLogLevelDebug},
    {"-levelinfo", eCommand::kSwitch, 0, eAttributeLevel, eLogLevelInfo},
    {"-levelwarn", eCommand::kSwitch, 0, eAttributeLevel, eLogLevelWarning},
    {"-levelerror", eCommand::kSwitch, 0, eAttributeLevel, eLogLevelError},
    {"-levelfatal", eCommand::kSwitch, 0, eAttributeLevel, eLogLevelFatal},
    {"-time", eCommand::kSwitch, 0, eAttributeOther, eOtherDateTime},
    {"-tid", eCommand::kSwitch, 0, eAttributeOther, eOtherThreadId},
    {"-focus", eCommand::kText, 1, eAttributeOther, eOtherFocusModule},
    {"-logpath", eCommand::kText, 1, eAttributeOther, eOtherLogPath},
    {"-console", eCommand::kPlain, 0, eAttributeOther, eOtherRedirectConsole},
    {"-tty", eCommand::kText, 1, eAttributeOther, eOtherRedirectTty},
    {"-show", eCommand::kShow, 3, 0, 0},
    {"-set", eCommand::kSet, 3, 0, 0},
    {"-sav", eCommand::kSave, 1, 0, 0},
    {"-logsize", eCommand::kNumber, 1, eAttributeOther, eOtherLogMaxSize},
    {"-logduration", eCommand::kNumber, 1, eAttributeOther, eOtherLogMaxDuration},
    {"-logcount", eCommand::kNumber, 1, eAttributeOther, eOtherLogMaxCount},
    {"-buffersize", eCommand::kBufferSize, 1, 0, 0},
    {"-interval", eCommand::kInterval, 1, 0, 0},
};

struct tagSwitchWord {
  char m_Word[8];
  bool m_On;
};

constexpr tagSwitchWord kSwitchWords[] = {
    {"1", true},  {"true", true},   {"enable", true},
    {"0", false}, {"false", false}, {"disable", false},
};

// A tab or a line end is part of a word.
constexpr char kDelimiter = ' ';

const tagSwitchWord* FindSwitchWord(const char* word) {
  for (const tagSwitchWord& row : kSwitchWords) {
    if (strcasecmp(row.m_Word, word) == 0) return &row;
  }
  return nullptr;
}

}  // namespace

const tagCommandRow* FindCommand(const char* word) {
  for (const tagCommandRow& row : kRows) {
    if (strcasecmp(row.m_Word, word) == 0) return &row;
  }
  return nullptr;
}

CCommandText::CCommandText(char* text) : m_Rest(text), m_Ended(false) {}

const char* CCommandText::NextWord() {
  while (*m_Rest == kDelimiter)
    ++m_Rest;
  if (*m_Rest == '\0') return nullptr;
  const char* const word = m_Rest;
  while (*m_Rest != kDelimiter && *m_Rest != '\0')
    ++m_Rest;
  if (*m_Rest != '\0') *m_Rest++ = '\0';
  return word;
}

bool CCommandText::Next(tagCommand& command) {
  if (m_Ended) return false;
  command = {};
  const char* const word = NextWord();
  command.m_Row = word == nullptr ? nullptr : FindCommand(word);
  m_Ended =
      command.m_Row == nullptr ||
      !(command.m_Row->m_Command == eCommand::kSwitch ? TakeSwitch(command) : TakeWords(command));
  return !m_Ended;
}

// A missing value means off. The word after a value is a module whatever it looks like.
bool CCommandText::TakeSwitch(tagCommand& command) {
  const char* const value = NextWord();
  if (value == nullptr) return true;
  const tagSwitchWord* const row = FindSwitchWord(value);
  if (row == nullptr) return false;
  command.m_On = row->m_On;
  command.m_Module = NextWord();
  return true;
}

bool CCommandText::TakeWords(tagCommand& command) {
  const int count = command.m_Row->m_Arguments;
  for (int i = 0; i < count; ++i) {
    command.m_Words[i] = NextWord();
    if (command.m_Words[i] == nullptr) return false;
  }
  const eCommand kind = command.m_Row->m_Command;
  if (kind == eCommand::kNumber || kind == eCommand::kSet) {
    command.m_Number = ParseInt(command.m_Words[count - 1]);
  }
  return true;
}

}  // namespace Kelvik
