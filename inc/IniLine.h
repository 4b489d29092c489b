// The lines of an INI document that stand for themselves: empty line, comment, key=value. A part of
// IniFile.h.

#ifndef KELVIK_INILINE_H_
#define KELVIK_INILINE_H_

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <list>
#include <string>
#include <string_view>
#include <type_traits>

#include "IniNode.h"

// An empty line.
class xini_nilline_t : public xini_node_t {
 public:
  // Makes an empty line. `owner` as for every node: not owned, null or outliving the node.
  explicit xini_nilline_t(xini_node_t* owner) : xini_node_t(XINI_NTYPE_NILLINE, owner) {}

  std::ostream& operator>>(std::ostream& stream) const override { return write_lines(stream); }
  void append_to(std::string& text) const override { text += '\n'; }
};

// A comment line.
class xini_comment_t : public xini_node_t {
 public:
  // Makes a comment of a line that begins with ';' or '#'; null for another line. The line must be
  // trimmed and single. The caller owns the result.
  static xini_comment_t* try_create(const std::string& line, xini_node_t* owner) {
    xini_require(is_xtrim(line), "is_xtrim(xstr_line)");
    xini_require(is_sline(line), "is_sline(xstr_line)");
    return is_comment(line) ? new xini_comment_t(line, owner) : nullptr;
  }

  std::ostream& operator>>(std::ostream& stream) const override { return write_lines(stream); }
  void append_to(std::string& text) const override { append_line(text, m_xstr_text); }

 private:
  friend class xini_file_t;

  static bool is_comment(std::string_view line) {
    return !line.empty() && (line[0] == ';' || line[0] == '#');
  }

  xini_comment_t(std::string_view text, xini_node_t* owner)
      : xini_node_t(XINI_NTYPE_COMMENT, owner), m_xstr_text(text) {}

  std::string m_xstr_text;  // the whole line with its ';' or '#'
};

// A key=value line.
class xini_keyvalue_t : public xini_node_t {
 public:
  // Makes a key of a line 'key = value', split at the first '='; null when there is no '=' or no
  // valid key before it. The line must be trimmed and single. The caller owns the result.
  static xini_keyvalue_t* try_create(const std::string& line, xini_node_t* owner) {
    xini_require(is_xtrim(line), "is_xtrim(xstr_line)");
    xini_require(is_sline(line), "is_sline(xstr_line)");
    return make(line, owner);
  }

  // True for a name that a key can have: not empty, none of ';', '#', '=' and line ends in it, and
  // not to be taken for a section header. The name must be trimmed.
  static bool check_kname(const std::string& name) {
    xini_require(is_xtrim(name), "is_xtrim(xstr_name)");
    return is_kname(name);
  }

  std::ostream& operator>>(std::ostream& stream) const override { return write_lines(stream); }
  void append_to(std::string& text) const override {
    append_line(text, m_xstr_kname, "=", m_xstr_value);
  }

  // The name and the value as they stand, trimmed; the references live as long as the node.
  const std::string& kname() const { return m_xstr_kname; }
  const std::string& value() const { return m_xstr_value; }

  // Stores `value` as it is and marks the document changed; an equal value changes nothing.
  void invk_set_value(std::string_view value) {
    if (value == m_xstr_value) return;
    m_xstr_value = value;
    set_dirty(true);
  }

  // Sets the first line of `text`, trimmed; null counts as empty.
  xini_keyvalue_t& operator=(const char* text) {
    if (text == nullptr) text = "";
    invk_set_value(trim_view({text, std::strcspn(text, "\r\n")}));
    return *this;
  }

  // The value as a decimal number, leading blanks skipped and what follows the digits ignored;
  // -1 when there is no number or it does not fit.
  template <typename T>
  T get_nvalue() const;

  // Sets the value to the decimal text of `number`.
  template <typename T>
  void set_nvalue(T number);

 private:
  friend class xini_file_t;
  friend class xini_names_t;
  friend class xini_section_t;

  xini_keyvalue_t(std::string_view name, std::string_view value, xini_node_t* owner)
      : xini_node_t(XINI_NTYPE_KEYVALUE, owner), m_xstr_kname(name), m_xstr_value(value) {}

  static xini_keyvalue_t* make(std::string_view line, xini_node_t* owner);
  static bool is_kname(std::string_view name);

  std::string m_xstr_kname;                          // trimmed, passes check_kname
  std::string m_xstr_value;                          // trimmed, one line
  std::list<xini_node_t*>::iterator m_xitr_place{};  // its entry in the section that holds it
};

// try_create for a line that is known to be trimmed and single.
inline xini_keyvalue_t* xini_keyvalue_t::make(std::string_view line, xini_node_t* owner) {
  const std::string_view left = before(line, '=');
  if (left.size() == line.size()) return nullptr;
  const std::string_view name = trim_view(left);
  if (!is_kname(name)) return nullptr;
  line.remove_prefix(left.size() + 1);
  return new xini_keyvalue_t(name, trim_view(line), owner);
}

// check_kname for a name that is known to be trimmed.
inline bool xini_keyvalue_t::is_kname(std::string_view name) {
  if (name.empty()) return false;
  for (const char letter : name) {
    switch (letter) {
      case ';':
      case '#':
      case '=':
      case '\r':
      case '\n':
        return false;
      default:
        break;
    }
  }
  return name[0] != '[' || !holds(name, ']');
}

template <typename T>
inline T xini_keyvalue_t::get_nvalue() const {
  static_assert(std::is_integral<T>::value && std::is_signed<T>::value && sizeof(T) >= sizeof(int),
                "values are read as signed numbers of int's width or more");
  const char* at = m_xstr_value.c_str();
  while (is_blank(*at))
    ++at;
  const bool isNegative = *at == '-';
  if (isNegative || *at == '+') ++at;
  if (*at < '0' || *at > '9') return -1;
  // Counted below zero, where there is one number more than above.
  constexpr T kLeast = std::numeric_limits<T>::min();
  T number = 0;
  for (; *at >= '0' && *at <= '9'; ++at) {
    const T digit = *at - '0';
    if (number < (kLeast + digit) / 10) return -1;
    number = number * 10 - digit;
  }
  if (isNegative) return number;
  return number != kLeast ? -number : -1;
}

template <typename T>
inline void xini_keyvalue_t::set_nvalue(T number) {
  static_assert(std::is_integral<T>::value && std::is_signed<T>::value &&
                    sizeof(T) >= sizeof(int) && sizeof(T) <= sizeof(long long),
                "values are written as signed numbers of int's width or more");
  char text[24];  // holds the 20 characters of the least 64-bit number
  std::snprintf(text, sizeof(text), "%lld", static_cast<long long>(number));
  invk_set_value(text);
}

#endif  // KELVIK_INILINE_H_
