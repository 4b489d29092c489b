#include "CheckFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ConfigCheck.h"
#include "Failure.h"
#include "StandardOutput.h"
#include "Words.h"

namespace KelvikCtl {

namespace {

constexpr std::size_t kMostBytes = 16 << 20;

[[noreturn]] void FailToRead(const std::string& path, const std::string& reason) {
  throw CFailure(kExitNoAnswer, "cannot read " + Printable(path) + ": " + reason);
}

std::string ReadWhole(int fd, const std::string& path) {
  struct stat status = {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) FailToRead(path, "it is no file");
  std::string text;
  char piece[16384];
  for (;;) {
    const ssize_t size = read(fd, piece, sizeof(piece));
    if (size == -1 && errno == EINTR) continue;
    if (size == -1) FailToRead(path, std::strerror(errno));
    if (size == 0) return text;
    text.append(piece, static_cast<std::size_t>(size));
    if (text.size() > kMostBytes) FailToRead(path, "it is too large for a configuration file");
  }
}

}  // namespace

int CheckFile(const std::string& path) {
  // A pipe under that name must not keep us waiting.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd == -1) FailToRead(path, std::strerror(errno));
  std::string text;
  try {
    text = ReadWhole(fd, path);
  } catch (const CFailure&) {
    close(fd);
    throw;
  }
  close(fd);
  const std::vector<tagFinding> findings = CheckConfig(text);
  for (const tagFinding& finding : findings)
    PrintLine(path + ":" + std::to_string(finding.m_Line) + ": " + finding.m_Text);
  return findings.empty() ? kExitDone : kExitRefused;
}

}  // namespace KelvikCtl
