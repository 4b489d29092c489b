// What stands before a record's message: date, thread id, module, title, source location.
#ifndef KELVIK_RECORDPREFIX_H_
#define KELVIK_RECORDPREFIX_H_

namespace Kelvik {

struct tagRecordPrefix {
  const char* m_DateTime;  // null: switched off; the field itself: it stands there already
  int m_DateTimeLength;
  bool m_ShowThreadID;
  unsigned long m_ThreadID;
  const char* m_Module;  // null: absent (an empty name prints "[]")
  const char* m_Title;   // null: absent
};

// Writes the prefix into a field of room bytes (room >= 1), cut at room - 1 and terminated. Returns
// the bytes stored, 0..room-1. Without date-time, module and title nothing is written, also when
// the thread id is on.
int WriteRecordPrefix(char* field, int room, const tagRecordPrefix& prefix);

// Writes "[file func line] " with the present parts (file, func non-null, line not -1), separated
// by single blanks; nothing when none is present. Bounds and result as WriteRecordPrefix.
int WriteLocation(char* field, int room, const char* file, const char* func, int line);

// What stands behind the date-time text in the usual record: " [module][title] ". Needs room for
// kUsualNamesBytes; not terminated. Returns its end, or null when a name has more letters than
// kUsualNameLetters: the field's bytes mean nothing then.
constexpr int kUsualNameLetters = 64;
constexpr int kUsualNamesBytes = 2 * kUsualNameLetters + 6;

inline char* PutUsualName(char* to, const char* name) {
  const char* const last = name + kUsualNameLetters;
  for (; name != last; name += 4, to += 4) {
    if (name[0] == '\0') return to;
    to[0] = name[0];
    if (name[1] == '\0') return to + 1;
    to[1] = name[1];
    if (name[2] == '\0') return to + 2;
    to[2] = name[2];
    if (name[3] == '\0') return to + 3;
    to[3] = name[3];
  }
  return *name == '\0' ? to : nullptr;
}

inline char* PutUsualNames(char* to, const char* module, const char* title) {
  to[0] = ' ';
  to[1] = '[';
  to = PutUsualName(to + 2, module);
  if (to == nullptr) return nullptr;
  to[0] = ']';
  to[1] = '[';
  to = PutUsualName(to + 2, title);
  if (to == nullptr) return nullptr;
  to[0] = ']';
  to[1] = ' ';
  return to + 2;
}

}  // namespace Kelvik

#endif  // KELVIK_RECORDPREFIX_H_
