// xini_faulty_saver_t: the saver of INI documents on system calls that fail when told to. Each call
// of the saver is counted; the one of the wanted number, or it and all later ones, fails with the
// wanted error and without effect (close does close, as the kernel's does).

#ifndef KELVIK_FAULTYSAVER_H_
#define KELVIK_FAULTYSAVER_H_

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace Kelvik {

struct tagFaults {
  int m_FailAt = 0;                  // number of the failing call, from 1; 0: none
  bool m_IsLasting = false;          // the later ones fail as well
  int m_Error = 0;                   // errno of the failure
  std::size_t m_MostWritten = 0;     // bytes that one write takes at most; 0: all
  std::size_t m_Room = 0;            // bytes that can be written until the disk is full; 0: endless
  int m_LowestFd = 1000000;          // of those written to
  std::vector<std::string> m_Calls;  // names of the calls in order
};

inline tagFaults& Faults() {
  static tagFaults faults;
  return faults;
}

// Counts a call; true, with errno set, when it must fail.
inline bool MustFail(const char* name) {
  tagFaults& faults = Faults();
  faults.m_Calls.emplace_back(name);
  const int number = static_cast<int>(faults.m_Calls.size());
  if (faults.m_FailAt == 0 || number < faults.m_FailAt) return false;
  if (number > faults.m_FailAt && !faults.m_IsLasting) return false;
  errno = faults.m_Error;
  return true;
}

inline ssize_t WriteWithFaults(int fd, const void* bytes, std::size_t size) {
  tagFaults& faults = Faults();
  if (fd < faults.m_LowestFd) faults.m_LowestFd = fd;
  if (MustFail("write")) return -1;
  if (faults.m_MostWritten != 0 && size > faults.m_MostWritten) size = faults.m_MostWritten;
  if (faults.m_Room != 0) {
    if (faults.m_Room == 1) {
      errno = ENOSPC;
      return -1;
    }
    if (size > faults.m_Room - 1) size = faults.m_Room - 1;
    faults.m_Room -= size;
  }
  return ::write(fd, bytes, size);
}

inline int CloseWithFaults(int fd) {
  const bool mustFail = MustFail("close");
  const int kept = errno;
  const int result = ::close(fd);
  if (!mustFail) return result;
  errno = kept;
  return -1;
}

}  // namespace Kelvik

inline int FaultyOpen(const char* path, int flags, mode_t mode) {
  const bool isFolder = (flags & O_DIRECTORY) != 0;
  const char* name = isFolder ? "open folder" : (flags & O_EXCL) != 0 ? "create" : "open";
  return Kelvik::MustFail(name) ? -1 : ::open(path, flags, mode);
}
inline ssize_t FaultyWrite(int fd, const void* bytes, std::size_t size) {
  return Kelvik::WriteWithFaults(fd, bytes, size);
}
inline int FaultyClose(int fd) {
  return Kelvik::CloseWithFaults(fd);
}
inline int FaultyFstat(int fd, struct stat* status) {
  return Kelvik::MustFail("fstat") ? -1 : ::fstat(fd, status);
}
inline int FaultyLstat(const char* path, struct stat* status) {
  return Kelvik::MustFail("lstat") ? -1 : ::lstat(path, status);
}
inline ssize_t FaultyReadlink(const char* path, char* text, std::size_t size) {
  return Kelvik::MustFail("readlink") ? -1 : ::readlink(path, text, size);
}
inline int FaultyFlock(int fd, int operation) {
  return Kelvik::MustFail("flock") ? -1 : ::flock(fd, operation);
}
inline int FaultyFchown(int fd, uid_t user, gid_t group) {
  return Kelvik::MustFail("fchown") ? -1 : ::fchown(fd, user, group);
}
inline int FaultyFchmod(int fd, mode_t mode) {
  return Kelvik::MustFail("fchmod") ? -1 : ::fchmod(fd, mode);
}
inline int FaultyFsync(int fd) {
  return Kelvik::MustFail("fsync") ? -1 : ::fsync(fd);
}
inline int FaultyFtruncate(int fd, off_t size) {
  return Kelvik::MustFail("ftruncate") ? -1 : ::ftruncate(fd, size);
}
inline int FaultyFallocate(int fd, off_t start, off_t size) {
  return Kelvik::MustFail("fallocate") ? errno : ::posix_fallocate(fd, start, size);
}
inline int FaultyRename(const char* from, const char* to) {
  return Kelvik::MustFail("rename") ? -1 : ::rename(from, to);
}
inline int FaultyUnlink(const char* path) {
  return Kelvik::MustFail("unlink") ? -1 : ::unlink(path);
}

// The saver's own text under another name, so that both can stand in one program.
#ifdef KELVIK_INISAVER_H_
#error "FaultySaver.h must come before IniSaver.h"
#endif
#define xini_saver_t xini_faulty_saver_t
#define open FaultyOpen
#define write FaultyWrite
#define close FaultyClose
#define fstat FaultyFstat
#define lstat FaultyLstat
#define readlink FaultyReadlink
#define flock FaultyFlock
#define fchown FaultyFchown
#define fchmod FaultyFchmod
#define fsync FaultyFsync
#define ftruncate FaultyFtruncate
#define posix_fallocate FaultyFallocate
#define rename FaultyRename
#define unlink FaultyUnlink
#include "IniSaver.h"
#undef xini_saver_t
#undef open
#undef write
#undef close
#undef fstat
#undef lstat
#undef readlink
#undef flock
#undef fchown
#undef fchmod
#undef fsync
#undef ftruncate
#undef posix_fallocate
#undef rename
#undef unlink

#endif  // KELVIK_FAULTYSAVER_H_
