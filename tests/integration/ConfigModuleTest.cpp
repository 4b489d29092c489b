// What the configuration file says about a module, and what a registration writes into it.

#include <gmock/gmock.h>

#include "ChildProcess.h"
#include "ConfigTools.h"
#include "IniFile.h"
#include "Kelvik.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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
      {"[net]\nLevelError=-2\n[Global]\nLevelError=1\n", "20"},
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

CHILD_CASE(ReadWithoutPath) {
  tagAttribute attribute = {};
  attribute.m_LevelMask = 0x12;
  EXPECT_EQ(3, CGlobal::Instance()->ReadAttributeByConfigFile("net", attribute, "V1"));
  EXPECT_EQ(0x12, attribute.m_LevelMask);
  return 0;
}

TEST(ConfigModule, WithoutPathNothingIsPrintedAndTheSnapshotStands) {
  const tagChildResult result = RunChild("ReadWithoutPath");
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ("", result.m_Output);
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

}  // namespace
}  // namespace Kelvik
