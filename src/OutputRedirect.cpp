// Standard output's way to another terminal and back to the console device, a module's state on a
// terminal, the module in focus.

#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "FileIo.h"
#include "Global.h"
#include "Output.h"
#include "Relaxed.h"
#include "TerminalStream.h"

namespace Kelvik {
namespace {

constexpr char kSystemConsole[] = "/dev/console";

bool IsEmpty(const char* text) {
  return text == nullptr || *text == '\0';
}

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

}  // namespace

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
