// The terminal sink: colours, redirection of standard output, the module in focus.
//
// Standard output is the application's as well, so everything goes through its stream, under the
// stream's own lock where more than one piece must stay together.

#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "FileIo.h"
#include "Global.h"
#include "Output.h"
#include "OutputInternal.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

constexpr char kYellow[] = "\033[33m";
constexpr char kRed[] = "\033[31m";
constexpr char kCyan[] = "\033[36m";
constexpr char kReset[] = "\033[0m";
constexpr char kSystemConsole[] = "/dev/console";

static_assert(sizeof(kYellow) <= kColourBytes && sizeof(kReset) <= kColourBytes,
              "a colour sequence fits beside a record");

bool IsEmpty(const char* text) {
  return text == nullptr || *text == '\0';
}

// Caller holds the stream's lock, or writes one piece only.
bool PrintPiece(const char* text, size_t length) {
  return std::fwrite(text, 1, length, stdout) == length;
}

bool PrintText(const char* text) {
  return PrintPiece(text, std::strlen(text));
}

// Holds standard output's own lock, so that no other thread's text comes in between.
class CStreamGuard {
 public:
  CStreamGuard() { ::flockfile(stdout); }
  ~CStreamGuard() { ::funlockfile(stdout); }
  CStreamGuard(const CStreamGuard&) = delete;
  CStreamGuard& operator=(const CStreamGuard&) = delete;
};

// A terminal that is open for a scope: a callback may leave it by an exception, or end the thread.
class COpenTerminal {
 public:
  explicit COpenTerminal(const char* path) : m_Fd(OpenTerminal(path)) {}
  ~COpenTerminal() { CloseDescriptor(m_Fd); }
  COpenTerminal(const COpenTerminal&) = delete;
  COpenTerminal& operator=(const COpenTerminal&) = delete;

  int32_t m_Fd;  // -1: it could not be opened
};

// Text for a device that is lost, and its error, must not stay with the stream.
void DropUnprinted() {
  CStreamGuard guard;
  ::__fpurge(stdout);
  std::clearerr(stdout);
}

bool PrintColoured(const char* colour, const char* text) {
  if (!PrintText(colour) || !PrintText(text)) return false;
  return colour == kReset || PrintText(kReset);
}

}  // namespace

const char* COutput::Colour(eLogLevel level, const char* module) const {
  if (level == eLogLevelError) return kYellow;
  if (level == eLogLevelFatal) return kRed;
  return m_Focus.IsSet() && m_Focus.Matches(module) ? kCyan : kReset;
}

// One write to the stream where the record leaves room for its colour; the record is as it was
// afterwards.
void COutput::PrintRecord(const tagRecord& record) {
  const char* colour = Colour(record.m_Level, record.m_Module);
  bool printed;
  if (record.m_Composable == nullptr) {
    CStreamGuard guard;
    printed = PrintColoured(colour, record.m_Text);
  } else {
    const size_t lead = std::strlen(colour);
    char* begin = record.m_Composable - lead;
    char* end = record.m_Composable + record.m_Length;
    std::memcpy(begin, colour, lead);  // NOLINT(bugprone-not-null-terminated-result)
    const size_t tail = colour == kReset ? 0 : sizeof(kReset) - 1;
    std::memcpy(end, kReset, tail);
    printed = PrintPiece(begin, static_cast<size_t>(end - begin) + tail);
    *end = '\0';
  }
  AfterPrint(!printed);
}

void COutput::PrintRaw(eLogLevel level, const char* module, const char* prefix, const char* data) {
  const char* colour = Colour(level, module);
  bool printed;
  {
    CStreamGuard guard;
    printed = *prefix == '\0' || PrintText(prefix);
    // A lost terminal is recovered before the data, which then reaches the new one.
    if (!printed) Recover();
    printed = PrintColoured(colour, data);
  }
  AfterPrint(!printed);
}

// A redirected terminal gets each record at once; one that is lost is left for the console device.
// The record is not printed again.
void COutput::AfterPrint(bool failed) {
  RelaxedAdd(m_TerminalRecords, 1);
  if (RelaxedLoad(m_TerminalFd) == -1) return;
  if (!failed) failed = std::fflush(stdout) != 0;
  if (failed) Recover();
}

void COutput::Recover() {
  if (errno != EIO || RelaxedLoad(m_TerminalFd) == -1) return;
  if (RedirectConsole() != eResultSuccess) DropUnprinted();
}

int COutput::LogTerminal(const char* path, int pathLength, const char* module, int moduleLength,
                         const char* title, int titleLength) {
  if (IsEmpty(module) || IsEmpty(title) || IsEmpty(path) || pathLength == 0 || moduleLength == 0 ||
      titleLength == 0) {
    return eResultInvalid;
  }
  const COpenTerminal terminal(path);
  if (terminal.m_Fd == -1) return eResultUnavailable;
  CGlobal::Instance()->GetModuleState().Log(terminal.m_Fd, module, title);
  return eResultSuccess;
}

int COutput::RedirectTTY(const char* path, int length) {
  if (IsEmpty(path) || length == 0) return eResultInvalid;
  int32_t fd = OpenTerminal(path);
  if (fd == -1) return eResultUnavailable;
  CStreamGuard guard;
  // What the old device does not take any more must not come out on the new one.
  if (std::fflush(stdout) != 0) DropUnprinted();
  std::clearerr(stdout);
  RelaxedStore(m_TerminalFd, ::dup2(fd, STDOUT_FILENO));
  CloseDescriptor(fd);
  std::printf("******************* node = %s\n", path);
  std::fflush(stdout);
  return eResultSuccess;
}

int COutput::RedirectConsole() {
  char path[sizeof(m_ConsolePath)];
  {
    CStreamGuard guard;  // two threads may be the first to need the system console
    if (m_ConsolePath[0] == '\0')
      std::memcpy(m_ConsolePath, kSystemConsole, sizeof(kSystemConsole));
    std::memcpy(path, m_ConsolePath, sizeof(path));
  }
  return RedirectTTY(path, static_cast<int>(std::strlen(path)));
}

int COutput::GetConsolePath() {
  char path[sizeof(m_ConsolePath)];
  if (::ttyname_r(STDIN_FILENO, path, sizeof(path)) != 0) return eResultSuccess;
  CStreamGuard guard;
  std::memset(m_ConsolePath, 0, sizeof(m_ConsolePath));
  std::memcpy(m_ConsolePath, path, ::strnlen(path, sizeof(path) - 1));
  return eResultSuccess;
}

int COutput::ResetFocusModule(const char* name, int length) {
  if (name != nullptr && length != 0 && ::strcasecmp(name, "false") != 0) {
    m_Focus.Set(name);
  } else {
    m_Focus.Clear();
  }
  return eResultSuccess;
}

}  // namespace Kelvik
