// The index of the log files in the configuration file, and what clears the ring.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "ChildProcess.h"
#include "ConfigLoad.h"
#include "Guard.h"
#include "Kelvik.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

COutput& Output() {
  return CGlobal::Instance()->GetOutput();
}

// Every record goes to a file at once, in files of the given size (bytes; 0: time rotation).
void UseFilesOnly(const std::string& logPath, uint32_t maxSize, uint32_t count) {
  CGlobal& context = *CGlobal::Instance();
  context.SetLogPath(logPath.c_str());
  context.SetLogMaxSize(maxSize);
  context.StoreLogMaxCount(count);
  context.m_Attribute.m_BufferSize = 0;
  context.m_Attribute.m_OutputConsole = 0;
  context.m_Attribute.m_OutputFile = 1;
  context.m_Attribute.m_OutputDateTime = 0;
  context.m_Attribute.m_LevelMask = 0x3e;
}

void LogLine(const std::string& text) {
  KLog(eLogLevelInfo, nullptr, nullptr, "%s\n", text.c_str());
}

// --- Writing entries ---

// args: configuration path.
CHILD_CASE(WriteEntries) {
  SetConfigFilePath(args[0].c_str());
  char path[] = "/tmp/20240315083000.log";
  EXPECT_EQ(0, Output().WriteFileName2Ini(3, path));
  EXPECT_EQ(0, Output().WriteFileName2Ini(0, "/tmp/20240315083001.log"));
  EXPECT_EQ(0, Output().WriteFileName2Ini(3, "/tmp/20240315083002.log"));
  EXPECT_EQ(3, Output().WriteFileName2Ini(1, nullptr));
  return 0;
}

TEST(ConfigIndex, EntryHoldsThePathAndTheCurrentSlot) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(WriteFile(path, "# mine\n[Global]\nlogMaxCount=4\n"));
  ASSERT_TRUE(Succeeded(RunChild("WriteEntries", {path})));
  const Entries expected = {{"global/logmaxcount", "4"},
                            {"global/logindex", "3"},
                            {"filename/filename_0", "/tmp/20240315083001.log"},
                            {"filename/filename_3", "/tmp/20240315083002.log"}};
  EXPECT_EQ(expected, ReadEntries(path));
  EXPECT_THAT(ReadFile(path), StartsWith("# mine\n"));
  EXPECT_THAT(KeyNames(path, "fileName"), ElementsAre("fileName_3", "fileName_0"));
}

CHILD_CASE(WriteEntryWithoutPath) {
  EXPECT_EQ(0, Output().WriteFileName2Ini(3, "/tmp/x.log"));
  return 0;
}

TEST(ConfigIndex, WithoutConfigurationPathNothingIsWrittenAndNothingFails) {
  const CTempDir folder;
  tagChildOptions options;
  options.m_Folder = folder.Path();
  EXPECT_TRUE(Succeeded(RunChild("WriteEntryWithoutPath", {}, options)));
  EXPECT_THAT(ListFolder(folder.Path()), IsEmpty());
}

// args: configuration path, log path whose folder does not exist yet, the folder.
CHILD_CASE(EntryBeforeFile) {
  SetConfigFilePath(args[0].c_str());
  UseFilesOnly(args[1], 1024, 3);
  EXPECT_EQ(3, Output().WriteLogBySzie("a\n", 2));
  const std::string named = ReadEntries(args[0])["filename/filename_0"];
  EXPECT_THAT(named, StartsWith(args[1]));
  EXPECT_EQ("0", ReadEntries(args[0])["global/logindex"]);
  EXPECT_FALSE(Exists(named));
  // The next call makes this very file.
  EXPECT_EQ(0, mkdir(args[2].c_str(), 0700));
  EXPECT_EQ(0, Output().WriteLogBySzie("b\n", 2));
  EXPECT_EQ("b\n", ReadFile(named));
  EXPECT_EQ(1u, LogFiles(args[2]).size());
  return 0;
}

TEST(ConfigIndex, EntryStandsBeforeItsFileIsMade) {
  const CTempDir folder;
  EXPECT_TRUE(Succeeded(RunChild(
      "EntryBeforeFile", {folder.File("kelvik.ini"), folder.File("logs/"), folder.File("logs")})));
}

// args: configuration path, log path.
CHILD_CASE(EntryForEachFile) {
  SetConfigFilePath(args[0].c_str());
  UseFilesOnly(args[1], 10, 3);
  for (int i = 0; i < 8; ++i) {
    LogLine("0123456789");
    const int slot = Output().m_FileIndex;
    Entries entries = ReadEntries(args[0]);
    EXPECT_EQ(std::to_string(slot), entries["global/logindex"]);
    EXPECT_EQ(args[1] + Output().m_FileNames[slot],
              entries["filename/filename_" + std::to_string(slot)]);
    EXPECT_TRUE(Exists(entries["filename/filename_" + std::to_string(slot)]));
  }
  return 0;
}

TEST(ConfigIndex, EveryNewFileOfTheRingIsEntered) {
  const CTempDir folder;
  ASSERT_TRUE(
      Succeeded(RunChild("EntryForEachFile", {folder.File("kelvik.ini"), folder.LogPath()})));
  EXPECT_EQ(3u, LogFiles(folder.Path()).size());
}

// --- Restoring the ring ---

Entries LoadText(const std::string& path, const std::string& content) {
  EXPECT_TRUE(WriteFile(path, content));
  return Load(path);
}

// The ring as "index/size:name,name,..." up to the last name.
std::string Ring(Entries state) {
  std::string names;
  std::string gap;
  for (int i = 0; i < kSlotCount; ++i) {
    const std::string name = state["Name" + std::to_string(i)];
    if (!name.empty()) names += gap + name;
    gap = name.empty() ? gap + "," : ",";
  }
  return state["Index"] + "/" + state["FileSize"] + ":" + names;
}

TEST(ConfigIndex, RingIsRestoredAsFarAsTheCountGoes) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const std::string current = folder.File("current.log");
  ASSERT_TRUE(WriteFile(current, "0123456789"));
  struct tagCase {
    std::string m_Global;
    std::string m_Files;
    std::string m_Ring;
  };
  const std::string three = "fileName_0=/a\nfileName_1=" + current + "\nfileName_2=/c d/\n";
  const tagCase cases[] = {
      {"logMaxCount=3\nLogIndex=1\n", three, "1/10:/a," + current + ",/c d/"},
      {"logMaxCount=10\nLogIndex=1\n", three, "1/10:/a," + current + ",/c d/"},
      // Lowered: what is at or above the count stays where it is, in the file.
      {"logMaxCount=2\nLogIndex=1\n", three, "1/10:/a," + current},
      {"logMaxCount=1\nLogIndex=1\n", three, "0/0:/a"},
      {"logMaxCount=0\nLogIndex=0\n", three, "0/0:"},
      {"logMaxCount=-3\nLogIndex=0\n", three, "0/0:"},
      // The default count.
      {"LogIndex=1\n", three, "1/10:/a," + current},
      // No index, an index that is none, one that nothing has.
      {"logMaxCount=3\n", three, "0/0:/a," + current + ",/c d/"},
      {"logMaxCount=3\nLogIndex=x\n", three, "0/0:/a," + current + ",/c d/"},
      {"logMaxCount=3\nLogIndex=3\n", three, "0/0:/a," + current + ",/c d/"},
      {"logMaxCount=3\nLogIndex=-2\n", three, "0/0:/a," + current + ",/c d/"},
      {"logMaxCount=10\nLogIndex=2147483647\n", three, "0/0:/a," + current + ",/c d/"},
      // A slot without a name is made the current one all the same.
      {"logMaxCount=5\nLogIndex=3\n", three, "3/0:/a," + current + ",/c d/"},
      {"logMaxCount=5\nLogIndex=4\n", "fileName_1=/b\n", "4/0:,/b"},
      // A file that is gone has no size.
      {"logMaxCount=3\nLogIndex=0\n", three, "0/0:/a," + current + ",/c d/"},
      // Rotation by time takes no size.
      {"logMaxSize=0\nlogMaxCount=3\nLogIndex=1\n", three, "1/0:/a," + current + ",/c d/"},
      {"logMaxSize=-2\nlogMaxCount=3\nLogIndex=1\n", three, "1/0:/a," + current + ",/c d/"},
  };
  for (const tagCase& row : cases) {
    const std::string content = "[Global]\n" + row.m_Global + "[fileName]\n" + row.m_Files;
    EXPECT_EQ(row.m_Ring, Ring(LoadText(path, content))) << row.m_Global;
  }
  EXPECT_EQ("0123456789", ReadFile(current)) << "reading the index touches no file";
}

TEST(ConfigIndex, SizePast31BitsCountsAsTheLargest) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const std::string big = folder.File("big.log");
  const int fd = open(big.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_NE(-1, fd);
  for (const int64_t size : {INT64_C(0x7FFFFFFF), INT64_C(0x80000000), INT64_C(0x100000005)}) {
    ASSERT_EQ(0, ftruncate(fd, static_cast<off_t>(size))) << size;
    const std::string content = "[Global]\nLogIndex=0\n[fileName]\nfileName_0=" + big + "\n";
    EXPECT_EQ("0/2147483647:" + big, Ring(LoadText(path, content))) << size;
  }
  close(fd);
}

TEST(ConfigIndex, PathTooLongForItsFieldIsKeptAsABareNameUnderTheLogPathOnly) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  const std::string deep = "/" + std::string(120, 'd') + "/";
  const std::string name = "20240315083000.log";
  struct tagCase {
    std::string m_File;
    std::string m_Kept;
  };
  const tagCase cases[] = {
      {deep + name, name},
      {"/" + std::string(126, 'x'), "/" + std::string(126, 'x')},  // 127 characters fit
      {"/" + std::string(127, 'x'), ""},
      {deep + "sub/" + name, ""},
      {deep + std::string(128, 'n'), ""},
  };
  for (const tagCase& row : cases) {
    const std::string content = "[Global]\nLogFilePath=" + deep +
                                "\nLogIndex=0\n[fileName]\nfileName_0=" + row.m_File + "\n";
    EXPECT_EQ("0/0:" + row.m_Kept, Ring(LoadText(path, content))) << row.m_File;
  }
}

CHILD_CASE(RestoreByHand) {
  COutput& output = Output();
  for (const int slot : {-1, kSlotCount, INT_MIN, INT_MAX}) {
    EXPECT_EQ(0, output.SetLogName(slot, "/tmp/x"));
    EXPECT_EQ(0, output.SetCurrentFileInfo(slot, 5));
  }
  EXPECT_EQ(0, output.SetLogName(0, nullptr));
  EXPECT_EQ(0, output.SetLogName(0, ""));
  for (const auto& name : output.m_FileNames)
    EXPECT_STREQ("", name);
  EXPECT_EQ(0, output.m_FileIndex);
  EXPECT_EQ(0, output.m_FileSize);

  EXPECT_EQ(0, output.SetLogName(9, "/tmp/longer"));
  EXPECT_EQ(0, output.SetLogName(9, "/tmp/x"));
  EXPECT_STREQ("/tmp/x", output.m_FileNames[9]);

  // A path of the working folder, under its own log path and under another one.
  const std::string here(125, 'h');
  CGlobal::Instance()->SetLogPath("app-");
  EXPECT_EQ(0, output.SetLogName(0, "app-20240315120000_1.log"));
  EXPECT_STREQ("20240315120000_1.log", output.m_FileNames[0]);
  EXPECT_EQ(0, output.SetLogName(0, "old-20240315120000.log"));
  EXPECT_STREQ("./old-20240315120000.log", output.m_FileNames[0]);
  EXPECT_EQ(0, output.SetLogName(0, "a19-characters-name"));
  EXPECT_STREQ("./a19-characters-name", output.m_FileNames[0]);
  EXPECT_EQ(0, output.SetLogName(0, "20240315120000.log"));
  EXPECT_STREQ("20240315120000.log", output.m_FileNames[0]) << "18 characters are a bare name";
  EXPECT_EQ(0, output.SetLogName(0, here.c_str()));
  EXPECT_EQ("./" + here, output.m_FileNames[0]);
  EXPECT_EQ(0, output.SetLogName(0, (here + "x").c_str()));
  EXPECT_EQ("./" + here, output.m_FileNames[0]) << "a longer one is not restored";

  EXPECT_EQ(0, output.SetCurrentFileInfo(4, 77));  // no name
  EXPECT_EQ(4, output.m_FileIndex);
  EXPECT_EQ(0, output.m_FileSize);
  EXPECT_EQ(0, output.SetCurrentFileInfo(9, 77));
  EXPECT_EQ(9, output.m_FileIndex);
  EXPECT_EQ(77, output.m_FileSize);
  for (const uint32_t size : {0u, 0x80000000u, 0xFFFFFFFFu}) {
    CGlobal::Instance()->SetLogMaxSize(size);  // no rotation by size
    EXPECT_EQ(0, output.SetCurrentFileInfo(9, 88));
    EXPECT_EQ(77, output.m_FileSize);
  }
  CGlobal::Instance()->SetLogMaxSize(1);
  EXPECT_EQ(0, output.SetCurrentFileInfo(9, 88));
  EXPECT_EQ(88, output.m_FileSize);
  return 0;
}

TEST(ConfigIndex, SettersTakeOnlySlotsOfTheRing) {
  EXPECT_TRUE(Succeeded(RunChild("RestoreByHand")));
}

// --- Clearing ---

// args: configuration path. Four restored files, of which the count reaches three.
CHILD_CASE(ClearRestored) {
  SetConfigFilePath(args[0].c_str());
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(1, Output().m_FileIndex);
  EXPECT_EQ(0, ClearFileInfo());
  PrintState();
  return 0;
}

TEST(ConfigIndex, ClearRemovesFilesAndEntriesBelowTheCount) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  std::string content = "; mine\n[Global]\nlogMaxCount=3\nLogIndex=1\nx=1\n[fileName]\n";
  for (int i = 0; i < 4; ++i) {
    const std::string file = folder.File("f" + std::to_string(i) + ".log");
    if (i != 2) {
      ASSERT_TRUE(WriteFile(file, "x"));  // the third is gone already
    }
    content += "fileName_" + std::to_string(i) + "=" + file + "\n";
  }
  ASSERT_TRUE(WriteFile(path, content));
  const tagChildResult result = RunChild("ClearRestored", {path});
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ("0/0:", Ring(ParseState(result.m_Output)));
  EXPECT_THAT(LogFiles(folder.Path()), ElementsAre("f3.log"));
  Entries entries = ReadEntries(path);
  EXPECT_EQ(0u, entries.count("global/logindex"));
  EXPECT_EQ("1", entries["global/x"]);
  EXPECT_EQ("3", entries["global/logmaxcount"]);
  EXPECT_THAT(KeyNames(path, "fileName"), ElementsAre("fileName_3"));
  EXPECT_THAT(ReadFile(path), StartsWith("; mine\n"));
}

// args: configuration path ("" for none), log path, log folder.
CHILD_CASE(ClearOwn) {
  if (!args[0].empty()) SetConfigFilePath(args[0].c_str());
  UseFilesOnly(args[1], 10, 3);
  for (int i = 0; i < 7; ++i)
    LogLine("0123456789");
  EXPECT_EQ(3u, LogFiles(args[2]).size());
  const int descriptors = OpenDescriptors();
  EXPECT_EQ(0, ClearFileInfo());
  EXPECT_THAT(LogFiles(args[2]), IsEmpty());
  EXPECT_EQ(descriptors - 1, OpenDescriptors());
  EXPECT_EQ(-1, Output().m_CurrentFd);
  EXPECT_EQ(0, Output().m_FileIndex);
  EXPECT_EQ(0, Output().m_FileSize);
  LogLine("again");
  EXPECT_EQ(1u, LogFiles(args[2]).size());
  EXPECT_EQ("again\n", ReadFile(args[1] + LogFiles(args[2])[0]));
  return 0;
}

TEST(ConfigIndex, ClearEndsTheFilesOfThisRunAndTheRingBeginsAnew) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  ASSERT_TRUE(Succeeded(RunChild("ClearOwn", {path, folder.LogPath(), folder.Path()})));
  Entries entries = ReadEntries(path);
  EXPECT_EQ("0", entries["global/logindex"]);
  EXPECT_THAT(KeyNames(path, "fileName"), ElementsAre("fileName_0"));
}

TEST(ConfigIndex, ClearWorksWithoutAConfigurationFile) {
  const CTempDir folder;
  EXPECT_TRUE(Succeeded(RunChild("ClearOwn", {"", folder.LogPath(), folder.Path()})));
}

CHILD_CASE(ClearDropsBuffers) {
  CGlobal& context = *CGlobal::Instance();
  UseFilesOnly(args[0], 1024 * 1024, 3);
  context.SetBufferSize("4");
  EXPECT_EQ(0, Initialize());
  LogLine("waits in the buffer");
  EXPECT_EQ(0, ClearFileInfo());
  {
    CGuard guard(&Output().m_BufferMutex);
    EXPECT_EQ(0, Output().m_FrontLength);
    EXPECT_EQ(0, Output().m_BackLength);
  }
  return 0;
}

TEST(ConfigIndex, ClearDropsWhatTheBuffersHold) {
  const CTempDir folder;
  ASSERT_TRUE(Succeeded(RunChild("ClearDropsBuffers", {folder.LogPath()})));
  for (const std::string& name : LogFiles(folder.Path())) {
    EXPECT_EQ("", ReadFile(folder.File(name)));
  }
}

CHILD_CASE(DiskFullCounts) {
  CGlobal& context = *CGlobal::Instance();
  context.SetMaxLogCount(3);
  for (const uint32_t expected : {2u, 1u, 1u}) {
    Output().m_DiskFull = 1;
    EXPECT_EQ(0, Output().ClearFile());
    EXPECT_EQ(0, Output().m_DiskFull);
    const uint32_t count = context.m_Attribute.m_LogMaxCount;
    EXPECT_EQ(expected, count);
  }
  return 0;
}

TEST(ConfigIndex, EachFullDiskKeepsOneFileFewerDownToOne) {
  EXPECT_TRUE(Succeeded(RunChild("DiskFullCounts")));
}

CHILD_CASE(CloseFiles) {
  COutput& output = Output();
  EXPECT_EQ(0, output.CloseFile());  // nothing open
  const int before = OpenDescriptors();
  // The same descriptor in both places is closed once.
  output.m_CurrentFd = output.m_FileFds[0] = open("/dev/null", O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(0, output.CloseFile());
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(-1, output.m_CurrentFd);
  EXPECT_EQ(-1, output.m_FileFds[0]);
  // Different ones are both closed; each alone too.
  for (int mask = 1; mask < 4; ++mask) {
    if ((mask & 1) != 0) output.m_CurrentFd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if ((mask & 2) != 0) output.m_FileFds[0] = open("/dev/null", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(0, output.CloseFile());
    EXPECT_EQ(before, OpenDescriptors()) << mask;
    EXPECT_EQ(-1, output.m_CurrentFd);
    EXPECT_EQ(-1, output.m_FileFds[0]);
  }
  return 0;
}

TEST(ConfigIndex, CloseFileClosesEachDescriptorOnce) {
  EXPECT_TRUE(Succeeded(RunChild("CloseFiles")));
}

// args: log path, log folder.
CHILD_CASE(CloseAndGoOn) {
  UseFilesOnly(args[0], 1024 * 1024, 3);
  LogLine("one");
  EXPECT_EQ(0, Output().CloseFile());
  LogLine("two");
  EXPECT_EQ(1u, LogFiles(args[1]).size());
  EXPECT_EQ("one\ntwo\n", ReadFile(args[0] + LogFiles(args[1])[0]));
  return 0;
}

TEST(ConfigIndex, NextRecordReopensAClosedFile) {
  const CTempDir folder;
  EXPECT_TRUE(Succeeded(RunChild("CloseAndGoOn", {folder.LogPath(), folder.Path()})));
}

}  // namespace
}  // namespace Kelvik
