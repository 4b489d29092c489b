// The settings record of the context and of each module, and the broken-down local time.
#ifndef KELVIK_ATTRIBUTE_H_
#define KELVIK_ATTRIBUTE_H_

#include <cstddef>
#include <cstdint>

namespace Kelvik {

constexpr int kLogPathBytes = 256;  // bytes of a log path, which may fill them

// One set of settings: the global one, or a module's snapshot of it.
//
// Byte-packed: the 32-bit fields are unaligned words in the machine's order. Single bytes are read
// and written in place by any thread (relaxed atomic accesses). m_LogPath and the words are copied
// whole (memcpy) under COutput::m_BufferMutex; m_LogPath may fill its field without a terminator.
#pragma pack(push, 1)
struct tagAttribute {
  uint8_t m_OutputConsole;   // 0/1: records go to standard output
  uint8_t m_OutputSystem;    // 0/1: records go to syslog
  uint8_t m_OutputFile;      // 0/1: records go to the log files
  uint8_t m_OutputDateTime;  // 0/1: records begin with the date and time
  uint8_t m_OutputThreadID;  // 0/1: records carry the thread id
  uint8_t m_OutputLocation;  // 0/1: records made with a source location show it
  uint8_t m_LevelMask;       // bit (1 << level) lets a level pass; bits 0, 6 and 7 carry nothing
  char m_LogPath[kLogPathBytes];  // prefix of every log file's name; ends in '/' for a folder
  uint32_t m_LogMaxSize;          // bytes; > 0 (signed) selects rotation by size
  uint32_t m_LogMaxDuration;  // seconds; >= 1 (signed) selects rotation by time if size does not
  uint32_t m_LogMaxCount;     // files kept, 1..10 (values below 1 keep one)
  uint32_t m_BufferSize;      // bytes of each output buffer; below 1024 (signed): unbuffered
  uint32_t m_WriteInterval;   // ms after which buffered text is handed over; below 200: never
};
#pragma pack(pop)

static_assert(sizeof(tagAttribute) == 283, "the settings record has no gaps");
static_assert(offsetof(tagAttribute, m_LogPath) == 7, "seven switches stand before the path");
static_assert(offsetof(tagAttribute, m_LogMaxSize) == 263, "the words follow the path");

// Local time with milliseconds.
struct tagAbsoluteTime {
  uint16_t m_Year;         // full year
  uint16_t m_Month;        // 1..12
  uint16_t m_Reserved;     // never written by the library
  uint16_t m_Day;          // 1..31
  uint16_t m_Hour;         // 0..23
  uint16_t m_Minute;       // 0..59
  uint16_t m_Second;       // 0..60
  uint16_t m_Millisecond;  // 0..999
};

static_assert(sizeof(tagAbsoluteTime) == 16, "eight 16-bit fields");

}  // namespace Kelvik

#endif  // KELVIK_ATTRIBUTE_H_
