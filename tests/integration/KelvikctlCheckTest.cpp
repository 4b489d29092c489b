// kelvikctl check: its exit codes, and that it says of a value what the library does with it.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "ChildProcess.h"
#include "FileTools.h"
#include "Global.h"
#include "Kelvik.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

tagChildResult Check(const std::string& path) {
  return RunProgram(KELVIK_KELVIKCTL, {"check", path});
}

TEST(KelvikctlCheck, TheExitCodeTellsWhetherThereWasSomethingToSay) {
  const CTempDir folder;
  const std::string file = folder.File("app.ini");
  ASSERT_TRUE(WriteFile(file, "[Global]\nLogMaxCount=5\n"));
  tagChildResult result = Check(file);
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Output + result.m_Errors, "");
  ASSERT_TRUE(WriteFile(file, "[Global]\n; fine\nLogMaxCount=25\nx\x1B[2J\n"));
  result = Check(file);
  EXPECT_EQ(result.m_ExitCode, 1);
  EXPECT_EQ(result.m_Output,
            file + ":3: LogMaxCount 25 counts as 10, the most\n" + file +
                ":4: 'x\\x1b[2J' is no comment, section or key: a save drops it\n");
  EXPECT_EQ(result.m_Errors, "");
}

TEST(KelvikctlCheck, AFileThatCannotBeReadIsSaid) {
  const CTempDir folder;
  ASSERT_EQ(mkfifo(folder.File("pipe").c_str(), 0600), 0);
  const std::pair<std::string, std::string> cases[] = {
      {folder.File("none"), "No such file or directory"},
      {folder.Path(), "it is no file"},
      {folder.File("pipe"), "it is no file"},
  };
  for (const auto& [path, reason] : cases) {
    const tagChildResult result = Check(path);
    EXPECT_EQ(result.m_ExitCode, 2);
    EXPECT_EQ(result.m_Errors, "kelvikctl: cannot read " + path + ": " + reason + "\n");
    EXPECT_EQ(result.m_Output, "");
  }
  EXPECT_EQ(RunProgram(KELVIK_KELVIKCTL, {"check"}).m_ExitCode, 64);
}

constexpr char kKeys[][16] = {"OutputConsole",  "OutputSystem", "OutputFile", "LogMaxSize",
                              "LogMaxDuration", "LogMaxCount",  "bufferSize", "writeInterval",
                              "LevelDbg",       "LevelInfo",    "LevelWar",   "LevelError",
                              "LevelFatal"};

// The setting as a start has taken it over.
long Setting(const std::string& key) {
  tagAttribute now = {};
  CGlobal::Instance()->CopyAttribute(now);
  if (key == "OutputConsole") return now.m_OutputConsole;
  if (key == "OutputSystem") return now.m_OutputSystem;
  if (key == "OutputFile") return now.m_OutputFile;
  if (key == "LogMaxSize") return static_cast<int32_t>(now.m_LogMaxSize);
  if (key == "LogMaxDuration") return static_cast<int32_t>(now.m_LogMaxDuration);
  if (key == "LogMaxCount") return static_cast<int32_t>(now.m_LogMaxCount);
  if (key == "bufferSize") return static_cast<int32_t>(now.m_BufferSize);
  if (key == "writeInterval") return static_cast<int32_t>(now.m_WriteInterval);
  const std::string levels[] = {"LevelDbg", "LevelInfo", "LevelWar", "LevelError", "LevelFatal"};
  for (unsigned level = 0; level < 5; ++level) {
    if (key == levels[level]) return now.m_LevelMask >> (level + 1) & 1;
  }
  return -1;
}

CHILD_CASE(StartWith) {
  SetConfigFilePath(args[0].c_str());
  Initialize();
  for (const char* const key : kKeys)
    std::printf("%s is %ld\n", key, Setting(key));
  return 0;
}

// What stands in the file is what the process has then, when nothing is said about it; and
// something else when something is said.
TEST(KelvikctlCheck, WhatItSaysOfAValueIsWhatAStartMakesOfIt) {
  const CTempDir folder;
  const std::string file = folder.File("app.ini");
  for (const long value : {0L, 1L, 2L, 11L, 199L, 200L, 1025L, 2097152L}) {
    std::string text = "[Global]\n";
    for (const std::string key : kKeys)
      text += key + "=" + std::to_string(value) + "\n";
    ASSERT_TRUE(WriteFile(file, text));
    const tagChildResult check = Check(file);
    ASSERT_TRUE(check.m_ExitCode == 0 || check.m_ExitCode == 1);
    const tagChildResult start = RunChild("StartWith", {file});
    ASSERT_TRUE(Succeeded(start));
    for (const std::string key : kKeys) {
      const bool isSize = key == "LogMaxSize" || key == "bufferSize";
      const long long wanted = isSize ? value * 1024LL : value;
      const std::string shown = key + " is " + std::to_string(wanted) + "\n";
      const bool isTaken = start.m_Output.find(shown) != std::string::npos;
      const bool isSaid = check.m_Output.find(": " + key + " ") != std::string::npos;
      // Taken, and of no use all the same: no file to keep, and neither way to change it.
      const bool isOfNoUse = value == 0 && (key == "LogMaxCount" || key == "LogMaxDuration");
      EXPECT_EQ(isSaid, !isTaken || isOfNoUse) << key << "=" << value << "\n" << start.m_Output;
    }
  }
}

TEST(KelvikctlCheck, AFileThatTheLibraryHasWrittenIsSound) {
  const CTempDir folder;
  const std::string file = folder.File("app.ini");
  ASSERT_TRUE(Succeeded(RunChild("StartWith", {file})));
  const tagChildResult result = Check(file);
  EXPECT_TRUE(Succeeded(result)) << ReadFile(file);
  EXPECT_EQ(result.m_Output, "");
}

}  // namespace
}  // namespace Kelvik
