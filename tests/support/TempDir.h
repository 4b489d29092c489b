// A folder of a test's own, removed with all its content at the end of the scope.

#ifndef KELVIK_TEMPDIR_H_
#define KELVIK_TEMPDIR_H_

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace Kelvik {

class CTempDir {
 public:
  // Aborts the test program when no folder can be made: no test could go on.
  CTempDir() {
    const char* base = getenv("TMPDIR");
    m_Path = std::string(base != nullptr && base[0] == '/' ? base : "/tmp") + "/kelvik-XXXXXX";
    if (mkdtemp(m_Path.data()) == nullptr) {
      std::perror(m_Path.c_str());
      std::abort();
    }
  }
  CTempDir(const CTempDir&) = delete;
  CTempDir& operator=(const CTempDir&) = delete;
  ~CTempDir() {
    // A test may have taken the write bit from a folder.
    namespace fs = std::filesystem;
    std::error_code ignored;
    fs::permissions(m_Path, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (fs::recursive_directory_iterator entry(m_Path, ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
      std::error_code kept;
      if (entry->is_directory(kept) && !entry->is_symlink(kept)) {
        fs::permissions(entry->path(), fs::perms::owner_all, fs::perm_options::add, kept);
      }
    }
    fs::remove_all(m_Path, ignored);
  }

  const std::string& Path() const { return m_Path; }
  // The folder with a final '/', as the library takes a log path.
  std::string LogPath() const { return m_Path + "/"; }
  std::string File(const std::string& name) const { return m_Path + "/" + name; }

 private:
  std::string m_Path;  // absolute, without a final '/'
};

}  // namespace Kelvik

#endif  // KELVIK_TEMPDIR_H_
