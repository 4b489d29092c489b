#include "RingIndex.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "Failure.h"
#include "IniFile.h"

namespace KelvikCtl {

namespace {

constexpr int kSlots = 10;

struct tagEntry {
  int m_Slot;
  std::string m_Path;
};

int NumberOf(const xini_section_t* section, const char* key) {
  const xini_keyvalue_t* const found = section == nullptr ? nullptr : section->find_knode(key);
  return found == nullptr ? -1 : found->get_nvalue<int>();
}

bool IsOlder(const std::string& left, const std::string& right) {
  struct stat a = {};
  struct stat b = {};
  if (stat(left.c_str(), &a) != 0 || stat(right.c_str(), &b) != 0) return false;
  return a.st_mtim.tv_sec != b.st_mtim.tv_sec ? a.st_mtim.tv_sec < b.st_mtim.tv_sec
                                              : a.st_mtim.tv_nsec < b.st_mtim.tv_nsec;
}

// Slots from count on are no longer used; what stands there is older than what comes after it.
void PutLeftOversFirst(std::vector<tagEntry>& entries, int count) {
  const auto first = std::find_if(entries.begin(), entries.end(),
                                  [count](const tagEntry& entry) { return entry.m_Slot >= count; });
  const auto last = std::find_if(first, entries.end(),
                                 [count](const tagEntry& entry) { return entry.m_Slot < count; });
  if (first == entries.begin() || first == last || last == entries.end()) return;
  if (IsOlder(first->m_Path, std::prev(first)->m_Path)) std::rotate(entries.begin(), first, last);
}

}  // namespace

std::optional<std::vector<std::string>> ReadRing(const std::string& config) {
  xini_file_t document("");
  if (!document.load(config)) return std::nullopt;
  const xini_section_t* const global = document.find_sect("Global");
  const xini_section_t* const names = document.find_sect("fileName");
  const int newest = std::clamp(NumberOf(global, "LogIndex"), -1, kSlots - 1);
  std::vector<tagEntry> entries;
  for (int step = 1; names != nullptr && step <= kSlots; ++step) {
    const int slot = (newest + step + kSlots) % kSlots;
    const auto* const key = names->find_knode("fileName_" + std::to_string(slot));
    // A NUL byte comes from a damaged file; the library takes no such name either.
    if (key != nullptr && !key->value().empty() && key->value().find('\0') == std::string::npos) {
      entries.push_back({slot, key->value()});
    }
  }
  const int count = NumberOf(global, "LogMaxCount");
  if (count >= 1 && newest < count) PutLeftOversFirst(entries, count);
  std::vector<std::string> paths;
  for (tagEntry& entry : entries) {
    // A name that two slots have is the file of the newer one.
    paths.erase(std::remove(paths.begin(), paths.end(), entry.m_Path), paths.end());
    paths.push_back(std::move(entry.m_Path));
  }
  return paths;
}

void RequireFile(const std::string& path) {
  // A pipe must not keep us waiting.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd == -1) throw CFailure(kExitNoAnswer, path + ": " + std::strerror(errno));
  struct stat status = {};
  const bool isFile = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
  close(fd);
  if (!isFile) throw CFailure(kExitNoAnswer, path + " is no file");
}

}  // namespace KelvikCtl
