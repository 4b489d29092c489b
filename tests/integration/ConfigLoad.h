// What a process reads from a configuration file. For one source of a test program, which gets the
// child case Load.

#ifndef KELVIK_CONFIGLOAD_H_
#define KELVIK_CONFIGLOAD_H_

#include <cstdio>
#include <string>

#include "ChildProcess.h"
#include "ConfigTools.h"
#include "Global.h"

namespace Kelvik {

// args: configuration path, which may be empty.
CHILD_CASE(Load) {
  if (!args[0].empty()) CGlobal::Instance()->SetConfigFilePath(args[0].c_str());
  std::printf("@Result=%d\n", CGlobal::Instance()->ConfigFileInitialize());
  PrintState();
  return 0;
}

// The settings and the ring of a process that starts with the file.
inline Entries Load(const std::string& path) {
  const tagChildResult result = RunChild("Load", {path});
  EXPECT_TRUE(Succeeded(result));
  return ParseState(result.m_Output);
}

// Those of one without a file, with the changes on top.
inline Entries DefaultsWith(const Entries& changes) {
  Entries state = {{"Console", "1"},    {"System", "0"},   {"File", "0"},     {"DateTime", "1"},
                   {"ThreadID", "0"},   {"Location", "1"}, {"Mask", "30"},    {"Path", "/tmp/"},
                   {"Size", "1048576"}, {"Duration", "1"}, {"Count", "2"},    {"Buffer", "32768"},
                   {"Interval", "0"},   {"Index", "0"},    {"FileSize", "0"}, {"Started", "1"},
                   {"Name0", ""},       {"Name1", ""},     {"Name2", ""},     {"Name3", ""},
                   {"Name4", ""},       {"Name5", ""},     {"Name6", ""},     {"Name7", ""},
                   {"Name8", ""},       {"Name9", ""}};
  for (const auto& change : changes)
    state[change.first] = change.second;
  return state;
}

}  // namespace Kelvik

#endif  // KELVIK_CONFIGLOAD_H_
