// Which lines of a log file are asked for.

#ifndef KELVIK_KELVIKCTL_RECORDFILTER_H_
#define KELVIK_KELVIKCTL_RECORDFILTER_H_

#include <cstddef>
#include <string>

namespace KelvikCtl {

// True when the line begins a record of the module: its name, letter case ignored, stands in the
// first bracket behind date and time, or in the second one behind a number (the thread id).
bool IsOfModule(const char* line, std::size_t length, const std::string& module);

// True for a line that does not begin as a record does, with date and time or with a bracket: the
// rest of a record that has several lines.
bool IsContinuation(const char* line, std::size_t length);

// For the lines of one file, in their order.
class CRecordFilter {
 public:
  // module: records of that module only; empty: of all. text: lines that contain it, letter case
  // minded; empty: all.
  CRecordFilter(const std::string& module, const std::string& text)
      : m_Module(module), m_Text(text) {}

  // Another file begins.
  void Reset() { m_IsInModule = false; }

  // A line that continues a record belongs to that record's module.
  bool Passes(const char* line, std::size_t length);

 private:
  const std::string m_Module;
  const std::string m_Text;
  bool m_IsInModule = false;  // the record that was begun last is the module's
};

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_RECORDFILTER_H_
