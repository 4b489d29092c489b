// What the parts of the output engine tell each other.
#ifndef KELVIK_OUTPUTINTERNAL_H_
#define KELVIK_OUTPUTINTERNAL_H_

#include <cstdarg>
#include <cstdint>

#include "Attribute.h"
#include "Kelvik.h"

namespace Kelvik {

constexpr int kRecordBytes = 8192;          // a formatted record, its terminator included
constexpr int kRawPrefixBytes = 256;        // the prefix of a raw record, its terminator included
constexpr int kColourBytes = 8;             // room for a colour sequence before or after a record
constexpr int kSmallestBuffer = 1024;       // bytes; below it every record is written directly
constexpr int32_t kSmallestInterval = 200;  // milliseconds; below it no text is handed over by time

// A thread is about to start the writer, under settings that are in place. In a child of a fork
// that comes now the writer starts on demand, as in one that comes later.
extern bool g_WriterIsStarting __attribute__((visibility("hidden")));

// A write that met a full disk, inside the engine; its callers turn it into eResultFailure after
// the files have been cleared.
constexpr int kDiskFull = -1;

// The words of the settings that the file output goes by, read as signed numbers.
struct tagLimits {
  int32_t m_LogMaxSize;      // bytes
  int32_t m_LogMaxDuration;  // seconds
  int32_t m_LogMaxCount;
  int32_t m_BufferSize;     // bytes
  int32_t m_WriteInterval;  // milliseconds
};

static_assert(sizeof(tagLimits) == sizeof(tagAttribute) - offsetof(tagAttribute, m_LogMaxSize),
              "the words at the end of the settings record, in its order");

// Where in the application's source a record was made. Null texts and -1 are left out.
struct tagSourcePlace {
  const char* m_File;
  const char* m_Function;
  int m_Line;
};

// What a record says. Its arguments are used up by the one record that is made of it.
struct tagMessage {
  const char* m_Format;
  const tagSourcePlace* m_Place;  // null: made without one
  va_list m_List;
};

// Who logs, and whose settings decide.
struct tagRecordHead {
  eLogLevel m_Level;
  const char* m_Module;           // may be null
  const char* m_Title;            // may be null
  const tagAttribute* m_Prefix;   // its date-time and thread-id switches shape the prefix
  const tagSourcePlace* m_Place;  // null: made without one
};

// Writes prefix and location into a field of which dateTimeLength bytes stand there already (0:
// none), and gives the length of the date-time text (0 when it is switched off). Returns the length
// of it all.
int WritePrefix(char* field, int room, const tagRecordHead& head, int& dateTimeLength);

// A formatted record on its way to the sinks.
struct tagRecord {
  eLogLevel m_Level;
  const char* m_Module;
  const char* m_Text;  // NUL-terminated
  int m_Length;        // bytes for the file
  int m_Skip;          // leading bytes that syslog does not see; may be more than there are
  char* m_Composable;  // m_Text when kColourBytes stand free before it and behind it, else null
};

// One of the file writers: their differences as data.
struct tagWriter {
  enum class eKind { kBySize, kByTime, kRaw };
  eKind m_Kind;
  bool m_CloseAfterWrite;  // the V1 forms: the file is closed after each buffered write
  const char* m_Function;  // as reports name it
  int m_ReportLine;        // of "Attempt to write to the file failed for more than 1 second"
};

extern const tagWriter kSizeWriter;
extern const tagWriter kSizeWriterV1;
extern const tagWriter kTimeWriter;
extern const tagWriter kTimeWriterV1;
extern const tagWriter kRawWriter;
extern const tagWriter kLocatedRawWriter;

}  // namespace Kelvik

#endif  // KELVIK_OUTPUTINTERNAL_H_
