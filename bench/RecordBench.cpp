// The time of one record, as the caller's thread pays for it, beside the loggers of Loggers.h and
// the floor: in bursts with a rest between them, and in a flood without end, in which the library's
// callers write their batches themselves. Rows run in the order of this file, since modules cannot
// be unregistered; the script runs the whole program several times and takes medians of the rounds.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "Harness.h"
#include "Loggers.h"

namespace {

using namespace Kelvik;

constexpr int kRecords = 400000;       // of a quick logger, a row
constexpr int kRecordsOfSlow = 60000;  // of one that takes microseconds
constexpr int kRecordsOfThread = 500000;
constexpr unsigned kRecordsOfBurst = 25000;  // about two milliseconds of the library
constexpr unsigned kRestUs = 10000;          // between two bursts, not timed

const std::string& Folder() {
  static const CBenchFolder folder;
  return folder.Path();
}

// Standard output in a file as long as the object lives. What benchmark prints is not flushed into
// it.
class CStdoutInFile {
 public:
  CStdoutInFile() : m_Kept(::dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int file = ::open((Folder() + "/stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    Require(file >= 0 && ::dup2(file, STDOUT_FILENO) >= 0, "standard output in a file");
    ::close(file);
  }
  ~CStdoutInFile() {
    std::fflush(stdout);
    ::dup2(m_Kept, STDOUT_FILENO);
    ::close(m_Kept);
  }
  CStdoutInFile(const CStdoutInFile&) = delete;
  CStdoutInFile& operator=(const CStdoutInFile&) = delete;

 private:
  int m_Kept;
};

// One row: `record` once an iteration, numbered.
template <class Record>
void Run(benchmark::State& state, Record record) {
  unsigned i = 0;
  for (auto _ : state)
    record(i++);
  state.SetItemsProcessed(state.iterations());
}

// The same in bursts.
template <class Record>
void RunBursts(benchmark::State& state, Record record) {
  Run(state, [&](unsigned i) {
    if (i % kRecordsOfBurst == 0) {
      state.PauseTiming();
      ::usleep(kRestUs);
      state.ResumeTiming();
    }
    record(i);
  });
}

// No sink: what threads gain on the formatting alone.
void BM_Format_Kelvik(benchmark::State& state) {
  if (state.thread_index() == 0) CKelvikLogger::OpenNothing();
  Run(state, CKelvikLogger::Record);
}
BENCHMARK(BM_Format_Kelvik)->Threads(1)->Threads(2)->Iterations(kRecordsOfThread)->UseRealTime();

void BM_Terminal_Kelvik(benchmark::State& state) {
  const CStdoutInFile inFile;
  CKelvikLogger::OpenTerminal();
  Run(state, CKelvikLogger::Record);
}
BENCHMARK(BM_Terminal_Kelvik)->Iterations(kRecords);

void BM_Floor(benchmark::State& state) {
  CFloor::Open();
  RunBursts(state, CFloor::Record);
}
BENCHMARK(BM_Floor)->Iterations(kRecords);

void BM_Threads_Floor(benchmark::State& state) {
  if (state.thread_index() == 0) CFloor::Open();
  Run(state, CFloor::Record);
}
BENCHMARK(BM_Threads_Floor)->Threads(1)->Threads(2)->Iterations(kRecordsOfThread)->UseRealTime();

// Opens the log file, once.
void OpenKelvik() {
  static const bool isOpen = (CKelvikLogger::Open(Folder()), true);
  static_cast<void>(isOpen);
}

void BM_Record_Kelvik(benchmark::State& state) {
  OpenKelvik();
  RunBursts(state, CKelvikLogger::Record);
}
BENCHMARK(BM_Record_Kelvik)->Iterations(kRecords);

void BM_Flood_Kelvik(benchmark::State& state) {
  OpenKelvik();
  Run(state, CKelvikLogger::Record);
}
BENCHMARK(BM_Flood_Kelvik)->Iterations(kRecords);

#ifdef KELVIK_PEER_SPDLOG
void BM_Record_Spdlog(benchmark::State& state) {
  CSpdlogLogger::Open(Folder());
  RunBursts(state, CSpdlogLogger::Record);
  CSpdlogLogger::Close();
}
BENCHMARK(BM_Record_Spdlog)->Iterations(kRecords);

void BM_Flood_Spdlog(benchmark::State& state) {
  CSpdlogLogger::Open(Folder());
  Run(state, CSpdlogLogger::Record);
  CSpdlogLogger::Close();
}
BENCHMARK(BM_Flood_Spdlog)->Iterations(kRecords);

void BM_Terminal_Spdlog(benchmark::State& state) {
  const CStdoutInFile inFile;
  CSpdlogLogger::OpenTerminal();
  Run(state, CSpdlogLogger::Record);
  CSpdlogLogger::Close();
}
BENCHMARK(BM_Terminal_Spdlog)->Iterations(kRecords);
#endif

#ifdef KELVIK_PEER_GLOG
void BM_Record_Glog(benchmark::State& state) {
  CGlogLogger::Open(Folder());
  RunBursts(state, CGlogLogger::Record);
}
BENCHMARK(BM_Record_Glog)->Iterations(kRecordsOfSlow);
#endif

#ifdef KELVIK_PEER_LOG4CPLUS
void BM_Record_Log4cplus(benchmark::State& state) {
  CLog4cplusLogger::Open(Folder());
  RunBursts(state, CLog4cplusLogger::Record);
}
BENCHMARK(BM_Record_Log4cplus)->Iterations(kRecordsOfSlow);
#endif

void BM_Threads_Kelvik(benchmark::State& state) {
  if (state.thread_index() == 0) OpenKelvik();
  Run(state, CKelvikLogger::Record);
}
BENCHMARK(BM_Threads_Kelvik)->Threads(1)->Threads(2)->Iterations(kRecordsOfThread)->UseRealTime();

#ifdef KELVIK_PEER_SPDLOG
void BM_Threads_Spdlog(benchmark::State& state) {
  if (state.thread_index() == 0) CSpdlogLogger::Open(Folder());
  Run(state, CSpdlogLogger::Record);
  if (state.thread_index() == 0) CSpdlogLogger::Close();
}
BENCHMARK(BM_Threads_Spdlog)->Threads(1)->Threads(2)->Iterations(kRecordsOfThread)->UseRealTime();
#endif

void BM_Below_Kelvik(benchmark::State& state) {
  Run(state, CKelvikLogger::RecordBelowLevel);
}
BENCHMARK(BM_Below_Kelvik)->Iterations(kRecords);

// From here on with modules.
void BM_Below_Kelvik1Module(benchmark::State& state) {
  CKelvikLogger::RegisterModules(1);
  Run(state, CKelvikLogger::RecordBelowLevel);
}
BENCHMARK(BM_Below_Kelvik1Module)->Iterations(kRecords);

void BM_Below_Kelvik200Modules(benchmark::State& state) {
  CKelvikLogger::RegisterModules(200);
  Run(state, CKelvikLogger::RecordBelowLevel);
}
BENCHMARK(BM_Below_Kelvik200Modules)->Iterations(kRecords);

void BM_Record_Kelvik200Modules(benchmark::State& state) {
  CKelvikLogger::RegisterModules(200);
  RunBursts(state, CKelvikLogger::Record);
}
BENCHMARK(BM_Record_Kelvik200Modules)->Iterations(kRecords);

}  // namespace

BENCHMARK_MAIN();
