// Runs kelviklog and reads what it leaves behind, for its tests.

#ifndef KELVIK_KELVIKLOGTOOLS_H_
#define KELVIK_KELVIKLOGTOOLS_H_

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "ChildProcess.h"
#include "FileTools.h"

namespace Kelvik {

using Strings = std::vector<std::string>;

constexpr std::size_t kTimeBytes = 23;  // "2024-03-15 08:30:00.123"

inline tagChildResult RunKelviklog(const Strings& args, const std::string& input = "",
                                   int limitMs = kChildDefaultLimitMs) {
  tagChildOptions options;
  options.m_Input = input;
  options.m_LimitMs = limitMs;
  return RunProgram(KELVIK_KELVIKLOG, args, options);
}

// Runs a shell script in which "$@" is kelviklog with the arguments.
inline tagChildResult RunInShell(const std::string& script, const Strings& args,
                                 int limitMs = kChildDefaultLimitMs) {
  tagChildOptions options;
  options.m_LimitMs = limitMs;
  return RunCommand(ShellCommand(script, ProgramCommand(KELVIK_KELVIKLOG, args)), options);
}

// True for a text of the shape of a record's date and time.
inline bool IsTime(const std::string& text) {
  const std::string shape = "dddd-dd-dd dd:dd:dd.ddd";
  for (std::size_t i = 0; i < shape.size(); ++i) {
    const bool isRight =
        i < text.size() && (shape[i] == 'd' ? std::isdigit(static_cast<unsigned char>(text[i])) != 0
                                            : shape[i] == text[i]);
    if (!isRight) return false;
  }
  return true;
}

// The line behind its date, time and prefix; "?" and the line when it does not begin with them.
inline std::string Payload(const std::string& line, const std::string& prefix) {
  const std::string rest = line.size() < kTimeBytes ? "" : line.substr(kTimeBytes);
  return IsTime(line) && rest.compare(0, prefix.size(), prefix) == 0 ? rest.substr(prefix.size())
                                                                     : "?" + line;
}

inline Strings Payloads(const Strings& lines, const std::string& prefix) {
  Strings payloads;
  for (const std::string& line : lines) {
    payloads.push_back(Payload(line, prefix));
  }
  return payloads;
}

// The paths of a folder's log files.
inline Strings LogFiles(const std::string& folder) {
  Strings paths;
  for (const std::string& name : ListFolder(folder)) {
    if (name.size() > 4 && name.substr(name.size() - 4) == ".log") {
      paths.push_back(folder + "/" + name);
    }
  }
  return paths;
}

// The payloads of all the files of a ring. Within a second the names do not tell the files' order,
// so the files are put in the order of their first payloads, which must therefore sort like the
// input.
inline Strings RingPayloads(const std::string& folder, const std::string& prefix) {
  std::vector<Strings> files;
  for (const std::string& path : LogFiles(folder)) {
    files.push_back(Payloads(Lines(ReadFile(path)), prefix));
  }
  std::sort(files.begin(), files.end());
  Strings all;
  for (const Strings& file : files) {
    all.insert(all.end(), file.begin(), file.end());
  }
  return all;
}

// first, first + 1, ... as lines of eight digits.
inline Strings Numbers(int first, int count) {
  Strings lines;
  for (int i = first; i < first + count; ++i) {
    const std::string digits = std::to_string(i);
    lines.push_back(std::string(8 - digits.size(), '0') + digits);
  }
  return lines;
}

inline std::string Join(const Strings& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

// True when part is not empty and whole ends with it.
inline bool IsTail(const Strings& part, const Strings& whole) {
  return !part.empty() && part.size() <= whole.size() &&
         std::equal(part.begin(), part.end(),
                    whole.end() - static_cast<std::ptrdiff_t>(part.size()));
}

// One line that begins as every message of kelviklog does, and holds the text.
inline testing::AssertionResult IsOneMessage(const std::string& errors, const std::string& text) {
  const std::string start = "kelviklog: ";
  if (errors.compare(0, start.size(), start) == 0 && errors.back() == '\n' &&
      std::count(errors.begin(), errors.end(), '\n') == 1 &&
      errors.find(text) != std::string::npos) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "not one line with '" << text << "': " << errors;
}

}  // namespace Kelvik

#endif  // KELVIK_KELVIKLOGTOOLS_H_
