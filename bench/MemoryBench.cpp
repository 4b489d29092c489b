// Resident memory that Initialize with file output adds, and then what records add that fill both
// buffers, as the kernel counts it page by page. The library's pages of code are among it as far as
// they are touched, and what the system maps around those; private pages are the process's own. The
// program has used the C library before.

#include <cstdio>
#include <ctime>
#include <fstream>
#include <string>

#include "Harness.h"
#include "Loggers.h"

namespace {

using namespace Kelvik;

// KiB of a line of the process's memory map.
double ResidentKib(const char* key) {
  std::ifstream rollup("/proc/self/smaps_rollup");
  std::string word;
  double kib = 0;
  while (rollup >> word) {
    if (word == key) rollup >> kib;
  }
  return kib;
}

// What a program has done before it logs: the C library's own pages for it are resident.
void UseTheCLibrary() {
  const std::time_t now = std::time(nullptr);
  std::tm parts = {};
  Require(::localtime_r(&now, &parts) != nullptr, "local time");
  std::FILE* file = std::fopen("/dev/null", "w");
  Require(file != nullptr && std::fprintf(file, "%d %s %f\n", parts.tm_hour, "hours", 0.5) > 0,
          "a line of text");
  std::fclose(file);
}

}  // namespace

int main() {
  static const CBenchFolder folder;
  UseTheCLibrary();
  const double all = ResidentKib("Rss:");
  const double own = ResidentKib("Anonymous:");
  Require(all > 0, "the kernel tells the resident memory");
  CKelvikLogger::Open(folder.Path());
  const double opened = ResidentKib("Rss:");
  const double openedOwn = ResidentKib("Anonymous:");
  for (unsigned i = 0; i < 2000; ++i)
    CKelvikLogger::Record(i);
  CKelvikLogger::Close();
  Report("memory", "Initialize", opened - all);
  Report("memory", "Initialize, private", openedOwn - own);
  Report("memory", "used", ResidentKib("Rss:") - all);
  Report("memory", "used, private", ResidentKib("Anonymous:") - own);
  return 0;
}
