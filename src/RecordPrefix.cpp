#include "RecordPrefix.h"

#include <cstddef>
#include <cstring>

namespace Kelvik {
namespace {

constexpr int kLongDigits = 20;  // of an unsigned long of 64 bits

// Text that grows in a field and is cut at the field's last byte but one.
class CFieldText {
 public:
  CFieldText(char* field, int room) : m_Field(field), m_Next(field), m_Last(field + room - 1) {}

  void Put(char byte) {
    if (m_Next < m_Last) *m_Next++ = byte;
  }

  void Put(const char* bytes, size_t length) {
    const size_t left = static_cast<size_t>(m_Last - m_Next);
    if (length > left) length = left;
    memcpy(m_Next, bytes, length);
    m_Next += length;
  }

  // Takes over what stands in the field already, which has room for it.
  void Skip(size_t length) { m_Next += length; }

  // Byte by byte: names are short, and a call to measure them costs more than it saves. No byte is
  // read past what the field can take.
  void PutText(const char* text) {
    char* next = m_Next;
    while (next < m_Last && *text != '\0')
      *next++ = *text++;
    m_Next = next;
  }

  void PutDecimal(unsigned long value) {
    char digits[kLongDigits];
    char* const end = digits + kLongDigits;
    char* first = end;
    do {
      *--first = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value != 0);
    Put(first, static_cast<size_t>(end - first));
  }

  void PutBracketed(const char* text) {
    Put('[');
    PutText(text);
    Put(']');
  }

  // Terminates the text and returns its length.
  int Finish() {
    *m_Next = '\0';
    return static_cast<int>(m_Next - m_Field);
  }

 private:
  char* m_Field;
  char* m_Next;
  char* m_Last;  // the terminator's place when the field is full
};

}  // namespace

int WriteRecordPrefix(char* field, int room, const tagRecordPrefix& prefix) {
  CFieldText text(field, room);
  const bool isNamed = prefix.m_Module != nullptr || prefix.m_Title != nullptr;
  if (prefix.m_DateTime == nullptr && !isNamed) return text.Finish();

  if (prefix.m_DateTime != nullptr) {
    const auto length = static_cast<size_t>(prefix.m_DateTimeLength);
    if (prefix.m_DateTime == field) {
      text.Skip(length);
    } else {
      text.Put(prefix.m_DateTime, length);
    }
    text.Put(' ');
  }
  if (prefix.m_ShowThreadID) {
    text.Put('[');
    text.PutDecimal(prefix.m_ThreadID);
    text.Put(']');
  }
  if (prefix.m_Module != nullptr) text.PutBracketed(prefix.m_Module);
  if (prefix.m_Title != nullptr) text.PutBracketed(prefix.m_Title);
  if (prefix.m_ShowThreadID || isNamed) text.Put(' ');
  return text.Finish();
}

// Cold: built for size, in which its loops are no slower.
[[gnu::cold]] int WriteLocation(char* field, int room, const char* file, const char* func,
                                int line) {
  CFieldText text(field, room);
  if (file == nullptr && func == nullptr && line == -1) return text.Finish();

  text.Put('[');
  if (file != nullptr) text.PutText(file);
  if (func != nullptr) {
    if (file != nullptr) text.Put(' ');
    text.PutText(func);
  }
  if (line != -1) {
    if (file != nullptr || func != nullptr) text.Put(' ');
    const unsigned long bits = static_cast<unsigned long>(line);
    if (line < 0) text.Put('-');
    text.PutDecimal(line < 0 ? 0UL - bits : bits);
  }
  text.Put("] ", 2);
  return text.Finish();
}

}  // namespace Kelvik
