// How long one call takes at worst while files of 64 KiB rotate: percentiles of single calls,
// without those during which the thread was switched away against its will. Beside it what the
// worst call may consist of, done by hand as often as in so many calls.
//   bench_Tail kelvik|kelvik-index|spdlog|parts CALLS      kelvik-index: with a configuration file

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Harness.h"
#include "IniFile.h"
#include "Loggers.h"

namespace {

using namespace Kelvik;

constexpr int kFileKib = 64;
constexpr int kFiles = 10;
constexpr size_t kBufferBytes = 32768;
constexpr unsigned kCallsOfBatch = 430;  // of 75 to 76 bytes
constexpr unsigned kBatchesOfFile = 3;   // two do not exceed 64 KiB
constexpr unsigned kCallsOfFile = kBatchesOfFile * kCallsOfBatch;
constexpr double kMicro = 1e6;

// Times work(i) for each i, after what is to be done for it; calls that were interrupted are not
// among the values (microseconds).
template <class Prepare, class Work>
std::vector<double> TimeCalls(int calls, Prepare prepare, Work work) {
  std::vector<double> times;
  times.reserve(static_cast<size_t>(calls));
  for (int i = 0; i < calls; ++i) {
    struct rusage before;
    struct rusage after;
    prepare(static_cast<unsigned>(i));
    getrusage(RUSAGE_THREAD, &before);
    const double start = Seconds(CLOCK_MONOTONIC);
    work(static_cast<unsigned>(i));
    const double end = Seconds(CLOCK_MONOTONIC);
    getrusage(RUSAGE_THREAD, &after);
    if (before.ru_nivcsw == after.ru_nivcsw) times.push_back((end - start) * kMicro);
  }
  Require(!times.empty(), "calls without an interruption");
  return times;
}

template <class Work>
std::vector<double> TimeCalls(int calls, Work work) {
  return TimeCalls(
      calls, [](unsigned) {}, work);
}

void ReportCalls(const char* who, std::vector<double> times) {
  Report("tail p50", who, Percentile(times, 0.5));
  Report("tail p99", who, Percentile(times, 0.99));
  Report("tail p99.9", who, Percentile(times, 0.999));
  Report("tail worst", who, times.back());
}

// The parts of the worst call: a batch that is handed over and written, a file that is opened in
// place of the ring's oldest one, an index that is saved. The calls in between do nothing, but what
// else the machine does hits them as it hits a logger's.
void ReportParts(const std::string& folder, int calls) {
  std::vector<char> front(kBufferBytes, 'x');
  std::vector<char> back(kBufferBytes);
  int file = -1;
  unsigned files = 0;
  const auto open = [&] {
    const std::string path = folder + "/" + std::to_string(files++ % kFiles);
    ::close(file);
    ::unlink(path.c_str());
    file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    Require(file >= 0, "a file");
  };
  const auto handOver = [&] {
    front[files % kBufferBytes] = 'y';
    std::memcpy(back.data(), front.data(), kBufferBytes);
    Require(::write(file, back.data(), kBufferBytes) > 0, "a file's text");
  };
  const auto fill = [&](unsigned i) {
    if (i % kCallsOfFile != 0) return;
    for (unsigned batch = 0; batch < kBatchesOfFile; ++batch)
      handOver();
  };
  open();
  ReportCalls("file open", TimeCalls(calls, fill, [&](unsigned i) {
                if (i % kCallsOfFile == 0) open();
              }));
  const auto openNext = [&](unsigned i) {
    if (i % kCallsOfFile == 0) open();
  };
  ReportCalls("hand-over", TimeCalls(calls, openNext, [&](unsigned i) {
                if (i % kCallsOfBatch == 0) handOver();
              }));
  ::close(file);
  ReportCalls("index save", TimeCalls(calls / static_cast<int>(kCallsOfFile) + 1, [&](unsigned i) {
                xini_file_t index(folder + "/index.ini");
                index["Global"]["LogIndex"] = std::to_string(i % kFiles).c_str();
                Require(index.dump(folder + "/index.ini"), "an index");
              }));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 64;
  const std::string who = argv[1];
  const int calls = std::atoi(argv[2]);
  static const CBenchFolder folder;
  if (who == "kelvik" || who == "kelvik-index") {
    if (who == "kelvik-index") ::SetConfigFilePath(folder.File("index.ini").c_str());
    CKelvikLogger::Open(folder.Path(), kFileKib, kFiles);
    CKelvikLogger::Record(0);  // opens the first file
    ReportCalls(argv[1], TimeCalls(calls, CKelvikLogger::Record));
#ifdef KELVIK_PEER_SPDLOG
  } else if (who == "spdlog") {
    CSpdlogLogger::OpenRotating(folder.Path(), kFileKib, kFiles);
    ReportCalls(argv[1], TimeCalls(calls, CSpdlogLogger::Record));
    CSpdlogLogger::Close();
#endif
  } else if (who == "parts") {
    ReportParts(folder.Path(), calls);
  } else {
    return 64;
  }
  return 0;
}
