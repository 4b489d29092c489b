#include "StatusText.h"

#include <cstddef>

namespace KelvikCtl {

namespace {

constexpr char kModulesHeading[] = "==========Register Module==========\n";
constexpr char kDisplaysHeading[] = "==========Cmd Module==========\n";

// Takes a text apart from its start. Once something was missing, everything is.
class CReader {
 public:
  explicit CReader(const std::string& text) : m_Text(text) {}

  bool IsGood() const { return m_IsGood; }
  bool HasMore() const { return m_IsGood && m_At < m_Text.size(); }

  void Expect(const std::string& what) {
    if (m_Text.compare(m_At, what.size(), what) != 0) m_IsGood = false;
    if (m_IsGood) m_At += what.size();
  }

  bool Word() {
    const bool isOn = m_Text.compare(m_At, 4, "true") == 0;
    Expect(isOn ? "true" : "false");
    return isOn;
  }

  // What stands before the end mark, which is taken too.
  std::string Until(const std::string& end) {
    const std::size_t found = m_IsGood ? m_Text.find(end, m_At) : std::string::npos;
    if (found == std::string::npos) {
      m_IsGood = false;
      return "";
    }
    std::string before = m_Text.substr(m_At, found - m_At);
    m_At = found + end.size();
    return before;
  }

  // What stands before the end mark that closes the text.
  std::string UntilLast(const std::string& end) {
    if (!m_IsGood || m_Text.size() < m_At + end.size() ||
        m_Text.compare(m_Text.size() - end.size(), end.size(), end) != 0) {
      m_IsGood = false;
      return "";
    }
    std::string before = m_Text.substr(m_At, m_Text.size() - end.size() - m_At);
    m_At = m_Text.size();
    return before;
  }

 private:
  const std::string& m_Text;
  std::size_t m_At = 0;  // never past the end
  bool m_IsGood = true;
};

}  // namespace

std::optional<tagStatus> ParseStatus(const std::string& text) {
  tagStatus status;
  CReader reader(text);
  reader.Expect("[Attribute] module:");
  reader.Until(".\n");
  std::size_t next = 0;
  for (const char* const name :
       {"[Output mode] printf:", " system:", " file:", " datetime:", " tid:",
        ".\n[Log level] debug:", " info:", " warning:", " error:", " fatal:"}) {
    reader.Expect(name);
    status.m_On.at(next++) = reader.Word();
  }
  reader.Expect(".\n[Log file] path:");
  status.m_Path = reader.UntilLast(".\n");
  if (!reader.IsGood()) return std::nullopt;
  return status;
}

std::optional<std::vector<std::string>> ParseModules(const std::string& text) {
  std::vector<std::string> modules;
  CReader reader(text);
  reader.Expect(kModulesHeading);
  while (reader.HasMore()) {
    reader.Expect("[");
    modules.push_back(reader.Until("]\n"));
  }
  if (!reader.IsGood()) return std::nullopt;
  return modules;
}

std::optional<DisplayNames> ParseDisplays(const std::string& text) {
  DisplayNames displays;
  CReader reader(text);
  reader.Expect(kDisplaysHeading);
  while (reader.HasMore()) {
    reader.Expect("moudle:[");
    std::string module = reader.Until("], title:[");
    displays.emplace_back(std::move(module), reader.Until("]\n"));
  }
  if (!reader.IsGood()) return std::nullopt;
  return displays;
}

}  // namespace KelvikCtl
