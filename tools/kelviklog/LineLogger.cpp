#include "LineLogger.h"

#include <unistd.h>

#include <cstring>

#include "Escape.h"
#include "Priority.h"
#include "Utf8.h"

namespace KelvikLog {

namespace {

constexpr std::size_t kRecordBytes = 8191;  // of a record, prefix and line end included
constexpr std::size_t kTimeBytes = 23;      // "2024-03-15 08:30:00.123"

void AppendShowingNuls(std::string& shown, const char* text, std::size_t length) {
  for (const char* const end = text + length; text < end;) {
    const void* const nul = std::memchr(text, '\0', static_cast<std::size_t>(end - text));
    const char* const stop = nul == nullptr ? end : static_cast<const char*>(nul);
    shown.append(text, stop);
    text = stop;
    for (; text < end && *text == '\0'; ++text) {
      shown += "\\0";
    }
  }
}

}  // namespace

std::size_t PrefixBytes(bool hasTime, bool hasThreadId, const char* module, const char* title) {
  const bool hasNames = module != nullptr || title != nullptr;
  std::size_t bytes = hasTime ? kTimeBytes + 1 : 0;
  if (hasNames || (hasTime && hasThreadId)) {
    const std::size_t brackets = 2;
    bytes += hasThreadId ? std::to_string(getpid()).size() + brackets : 0;
    bytes += module != nullptr ? std::strlen(module) + brackets : 0;
    bytes += title != nullptr ? std::strlen(title) + brackets : 0;
    bytes += 1;
  }
  return bytes;
}

CLineLogger::CLineLogger(const tagRecordStyle& style)
    : m_Style(style), m_Room(kRecordBytes - 1 - style.m_PrefixBytes), m_Level(style.m_Level) {}

void CLineLogger::Log(const tagLine& line) {
  char* text = line.m_Text;
  std::size_t length = line.m_Length;
  if (line.m_IsStart) {
    m_Level = m_Style.m_Level;
    if (m_Style.m_ReadsPriority && ReadPriority(text, length, m_Level)) {
      text += kPriorityBytes;
      length -= kPriorityBytes;
    }
  } else if (length == 0) {
    return;  // the end of a line whose parts were logged
  }
  if (!MustShow(text, length)) {
    LogText(text, length);
    return;
  }
  m_Shown.clear();
  if (m_Style.m_Escapes) {
    AppendEscaped(m_Shown, text, length);
  } else {
    AppendShowingNuls(m_Shown, text, length);
  }
  LogText(m_Shown.data(), m_Shown.size());
}

bool CLineLogger::MustShow(const char* text, std::size_t length) const {
  return m_Style.m_Escapes ? NeedsEscape(text, length) : std::memchr(text, '\0', length) != nullptr;
}

// text[length] is writable.
void CLineLogger::LogText(char* text, std::size_t length) {
  do {
    const std::size_t part = length <= m_Room ? length : WholeCharacters(text, m_Room);
    const char next = text[part];
    text[part] = '\0';
    const int result = KLog(m_Level, m_Style.m_Module, m_Style.m_Title, "%s\n", text);
    text[part] = next;
    if (result != eResultSuccess && result != eResultDisabled) {
      ++m_Refused;
    }
    text += part;
    length -= part;
  } while (length > 0);
}

}  // namespace KelvikLog
