// What every benchmark shares: the clocks, a folder for log files, percentiles, and the one form in
// which a figure is printed, so that scripts/bench.sh can put all of them into one table.

#ifndef KELVIK_BENCH_HARNESS_H_
#define KELVIK_BENCH_HARNESS_H_

#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace Kelvik {

// Seconds of a clock: CLOCK_MONOTONIC, CLOCK_PROCESS_CPUTIME_ID, CLOCK_THREAD_CPUTIME_ID.
inline double Seconds(clockid_t clock) {
  struct timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// A folder of the program's own under $TMPDIR or /tmp, removed with its files at the end.
class CBenchFolder {
 public:
  CBenchFolder() {
    const char* base = std::getenv("TMPDIR");
    m_Path = std::string(base != nullptr ? base : "/tmp") + "/kelvik-bench-XXXXXX";
    if (::mkdtemp(m_Path.data()) == nullptr) {
      std::perror(m_Path.c_str());
      std::exit(1);
    }
  }
  ~CBenchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
  }
  CBenchFolder(const CBenchFolder&) = delete;
  CBenchFolder& operator=(const CBenchFolder&) = delete;

  const std::string& Path() const { return m_Path; }
  std::string File(const std::string& name) const { return m_Path + "/" + name; }

  // Line ends in all files of the folder.
  long long CountLines() const {
    long long lines = 0;
    std::vector<char> block(1 << 20);
    for (const auto& entry : std::filesystem::directory_iterator(m_Path)) {
      std::ifstream file(entry.path(), std::ios::binary);
      while (file.read(block.data(), static_cast<std::streamsize>(block.size())),
             file.gcount() > 0) {
        lines += std::count(block.begin(), block.begin() + file.gcount(), '\n');
      }
    }
    return lines;
  }

 private:
  std::string m_Path;
};

// The value that `part` (0 to 1) of the values do not exceed. Sorts the values; there is at least
// one.
inline double Percentile(std::vector<double>& values, double part) {
  std::sort(values.begin(), values.end());
  const double last = static_cast<double>(values.size() - 1);
  return values[static_cast<size_t>(part * last + 0.5)];
}

// One figure of the table: what was measured, of whom, how much. The three columns are parted by
// tabs and never contain one. To standard error, since standard output may be what is measured.
inline void Report(const char* work, const char* who, double value) {
  std::fprintf(stderr, "%s\t%s\t%.6g\n", work, who, value);
}

// Ends the program when what must hold of a run does not: a figure of half the work is none.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "benchmark invalid: %s\n", what);
  std::exit(1);
}

}  // namespace Kelvik

#endif  // KELVIK_BENCH_HARNESS_H_
