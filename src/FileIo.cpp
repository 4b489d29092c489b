#include "FileIo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace Kelvik {
namespace {

constexpr mode_t kFileMode = S_IRUSR | S_IWUSR;
constexpr int kFirstDescriptor = 3;  // 0 to 2 are the application's, also while they are closed

// What no open of the library may do: wait for a peer, take a controlling terminal, pass on to a
// program that the application starts.
constexpr int kSafeOpenFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Closes and returns -1; errno stays as the failure left it, or becomes the given error.
int Abandon(int descriptor, int error) {
  static_cast<void>(close(descriptor));
  errno = error;
  return -1;
}

// Opens with the retries, the safe flags and a lifted descriptor. Returns -1 with errno set.
int OpenSafely(const char* path, int flags, mode_t mode) {
  int descriptor = -1;
  do {
    descriptor = open(path, flags | kSafeOpenFlags, mode);
  } while (descriptor == -1 && errno == EINTR);
  return LiftDescriptor(descriptor);
}

bool MakeBlocking(int descriptor) {
  const int flags = fcntl(descriptor, F_GETFL);
  return flags != -1 && fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) != -1;
}

// Gives a file that this open made the bits that a strict umask took from it. An empty file of the
// process's own is taken for new; a file system that knows no modes keeps what it has.
void RestoreMode(int descriptor, const struct stat& status) {
  if ((status.st_mode & kFileMode) == kFileMode) return;
  if (status.st_size != 0 || status.st_uid != geteuid()) return;
  static_cast<void>(fchmod(descriptor, kFileMode));
}

}  // namespace

int OpenLogFile(const char* path, eOpenMode mode, eOpenTrust trust) {
  int flags = O_WRONLY | O_CREAT;
  if (mode == eOpenMode::kAppend) flags |= O_APPEND;
  if (trust == eOpenTrust::kOwnName) flags |= O_NOFOLLOW;
  const int descriptor = OpenSafely(path, flags, kFileMode);
  if (descriptor == -1) return -1;

  struct stat status;
  if (fstat(descriptor, &status) != 0) return Abandon(descriptor, errno);
  if (S_ISREG(status.st_mode)) {
    RestoreMode(descriptor, status);
    return descriptor;
  }
  if (trust == eOpenTrust::kOwnName) return Abandon(descriptor, EINVAL);
  if (!MakeBlocking(descriptor)) return Abandon(descriptor, errno);
  return descriptor;
}

int OpenTerminal(const char* path) {
  const int descriptor = OpenSafely(path, O_RDWR, 0);
  if (descriptor == -1) return -1;
  if (!MakeBlocking(descriptor)) return Abandon(descriptor, errno);
  return descriptor;
}

int WriteAll(int descriptor, const char* data, size_t length, size_t* written) {
  size_t done = 0;
  int error = 0;
  // A call is made for no bytes too, so that a bad descriptor shows.
  for (;;) {
    const ssize_t count = write(descriptor, data + done, length - done);
    if (count < 0) {
      if (errno == EINTR) continue;
      error = errno;
      break;
    }
    done += static_cast<size_t>(count);
    if (done >= length) break;
    if (count == 0) {
      error = EIO;  // a device that takes nothing would be written to for ever
      break;
    }
  }
  if (written != nullptr) *written = done;
  return error;
}

int RemoveFile(const char* path) {
  if (path[0] == '\0') return ENOENT;
  return remove(path) == 0 ? 0 : errno;
}

void CloseDescriptor(int32_t& descriptor) {
  if (descriptor == -1) return;
  static_cast<void>(close(descriptor));  // Linux has closed it also when it reports EINTR
  descriptor = -1;
}

int LiftDescriptor(int descriptor) {
  if (descriptor < 0 || descriptor >= kFirstDescriptor) return descriptor;
  const int lifted = fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstDescriptor);
  const int error = errno;
  static_cast<void>(close(descriptor));
  errno = error;
  return lifted;
}

}  // namespace Kelvik
