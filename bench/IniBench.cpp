// The INI document beside libinih's plain parse and boost::property_tree, on one document of
// 100,000 lines: sections of a comment, eighteen keys and an empty line, as configuration files
// look. A save includes its syncs to the disk, as a caller pays for them. The column x_inih tells
// how many plain parses of the document a row costs.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "IniFile.h"

#ifdef KELVIK_PEER_INIH
#include <ini.h>
#endif
#ifdef KELVIK_PEER_PROPERTY_TREE
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#endif

namespace {

constexpr int kSections = 4762;
constexpr int kKeys = 18;  // and a header, a comment and an empty line: 100,002 lines in all
constexpr int kLookups = 100;
// Loads and lookups wait for nothing, so their processor time is their time on an idle machine; a
// save waits for the disk.
constexpr clockid_t kWork = CLOCK_PROCESS_CPUTIME_ID;
constexpr clockid_t kWall = CLOCK_MONOTONIC;

std::string SectionName(int section) {
  return "module_" + std::to_string(section);
}
std::string KeyName(int key) {
  return "Setting_" + std::to_string(key);
}

std::string MakeText() {
  std::string text;
  for (int section = 0; section < kSections; ++section) {
    text += "[" + SectionName(section) + "]\n; limits of this module\n";
    for (int key = 0; key < kKeys; ++key) {
      text += KeyName(key) + " = " + std::to_string(section * key) + "\n";
    }
    text += "\n";
  }
  return text;
}

// The document in a temporary folder that lasts as long as the program.
class CDocumentFile {
 public:
  CDocumentFile() {
    const char* base = std::getenv("TMPDIR");
    m_Folder = std::string(base != nullptr ? base : "/tmp") + "/kelvik-bench-XXXXXX";
    if (::mkdtemp(m_Folder.data()) == nullptr) std::abort();
    std::ofstream(Path()) << MakeText();
  }
  ~CDocumentFile() {
    ::unlink(Path().c_str());
    ::unlink(SavedPath().c_str());
    ::rmdir(m_Folder.c_str());
  }
  CDocumentFile(const CDocumentFile&) = delete;
  CDocumentFile& operator=(const CDocumentFile&) = delete;

  std::string Path() const { return m_Folder + "/document.ini"; }
  std::string SavedPath() const { return m_Folder + "/saved.ini"; }

 private:
  std::string m_Folder;
};

const CDocumentFile& Document() {
  static const CDocumentFile document;
  return document;
}

// Seconds of one plain parse; 0 until it was measured. The rows run in the order of this file.
double gPlainParse = 0;

double Seconds(clockid_t clock) {
  struct timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Runs `work` once per iteration; what it returns is thrown away outside the measured time. Returns
// the mean in seconds of the clock.
template <typename Work>
double Measure(benchmark::State& state, clockid_t clock, Work work) {
  double total = 0;
  for (auto _ : state) {
    const double start = Seconds(clock);
    const auto result = work();
    const double seconds = Seconds(clock) - start;
    benchmark::DoNotOptimize(&result);
    state.SetIterationTime(seconds);
    total += seconds;
  }
  const double mean = total / static_cast<double>(state.iterations());
  if (gPlainParse > 0) state.counters["x_inih"] = mean / gPlainParse;
  return mean;
}

#ifdef KELVIK_PEER_INIH
int CountEntry(void* user, const char* section, const char* name, const char* value) {
  benchmark::DoNotOptimize(section);
  benchmark::DoNotOptimize(name);
  benchmark::DoNotOptimize(value);
  ++*static_cast<int*>(user);
  return 1;
}

void BM_Load_InihPlainParse(benchmark::State& state) {
  const std::string path = Document().Path();
  gPlainParse = 0;
  gPlainParse = Measure(state, kWork, [&] {
    int entries = 0;
    if (ini_parse(path.c_str(), CountEntry, &entries) != 0 || entries != kSections * kKeys) {
      state.SkipWithError("libinih did not read the document");
    }
    return entries;
  });
  state.counters["x_inih"] = 1;
}
BENCHMARK(BM_Load_InihPlainParse)->Unit(benchmark::kMillisecond)->UseManualTime();
#endif

void BM_Load_Kelvik(benchmark::State& state) {
  const std::string path = Document().Path();
  const std::string last = SectionName(kSections - 1);
  Measure(state, kWork, [&] {
    auto doc = std::make_unique<xini_file_t>(path);
    if (doc->find_sect(last) == nullptr) state.SkipWithError("not read");
    return doc;
  });
}
BENCHMARK(BM_Load_Kelvik)->Unit(benchmark::kMillisecond)->UseManualTime();

#ifdef KELVIK_PEER_PROPERTY_TREE
using Tree = boost::property_tree::ptree;

void BM_Load_PropertyTree(benchmark::State& state) {
  const std::string path = Document().Path();
  Measure(state, kWork, [&] {
    auto tree = std::make_unique<Tree>();
    boost::property_tree::read_ini(path, *tree);
    return tree;
  });
}
BENCHMARK(BM_Load_PropertyTree)->Unit(benchmark::kMillisecond)->UseManualTime();
#endif

void BM_Save_Kelvik(benchmark::State& state) {
  const xini_file_t doc(Document().Path());
  const std::string path = Document().SavedPath();
  Measure(state, kWall, [&] {
    const bool isSaved = doc.dump(path);
    if (!isSaved) state.SkipWithError("not saved");
    return isSaved;
  });
}
BENCHMARK(BM_Save_Kelvik)->Unit(benchmark::kMillisecond)->UseManualTime();

// Neither safe nor synced: what the lines alone cost.
void BM_WriteLines_Kelvik(benchmark::State& state) {
  const xini_file_t doc(Document().Path());
  Measure(state, kWork, [&] {
    std::ostringstream stream;
    doc >> stream;
    return stream.str();
  });
}
BENCHMARK(BM_WriteLines_Kelvik)->Unit(benchmark::kMillisecond)->UseManualTime();

#ifdef KELVIK_PEER_PROPERTY_TREE
// In place and not synced.
void BM_Save_PropertyTree(benchmark::State& state) {
  Tree tree;
  boost::property_tree::read_ini(Document().Path(), tree);
  const std::string path = Document().SavedPath();
  Measure(state, kWall, [&] {
    boost::property_tree::write_ini(path, tree);
    return 0;
  });
}
BENCHMARK(BM_Save_PropertyTree)->Unit(benchmark::kMillisecond)->UseManualTime();
#endif

std::vector<std::pair<std::string, std::string>> LookupNames() {
  std::vector<std::pair<std::string, std::string>> names;
  for (int i = 0; i < kLookups; ++i) {
    names.emplace_back(SectionName(i * 47 % kSections), KeyName(i % kKeys));
  }
  return names;
}

void BM_HundredLookups_Kelvik(benchmark::State& state) {
  xini_file_t doc(Document().Path());
  const auto names = LookupNames();
  Measure(state, kWork, [&] {
    std::size_t bytes = 0;
    for (const auto& name : names)
      bytes += doc[name.first][name.second].value().size();
    return bytes;
  });
}
BENCHMARK(BM_HundredLookups_Kelvik)->Unit(benchmark::kMicrosecond)->UseManualTime();

#ifdef KELVIK_PEER_PROPERTY_TREE
void BM_HundredLookups_PropertyTree(benchmark::State& state) {
  Tree tree;
  boost::property_tree::read_ini(Document().Path(), tree);
  const auto names = LookupNames();
  Measure(state, kWork, [&] {
    std::size_t bytes = 0;
    for (const auto& name : names) {
      bytes += tree.get_child(name.first).get_child(name.second).data().size();
    }
    return bytes;
  });
}
BENCHMARK(BM_HundredLookups_PropertyTree)->Unit(benchmark::kMicrosecond)->UseManualTime();
#endif

}  // namespace

BENCHMARK_MAIN();
