// kelviklog's input, of any bytes in pieces of any size: the records are the lines, whatever the
// pieces and the buffer's size are, and none is longer than a record.
//
// Input: options (1 byte), buffer's size (1), bytes of a piece (1), the stream.

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "Escape.h"
#include "FuzzBytes.h"
#include "Kelvik.h"
#include "LineLogger.h"
#include "LineReader.h"

namespace {

using Kelvik::FuzzRequire;

struct tagRecord {
  eLogLevel m_Level;
  std::string m_Text;
};

std::vector<tagRecord> gRecords;
std::size_t gRecordBytes = 0;  // that a record may have

}  // namespace

// Stands in for the library's function; the linker sends the logger's calls here.
extern "C" int __wrap_KLog(eLogLevel level, const char* module, const char* title,
                           const char* format, ...);

int __wrap_KLog(eLogLevel level, const char* /*module*/, const char* /*title*/, const char* format,
                ...) {
  FuzzRequire(std::strcmp(format, "%s\n") == 0, "a line is no format");
  va_list args;
  va_start(args, format);
  const std::string text = va_arg(args, const char*);
  va_end(args);
  FuzzRequire(text.size() <= gRecordBytes, "a record's text fits");
  FuzzRequire(text.find('\n') == std::string::npos, "a record has one line end");
  gRecords.push_back({level, text});
  return eResultSuccess;
}

namespace KelvikLog {
namespace {

constexpr std::size_t kRecordTextBytes = 8190;  // without prefix and line end

// What one line should give, put together.
tagRecord Expected(std::string line, const tagRecordStyle& style) {
  tagRecord record = {style.m_Level, ""};
  if (style.m_ReadsPriority && line.size() >= 3 && line[0] == '<' && line[2] == '>' &&
      line[1] >= '0' && line[1] <= '7') {
    constexpr int kLevels[] = {5, 5, 5, 4, 3, 2, 2, 1};
    record.m_Level = static_cast<eLogLevel>(kLevels[line[1] - '0']);
    line.erase(0, 3);
  }
  if (style.m_Escapes) {
    AppendEscaped(record.m_Text, line.data(), line.size());
    return record;
  }
  for (const char byte : line)
    record.m_Text += byte == '\0' ? std::string("\\0") : std::string(1, byte);
  return record;
}

// Nothing that a terminal obeys is among the bytes: no C0 but tab, no DEL, no C1 as UTF-8, no
// single byte in its place.
void RequireHarmless(const std::string& text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    FuzzRequire((byte >= 0x20 && byte != 0x7F) || byte == '\t', "no control byte is shown");
    const auto before = static_cast<unsigned char>(at > 0 ? text[at - 1] : 0);
    const bool isC1 = byte >= 0x80 && byte < 0xA0 && before < 0x80;
    FuzzRequire(!isC1, "no C1 byte stands alone");
    FuzzRequire(before != 0xC2 || byte < 0x80 || byte >= 0xA0, "no C1 character is shown");
  }
}

void Compare(const std::string& stream, const tagRecordStyle& style) {
  std::size_t next = 0;
  for (std::size_t at = 0; at < stream.size();) {
    const std::size_t end = std::min(stream.find('\n', at), stream.size());
    const tagRecord expected = Expected(stream.substr(at, end - at), style);
    at = end + 1;
    std::string text;
    bool isFirst = true;
    // A line that is too long for one record has several; an empty one has one.
    while (isFirst || text.size() < expected.m_Text.size()) {
      FuzzRequire(next < gRecords.size(), "every line is logged");
      FuzzRequire(gRecords[next].m_Level == expected.m_Level, "a line has one level");
      text += gRecords[next++].m_Text;
      isFirst = false;
    }
    FuzzRequire(text == expected.m_Text, "a line's records hold all of it");
    if (style.m_Escapes) RequireHarmless(text);
  }
  FuzzRequire(next == gRecords.size(), "nothing else is logged");
}

void LogAll(Kelvik::CFuzzBytes bytes) {
  const unsigned options = bytes.Byte();
  const std::size_t capacity = 8 + std::size_t{bytes.Byte()} * ((options & 4) != 0 ? 128 : 1);
  const std::size_t step = 1 + std::size_t{bytes.Byte()};
  const std::string stream = bytes.Rest();
  tagRecordStyle style;
  style.m_ReadsPriority = (options & 1) != 0;
  style.m_Escapes = (options & 2) != 0;
  // A long prefix leaves little room, so that short lines take several records.
  style.m_PrefixBytes = (options & 8) != 0 ? kRecordTextBytes - 16 : 0;
  gRecordBytes = kRecordTextBytes - style.m_PrefixBytes;
  gRecords.clear();

  CLineLogger logger(style);
  CLineReader reader(capacity);
  tagLine line = {};
  for (std::size_t at = 0; at < stream.size();) {
    std::size_t room = 0;
    char* const space = reader.Space(room);
    FuzzRequire(room > 0, "there is always room");
    const std::size_t count = std::min({step, room, stream.size() - at});
    std::memcpy(space, stream.data() + at, count);
    reader.Add(count);
    at += count;
    while (reader.Next(line))
      logger.Log(line);
  }
  if (reader.Rest(line)) logger.Log(line);
  Compare(stream, style);
}

}  // namespace
}  // namespace KelvikLog

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  KelvikLog::LogAll(Kelvik::CFuzzBytes(data, size));
  return 0;
}
