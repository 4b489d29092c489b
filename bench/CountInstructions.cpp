// One row's work so many times, for callgrind: the difference between runs of N and of 2N records,
// divided by N, is what one record costs, whatever beginning and end cost.
//   count-instructions ROW RECORDS        without arguments: prints the rows
// Standard output is what the rows of the terminal write to; let it be a file.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "Harness.h"
#include "IniFile.h"
#include "Loggers.h"

namespace {

using namespace Kelvik;

// Plain work, compiled with the same flags and independent of the C library: what the rows are
// held against, so that a bound is true for other machines.
unsigned s_Reference = 2166136261u;

__attribute__((noinline)) void Reference(unsigned i) {
  char record[] = "2026-01-31 09:26:53.589 [net][rx] packet 1234567 from 192.168.1.17 len 1400\n";
  record[40] = static_cast<char>('0' + i % 8);
  unsigned hash = s_Reference;
  for (const char* at = record; *at != '\0'; ++at)
    hash = (hash ^ static_cast<unsigned char>(*at)) * 16777619u;
  s_Reference = hash;
}

// A call with a record's arguments that does nothing: the call itself, and the loop around it. By
// way of a pointer that the compiler does not see through.
int DoNothing(eLogLevel, const char*, const char*, const char*, ...) {
  return eResultDisabled;
}
int (*volatile s_Call)(eLogLevel, const char*, const char*, const char*, ...) = DoNothing;

template <class Work>
void Repeat(int records, Work work) {
  for (int i = 0; i < records; ++i)
    work(static_cast<unsigned>(i));
}

const std::string& Folder() {
  static const CBenchFolder folder;
  return folder.Path();
}

struct tagRow {
  const char* m_Name;
  void (*m_Run)(int records);
};

void RunModules(int records, int modules, void (*record)(unsigned)) {
  CKelvikLogger::Open(Folder());
  CKelvikLogger::RegisterModules(modules);
  Repeat(records, record);
}

// Loads a document of so many lines: sections of a comment, 18 keys and an empty line.
void LoadLines(int lines) {
  const std::string path = Folder() + "/document.ini";
  FILE* const file = std::fopen(path.c_str(), "w");
  if (file == nullptr) std::abort();
  std::string keys;
  for (int key = 0; key < 18; ++key)
    keys += "Setting_" + std::to_string(key) + " = value of it\n";
  for (int section = 0; section < lines / 21; ++section) {
    std::fprintf(file, "[module_%d]\n; limits of this module\n", section);
    std::fwrite(keys.data(), 1, keys.size(), file);
    std::fputc('\n', file);
  }
  std::fclose(file);
  const xini_file_t document(path);
  if (document.find_sect("module_1") == nullptr) std::abort();
}

const tagRow kRows[] = {
    {"reference", [](int n) { Repeat(n, Reference); }},
    {"call",
     [](int n) {
       Repeat(n, [](unsigned i) {
         s_Call(eLogLevelDebug, "net", "rx", "packet %d from %s len %u\n", static_cast<int>(i),
                kSender, kLength);
       });
     }},
    {"floor",
     [](int n) {
       CFloor::Open();
       Repeat(n, CFloor::Record);
     }},
    {"record", [](int n) { RunModules(n, 0, CKelvikLogger::Record); }},
    {"record-200", [](int n) { RunModules(n, 200, CKelvikLogger::Record); }},
    {"below", [](int n) { RunModules(n, 0, CKelvikLogger::RecordBelowLevel); }},
    {"below-1", [](int n) { RunModules(n, 1, CKelvikLogger::RecordBelowLevel); }},
    {"below-200", [](int n) { RunModules(n, 200, CKelvikLogger::RecordBelowLevel); }},
    {"terminal",
     [](int n) {
       CKelvikLogger::OpenTerminal();
       Repeat(n, CKelvikLogger::Record);
     }},
    {"ini-line", LoadLines},
#ifdef KELVIK_PEER_SPDLOG
    {"spdlog",
     [](int n) {
       CSpdlogLogger::Open(Folder());
       Repeat(n, CSpdlogLogger::Record);
       CSpdlogLogger::Close();
     }},
    {"spdlog-terminal",
     [](int n) {
       CSpdlogLogger::OpenTerminal();
       Repeat(n, CSpdlogLogger::Record);
       CSpdlogLogger::Close();
     }},
#endif
#ifdef KELVIK_PEER_GLOG
    {"glog",
     [](int n) {
       CGlogLogger::Open(Folder());
       Repeat(n, CGlogLogger::Record);
     }},
#endif
#ifdef KELVIK_PEER_LOG4CPLUS
    {"log4cplus",
     [](int n) {
       CLog4cplusLogger::Open(Folder());
       Repeat(n, CLog4cplusLogger::Record);
     }},
#endif
};

}  // namespace

int main(int argc, char** argv) {
  for (const tagRow& row : kRows) {
    if (argc < 2) {
      std::puts(row.m_Name);
    } else if (argc == 3 && std::strcmp(row.m_Name, argv[1]) == 0) {
      row.m_Run(std::atoi(argv[2]));
      return 0;
    }
  }
  return argc < 2 ? 0 : 64;
}
