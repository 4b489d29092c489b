// One log file of a ring, open for reading.

#ifndef KELVIK_KELVIKCTL_RINGFILE_H_
#define KELVIK_KELVIKCTL_RINGFILE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace KelvikCtl {

// Keeps what it has when the file is deleted; and as long as it is open no other file can be taken
// for it, however alike the names are.
class CRingFile {
 public:
  // Null when there is no file of that name. Throws CFailure when it cannot be opened or is no
  // regular file.
  static std::unique_ptr<CRingFile> Open(const std::string& path);
  CRingFile(const CRingFile&) = delete;
  CRingFile& operator=(const CRingFile&) = delete;
  ~CRingFile();

  const std::string& Path() const { return m_Path; }
  int Descriptor() const { return m_Fd; }

  enum class ePlace { kHere, kGone, kTaken };
  // What the file's name stands for now: this file, nothing, another file.
  ePlace Place() const;

  int64_t Size() const;

  // Reads on from where the last call ended, up to offset end (-1: none). Returns how many bytes
  // were read, 0 at the end. A file that was cut shorter is read from its start again.
  std::size_t Read(char* space, std::size_t room, int64_t end);
  // Read has nothing to give.
  bool IsAtEnd() const { return Size() == m_Offset; }
  // Where the next Read begins.
  void Seek(int64_t offset) { m_Offset = offset; }

 private:
  CRingFile(const std::string& path, int fd) : m_Path(path), m_Fd(fd) {}

  const std::string m_Path;
  const int m_Fd;
  int64_t m_Offset = 0;
};

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_RINGFILE_H_
