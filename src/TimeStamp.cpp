#include "TimeStamp.h"

#include <pthread.h>
#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <cstring>

namespace Kelvik {
namespace {

constexpr int kLongestTimeText = 7 * 5 + 6;  // seven fields of five digits, six marks between them
constexpr int kMillisecondDigits = 3;

// A second as the thread last converted it. All zero: nothing converted yet.
struct tagSecondText {
  int64_t m_Second;
  tagAbsoluteTime m_Time;       // milliseconds 0
  int m_HeadLength;             // bytes of m_Text up to and including the '.'; 0: nothing is stored
  unsigned m_Millisecond;       // that m_Text shows
  char m_Text[kDateTimeBytes];  // terminated
};

thread_local tagSecondText t_SecondText;

// Writes value with at least width digits; returns the end of what it wrote.
char* PutPadded(char* out, uint16_t value, int width) {
  char digits[5];
  int count = 0;
  unsigned rest = value;
  do {
    digits[count++] = static_cast<char>('0' + rest % 10);
    rest /= 10;
  } while (rest != 0);
  for (int filled = count; filled < width; ++filled)
    *out++ = '0';
  while (count > 0)
    *out++ = digits[--count];
  return out;
}

// Returns the length of the text, which is not terminated.
int PutTime(char (&text)[kLongestTimeText], const tagAbsoluteTime& time) {
  char* out = PutPadded(text, time.m_Year, 4);
  *out++ = '-';
  out = PutPadded(out, time.m_Month, 2);
  *out++ = '-';
  out = PutPadded(out, time.m_Day, 2);
  *out++ = ' ';
  out = PutPadded(out, time.m_Hour, 2);
  *out++ = ':';
  out = PutPadded(out, time.m_Minute, 2);
  *out++ = ':';
  out = PutPadded(out, time.m_Second, 2);
  *out++ = '.';
  out = PutPadded(out, time.m_Millisecond, kMillisecondDigits);
  return static_cast<int>(out - text);
}

tagAbsoluteTime FromBrokenDown(const struct tm& local) {
  tagAbsoluteTime time = {};
  // Added unsigned: the last years that a 64-bit time can have do not fit an int any more.
  time.m_Year = static_cast<uint16_t>(static_cast<unsigned>(local.tm_year) + 1900U);
  time.m_Month = static_cast<uint16_t>(local.tm_mon + 1);
  time.m_Day = static_cast<uint16_t>(local.tm_mday);
  time.m_Hour = static_cast<uint16_t>(local.tm_hour);
  time.m_Minute = static_cast<uint16_t>(local.tm_min);
  time.m_Second = static_cast<uint16_t>(local.tm_sec);
  return time;
}

// tzset exchanges the C library's zone under a lock of its own, which a thread sanitizer cannot
// see. Taken at most once a second by each thread, with nothing else locked inside.
pthread_mutex_t s_ZoneLock = PTHREAD_MUTEX_INITIALIZER;

bool ToLocalTime(time_t second, struct tm& local) {
  pthread_mutex_lock(&s_ZoneLock);
  tzset();  // localtime_r alone need not notice a changed TZ
  const bool converted = localtime_r(&second, &local) != nullptr;
  pthread_mutex_unlock(&s_ZoneLock);
  return converted;
}

// Fills the cache for a second. A second that cannot be converted is not kept.
bool ConvertSecond(tagSecondText& cache, time_t second) {
  cache.m_HeadLength = 0;
  struct tm local;
  if (!ToLocalTime(second, local)) return false;
  cache.m_Time = FromBrokenDown(local);
  const int length = FormatTime(cache.m_Time, cache.m_Text, kDateTimeBytes);
  cache.m_Second = second;
  cache.m_Millisecond = 0;
  cache.m_HeadLength = std::min(length, kDateTimeBytes - 1) - kMillisecondDigits;
  return true;
}

// Reads the clock; the thread's cache for that second, or null when it cannot be converted.
inline tagSecondText* CurrentSecond(timeval& now) {
  gettimeofday(&now, nullptr);
  tagSecondText& cache = t_SecondText;
  if (cache.m_Second == now.tv_sec && cache.m_HeadLength != 0) return &cache;
  return ConvertSecond(cache, now.tv_sec) ? &cache : nullptr;
}

// Writes all kDateTimeBytes bytes; returns the length of the text. Records of a busy thread share
// their millisecond, so its digits are kept too.
inline int PutText(char* field, tagSecondText& cache, unsigned millisecond) {
  if (cache.m_Millisecond != millisecond) {
    cache.m_Millisecond = millisecond;
    char* const digits = cache.m_Text + cache.m_HeadLength;
    digits[0] = static_cast<char>('0' + millisecond / 100U % 10U);
    digits[1] = static_cast<char>('0' + millisecond / 10U % 10U);
    digits[2] = static_cast<char>('0' + millisecond % 10U);
  }
  memcpy(field, cache.m_Text, kDateTimeBytes);
  return cache.m_HeadLength + kMillisecondDigits;
}

void TakeZeroTime(tagTimeStamp& stamp, int64_t seconds) {
  stamp.m_Time = tagAbsoluteTime{};
  stamp.m_Seconds = seconds;
  stamp.m_TextLength = FormatTime(stamp.m_Time, stamp.m_Text, kDateTimeBytes);
}

}  // namespace

bool TakeTimeStamp(tagTimeStamp& stamp) {
  timeval now = {};
  tagSecondText* cache = CurrentSecond(now);
  if (cache == nullptr) {
    TakeZeroTime(stamp, now.tv_sec);
    return false;
  }
  const unsigned millisecond = static_cast<unsigned>(now.tv_usec) / 1000U;
  stamp.m_Time = cache->m_Time;
  stamp.m_Time.m_Millisecond = static_cast<uint16_t>(millisecond);
  stamp.m_Seconds = now.tv_sec;
  stamp.m_TextLength = PutText(stamp.m_Text, *cache, millisecond);
  return true;
}

bool PutTimeStamp(char* field, int& length, int64_t& seconds) {
  timeval now = {};
  tagSecondText* cache = CurrentSecond(now);
  seconds = now.tv_sec;
  if (cache == nullptr) {
    length = FormatTime(tagAbsoluteTime{}, field, kDateTimeBytes);
    return false;
  }
  length = PutText(field, *cache, static_cast<unsigned>(now.tv_usec) / 1000U);
  return true;
}

int FormatTime(const tagAbsoluteTime& time, char* text, int size) {
  char whole[kLongestTimeText];
  const int length = PutTime(whole, time);
  if (size > 0) {
    const int stored = std::min(length, size - 1);
    memcpy(text, whole, static_cast<size_t>(stored));
    text[stored] = '\0';
  }
  return length;
}

uint32_t WallMilliseconds() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  return static_cast<uint32_t>(now.tv_sec) * 1000U + static_cast<uint32_t>(now.tv_usec) / 1000U;
}

int32_t WallSeconds() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  return static_cast<int32_t>(static_cast<uint32_t>(now.tv_sec));
}

}  // namespace Kelvik
