#include "RingIndex.h"

#include <sys/stat.h>

#include <algorithm>
#include <limits>

#include "Global.h"
#include "IniFile.h"

namespace KelvikLog {

namespace {

// Bytes of the file, 0 when there is none.
int SizeOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return 0;
  constexpr int kMost = std::numeric_limits<int>::max();
  return status.st_size < kMost ? static_cast<int>(status.st_size) : kMost;
}

}  // namespace

void RestoreRing(const std::string& config, int count) {
  Kelvik::COutput& output = Kelvik::CGlobal::Instance()->GetOutput();
  xini_file_t document(config);
  const int newest = document["Global"]["LogIndex"].get_nvalue<int>();
  for (int slot = 0; slot < std::min(count, Kelvik::kSlotCount); ++slot) {
    const std::string name = document["fileName"]["fileName_" + std::to_string(slot)].value();
    const bool isName = !name.empty() && name.find('\0') == std::string::npos;
    if (isName) {
      output.SetLogName(slot, name.c_str());
    }
    if (slot == newest) {
      output.SetCurrentFileInfo(slot, isName ? SizeOf(name) : 0);
    }
  }
  // Looking a key up adds it.
  document.set_dirty(false);
}

}  // namespace KelvikLog
