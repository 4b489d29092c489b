// The status displays: what the context can say about itself on a terminal. A line is one write;
// what cannot be written is lost, since the terminal's owner may have gone.

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Global.h"
#include "Kelvik.h"
#include "PathPattern.h"

namespace Kelvik {
namespace {

constexpr size_t kLineBytes = 1024;  // with the terminator; longer lines are cut

const char* OrNull(const char* text) {
  return text == nullptr ? "(null)" : text;
}

const char* Word(unsigned flag) {
  return flag == 0 ? "false" : "true";
}

const char* LevelWord(unsigned mask, eLogLevel level) {
  return Word(mask & (1u << level));
}

__attribute__((format(printf, 2, 3))) void WriteLine(int fd, const char* format, ...) {
  char line[kLineBytes] = {};
  va_list arguments;
  va_start(arguments, format);
  static_cast<void>(std::vsnprintf(line, sizeof(line), format, arguments));
  va_end(arguments);
  const size_t length = std::strlen(line);
  while (write(fd, line, length) == -1 && errno == EINTR) {
  }
}

}  // namespace

int CGlobal::ShowAttribute(int fd, const char* module, const char* title) {
  tagAttribute attribute;
  CopyAttribute(attribute);
  tagAbsoluteTime now = {};
  GetDateTime(now);
  char path[kLogPathBytes] = {};
  ExpandPathPattern(path, sizeof(path), attribute.m_LogPath, now);

  WriteLine(fd, "[Attribute] module:%s title:%s.\n", OrNull(module), OrNull(title));
  WriteLine(fd, "[Output mode] printf:%s system:%s file:%s datetime:%s tid:%s.\n",
            Word(attribute.m_OutputConsole), Word(attribute.m_OutputSystem),
            Word(attribute.m_OutputFile), Word(attribute.m_OutputDateTime),
            Word(attribute.m_OutputThreadID));
  const unsigned mask = attribute.m_LevelMask;
  WriteLine(fd, "[Log level] debug:%s info:%s warning:%s error:%s fatal:%s.\n",
            LevelWord(mask, eLogLevelDebug), LevelWord(mask, eLogLevelInfo),
            LevelWord(mask, eLogLevelWarning), LevelWord(mask, eLogLevelError),
            LevelWord(mask, eLogLevelFatal));
  WriteLine(fd, "[Log file] path:%s.\n", path);
  return eResultSuccess;
}

int CGlobal::ShowModule(int fd, const char* module, const char* title) {
  if (module == nullptr || title == nullptr) return eResultFailure;
  WriteLine(fd, "==========Register Module==========\n");
  for (const tagModuleNode* node = FirstModule(); node != nullptr; node = NextModule(node)) {
    WriteLine(fd, "[%s]\n", node->m_Name);
  }
  return eResultSuccess;
}

int CGlobal::ShowCmd(int fd, const char* module, const char* title) {
  if (module == nullptr || title == nullptr) return eResultFailure;
  WriteLine(fd, "==========Cmd Module==========\n");
  for (const tagModule& record : m_ModuleState.CopyModules()) {
    WriteLine(fd, "moudle:[%s], title:[%s]\n", record.m_Module, record.m_Title);
  }
  return eResultSuccess;
}

}  // namespace Kelvik
