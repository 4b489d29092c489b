// Saving the settings to the configuration file.

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <thread>

#include "ChildProcess.h"
#include "ConfigEdit.h"
#include "ConfigLoad.h"
#include "Kelvik.h"
#include "Rounds.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

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

// args: configuration path, log path.
CHILD_CASE(SaveEnds) {
  CGlobal& context = *CGlobal::Instance();
  SetConfigFilePath(args[0].c_str());
  context.SetLogMaxSize(0xFFFFF800U);
  context.SetLogMaxDuration(0xFFFFFFFBU);
  context.StoreLogMaxCount(0xFFFFFFF9U);
  context.SetLogPath(args[1].c_str());
  EXPECT_EQ(0, context.SaveAttribute2File("Global"));
  return 0;
}

TEST(ConfigSave, NumbersPast31BitsAndAFullPathAreReadBackAsTheyWere) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const std::string logPath(256, 'p');
  ASSERT_TRUE(Succeeded(RunChild("SaveEnds", {path, logPath})));
  Entries entries = ReadEntries(path);
  EXPECT_EQ("4194302", entries["global/logmaxsize"]);
  EXPECT_EQ("-5", entries["global/logmaxduration"]);
  EXPECT_EQ("-7", entries["global/logmaxcount"]);
  EXPECT_EQ(logPath, entries["global/logfilepath"]);
  EXPECT_EQ(DefaultsWith({{"Result", "0"},
                          {"Size", "4294965248"},
                          {"Duration", "4294967291"},
                          {"Count", "4294967289"},
                          {"Path", logPath}}),
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

// args: configuration path.
CHILD_CASE(SaveHalf) {
  CGlobal& context = *CGlobal::Instance();
  SetConfigFilePath(args[0].c_str());
  EXPECT_EQ(1, EditConfigFile(context, [](xini_file_t& document) {
              SetText(FindSection(document, "net"), "Version", "V2");
              throw std::bad_alloc();
            }));
  return 0;
}

TEST(ConfigSave, ChangeThatRunsOutOfMemoryHalfwayIsNotSaved) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const std::string content = "[net]\nVersion=V1\n";
  ASSERT_TRUE(WriteFile(path, content));
  ASSERT_TRUE(Succeeded(RunChild("SaveHalf", {path})));
  EXPECT_EQ(content, ReadFile(path));
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
  ASSERT_TRUE(WriteFile(path, ManyComments()));
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
