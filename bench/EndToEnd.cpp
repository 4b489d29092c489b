// So many records into a ring of files that holds them all, from the first call to the last byte in
// its file: processor seconds of the whole process and wall seconds. A run counts only when every
// record is there.
//   bench_EndToEnd kelvik|spdlog RECORDS

#include <cstdlib>
#include <cstring>

#include "Harness.h"
#include "Loggers.h"

namespace {

using namespace Kelvik;

constexpr int kFileKib = 64 * 1024;
constexpr int kFiles = 10;

template <class Logger>
void Measure(const char* who, int records) {
  const double wall = Seconds(CLOCK_MONOTONIC);
  const double processor = Seconds(CLOCK_PROCESS_CPUTIME_ID);
  for (int i = 0; i < records; ++i)
    Logger::Record(static_cast<unsigned>(i));
  Logger::Close();
  Report("end to end processor", who, Seconds(CLOCK_PROCESS_CPUTIME_ID) - processor);
  Report("end to end wall", who, Seconds(CLOCK_MONOTONIC) - wall);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 64;
  const int records = std::atoi(argv[2]);
  static const CBenchFolder folder;
  if (std::strcmp(argv[1], "kelvik") == 0) {
    CKelvikLogger::Open(folder.Path(), kFileKib, kFiles);
    Measure<CKelvikLogger>("kelvik", records);
#ifdef KELVIK_PEER_SPDLOG
  } else if (std::strcmp(argv[1], "spdlog") == 0) {
    CSpdlogLogger::OpenRotating(folder.Path(), kFileKib, kFiles);
    Measure<CSpdlogLogger>("spdlog", records);
#endif
  } else {
    return 64;
  }
  Require(folder.CountLines() == records, "every record is in a file");
  return 0;
}
