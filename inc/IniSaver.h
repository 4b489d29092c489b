// The saver of INI documents: replaces a file's bytes as safely as its place allows. Header-only,
// in no namespace, POSIX only; a part of IniFile.h.

#ifndef KELVIK_INISAVER_H_
#define KELVIK_INISAVER_H_

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

// Writes a file so that a process killed, or a power cut, at any moment leaves the old bytes or
// the new ones: a temporary file beside the target is written, synced and renamed over it, and the
// folder is synced. A symbolic link is followed; mode and owner stay; a new file gets 0666 less
// the umask. Where a file cannot be replaced (no right to create beside it, a mount point, another
// name of it, a foreign owner, a device or pipe) it is written in place.
//
// The temporary file is '.<name>.kelvik-tmp' with a digit when other savers of the same file are
// at work. Its writer holds a lock on it, so an unlocked one was left by a killed process: the next
// save removes it. Only the holder of the lock renames or removes the file.
class xini_saver_t {
 public:
  // False when the path cannot be opened for writing or the bytes cannot be written. On failure
  // the old file is whole, unless an in-place write failed halfway.
  static bool save(const std::string& path, const std::string& bytes);

  class reader_t;

 private:
  static constexpr int kFirstFd = 3;             // 0 to 2 are the standard streams
  static constexpr int kMaxLinks = 40;           // symbolic links followed before giving up
  static constexpr int kMaxTries = 4;            // while others exchange the file
  static constexpr int kMaxTemps = 10;           // savers of one file at a time; one digit
  static constexpr std::size_t kMaxName = 255;   // bytes in a file name
  static constexpr std::size_t kMaxPath = 4096;  // bytes in a link's text
  static constexpr std::size_t kPiece = 4096;    // bytes that are read at a time
  static constexpr mode_t kPlainMode = 0666;     // of a new file, before the umask
  static constexpr mode_t kPrivateMode = 0600;   // until the old file's mode is given
  static constexpr mode_t kModeBits = 07777;

  // A descriptor that is closed at the end of its scope.
  class fd_t {
   public:
    explicit fd_t(int fd) : m_fd(fd) {}
    ~fd_t() { reset(-1); }
    fd_t(const fd_t&) = delete;
    fd_t& operator=(const fd_t&) = delete;
    int get() const { return m_fd; }
    bool is_open() const { return m_fd >= 0; }
    void reset(int fd) {
      const int kept = errno;
      if (m_fd >= 0) ::close(m_fd);
      m_fd = fd;
      errno = kept;
    }

   private:
    int m_fd;
  };

  // The functions below that return an int give 0 or an errno value, open_file a descriptor.
  static int try_save(const std::string& path, const std::string& bytes, bool isLast);
  static int open_file(const std::string& path, int flags, mode_t mode = 0);
  static std::string_view folder_of(std::string_view path);
  static std::string follow_links(const std::string& path);
  static bool is_replaceable(const std::string& target, const struct stat* old);
  static bool must_write_in_place(int error);
  static void name_temp(std::string& temp, std::string_view target, int number);
  static bool remove_stray(const std::string& temp);
  static int create_temp(const std::string& target, mode_t mode, fd_t& file, std::string& temp);
  static int take_over(int fd, const struct stat& old);
  static int write_all(int fd, const std::string& bytes);
  static int sync(int fd);
  static void sync_folder(std::string& path);
  static int fill(int fd, const std::string& bytes, const struct stat* old);
  static int replace(const std::string& path, const std::string& bytes, const struct stat* old);
  static int write_in_place(int fd, const std::string& bytes);
};

inline bool xini_saver_t::save(const std::string& path, const std::string& bytes) {
  int error = ESTALE;
  for (int tries = kMaxTries; tries > 0 && error == ESTALE; --tries) {
    error = try_save(path, bytes, tries == 1);
  }
  return error == 0;
}

// Reads the file at a path. The open never blocks; what may never end or never begin (a device, a
// pipe) is not read.
class xini_saver_t::reader_t {
 public:
  // Opens the file; error() tells whether that went well.
  explicit reader_t(const std::string& path)
      : m_file(open_file(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    struct stat status {};
    if (!m_file.is_open() || ::fstat(m_file.get(), &status) != 0) {
      m_error = errno;
    } else if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
      m_error = ENXIO;
    }
  }

  // 0, or the errno value that ended the reading before the end of the file.
  int error() const { return m_error; }

  // Appends the next bytes. False at the end of the file and after an error.
  bool read(std::string& bytes) {
    if (m_error != 0) return false;
    char piece[kPiece];
    ssize_t got = -1;
    do {
      got = ::read(m_file.get(), piece, sizeof piece);
    } while (got < 0 && errno == EINTR);
    if (got < 0) m_error = errno;
    if (got <= 0) return false;
    bytes.append(piece, static_cast<std::size_t>(got));
    return true;
  }

 private:
  fd_t m_file;
  int m_error = 0;
};

// ESTALE: the file was exchanged meanwhile, by another saver for one, and this is not the last try.
inline int xini_saver_t::try_save(const std::string& path, const std::string& bytes, bool isLast) {
  const int flags = O_WRONLY | O_NOCTTY | O_CLOEXEC;
  fd_t file(open_file(path, flags));
  if (!file.is_open() && errno != ENOENT) return errno;
  struct stat old {};
  if (file.is_open() && ::fstat(file.get(), &old) != 0) return errno;

  if (!file.is_open() || (S_ISREG(old.st_mode) && old.st_nlink <= 1)) {
    const int error = replace(path, bytes, file.is_open() ? &old : nullptr);
    if (error == ESTALE && !isLast) return error;
    if (!must_write_in_place(error)) return error;
  }
  if (!file.is_open()) file.reset(open_file(path, flags | O_CREAT, kPlainMode));
  return file.is_open() ? write_in_place(file.get(), bytes) : errno;
}

// Never one of 0 to 2, also where the process has closed them: what another thread prints or logs
// on standard output would land in the file.
inline int xini_saver_t::open_file(const std::string& path, int flags, mode_t mode) {
  int fd = -1;
  do {
    fd = ::open(path.c_str(), flags, mode);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0 || fd >= kFirstFd) return fd;
  const fd_t low(fd);
  return ::fcntl(low.get(), F_DUPFD_CLOEXEC, kFirstFd);
}

// A path up to its last '/', or nothing.
inline std::string_view xini_saver_t::folder_of(std::string_view path) {
  while (!path.empty() && path.back() != '/')
    path.remove_suffix(1);
  return path;
}

// The path behind all links, whether a file is there or not.
inline std::string xini_saver_t::follow_links(const std::string& path) {
  std::string target = path;
  for (int links = 0; links < kMaxLinks; ++links) {
    char text[kMaxPath];
    const ssize_t length = ::readlink(target.c_str(), text, sizeof text);
    if (length <= 0) break;
    target = text[0] == '/' ? std::string_view() : folder_of(target);
    target.append(text, static_cast<std::size_t>(length));
  }
  return target;
}

// True when `target` names the very file that was opened or, if none was (`old` is null), nothing.
inline bool xini_saver_t::is_replaceable(const std::string& target, const struct stat* old) {
  struct stat now {};
  if (::lstat(target.c_str(), &now) != 0) return old == nullptr && errno == ENOENT;
  return old != nullptr && now.st_dev == old->st_dev && now.st_ino == old->st_ino;
}

// True for errors that say that a file cannot be replaced in this place. After any other one (disk
// full, I/O error) a second try in place would only put the old bytes at risk.
inline bool xini_saver_t::must_write_in_place(int error) {
  switch (error) {
    case EACCES:
    case EPERM:
    case EROFS:
    case EBUSY:
    case EXDEV:
    case ESTALE:
    case ENOSYS:
    case ENOTSUP:
      return true;
    default:
      return false;
  }
}

// Makes `temp` the path of a temporary file beside `target`; a name that is too long is cut.
inline void xini_saver_t::name_temp(std::string& temp, std::string_view target, int number) {
  constexpr std::string_view kEnding = ".kelvik-tmp";
  const std::size_t digits = number > 0 ? 1 : 0;
  temp = folder_of(target);
  target.remove_prefix(temp.size());
  temp += '.';
  temp += target.substr(0, kMaxName - 1 - kEnding.size() - digits);
  temp += kEnding;
  if (number > 0) temp += static_cast<char>('0' + number);
}

// Removes a temporary file that nobody holds. False when there is none or it is in use.
inline bool xini_saver_t::remove_stray(const std::string& temp) {
  const fd_t file(open_file(temp, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC));
  struct stat held {};
  if (!file.is_open() || ::fstat(file.get(), &held) != 0 || !S_ISREG(held.st_mode)) return false;
  if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) return false;
  return is_replaceable(temp, &held) && ::unlink(temp.c_str()) == 0;
}

// Creates and locks the temporary file, passing by those that other savers hold.
inline int xini_saver_t::create_temp(const std::string& target, mode_t mode, fd_t& file,
                                     std::string& temp) {
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  for (int number = 0; number < kMaxTemps; ++number) {
    name_temp(temp, target, number);
    file.reset(open_file(temp, flags, mode));
    if (!file.is_open() && errno == EEXIST) {
      if (!remove_stray(temp)) continue;
      file.reset(open_file(temp, flags, mode));
      if (!file.is_open() && errno == EEXIST) continue;
    }
    if (!file.is_open()) return errno;
    // Another saver may have taken the file for a stray before it was locked: then it removes it.
    // A file system without locks is no hindrance: there, nobody can take it for a stray.
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) continue;
    struct stat made {};
    if (::fstat(file.get(), &made) != 0) {
      const int error = errno;
      ::unlink(temp.c_str());
      return error;
    }
    if (made.st_nlink == 0) continue;
    std::string stray;
    while (++number < kMaxTemps) {
      name_temp(stray, target, number);
      remove_stray(stray);
    }
    return 0;
  }
  return EBUSY;
}

// Gives the temporary file the owner and the mode of the old file.
inline int xini_saver_t::take_over(int fd, const struct stat& old) {
  struct stat made {};
  if (::fstat(fd, &made) != 0) return errno;
  if ((made.st_uid != old.st_uid || made.st_gid != old.st_gid) &&
      ::fchown(fd, old.st_uid, old.st_gid) != 0) {
    return EPERM;
  }
  if ((made.st_mode & kModeBits) != (old.st_mode & kModeBits) &&
      ::fchmod(fd, old.st_mode & kModeBits) != 0) {
    return EPERM;
  }
  return 0;
}

inline int xini_saver_t::write_all(int fd, const std::string& bytes) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (count > 0) {
      written += static_cast<std::size_t>(count);
    } else if (count == 0) {
      return EIO;
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

// A file system or device that cannot sync is taken as it is.
inline int xini_saver_t::sync(int fd) {
  while (::fsync(fd) != 0) {
    if (errno == EINVAL || errno == ENOSYS || errno == ENOTSUP) break;
    if (errno != EINTR) return errno;
  }
  return 0;
}

// Syncs the folder of a path, to which the path is cut. The new name is in place already: a folder
// that cannot be synced is no failure of the save.
inline void xini_saver_t::sync_folder(std::string& path) {
  path = folder_of(path);
  if (path.empty()) path += '.';
  const fd_t fd(open_file(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.is_open()) sync(fd.get());
}

inline int xini_saver_t::fill(int fd, const std::string& bytes, const struct stat* old) {
  int error = old != nullptr ? take_over(fd, *old) : 0;
  if (error == 0) error = write_all(fd, bytes);
  return error != 0 ? error : sync(fd);
}

inline int xini_saver_t::replace(const std::string& path, const std::string& bytes,
                                 const struct stat* old) {
  std::string target = follow_links(path);
  if (folder_of(target).size() == target.size()) return EISDIR;
  if (!is_replaceable(target, old)) return ESTALE;
  fd_t file(-1);
  std::string temp;
  int error = create_temp(target, old != nullptr ? kPrivateMode : kPlainMode, file, temp);
  if (error != 0) return error;
  error = fill(file.get(), bytes, old);
  if (error == 0 && ::rename(temp.c_str(), target.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temp.c_str());
    return error;
  }
  sync_folder(target);
  return 0;
}

// A regular file gets the room for its growth first, so that a full disk leaves it as it was, and
// is cut to its new length last.
inline int xini_saver_t::write_in_place(int fd, const std::string& bytes) {
  struct stat old {};
  if (::fstat(fd, &old) != 0) return errno;
  if (!S_ISREG(old.st_mode)) return write_all(fd, bytes);
  const off_t size = static_cast<off_t>(bytes.size());
  if (size > old.st_size) {
    const int error = ::posix_fallocate(fd, old.st_size, size - old.st_size);
    if (error == ENOSPC || error == EDQUOT || error == EFBIG) {
      return ::ftruncate(fd, old.st_size) == 0 ? error : errno;
    }
  }
  const int error = write_all(fd, bytes);
  if (error != 0) return error;
  if (::ftruncate(fd, size) != 0) return errno;
  return sync(fd);
}

#endif  // KELVIK_INISAVER_H_
