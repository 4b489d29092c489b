#include "ConfigLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace KelvikLog {

namespace {

// One name for all the names that a file goes by, as far as the system tells.
std::string RealName(const std::string& path) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
  return error ? path : real.string();
}

// False when the file was removed, or replaced, between its opening and its locking.
bool IsStillThere(int fd, const std::string& path) {
  struct stat opened = {};
  struct stat named = {};
  return fstat(fd, &opened) == 0 && stat(path.c_str(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

}  // namespace

CConfigLock::~CConfigLock() {
  if (m_Fd >= 0) {
    // While the lock is held: nobody else can have it on the file that goes.
    unlink(m_LockPath.c_str());
    close(m_Fd);
  }
}

bool CConfigLock::Take(const std::string& path, std::string& problem) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
    problem = path + ": " + std::strerror(EISDIR);
    return false;
  }
  m_LockPath = RealName(path) + ".lock";
  for (;;) {
    const int fd =
        open(m_LockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (fd < 0) {
      problem = m_LockPath + ": " + std::strerror(errno);
      return false;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
      problem = errno == EWOULDBLOCK ? path + " is in use by another kelviklog"
                                     : m_LockPath + ": " + std::strerror(errno);
      close(fd);
      return false;
    }
    if (IsStillThere(fd, m_LockPath)) {
      m_Fd = fd;
      return true;
    }
    close(fd);
  }
}

}  // namespace KelvikLog
