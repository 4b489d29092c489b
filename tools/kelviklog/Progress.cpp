#include "Progress.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "Escape.h"

namespace KelvikLog {

namespace {

// A short input shows no line at all, so that none flashes up.
constexpr std::chrono::milliseconds kQuietFor(500);
constexpr std::chrono::milliseconds kBetween(200);
constexpr std::size_t kUsualColumns = 80;

// A line that reaches the last column may wrap, and could not be taken away.
std::size_t Columns() {
  winsize size = {};
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return (isKnown ? size.ws_col : kUsualColumns) - 1;
}

// A terminal that takes nothing at the moment (Ctrl-S) must not hold up the records.
void Print(const std::string& text) {
  pollfd ready = {STDERR_FILENO, POLLOUT, 0};
  if (poll(&ready, 1, 0) != 1 || (ready.revents & POLLOUT) == 0) return;
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

void CProgress::Begin(const std::string& name, int64_t bytes) {
  m_Name.clear();
  AppendEscaped(m_Name, name.data(), name.size());
  m_Bytes = bytes;
  m_Done = 0;
  m_Line.clear();
  m_Due = std::chrono::steady_clock::now() + kQuietFor;
}

void CProgress::Clear() {
  if (m_IsShown) Print("\r\033[K");
  m_IsShown = false;
}

void CProgress::Draw() {
  if (!m_IsOn || m_Bytes <= 0) return;
  const auto now = std::chrono::steady_clock::now();
  const bool isDue = now >= m_Due;
  if (isDue) {
    m_Due = now + kBetween;
    m_Line = "\r" + Text() + "\033[K";
  }
  if (m_Line.empty() || (m_IsShown && !isDue)) return;
  Print(m_Line);
  m_IsShown = true;
}

void CProgress::End() {
  Clear();
  m_Bytes = -1;
}

std::string CProgress::Text() const {
  constexpr double kMib = 1024.0 * 1024.0;
  // A file may grow while it is read.
  const int64_t all = std::max(m_Bytes, m_Done);
  char numbers[96];
  std::snprintf(numbers, sizeof(numbers), ": %3d %%, %.1f of %.1f MiB",
                static_cast<int>(static_cast<double>(m_Done) * 100.0 / static_cast<double>(all)),
                static_cast<double>(m_Done) / kMib, static_cast<double>(all) / kMib);
  std::string text = m_Name + numbers;
  // The name's end tells more than its start.
  const std::size_t columns = Columns();
  if (text.size() <= columns) return text;
  std::size_t first = text.size() - columns;
  while (first < text.size() && (static_cast<unsigned char>(text[first]) & 0xC0) == 0x80) {
    ++first;
  }
  return text.substr(first);
}

}  // namespace KelvikLog
