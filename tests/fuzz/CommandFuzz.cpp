// Fuzzes what an operator's datagram goes through: the framing, the reading of its commands, and,
// for those that touch no file or terminal, the doing.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "CommandText.h"
#include "Datagram.h"
#include "Global.h"

namespace {

using namespace Kelvik;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// What the console says on standard output is not wanted here.
void Silence() {
  static const bool isDone = std::freopen("/dev/null", "w", stdout) != nullptr;
  Require(isDone, "standard output can be closed off");
}

void CheckWord(const std::string& text, const char* word) {
  Require(word >= text.data() && word < text.data() + text.size(), "an argument is in the text");
  Require(*word != '\0' && std::strchr(word, ' ') == nullptr, "an argument is one word");
}

void CheckCommand(const std::string& text, const tagCommand& command) {
  const tagCommandRow& row = *command.m_Row;
  Require(FindCommand(row.m_Word) == &row, "a row is found by its word");
  for (int i = 0; i < kCommandArguments; ++i) {
    Require((command.m_Words[i] != nullptr) == (i < row.m_Arguments), "every argument is there");
    if (i < row.m_Arguments) CheckWord(text, command.m_Words[i]);
  }
  if (command.m_Module != nullptr) CheckWord(text, command.m_Module);
}

// Whether doing it leaves the machine as it is.
bool IsHarmless(const tagCommand& command) {
  switch (command.m_Row->m_Command) {
    case eCommand::kSwitch:
      return command.m_Row->m_Kind != 1;
    case eCommand::kNumber:
    case eCommand::kSet:
    case eCommand::kBufferSize:
    case eCommand::kInterval:
      return true;
    case eCommand::kText:
      return std::strcmp(command.m_Row->m_Word, "-focus") == 0;
    default:
      return false;
  }
}

// Reads the whole text; true when all of its commands are harmless.
bool ReadText(std::string text) {
  // The reader ends at the first NUL, and a word may not reach past it.
  text.resize(std::strlen(text.c_str()));
  text.push_back('\0');
  CCommandText reader(text.data());
  bool isHarmless = true;
  tagCommand command;
  while (reader.Next(command)) {
    CheckCommand(text, command);
    isHarmless = isHarmless && IsHarmless(command);
  }
  Require(!reader.Next(command), "a text that has ended stays so");
  return isHarmless;
}

void Obey(std::string text) {
  Silence();
  const int length = static_cast<int>(text.size());
  CGlobal::Instance()->GetConsole().Dispose("127.0.0.1", 0, text.data(), length);
}

// The input as a datagram.
void Receive(const uint8_t* data, size_t size) {
  uint8_t field[kDatagramBytes + 1] = {};
  const size_t received = size < kDatagramBytes ? size : kDatagramBytes;
  if (received > 0) std::memcpy(field, data, received);
  const tagDatagramCheck check = CheckDatagram(field, static_cast<int>(received));
  if (check.m_Kind != eDatagram::kCommand) return;
  Require(check.m_Length == received - kDatagramHeadBytes, "a command's length is its text's");
  const std::string text(reinterpret_cast<const char*>(field) + kDatagramHeadBytes, check.m_Length);
  if (ReadText(text)) Obey(text);
}

// The input as the text of one, through the packing that clients use.
void Send(const uint8_t* data, size_t size) {
  uint8_t field[kDatagramBytes];
  const size_t packed = PackDatagram(field, reinterpret_cast<const char*>(data), size);
  Require((packed == 0) == (size == 0 || size > kDatagramTextBytes), "what fits is packed");
  if (packed > 0) Receive(field, packed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Receive(data, size);
  Send(data, size);
  return 0;
}
