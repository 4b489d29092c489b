// The INI document beside libinih's plain parse and boost::property_tree, on documents of 100,000
// lines in several shapes. The usual one has sections of a comment, eighteen keys and an empty
// line, as configuration files look; the others are hard for one part or another of a document. A
// save includes its syncs to the disk, as a caller pays for them; SaveWork is its processor time.
// The column x_inih tells how many plain parses of the document a row costs; where a row loads, it
// is the median over parses and loads that take turns.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
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
constexpr int kLines = 100000;
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

// A document and how many entries libinih finds in it.
struct tagText {
  std::string m_Text;
  int m_Entries = 0;
};

tagText Sections() {
  tagText made;
  for (int section = 0; section < kSections; ++section) {
    made.m_Text += "[" + SectionName(section) + "]\n; limits of this module\n";
    for (int key = 0; key < kKeys; ++key) {
      made.m_Text += KeyName(key) + " = " + std::to_string(section * key) + "\n";
    }
    made.m_Text += "\n";
  }
  made.m_Entries = kSections * kKeys;
  return made;
}

// One section of keys that come in no order.
tagText Unordered() {
  std::vector<int> keys(kLines);
  for (int i = 0; i < kLines; ++i)
    keys[static_cast<std::size_t>(i)] = i;
  std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
  tagText made{"[all]\n", kLines};
  for (const int key : keys)
    made.m_Text += KeyName(key) + " = " + std::to_string(key) + "\n";
  return made;
}

// Numbered keys without leading zeros, so that they are not in the order of their names.
tagText HundredSections() {
  tagText made;
  for (int section = 0; section < 100; ++section) {
    made.m_Text += "[" + SectionName(section) + "]\n";
    for (int key = 0; key < 1000; ++key)
      made.m_Text += KeyName(key) + " = " + std::to_string(section) + "\n";
  }
  made.m_Entries = 100 * 1000;
  return made;
}

// Names and values that no string holds within itself.
tagText LongLines() {
  tagText made{"[all]\n", kLines};
  for (int i = 0; i < kLines; ++i) {
    const std::string number = std::to_string(i);
    made.m_Text += "a_name_that_tells_all_" + number + " = /a/path/that/goes/deep/" + number + "\n";
  }
  return made;
}

tagText Headers() {
  tagText made;
  for (int section = 0; section < kLines; ++section)
    made.m_Text += "[" + SectionName(section) + "]\n";
  return made;
}

tagText Comments() {
  tagText made{"[all]\n", 0};
  for (int i = 0; i < kLines; ++i)
    made.m_Text += "; what the line below number " + std::to_string(i) + " means\n";
  return made;
}

struct tagShape {
  const char* m_Row;  // of the loads
  tagText (*m_Make)();
};
constexpr tagShape kUsual = {"Load", Sections};
constexpr tagShape kShapes[] = {kUsual,
                                {"LoadUnordered", Unordered},
                                {"LoadHundredSections", HundredSections},
                                {"LoadLongLines", LongLines},
                                {"LoadHeaders", Headers},
                                {"LoadComments", Comments}};

// A document in a temporary folder; both last as long as the program.
class CDocumentFile {
 public:
  explicit CDocumentFile(const tagShape& shape) {
    const char* base = std::getenv("TMPDIR");
    m_Folder = std::string(base != nullptr ? base : "/tmp") + "/kelvik-bench-XXXXXX";
    if (::mkdtemp(m_Folder.data()) == nullptr) std::abort();
    const tagText made = shape.m_Make();
    m_Entries = made.m_Entries;
    std::ofstream(Path()) << made.m_Text;
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
  int Entries() const { return m_Entries; }

 private:
  std::string m_Folder;
  int m_Entries = 0;
};

const CDocumentFile& Document(const tagShape& shape = kUsual) {
  static std::map<std::string, CDocumentFile> documents;
  return documents.try_emplace(shape.m_Row, shape).first->second;
}

double Seconds(clockid_t clock) {
  struct timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The seconds of the work; what it returns is thrown away outside the measured time.
template <typename Work>
double Time(clockid_t clock, Work work) {
  const double start = Seconds(clock);
  const auto result = work();
  const double seconds = Seconds(clock) - start;
  benchmark::DoNotOptimize(&result);
  return seconds;
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Seconds of one plain parse of each document, once it was measured. The rows run in the order in
// which they are registered.
std::map<std::string, double> gPlainParse;

// Runs `work` once per iteration and compares its median with a plain parse of the document.
template <typename Work>
void Measure(benchmark::State& state, clockid_t clock, Work work, const tagShape& shape = kUsual) {
  std::vector<double> times;
  for (auto _ : state) {
    times.push_back(Time(clock, work));
    state.SetIterationTime(times.back());
  }
  const double median = Median(times);
  const double plainParse = gPlainParse.try_emplace(shape.m_Row, median).first->second;
  state.counters["x_inih"] = plainParse > 0 ? median / plainParse : 0;
}

#ifdef KELVIK_PEER_INIH
int CountEntry(void* user, const char* section, const char* name, const char* value) {
  benchmark::DoNotOptimize(section);
  benchmark::DoNotOptimize(name);
  benchmark::DoNotOptimize(value);
  ++*static_cast<int*>(user);
  return 1;
}

void LoadInihPlainParse(benchmark::State& state, const tagShape& shape) {
  const CDocumentFile& document = Document(shape);
  const std::string path = document.Path();
  gPlainParse.erase(shape.m_Row);
  Measure(
      state, kWork,
      [&] {
        int entries = 0;
        if (ini_parse(path.c_str(), CountEntry, &entries) != 0 || entries != document.Entries()) {
          state.SkipWithError("libinih did not read the document");
        }
        return entries;
      },
      shape);
}
#endif

void LoadKelvik(benchmark::State& state, const tagShape& shape) {
  const std::string path = Document(shape).Path();
  Measure(
      state, kWork,
      [&] {
        auto doc = std::make_unique<xini_file_t>(path);
        if (doc->find_sect("") == nullptr) state.SkipWithError("not read");
        return doc;
      },
      shape);
}

#ifdef KELVIK_PEER_PROPERTY_TREE
using Tree = boost::property_tree::ptree;

void LoadPropertyTree(benchmark::State& state) {
  const std::string path = Document().Path();
  Measure(state, kWork, [&] {
    auto tree = std::make_unique<Tree>();
    boost::property_tree::read_ini(path, *tree);
    return tree;
  });
}
#endif

void SaveKelvik(benchmark::State& state, clockid_t clock) {
  const xini_file_t doc(Document().Path());
  const std::string path = Document().SavedPath();
  Measure(state, clock, [&] {
    const bool isSaved = doc.dump(path);
    if (!isSaved) state.SkipWithError("not saved");
    return isSaved;
  });
}

// Neither safe nor synced: what the lines alone cost.
void WriteLinesKelvik(benchmark::State& state) {
  const xini_file_t doc(Document().Path());
  Measure(state, kWork, [&] {
    std::ostringstream stream;
    doc >> stream;
    return stream.str();
  });
}

#ifdef KELVIK_PEER_PROPERTY_TREE
// In place and not synced.
void SavePropertyTree(benchmark::State& state) {
  Tree tree;
  boost::property_tree::read_ini(Document().Path(), tree);
  const std::string path = Document().SavedPath();
  Measure(state, kWall, [&] {
    boost::property_tree::write_ini(path, tree);
    return 0;
  });
}
#endif

std::vector<std::pair<std::string, std::string>> LookupNames() {
  std::vector<std::pair<std::string, std::string>> names;
  for (int i = 0; i < kLookups; ++i) {
    names.emplace_back(SectionName(i * 47 % kSections), KeyName(i % kKeys));
  }
  return names;
}

void HundredLookupsKelvik(benchmark::State& state) {
  xini_file_t doc(Document().Path());
  const auto names = LookupNames();
  Measure(state, kWork, [&] {
    std::size_t bytes = 0;
    for (const auto& name : names)
      bytes += doc[name.first][name.second].value().size();
    return bytes;
  });
}

#ifdef KELVIK_PEER_PROPERTY_TREE
void HundredLookupsPropertyTree(benchmark::State& state) {
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
#endif

void Register(const std::string& name, benchmark::TimeUnit unit,
              const std::function<void(benchmark::State&)>& row) {
  benchmark::RegisterBenchmark(("BM_" + name).c_str(), row)->Unit(unit)->UseManualTime();
}

void RegisterRows() {
  for (const tagShape& shape : kShapes) {
    const std::string row = shape.m_Row;
#ifdef KELVIK_PEER_INIH
    Register(row + "_InihPlainParse", benchmark::kMillisecond,
             [&shape](benchmark::State& state) { LoadInihPlainParse(state, shape); });
#endif
    Register(row + "_Kelvik", benchmark::kMillisecond,
             [&shape](benchmark::State& state) { LoadKelvik(state, shape); });
  }
  Register("Save_Kelvik", benchmark::kMillisecond,
           [](benchmark::State& state) { SaveKelvik(state, kWall); });
  Register("SaveWork_Kelvik", benchmark::kMillisecond,
           [](benchmark::State& state) { SaveKelvik(state, kWork); });
  Register("WriteLines_Kelvik", benchmark::kMillisecond, WriteLinesKelvik);
  Register("HundredLookups_Kelvik", benchmark::kMicrosecond, HundredLookupsKelvik);
#ifdef KELVIK_PEER_PROPERTY_TREE
  Register("Load_PropertyTree", benchmark::kMillisecond, LoadPropertyTree);
  Register("Save_PropertyTree", benchmark::kMillisecond, SavePropertyTree);
  Register("HundredLookups_PropertyTree", benchmark::kMicrosecond, HundredLookupsPropertyTree);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  RegisterRows();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
