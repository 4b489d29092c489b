// INI documents that a person edits by hand: every comment, empty line and the order of all lines
// stay when a program loads, changes and saves them; section and key names ignore case.
//
//   xini_file_t doc("/etc/app.ini");    // loads; a missing file is an empty document
//   doc["net"]["ip"] = "10.0.0.1";      // creates what is missing, marks the document changed
//   int port = doc["net"]["port"].get_nvalue<int>();  // -1 when absent or not a number
//                                       // the destructor saves a changed document
//
// Header-only, in no namespace, C++ standard library and POSIX only. A document and its nodes
// belong to one thread at a time. References to sections and keys live until the document is
// released or the key is removed. Violated preconditions print their text and abort in every
// build type; nothing that a file contains violates one. File errors show only as a false result.
// Nothing is thrown but std::bad_alloc and what a stream of the caller throws; no exception leaves
// a destructor.
//
// In this order: checks and node types, the base node, empty line, comment, key=value, section,
// document. IniSaver.h writes the file.

#ifndef KELVIK_INIFILE_H_
#define KELVIK_INIFILE_H_

#include <errno.h>
#include <stdint.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <istream>
#include <iterator>
#include <list>
#include <locale>
#include <map>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

#include "IniSaver.h"

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

// ---------------------------------------------------------------------------------------------
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

  xini_node_t(const xini_node_t&) = delete;
  xini_node_t& operator=(const xini_node_t&) = delete;

  // One of xini_ntype_t.
  uint32_t ntype() const { return m_xnode_type; }

  // True when the text holds neither '\r' nor '\n'.
  static bool is_sline(const std::string& text) {
    return text.find('\n') == std::string::npos && text.find('\r') == std::string::npos;
  }

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
  static std::string trim_xstr(const std::string& text) { return trim_part(text, 0, text.size()); }

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
  // `owner` carries the changed flag; it is not owned and outlives the node. May be null.
  xini_node_t(uint32_t type, xini_node_t* owner) : m_xnode_type(type), m_xowner_ptr(owner) {}

  // '\t' to '\r' are tab, line feed, vertical tab, form feed and carriage return.
  static bool is_blank(char letter) { return letter == ' ' || (letter >= '\t' && letter <= '\r'); }

  // text[first, last) without outer whitespace.
  static std::string trim_part(const std::string& text, std::size_t first, std::size_t last) {
    while (first < last && is_blank(text[first]))
      ++first;
    while (first < last && is_blank(text[last - 1]))
      --last;
    return text.substr(first, last - first);
  }

  const uint32_t m_xnode_type;      // fixed for life
  xini_node_t* const m_xowner_ptr;  // not owned; null for the document

 private:
  static int fold(char letter) {
    const int code = static_cast<signed char>(letter);
    return code >= 'A' && code <= 'Z' ? code - 'A' + 'a' : code;
  }

  static bool is_inner(const std::string& text, std::size_t at) {
    return at == std::string::npos || (at != 0 && at < text.size() - 1);
  }
};

// ---------------------------------------------------------------------------------------------
// An empty line.
class xini_nilline_t : public xini_node_t {
 public:
  // Makes an empty line. `owner` as for every node: not owned, null or outliving the node.
  explicit xini_nilline_t(xini_node_t* owner) : xini_node_t(XINI_NTYPE_NILLINE, owner) {}

  std::ostream& operator>>(std::ostream& stream) const override { return stream << std::endl; }
};

// ---------------------------------------------------------------------------------------------
// A comment line.
class xini_comment_t : public xini_node_t {
 public:
  // Makes a comment of a line that begins with ';' or '#'; null for another line. The line must be
  // trimmed and single. The caller owns the result.
  static xini_comment_t* try_create(const std::string& line, xini_node_t* owner) {
    xini_require(is_xtrim(line), "is_xtrim(xstr_line)");
    xini_require(is_sline(line), "is_sline(xstr_line)");
    if (line.empty() || (line[0] != ';' && line[0] != '#')) return nullptr;
    return new xini_comment_t(line, owner);
  }

  std::ostream& operator>>(std::ostream& stream) const override {
    return stream << m_xstr_text << std::endl;
  }

 private:
  xini_comment_t(const std::string& text, xini_node_t* owner)
      : xini_node_t(XINI_NTYPE_COMMENT, owner), m_xstr_text(text) {}

  std::string m_xstr_text;  // the whole line with its ';' or '#'
};

// ---------------------------------------------------------------------------------------------
// A key=value line.
class xini_keyvalue_t : public xini_node_t {
 public:
  // Makes a key of a line 'key = value', split at the first '='; null when there is no '=' or no
  // valid key before it. The line must be trimmed and single. The caller owns the result.
  static xini_keyvalue_t* try_create(const std::string& line, xini_node_t* owner);

  // True for a name that a key can have: not empty, none of ';', '#', '=' and line ends in it, and
  // not to be taken for a section header. The name must be trimmed.
  static bool check_kname(const std::string& name);

  std::ostream& operator>>(std::ostream& stream) const override {
    return stream << m_xstr_kname << '=' << m_xstr_value << std::endl;
  }

  // The name and the value as they stand, trimmed; the references live as long as the node.
  const std::string& kname() const { return m_xstr_kname; }
  const std::string& value() const { return m_xstr_value; }

  // Stores `value` as it is and marks the document changed; an equal value changes nothing.
  void invk_set_value(const std::string& value) {
    if (value == m_xstr_value) return;
    m_xstr_value = value;
    set_dirty(true);
  }

  // Sets the first line of `text`, trimmed; null counts as empty.
  xini_keyvalue_t& operator=(const char* text) {
    const std::string whole(text != nullptr ? text : "");
    const std::size_t end = whole.find_first_of("\r\n");
    invk_set_value(trim_part(whole, 0, end != std::string::npos ? end : whole.size()));
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
  friend class xini_section_t;

  explicit xini_keyvalue_t(xini_node_t* owner) : xini_node_t(XINI_NTYPE_KEYVALUE, owner) {}

  std::string m_xstr_kname;                          // trimmed, passes check_kname
  std::string m_xstr_value;                          // trimmed, one line
  std::list<xini_node_t*>::iterator m_xitr_place{};  // its entry in the section that holds it
};

inline xini_keyvalue_t* xini_keyvalue_t::try_create(const std::string& line, xini_node_t* owner) {
  xini_require(is_xtrim(line), "is_xtrim(xstr_line)");
  xini_require(is_sline(line), "is_sline(xstr_line)");
  const std::size_t equals = line.find('=');
  if (equals == std::string::npos || equals == 0) return nullptr;
  std::string name = trim_part(line, 0, equals);
  if (!check_kname(name)) return nullptr;
  std::unique_ptr<xini_keyvalue_t> key(new xini_keyvalue_t(owner));
  key->m_xstr_kname = std::move(name);
  key->m_xstr_value = trim_part(line, equals + 1, line.size());
  return key.release();
}

inline bool xini_keyvalue_t::check_kname(const std::string& name) {
  xini_require(is_xtrim(name), "is_xtrim(xstr_name)");
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
  return name[0] != '[' || name.find(']') == std::string::npos;
}

template <typename T>
inline T xini_keyvalue_t::get_nvalue() const {
  static_assert(std::is_integral<T>::value && std::is_signed<T>::value && sizeof(T) >= sizeof(int),
                "values are read as signed numbers of int's width or more");
  std::istringstream stream(m_xstr_value);
  stream.imbue(std::locale::classic());
  T number = 0;
  stream >> number;
  return stream.fail() ? static_cast<T>(-1) : number;
}

template <typename T>
inline void xini_keyvalue_t::set_nvalue(T number) {
  static_assert(std::is_integral<T>::value && std::is_signed<T>::value && sizeof(T) >= sizeof(int),
                "values are written as signed numbers of int's width or more");
  std::ostringstream ostr;
  ostr.imbue(std::locale::classic());
  ostr << number;
  xini_require(!ostr.fail(), "!ostr.fail()");
  invk_set_value(ostr.str());
}

// ---------------------------------------------------------------------------------------------
// A section: its lines in file order and its keys by name. One that has a header holds itself as
// an entry where the header stands, so that comments can stand before it; the unnamed section of
// the lines before the first header does not.
//
// A block of comments at the end of a section wanders to the next header, possibly once for every
// line of a file. So that each move costs the same however long the block is, the lines behind the
// last key or header wait in runs: a run is comments and the empty line that ends them, if any.
class xini_section_t : public xini_node_t {
 public:
  // Makes a section without name and lines. `owner` as for every node.
  explicit xini_section_t(xini_node_t* owner) : xini_node_t(XINI_NTYPE_SECTION, owner) {}
  ~xini_section_t() override;

  // Makes a section of a line '[name]'; what follows the first ']' is ignored. Null for another
  // line. The line must be trimmed and single. The caller owns the result.
  static xini_section_t* try_create(const std::string& line, xini_node_t* owner);

  // True for a name of a single line. The name must be trimmed.
  static bool check_sname(const std::string& name) {
    xini_require(is_xtrim(name), "is_xtrim(xstr_name)");
    return is_sline(name);
  }

  std::ostream& operator>>(std::ostream& stream) const override;

  // The name without brackets, empty for the unnamed section; lives as long as the section.
  const std::string& sname() const { return m_xstr_name; }

  // The key of that name (trimmed; it must pass check_kname). A missing one is made with an empty
  // value as the last line of the section, which does not count as a change of the document.
  xini_keyvalue_t& operator[](const std::string& key);

  // The key of exactly that name but for case, or null.
  xini_keyvalue_t* find_knode(const std::string& key) const {
    const auto found = m_xmap_ndkv.find(key);
    return found != m_xmap_ndkv.end() ? found->second : nullptr;
  }

  // Appends an empty line, a comment or a key of a new name and takes it over. False, and the
  // caller keeps the node, for anything else and for null.
  bool push_node(xini_node_t* node);

  // True when the last line is an empty one.
  bool has_end_nilline() const {
    const xini_node_t* last = last_node();
    return last != nullptr && last->ntype() == XINI_NTYPE_NILLINE;
  }

  // Moves the comment block at the end, with one empty line behind it, before (`front`) or behind
  // the entries of `out`, which owns it from then on. Only a block that an empty line or the start
  // of the section separates from the lines above it is moved. Returns the number of lines moved.
  std::size_t pop_tail_comment(std::list<xini_node_t*>& out, bool front);

  // Deletes the key of that name (trimmed) and marks the document changed; false if there is none.
  bool key_remove(const std::string& key);

  // Gives a key of this section another name, taken as it is, and marks the document changed.
  // True without a change when only the case differs; false when another key has the name or the
  // node is no key of this section.
  bool rename_nsub(xini_node_t* key, const std::string& name) override;

 private:
  friend class xini_file_t;
  using nodes_t = std::list<xini_node_t*>;

  const xini_node_t* last_node() const;
  std::ostream& write_node(const xini_node_t* node, std::ostream& stream) const;
  bool push_key(xini_keyvalue_t* key);
  void push_run_node(xini_node_t* node);
  void end_with_nilline();
  bool has_movable_run();
  void move_run_to(xini_section_t& other);
  void delete_nodes(nodes_t& nodes);

  std::string m_xstr_name;  // trimmed; empty for the unnamed section
  nodes_t m_xlst_node;      // owned (but for itself): the lines up to the last key or header
  std::map<std::string, xini_keyvalue_t*, xstr_icmp_t> m_xmap_ndkv;  // the keys among them
  std::list<nodes_t>
      m_xlst_runs;  // owned: the lines behind m_xlst_node, a run per entry, none empty
};

inline xini_section_t::~xini_section_t() {
  delete_nodes(m_xlst_node);
  for (nodes_t& run : m_xlst_runs)
    delete_nodes(run);
}

inline void xini_section_t::delete_nodes(nodes_t& nodes) {
  for (xini_node_t* node : nodes) {
    if (node->ntype() != XINI_NTYPE_SECTION) delete node;
  }
}

inline xini_section_t* xini_section_t::try_create(const std::string& line, xini_node_t* owner) {
  xini_require(is_xtrim(line), "is_xtrim(xstr_line)");
  xini_require(is_sline(line), "is_sline(xstr_line)");
  if (line.empty() || line[0] != '[') return nullptr;
  const std::size_t close = line.find(']', 1);
  if (close == std::string::npos) return nullptr;
  std::unique_ptr<xini_section_t> section(new xini_section_t(owner));
  section->m_xstr_name = trim_part(line, 1, close);
  section->m_xlst_node.push_back(section.get());
  return section.release();
}

inline std::ostream& xini_section_t::write_node(const xini_node_t* node,
                                                std::ostream& stream) const {
  if (node->ntype() != XINI_NTYPE_SECTION) return *node >> stream;
  if (m_xstr_name.empty()) return stream;
  return stream << '[' << m_xstr_name << ']' << std::endl;
}

inline std::ostream& xini_section_t::operator>>(std::ostream& stream) const {
  for (const xini_node_t* node : m_xlst_node)
    write_node(node, stream);
  for (const nodes_t& run : m_xlst_runs) {
    for (const xini_node_t* node : run)
      write_node(node, stream);
  }
  return stream;
}

inline xini_keyvalue_t& xini_section_t::operator[](const std::string& key) {
  const std::string name = trim_xstr(key);
  xini_require(xini_keyvalue_t::check_kname(name), "xini_keyvalue_t::check_kname(xstr_nkey)");
  xini_keyvalue_t* found = find_knode(name);
  if (found != nullptr) return *found;
  std::unique_ptr<xini_keyvalue_t> node(xini_keyvalue_t::try_create(name + "=", m_xowner_ptr));
  xini_require(node != nullptr, "__null != xndkv_ptr");
  push_key(node.get());
  return *node.release();
}

inline bool xini_section_t::push_node(xini_node_t* node) {
  if (node == nullptr) return false;
  switch (node->ntype()) {
    case XINI_NTYPE_NILLINE:
    case XINI_NTYPE_COMMENT:
      push_run_node(node);
      return true;
    case XINI_NTYPE_KEYVALUE:
      return push_key(static_cast<xini_keyvalue_t*>(node));
    default:
      return false;
  }
}

// False for a name that is there already. Either done or, when memory ran out, without effect; so
// the caller knows whose the node is.
inline bool xini_section_t::push_key(xini_keyvalue_t* key) {
  nodes_t entry(1, key);
  // Names often come in order, so the end is tried first.
  const auto place = m_xmap_ndkv.emplace_hint(m_xmap_ndkv.end(), key->m_xstr_kname, key);
  if (place->second != key) return false;
  for (nodes_t& run : m_xlst_runs)
    m_xlst_node.splice(m_xlst_node.end(), run);
  m_xlst_runs.clear();
  m_xlst_node.splice(m_xlst_node.end(), entry);
  key->m_xitr_place = std::prev(m_xlst_node.end());
  return true;
}

inline void xini_section_t::push_run_node(xini_node_t* node) {
  const bool opensRun =
      m_xlst_runs.empty() || m_xlst_runs.back().back()->ntype() == XINI_NTYPE_NILLINE;
  if (opensRun) {
    m_xlst_runs.emplace_back(1, node);
  } else {
    m_xlst_runs.back().push_back(node);
  }
}

inline const xini_node_t* xini_section_t::last_node() const {
  if (!m_xlst_runs.empty()) return m_xlst_runs.back().back();
  return m_xlst_node.empty() ? nullptr : m_xlst_node.back();
}

inline void xini_section_t::end_with_nilline() {
  if (has_end_nilline()) return;
  std::unique_ptr<xini_node_t> line(new xini_nilline_t(m_xowner_ptr));
  push_run_node(line.get());
  line.release();
}

// True when the last run is a block that may leave: a run above it ends with an empty line, or
// nothing stands above it.
inline bool xini_section_t::has_movable_run() {
  // A removed key leaves the lines above it without a key or header behind them: they become runs.
  while (!m_xlst_node.empty()) {
    const uint32_t type = m_xlst_node.back()->ntype();
    if (type == XINI_NTYPE_KEYVALUE || type == XINI_NTYPE_SECTION) break;
    xini_require(type == XINI_NTYPE_NILLINE || type == XINI_NTYPE_COMMENT, "false");
    if (type == XINI_NTYPE_NILLINE || m_xlst_runs.empty()) m_xlst_runs.emplace_front();
    nodes_t& run = m_xlst_runs.front();
    run.splice(run.begin(), m_xlst_node, std::prev(m_xlst_node.end()));
  }
  if (m_xlst_runs.empty()) return false;
  return m_xlst_runs.size() > 1 || m_xlst_node.empty();
}

inline std::size_t xini_section_t::pop_tail_comment(std::list<xini_node_t*>& out, bool front) {
  if (!has_movable_run()) return 0;
  nodes_t& run = m_xlst_runs.back();
  const std::size_t moved = run.size();
  out.splice(front ? out.begin() : out.end(), run);
  m_xlst_runs.pop_back();
  return moved;
}

// pop_tail_comment to the end of another section, which ends with an empty line.
inline void xini_section_t::move_run_to(xini_section_t& other) {
  if (!has_movable_run()) return;
  other.m_xlst_runs.splice(other.m_xlst_runs.end(), m_xlst_runs, std::prev(m_xlst_runs.end()));
}

inline bool xini_section_t::key_remove(const std::string& key) {
  const auto found = m_xmap_ndkv.find(trim_xstr(key));
  if (found == m_xmap_ndkv.end()) return false;
  const std::unique_ptr<xini_keyvalue_t> node(found->second);
  m_xlst_node.erase(node->m_xitr_place);
  m_xmap_ndkv.erase(found);
  set_dirty(true);
  return true;
}

inline bool xini_section_t::rename_nsub(xini_node_t* key, const std::string& name) {
  if (key == nullptr) return false;
  xini_require(XINI_NTYPE_KEYVALUE == key->ntype(), "XINI_NTYPE_KEYVALUE == xnsub_ptr->ntype()");
  xini_keyvalue_t* node = static_cast<xini_keyvalue_t*>(key);
  const auto old = m_xmap_ndkv.find(node->m_xstr_kname);
  if (old == m_xmap_ndkv.end() || old->second != node) return false;
  if (xstr_icmp(node->m_xstr_kname.c_str(), name.c_str()) == 0) return true;
  std::string stored(name);
  if (!m_xmap_ndkv.emplace(name, node).second) return false;
  m_xmap_ndkv.erase(old);
  node->m_xstr_kname.swap(stored);
  set_dirty(true);
  return true;
}

// ---------------------------------------------------------------------------------------------
// A document bound to a path. Owns its sections.
class xini_file_t : public xini_node_t {
 public:
  // Makes an empty document and loads `path`; a missing file leaves it empty and bound to the path.
  explicit xini_file_t(const std::string& path) : xini_file_t() { load(path); }
  // Saves a changed document, as release() does.
  ~xini_file_t() override;

  // Releases the document, then binds it to `path` and reads it. The document is clean afterwards.
  // False when the path is empty or cannot be opened: the document is empty and a later save
  // creates the file. False as well when reading fails (a directory, an I/O error): then the
  // document is empty and bound to nothing, so that no save destroys what could not be read. A
  // device counts as a file that cannot be opened.
  bool load(const std::string& path);

  // Appends the lines of a stream, up to its end or its first failure; lines that are no comment,
  // section or key, and keys that their section has already, are dropped. A section that exists is
  // continued. What is appended marks the document changed.
  xini_file_t& operator<<(std::istream& stream);

  // Writes the document without its head bytes. Sections are separated by an empty line.
  std::ostream& operator>>(std::ostream& stream) const override;

  // Writes the document to a path, as safely as the place allows (xini_saver_t). False when the
  // path cannot be opened for writing or the bytes cannot be written; the old file is whole then,
  // unless it had to be written in place. The changed flag is neither looked at nor cleared.
  bool dump(const std::string& path) const;

  // Saves the document to its path if it changed (a failure goes unnoticed), then empties it and
  // unbinds it from the path.
  void release();

  // The section of that name, outer brackets and whitespace put aside; the name must be a single
  // line and ends before an inner ']', as it would in a file. A missing section is appended, which
  // does not count as a change of the document.
  xini_section_t& operator[](const std::string& name);

  // The section of exactly that name but for case, or null.
  xini_section_t* find_sect(const std::string& name) const {
    const auto found = m_xmap_sect.find(name);
    return found != m_xmap_sect.end() ? found->second : nullptr;
  }

  // Enters a section that was read while `current` was the last: takes `sect` over and returns it
  // if its name is new, otherwise returns the section of that name, and the caller keeps `sect`.
  // The comment block at the end of `current` goes with the header. Neither may be null.
  xini_section_t* push_sect(xini_section_t* sect, xini_section_t* current);

  bool is_dirty() const override { return m_xbt_dirty; }
  void set_dirty(bool dirty) override { m_xbt_dirty = dirty; }

  // Gives a section of this document another name, taken as it is, and marks the document changed.
  // True without a change when only the case differs; false when another section has the name or
  // the node is no section of this document.
  bool rename_nsub(xini_node_t* sect, const std::string& name) override;

 private:
  xini_file_t() : xini_node_t(XINI_NTYPE_FILE, nullptr) {}

  // Bytes that are neither control nor printable characters; those before the first character of a
  // file (a byte-order mark) make its head.
  static bool is_head_byte(char letter) { return static_cast<signed char>(letter) < 0; }

  static bool is_absent(int error);
  void clear();
  void read_head(std::istream& stream);
  void enter_sect(xini_section_t* sect);
  xini_section_t* begin_parse();
  std::unique_ptr<xini_node_t> make_node(const std::string& line);
  void parse_line(const std::string& line, xini_section_t*& current);

  bool m_xbt_dirty = false;                // changed since it was loaded or saved
  std::string m_xstr_path;                 // where it was loaded from and is saved to
  std::string m_xstr_head;                 // written back before the first line
  std::list<xini_section_t*> m_xlst_sect;  // owned; in file order, the unnamed one first
  std::map<std::string, xini_section_t*, xstr_icmp_t> m_xmap_sect;  // the same by name
};

inline xini_file_t::~xini_file_t() {
  try {
    xini_file_t::release();
  } catch (...) {
    // Out of memory while saving: the file keeps its old bytes.
  }
  clear();
}

// Forgets everything and saves nothing.
inline void xini_file_t::clear() {
  for (xini_section_t* sect : m_xlst_sect)
    delete sect;
  m_xlst_sect.clear();
  m_xmap_sect.clear();
  m_xstr_path.clear();
  m_xstr_head.clear();
  m_xbt_dirty = false;
}

inline void xini_file_t::release() {
  if (m_xbt_dirty) {
    dump(m_xstr_path);
    m_xbt_dirty = false;
  }
  clear();
}

// Whether an open that ended with this errno value found no file to read at that path.
inline bool xini_file_t::is_absent(int error) {
  return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == ELOOP ||
         error == EACCES || error == ENXIO;
}

inline bool xini_file_t::load(const std::string& path) {
  // The caller's text may be a part of this document.
  const std::string kept(path);
  release();
  m_xstr_path = kept;
  if (kept.empty()) return false;
  bool isWhole = false;
  try {
    xini_saver_t::reader_t reader(kept);
    if (is_absent(reader.error())) return false;
    std::istream stream(&reader);
    read_head(stream);
    *this << stream;
    // A stream keeps to itself that memory ran out.
    isWhole = reader.error() == 0 && !stream.bad();
  } catch (...) {
    clear();
    throw;
  }
  m_xbt_dirty = false;
  // Half a document, and one that is there but could not be read (an I/O error, no descriptor
  // left), must never be saved over the whole one.
  if (!isWhole) clear();
  return isWhole;
}

// An empty file has the head 0xFF.
inline void xini_file_t::read_head(std::istream& stream) {
  using traits_t = std::istream::traits_type;
  traits_t::int_type next = stream.peek();
  if (traits_t::eq_int_type(next, traits_t::eof())) {
    if (!stream.bad()) m_xstr_head.push_back('\xFF');
    return;
  }
  while (!traits_t::eq_int_type(next, traits_t::eof()) &&
         is_head_byte(traits_t::to_char_type(next))) {
    m_xstr_head.push_back(traits_t::to_char_type(stream.get()));
    next = stream.peek();
  }
}

// Takes a section over; either done or, when memory ran out, without effect. Without a header line
// only the first place keeps an unnamed section's keys out of the other sections of the file.
inline void xini_file_t::enter_sect(xini_section_t* sect) {
  std::list<xini_section_t*> entry(1, sect);
  m_xmap_sect.emplace(sect->m_xstr_name, sect);
  m_xlst_sect.splice(sect->m_xstr_name.empty() ? m_xlst_sect.begin() : m_xlst_sect.end(), entry);
}

inline xini_section_t* xini_file_t::begin_parse() {
  if (m_xlst_sect.empty()) {
    xini_require(m_xmap_sect.empty(), "m_xmap_sect.empty()");
    std::unique_ptr<xini_section_t> unnamed(new xini_section_t(this));
    enter_sect(unnamed.get());
    return unnamed.release();
  }
  m_xlst_sect.back()->end_with_nilline();
  return m_xlst_sect.back();
}

inline xini_file_t& xini_file_t::operator<<(std::istream& stream) {
  xini_section_t* current = begin_parse();
  std::string line;
  while (std::getline(stream, line)) {
    std::size_t last = line.size();
    while (last > 0 && is_blank(line[last - 1]))
      --last;
    std::size_t first = 0;
    while (first < last && is_blank(line[first]))
      ++first;
    if (first == last && stream.eof()) break;
    // A carriage return between two texts ends a line as well; the outer ones are trimmed.
    std::size_t end = 0;
    while ((end = line.find('\r', first)) < last) {
      parse_line(trim_part(line, first, end), current);
      first = end + 1;
    }
    if (last != line.size()) line.erase(last);
    while (first < line.size() && is_blank(line[first]))
      ++first;
    if (first != 0) line.erase(0, first);
    parse_line(line, current);
  }
  return *this;
}

inline void xini_file_t::parse_line(const std::string& line, xini_section_t*& current) {
  std::unique_ptr<xini_node_t> node = make_node(line);
  if (node == nullptr) return;
  if (node->ntype() == XINI_NTYPE_SECTION) {
    current = push_sect(static_cast<xini_section_t*>(node.get()), current);
    if (current != node.get()) return;
  } else if (!current->push_node(node.get())) {
    return;
  }
  node.release();
  m_xbt_dirty = true;
}

// Comment, section, key: a section's first character alone decides whether it is worth a try.
inline std::unique_ptr<xini_node_t> xini_file_t::make_node(const std::string& line) {
  if (line.empty()) return std::make_unique<xini_nilline_t>(this);
  xini_node_t* node = nullptr;
  if (line[0] == ';' || line[0] == '#') {
    node = xini_comment_t::try_create(line, this);
  } else {
    if (line[0] == '[') node = xini_section_t::try_create(line, this);
    if (node == nullptr) node = xini_keyvalue_t::try_create(line, this);
  }
  return std::unique_ptr<xini_node_t>(node);
}

inline xini_section_t* xini_file_t::push_sect(xini_section_t* sect, xini_section_t* current) {
  xini_section_t* found = find_sect(sect->m_xstr_name);
  if (found == nullptr) {
    enter_sect(sect);
    current->pop_tail_comment(sect->m_xlst_node, true);
    return sect;
  }
  if (found != current) {
    found->end_with_nilline();
    current->move_run_to(*found);
    found->end_with_nilline();
  }
  return found;
}

inline std::ostream& xini_file_t::operator>>(std::ostream& stream) const {
  for (const xini_section_t* sect : m_xlst_sect) {
    if (sect->last_node() == nullptr) continue;
    *sect >> stream;
    if (!sect->has_end_nilline() && sect != m_xlst_sect.back()) stream << std::endl;
  }
  return stream;
}

inline bool xini_file_t::dump(const std::string& path) const {
  if (path.empty()) return false;
  std::ostringstream stream;
  *this >> stream;
  // A stream keeps to itself that it found no memory: half the lines must not replace the file.
  if (!stream.good()) return false;
  const std::string lines = stream.str();
  std::string bytes = m_xstr_head;
  // A first line that begins with a head byte would be read back as a part of the head, and no byte
  // at all as the head of an empty file: an empty line keeps the next save equal to this one.
  if (lines.empty() ? bytes.empty() : is_head_byte(lines[0])) bytes += '\n';
  bytes += lines;
  return xini_saver_t::save(path, bytes);
}

inline xini_section_t& xini_file_t::operator[](const std::string& name) {
  std::string trimmed = trim_xstr(name, "[] \t\n\r\f\v");
  xini_require(xini_section_t::check_sname(trimmed), "xini_section_t::check_sname(xstr_name)");
  const std::size_t close = trimmed.find(']');
  if (close != std::string::npos) trimmed = trim_part(trimmed, 0, close);
  xini_section_t* found = find_sect(trimmed);
  if (found != nullptr) return *found;
  std::unique_ptr<xini_section_t> sect(xini_section_t::try_create("[" + trimmed + "]", this));
  xini_require(sect != nullptr, "__null != xsect_ptr");
  enter_sect(sect.get());
  return *sect.release();
}

inline bool xini_file_t::rename_nsub(xini_node_t* sect, const std::string& name) {
  if (sect == nullptr) return false;
  xini_require(XINI_NTYPE_SECTION == sect->ntype(), "XINI_NTYPE_SECTION == xnsub_ptr->ntype()");
  xini_section_t* node = static_cast<xini_section_t*>(sect);
  const auto old = m_xmap_sect.find(node->m_xstr_name);
  if (old == m_xmap_sect.end() || old->second != node) return false;
  if (xstr_icmp(node->m_xstr_name.c_str(), name.c_str()) == 0) return true;
  std::string stored(name);
  if (!m_xmap_sect.emplace(name, node).second) return false;
  m_xmap_sect.erase(old);
  node->m_xstr_name.swap(stored);
  m_xbt_dirty = true;
  return true;
}

#endif  // KELVIK_INIFILE_H_
