// A section of an INI document. A part of IniFile.h.

#ifndef KELVIK_INISECTION_H_
#define KELVIK_INISECTION_H_

#include <cstddef>
#include <iterator>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "IniLine.h"
#include "IniNames.h"
#include "IniNode.h"

// A section: its lines in file order and its keys by name. One that has a header holds itself as
// an entry where the header stands, so that comments can stand before it; the unnamed section of
// the lines before the first header does not.
//
// A block of comments at the end of a section wanders to the next header, possibly once for every
// line of a file. So that each move costs the same however long the block is, the lines behind the
// last key or header wait in runs: a run is comments and the empty lines behind them, if any.
class xini_section_t : public xini_node_t {
 public:
  // Makes a section without name and lines. `owner` as for every node.
  explicit xini_section_t(xini_node_t* owner) : xini_node_t(XINI_NTYPE_SECTION, owner) {}
  ~xini_section_t() override;

  // Makes a section of a line '[name]'; what follows the first ']' is ignored. Null for another
  // line. The line must be trimmed and single. The caller owns the result.
  static xini_section_t* try_create(const std::string& line, xini_node_t* owner) {
    xini_require(is_xtrim(line), "is_xtrim(xstr_line)");
    xini_require(is_sline(line), "is_sline(xstr_line)");
    return make(line, owner);
  }

  // True for a name of a single line. The name must be trimmed.
  static bool check_sname(const std::string& name) {
    xini_require(is_xtrim(name), "is_xtrim(xstr_name)");
    return is_sline(name);
  }

  std::ostream& operator>>(std::ostream& stream) const override { return write_lines(stream); }
  void append_to(std::string& text) const override;

  // The name without brackets, empty for the unnamed section; lives as long as the section.
  const std::string& sname() const { return m_xstr_name; }

  // The key of that name (trimmed; it must pass check_kname). A missing one is made with an empty
  // value as the last line of the section, which does not count as a change of the document.
  xini_keyvalue_t& operator[](std::string_view key);

  // Whether operator[] takes that name.
  static bool takes(std::string_view key) { return xini_keyvalue_t::is_kname(trim_view(key)); }

  // The key of exactly that name but for case, or null.
  xini_keyvalue_t* find_knode(std::string_view key) const {
    return static_cast<xini_keyvalue_t*>(m_xmap_ndkv.find(key));
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
  bool key_remove(std::string_view key);

  // Gives a key of this section another name, taken as it is, and marks the document changed.
  // True without a change when only the case differs; false when another key has the name or the
  // node is no key of this section.
  bool rename_nsub(xini_node_t* key, const std::string& name) override;

 private:
  friend class xini_file_t;
  friend class xini_names_t;
  using nodes_t = std::list<xini_node_t*>;

  static xini_section_t* make(std::string_view line, xini_node_t* owner);
  static std::unique_ptr<xini_section_t> with_header(std::string_view name, xini_node_t* owner);
  const xini_node_t* last_node() const;
  void append_nodes(const nodes_t& nodes, std::string& text) const;
  bool push_key(xini_keyvalue_t* key);
  void push_run_node(xini_node_t* node);
  void end_with_nilline();
  void settle_runs();
  bool has_loose_nilline() const;
  bool is_run_movable() const;
  void move_run_to(xini_section_t& other);
  void delete_nodes(nodes_t& nodes);

  std::string m_xstr_name;         // trimmed; empty for the unnamed section
  nodes_t m_xlst_node;             // owned (but for itself): up to the last key or header
  xini_names_t m_xmap_ndkv;        // the keys among them
  std::list<nodes_t> m_xlst_runs;  // owned: the lines behind, a run per entry, none empty
};

// Sections and keys are the nodes that have a name.
inline std::string& xini_names_t::name_of(xini_node_t* node) {
  return node->ntype() == XINI_NTYPE_SECTION ? static_cast<xini_section_t*>(node)->m_xstr_name
                                             : static_cast<xini_keyvalue_t*>(node)->m_xstr_kname;
}

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

// try_create for a line that is known to be trimmed and single.
inline xini_section_t* xini_section_t::make(std::string_view line, xini_node_t* owner) {
  if (line.empty() || line[0] != '[') return nullptr;
  line.remove_prefix(1);
  if (!holds(line, ']')) return nullptr;
  return with_header(trim_view(before(line, ']')), owner).release();
}

// An empty section whose header stands in it; the name is trimmed.
inline std::unique_ptr<xini_section_t> xini_section_t::with_header(std::string_view name,
                                                                   xini_node_t* owner) {
  std::unique_ptr<xini_section_t> section(new xini_section_t(owner));
  section->m_xstr_name = name;
  section->m_xlst_node.push_back(section.get());
  return section;
}

inline void xini_section_t::append_nodes(const nodes_t& nodes, std::string& text) const {
  for (const xini_node_t* node : nodes) {
    if (node->ntype() != XINI_NTYPE_SECTION) {
      node->append_to(text);
    } else if (!m_xstr_name.empty()) {
      append_line(text, "[", m_xstr_name, "]");
    }
  }
}

inline void xini_section_t::append_to(std::string& text) const {
  append_nodes(m_xlst_node, text);
  for (const nodes_t& run : m_xlst_runs)
    append_nodes(run, text);
}

inline xini_keyvalue_t& xini_section_t::operator[](std::string_view key) {
  xini_require(takes(key), "xini_keyvalue_t::check_kname(xstr_nkey)");
  const std::string_view name = trim_view(key);
  xini_keyvalue_t* found = find_knode(name);
  if (found != nullptr) return *found;
  std::unique_ptr<xini_keyvalue_t> node(new xini_keyvalue_t(name, {}, m_xowner_ptr));
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
  if (m_xmap_ndkv.insert(key) != key) return false;
  for (nodes_t& run : m_xlst_runs)
    m_xlst_node.splice(m_xlst_node.end(), run);
  m_xlst_runs.clear();
  m_xlst_node.splice(m_xlst_node.end(), entry);
  key->m_xitr_place = std::prev(m_xlst_node.end());
  return true;
}

inline void xini_section_t::push_run_node(xini_node_t* node) {
  const bool opensRun =
      m_xlst_runs.empty() || (node->ntype() == XINI_NTYPE_COMMENT && has_end_nilline());
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
  static_cast<void>(line.release());
}

// A removed key leaves the lines above it without a key or header behind them: they become runs.
inline void xini_section_t::settle_runs() {
  while (!m_xlst_node.empty()) {
    const uint32_t type = m_xlst_node.back()->ntype();
    if (type == XINI_NTYPE_KEYVALUE || type == XINI_NTYPE_SECTION) break;
    xini_require(type == XINI_NTYPE_NILLINE || type == XINI_NTYPE_COMMENT, "false");
    const bool opensRun =
        m_xlst_runs.empty() ||
        (type == XINI_NTYPE_NILLINE && m_xlst_runs.front().front()->ntype() == XINI_NTYPE_COMMENT);
    if (opensRun) m_xlst_runs.emplace_front();
    nodes_t& run = m_xlst_runs.front();
    run.splice(run.begin(), m_xlst_node, std::prev(m_xlst_node.end()));
  }
}

// True when the last line is an empty one that stands behind another one in the last run: it alone
// is the block then.
inline bool xini_section_t::has_loose_nilline() const {
  const nodes_t& run = m_xlst_runs.back();
  return run.size() > 1 && (*std::prev(run.end(), 2))->ntype() == XINI_NTYPE_NILLINE;
}

// True when a run above the last one ends with an empty line, or nothing stands above it.
inline bool xini_section_t::is_run_movable() const {
  return m_xlst_runs.size() > 1 || m_xlst_node.empty();
}

inline std::size_t xini_section_t::pop_tail_comment(std::list<xini_node_t*>& out, bool front) {
  settle_runs();
  if (m_xlst_runs.empty()) return 0;
  const auto place = front ? out.begin() : out.end();
  nodes_t& run = m_xlst_runs.back();
  if (has_loose_nilline()) {
    out.splice(place, run, std::prev(run.end()));
    return 1;
  }
  if (!is_run_movable()) return 0;
  const std::size_t moved = run.size();
  out.splice(place, run);
  m_xlst_runs.pop_back();
  return moved;
}

// pop_tail_comment to the end of another section, which ends with an empty line.
inline void xini_section_t::move_run_to(xini_section_t& other) {
  settle_runs();
  other.settle_runs();
  if (m_xlst_runs.empty()) return;
  if (has_loose_nilline()) {
    pop_tail_comment(other.m_xlst_runs.back(), false);
  } else if (is_run_movable()) {
    other.m_xlst_runs.splice(other.m_xlst_runs.end(), m_xlst_runs, std::prev(m_xlst_runs.end()));
  }
}

inline bool xini_section_t::key_remove(std::string_view key) {
  const std::unique_ptr<xini_keyvalue_t> node(find_knode(trim_view(key)));
  if (node == nullptr) return false;
  m_xlst_node.erase(node->m_xitr_place);
  m_xmap_ndkv.erase(node.get());
  set_dirty(true);
  return true;
}

inline bool xini_section_t::rename_nsub(xini_node_t* key, const std::string& name) {
  if (key == nullptr) return false;
  xini_require(XINI_NTYPE_KEYVALUE == key->ntype(), "XINI_NTYPE_KEYVALUE == xnsub_ptr->ntype()");
  return m_xmap_ndkv.rename(key, name, *this);
}

#endif  // KELVIK_INISECTION_H_
