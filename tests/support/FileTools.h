// Whole files and folders as values, for tests.

#ifndef KELVIK_FILETOOLS_H_
#define KELVIK_FILETOOLS_H_

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace Kelvik {

// The file's bytes; empty when it cannot be read (FileSize tells the two apart).
inline std::string ReadFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
}

// Makes or replaces the file; false when that failed.
inline bool WriteFile(const std::string& path, const std::string& content) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(content.data(), static_cast<std::streamsize>(content.size()));
  stream.close();
  return stream.good();
}

// Bytes, -1 when nothing has that name. Follows symbolic links.
inline int64_t FileSize(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? static_cast<int64_t>(status.st_size) : -1;
}

// True for any kind of entry, a dangling symbolic link included.
inline bool Exists(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0;
}

// The names in a folder, sorted, without "." and "..".
inline std::vector<std::string> ListFolder(const std::string& path) {
  std::vector<std::string> names;
  DIR* folder = opendir(path.c_str());
  if (folder == nullptr) {
    return names;
  }
  while (const dirent* entry = readdir(folder)) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
      names.emplace_back(entry->d_name);
    }
  }
  closedir(folder);
  std::sort(names.begin(), names.end());
  return names;
}

// The text cut at its line ends; a last line without one counts.
inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

// How many descriptors this process has open.
inline int OpenDescriptors() {
  // The folder's own descriptor is among them.
  return static_cast<int>(ListFolder("/proc/self/fd").size()) - 1;
}

}  // namespace Kelvik

#endif  // KELVIK_FILETOOLS_H_
