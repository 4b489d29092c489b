// Each line is taken for what the INI library takes it for: its node types are asked, in its order.

#include "ConfigCheck.h"

#include <algorithm>
#include <map>
#include <memory>

#include "ConfigKeys.h"
#include "IniFile.h"
#include "Words.h"

namespace KelvikCtl {

namespace {

template <class Value>
using ByName = std::map<std::string, Value, xini_node_t::xstr_icmp_t>;

struct tagKeyLine {
  int m_Line;
  std::string m_Section;
  std::string m_Key;
  std::string m_Value;
};

std::string Quoted(const std::string& text) {
  return "'" + Printable(text) + "'";
}

// As the library counts a name.
std::string UpToNul(const std::string& name) {
  return name.substr(0, name.find('\0'));
}

class CChecker {
 public:
  void TakeLine(int number, const std::string& line) {
    if (line.empty() || line[0] == ';' || line[0] == '#') return;
    if (line[0] == '[') {
      const std::unique_ptr<xini_section_t> section(xini_section_t::try_create(line, nullptr));
      if (section != nullptr) {
        TakeSection(number, line, UpToNul(section->sname()));
        return;
      }
    }
    const std::unique_ptr<xini_keyvalue_t> key(xini_keyvalue_t::try_create(line, nullptr));
    if (key != nullptr) {
      TakeKey(number, UpToNul(key->kname()), key->value());
    } else {
      Say(number, Quoted(line) + " is no comment, section or key: a save drops it");
    }
  }

  std::vector<tagFinding> Finish() {
    const tagContext context = Context();
    for (const tagKeyLine& line : m_Lines) {
      eSection kind = eSection::kModule;
      if (EqualsIgnoringCase(line.m_Section, "Global")) kind = eSection::kGlobal;
      if (EqualsIgnoringCase(line.m_Section, "fileName")) kind = eSection::kFileNames;
      if (line.m_Section.empty()) {
        Say(line.m_Line, Quoted(line.m_Key) + " stands in no section: it is not read");
      } else if (const auto said = JudgeKey(kind, line.m_Key, line.m_Value, context)) {
        Say(line.m_Line, line.m_Key + " " + *said);
      }
    }
    std::vector<tagFinding> findings;
    for (const auto& [number, text] : m_Findings)
      findings.push_back({number, text});
    return findings;
  }

 private:
  void Say(int number, const std::string& text) { m_Findings.emplace(number, text); }

  void TakeSection(int number, const std::string& line, const std::string& name) {
    const std::string rest = xini_node_t::trim_xstr(line.substr(line.find(']') + 1));
    if (!rest.empty()) Say(number, Quoted(rest) + " behind the section's name: a save drops it");
    const auto [first, isNew] = m_Sections.emplace(name, number);
    const int former = first->second;
    m_Section = &first->first;
    const std::string where = name.empty() ? "a section without a name means the top"
                                           : "section " + Quoted(name) + " stands in line " +
                                                 std::to_string(former) + " already";
    if (!isNew) {
      Say(number, where + (m_LastSection == former ? ": a save drops the line"
                                                   : ": a save moves what follows there"));
    }
    m_LastSection = former;
  }

  void TakeKey(int number, const std::string& key, const std::string& value) {
    const auto [first, isNew] = m_Keys[*m_Section].emplace(key, number);
    if (!isNew) {
      Say(number, Quoted(key) + " stands in line " + std::to_string(first->second) +
                      " already: that one counts, and a save drops this one");
      return;
    }
    m_Lines.push_back({number, *m_Section, key, value});
  }

  std::string ValueOf(const char* name) const {
    for (const tagKeyLine& line : m_Lines) {
      if (EqualsIgnoringCase(line.m_Section, "Global") && EqualsIgnoringCase(line.m_Key, name)) {
        return line.m_Value;
      }
    }
    return "";
  }

  int NumberOf(const char* name) const {
    const std::unique_ptr<xini_keyvalue_t> key(
        xini_keyvalue_t::try_create("k=" + ValueOf(name), nullptr));
    return key->get_nvalue<int>();
  }

  tagContext Context() const {
    return {NumberOf("LogMaxCount"), NumberOf("LogMaxSize"), ValueOf("LogFilePath")};
  }

  ByName<int> m_Sections = {{"", 0}};  // the line of the first header; the unnamed one has none
  const std::string* m_Section = &m_Sections.begin()->first;
  int m_LastSection = 0;  // its line
  ByName<ByName<int>> m_Keys;
  std::vector<tagKeyLine> m_Lines;  // the keys that count
  std::multimap<int, std::string> m_Findings;
};

bool IsHeadByte(char byte) {
  return (static_cast<unsigned char>(byte) & 0x80) != 0;
}

}  // namespace

std::vector<tagFinding> CheckConfig(const std::string& text) {
  CChecker checker;
  int number = 1;
  std::size_t at = 0;
  // A byte-order mark stays where it is.
  while (at < text.size() && IsHeadByte(text[at]))
    ++at;
  while (at < text.size()) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    // A carriage return between two texts ends a line as well, for an editor the same one.
    std::size_t first = at;
    while (first <= end) {
      const std::size_t stop = std::min(text.find('\r', first), end);
      checker.TakeLine(number, xini_node_t::trim_xstr(text.substr(first, stop - first)));
      first = stop + 1;
    }
    at = end + 1;
    ++number;
  }
  return checker.Finish();
}

}  // namespace KelvikCtl
