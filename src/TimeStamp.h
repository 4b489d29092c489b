// The wall clock: broken-down local time, its text, and the millisecond clock.
#ifndef KELVIK_TIMESTAMP_H_
#define KELVIK_TIMESTAMP_H_

#include <sys/time.h>

#include <cstddef>
#include <cstdint>

#include "Attribute.h"
#include "CopyBytes.h"
#include "Digits.h"
#include "Relaxed.h"

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
// second (a changed TZ shows within that second). Returns false when the time cannot be converted;
// the stamp then carries a zero time, its text, and the seconds as read. Thread-safe.
bool TakeTimeStamp(tagTimeStamp& stamp);

// As TakeTimeStamp, but only the text, not terminated, and only where the second is converted
// already: straight into a field of at least kDateTimeBytes bytes. Returns its length, or 0.
inline int PutKnownTimeStamp(char* field);

// Writes the text of a time as snprintf(text, size, ...) does and returns its result (the length of
// the whole text). A size of 0 or less stores nothing; text may be null then.
int FormatTime(const tagAbsoluteTime& time, char* text, int size);

// Wall clock in milliseconds, modulo 2^32.
uint32_t WallMilliseconds();

// Wall clock in seconds, modulo 2^32, as a signed number.
int32_t WallSeconds();

// Around fork(): the conversion's lock is held across it.
void BeforeForkOfTime();
void AfterForkOfTimeInParent();
void AfterForkOfTimeInChild();

constexpr int kMillisecondDigits = 3;
constexpr int kHeadBytes = 24;  // the text up to the milliseconds: 20 or, in far years, 21

// The second that was converted last, for all threads: read without a lock, word by word, and taken
// for good when m_Sequence is the same afterwards and odd. Written under the conversion's lock.
struct tagKnownSecond {
  uint32_t m_Sequence;    // even: nothing whole stands here
  uint32_t m_HeadLength;  // bytes of m_Head, '.' included
  uintptr_t m_Second[sizeof(int64_t) / sizeof(uintptr_t)];
  uintptr_t m_Head[kHeadBytes / sizeof(uintptr_t)];
  uintptr_t m_Time[sizeof(tagAbsoluteTime) / sizeof(uintptr_t)];  // milliseconds 0
};

extern tagKnownSecond g_KnownSecond __attribute__((visibility("hidden")));

// One word of a second's number.
constexpr uintptr_t SecondWord(int64_t second, size_t word) {
  return static_cast<uintptr_t>(static_cast<uint64_t>(second) >> word * 8 * sizeof(uintptr_t));
}

// Copies what is known of the second. Returns false, whatever was copied, when it is another one.
inline bool ReadKnownSecond(int64_t second, char* head, uint32_t& length, tagAbsoluteTime* time) {
  const tagKnownSecond& known = g_KnownSecond;
  const uint32_t sequence = AcquireLoad(known.m_Sequence);
  for (size_t word = 0; word < sizeof(second) / sizeof(uintptr_t); ++word) {
    if (RelaxedLoad(known.m_Second[word]) != SecondWord(second, word)) return false;
  }
  for (size_t word = 0; word < kHeadBytes / sizeof(uintptr_t); ++word)
    StoreUnaligned(head + word * sizeof(uintptr_t), RelaxedLoad(known.m_Head[word]));
  length = RelaxedLoad(known.m_HeadLength);
  for (size_t word = 0; time != nullptr && word < sizeof(*time) / sizeof(uintptr_t); ++word) {
    StoreUnaligned(reinterpret_cast<char*>(time) + word * sizeof(uintptr_t),
                   RelaxedLoad(known.m_Time[word]));
  }
  OrderLoads();
  return RelaxedLoad(known.m_Sequence) == sequence && (sequence & 1) != 0;
}

// Writes three digits; returns the byte behind them.
inline char* PutMilliseconds(char* at, uint32_t microseconds) {
  const uint32_t millisecond = microseconds / 1000;
  const uint32_t tens = millisecond / 10;
  WriteDigitPair(at, tens);
  at[2] = static_cast<char>('0' + (millisecond - tens * 10));
  return at + kMillisecondDigits;
}

inline int PutKnownTimeStamp(char* field) {
  timeval now = {};  // a time that is refused is the first second's, as elsewhere
  gettimeofday(&now, nullptr);
  uint32_t length;
  if (!ReadKnownSecond(now.tv_sec, field, length, nullptr)) return 0;
  PutMilliseconds(field + length, static_cast<uint32_t>(now.tv_usec));
  return static_cast<int>(length) + kMillisecondDigits;
}

}  // namespace Kelvik

#endif  // KELVIK_TIMESTAMP_H_
