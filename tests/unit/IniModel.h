// A second, plain implementation of what loading and saving an INI document means, for the property
// test and the fuzzer to compare with. It knows nothing of IniFile.h: lines in vectors, every
// search from one end to the other, every rule in one place.

#ifndef KELVIK_INIMODEL_H_
#define KELVIK_INIMODEL_H_

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Kelvik {

class CIniModel {
 public:
  // Reads the bytes of a file.
  explicit CIniModel(const std::string& file) {
    std::size_t start = 0;
    while (start < file.size() && static_cast<unsigned char>(file[start]) >= 0x80)
      ++start;
    m_Head = file.substr(0, start);
    if (file.empty()) m_Head = "\xFF";
    m_Sections.push_back({});
    Parse(file.substr(start));
  }

  // The bytes of the file once it is saved.
  std::string Saved() const {
    std::string text;
    for (std::size_t i = 0; i < m_Sections.size(); ++i) {
      const tagSection& section = m_Sections[i];
      if (section.m_Lines.empty()) continue;
      for (const tagLine& line : section.m_Lines) {
        if (line.m_Kind == kHeader && section.m_Name.empty()) continue;
        text += line.m_Text + "\n";
      }
      if (!EndsEmpty(section) && i + 1 < m_Sections.size()) text += "\n";
    }
    const bool isMistakable =
        text.empty() ? m_Head.empty() : static_cast<unsigned char>(text[0]) >= 0x80;
    return m_Head + (isMistakable ? "\n" : "") + text;
  }

  // The value of a key, null when there is none. Names as they stand in the file, in any case.
  const std::string* Find(const std::string& section, const std::string& key) const {
    for (const tagSection& candidate : m_Sections) {
      if (!Same(candidate.m_Name, section)) continue;
      for (const tagLine& line : candidate.m_Lines) {
        if (line.m_Kind == kKey && Same(line.m_Name, key)) return &line.m_Value;
      }
    }
    return nullptr;
  }

  bool HasSection(const std::string& name) const {
    for (const tagSection& section : m_Sections) {
      if (Same(section.m_Name, name)) return true;
    }
    return false;
  }

  // Every section and key that there is.
  std::vector<std::pair<std::string, std::string>> Names() const {
    std::vector<std::pair<std::string, std::string>> names;
    for (const tagSection& section : m_Sections) {
      for (const tagLine& line : section.m_Lines) {
        if (line.m_Kind == kKey) names.emplace_back(section.m_Name, line.m_Name);
      }
    }
    return names;
  }

  // The changes that a program makes; both names as they stand in the file.
  void Set(const std::string& section, const std::string& key, const std::string& value) {
    tagSection* found = FindSection(section);
    if (found == nullptr) {
      m_Sections.push_back({section, {{kHeader, "", "", "[" + section + "]"}}});
      found = &m_Sections.back();
    }
    for (tagLine& line : found->m_Lines) {
      if (line.m_Kind == kKey && Same(line.m_Name, key)) {
        line.m_Value = value;
        line.m_Text = line.m_Name + "=" + value;
        return;
      }
    }
    found->m_Lines.push_back({kKey, key, value, key + "=" + value});
  }

  bool Remove(const std::string& section, const std::string& key) {
    tagSection* found = FindSection(section);
    if (found == nullptr) return false;
    for (std::size_t i = 0; i < found->m_Lines.size(); ++i) {
      if (found->m_Lines[i].m_Kind == kKey && Same(found->m_Lines[i].m_Name, key)) {
        found->m_Lines.erase(found->m_Lines.begin() + static_cast<std::ptrdiff_t>(i));
        return true;
      }
    }
    return false;
  }

  // Lines that are appended to the document.
  void Append(const std::string& lines) {
    EndEmpty(m_Sections.back());
    Parse(lines);
  }

 private:
  enum eKind { kEmpty, kComment, kHeader, kKey };
  struct tagLine {
    eKind m_Kind = kEmpty;
    std::string m_Name;   // of a key
    std::string m_Value;  // of a key
    std::string m_Text;   // as it is saved
  };
  struct tagSection {
    std::string m_Name;
    std::vector<tagLine> m_Lines;
  };

  static std::string Trim(const std::string& text) {
    const char* const blanks = " \t\n\r\f\v";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
  }

  static std::string Lower(const std::string& name) {
    std::string lower = name.substr(0, name.find('\0'));
    for (char& letter : lower) {
      const std::size_t at = std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZ").find(letter);
      if (at != std::string::npos) letter = "abcdefghijklmnopqrstuvwxyz"[at];
    }
    return lower;
  }
  static bool Same(const std::string& left, const std::string& right) {
    return Lower(left) == Lower(right);
  }

  static bool EndsEmpty(const tagSection& section) {
    return !section.m_Lines.empty() && section.m_Lines.back().m_Kind == kEmpty;
  }
  static void EndEmpty(tagSection& section) {
    if (!EndsEmpty(section)) section.m_Lines.push_back({});
  }

  tagSection* FindSection(const std::string& name) {
    for (tagSection& section : m_Sections) {
      if (Same(section.m_Name, name)) return &section;
    }
    return nullptr;
  }

  void Parse(const std::string& text) {
    std::size_t current = m_Sections.size() - 1;
    std::size_t start = 0;
    while (start < text.size()) {
      const std::size_t end = text.find('\n', start);
      const bool isLast = end == std::string::npos;
      const std::string line = Trim(text.substr(start, isLast ? end : end - start));
      if (isLast && line.empty()) return;
      std::size_t piece = 0;
      while (piece <= line.size()) {
        const std::size_t stop = std::min(line.find('\r', piece), line.size());
        TakeLine(Trim(line.substr(piece, stop - piece)), current);
        piece = stop + 1;
      }
      start = isLast ? text.size() : end + 1;
    }
  }

  void TakeLine(const std::string& line, std::size_t& current) {
    if (line.empty()) {
      m_Sections[current].m_Lines.push_back({});
      return;
    }
    if (line[0] == ';' || line[0] == '#') {
      m_Sections[current].m_Lines.push_back({kComment, "", "", line});
      return;
    }
    const std::size_t close = line.find(']');
    if (line[0] == '[' && close != std::string::npos) {
      TakeHeader(Trim(line.substr(1, close - 1)), current);
      return;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) return;
    const std::string name = Trim(line.substr(0, equals));
    if (name.empty() || name.find_first_of(";#") != std::string::npos) return;
    for (const tagLine& other : m_Sections[current].m_Lines) {
      if (other.m_Kind == kKey && Same(other.m_Name, name)) return;
    }
    const std::string value = Trim(line.substr(equals + 1));
    m_Sections[current].m_Lines.push_back({kKey, name, value, name + "=" + value});
  }

  void TakeHeader(const std::string& name, std::size_t& current) {
    std::size_t found = 0;
    while (found < m_Sections.size() && !Same(m_Sections[found].m_Name, name))
      ++found;
    if (found == current) return;
    if (found == m_Sections.size()) {
      tagSection section{name, TakeTail(m_Sections[current])};
      section.m_Lines.push_back({kHeader, "", "", "[" + name + "]"});
      m_Sections.push_back(section);
    } else {
      EndEmpty(m_Sections[found]);
      for (const tagLine& line : TakeTail(m_Sections[current])) {
        m_Sections[found].m_Lines.push_back(line);
      }
      EndEmpty(m_Sections[found]);
    }
    current = found;
  }

  // Takes the comment block off a section's end: from the back, one empty line if it is the last of
  // all, then comments, up to an empty line or the start. A key or header above it keeps it there.
  static std::vector<tagLine> TakeTail(tagSection& section) {
    std::size_t start = section.m_Lines.size();
    while (start > 0) {
      const eKind kind = section.m_Lines[start - 1].m_Kind;
      if (kind == kKey || kind == kHeader) return {};
      if (kind == kEmpty && start != section.m_Lines.size()) break;
      --start;
    }
    const auto at = section.m_Lines.begin() + static_cast<std::ptrdiff_t>(start);
    const std::vector<tagLine> tail(at, section.m_Lines.end());
    section.m_Lines.erase(at, section.m_Lines.end());
    return tail;
  }

  std::string m_Head;
  std::vector<tagSection> m_Sections;  // the unnamed one first
};

}  // namespace Kelvik

#endif  // KELVIK_INIMODEL_H_
