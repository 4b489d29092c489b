// The base of all nodes of an INI document, the node types, the assertions, and the string
// functions that the library rests on. A part of IniFile.h.

#ifndef KELVIK_ININODE_H_
#define KELVIK_ININODE_H_

#include <stdint.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

// What a node's ntype() returns.
enum xini_ntype_t : uint32_t {
  XINI_NTYPE_FILE = 0,          // the document
  XINI_NTYPE_NILLINE = 0x100,   // an empty line
  XINI_NTYPE_COMMENT = 0x200,   // a comment line
  XINI_NTYPE_SECTION = 0x300,   // a section header and the section that it opens
  XINI_NTYPE_KEYVALUE = 0x400,  // a key=value line
};

// An assertion that NDEBUG does not switch off: prints `text` on standard error and aborts.
inline void xini_require(bool holds, const char* text) {
  if (holds) return;
  std::fprintf(stderr, "Assertion `%s' failed.\n", text);
  std::abort();
}

// Base of all nodes, and the string functions that the library rests on. Character tests are
// ASCII, whatever the locale.
class xini_node_t {
 public:
  // Orders names without regard to case; a name counts up to its first NUL.
  struct xstr_icmp_t {
    // Whether left sorts before right.
    bool operator()(const std::string& left, const std::string& right) const {
      return xstr_icmp(left.c_str(), right.c_str()) < 0;
    }
  };

  virtual ~xini_node_t() = default;

  // Writes the node's line or lines, each ended by std::endl. Returns the stream.
  virtual std::ostream& operator>>(std::ostream& stream) const = 0;

  // The changed flag lives in the document; other nodes ask their owner. False without one.
  virtual bool is_dirty() const { return m_xowner_ptr != nullptr && m_xowner_ptr->is_dirty(); }
  virtual void set_dirty(bool dirty) {
    if (m_xowner_ptr != nullptr) m_xowner_ptr->set_dirty(dirty);
  }

  // Renames the child `sub`. False when it cannot be done; a node without children never can.
  virtual bool rename_nsub(xini_node_t* sub, const std::string& name) {
    static_cast<void>(sub);
    static_cast<void>(name);
    return false;
  }

  // Appends the node's line or lines, each ended by a line feed: what operator>> writes, which the
  // library's own nodes have at hand without a stream (a class made from one of them overrides
  // both). Throws std::bad_alloc where operator>> leaves its stream failed: a stream keeps to
  // itself that it found no memory, and half the lines must not replace a file.
  virtual void append_to(std::string& text) const;

  xini_node_t(const xini_node_t&) = delete;
  xini_node_t& operator=(const xini_node_t&) = delete;

  // One of xini_ntype_t.
  uint32_t ntype() const { return m_xnode_type; }

  // True when the text holds neither '\r' nor '\n'.
  static bool is_sline(const std::string& text) { return is_single(text); }

  // Judges by the first character out of `set` alone: trimmed when there is none, or when it is
  // neither the first nor the last character of the text. So 'a b ' counts as trimmed.
  static bool is_xtrim(const std::string& text, const std::string& set) {
    return is_inner(text, text.find_first_of(set));
  }
  // The same for whitespace: blank, tab, line feed, carriage return, form feed, vertical tab.
  static bool is_xtrim(const std::string& text) {
    std::size_t at = 0;
    while (at < text.size() && !is_blank(text[at]))
      ++at;
    return is_inner(text, at < text.size() ? at : std::string::npos);
  }

  // The text without leading and trailing characters of `set` (or whitespace).
  static std::string trim_xstr(const std::string& text, const std::string& set) {
    const std::size_t first = text.find_first_not_of(set);
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(set) - first + 1);
  }
  static std::string trim_xstr(const std::string& text) { return std::string(trim_view(text)); }

  // Compares with only 'A'..'Z' folded. A null sorts before any text, two nulls are equal.
  // Otherwise the difference of the first differing folded bytes, taken as signed chars.
  static int xstr_icmp(const char* left, const char* right) {
    if (left == right) return 0;
    if (left == nullptr) return -1;
    if (right == nullptr) return 1;
    while (*left != '\0' && (*left == *right || fold(*left) == fold(*right))) {
      ++left;
      ++right;
    }
    return fold(*left) - fold(*right);
  }

 protected:
  friend class xini_names_t;

  // `owner` carries the changed flag; it is not owned and outlives the node. May be null.
  xini_node_t(uint32_t type, xini_node_t* owner) : m_xnode_type(type), m_xowner_ptr(owner) {}

  // '\t' to '\r' are tab, line feed, vertical tab, form feed and carriage return.
  static bool is_blank(char letter) { return letter == ' ' || (letter >= '\t' && letter <= '\r'); }

  // A letter as a signed char, 'A' to 'Z' as the small one.
  static int fold(char letter) {
    const auto code = static_cast<signed char>(letter);
    return code >= 'A' && code <= 'Z' ? code - 'A' + 'a' : code;
  }

  // The part of the text before the first `letter`, or all of it.
  static std::string_view before(std::string_view text, char letter) {
    if (text.empty()) return text;
    const void* at = std::memchr(text.data(), letter, text.size());
    if (at == nullptr) return text;
    return {text.data(), static_cast<std::size_t>(static_cast<const char*>(at) - text.data())};
  }
  static bool holds(std::string_view text, char letter) {
    return before(text, letter).size() != text.size();
  }

  // is_sline for a text that is no std::string.
  static bool is_single(std::string_view text) { return !holds(text, '\n') && !holds(text, '\r'); }

  // The part of the text between its outer whitespace.
  static std::string_view trim_view(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
      text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
      text.remove_suffix(1);
    return text;
  }

  // operator>> of a node whose append_to does not need it.
  std::ostream& write_lines(std::ostream& stream) const;

  // Appends a line of up to three pieces.
  static void append_line(std::string& text, std::string_view first, std::string_view second = {},
                          std::string_view third = {}) {
    text.append(first).append(second).append(third).push_back('\n');
  }

  const uint32_t m_xnode_type;      // fixed for life
  xini_node_t* const m_xowner_ptr;  // not owned; null for the document

 private:
  static bool is_inner(const std::string& text, std::size_t at) {
    return at == std::string::npos || (at != 0 && at < text.size() - 1);
  }
};

inline void xini_node_t::append_to(std::string& text) const {
  std::ostringstream stream;
  *this >> stream;
  if (!stream) throw std::bad_alloc();
  text += stream.str();
}

inline std::ostream& xini_node_t::write_lines(std::ostream& stream) const {
  std::string text;
  append_to(text);
  for (std::string_view rest(text); !rest.empty();) {
    const std::string_view line = before(rest, '\n');
    // A width that the stream has pads the first text, not an empty line before it.
    if (!line.empty()) stream << line;
    stream.put('\n').flush();
    rest.remove_prefix(line.size() + 1);
  }
  return stream;
}

#endif  // KELVIK_ININODE_H_
