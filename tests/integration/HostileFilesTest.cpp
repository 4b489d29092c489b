// What other users of a folder may have put there: nothing of it is followed, waited for, removed
// or believed. FileSafetyTest.cpp tries the size writer by itself; here whole processes log.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ConfigTools.h"
#include "FakeClock.h"
#include "KelvikExtra.h"
#include "OutputTools.h"
#include "PrintedText.h"

namespace Kelvik {
namespace {

constexpr char kPrecious[] = "precious\n";
constexpr int kLimitMs = 60000;  // saves wait for the disk, which may be busy
constexpr int kHangMs = 20000;   // an open that waits would wait for ever

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
  return status.st_mode & 07777;
}

bool IsLink(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

void UseTime(const std::string& logPath, uint32_t bufferBytes) {
  UseSize(logPath, bufferBytes, 0);
  CGlobal::Instance()->SetLogMaxDuration(1);
}

// --- Modes ---

CHILD_CASE(Modes) {
  const auto mask = static_cast<mode_t>(std::stoul(args.at(2), nullptr, 8));
  CFakeClock clock(kNoon);
  umask(mask);
  const bool isByTime = args.at(3) == "time";
  const uint32_t buffer = args.at(4) == "buffered" ? 1024 : 0;
  if (isByTime) {
    UseTime(args.at(0), buffer);
  } else {
    UseSize(args.at(0), buffer, 100, 3);
  }
  Initialize();
  // The writer may be late: until it has rotated, in whatever way.
  EXPECT_TRUE(WaitUntil(
      [&] {
        for (int i = 0; i < 10; ++i)
          EXPECT_EQ(0, LogBytes('a', 120));
        clock.AdvanceMs(1000);
        EXPECT_EQ(0, WriteBufferContent2File());
        return LogFiles(args.at(1)).size() >= 2;
      },
      kHangMs));
  // A batch that still waits would turn the ring under the listing.
  EXPECT_EQ(0, KelvikExtra_Flush(kHangMs, 0));
  for (const std::string& name : LogFiles(args.at(1)))
    EXPECT_EQ(0600u, ModeOf(args.at(0) + name)) << name;
  return 0;
}

TEST(HostileFiles, LogFilesAreForTheirOwnerAloneWhateverTheUmask) {
  for (const char* mask : {"0", "0777"}) {
    for (const char* rotation : {"size", "time"}) {
      for (const char* buffer : {"direct", "buffered"})
        EXPECT_TRUE(RunCase("Modes", {mask, rotation, buffer}, kLimitMs))
            << mask << rotation << buffer;
    }
  }
}

// --- Names that are taken ---

CHILD_CASE(PlantedByTime) {
  CFakeClock clock(kNoon);
  const std::string target = args.at(0) + "target";
  EXPECT_TRUE(WriteFile(target, kPrecious));
  // Whoever knows the clock knows the names to come.
  for (const char* name : {"20240315120000.log", "20240315120001.log", "20240315120002.log"})
    EXPECT_EQ(0, symlink(args.at(2) == "link" ? "target" : "none", (args.at(0) + name).c_str()));
  EXPECT_EQ(0, mkfifo((args.at(0) + "20240315120003.log").c_str(), 0600));
  EXPECT_EQ(0, mkdir((args.at(0) + "20240315120004.log").c_str(), 0700));
  UseTime(args.at(0), 0);
  const int64_t start = RealClockMs();
  for (int second = 0; second < 10; ++second) {
    LogLine("line");
    clock.AdvanceMs(1000);
  }
  EXPECT_LT(RealClockMs() - start, ScaledMs(kHangMs));
  EXPECT_EQ(kPrecious, ReadFile(target));
  EXPECT_FALSE(Exists(args.at(0) + "none"));
  EXPECT_EQ(0, LogLine("the last of the old file")) << "it goes on once a name is free";
  EXPECT_EQ(0, LogLine("last"));
  const std::string path = args.at(0) + Output().m_FileNames[Output().m_FileIndex];
  EXPECT_NE(std::string::npos, ReadFile(path).find("last\n")) << path;
  return 0;
}

TEST(HostileFiles, PlantedNamesOfTheTimeRotationAreNotFollowed) {
  for (const char* what : {"link", "dangling"})
    EXPECT_TRUE(RunCase("PlantedByTime", {what}, kLimitMs)) << what;
}

CHILD_CASE(PlantedBehindTheBack) {
  // The names of files that were made are exchanged while the ring turns.
  CFakeClock clock(kNoon);
  const std::string victim = args.at(0) + "victim";
  EXPECT_TRUE(WriteFile(victim, kPrecious));
  UseSize(args.at(0), 0, 1, 2);
  std::vector<std::string> links;
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(0, LogLine("line"));
    const std::string path = args.at(0) + Output().m_FileNames[Output().m_FileIndex];
    EXPECT_EQ(0, unlink(path.c_str()));
    EXPECT_EQ(0, symlink("victim", path.c_str()));
    links.push_back(path);
    clock.AdvanceMs(1000);
  }
  EXPECT_EQ(0, LogLine("line"));
  EXPECT_EQ(0, ClearFileInfo());
  EXPECT_EQ(kPrecious, ReadFile(victim)) << "the link is removed, not what it names";
  for (const std::string& path : links)
    EXPECT_FALSE(IsLink(path)) << path;
  return 0;
}

TEST(HostileFiles, RemovalTakesThePlantedLinkAndNotItsTarget) {
  EXPECT_TRUE(RunCase("PlantedBehindTheBack", {}, kLimitMs));
}

// --- Removals ---

// Files that look like the ring's and are not.
const char* const kLookalikes[] = {
    "20240315115959.log",
    "20240315120000_7.log",
    "20240315120000.log.1",
    "20240315120000.lo",
    "20240315120100.log",
    "fileName_0",
    "app.log",
    "20240315120003 .log",
    "202403151200010.log",
};

CHILD_CASE(RingBesideOthers) {
  CFakeClock clock(kNoon);
  EXPECT_EQ(0, SetConfigFilePath((args.at(0) + "kelvik.ini").c_str()));
  const std::string logs = args.at(0) + "logs/";
  const std::string here = args.at(0) + "here/";  // the working folder
  for (const std::string& folder : {logs, here}) {
    EXPECT_EQ(0, mkdir(folder.c_str(), 0700));
    for (const char* name : kLookalikes)
      EXPECT_TRUE(WriteFile(folder + name, kPrecious));
  }
  // The very names of the ring, in another folder.
  for (int second = 0; second < 20; ++second)
    EXPECT_TRUE(WriteFile(here + "202403151200" + std::to_string(10 + second) + ".log", kPrecious));
  EXPECT_EQ(0, chdir(here.c_str()));
  Initialize();
  if (args.at(2) == "size") {
    UseSize(logs, 0, 1, 3);
  } else {
    UseTime(logs, 0);
  }
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(0, LogLine("line"));
    clock.AdvanceMs(i % 3 == 0 ? 0 : 1000);
  }
  EXPECT_EQ(0, ClearFileInfo());
  for (const char* name : kLookalikes) {
    EXPECT_EQ(kPrecious, ReadFile(logs + name)) << name;
    EXPECT_EQ(kPrecious, ReadFile(here + name)) << name;
  }
  EXPECT_EQ(sizeof(kLookalikes) / sizeof(kLookalikes[0]), ListFolder(logs).size())
      << "the ring's own files are gone";
  for (const std::string& name : ListFolder(here))
    EXPECT_EQ(kPrecious, ReadFile(here + name)) << name;
  EXPECT_EQ(sizeof(kLookalikes) / sizeof(kLookalikes[0]) + 20, ListFolder(here).size());
  return 0;
}

TEST(HostileFiles, RemovalTouchesOnlyTheRingsNames) {
  EXPECT_TRUE(RunCase("RingBesideOthers", {"size"}, kLimitMs));
  EXPECT_TRUE(RunCase("RingBesideOthers", {"time"}, kLimitMs));
}

// --- The configuration file ---

CHILD_CASE(ConfigBesideOthers) {
  const std::string victim = args.at(0) + "victim";
  EXPECT_TRUE(WriteFile(victim, kPrecious));
  const std::string temp = args.at(0) + ".kelvik.ini.kelvik-tmp";
  EXPECT_EQ(0, symlink("victim", temp.c_str()));
  for (int number = 1; number < 10; ++number)
    EXPECT_EQ(0, symlink("none", (temp + std::to_string(number)).c_str()));
  EXPECT_EQ(0, SetConfigFilePath((args.at(0) + "kelvik.ini").c_str()));
  Initialize();
  UseSize(args.at(0), 0, 1, 3);
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(0, LogLine("line"));
  EXPECT_EQ(0, CGlobal::Instance()->SaveAttribute2File("all"));
  EXPECT_EQ(kPrecious, ReadFile(victim));
  EXPECT_FALSE(Exists(args.at(0) + "none"));
  EXPECT_TRUE(IsLink(temp));
  EXPECT_EQ("3", ReadEntries(args.at(0) + "kelvik.ini")["global/logmaxcount"])
      << "saved all the same";
  return 0;
}

TEST(HostileFiles, TemporaryNamesOfTheConfigurationAreNotFollowedAllTaken) {
  EXPECT_TRUE(RunCase("ConfigBesideOthers", {}, kLimitMs));
}

CHILD_CASE(ConfigThatIsNone) {
  const std::string path = args.at(0) + "kelvik.ini";
  if (args.at(2) == "fifo") {
    EXPECT_EQ(0, mkfifo(path.c_str(), 0600));
  } else if (args.at(2) == "folder") {
    EXPECT_EQ(0, mkdir(path.c_str(), 0700));
  } else {
    EXPECT_EQ(0, symlink(args.at(2).c_str(), path.c_str()));
  }
  EXPECT_EQ(0, SetConfigFilePath(path.c_str()));
  const int64_t start = RealClockMs();
  Initialize();
  UseSize(args.at(0), 0, 1, 3);
  EXPECT_EQ(0, LogLine("line"));
  EXPECT_EQ(0, LogLine("line"));
  CGlobal::Instance()->SaveAttribute2File("all");
  EXPECT_LT(RealClockMs() - start, ScaledMs(kHangMs));
  return 0;
}

TEST(HostileFiles, ConfigurationThatIsNoFileHangsNothing) {
  for (const char* what : {"fifo", "folder", "/dev/null", "/dev/zero", "/dev/tty", "kelvik.ini"})
    EXPECT_TRUE(RunCase("ConfigThatIsNone", {what}, kLimitMs)) << what;
}

// Texts that some program or other would run, expand or format.
const char* const kTexts[] = {
    "`touch ran`",     "$(touch ran)",     "|touch ran",         ";touch ran;",
    "&&touch ran",     "$HOME/${PATH}/~/", "%n%n%n%s%s%s%p%1$n", "../../../../../../../../tmp/",
    "\\x41\\n\\0\\\\", "@include ran",     "!touch ran",         "<ran>ran",
};

CHILD_CASE(HostileConfig) {
  CPrintedText printed;
  EXPECT_EQ(0, chdir(args.at(0).c_str()));
  const std::string path = args.at(0) + "kelvik.ini";
  for (const char* hostile : kTexts) {
    const std::string text = hostile;
    std::string content = "[Global]\nLogFilePath=" + args.at(0) + text + "\n";
    for (const char* key : {"OutputFile", "logMaxSize", "logMaxCount", "bufferSize", "LevelDbg",
                            "Overflow", "Version", "LogIndex"}) {
      content += std::string(key) + "=" + text + "\n";
    }
    content += "[" + text + "]\nLevelDbg=" + text + "\n[fileName]\nfileName_0=" + text + "\n; " +
               text + "\n" + text + "\n";
    EXPECT_TRUE(WriteFile(path, content));
    const tagChildResult result = RunChild("ReadHostile", {path, text}, kLimitMs);
    EXPECT_TRUE(Succeeded(result)) << text;
    EXPECT_EQ(args.at(0) + text, ParseState(result.m_Output)["Path"]);
    EXPECT_EQ(text, ParseState(result.m_Output)["Name0"]);
  }
  EXPECT_FALSE(Exists(args.at(0) + "ran"));
  return 0;
}

CHILD_CASE(ReadHostile) {
  CGlobal& context = *CGlobal::Instance();
  std::string module = args.at(1);
  std::string version = args.at(1);
  EXPECT_EQ(0, SetConfigFilePath(args.at(0).c_str()));
  Initialize();
  EXPECT_EQ(0, registerModule(module.data(), version.data()));
  EXPECT_EQ(0, KLog(eLogLevelError, module.c_str(), module.c_str(), "%s\n", module.c_str()));
  // The display expands the date in the path, and nothing else.
  const int null = open("/dev/null", O_WRONLY);
  EXPECT_EQ(0, context.ShowAttribute(null, module.c_str(), module.c_str()));
  EXPECT_EQ(0, context.ShowModule(null, module.c_str(), module.c_str()));
  EXPECT_EQ(0, context.SaveAttribute2File("all"));
  std::printf("\n");
  PrintState();
  return 0;
}

TEST(HostileFiles, TextOfTheConfigurationIsNothingButText) {
  EXPECT_TRUE(RunCase("HostileConfig", {}, 2 * kLimitMs));
}

// --- Numbers ---

const char* const kNumbers[] = {
    "0",
    "-1",
    "-2",
    "10",
    "128",
    "65536",
    "2097151",
    "2097152",
    "-2097153",
    "2147483647",
    "2147483648",
    "-2147483648",
    "-2147483649",
    "4294967295",
    "4294967296",
    "-4294967296",
    "9223372036854775808",
    "99999999999999999999999999999999",
    "-99999999999999999999999999999999",
    "1e9",
    "",
    "nan",
};

CHILD_CASE(ReadNumbers) {
  CPrintedText printed;
  EXPECT_EQ(0, SetConfigFilePath((args.at(0) + "kelvik.ini").c_str()));
  Initialize();
  CGlobal& context = *CGlobal::Instance();
  EXPECT_GE(Output().m_FileIndex, 0);
  EXPECT_LT(Output().m_FileIndex, kSlotCount);
  const char on = 1;
  SetAttribute(eAttributeLevel, eLogLevelInfo, &on, 1);
  SwitchTerminal(false);
  SwitchFile(true);
  for (int i = 0; i < 4; ++i)
    LogLine("a line");
  WriteBufferContent2File();
  EXPECT_EQ(0, context.SaveAttribute2File("all"));
  EXPECT_EQ(0, ClearFileInfo());
  return 0;
}

TEST(HostileFiles, NumbersOfTheConfigurationPastEveryLimitAreSafe) {
  for (const char* number : kNumbers) {
    const CTempDir folder;
    const std::string n = number;
    const std::string content =
        "[Global]\nOutputConsole=" + n + "\nOutputSystem=0\nlogMaxSize=" + n +
        "\nlogMaxDuration=" + n + "\nlogMaxCount=" + n + "\nbufferSize=" + n +
        "\nwriteInterval=" + n + "\nLevelInfo=" + n + "\nLogIndex=" + n +
        "\nLogFilePath=" + folder.LogPath() + "\n[fileName]\nfileName_0=" + folder.File("a.log") +
        "\nfileName_" + n + "=" + folder.File("b.log") + "\n";
    ASSERT_TRUE(WriteFile(folder.File("kelvik.ini"), content));
    EXPECT_TRUE(Succeeded(RunChild("ReadNumbers", {folder.LogPath()}, kLimitMs))) << number;
  }
}

}  // namespace
}  // namespace Kelvik
