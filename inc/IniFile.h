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
// Here stands the document. Its parts: IniNode.h the base of all nodes and the assertions,
// IniLine.h empty line, comment and key=value, IniSection.h the section, IniNames.h the names,
// IniSaver.h the file.

#ifndef KELVIK_INIFILE_H_
#define KELVIK_INIFILE_H_

#include <errno.h>

#include <cstddef>
#include <istream>
#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "IniLine.h"
#include "IniNames.h"
#include "IniNode.h"
#include "IniSaver.h"
#include "IniSection.h"

// A document bound to a path. Owns its sections.
class xini_file_t : public xini_node_t {
 public:
  // Makes an empty document and loads `path`; a missing file leaves it empty and bound to the path.
  explicit xini_file_t(const std::string& path) : xini_file_t() { load(path); }
  // Saves a changed document, as release() does.
  /* cppcheck-suppress virtualCallInConstructor ; it is taken for the constructor above */
  ~xini_file_t() override;

  // Releases the document, then binds it to `path` and reads it. The document is clean afterwards.
  // False when the path is empty or cannot be opened: the document is empty and a later save
  // creates the file. False as well when reading fails (a directory, an I/O error): then the
  // document is empty and bound to nothing, so that no save destroys what could not be read. A
  // device counts as a file that cannot be opened.
  bool load(std::string path);

  // Appends the lines of a stream, up to its end or its first failure; lines that are no comment,
  // section or key, and keys that their section has already, are dropped. A section that exists is
  // continued. What is appended marks the document changed.
  xini_file_t& operator<<(std::istream& stream);

  // The document without its head bytes. Sections are separated by an empty line.
  std::ostream& operator>>(std::ostream& stream) const override { return write_lines(stream); }
  void append_to(std::string& text) const override;

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
  xini_section_t& operator[](std::string_view name);

  // Whether operator[] takes that name.
  static bool takes(std::string_view name) { return is_single(trim_sname(name)); }

  // The section of exactly that name but for case, or null.
  xini_section_t* find_sect(std::string_view name) const {
    return static_cast<xini_section_t*>(m_xmap_sect.find(name));
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

  static std::string_view trim_sname(std::string_view name);
  static bool is_absent(int error);
  void clear();
  xini_section_t* enter_sect(xini_section_t* sect);
  xini_section_t* begin_parse();
  xini_node_t* make_node(std::string_view line);
  void parse_file(xini_saver_t::reader_t& reader);
  void parse_line(std::string_view line, xini_section_t*& current);
  void push_line(std::string_view line, xini_section_t*& current);

  bool m_xbt_dirty = false;                // changed since it was loaded or saved
  std::string m_xstr_path;                 // where it was loaded from and is saved to
  std::string m_xstr_head;                 // written back before the first line
  std::list<xini_section_t*> m_xlst_sect;  // owned; in file order, the unnamed one first
  xini_names_t m_xmap_sect;                // the same by name
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

inline bool xini_file_t::load(std::string path) {
  release();
  m_xstr_path.swap(path);
  if (m_xstr_path.empty()) return false;
  bool isWhole = false;
  try {
    xini_saver_t::reader_t reader(m_xstr_path);
    if (is_absent(reader.error())) return false;
    parse_file(reader);
    isWhole = reader.error() == 0;
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

// Reads piece by piece; each whole line is parsed where it lies. An empty file has the head 0xFF.
inline void xini_file_t::parse_file(xini_saver_t::reader_t& reader) {
  xini_section_t* current = begin_parse();
  std::string kept;  // the beginning of a line whose end is not read yet
  bool isHead = true;
  // searched: the bytes at the front that were read before, among which is no line end.
  for (std::size_t searched = 0; reader.read(kept); searched = kept.size()) {
    std::string_view bytes(kept);
    while (isHead && !bytes.empty()) {
      isHead = is_head_byte(bytes.front());
      if (!isHead) break;
      m_xstr_head.push_back(bytes.front());
      bytes.remove_prefix(1);
    }
    for (std::size_t end = 0; (end = bytes.find('\n', searched)) != std::string_view::npos;) {
      parse_line(trim_view({bytes.data(), end}), current);
      bytes.remove_prefix(end + 1);
      searched = 0;
    }
    if (bytes.size() != kept.size()) kept = bytes;
  }
  if (isHead && m_xstr_head.empty() && reader.error() == 0) m_xstr_head.push_back('\xFF');
  const std::string_view last = trim_view(kept);
  if (!last.empty()) parse_line(last, current);
}

// Takes a section of a new name over and returns it, otherwise returns the section of that name;
// when memory ran out, without effect. Without a header line only the first place keeps an unnamed
// section's keys out of the other sections of the file.
inline xini_section_t* xini_file_t::enter_sect(xini_section_t* sect) {
  std::list<xini_section_t*> entry(1, sect);
  xini_node_t* held = m_xmap_sect.insert(sect);
  if (held != sect) return static_cast<xini_section_t*>(held);
  m_xlst_sect.splice(sect->m_xstr_name.empty() ? m_xlst_sect.begin() : m_xlst_sect.end(), entry);
  return sect;
}

inline xini_section_t* xini_file_t::begin_parse() {
  if (m_xlst_sect.empty()) {
    xini_require(m_xmap_sect.is_empty(), "m_xmap_sect.empty()");
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
    const std::string_view trimmed = trim_view(line);
    if (trimmed.empty() && stream.eof()) break;
    parse_line(trimmed, current);
  }
  return *this;
}

// A carriage return between two texts ends a line as well; the outer ones are trimmed.
inline void xini_file_t::parse_line(std::string_view line, xini_section_t*& current) {
  while (holds(line, '\r')) {
    const std::string_view text = before(line, '\r');
    push_line(trim_view(text), current);
    line.remove_prefix(text.size() + 1);
  }
  push_line(trim_view(line), current);
}

inline void xini_file_t::push_line(std::string_view line, xini_section_t*& current) {
  std::unique_ptr<xini_node_t> node(make_node(line));
  if (node == nullptr) return;
  if (node->ntype() == XINI_NTYPE_SECTION) {
    current = push_sect(static_cast<xini_section_t*>(node.get()), current);
    if (current != node.get()) return;
  } else if (!current->push_node(node.get())) {
    return;
  }
  static_cast<void>(node.release());
  m_xbt_dirty = true;
}

// Comment, section, key: a section's first character alone decides whether it is worth a try.
inline xini_node_t* xini_file_t::make_node(std::string_view line) {
  if (line.empty()) return new xini_nilline_t(this);
  if (xini_comment_t::is_comment(line)) return new xini_comment_t(line, this);
  xini_node_t* node = line[0] == '[' ? xini_section_t::make(line, this) : nullptr;
  return node != nullptr ? node : xini_keyvalue_t::make(line, this);
}

inline xini_section_t* xini_file_t::push_sect(xini_section_t* sect, xini_section_t* current) {
  // Once the section is entered, nothing may need memory any more.
  current->settle_runs();
  xini_section_t* found = enter_sect(sect);
  if (found == sect) {
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

inline void xini_file_t::append_to(std::string& text) const {
  for (const xini_section_t* sect : m_xlst_sect) {
    if (sect->last_node() == nullptr) continue;
    sect->append_to(text);
    if (!sect->has_end_nilline() && sect != m_xlst_sect.back()) text += '\n';
  }
}

inline bool xini_file_t::dump(const std::string& path) const {
  if (path.empty()) return false;
  std::string bytes = m_xstr_head;
  const std::size_t head = bytes.size();
  append_to(bytes);
  // A first line that begins with a head byte would be read back as a part of the head, and no byte
  // at all as the head of an empty file: an empty line keeps the next save equal to this one.
  if (bytes.size() == head ? head == 0 : is_head_byte(bytes[head])) bytes.insert(head, "\n");
  return xini_saver_t::save(path, bytes);
}

// The text between outer brackets and whitespace.
inline std::string_view xini_file_t::trim_sname(std::string_view name) {
  const auto isOuter = [](char letter) {
    return is_blank(letter) || letter == '[' || letter == ']';
  };
  while (!name.empty() && isOuter(name.front()))
    name.remove_prefix(1);
  while (!name.empty() && isOuter(name.back()))
    name.remove_suffix(1);
  return name;
}

inline xini_section_t& xini_file_t::operator[](std::string_view name) {
  xini_require(takes(name), "xini_section_t::check_sname(xstr_name)");
  const std::string_view trimmed = trim_view(before(trim_sname(name), ']'));
  xini_section_t* found = find_sect(trimmed);
  if (found != nullptr) return *found;
  std::unique_ptr<xini_section_t> sect = xini_section_t::with_header(trimmed, this);
  xini_require(sect != nullptr, "__null != xsect_ptr");
  enter_sect(sect.get());
  return *sect.release();
}

inline bool xini_file_t::rename_nsub(xini_node_t* sect, const std::string& name) {
  if (sect == nullptr) return false;
  xini_require(XINI_NTYPE_SECTION == sect->ntype(), "XINI_NTYPE_SECTION == xnsub_ptr->ntype()");
  return m_xmap_sect.rename(sect, name, *this);
}

#endif  // KELVIK_INIFILE_H_
