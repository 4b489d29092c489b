#include "RingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Failure.h"

namespace KelvikCtl {

std::unique_ptr<CRingFile> CRingFile::Open(const std::string& path) {
  // A pipe under that name must not keep us waiting.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd == -1) {
    if (errno == ENOENT || errno == ENOTDIR) return nullptr;
    throw CFailure(kExitRefused, path + ": " + std::strerror(errno));
  }
  std::unique_ptr<CRingFile> file(new CRingFile(path, fd));
  struct stat status = {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    throw CFailure(kExitRefused, path + " is no file");
  }
  return file;
}

CRingFile::~CRingFile() {
  close(m_Fd);
}

CRingFile::ePlace CRingFile::Place() const {
  struct stat own = {};
  struct stat named = {};
  if (stat(m_Path.c_str(), &named) != 0) return ePlace::kGone;
  const bool isSame =
      fstat(m_Fd, &own) == 0 && own.st_dev == named.st_dev && own.st_ino == named.st_ino;
  return isSame ? ePlace::kHere : ePlace::kTaken;
}

int64_t CRingFile::Size() const {
  struct stat status = {};
  return fstat(m_Fd, &status) == 0 ? int64_t{status.st_size} : 0;
}

std::size_t CRingFile::Read(char* space, std::size_t room, int64_t end) {
  if (end >= 0) {
    room = static_cast<std::size_t>(
        std::clamp<int64_t>(end - m_Offset, 0, static_cast<int64_t>(room)));
  }
  if (room == 0) return 0;
  ssize_t count;
  do {
    count = pread(m_Fd, space, room, static_cast<off_t>(m_Offset));
  } while (count == -1 && errno == EINTR);
  if (count == -1) throw CFailure(kExitRefused, m_Path + ": " + std::strerror(errno));
  if (count == 0 && Size() < m_Offset) m_Offset = 0;
  m_Offset += count;
  return static_cast<std::size_t>(count);
}

}  // namespace KelvikCtl
