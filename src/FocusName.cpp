// Reclaiming replaced names: a reader counts itself before it loads the pointer, a writer reads the
// count after it has exchanged the pointer. All four accesses have one order that every thread
// agrees on, so a count of 0 means that each later reader finds the new pointer.

#include "FocusName.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

namespace Kelvik {

// The name follows the record, in the same piece of memory.
struct tagFocusText {
  tagFocusText* m_Next;  // in the list of replaced names

  char* Name() { return reinterpret_cast<char*>(this + 1); }
};

CFocusName::CFocusName()
    : m_Text(nullptr), m_Retired(nullptr), m_Readers(0), m_WriterLock(PTHREAD_MUTEX_INITIALIZER) {}

CFocusName::CFocusName(const CFocusName&) : CFocusName() {}

// cppcheck-suppress operatorEqVarError ; nothing is taken from the other one
CFocusName& CFocusName::operator=(const CFocusName&) {
  return *this;
}

// A name that a reader holds at this moment is left to the end of the process.
CFocusName::~CFocusName() {
  Clear();
}

void CFocusName::Set(const char* name) {
  if (name == nullptr || name[0] == '\0') {
    Clear();
    return;
  }
  const size_t bytes = strlen(name) + 1;
  auto* const text = static_cast<tagFocusText*>(malloc(sizeof(tagFocusText) + bytes));
  if (text == nullptr) return;
  text->m_Next = nullptr;
  memcpy(text->Name(), name, bytes);
  Publish(text);
}

void CFocusName::Clear() {
  Publish(nullptr);
}

bool CFocusName::Matches(const char* module) const {
  // Most processes never set a focus: they pay for one load.
  if (module == nullptr || !IsSet()) return false;
  __atomic_fetch_add(&m_Readers, 1, __ATOMIC_SEQ_CST);
  tagFocusText* const text = __atomic_load_n(&m_Text, __ATOMIC_SEQ_CST);
  const bool matches = text != nullptr && strcasecmp(module, text->Name()) == 0;
  __atomic_fetch_sub(&m_Readers, 1, __ATOMIC_SEQ_CST);
  return matches;
}

// Makes text (owned from here on, or null) the name, and frees what nobody can hold any more.
void CFocusName::Publish(tagFocusText* text) {
  pthread_mutex_lock(&m_WriterLock);
  tagFocusText* const old = __atomic_exchange_n(&m_Text, text, __ATOMIC_SEQ_CST);
  if (old != nullptr) {
    old->m_Next = m_Retired;
    m_Retired = old;
  }
  if (__atomic_load_n(&m_Readers, __ATOMIC_SEQ_CST) == 0) {
    while (m_Retired != nullptr) {
      tagFocusText* const retired = m_Retired;
      m_Retired = retired->m_Next;
      free(retired);
    }
  }
  pthread_mutex_unlock(&m_WriterLock);
}

void CFocusName::AfterForkInChild() {
  pthread_mutex_init(&m_WriterLock, nullptr);
  m_Readers = 0;
}

}  // namespace Kelvik
