// INI documents from and to text, for tests.

#ifndef KELVIK_INITOOLS_H_
#define KELVIK_INITOOLS_H_

#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "FileTools.h"
#include "IniFile.h"
#include "TempDir.h"

namespace Kelvik {

// A file in memory with a path: saving it costs no disk time, so that thousands of documents can be
// saved. Such a file cannot be replaced; it is written in place.
class CMemoryFile {
 public:
  CMemoryFile() : m_Fd(memfd_create("kelvik-ini", MFD_CLOEXEC)) {
    if (m_Fd == -1) {
      std::perror("memfd_create");
      std::abort();
    }
  }
  CMemoryFile(const CMemoryFile&) = delete;
  CMemoryFile& operator=(const CMemoryFile&) = delete;
  ~CMemoryFile() { close(m_Fd); }

  std::string Path() const { return "/proc/self/fd/" + std::to_string(m_Fd); }
  // Replaces all bytes.
  void Fill(const std::string& bytes) const {
    if (ftruncate(m_Fd, 0) != 0 ||
        pwrite(m_Fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
      std::perror("memory file");
      std::abort();
    }
  }

 private:
  int m_Fd;
};

// The bytes that a document saved from `path` has; "dump failed" when it cannot be saved.
inline std::string SavedBytes(const xini_file_t& doc, const CTempDir& folder) {
  const std::string path = folder.File("saved.ini");
  return doc.dump(path) ? ReadFile(path) : "dump failed";
}

// The bytes of a file after it was loaded and saved without a change.
inline std::string Resaved(const std::string& bytes) {
  const CTempDir folder;
  const std::string path = folder.File("loaded.ini");
  if (!WriteFile(path, bytes)) return "the test could not write";
  const xini_file_t doc(path);
  return SavedBytes(doc, folder);
}

// The line or lines that a node writes.
inline std::string Written(const xini_node_t& node) {
  std::ostringstream stream;
  node >> stream;
  return stream.str();
}

// A text with its control characters and foreign bytes made visible.
inline std::string Visible(const std::string& text) {
  std::ostringstream stream;
  for (const char letter : text) {
    const int code = static_cast<unsigned char>(letter);
    if (letter == '\n') {
      stream << "\\n";
    } else if (code >= 0x20 && code < 0x7F) {
      stream << letter;
    } else {
      stream << "\\x" << std::hex << code << std::dec;
    }
  }
  return stream.str();
}

}  // namespace Kelvik

#endif  // KELVIK_INITOOLS_H_
