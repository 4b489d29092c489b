// Reading and saving the configuration file.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "ChildProcess.h"
#include "ConfigTools.h"
#include "IniFile.h"
#include "Kelvik.h"
#include "Rounds.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kVersion[] = "[libkelvik.so(a) V1.2.0.19180 Build 20241104]";

CHILD_CASE(Load) {
  return LoadAndPrint(args[0]);
}

Entries Load(const std::string& path) {
  const tagChildResult result = RunChild("Load", {path});
  EXPECT_TRUE(Succeeded(result));
  return ParseState(result.m_Output);
}

Entries Defaults() {
  return {{"Console", "1"},    {"System", "0"},   {"File", "0"},     {"DateTime", "1"},
          {"ThreadID", "0"},   {"Location", "1"}, {"Mask", "30"},    {"Path", "/tmp/"},
          {"Size", "1048576"}, {"Duration", "1"}, {"Count", "2"},    {"Buffer", "32768"},
          {"Interval", "0"},   {"Index", "0"},    {"FileSize", "0"}, {"Started", "1"},
          {"Name0", ""},       {"Name1", ""},     {"Name2", ""},     {"Name3", ""},
          {"Name4", ""},       {"Name5", ""},     {"Name6", ""},     {"Name7", ""},
          {"Name8", ""},       {"Name9", ""}};
}

// The defaults with the changes on top.
Entries DefaultsWith(const Entries& changes) {
  Entries state = Defaults();
  for (const auto& change : changes)
    state[change.first] = change.second;
  return state;
}

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
      // Whoever returns finds the settings in place and the engine started.
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

// --- Modules ---

// args: configuration path, then pairs of module and version. Registers them, and prints the mask
// of each.
CHILD_CASE(Register) {
  if (!args[0].empty()) SetConfigFilePath(args[0].c_str());
  for (size_t i = 1; i + 1 < args.size(); i += 2) {
    EXPECT_EQ(0, CGlobal::Instance()->InsertModuleName(args[i].c_str(), args[i + 1].c_str()));
  }
  for (size_t i = 1; i + 1 < args.size(); i += 2) {
    const auto& modules = CGlobal::Instance()->m_ModuleAttribute;
    const auto found = modules.find(args[i]);
    EXPECT_NE(modules.end(), found);
    if (found != modules.end()) std::printf("@%zu=%02x\n", i, found->second.m_LevelMask);
  }
  return 0;
}

tagChildResult Register(const std::vector<std::string>& args) {
  const tagChildResult result = RunChild("Register", args);
  EXPECT_TRUE(Succeeded(result));
  return result;
}

struct tagModuleCase {
  const char* m_File;
  const char* m_Mask;
};

TEST(ConfigModule, LevelsComeFromItsSectionThenFromGlobalThenStay) {
  const tagModuleCase cases[] = {
      {"", "30"},
      {"[net]\nLevelInfo=1\nLevelDbg=1\nLevelError=0\nLevelWar=1\nLevelFatal=0\n", "0e"},
      {"[NET]\nleveldbg=1\n", "32"},
      {"[net]\nLevelDbg=1\n[Global]\nLevelInfo=1\nLevelDbg=0\nLevelError=0\nLevelWar=1\n"
       "LevelFatal=1\n",
       "2e"},
      {"[net]\nLevelDbg=-1\n[Global]\nLevelDbg=1\n", "32"},
      {"[net]\nLevelDbg=x\n[Global]\nLevelDbg=1\n", "32"},
      {"[net]\nLevelDbg=0\n[Global]\nLevelDbg=1\n", "30"},
      {"[net]\nLevelError=7\n[Global]\nLevelError=1\n", "20"},
      // Nothing but the levels is the module's own.
      {"[net]\nOutputFile=1\nOutputThreadID=1\nlogMaxCount=9\n", "30"},
  };
  for (const tagModuleCase& row : cases) {
    const CTempDir folder;
    const std::string path = folder.File("kelvik.ini");
    ASSERT_TRUE(WriteFile(path, row.m_File));
    EXPECT_EQ(row.m_Mask, ParseState(Register({path, "net", "V1.0"}).m_Output)["1"]) << row.m_File;
    EXPECT_EQ("V1.0", ReadEntries(path)["net/version"]) << row.m_File;
  }
}

TEST(ConfigModule, RegistrationNeedsNoInitialize) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const tagChildResult result = Register({path, "net", "V1.0", "disk", "V2"});
  EXPECT_EQ(
      "************************ module = net, version = V1.0\n"
      "************************ module = disk, version = V2\n"
      "@1=30\n@3=30\n",
      result.m_Output);
  EXPECT_THAT(SectionNames(path), ElementsAre("net", "Global", "disk"));
  EXPECT_THAT(KeyNames(path, "net"), ElementsAre("Version", "LevelInfo", "LevelDbg", "LevelError",
                                                 "LevelWar", "LevelFatal"));
}

TEST(ConfigModule, WithoutPathNothingIsPrintedAndTheSnapshotStands) {
  EXPECT_EQ("@1=30\n", Register({"", "net", "V1.0"}).m_Output);
}

TEST(ConfigModule, VersionIsOverwrittenAtEachRegistration) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  Register({path, "net", "V1.0"});
  Register({path, "net", "V1.1"});
  EXPECT_EQ("V1.1", ReadEntries(path)["net/version"]);
}

TEST(ConfigModule, VersionEndsAtItsFirstLineEnd) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  Register({path, "net", " V1.0 \nLevelDbg=1\n[Global]\nOutputFile=1"});
  const Entries entries = ReadEntries(path);
  EXPECT_EQ("V1.0", entries.at("net/version"));
  EXPECT_EQ("", entries.at("net/leveldbg"));
  EXPECT_EQ(0u, entries.count("global/outputfile"));
}

// Names that the document library takes only with care, or not at all.
TEST(ConfigModule, NoNameHarmsTheProcessOrTheOtherSections) {
  const std::vector<std::string> names = {"a\nb",   "a\rb",
                                          "\n",     "x\n",
                                          "",       " ",
                                          "[]",     "[",
                                          "]",      "[net]",
                                          "a]b",    "[a]b",
                                          " net ",  ";c",
                                          "#c",     "=",
                                          "a=b",    "\xEF\xBB\xBF",
                                          "\xFF",   std::string(5000, 'n'),
                                          "Global", "fileName"};
  for (const std::string& name : names) {
    const CTempDir folder;
    const std::string path = folder.File("kelvik.ini");
    ASSERT_TRUE(WriteFile(path, "[Global]\nLevelDbg=0\n[net]\nLevelDbg=1\n"));
    // Twice: what the first run wrote, the second one reads.
    Register({path, name, "V1", "net", "V2"});
    const Entries state = ParseState(Register({path, name, "V1", "net", "V2"}).m_Output);
    EXPECT_EQ("32", state.at("3")) << name;
    EXPECT_EQ("V2", ReadEntries(path)["net/version"]) << name;
  }
}

TEST(ConfigModule, NameWithALineEndInsideHasNoSectionAndKeepsItsSnapshot) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const std::string content = "[Global]\nLevelDbg=1\n";
  ASSERT_TRUE(WriteFile(path, content));
  EXPECT_EQ("30", ParseState(Register({path, "a\nb", "V1"}).m_Output)["1"]);
  EXPECT_EQ(content, ReadFile(path));
}

CHILD_CASE(NullVersion) {
  SetConfigFilePath(args[0].c_str());
  tagAttribute attribute = {};
  EXPECT_EQ(0, CGlobal::Instance()->ReadAttributeByConfigFile("net", attribute, nullptr));
  EXPECT_EQ(0, CGlobal::Instance()->InsertModuleName("disk", nullptr));
  EXPECT_EQ(3, CGlobal::Instance()->ReadAttributeByConfigFile(nullptr, attribute, "V1"));
  return 0;
}

TEST(ConfigModule, NullVersionCountsAsEmpty) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(WriteFile(path, "[net]\nVersion=old\n[disk]\nVersion=old\n"));
  const tagChildResult result = RunChild("NullVersion", {path});
  ASSERT_TRUE(Succeeded(result));
  EXPECT_THAT(result.m_Output, HasSubstr("* module = net, version = \n"));
  EXPECT_EQ("", ReadEntries(path)["net/version"]);
  EXPECT_EQ("", ReadEntries(path)["disk/version"]);
}

CHILD_CASE(KeyValues) {
  CGlobal& context = *CGlobal::Instance();
  xini_file_t document(args[0]);
  EXPECT_EQ(7, context.GetKeyValue(&document, "k", "net"));
  EXPECT_EQ(5, context.GetKeyValue(&document, "only", "net"));
  EXPECT_EQ(5, context.GetKeyValue(&document, " ONLY ", "nowhere"));
  EXPECT_EQ(5, context.GetKeyValue(&document, "only", "Global"));
  EXPECT_EQ(3, context.GetKeyValue(&document, "minus", "net"));
  EXPECT_EQ(-1, context.GetKeyValue(&document, "absent", "net"));
  // What cannot be a key or a section is nothing, and no end of the process.
  EXPECT_EQ(-1, context.GetKeyValue(&document, "", "net"));
  EXPECT_EQ(-1, context.GetKeyValue(&document, "a=b", "net"));
  EXPECT_EQ(-1, context.GetKeyValue(&document, "a\nb", "net"));
  EXPECT_EQ(5, context.GetKeyValue(&document, "only", "a\nb"));
  EXPECT_EQ(5, context.GetKeyValue(&document, "only", nullptr));
  EXPECT_EQ(-1, context.GetKeyValue(&document, nullptr, "net"));
  EXPECT_EQ(-1, context.GetKeyValue(nullptr, "k", "net"));
  return 0;
}

TEST(ConfigModule, KeyValueFallsBackToGlobal) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(WriteFile(path, "[Global]\nk=1\nonly=5\nminus=3\n[net]\nk=7\nminus=-1\n"));
  EXPECT_TRUE(Succeeded(RunChild("KeyValues", {path})));
}

// --- Saving ---

// args: configuration path, name to save, expected result, modules. Settings differ from the
// defaults in every field.
CHILD_CASE(Save) {
  CGlobal& context = *CGlobal::Instance();
  for (size_t i = 3; i < args.size(); ++i)
    context.InsertModuleName(args[i].c_str(), "V1");
  if (!args[0].empty()) SetConfigFilePath(args[0].c_str());
  tagAttribute& attribute = *context.GetAttribute();
  attribute.m_OutputConsole = 0;
  attribute.m_OutputSystem = 1;
  attribute.m_OutputFile = 1;
  attribute.m_OutputDateTime = 0;
  attribute.m_OutputThreadID = 1;
  attribute.m_LevelMask = 0x16;
  context.SetLogPath("/var/log/it/");
  context.SetLogMaxSize(3 * 1024 * 1024 + 1023);
  context.SetLogMaxDuration(86400);
  context.SetMaxLogCount(7);
  context.SetBufferSize("8");
  context.SetInterval("250");
  for (auto& module : context.m_ModuleAttribute) {
    module.second.m_OutputDateTime = 0;
    module.second.m_OutputThreadID = module.first[0] == 'n' ? 1 : 0;
  }
  std::printf("@Saved=%d\n", context.SaveAttribute2File(args[1].c_str()));
  PrintState();
  for (const auto& module : context.m_ModuleAttribute) {
    std::printf("@%s=%d\n", module.first.c_str(), module.second.m_OutputDateTime);
  }
  return 0;
}

const Entries kSavedGlobal = {{"global/outputconsole", "0"},
                              {"global/outputsystem", "1"},
                              {"global/outputfile", "1"},
                              {"global/outputdatetime", "1"},
                              {"global/outputthreadid", "1"},
                              {"global/logmaxsize", "3072"},
                              {"global/logmaxduration", "86400"},
                              {"global/logmaxcount", "7"},
                              {"global/logfilepath", "/var/log/it/"},
                              {"global/buffersize", "8"},
                              {"global/writeinterval", "250"},
                              {"global/levelinfo", "1"},
                              {"global/leveldbg", "1"},
                              {"global/levelerror", "1"},
                              {"global/levelwar", "0"},
                              {"global/levelfatal", "0"}};

class ConfigSaveGlobal : public testing::TestWithParam<const char*> {};

TEST_P(ConfigSaveGlobal, WritesGlobalAloneInItsOrder) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const tagChildResult result = RunChild("Save", {path, GetParam(), "0", "net"});
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(kSavedGlobal, ReadEntries(path));
  EXPECT_THAT(KeyNames(path, "Global"),
              ElementsAre("OutputConsole", "OutputSystem", "OutputFile", "OutputDateTime",
                          "OutputThreadID", "LogMaxSize", "LogMaxDuration", "LogMaxCount",
                          "LogFilePath", "bufferSize", "writeInterval", "LevelInfo", "LevelDbg",
                          "LevelError", "LevelWar", "LevelFatal"));
  Entries state = ParseState(result.m_Output);
  EXPECT_EQ("0", state["Saved"]);
  EXPECT_EQ("1", state["DateTime"]) << "a save switches the date-time prefix on";
  EXPECT_EQ("0", state["net"]);
}

INSTANTIATE_TEST_SUITE_P(Parts, ConfigSaveGlobal,
                         testing::Values("glob", "Global", "GLOBAL", "g", "l", "al", "OBA"));

class ConfigSaveAll : public testing::TestWithParam<const char*> {};

TEST_P(ConfigSaveAll, WritesGlobalAndEveryModule) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const tagChildResult result = RunChild("Save", {path, GetParam(), "0", "net", "disk"});
  ASSERT_TRUE(Succeeded(result));
  Entries expected = kSavedGlobal;
  for (const char* module : {"net", "disk"}) {
    const std::string section = std::string(module) + "/";
    expected[section + "outputdatetime"] = "1";
    expected[section + "outputthreadid"] = module[0] == 'n' ? "1" : "0";
    expected[section + "levelinfo"] = "0";
    expected[section + "leveldbg"] = "0";
    expected[section + "levelerror"] = "1";
    expected[section + "levelwar"] = "0";
    expected[section + "levelfatal"] = "1";
  }
  EXPECT_EQ(expected, ReadEntries(path));
  EXPECT_THAT(SectionNames(path), ElementsAre("Global", "disk", "net"));
  EXPECT_THAT(KeyNames(path, "net"),
              ElementsAre("OutputDateTime", "OutputThreadID", "LevelInfo", "LevelDbg", "LevelError",
                          "LevelWar", "LevelFatal"));
  EXPECT_THAT(result.m_Output, HasSubstr("**************************** module = disk\n"
                                         "**************************** module = net\n"));
  Entries state = ParseState(result.m_Output);
  EXPECT_EQ("1", state["net"]);
  EXPECT_EQ("1", state["disk"]);
}

INSTANTIATE_TEST_SUITE_P(Parts, ConfigSaveAll, testing::Values("All", "all", "LL"));

TEST(ConfigSave, NameSelectsEveryModuleThatContainsIt) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const tagChildResult result = RunChild("Save", {path, "NET", "0", "disk", "ethernet", "network"});
  ASSERT_TRUE(Succeeded(result));
  EXPECT_THAT(SectionNames(path), ElementsAre("ethernet", "network"));
  EXPECT_THAT(result.m_Output, HasSubstr("**************************** module = ethernet\n"
                                         "**************************** module = network\n"));
  EXPECT_THAT(result.m_Output, Not(HasSubstr("module = disk")));
  Entries state = ParseState(result.m_Output);
  EXPECT_EQ("0", state["disk"]);
  EXPECT_EQ("0", state["DateTime"]) << "only a save of the global settings switches it on";
}

TEST(ConfigSave, RecordOfAModuleIsTheOneThatItsNameFinds) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  // "net" is found in "anet", which comes first.
  const tagChildResult result = RunChild("Save", {path, "net", "0", "anet", "net"});
  ASSERT_TRUE(Succeeded(result));
  Entries state = ParseState(result.m_Output);
  EXPECT_EQ("1", state["anet"]);
  EXPECT_EQ("0", state["net"]) << "its own record is never reached";
  EXPECT_EQ("0", ReadEntries(path)["net/outputthreadid"]);
}

TEST(ConfigSave, NameThatSelectsNothingWritesNothing) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const tagChildResult result = RunChild("Save", {path, "nobody", "0", "net"});
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ("0", ParseState(result.m_Output)["Saved"]);
  EXPECT_FALSE(Exists(path));
}

TEST(ConfigSave, EmptyNameOrNoPathIsRefused) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  EXPECT_EQ("3", ParseState(RunChild("Save", {path, "", "3", "net"}).m_Output)["Saved"]);
  EXPECT_EQ("3", ParseState(RunChild("Save", {"", "All", "3", "net"}).m_Output)["Saved"]);
  EXPECT_THAT(ListFolder(folder.Path()), IsEmpty());
}

// args: folder, which becomes the working folder.
CHILD_CASE(SaveHalvesWithoutPath) {
  EXPECT_EQ(0, chdir(args[0].c_str()));
  CGlobal& context = *CGlobal::Instance();
  context.InsertModuleName("net", "V1");
  EXPECT_EQ(0, context.SaveGlobalAtri());
  EXPECT_EQ(0, context.SaveMoudleAttri2File("net"));
  EXPECT_EQ(3, context.SaveMoudleAttri2File(nullptr));
  return 0;
}

TEST(ConfigSave, HalvesOfASaveWriteNoFileWithoutPath) {
  const CTempDir folder;
  EXPECT_TRUE(Succeeded(RunChild("SaveHalvesWithoutPath", {folder.Path()})));
  EXPECT_THAT(ListFolder(folder.Path()), IsEmpty());
}

TEST(ConfigSave, SavedSettingsAreReadBackAsTheyWere) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(Succeeded(RunChild("Save", {path, "All", "0"})));
  EXPECT_EQ(DefaultsWith({{"Result", "0"},
                          {"Console", "0"},
                          {"System", "1"},
                          {"File", "1"},
                          {"Mask", "16"},
                          {"Path", "/var/log/it/"},
                          {"Size", "3145728"},
                          {"Duration", "86400"},
                          {"Count", "7"},
                          {"Buffer", "8192"},
                          {"Interval", "250"}}),
            Load(path));
}

TEST(ConfigSave, KeysKeepTheSpellingAndPlaceThatTheFileHas) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(WriteFile(path, "[GLOBAL]\nlogmaxcount=1 ; mine\n# note\noutputfile=0\n"));
  ASSERT_TRUE(Succeeded(RunChild("Save", {path, "Global", "0"})));
  EXPECT_THAT(ReadFile(path), testing::StartsWith("[GLOBAL]\nlogmaxcount=7\n# note\noutputfile=1\n"
                                                  "OutputConsole=0\n"));
}

TEST(ConfigSave, NoModuleNameHarmsTheOtherSections) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const tagChildResult result =
      RunChild("Save", {path, "All", "0", "a\nb", "[]", "", "Zed", "net"});
  ASSERT_TRUE(Succeeded(result));
  EXPECT_THAT(SectionNames(path), ElementsAre("Global", "Zed", "net"));
  Entries entries = ReadEntries(path);
  EXPECT_EQ("1", entries["zed/levelfatal"]);
  EXPECT_EQ("7", entries["global/logmaxcount"]);
}

// --- Several threads ---

// args: configuration path. Everything that changes the file, at the same time.
CHILD_CASE(ChangeTogether) {
  CGlobal& context = *CGlobal::Instance();
  SetConfigFilePath(args[0].c_str());
  context.InsertModuleName("net", "V1");
  const int rounds = Rounds();
  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    for (int i = 0; i < rounds; ++i)
      EXPECT_EQ(0, context.SaveAttribute2File("All"));
  });
  threads.emplace_back([&] {
    for (int i = 0; i < rounds; ++i) {
      const std::string path = "/tmp/file" + std::to_string(i);
      EXPECT_EQ(0, context.GetOutput().WriteFileName2Ini(i % kSlotCount, path.c_str()));
    }
  });
  threads.emplace_back([&] {
    for (int i = 0; i < rounds; ++i) {
      EXPECT_EQ(0, context.InsertModuleName(("m" + std::to_string(i)).c_str(), "V1"));
    }
  });
  threads.emplace_back([&] {
    for (int i = 0; i < rounds; ++i) {
      context.SetMaxLogCount(i % 10 + 1);
      context.SetLogPath(i % 2 != 0 ? "/tmp/" : "/var/tmp/");
      context.SetInterval("300");
    }
  });
  for (std::thread& thread : threads)
    thread.join();
  return 0;
}

TEST(ConfigSave, ThreadsThatChangeTheFileTogetherLoseNothing) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  tagChildOptions options;
  options.m_LimitMs = 30000;
  ASSERT_TRUE(Succeeded(RunChild("ChangeTogether", {path}, options)));
  Entries entries = ReadEntries(path);
  const int rounds = Rounds();
  for (int i = 0; i < rounds; ++i) {
    EXPECT_EQ("V1", entries["m" + std::to_string(i) + "/version"]) << i;
  }
  for (int slot = 0; slot < std::min(rounds, kSlotCount); ++slot) {
    // The last path that this slot got.
    const int last = slot + (rounds - 1 - slot) / kSlotCount * kSlotCount;
    EXPECT_EQ("/tmp/file" + std::to_string(last),
              entries["filename/filename_" + std::to_string(slot)]);
  }
  EXPECT_EQ(std::to_string((rounds - 1) % kSlotCount), entries["global/logindex"]);
  EXPECT_EQ("1", entries["net/outputdatetime"]);
  EXPECT_THAT(ListFolder(folder.Path()), ElementsAre("kelvik.ini"));
}

}  // namespace
}  // namespace Kelvik
