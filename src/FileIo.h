// Opening, writing and removing files: the system calls of the writers, with their retries.
#ifndef KELVIK_FILEIO_H_
#define KELVIK_FILEIO_H_

#include <cstddef>
#include <cstdint>

namespace Kelvik {

enum class eOpenMode {
  kOver,    // O_WRONLY | O_CREAT: an existing file is overwritten from its start, not shortened
  kAppend,  // O_WRONLY | O_APPEND | O_CREAT
};

enum class eOpenTrust {
  kOwnName,   // named by the ring: a symbolic link as last component, and anything but a regular
              // file, is a failure
  kAsStands,  // given by the configuration file: opened as it stands
};

// Opens or creates a log file, mode 0600 (also under a umask that would take these bits). Never
// blocks (a FIFO without a reader fails), is close-on-exec and 3 or above. Returns the descriptor,
// or -1 with errno set.
int OpenLogFile(const char* path, eOpenMode mode, eOpenTrust trust);

// Opens a terminal device read-write: the open cannot block, the device does not become the
// controlling terminal, the descriptor is 3 or above, close-on-exec, and blocking afterwards.
// Returns the descriptor, or -1 with errno set.
int OpenTerminal(const char* path);

// Writes all bytes: a short write is continued, EINTR retried, a write that takes nothing is EIO.
// For a length of 0 one call is made, so that a bad descriptor shows; data may be null then.
// *written receives the bytes that went out before an error (may be null). Returns 0, or the errno
// value that ended it.
int WriteAll(int descriptor, const char* data, size_t length, size_t* written);

// remove(path); returns 0 or the errno value. An empty path is not tried (ENOENT).
int RemoveFile(const char* path);

// Closes *descriptor when it is not -1 and stores -1.
void CloseDescriptor(int32_t& descriptor);

// Moves a descriptor below 3 to 3 or above (close-on-exec kept set), closing the low one. Returns
// the descriptor to use, or -1 with errno set (the low one is closed then too).
int LiftDescriptor(int descriptor);

}  // namespace Kelvik

#endif  // KELVIK_FILEIO_H_
