// The terminal: colours by level, the sink stage called directly, and displays on a named terminal.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "FakeClock.h"
#include "Guard.h"
#include "PseudoTerminal.h"
#include "RecordTools.h"
#include "SyslogCapture.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

CHILD_CASE(Colours) {
  CPrintedText printed;
  UseBareRecords();
  const struct {
    int m_Level;
    const char* m_Before;
    const char* m_After;
  } colours[] = {{1, "\033[0m", ""},
                 {2, "\033[0m", ""},
                 {3, "\033[0m", ""},
                 {4, "\033[33m", "\033[0m"},
                 {5, "\033[31m", "\033[0m"}};
  for (const auto& row : colours) {
    const std::string before = row.m_Before;
    EXPECT_EQ(0, LogList(row.m_Level, "net", "rx", "50%% %s\n", "\033[1m"));
    EXPECT_EQ(before + "[net][rx] 50% \033[1m\n" + row.m_After, printed.Take());
    EXPECT_EQ(0, LogListAt(row.m_Level, "net", "rx", "a.c", nullptr, -1, "x\n"));
    EXPECT_EQ(before + "[net][rx] [a.c] x\n" + row.m_After, printed.Take());
    // A raw record: the prefix is not coloured, and not printed at all when it is empty.
    EXPECT_EQ(0, Engine().Logs(Level(row.m_Level), "net", "rx", "%s\n", 3));
    EXPECT_EQ("[net][rx] " + before + "%s\n" + row.m_After, printed.Take());
    EXPECT_EQ(0, Engine().Logs(Level(row.m_Level), nullptr, nullptr, "x\n", 2));
    EXPECT_EQ(before + "x\n" + row.m_After, printed.Take());
  }
  return 0;
}

TEST(Terminal, ErrorsAreYellowFatalOnesRedAndTheOthersPlain) {
  EXPECT_TRUE(Passes("Colours"));
}

CHILD_CASE(SinkStage) {
  CPrintedText printed;
  UseBareRecords();
  Store(Global().m_OutputSystem, true);
  Global().m_LevelMask = 0;  // the stage does not ask for the level
  const tagAbsoluteTime time = {};
  const std::string text = "0123456789 text\n";
  for (const int skip : {0, 11, 16}) {
    CSyslogCapture::Clear();
    EXPECT_EQ(0, Engine().Logs(Level(5), "net", "rx", text.c_str(), static_cast<int>(text.size()),
                               time, skip));
    EXPECT_EQ(Shown(5, text), printed.Take());
    EXPECT_EQ(text.substr(static_cast<size_t>(skip)), CSyslogCapture::Records().at(0).m_Text);
  }
  return 0;
}

TEST(Terminal, SinkStageShowsTheWholeRecordAndHidesTheSkippedPartFromSyslog) {
  EXPECT_TRUE(Passes("SinkStage"));
}

CHILD_CASE(FileRefuses) {
  CPrintedText printed;
  UseBareRecords();
  Store(Global().m_OutputSystem, true);
  Store(Global().m_OutputFile, true);
  for (int32_t* flag : {&Engine().m_DiskFull, &Engine().m_BufferReset}) {
    CSyslogCapture::Clear();
    *flag = 1;
    EXPECT_EQ(3, LogList(2, "net", "rx", "x\n"));
    EXPECT_EQ(Shown(2, "[net][rx] x\n"), printed.Take());
    EXPECT_EQ(1u, CSyslogCapture::Count());
    *flag = 0;
  }
  return 0;
}

TEST(Terminal, AndSyslogHaveTheRecordThatTheFileRefuses) {
  EXPECT_TRUE(Passes("FileRefuses"));
}

CHILD_CASE(LocksAreHeld) {
  CPrintedText printed;
  UseBareRecords();
  Store(Global().m_OutputSystem, true);
  CGuard order(&Engine().m_BufferMutex);
  CGuard hold(&Engine().m_WriteMutex);
  std::thread([] {
    EXPECT_EQ(0, LogList(2, "net", "rx", "x\n"));
    EXPECT_EQ(0, Engine().Logs(Level(2), "net", "rx", "y\n", 2));
  }).join();
  EXPECT_EQ(Shown(2, "[net][rx] x\n") + "[net][rx] " + Shown(2, "y\n"), printed.Take());
  EXPECT_EQ(2u, CSyslogCapture::Count());
  return 0;
}

TEST(Terminal, AndSyslogWaitForNoLockOfTheFiles) {
  EXPECT_TRUE(Passes("LocksAreHeld"));
}

// --- Bad levels, which only a direct call can bring here ---

struct tagBadLevelCase {
  const char* m_Name;
  int m_Line;
  int (*m_Call)(eLogLevel level);
};

const tagBadLevelCase kBadLevelCalls[] = {
    {"formatted", 1600,
     [](eLogLevel level) {
       const tagAbsoluteTime time = {};
       return Engine().Logs(level, "net", "rx", "text\n", 5, time, 0);
     }},
    {"raw", 1043, [](eLogLevel level) { return Engine().Logs(level, "net", "rx", "text\n", 5); }},
    {"raw with place", 1409,
     [](eLogLevel level) {
       return Engine().Logs(level, "net", "rx", "a.c", "main", 1, "text\n", 5);
     }},
};

CHILD_CASE(BadSinkLevels) {
  CPrintedText printed;
  CTempDir folder;
  UseBareRecords();
  Global().m_LevelMask = 0xff;  // of the bits 0, 6 and 7 nothing depends in a proper call
  Context().SetLogPath(folder.LogPath().c_str());
  Global().m_BufferSize = 0;
  Store(Global().m_OutputSystem, true);
  for (const tagBadLevelCase& row : kBadLevelCalls) {
    for (const int level : {0, 6, 7}) {
      SCOPED_TRACE(testing::Message() << row.m_Name << " level " << level);
      CSyslogCapture::Clear();
      EXPECT_EQ(3, row.m_Call(Level(level)));
      const std::string shown = printed.Take();
      const std::string report = "[Kelvik][Internal] Output Logs " + std::to_string(row.m_Line) +
                                 " level invalid : " + std::to_string(level) + "\n";
      EXPECT_NE(std::string::npos, shown.find("\033[0mtext\n")) << shown;
      EXPECT_NE(std::string::npos, shown.find(Shown(4, report))) << shown;
      EXPECT_LT(shown.find("text\n"), shown.find(report)) << "the terminal comes first";
      const std::vector<tagSyslogRecord> records = CSyslogCapture::Records();
      EXPECT_EQ(1u, records.size());
      EXPECT_EQ(report, records.at(0).m_Text) << "the record itself does not reach syslog";
      EXPECT_EQ(3, records.at(0).m_Priority);
    }
  }
  // Levels without a bit at all.
  const tagAbsoluteTime time = {};
  for (const int level : {INT_MIN, -1, 8, 32, 37, 1000, INT_MAX}) {
    EXPECT_EQ(3, Engine().Logs(Level(level), "net", "rx", "text\n", 5, time, 0)) << level;
    const std::string shown = printed.Take();
    EXPECT_NE(std::string::npos,
              shown.find("Output Logs 1600 level invalid : " + std::to_string(level) + "\n"))
        << shown;
  }
  return 0;
}

TEST(Terminal, BadLevelOfADirectCallIsReportedWhereSyslogIsOn) {
  EXPECT_TRUE(Passes("BadSinkLevels"));
}

CHILD_CASE(BadLevelAndFile) {
  CPrintedText printed;
  CTempDir folder;
  UseBareRecords();
  Global().m_LevelMask = 0xff & ~0x10;  // no report, which would go to the file
  Context().SetLogPath(folder.LogPath().c_str());
  Global().m_BufferSize = 0;
  Store(Global().m_OutputFile, true);
  EXPECT_EQ(0, LogList(2, "net", "rx", "first\n"));
  const std::vector<std::string> files = ListFolder(folder.Path());
  EXPECT_EQ(1u, files.size());
  Store(Global().m_OutputSystem, true);
  for (const tagBadLevelCase& row : kBadLevelCalls)
    EXPECT_EQ(3, row.m_Call(Level(6))) << row.m_Name;
  EXPECT_EQ(files, ListFolder(folder.Path()));
  EXPECT_EQ("[net][rx] first\n", ReadFile(folder.File(files.at(0)))) << "the file is not touched";
  EXPECT_EQ(0u, CSyslogCapture::Count());
  return 0;
}

TEST(Terminal, BadLevelDoesNotTouchTheFile) {
  EXPECT_TRUE(Passes("BadLevelAndFile"));
}

CHILD_CASE(UnknownBits) {
  CPrintedText printed;
  // A shift by the level would have no meaning for these; their bit counts as clear.
  Global().m_LevelMask = 0xff;
  for (const int level : {INT_MIN, -1, 8, 31, 32, 33, 64, INT_MAX}) {
    EXPECT_NE(0, LogList(level, "net", "rx", "text\n")) << level;
    EXPECT_NE(0, Engine().Logs(Level(level), "net", "rx", "text\n", 5)) << level;
  }
  EXPECT_EQ(std::string::npos, printed.Take().find("text\n"));
  return 0;
}

TEST(Terminal, LevelWithoutABitIsNotShown) {
  EXPECT_TRUE(Passes("UnknownBits"));
}

// --- Displays on a named terminal ---

struct tagShown {
  int m_Calls = 0;
  int m_Fd = -1;
  std::string m_Module;
  std::string m_Title;
};

int Show(int fd, const char* module, const char* title, void* context) {
  tagShown& shown = *static_cast<tagShown*>(context);
  ++shown.m_Calls;
  shown.m_Fd = fd;
  shown.m_Module = module;
  shown.m_Title = title;
  EXPECT_EQ(6, write(fd, "state\n", 6));
  EXPECT_NE(-1, fcntl(fd, F_GETFL));
  EXPECT_EQ(O_RDWR, fcntl(fd, F_GETFL) & O_ACCMODE);
  return 3;
}

CHILD_CASE(NamedTerminal) {
  CPseudoTerminal terminal;
  tagShown shown;
  const char* const path = terminal.Path().c_str();
  const char* const nothing = nullptr;
  EXPECT_EQ(0, ModuleStateRegister("net", "state", Show, &shown));
  const int before = OpenDescriptors();
  EXPECT_EQ(3, Engine().LogTerminal(nothing, 1, "net", 1, "state", 1));
  EXPECT_EQ(3, Engine().LogTerminal(path, 1, nothing, 1, "state", 1));
  EXPECT_EQ(3, Engine().LogTerminal(path, 1, "net", 1, nothing, 1));
  EXPECT_EQ(3, Engine().LogTerminal("", 1, "net", 1, "state", 1));
  EXPECT_EQ(3, Engine().LogTerminal(path, 1, "", 1, "state", 1));
  EXPECT_EQ(3, Engine().LogTerminal(path, 1, "net", 1, "", 1));
  EXPECT_EQ(3, Engine().LogTerminal(path, 0, "net", 1, "state", 1));
  EXPECT_EQ(3, Engine().LogTerminal(path, 1, "net", 0, "state", 1));
  EXPECT_EQ(3, Engine().LogTerminal(path, 1, "net", 1, "state", 0));
  EXPECT_EQ(5, Engine().LogTerminal("/nonexistent/tty", 1, "net", 1, "state", 1));
  EXPECT_EQ(5, Engine().LogTerminal("/tmp", 1, "net", 1, "state", 1)) << "a folder";
  EXPECT_EQ(0, shown.m_Calls);
  EXPECT_EQ("", terminal.Take());
  // The lengths count as zero or not; the name may be in another letter case.
  EXPECT_EQ(0, Engine().LogTerminal(path, 1, "NET", -1, "State", 99));
  EXPECT_EQ(1, shown.m_Calls);
  EXPECT_EQ("NET", shown.m_Module);
  EXPECT_EQ("State", shown.m_Title);
  EXPECT_EQ("state\n", terminal.ReadUntil("state\n"));
  EXPECT_EQ(-1, fcntl(shown.m_Fd, F_GETFD)) << "closed afterwards";
  EXPECT_EQ(0, Engine().LogTerminal(path, 1, "other", 1, "state", 1)) << "nobody to ask";
  EXPECT_EQ(1, shown.m_Calls);
  EXPECT_EQ(before, OpenDescriptors());
  return 0;
}

TEST(Terminal, DisplayIsPrintedOnTheNamedTerminal) {
  EXPECT_TRUE(Passes("NamedTerminal"));
}

CHILD_CASE(PipeAsTerminal) {
  // Nobody reads or writes it; in a session without a terminal, none becomes its own.
  const CTempDir folder;
  const std::string fifo = folder.File("fifo");
  EXPECT_EQ(0, mkfifo(fifo.c_str(), 0600));
  tagShown shown;
  EXPECT_EQ(0, ModuleStateRegister("net", "state", Show, &shown));
  const int result = Engine().LogTerminal(fifo.c_str(), 1, "net", 1, "state", 1);
  EXPECT_TRUE(result == 0 || result == 5) << result;
  CPseudoTerminal terminal;
  EXPECT_EQ(0, Engine().LogTerminal(terminal.Path().c_str(), 1, "net", 1, "state", 1));
  const int own = open("/dev/tty", O_RDWR | O_NOCTTY);
  EXPECT_EQ(-1, own) << "the display's terminal has become the process's";
  return 0;
}

TEST(Terminal, OpeningForADisplayNeverBlocksAndTakesNoTerminalOver) {
  EXPECT_TRUE(Passes("PipeAsTerminal"));
}

// Standard output is a file here, and keeps its text until there is much of it.
CHILD_CASE(ForkBehindPrintedText) {
  EXPECT_EQ(0, KLog(eLogLevelError, nullptr, nullptr, "printed before\n"));
  const pid_t pid = fork();
  if (pid == 0) std::exit(0);
  int status = 0;
  EXPECT_EQ(pid, waitpid(pid, &status, 0));
  EXPECT_EQ(0, status);
  return 0;
}

TEST(Terminal, PrintedTextLeavesOnceThoughTheProcessForks) {
  const tagChildResult result = RunChild("ForkBehindPrintedText");
  EXPECT_TRUE(Succeeded(result));
  const size_t at = result.m_Output.find("printed before\n");
  EXPECT_NE(std::string::npos, at);
  EXPECT_EQ(at, result.m_Output.rfind("printed before\n")) << result.m_Output;
}

}  // namespace
}  // namespace Kelvik
