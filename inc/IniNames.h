// The names of a section's keys or of a document's sections, found without regard to case. A part
// of IniFile.h.

#ifndef KELVIK_ININAMES_H_
#define KELVIK_ININAMES_H_

#include <stdint.h>

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "IniNode.h"

// Keys or sections by name, none of them owned; a name counts up to its first NUL. A table with
// open addressing, at most two thirds full, where a name stands within kReach slots of its place. A
// file can be made such that this does not hold (names of equal hash); then the names are kept in
// order instead, which takes a little longer, whatever they are. So nothing that a file holds costs
// more than the logarithm of the number of names.
class xini_names_t {
 public:
  xini_names_t() = default;
  xini_names_t(const xini_names_t&) = delete;
  xini_names_t& operator=(const xini_names_t&) = delete;

  // The node of that name, or null.
  xini_node_t* find(std::string_view name) const;

  // Enters a key or section. Returns it, or the node that has its name already. When memory runs
  // out (std::bad_alloc), nothing has changed.
  xini_node_t* insert(xini_node_t* node);

  // Forgets a node that was entered.
  void erase(xini_node_t* node) noexcept;

  // Gives a node that was entered another name and marks `parent` changed. True without a change
  // when only the case differs; false when another node has the name or the node is none of these.
  // When memory runs out, nothing has changed.
  bool rename(xini_node_t* node, const std::string& name, xini_node_t& parent);

  // What spreads the names over the table.
  static uint32_t hash_of(std::string_view name);

  // Forgets all of them.
  void clear() noexcept;

  // Whether there is none.
  bool is_empty() const { return m_count == 0 && (m_ordered == nullptr || m_ordered->empty()); }

 private:
  struct slot_t {
    xini_node_t* node;  // null in a free slot
    uint32_t hash;
  };
  struct order_t {
    using is_transparent = void;
    bool operator()(xini_node_t* left, xini_node_t* right) const {
      return compare(left, name_of(right)) < 0;
    }
    bool operator()(xini_node_t* left, std::string_view right) const {
      return compare(left, right) < 0;
    }
    bool operator()(std::string_view left, xini_node_t* right) const {
      return compare(right, left) > 0;
    }
  };
  using ordered_t = std::set<xini_node_t*, order_t>;

  static constexpr uint32_t kFewest = 4;       // slots of the smallest table
  static constexpr uint32_t kMost = 1u << 31;  // and of the largest
  static constexpr uint32_t kReach = 512;      // slots that are looked at for a name
  static constexpr uint32_t kNoSlot = ~0u;

  static std::string& name_of(xini_node_t* node);
  static int compare(xini_node_t* node, std::string_view name);
  uint32_t find_slot(std::string_view name, uint32_t hash) const;
  uint32_t make_room(std::string_view name, uint32_t hash);
  bool is_full() const { return m_slots == nullptr || m_count >= (m_mask + 1) / 3 * 2; }
  bool grow();
  void keep_in_order();

  std::unique_ptr<slot_t[]> m_slots;     // a power of two of them, or none
  uint32_t m_mask = 0;                   // the number of slots less one
  uint32_t m_count = 0;                  // slots that are taken
  std::unique_ptr<ordered_t> m_ordered;  // instead of the slots once a name was out of reach
};

// FNV-1a over the folded letters; the last step spreads the upper bits to the lower ones.
inline uint32_t xini_names_t::hash_of(std::string_view name) {
  uint32_t hash = 2166136261u;
  for (const char letter : name) {
    if (letter == '\0') break;
    hash = (hash ^ static_cast<unsigned char>(xini_node_t::fold(letter))) * 16777619u;
  }
  return hash ^ (hash >> 15);
}

// xstr_icmp of a node's name and another one.
inline int xini_names_t::compare(xini_node_t* node, std::string_view name) {
  const char* own = name_of(node).c_str();
  for (const char letter : name) {
    if (letter == '\0') break;
    if (*own != letter && xini_node_t::fold(*own) != xini_node_t::fold(letter)) {
      return xini_node_t::fold(*own) - xini_node_t::fold(letter);
    }
    ++own;
  }
  return xini_node_t::fold(*own);
}

// The slot of a name or, where it is none, the free one for it; kNoSlot when there is neither.
inline uint32_t xini_names_t::find_slot(std::string_view name, uint32_t hash) const {
  if (m_slots == nullptr) return kNoSlot;
  for (uint32_t step = 0; step < kReach; ++step) {
    const uint32_t at = (hash + step) & m_mask;
    const slot_t& slot = m_slots[at];
    if (slot.node == nullptr) return at;
    if (slot.hash == hash && compare(slot.node, name) == 0) return at;
  }
  return kNoSlot;
}

inline xini_node_t* xini_names_t::find(std::string_view name) const {
  if (m_ordered != nullptr) {
    const auto found = m_ordered->find(name);
    return found != m_ordered->end() ? *found : nullptr;
  }
  const uint32_t at = find_slot(name, hash_of(name));
  return at != kNoSlot ? m_slots[at].node : nullptr;
}

inline xini_node_t* xini_names_t::insert(xini_node_t* node) {
  if (m_ordered == nullptr) {
    const std::string& name = name_of(node);
    const uint32_t hash = hash_of(name);
    uint32_t at = find_slot(name, hash);
    if (at != kNoSlot && m_slots[at].node != nullptr) return m_slots[at].node;
    if (at == kNoSlot || is_full()) at = make_room(name, hash);
    if (at != kNoSlot) {
      m_slots[at] = {node, hash};
      ++m_count;
      return node;
    }
  }
  return *m_ordered->insert(node).first;
}

inline void xini_names_t::erase(xini_node_t* node) noexcept {
  if (m_ordered != nullptr) {
    m_ordered->erase(m_ordered->find(node));
    return;
  }
  const std::string& name = name_of(node);
  uint32_t hole = find_slot(name, hash_of(name));
  // What stands behind moves up, unless it would come to stand before its place.
  for (uint32_t at = (hole + 1) & m_mask; m_slots[at].node != nullptr; at = (at + 1) & m_mask) {
    const uint32_t wayFromHome = (at - m_slots[at].hash) & m_mask;
    if (wayFromHome < ((at - hole) & m_mask)) continue;
    m_slots[hole] = m_slots[at];
    hole = at;
  }
  m_slots[hole].node = nullptr;
  --m_count;
}

inline bool xini_names_t::rename(xini_node_t* node, const std::string& name, xini_node_t& parent) {
  std::string& own = name_of(node);
  if (find(own) != node) return false;
  const xini_node_t* other = find(name);
  if (other != nullptr) return other == node;
  std::string stored(name);
  const uint32_t hash = hash_of(name);
  if (m_ordered == nullptr) make_room(name, hash);
  if (m_ordered != nullptr) {
    auto entry = m_ordered->extract(m_ordered->find(node));
    own.swap(stored);
    m_ordered->insert(std::move(entry));
  } else {
    erase(node);
    own.swap(stored);
    m_slots[find_slot(own, hash)] = {node, hash};
    ++m_count;
  }
  parent.set_dirty(true);
  return true;
}

inline void xini_names_t::clear() noexcept {
  m_slots.reset();
  m_ordered.reset();
  m_mask = 0;
  m_count = 0;
}

// The free slot for one more name, which is in none; kNoSlot when names are kept in order from now
// on.
inline uint32_t xini_names_t::make_room(std::string_view name, uint32_t hash) {
  if (!is_full() || grow()) {
    const uint32_t at = find_slot(name, hash);
    if (at != kNoSlot) return at;
  }
  keep_in_order();
  return kNoSlot;
}

// Doubles the table. False, and the old table stays, when it has its full size or a name would be
// out of reach.
inline bool xini_names_t::grow() {
  if (m_mask == kMost - 1) return false;
  const uint32_t size = m_slots != nullptr ? (m_mask + 1) * 2 : kFewest;
  std::unique_ptr<slot_t[]> slots(new slot_t[size]());
  for (uint32_t from = 0; m_slots != nullptr && from <= m_mask; ++from) {
    if (m_slots[from].node == nullptr) continue;
    uint32_t step = 0;
    while (step < kReach && slots[(m_slots[from].hash + step) & (size - 1)].node != nullptr)
      ++step;
    if (step == kReach) return false;
    slots[(m_slots[from].hash + step) & (size - 1)] = m_slots[from];
  }
  m_slots = std::move(slots);
  m_mask = size - 1;
  return true;
}

inline void xini_names_t::keep_in_order() {
  std::unique_ptr<ordered_t> ordered(new ordered_t);
  for (uint32_t at = 0; m_slots != nullptr && at <= m_mask; ++at) {
    if (m_slots[at].node != nullptr) ordered->insert(m_slots[at].node);
  }
  m_ordered = std::move(ordered);
  m_slots.reset();
  m_count = 0;
}

#endif  // KELVIK_ININAMES_H_
