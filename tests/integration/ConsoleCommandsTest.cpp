// The commands through the wire: what each does to a running process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ConfigTools.h"
#include "ConsoleClient.h"
#include "ConsoleTools.h"
#include "Guard.h"
#include "PseudoTerminal.h"
#include "Relaxed.h"
#include "SyslogCapture.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

tagAttribute GlobalSettings() {
  tagAttribute settings;
  Context().CopyAttribute(settings);
  return settings;
}

// Settings as text, so that a difference can be read.
std::string Describe(const tagAttribute& a) {
  const uint32_t words[] = {a.m_LogMaxSize, a.m_LogMaxDuration, a.m_LogMaxCount, a.m_BufferSize,
                            a.m_WriteInterval};
  const unsigned bytes[] = {a.m_OutputConsole,  a.m_OutputSystem,   a.m_OutputFile,
                            a.m_OutputDateTime, a.m_OutputThreadID, a.m_OutputLocation,
                            a.m_LevelMask};
  std::string text(a.m_LogPath, strnlen(a.m_LogPath, sizeof(a.m_LogPath)));
  for (const unsigned byte : bytes)
    text += " " + std::to_string(byte);
  for (const uint32_t word : words)
    text += " " + std::to_string(word);
  return text;
}

void SetPath(tagAttribute& settings, const char* path) {
  std::memset(settings.m_LogPath, 0, sizeof(settings.m_LogPath));
  std::memcpy(settings.m_LogPath, path, std::strlen(path));
}

using Change = std::function<void(tagAttribute& settings)>;

void NoChange(tagAttribute&) {}

struct tagCase {
  const char* m_Text;
  Change m_Change;  // from the settings as they were before
};

const tagCase kCases[] = {
    {"-printf 0", [](tagAttribute& a) { a.m_OutputConsole = 0; }},
    {"-printf true", [](tagAttribute& a) { a.m_OutputConsole = 1; }},
    {"-PRINTF FALSE", [](tagAttribute& a) { a.m_OutputConsole = 0; }},
    {"-printf enable", [](tagAttribute& a) { a.m_OutputConsole = 1; }},
    {"-printf", [](tagAttribute& a) { a.m_OutputConsole = 0; }},
    {"-syslog 1", [](tagAttribute& a) { a.m_OutputSystem = 1; }},
    {"-syslog disable", [](tagAttribute& a) { a.m_OutputSystem = 0; }},
    {"-file Enable", [](tagAttribute& a) { a.m_OutputFile = 1; }},
    {"-file", [](tagAttribute& a) { a.m_OutputFile = 0; }},
    {"-leveldbg 1", [](tagAttribute& a) { a.m_LevelMask |= 0x02; }},
    {"-levelinfo 1", [](tagAttribute& a) { a.m_LevelMask |= 0x04; }},
    {"-levelwarn 1", [](tagAttribute& a) { a.m_LevelMask |= 0x08; }},
    {"-levelerror 0", [](tagAttribute& a) { a.m_LevelMask = 0x2E; }},
    {"-levelfatal 0", [](tagAttribute& a) { a.m_LevelMask = 0x0E; }},
    {"-leveldbg", [](tagAttribute& a) { a.m_LevelMask = 0x0C; }},
    {"-time 0", [](tagAttribute& a) { a.m_OutputDateTime = 0; }},
    {"-time 1", [](tagAttribute& a) { a.m_OutputDateTime = 1; }},
    {"-tid 1", [](tagAttribute& a) { a.m_OutputThreadID = 1; }},
    {"-tid 0", [](tagAttribute& a) { a.m_OutputThreadID = 0; }},
    {"-logpath /tmp/other/", [](tagAttribute& a) { SetPath(a, "/tmp/other/"); }},
    {"-logsize 2", [](tagAttribute& a) { a.m_LogMaxSize = 2048; }},
    {"-logsize 0", [](tagAttribute& a) { a.m_LogMaxSize = 0; }},
    {"-logsize 4194305", [](tagAttribute& a) { a.m_LogMaxSize = 1024; }},
    {"-logsize many", [](tagAttribute& a) { a.m_LogMaxSize = 0; }},
    {"-logduration 60", [](tagAttribute& a) { a.m_LogMaxDuration = 60; }},
    {"-logduration 60s", [](tagAttribute& a) { a.m_LogMaxDuration = 60; }},
    {"-logcount 10", [](tagAttribute& a) { a.m_LogMaxCount = 10; }},
    {"-logcount 11", NoChange},
    {"-logcount 99999999999999", NoChange},
    {"-logcount -1", [](tagAttribute& a) { a.m_LogMaxCount = 0xFFFFFFFF; }},
    {"-logsize 2048 -logcount 5",
     [](tagAttribute& a) {
       a.m_LogMaxSize = 2048 * 1024;
       a.m_LogMaxCount = 5;
     }},
    {"-buffersize 64", [](tagAttribute& a) { a.m_BufferSize = 65536; }},
    {"-buffersize 1025", NoChange},
    {"-buffersize 0", NoChange},
    {"-buffersize none", NoChange},
    {"-interval 200", [](tagAttribute& a) { a.m_WriteInterval = 200; }},
    {"-interval 199", NoChange},
    {"-interval 3600000", [](tagAttribute& a) { a.m_WriteInterval = 3600000; }},
    {"-interval 3600001", NoChange},
    {"-interval 0", [](tagAttribute& a) { a.m_WriteInterval = 0; }},
    {"-leveldbg on", NoChange},
    {"-foo -printf 1", NoChange},
    {"-printf\t1", NoChange},
    {"-printf 1\n", NoChange},
    {"   ", NoChange},
    // The word after a value is a module; only the levels act on one.
    {"-printf 1 -file 1", NoChange},
    {"-printf true -syslog true", NoChange},
    {"-printf 1 net", NoChange},
    {"-time 0 net -logcount 3", [](tagAttribute& a) { a.m_LogMaxCount = 3; }},
    {"-logcount 4 -leveldbg on -logcount 6", [](tagAttribute& a) { a.m_LogMaxCount = 4; }},
    {"-logcount 6 -logsize", [](tagAttribute& a) { a.m_LogMaxCount = 6; }},
    {"-logcount 7 -bar -logcount 8", [](tagAttribute& a) { a.m_LogMaxCount = 7; }},
    // The unknown module's mask is the global one.
    {"-leveldbg 1 net", [](tagAttribute& a) { a.m_LevelMask |= 0x02; }},
};

CHILD_CASE(Settings) {
  CPrintedText printed;
  CTestConsole console;
  for (const tagCase& row : kCases) {
    SCOPED_TRACE(row.m_Text);
    tagAttribute expected = GlobalSettings();
    row.m_Change(expected);
    EXPECT_TRUE(console.Obey(row.m_Text));
    EXPECT_EQ(Describe(expected), Describe(GlobalSettings()));
    EXPECT_EQ(Arrival(row.m_Text), TakePrinted(printed));
  }
  return 0;
}
TEST(ConsoleCommands, ChangeTheSettingsTheyName) {
  EXPECT_TRUE(Succeeded(RunChild("Settings", {}, 30000)));
}

CHILD_CASE(Modules) {
  registerModule("network", "1");
  registerModule("disk", "1");
  CTestConsole console;
  const tagAttribute global = GlobalSettings();
  const auto mask = [](const char* module) {
    return static_cast<int>(RelaxedLoad(Context().GetAttribute(module)->m_LevelMask));
  };
  const struct {
    const char* m_Text;
    int m_Network;
    int m_Disk;
  } cases[] = {
      {"-leveldbg 1 network", 0x32, 0x30},
      {"-levelinfo 1 NET", 0x36, 0x30},
      {"-levelerror 0 k", 0x36, 0x20},  // the first in byte order that contains it
      {"-leveldbg 1 disk -leveldbg 0 net", 0x34, 0x22},
      {"-printf 0 net", 0x34, 0x22},
      {"-tid 1 disk", 0x34, 0x22},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.m_Text);
    EXPECT_TRUE(console.Obey(row.m_Text));
    EXPECT_EQ(row.m_Network, mask("network"));
    EXPECT_EQ(row.m_Disk, mask("disk"));
    EXPECT_EQ(Describe(global), Describe(GlobalSettings()));
  }
  EXPECT_TRUE(console.Obey("-leveldbg 1 nowhere"));
  EXPECT_EQ(0x32, GlobalSettings().m_LevelMask);
  EXPECT_EQ(0x34, mask("network"));
  return 0;
}
TEST(ConsoleCommands, LevelOfAModuleChangesThatModuleOnly) {
  EXPECT_TRUE(Succeeded(RunChild("Modules")));
}

// What is refused is reported by the plain family.
CHILD_CASE(Refusals) {
  CPrintedText printed;
  CTestConsole console;
  RelaxedStore(Context().GetAttribute()->m_OutputDateTime, 0);
  const std::string path(257, 'p');
  for (const auto& [word, line] :
       {std::pair<const char*, int>{"-logpath ", 385}, {"-tty ", 407}, {"-focus ", 421}}) {
    // What comes behind it is obeyed all the same.
    EXPECT_TRUE(console.Obey(word + path + " -logcount " + std::to_string(line % 10)));
    const uint32_t count = GlobalSettings().m_LogMaxCount;  // a packed field takes no reference
    EXPECT_EQ(static_cast<uint32_t>(line % 10), count);
    const std::string text = TakePrinted(printed);
    const std::string report =
        "Kelvik SetAttribute " + std::to_string(line) + " value invalid : 257\n";
    EXPECT_NE(std::string::npos, text.find(report)) << text;
  }
  EXPECT_EQ("/tmp/", std::string(GlobalSettings().m_LogPath));
  EXPECT_TRUE(console.Obey("-logpath " + path.substr(1)));
  EXPECT_EQ(path.substr(1), std::string(GlobalSettings().m_LogPath, kLogPathBytes));
  return 0;
}
TEST(ConsoleCommands, OverlongTextsAreRefusedAndReported) {
  EXPECT_TRUE(Succeeded(RunChild("Refusals")));
}

bool HasLogFile() {
  COutput& output = Context().GetOutput();
  const CGuard guard(&output.m_BufferMutex);
  return output.m_CurrentFd != -1;
}

CHILD_CASE(FileOff) {
  const CTempDir folder;
  CTestConsole console;
  EXPECT_EQ(0, SetLogFilePath(folder.LogPath().c_str()));
  Initialize();
  EXPECT_TRUE(console.Obey("-file 1"));
  EXPECT_EQ(0, KLog(eLogLevelError, "net", "rx", "text\n"));
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_TRUE(WaitUntil(&HasLogFile, 5000));
  EXPECT_TRUE(console.Obey("-file 1"));
  EXPECT_TRUE(HasLogFile());
  EXPECT_TRUE(console.Obey("-file 0"));
  EXPECT_FALSE(HasLogFile());
  return 0;
}
TEST(ConsoleCommands, FileOffClosesTheLogFile) {
  EXPECT_TRUE(Succeeded(RunChild("FileOff")));
}

// --- Parameters ---

int TakeNumber(int value, void* list) {
  static_cast<std::vector<int>*>(list)->push_back(value);
  return 1;
}

CHILD_CASE(Parameters) {
  std::vector<int> numbers;
  CTestConsole console;
  EXPECT_EQ(0, ModuleSetParamRegister("net", "interval", &TakeNumber, &numbers));
  for (const char* text :
       {"-set net interval 5", "-SET NET Interval -7", "-set net interval x",
        "-set net interval 99999999999", "-set net interval 1 -set net interval 2",
        "-set net other 8", "-set other interval 8", "-set net interval", "-set net"}) {
    EXPECT_TRUE(console.Obey(text));
  }
  EXPECT_EQ((std::vector<int>{5, -7, 0, INT_MAX, 1, 2}), numbers);
  return 0;
}
TEST(ConsoleCommands, SetPassesTheNumberToTheCallback) {
  EXPECT_TRUE(Succeeded(RunChild("Parameters")));
}

// --- Displays ---

int ShowWords(int fd, const char* module, const char* title, void* text) {
  const std::string line =
      std::string(module) + "|" + title + "|" + static_cast<const char*>(text) + "\n";
  return write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size()) ? 5 : 6;
}

CHILD_CASE(Displays) {
  CPseudoTerminal terminal;
  char text[] = "hello";
  CTestConsole console;
  EXPECT_EQ(0, ModuleStateRegister("net", "rx", &ShowWords, text));
  const std::string show = "-show " + terminal.Path();
  EXPECT_TRUE(console.Obey(show + " NET Rx"));
  EXPECT_EQ("NET|Rx|hello\n", terminal.ReadUntil("\n"));
  // A thread that just began may have a file of the system open for a moment.
  const int before = OpenDescriptors();
  EXPECT_TRUE(console.Obey(show + " net rx " + show + " net rx"));
  EXPECT_EQ("net|rx|hello\nnet|rx|hello\n", terminal.ReadUntil("\nnet|rx|hello\n"));
  for (const std::string& quiet :
       {show + " net", show, show + " net tx", show + " disk rx",
        std::string("-show /nowhere/at/all net rx"), std::string("-show /tmp net rx")}) {
    SCOPED_TRACE(quiet);
    EXPECT_TRUE(console.Obey(quiet));
    EXPECT_EQ("", terminal.Take());
  }
  EXPECT_EQ(before, OpenDescriptors());
  return 0;
}
TEST(ConsoleCommands, ShowLetsTheCallbackPrintOnTheTerminal) {
  EXPECT_TRUE(Succeeded(RunChild("Displays")));
}

// --- The process's own terminal ---

// Standard output as it was before it was redirected, for the report of failed checks.
class CKeptOutput {
 public:
  CKeptOutput() : m_Fd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {}
  CKeptOutput(const CKeptOutput&) = delete;
  CKeptOutput& operator=(const CKeptOutput&) = delete;
  ~CKeptOutput() {
    std::fflush(stdout);
    dup2(m_Fd, STDOUT_FILENO);
    close(m_Fd);
  }

 private:
  const int m_Fd;
};

std::string Banner(const CPseudoTerminal& terminal) {
  return "******************* node = " + terminal.Path() + "\n";
}

CHILD_CASE(Redirection) {
  CPseudoTerminal first;
  CPseudoTerminal second;
  dup2(first.Slave(), STDIN_FILENO);  // before the context looks for its terminal
  std::string onSecond;
  std::string onFirst;
  {
    const CKeptOutput kept;
    CTestConsole console;
    console.Obey("-printf 1");
    console.Obey("-time 0");
    console.Obey("-tty " + second.Path());
    KLog(eLogLevelError, "net", "rx", "to the second\n");
    onSecond = second.ReadUntil("to the second");
    console.Obey("-tty /nowhere/at/all");
    KLog(eLogLevelError, "net", "rx", "still there\n");
    onSecond += second.ReadUntil("still there");
    console.Obey("-console");
    KLog(eLogLevelError, "net", "rx", "to the first\n");
    onFirst = first.ReadUntil("to the first");
  }
  EXPECT_EQ(0u, onSecond.find(Banner(second))) << onSecond;
  // A command is printed before it is obeyed.
  EXPECT_EQ(std::string::npos, onSecond.find("receive command: -tty " + second.Path()));
  EXPECT_NE(std::string::npos, onSecond.find("\033[33m[net][rx] to the second\n"));
  EXPECT_NE(std::string::npos, onSecond.find("\033[33m[net][rx] still there\n"));
  EXPECT_EQ(0u, onFirst.find(Banner(first))) << onFirst;
  EXPECT_NE(std::string::npos, onFirst.find("\033[33m[net][rx] to the first\n"));
  EXPECT_EQ(std::string::npos, onFirst.find("to the second"));
  return 0;
}
TEST(ConsoleCommands, TtyMovesTheTerminalOutputAndConsoleBringsItBack) {
  EXPECT_TRUE(Succeeded(RunChild("Redirection")));
}

CHILD_CASE(Focus) {
  CPrintedText printed;
  CTestConsole console;
  EXPECT_TRUE(console.Obey("-time 0"));
  EXPECT_TRUE(console.Obey("-levelinfo 1"));
  const auto shown = [&](const char* module) {
    TakePrinted(printed);
    KLog(eLogLevelInfo, module, "rx", "text\n");
    return TakePrinted(printed);
  };
  EXPECT_EQ("\033[0m[net][rx] text\n", shown("net"));
  EXPECT_TRUE(console.Obey("-focus NET"));
  EXPECT_EQ(0u, shown("net").find("\033[36m[net][rx] text\n"));
  EXPECT_EQ(0u, shown("disk").find("\033[0m[disk][rx] text\n"));
  EXPECT_TRUE(console.Obey("-focus"));
  EXPECT_EQ(0u, shown("net").find("\033[36m"));
  EXPECT_TRUE(console.Obey("-focus False"));
  EXPECT_EQ(0u, shown("net").find("\033[0m[net][rx] text\n"));
  return 0;
}
TEST(ConsoleCommands, FocusShowsOneModuleInCyan) {
  EXPECT_TRUE(Succeeded(RunChild("Focus")));
}

CHILD_CASE(Sinks) {
  CPrintedText printed;
  CTestConsole console;
  const std::size_t before = CSyslogCapture::Count();
  EXPECT_TRUE(console.Obey("-syslog 1"));
  EXPECT_TRUE(console.Obey("-printf 0"));
  TakePrinted(printed);
  KLog(eLogLevelError, "net", "rx", "text\n");
  EXPECT_EQ("", TakePrinted(printed));
  EXPECT_EQ(before + 1, CSyslogCapture::Count());
  EXPECT_TRUE(console.Obey("-leveldbg 1"));
  EXPECT_EQ(0, KLog(eLogLevelDebug, "net", "rx", "text\n"));
  EXPECT_TRUE(console.Obey("-leveldbg 0"));
  EXPECT_EQ(2, KLog(eLogLevelDebug, "net", "rx", "text\n"));
  return 0;
}
TEST(ConsoleCommands, RecordsFollowTheSwitchedSinksAndLevels) {
  EXPECT_TRUE(Succeeded(RunChild("Sinks")));
}

// --- Saving ---

CHILD_CASE(Save) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  EXPECT_EQ(0, SetConfigFilePath(path.c_str()));
  registerModule("net", "1");
  CTestConsole console;
  const std::string start = ReadFile(path);
  for (const char* text : {"-sav", "-sav nowhere"}) {
    EXPECT_TRUE(console.Obey(text));
    EXPECT_EQ(start, ReadFile(path)) << text;
  }
  EXPECT_TRUE(console.Obey("-logcount 7 -leveldbg 1 net -sav global"));
  Entries entries = ReadEntries(path);
  EXPECT_EQ("7", entries["global/logmaxcount"]);
  EXPECT_EQ("", entries["net/leveldbg"]);
  EXPECT_TRUE(console.Obey("-logcount 8 -sav net"));
  entries = ReadEntries(path);
  EXPECT_EQ("7", entries["global/logmaxcount"]);
  EXPECT_EQ("1", entries["net/leveldbg"]);
  EXPECT_TRUE(console.Obey("-leveldbg 0 net -sav All"));
  entries = ReadEntries(path);
  EXPECT_EQ("8", entries["global/logmaxcount"]);
  EXPECT_EQ("0", entries["net/leveldbg"]);
  return 0;
}
TEST(ConsoleCommands, SavWritesWhatItNames) {
  EXPECT_TRUE(Succeeded(RunChild("Save")));
}

}  // namespace
}  // namespace Kelvik
