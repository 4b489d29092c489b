// The wall clock: broken-down local time, its text, and the millisecond clock.
#ifndef KELVIK_TIMESTAMP_H_
#define KELVIK_TIMESTAMP_H_

#include <cstdint>

#include "Attribute.h"

namespace Kelvik {

constexpr int kDateTimeBytes = 32;

// A moment as a record shows it.
struct tagTimeStamp {
  tagAbsoluteTime m_Time;       // all zero when the time cannot be had
  int64_t m_Seconds;            // since the epoch, as read
  int m_TextLength;             // bytes of m_Text
  char m_Text[kDateTimeBytes];  // "%04d-%02d-%02d %02d:%02d:%02d.%03d", terminated
};

// Takes the current time. The conversion to local time and the text of the second are made once a
// second in each thread (a changed TZ shows within that second). Returns false when the time cannot
// be converted; the stamp then carries a zero time, its text, and the seconds as read. Thread-safe.
bool TakeTimeStamp(tagTimeStamp& stamp);

// As TakeTimeStamp, but only the text, straight into a field of at least kDateTimeBytes bytes, not
// terminated. Gives its length and the seconds as read.
bool PutTimeStamp(char* field, int& length, int64_t& seconds);

// Writes the text of a time as snprintf(text, size, ...) does and returns its result (the length of
// the whole text). A size of 0 or less stores nothing; text may be null then.
int FormatTime(const tagAbsoluteTime& time, char* text, int size);

// Wall clock in milliseconds, modulo 2^32.
uint32_t WallMilliseconds();

// Wall clock in seconds, modulo 2^32, as a signed number.
int32_t WallSeconds();

}  // namespace Kelvik

#endif  // KELVIK_TIMESTAMP_H_
