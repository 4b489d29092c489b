// Each example, run as its first lines say, prints and writes what they say.

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "FileTools.h"
#include "KelvikctlTools.h"
#include "RealClock.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

// The lines without their colours and the moments in front of them.
Strings Records(const std::string& text) {
  Strings records;
  for (std::string line : Lines(text)) {
    for (std::size_t at; (at = line.find('\033')) != std::string::npos;)
      line.erase(at, line.find('m', at) + 1 - at);
    constexpr std::size_t kMomentBytes = 24;  // "2024-03-15 12:00:00.007 "
    if (line.size() > kMomentBytes && line[4] == '-' && line[19] == '.')
      line.erase(0, kMomentBytes);
    if (!line.empty()) records.push_back(line);
  }
  return records;
}

// All that is in the log files of a folder, in the order of their names.
std::string Logged(const CTempDir& folder) {
  std::string text;
  for (const std::string& name : ListFolder(folder.Path())) {
    if (Contains(name, ".log")) text += ReadFile(folder.File(name));
  }
  return text;
}

TEST(Examples, MinimalPrintsAndWritesTwoRecords) {
  const CTempDir folder;
  const tagChildResult result = RunProgram(KELVIK_EXAMPLE_MINIMAL, {folder.LogPath()});
  ASSERT_TRUE(Succeeded(result));
  const Strings records = {"[net][link] eth0 is up at 100 Mbit/s", "[net][link] eth1: no carrier"};
  EXPECT_EQ((Strings{"m_Attribute.m_LogPath = " + folder.LogPath(), records[0], records[1]}),
            Records(result.m_Output));
  EXPECT_TRUE(Contains(result.m_Output, "\033[33m")) << "an error is yellow";
  EXPECT_EQ(records, Records(Logged(folder)));
}

TEST(Examples, MinimalCppWorksOutOneArgument) {
  const tagChildResult result = RunProgram(KELVIK_EXAMPLE_MINIMAL_CPP);
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(
      (Strings{"[eth0][link] up at 100 Mbit/s", "[eth1][link] no carrier", "[poll][wait] round 0",
               "[poll][wait] (3 passed over) round 4", "1 argument was worked out"}),
      Records(result.m_Output));
}

TEST(Examples, ModulesHaveTheLevelsOfTheFile) {
  const CTempDir folder;
  const std::string path = folder.File("modules.ini");
  ASSERT_TRUE(WriteFile(path, "[Global]\nLevelInfo=1\n[net]\nLevelDbg=1\n[disk]\nLevelInfo=0\n"));
  for (int run = 0; run < 2; ++run) {  // the second time with the file as it was completed
    const tagChildResult result = RunProgram(KELVIK_EXAMPLE_MODULES, {path});
    ASSERT_TRUE(Succeeded(result));
    Strings records;
    for (const std::string& record : Records(result.m_Output)) {
      if (record[0] == '[') records.push_back(record);
    }
    EXPECT_EQ((Strings{"[net][start] debug", "[net][start] info", "[mem][start] info",
                       "[disk][later] debug"}),
              records)
        << result.m_Output;
    EXPECT_TRUE(Contains(ReadFile(path), "V2.3")) << "the module's version";
  }
}

TEST(Examples, CallbacksAnswerAnOperator) {
  const uint16_t port = FindFreePort();
  tagChildOptions options;
  options.m_LimitMs = 60000;
  CChild child(ProgramCommand(KELVIK_EXAMPLE_CALLBACKS, {std::to_string(port)}), options);
  const auto say = [&](const Strings& args) { return RunCtl(port, args); };
  ASSERT_TRUE(WaitUntil([&] { return say({"status"}).m_ExitCode == 0; }, 20000)) << child.Errors();
  EXPECT_EQ("pump state: 50 % since the start\n", say({"show", "pump", "state"}).m_Output);
  EXPECT_EQ(0, say({"set", "pump", "power", "80"}).m_ExitCode);
  EXPECT_EQ("pump state: 80 % since an operator set it\n", say({"show", "pump", "state"}).m_Output);
  EXPECT_EQ(0, say({"set", "pump", "power", "101"}).m_ExitCode);
  EXPECT_EQ("pump state: 80 % since an operator set it\n", say({"show", "pump", "state"}).m_Output);
  child.Signal(SIGTERM);
  const tagChildResult result = child.Wait();
  EXPECT_TRUE(Succeeded(result));
  EXPECT_TRUE(Contains(result.m_Output, "[pump][power] 101 is not 0 to 100\n")) << result.m_Output;
  EXPECT_TRUE(Contains(result.m_Output, "stopped at 80 %\n")) << result.m_Output;
}

TEST(Examples, TimeRotationKeepsThreeFilesAndTellsOfEachFinishedOne) {
  const CTempDir folder;
  tagChildOptions options;
  options.m_LimitMs = 60000;
  const tagChildResult result =
      RunProgram(KELVIK_EXAMPLE_TIMEROTATION, {folder.LogPath(), "5"}, options);
  ASSERT_TRUE(Succeeded(result));
  Strings finished;
  for (const std::string& line : Lines(result.m_Output)) {
    const std::string start = "file " + std::to_string(finished.size() + 1) + " is finished: ";
    if (line.compare(0, start.size(), start) == 0) finished.push_back(line.substr(start.size()));
  }
  // On a slow machine a file may last for longer than its second.
  ASSERT_LE(2u, finished.size()) << result.m_Output;
  const Strings names = ListFolder(folder.Path());
  EXPECT_EQ(3u, names.size());
  for (std::size_t i = 1; i < finished.size(); ++i)
    EXPECT_LT(finished[i - 1], finished[i]) << "named by the clock";
  // What is left is the end of what was logged, without a gap.
  const Strings records = Records(Logged(folder));
  ASSERT_FALSE(records.empty());
  for (std::size_t i = 0; i < records.size(); ++i)
    EXPECT_EQ("[clock][tick] record " + std::to_string(50 - records.size() + i), records[i]);
}

TEST(Examples, DaemonLosesAndDoublesNothing) {
  const CTempDir folder;
  const tagChildResult result = RunProgram(KELVIK_EXAMPLE_DAEMON, {folder.LogPath()});
  ASSERT_TRUE(Succeeded(result));
  const std::string start = "m_Attribute.m_LogPath = " + folder.LogPath() + "\ndaemon ";
  ASSERT_EQ(0u, result.m_Output.find(start)) << result.m_Output;
  const std::string pid = std::to_string(std::atol(result.m_Output.c_str() + start.size()));
  EXPECT_TRUE(WaitUntil([&] { return Contains(Logged(folder), "[daemon][end] done\n"); }, 20000));
  const Strings records = Records(Logged(folder));
  ASSERT_EQ(12u, records.size()) << Logged(folder);
  EXPECT_TRUE(Contains(records[0], "][daemon][start] before the fork"));
  EXPECT_FALSE(Contains(records[0], "[" + pid + "]"));
  for (std::size_t i = 0; i < 10; ++i)
    EXPECT_EQ("[" + pid + "][daemon][work] record " + std::to_string(i), records[i + 1]);
  EXPECT_EQ("[" + pid + "][daemon][end] done", records[11]);
}

TEST(Examples, GuestKeepsStandardOutputForTheProgram) {
  const CTempDir folder;
  tagChildOptions options;
  options.m_Input = "1\n2\nthree\n4\n-5\n";
  const tagChildResult result = RunProgram(KELVIK_EXAMPLE_GUEST, {folder.LogPath()}, options);
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ("2\n4\n8\n-10\n", result.m_Output);
  EXPECT_EQ(
      (Strings{"[double][output] 2", "[double][output] 4", "[double][input] not a number: three",
               "[double][output] 8", "[double][output] -10", "[double][end] 4 numbers"}),
      Records(Logged(folder)));
}

TEST(Examples, CrashFlushKeepsTheRecordsOfACrash) {
  for (const bool keeps : {true, false}) {
    const CTempDir folder;
    // The sanitizers leave the signal alone: their own report would be the end.
    tagChildOptions options;
    options.m_Environment = {{"ASAN_OPTIONS", "handle_segv=0"}, {"TSAN_OPTIONS", "handle_segv=0"}};
    const tagChildResult result =
        RunProgram(KELVIK_EXAMPLE_CRASHFLUSH, {folder.LogPath(), keeps ? "keep" : "lose"}, options);
    EXPECT_EQ(SIGSEGV, result.m_Signal) << result.m_ExitCode << result.m_Errors;
    Strings expected;
    for (int i = 0; keeps && i < 20; ++i)
      expected.push_back("[crash][work] record " + std::to_string(i));
    if (keeps) expected.push_back("[crash][last] about to crash");
    EXPECT_EQ(expected, Records(Logged(folder))) << keeps;
  }
}

TEST(Examples, EachIsShortAndBeginsWithHowItIsCompiled) {
  int seen = 0;
  for (const std::string& name : ListFolder(KELVIK_EXAMPLES)) {
    const bool isC = name.size() > 2 && name.compare(name.size() - 2, 2, ".c") == 0;
    const bool isCpp = name.size() > 4 && name.compare(name.size() - 4, 4, ".cpp") == 0;
    if ((!isC && !isCpp) || name == "sysmon.c") continue;
    ++seen;
    const std::string source = ReadFile(std::string(KELVIK_EXAMPLES) + "/" + name);
    EXPECT_GT(120u, Lines(source).size()) << name;
    const std::string program = name.substr(0, name.find('.'));
    const std::string line = (isC ? "cc -std=c99 " : "c++ -std=c++17 ") + name + " -o " + program +
                             " $(pkg-config --cflags --libs kelvik)";
    EXPECT_GT(400u, source.find(line)) << name << ": " << line;
  }
  EXPECT_EQ(8, seen);
}

TEST(Examples, BadUsageIsRefused) {
  for (const char* program :
       {KELVIK_EXAMPLE_MINIMAL, KELVIK_EXAMPLE_MODULES, KELVIK_EXAMPLE_CALLBACKS,
        KELVIK_EXAMPLE_TIMEROTATION, KELVIK_EXAMPLE_DAEMON, KELVIK_EXAMPLE_GUEST,
        KELVIK_EXAMPLE_CRASHFLUSH}) {
    const tagChildResult result = RunProgram(program);
    EXPECT_EQ(64, result.m_ExitCode) << program;
    EXPECT_EQ(0u, result.m_Errors.find("usage: ")) << result.m_Errors;
  }
}

}  // namespace
}  // namespace Kelvik
