// What a process prints, or the kernel's table, of any bytes: what is read from it, written again,
// is the same text.
//
// Input: which reader (1 byte), the text.

#include "StatusText.h"

#include <string>

#include "FuzzBytes.h"
#include "SocketTable.h"
#include "Words.h"

namespace KelvikCtl {
namespace {

using Kelvik::FuzzRequire;

std::string Write(const tagStatus& status) {
  const char* const names[] = {
      "[Output mode] printf:", " system:", " file:",    " datetime:", " tid:",
      ".\n[Log level] debug:", " info:",   " warning:", " error:",    " fatal:"};
  std::string text;
  for (std::size_t at = 0; at < kSwitchCount; ++at)
    text += names[at] + std::string(status.m_On.at(at) ? "true" : "false");
  return text + ".\n[Log file] path:" + status.m_Path + ".\n";
}

void ReadStatus(const std::string& text) {
  const auto status = ParseStatus(text);
  if (!status) return;
  const std::size_t line = text.find(".\n") + 2;
  FuzzRequire(Write(*status) == text.substr(line), "a status is all of its text");
}

void ReadModules(const std::string& text) {
  const auto modules = ParseModules(text);
  if (!modules) return;
  std::string again = "==========Register Module==========\n";
  for (const std::string& module : *modules)
    again += "[" + module + "]\n";
  FuzzRequire(again == text, "the modules are all of their text");
}

void ReadDisplays(const std::string& text) {
  const auto displays = ParseDisplays(text);
  if (!displays) return;
  std::string again = "==========Cmd Module==========\n";
  for (const auto& [module, title] : *displays)
    again += "moudle:[" + module + "], title:[" + title + "]\n";
  FuzzRequire(again == text, "the displays are all of their text");
}

void ReadWords(const std::string& text) {
  for (const char character : Printable(text)) {
    const auto byte = static_cast<unsigned char>(character);
    FuzzRequire(byte >= 0x20 && byte != 0x7F, "nothing printable steers a terminal");
  }
  const auto number = ParseNumber(text);
  FuzzRequire(!number || std::stol(text) == *number, "a number is what it says");
  const auto ms = ParseSeconds(text, 60);
  FuzzRequire(!ms || (*ms >= 100 && *ms <= 60000), "seconds keep to their bounds");
}

void ReadAny(Kelvik::CFuzzBytes bytes) {
  const unsigned reader = bytes.Pick(5);
  const std::string text = bytes.Rest();
  if (reader == 0) ReadStatus(text);
  if (reader == 1) ReadModules(text);
  if (reader == 2) ReadDisplays(text);
  if (reader == 3) ReadWords(text);
  if (reader == 4) ParseUdpTable(text);
}

}  // namespace
}  // namespace KelvikCtl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  KelvikCtl::ReadAny(Kelvik::CFuzzBytes(data, size));
  return 0;
}
