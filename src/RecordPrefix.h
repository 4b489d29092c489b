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

}  // namespace Kelvik

#endif  // KELVIK_RECORDPREFIX_H_
