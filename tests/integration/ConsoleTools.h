// What the tests of the console have in common.

#ifndef KELVIK_CONSOLETOOLS_H_
#define KELVIK_CONSOLETOOLS_H_

#include <string>

#include "FileTools.h"
#include "Global.h"
#include "PrintedText.h"

namespace Kelvik {

inline CGlobal& Context() {
  return *CGlobal::Instance();
}

inline CConsole& TheConsole() {
  return Context().GetConsole();
}

// What was printed since the last call, without what CTestConsole::Sync caused.
inline std::string TakePrinted(CPrintedText& printed) {
  std::string text;
  for (const std::string& line : Lines(printed.Take())) {
    if (line.find("-set TestConsole sync") == std::string::npos) text += line + "\n";
  }
  return text;
}

// What the terminal shows of a report when the date and time are off.
inline std::string Report(const std::string& message) {
  return "\033[33m[Kelvik][Internal] " + message + "\n\033[0m";
}

// The line that the console prints on the arrival of a command.
inline std::string Arrival(const std::string& text) {
  return "[Kelvik] [Internal] receive command: " + text +
         ", length: " + std::to_string(text.size()) + "\n";
}

}  // namespace Kelvik

#endif  // KELVIK_CONSOLETOOLS_H_
