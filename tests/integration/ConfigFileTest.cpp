// Reading the configuration file.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "ChildProcess.h"
#include "ConfigLoad.h"
#include "Kelvik.h"
#include "Rounds.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;

constexpr char kVersion[] = "[libkelvik.so(a) V1.2.0.19180 Build 20241104]";

TEST(ConfigFile, WithoutPathTheEngineStartsAndTheResultIsInvalid) {
  EXPECT_EQ(DefaultsWith({{"Result", "3"}}), Load(""));
}

TEST(ConfigFile, MissingFileKeepsTheDefaultsAndIsMade) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  EXPECT_EQ(DefaultsWith({{"Result", "0"}}), Load(path));
  EXPECT_EQ(kVersion, ReadEntries(path)["global/version"]);
}

TEST(ConfigFile, FileInAMissingFolderKeepsTheDefaults) {
  const CTempDir folder;
  EXPECT_EQ(DefaultsWith({{"Result", "0"}}), Load(folder.File("none/kelvik.ini")));
}

TEST(ConfigFile, FolderAsFileKeepsTheDefaults) {
  const CTempDir folder;
  EXPECT_EQ(DefaultsWith({{"Result", "0"}}), Load(folder.Path()));
}

TEST(ConfigFile, PipeAsFileIsNotReadAndKeepsTheDefaults) {
  const CTempDir folder;
  const std::string path = folder.File("pipe");
  ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
  EXPECT_EQ(DefaultsWith({{"Result", "1"}}), Load(path));
}

TEST(ConfigFile, FirstRunListsEveryKeyThatIsRead) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  Load(path);
  EXPECT_THAT(SectionNames(path), ElementsAre("Global", "fileName"));
  EXPECT_THAT(
      KeyNames(path, "Global"),
      ElementsAre("Version", "OutputConsole", "OutputSystem", "OutputFile", "logMaxSize",
                  "logMaxDuration", "logMaxCount", "bufferSize", "writeInterval", "LevelInfo",
                  "LevelDbg", "LevelError", "LevelWar", "LevelFatal", "LogFilePath", "LogIndex"));
  EXPECT_THAT(KeyNames(path, "fileName"), ElementsAre("fileName_0", "fileName_1"));
  for (const auto& entry : ReadEntries(path)) {
    EXPECT_EQ(entry.first == "global/version" ? kVersion : "", entry.second) << entry.first;
  }
}

TEST(ConfigFile, EmptyValuesAreReadAsNothing) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  Load(path);
  const std::string first = ReadFile(path);
  EXPECT_EQ(DefaultsWith({{"Result", "0"}}), Load(path));
  EXPECT_EQ(first, ReadFile(path));
}

struct tagReadCase {
  const char* m_Line;
  Entries m_Changes;  // of the defaults
};

class ConfigFileRead : public testing::TestWithParam<tagReadCase> {};

TEST_P(ConfigFileRead, ChangesExactlyWhatTheKeySays) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(WriteFile(path, std::string("[Global]\n") + GetParam().m_Line + "\n"));
  Entries expected = DefaultsWith(GetParam().m_Changes);
  expected["Result"] = "0";
  EXPECT_EQ(expected, Load(path)) << GetParam().m_Line;
}

INSTANTIATE_TEST_SUITE_P(
    Keys, ConfigFileRead,
    testing::Values(
        // Switches: 1 is on, -1 and no number keep, everything else is off.
        tagReadCase{"OutputConsole=0", {{"Console", "0"}}},
        tagReadCase{"OutputConsole=2", {{"Console", "0"}}},
        tagReadCase{"OutputConsole=-2", {{"Console", "0"}}}, tagReadCase{"OutputConsole=-1", {}},
        tagReadCase{"OutputConsole=on", {}}, tagReadCase{"OutputSystem=1", {{"System", "1"}}},
        tagReadCase{"OutputFile=1", {{"File", "1"}}}, tagReadCase{"OutputFile=2", {}},
        tagReadCase{"outputFILE = 1 ", {{"File", "1"}}},
        tagReadCase{"OutputFile=1abc", {{"File", "1"}}},
        // Never read.
        tagReadCase{"OutputDateTime=0", {}}, tagReadCase{"OutputThreadID=1", {}},
        tagReadCase{"OutputLocation=0", {}},
        // Size: KiB without bounds, modulo 2^32 bytes.
        tagReadCase{"logMaxSize=2048", {{"Size", "2097152"}}},
        tagReadCase{"LogMaxSize=2048", {{"Size", "2097152"}}},
        tagReadCase{"logMaxSize=0", {{"Size", "0"}}}, tagReadCase{"logMaxSize=-1", {}},
        tagReadCase{"logMaxSize=-2", {{"Size", "4294965248"}}},
        tagReadCase{"logMaxSize=2147483647", {{"Size", "4294966272"}}},
        tagReadCase{"logMaxSize=-2147483648", {{"Size", "0"}}},
        tagReadCase{"logMaxSize=2147483648", {}}, tagReadCase{"logMaxSize=99999999999999", {}},
        // Duration: seconds without bounds.
        tagReadCase{"logMaxDuration=3600", {{"Duration", "3600"}}},
        tagReadCase{"logMaxDuration=0", {{"Duration", "0"}}},
        tagReadCase{"logMaxDuration=-5", {{"Duration", "4294967291"}}},
        tagReadCase{"logMaxDuration=-1", {}},
        // Count: 11 and more are 10, everything below stays.
        tagReadCase{"logMaxCount=1", {{"Count", "1"}}},
        tagReadCase{"logMaxCount=10", {{"Count", "10"}}},
        tagReadCase{"logMaxCount=11", {{"Count", "10"}}},
        tagReadCase{"logMaxCount=25", {{"Count", "10"}}},
        tagReadCase{"logMaxCount=0", {{"Count", "0"}}},
        tagReadCase{"logMaxCount=-7", {{"Count", "4294967289"}}}, tagReadCase{"logMaxCount=-1", {}},
        // Buffer: 1 to 1024 KiB.
        tagReadCase{"bufferSize=64", {{"Buffer", "65536"}}},
        tagReadCase{"bufferSize=1", {{"Buffer", "1024"}}},
        tagReadCase{"bufferSize=1024", {{"Buffer", "1048576"}}}, tagReadCase{"bufferSize=1025", {}},
        tagReadCase{"bufferSize=2048", {}}, tagReadCase{"bufferSize=0", {}},
        tagReadCase{"bufferSize=-3", {}},
        // Interval: 0, or 200 ms and more.
        tagReadCase{"writeInterval=200", {{"Interval", "200"}}},
        tagReadCase{"writeInterval=5000000", {{"Interval", "5000000"}}},
        tagReadCase{"writeInterval=199", {}}, tagReadCase{"writeInterval=150", {}},
        tagReadCase{"writeInterval=-200", {}}, tagReadCase{"writeInterval=0", {}},
        tagReadCase{"writeInterval=2147483647", {{"Interval", "2147483647"}}},
        // Levels.
        tagReadCase{"LevelInfo=1", {{"Mask", "34"}}}, tagReadCase{"LevelDbg=1", {{"Mask", "32"}}},
        tagReadCase{"LevelWar=1", {{"Mask", "38"}}}, tagReadCase{"LevelError=0", {{"Mask", "20"}}},
        tagReadCase{"LevelError=5", {{"Mask", "20"}}},
        tagReadCase{"LevelFatal=0", {{"Mask", "10"}}}, tagReadCase{"LevelFatal=-1", {}},
        // The path, as it stands.
        tagReadCase{"LogFilePath=/var/log/x-", {{"Path", "/var/log/x-"}}},
        tagReadCase{"LogFilePath=", {}}, tagReadCase{"logfilepath = /a b/ ", {{"Path", "/a b/"}}},
        // The first of equal keys wins; a repeated section is the same one.
        tagReadCase{"logMaxCount=3\nLOGMAXCOUNT=4", {{"Count", "3"}}},
        tagReadCase{"logMaxCount=3\n[x]\n[global]\nbufferSize=2",
                    {{"Count", "3"}, {"Buffer", "2048"}}},
        // Settings of another section do not count.
        tagReadCase{"[Globals]\nOutputFile=1", {}}));

// args: configuration path. Settings of the program's own stand before the file is read.
CHILD_CASE(LoadOverOwnSettings) {
  CGlobal& context = *CGlobal::Instance();
  tagAttribute& attribute = *context.GetAttribute();
  attribute.m_OutputConsole = 0;
  attribute.m_OutputSystem = 1;
  attribute.m_OutputFile = 1;
  attribute.m_LevelMask = 0x3e;
  context.SetLogPath("/own/");
  context.SetBufferSize("4");
  context.SetInterval("300");
  context.SetConfigFilePath(args[0].c_str());
  std::printf("@Result=%d\n", context.ConfigFileInitialize());
  PrintState();
  return 0;
}

TEST(ConfigFile, SaysMoreThanTheProgramButOnlyWhereItSaysSomething) {
  const Entries own = DefaultsWith({{"Result", "0"},
                                    {"Console", "0"},
                                    {"System", "1"},
                                    {"File", "1"},
                                    {"Mask", "3e"},
                                    {"Path", "/own/"},
                                    {"Buffer", "4096"},
                                    {"Interval", "300"}});
  const tagReadCase cases[] = {
      {"", {}},
      {"OutputConsole=1", {{"Console", "1"}}},
      {"OutputConsole=-1\nOutputSystem=-1\nOutputFile=-1", {}},
      {"OutputSystem=0", {{"System", "0"}}},
      {"OutputFile=2", {{"File", "0"}}},
      {"bufferSize=32", {{"Buffer", "32768"}}},
      {"bufferSize=1025\nwriteInterval=199", {}},
      {"writeInterval=0", {{"Interval", "0"}}},
      {"LogFilePath=/tmp/", {{"Path", "/tmp/"}}},
      {"LogFilePath=", {}},
      {"LevelInfo=2", {{"Mask", "3a"}}},
      {"LevelDbg=0", {{"Mask", "3c"}}},
      {"LevelError=-2", {{"Mask", "2e"}}},
      {"LevelWar=10", {{"Mask", "36"}}},
      {"LevelFatal=0", {{"Mask", "1e"}}},
      {"LevelInfo=-1\nLevelDbg=x\nLevelError=\nLevelWar=-1\nLevelFatal=-1", {}},
  };
  for (const tagReadCase& row : cases) {
    const CTempDir folder;
    const std::string path = folder.File("kelvik.ini");
    ASSERT_TRUE(WriteFile(path, std::string("[Global]\n") + row.m_Line + "\n"));
    const tagChildResult result = RunChild("LoadOverOwnSettings", {path});
    ASSERT_TRUE(Succeeded(result)) << row.m_Line;
    Entries expected = own;
    for (const auto& change : row.m_Changes)
      expected[change.first] = change.second;
    EXPECT_EQ(expected, ParseState(result.m_Output)) << row.m_Line;
  }
}

TEST(ConfigFile, LongLogPathIsCutAtItsField) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const std::string text = "/" + std::string(299, 'p');
  ASSERT_TRUE(WriteFile(path, "[Global]\nLogFilePath=" + text + "\n"));
  EXPECT_EQ(text.substr(0, 256), Load(path)["Path"]);
}

CHILD_CASE(InitializeTwice) {
  SetConfigFilePath(args[0].c_str());
  EXPECT_EQ(0, CGlobal::Instance()->ConfigFileInitialize());
  EXPECT_TRUE(WriteFile(args[0], "[Global]\nlogMaxCount=7\nVersion=x\n"));
  EXPECT_EQ(3, CGlobal::Instance()->ConfigFileInitialize());
  EXPECT_EQ(0, Initialize());
  PrintState();
  return 0;
}

TEST(ConfigFile, SecondInitializeReadsAndWritesNothing) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const tagChildResult result = RunChild("InitializeTwice", {path});
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ("2", ParseState(result.m_Output)["Count"]);
  EXPECT_EQ("[Global]\nlogMaxCount=7\nVersion=x\n", ReadFile(path));
}

// args: configuration path, which comes too late.
CHILD_CASE(InitializeBeforePath) {
  CGlobal& context = *CGlobal::Instance();
  EXPECT_EQ(3, context.ConfigFileInitialize());
  EXPECT_TRUE(CGlobal::s_ConfigLoaded);
  EXPECT_EQ(0, context.SetConfigFilePath(args[0].c_str()));
  EXPECT_EQ(3, context.ConfigFileInitialize());
  PrintState();
  return 0;
}

TEST(ConfigFile, InitializeWithoutPathIsTheOnlyOneToo) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const std::string content = "[Global]\nlogMaxCount=7\n";
  ASSERT_TRUE(WriteFile(path, content));
  const tagChildResult result = RunChild("InitializeBeforePath", {path});
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(DefaultsWith({}), ParseState(result.m_Output));
  EXPECT_EQ(content, ReadFile(path));
}

CHILD_CASE(InitializeTogether) {
  SetConfigFilePath(args[0].c_str());
  CGlobal& context = *CGlobal::Instance();
  std::atomic<bool> isOpen(false);
  std::atomic<int> zeros(0), threes(0);
  std::vector<std::thread> callers;
  for (int i = 0; i < 8; ++i) {
    callers.emplace_back([&] {
      while (!isOpen)
        std::this_thread::yield();
      const int result = context.ConfigFileInitialize();
      // Whoever returns finds the settings in place.
      tagAttribute attribute;
      context.CopyAttribute(attribute);
      const uint32_t count = attribute.m_LogMaxCount;
      EXPECT_EQ(5u, count);
      if (result == 0) ++zeros;
      if (result == 3) ++threes;
    });
  }
  isOpen = true;
  for (std::thread& caller : callers)
    caller.join();
  EXPECT_EQ(1, zeros);
  EXPECT_EQ(7, threes);
  return 0;
}

TEST(ConfigFile, ConcurrentInitializeRunsOnceAndTheOthersWait) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  for (int round = 0; round < Rounds(); ++round) {
    ASSERT_TRUE(WriteFile(path, "[Global]\nlogMaxCount=5\n"));
    ASSERT_TRUE(Succeeded(RunChild("InitializeTogether", {path})));
  }
}

// Texts that no well-meaning person writes: nothing of them may stick.
TEST(ConfigFile, HostileFileLeavesTheDefaults) {
  std::string binary;
  for (int i = 0; i < 70000; ++i)
    binary += static_cast<char>((i * 7919) >> 3);
  const std::vector<std::string> contents = {
      std::string("\0\0\0", 3),
      std::string("[Global]\nOutputFile=\0001\n", 23),
      std::string("[Global]\nLogFilePath=\0/etc/\n", 28),
      std::string("[Global]\nLogFilePath=/e\0tc/\n", 28),
      std::string("[Global]\nLogIndex=0\n[fileName]\nfileName_0=/tmp/\0x.log\n", 55),
      "[Global]\nlogMaxSize=x\nlogMaxDuration=\nlogMaxCount=--3\nbufferSize=999999999\n"
      "writeInterval=1\nLevelInfo=99999999999\nLogIndex=1000\n",
      "[Global]\nLogIndex=-5\n[fileName]\nfileName_-1=/a\nfileName_99=/b\nfileName_2=/c\n",
      "[Global\nOutputFile=1\n",
      "]Global[\nOutputFile=1\n",
      "\r\r\r[\r]\r=\r",
      "[fileName]\nfileName_0=" + std::string(100000, 'n') + "\n",
      binary,
  };
  for (size_t i = 0; i < contents.size(); ++i) {
    const CTempDir folder;
    const std::string path = folder.File("kelvik.ini");
    ASSERT_TRUE(WriteFile(path, contents[i]));
    EXPECT_EQ(DefaultsWith({{"Result", "0"}}), Load(path)) << "content " << i;
    // It is still a file that the next run reads to the same end.
    EXPECT_EQ(DefaultsWith({{"Result", "0"}}), Load(path)) << "content " << i;
  }
}

TEST(ConfigFile, CommentsAndOrderOfAPersonStay) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(
      WriteFile(path, "; mine\n\n[net]\n# verbose\nLevelDbg=1\n\n[Global]\nOutputFile=0\n"));
  Load(path);
  EXPECT_THAT(ReadFile(path), testing::StartsWith("; mine\n\n[net]\n# verbose\nLevelDbg=1\n\n"
                                                  "[Global]\nOutputFile=0\nVersion="));
}

TEST(ConfigFile, ExampleFileIsReadAsItSays) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(WriteFile(path, ReadFile(KELVIK_EXAMPLES "/kelvik.ini")));
  EXPECT_EQ(DefaultsWith({{"Result", "0"},
                          {"File", "1"},
                          {"Mask", "3c"},
                          {"Path", "/var/log/myapp/"},
                          {"Size", "524288"},
                          {"Duration", "3600"},
                          {"Count", "5"},
                          {"Buffer", "65536"},
                          {"Interval", "1000"}}),
            Load(path));
  // Nothing is missing in it but what the library keeps for itself.
  Entries added = ReadEntries(path);
  for (const auto& entry : ReadEntries(KELVIK_EXAMPLES "/kelvik.ini")) {
    EXPECT_EQ(entry.second, added[entry.first]) << entry.first;
    added.erase(entry.first);
  }
  std::vector<std::string> names;
  for (const auto& entry : added)
    names.push_back(entry.first);
  EXPECT_THAT(names, ElementsAre("filename/filename_0", "filename/filename_1",
                                 "filename/filename_2", "filename/filename_3",
                                 "filename/filename_4", "global/logindex", "global/version"));
}

}  // namespace
}  // namespace Kelvik
