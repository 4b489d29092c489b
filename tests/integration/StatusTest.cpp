// The status displays, called directly and through the wire.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "ChildProcess.h"
#include "ConsoleClient.h"
#include "ConsoleTools.h"
#include "FakeClock.h"
#include "PseudoTerminal.h"

namespace Kelvik {
namespace {

// A file that a display writes to. In packet-like fashion every write is marked: the descriptor is
// a pipe in packet mode, so that one read returns one write.
class CDisplay {
 public:
  CDisplay() {
    if (pipe2(m_Ends, O_CLOEXEC | O_DIRECT | O_NONBLOCK) != 0) {
      std::perror("pipe2");
      std::abort();
    }
  }
  CDisplay(const CDisplay&) = delete;
  CDisplay& operator=(const CDisplay&) = delete;
  ~CDisplay() {
    close(m_Ends[0]);
    close(m_Ends[1]);
  }

  int Fd() const { return m_Ends[1]; }

  // All that was written; "<" stands at the start of each write.
  std::string Take() {
    std::string text;
    char piece[4096];
    ssize_t size;
    while ((size = read(m_Ends[0], piece, sizeof(piece))) > 0) {
      text += "<" + std::string(piece, static_cast<std::size_t>(size));
    }
    return text;
  }

 private:
  int m_Ends[2];
};

const std::string kDefaultLines =
    "[Output mode] printf:true system:false file:false datetime:true tid:false.\n"
    "[Log level] debug:false info:false warning:false error:true fatal:true.\n"
    "[Log file] path:/tmp/.\n";
const std::string kOwnDisplays =
    "==========Cmd Module==========\n"
    "moudle:[Kelvik], title:[attribute]\n"
    "moudle:[Kelvik], title:[module]\n"
    "moudle:[Kelvik], title:[cmd]\n";

// The same with every line as a write of its own.
std::string AsWrites(const std::string& text) {
  std::string marked;
  for (const std::string& line : Lines(text)) {
    marked += "<" + line + "\n";
  }
  return marked;
}

CHILD_CASE(Attributes) {
  CDisplay display;
  EXPECT_EQ(0, Context().ShowAttribute(display.Fd(), "Kelvik", "attribute"));
  EXPECT_EQ(AsWrites("[Attribute] module:Kelvik title:attribute.\n" + kDefaultLines),
            display.Take());
  EXPECT_EQ(0, Context().ShowAttribute(display.Fd(), nullptr, nullptr));
  EXPECT_EQ(AsWrites("[Attribute] module:(null) title:(null).\n" + kDefaultLines), display.Take());

  registerModule("net", "1");
  const unsigned char on = 1;
  const unsigned char off = 0;
  // A module's settings are never what is shown.
  EXPECT_EQ(0, SetAttributeByModule(2, 1, &on, 1, "net"));
  for (const int option : {1, 2})
    EXPECT_EQ(0, SetAttribute(1, option, &on, 1));
  EXPECT_EQ(0, SetAttribute(1, 0, &off, 1));
  for (const int level : {2, 3})
    EXPECT_EQ(0, SetAttribute(2, level, &on, 1));
  for (const int level : {4, 5})
    EXPECT_EQ(0, SetAttribute(2, level, &off, 1));
  EXPECT_EQ(0, SetAttribute(3, 0, &off, 1));
  EXPECT_EQ(0, SetAttribute(3, 5, &on, 1));
  EXPECT_EQ(0, SetAttribute(3, 6, &off, 1));
  EXPECT_EQ(0, Context().ShowAttribute(display.Fd(), "net", "x"));
  EXPECT_EQ(AsWrites("[Attribute] module:net title:x.\n"
                     "[Output mode] printf:false system:true file:true datetime:false tid:true.\n"
                     "[Log level] debug:false info:true warning:true error:false fatal:false.\n"
                     "[Log file] path:/tmp/.\n"),
            display.Take());
  EXPECT_EQ(0, SetAttribute(1, 2, &off, 1));
  return 0;
}
TEST(Status, AttributesAreShownInFourLines) {
  EXPECT_TRUE(Succeeded(RunChild("Attributes")));
}

// One setting at a time: a word that is shown for another setting would pass as its neighbour.
CHILD_CASE(OneByOne) {
  CDisplay display;
  tagAttribute& global = *Context().GetAttribute();
  const auto shown = [&](const char* name) {
    EXPECT_EQ(0, Context().ShowAttribute(display.Fd(), "m", "t"));
    const std::string text = display.Take();
    const std::string words = ' ' + std::string(name) + ":true";
    return text.find(words) != std::string::npos && text.find(":true") == text.rfind(":true");
  };
  const struct {
    uint8_t tagAttribute::*m_Field;
    const char* m_Name;
  } switches[] = {
      {&tagAttribute::m_OutputConsole, "printf"}, {&tagAttribute::m_OutputSystem, "system"},
      {&tagAttribute::m_OutputFile, "file"},      {&tagAttribute::m_OutputDateTime, "datetime"},
      {&tagAttribute::m_OutputThreadID, "tid"},
  };
  for (const auto& row : switches)
    global.*row.m_Field = 0;
  global.m_LevelMask = 0;
  for (const auto& row : switches) {
    global.*row.m_Field = 1;
    EXPECT_TRUE(shown(row.m_Name)) << row.m_Name;
    global.*row.m_Field = 0;
  }
  unsigned bit = 0x02;
  for (const char* level : {"debug", "info", "warning", "error", "fatal"}) {
    global.m_LevelMask = static_cast<uint8_t>(bit);
    EXPECT_TRUE(shown(level)) << level;
    bit <<= 1;
  }
  return 0;
}
TEST(Status, EachSwitchAndLevelIsShownUnderItsOwnName) {
  EXPECT_TRUE(Succeeded(RunChild("OneByOne")));
}

CHILD_CASE(Paths) {
  setenv("TZ", "UTC", 1);
  tzset();
  const CFakeClock clock(1700000000, 7000);  // 2023-11-14 22:13:20.007
  CDisplay display;
  const std::string full(256, 'f');
  const struct {
    std::string m_Path;
    std::string m_Shown;
  } cases[] = {
      {"/var/log/", "/var/log/"},
      {"/l/%04d%02d%02d/", "/l/20231114/"},
      {"%d-%d-%d %d:%d:%d.%03d", "2023-11-14 22:13:20.007"},
      {"%x %X %o %u %i", "7e7 B 16 22 13"},
      {"%d%d%d%d%d%d%d%d",
       "20231114221320"
       "7%d"},
      {"100%%", "100%"},
      {"%s%n%*d", "%s%n%*d"},
      {"%", "%"},
      {"%ld", "%ld"},
      {"%3000d", std::string(255, ' ')},
      {full, full.substr(1)},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.m_Path);
    EXPECT_EQ(0, SetAttribute(3, 1, row.m_Path.c_str(), static_cast<int>(row.m_Path.size())));
    EXPECT_EQ(0, Context().ShowAttribute(display.Fd(), "m", "t"));
    const std::string text = display.Take();
    EXPECT_EQ("<[Log file] path:" + row.m_Shown + ".\n", text.substr(text.rfind('<'))) << text;
  }
  return 0;
}
TEST(Status, PathIsShownWithTheDateFilledIn) {
  EXPECT_TRUE(Succeeded(RunChild("Paths")));
}

CHILD_CASE(NoTime) {
  CPrintedText printed;
  CFakeClock clock(1700000000);
  clock.FailLocaltime(true);
  CDisplay display;
  EXPECT_EQ(0, SetAttribute(3, 1, "/l/%d", 5));
  EXPECT_EQ(0, Context().ShowAttribute(display.Fd(), "m", "t"));
  EXPECT_NE(std::string::npos, display.Take().find("path:/l/0.\n"));
  return 0;
}
TEST(Status, AttributesAreShownWithoutATimeToo) {
  EXPECT_TRUE(Succeeded(RunChild("NoTime")));
}

CHILD_CASE(ShownModules) {
  CDisplay display;
  EXPECT_EQ(0, Context().ShowModule(display.Fd(), "m", "t"));
  EXPECT_EQ("<==========Register Module==========\n", display.Take());
  for (const char* module : {"net", "Zone", "disk", "a b", "net"})
    registerModule(module, "1");
  EXPECT_EQ(0, Context().ShowModule(display.Fd(), "m", "t"));
  EXPECT_EQ(AsWrites("==========Register Module==========\n[Zone]\n[a b]\n[disk]\n[net]\n"),
            display.Take());
  const char* const name = "m";
  for (const auto& [module, title] :
       {std::pair<const char*, const char*>{nullptr, name}, {name, nullptr}, {nullptr, nullptr}}) {
    EXPECT_EQ(1, Context().ShowModule(display.Fd(), module, title));
    EXPECT_EQ(1, Context().ShowCmd(display.Fd(), module, title));
  }
  EXPECT_EQ("", display.Take());
  return 0;
}
TEST(Status, ModulesAreShownInTheOrderOfTheirNames) {
  EXPECT_TRUE(Succeeded(RunChild("ShownModules")));
}

int ShowNothing(int, const char*, const char*, void*) {
  return 0;
}

int TakeNothing(int, void*) {
  return 0;
}

CHILD_CASE(ShownCommands) {
  CDisplay display;
  EXPECT_EQ(0, Context().ShowCmd(display.Fd(), "m", "t"));
  EXPECT_EQ(AsWrites(kOwnDisplays), display.Take());
  const std::string longName(127, 'n');
  EXPECT_EQ(0, ModuleStateRegister("net", "rx", &ShowNothing, nullptr));
  EXPECT_EQ(0, ModuleStateRegister("disk", "io", &ShowNothing, nullptr));
  EXPECT_EQ(0, ModuleStateRegister(longName.c_str(), longName.c_str(), &ShowNothing, nullptr));
  EXPECT_EQ(0, ModuleSetParamRegister("net", "interval", &TakeNothing, nullptr));
  EXPECT_EQ(0, Context().ShowCmd(display.Fd(), "m", "t"));
  EXPECT_EQ(
      AsWrites(kOwnDisplays + "moudle:[net], title:[rx]\nmoudle:[disk], title:[io]\nmoudle:[" +
               longName + "], title:[" + longName + "]\n"),
      display.Take());
  return 0;
}
TEST(Status, DisplaysAreShownInTheOrderOfRegistration) {
  EXPECT_TRUE(Succeeded(RunChild("ShownCommands")));
}

CHILD_CASE(LongLines) {
  CDisplay display;
  const std::string label(2000, 'l');
  EXPECT_EQ(0, Context().ShowAttribute(display.Fd(), label.c_str(), "t"));
  const std::string line = "[Attribute] module:" + label;
  EXPECT_EQ("<" + line.substr(0, 1023) + AsWrites(kDefaultLines), display.Take());
  const std::string module(1500, 'm');
  registerModule(module.c_str(), "1");
  EXPECT_EQ(0, Context().ShowModule(display.Fd(), "m", "t"));
  EXPECT_EQ("<==========Register Module==========\n<[" + module.substr(0, 1022), display.Take());
  return 0;
}
TEST(Status, LineIsCutAt1023Characters) {
  EXPECT_TRUE(Succeeded(RunChild("LongLines")));
}

CHILD_CASE(BadDescriptors) {
  for (const int fd : {-1, 1000}) {
    EXPECT_EQ(0, Context().ShowAttribute(fd, "m", "t"));
    EXPECT_EQ(0, Context().ShowModule(fd, "m", "t"));
    EXPECT_EQ(0, Context().ShowCmd(fd, "m", "t"));
  }
  return 0;
}
TEST(Status, WriteErrorsAreIgnored) {
  EXPECT_TRUE(Succeeded(RunChild("BadDescriptors")));
}

CHILD_CASE(Wire) {
  CPseudoTerminal terminal;
  CTestConsole console;
  registerModule("net", "1");
  const auto show = [&](const std::string& words) {
    EXPECT_TRUE(console.Obey("-show " + terminal.Path() + " " + words));
    return terminal.Take();
  };
  EXPECT_EQ("[Attribute] module:Kelvik title:attribute.\n" + kDefaultLines,
            show("Kelvik attribute"));
  EXPECT_EQ("[Attribute] module:KELVIK title:Attribute.\n" + kDefaultLines,
            show("KELVIK Attribute"));
  EXPECT_EQ("==========Register Module==========\n[net]\n", show("kelvik module"));
  EXPECT_EQ(kOwnDisplays, show("Kelvik cmd"));
  EXPECT_EQ("", show("Kelvik other"));
  EXPECT_TRUE(console.Obey("-leveldbg 1"));
  EXPECT_NE(std::string::npos, show("Kelvik attribute").find("[Log level] debug:true info:false"));
  return 0;
}
TEST(Status, ShowOfTheLibrarysOwnModulePrintsTheStatus) {
  EXPECT_TRUE(Succeeded(RunChild("Wire")));
}

}  // namespace
}  // namespace Kelvik
