#include "TimeStamp.h"

#include <pthread.h>
#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <cstring>

namespace Kelvik {
namespace {

constexpr int kLongestTimeText = 7 * 5 + 6;  // seven fields of five digits, six marks between them
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
// see. Taken once a second, with nothing else locked inside. Guards the writing of g_KnownSecond.
pthread_mutex_t s_ConversionLock = PTHREAD_MUTEX_INITIALIZER;

// The calling thread is inside fork() and holds the lock. Handlers of the application that run
// there may log.
thread_local bool t_HoldsForFork = false;

class CConversionGuard {
 public:
  CConversionGuard() {
    if (!t_HoldsForFork) pthread_mutex_lock(&s_ConversionLock);
  }
  CConversionGuard(const CConversionGuard&) = delete;
  CConversionGuard& operator=(const CConversionGuard&) = delete;
  ~CConversionGuard() {
    if (!t_HoldsForFork) pthread_mutex_unlock(&s_ConversionLock);
  }
};

// From now on no reader takes what stands in g_KnownSecond. Returns the even number that says so.
// Caller holds s_ConversionLock, here and below.
uint32_t ForgetKnownSecond() {
  const uint32_t sequence = (RelaxedLoad(g_KnownSecond.m_Sequence) + 1) & ~1u;
  RelaxedStore(g_KnownSecond.m_Sequence, sequence);
  return sequence;
}

void StoreKnownSecond(int64_t second, const tagTimeStamp& stamp, uint32_t headLength) {
  tagKnownSecond& known = g_KnownSecond;
  const uint32_t sequence = ForgetKnownSecond();
  OrderStores();
  for (size_t word = 0; word < sizeof(second) / sizeof(uintptr_t); ++word)
    RelaxedStore(known.m_Second[word], SecondWord(second, word));
  for (size_t word = 0; word < kHeadBytes / sizeof(uintptr_t); ++word) {
    RelaxedStore(known.m_Head[word],
                 LoadUnaligned<uintptr_t>(stamp.m_Text + word * sizeof(uintptr_t)));
  }
  const char* time = reinterpret_cast<const char*>(&stamp.m_Time);
  for (size_t word = 0; word < sizeof(stamp.m_Time) / sizeof(uintptr_t); ++word) {
    RelaxedStore(known.m_Time[word], LoadUnaligned<uintptr_t>(time + word * sizeof(uintptr_t)));
  }
  RelaxedStore(known.m_HeadLength, headLength);
  ReleaseStore(known.m_Sequence, sequence + 1);
}

// Converts a second, unless another thread has done so meanwhile. Gives the stamp's time and text
// without milliseconds. A second that cannot be converted leaves nothing known.
bool ConvertSecond(time_t second, tagTimeStamp& stamp, uint32_t& headLength) {
  const CConversionGuard guard;
  bool converted = ReadKnownSecond(second, stamp.m_Text, headLength, &stamp.m_Time);
  if (!converted) {
    struct tm local;
    tzset();  // localtime_r alone need not notice a changed TZ
    converted = localtime_r(&second, &local) != nullptr;
    if (converted) {
      stamp.m_Time = FromBrokenDown(local);
      const int length = FormatTime(stamp.m_Time, stamp.m_Text, kDateTimeBytes);
      headLength = static_cast<uint32_t>(std::min(length, kDateTimeBytes - 1) - kMillisecondDigits);
      StoreKnownSecond(second, stamp, headLength);
    } else {
      ForgetKnownSecond();
    }
  }
  return converted;
}

}  // namespace

tagKnownSecond g_KnownSecond = {0, 0, {}, {}, {}};

bool TakeTimeStamp(tagTimeStamp& stamp) {
  timeval now = {};
  gettimeofday(&now, nullptr);
  stamp.m_Seconds = now.tv_sec;
  uint32_t headLength = 0;
  if (!ReadKnownSecond(now.tv_sec, stamp.m_Text, headLength, &stamp.m_Time) &&
      !ConvertSecond(now.tv_sec, stamp, headLength)) {
    stamp.m_Time = tagAbsoluteTime{};
    stamp.m_TextLength = FormatTime(stamp.m_Time, stamp.m_Text, kDateTimeBytes);
    return false;
  }
  const auto microseconds = static_cast<uint32_t>(now.tv_usec);
  stamp.m_Time.m_Millisecond = static_cast<uint16_t>(microseconds / 1000);
  char* const end = PutMilliseconds(stamp.m_Text + headLength, microseconds);
  *end = '\0';
  stamp.m_TextLength = static_cast<int>(end - stamp.m_Text);
  return true;
}

void BeforeForkOfTime() {
  pthread_mutex_lock(&s_ConversionLock);
  t_HoldsForFork = true;
}

void AfterForkOfTimeInParent() {
  t_HoldsForFork = false;
  pthread_mutex_unlock(&s_ConversionLock);
}

void AfterForkOfTimeInChild() {
  t_HoldsForFork = false;
  pthread_mutex_init(&s_ConversionLock, nullptr);
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
