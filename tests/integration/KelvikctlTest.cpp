// kelvikctl against a stand-in for the process: what goes over the wire, what it concludes from
// what comes back, and what it refuses.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "ChildProcess.h"
#include "ConsoleClient.h"
#include "FileTools.h"
#include "KelvikctlTools.h"

namespace Kelvik {
namespace {

const std::string kStatus = "show PATH Kelvik attribute";
const std::string kModules = "show PATH Kelvik module";
const std::string kDisplays = "show PATH Kelvik cmd";

struct tagWire {
  Strings m_Args;
  Strings m_Datagrams;  // without their frames
};

TEST(Kelvikctl, EachCommandIsTheseDatagrams) {
  const tagWire cases[] = {
      {{"status"}, {kStatus}},
      {{"modules"}, {kModules}},
      {{"list"}, {kDisplays}},
      {{"show", "net", "counters"}, {"show PATH net counters", kDisplays}},
      {{"level", "2", "off", "NET"}, {kModules, "-levelinfo 0 NET", kStatus}},
      {{"level", "warning", "ON", "et"}, {kModules, "-levelwarn 1 et", kStatus}},
      {{"limit", "size", "0"}, {"-logsize 0", kStatus}},
      {{"limit", "duration", "60"}, {"-logduration 60", kStatus}},
      {{"limit", "count", "10"}, {"-logcount 10", kStatus}},
      {{"limit", "buffer", "1024"}, {"-buffersize 1024", kStatus}},
      {{"limit", "Interval", "200"}, {"-interval 200", kStatus}},
      {{"focus", "net"}, {"-focus net", kStatus}},
      {{"focus", "OFF"}, {"-focus false", kStatus}},
      {{"tty", "/dev/null"}, {"-tty /dev/null", kStatus}},
      {{"console"}, {"-console", kStatus}},
      {{"set", "net", "interval", "-5"}, {"-set net interval -5", kStatus}},
      {{"save"}, {"-sav all", kStatus}},
      {{"save", "Global"}, {"-sav Global", kStatus}},
      {{"save", "net"}, {kModules, "-sav net", kStatus}},
      {{"send", "-logsize", "1", "-logcount", "2"}, {"-logsize 1 -logcount 2", kStatus}},
      {{"send", "--", "-x", "--port", "1"}, {"-x --port 1", kStatus}}};
  for (const tagWire& one : cases) {
    CFakeConsole console;
    const tagChildResult result = RunCtl(console.Port(), one.m_Args);
    EXPECT_EQ(0, result.m_ExitCode) << result.m_Errors;
    Strings expected;
    for (const std::string& text : one.m_Datagrams)
      expected.push_back(text.compare(0, 5, "show ") == 0 ? text : Frame(text));
    EXPECT_EQ(expected, console.Datagrams()) << one.m_Args[0];
  }
}

struct tagVisible {
  Strings m_Args;
  std::string m_Command;
  std::string m_Change;  // of the status
};

const tagVisible kVisible[] = {{{"level", "debug", "on"}, "-leveldbg 1", "debug:true"},
                               {{"level", "INFO", "on"}, "-levelinfo 1", "info:true"},
                               {{"level", "3", "on"}, "-levelwarn 1", "warning:true"},
                               {{"level", "error", "off"}, "-levelerror 0", "error:false"},
                               {{"level", "5", "off"}, "-levelfatal 0", "fatal:false"},
                               {{"output", "terminal", "off"}, "-printf 0", "printf:false"},
                               {{"output", "syslog", "on"}, "-syslog 1", "system:true"},
                               {{"output", "File", "On"}, "-file 1", "file:true"},
                               {{"prefix", "time", "off"}, "-time 0", "datetime:false"},
                               {{"prefix", "tid", "on"}, "-tid 1", "tid:true"}};

TEST(Kelvikctl, VisibleChangeIsConfirmedByAReadingBeforeAndAfter) {
  for (const tagVisible& one : kVisible) {
    CFakeConsole console;
    console.AnswerAfter(one.m_Command, "attribute", CFakeConsole::Status(one.m_Change));
    const tagChildResult result = RunCtl(console.Port(), one.m_Args);
    EXPECT_EQ(0, result.m_ExitCode) << one.m_Command << result.m_Errors;
    EXPECT_TRUE(Contains(result.m_Output, ", was ")) << result.m_Output;
    EXPECT_EQ((Strings{kStatus, Frame(one.m_Command), kStatus}), console.Datagrams());
  }
}

TEST(Kelvikctl, VisibleChangeThatDoesNotShowIsAFailure) {
  for (const tagVisible& one : kVisible) {
    CFakeConsole console;
    const tagChildResult result = RunCtl(console.Port(), one.m_Args);
    EXPECT_EQ(1, result.m_ExitCode) << one.m_Command;
    EXPECT_TRUE(Contains(result.m_Errors, "all the same")) << result.m_Errors;
    EXPECT_EQ("", result.m_Output);
  }
}

TEST(Kelvikctl, PathIsComparedUpToItsDate) {
  struct tagCase {
    const char* m_Path;
    const char* m_Command;
    const char* m_Shown;
    int m_ExitCode;
  };
  const tagCase cases[] = {{"/a", "-logpath /a/", "/a/", 0},
                           {"/a/", "-logpath /a/", "/a/", 0},
                           {"/a/%d/", "-logpath /a/%d/", "/a/2026/", 0},
                           {"/a/%d/", "-logpath /a/%d/", "/b/2026/", 1},
                           {"/a/", "-logpath /a/", "/tmp/", 1}};
  for (const tagCase& one : cases) {
    CFakeConsole console;
    console.AnswerAfter(one.m_Command, "attribute",
                        CFakeConsole::Status("debug:false", one.m_Shown));
    EXPECT_EQ(one.m_ExitCode, RunCtl(console.Port(), {"path", one.m_Path}).m_ExitCode)
        << one.m_Path;
    EXPECT_EQ((Strings{kStatus, Frame(one.m_Command), kStatus}), console.Datagrams());
  }
}

TEST(Kelvikctl, BadUsageIsRefusedBeforeAnythingIsSent) {
  const std::string longName(128, 'a');
  const Strings cases[] = {{},
                           {"frob"},
                           {"status", "more"},
                           {"level", "debug"},
                           {"level", "debug", "maybe"},
                           {"level", "6", "on"},
                           {"level", "debug", "on", ""},
                           {"level", "debug", "on", "a b"},
                           {"level", "debug", "on", "--for", "soon"},
                           {"level", "debug", "on", "--for", "0"},
                           {"output", "debug", "on"},
                           {"prefix", "tid", "1"},
                           {"limit", "size", "-1"},
                           {"limit", "size", "2097152"},
                           {"limit", "count", "11"},
                           {"limit", "count", "many"},
                           {"limit", "buffer", "1025"},
                           {"limit", "interval", "199"},
                           {"limit", "weight", "1"},
                           {"path", ""},
                           {"path", "/a b"},
                           {"path", std::string(255, 'a')},
                           {"focus", "a\nb"},
                           {"tty", "/nowhere/tty"},
                           {"show", "net"},
                           {"show", "net", longName},
                           {"set", "net", "interval", "99999999999"},
                           {"set", "net", "interval", "1.5"},
                           {"set", "a b", "interval", "1"},
                           {"save", "lob"},
                           {"save", ""},
                           {"send"},
                           {"send", "a b"},
                           {"send", ""},
                           {"send", std::string(2045, 'x')},
                           {"send", "-x", std::string(2042, 'x')},
                           {"watch", "net", "counters", "-n", "x"},
                           {"--timeout", "0", "status"},
                           {"--timeout", "", "status"},
                           {"--port", "0", "status"},
                           {"--port", "65536", "status"},
                           {"--port", "", "status"},
                           {"--host", "localhost", "status"},
                           {"--host", "127.1", "status"},
                           {"--host", "192.0.2.1", "status"}};
  CFakeConsole console;
  for (const Strings& args : cases) {
    const tagChildResult result = RunCtl(console.Port(), args);
    EXPECT_EQ(64, result.m_ExitCode) << testing::PrintToString(args) << result.m_Output;
    EXPECT_EQ("", result.m_Output);
    EXPECT_EQ(0u, result.m_Errors.find("kelvikctl: ")) << result.m_Errors;
    EXPECT_EQ(1u, Lines(result.m_Errors).size()) << result.m_Errors;
  }
  EXPECT_EQ(Strings{}, console.Datagrams());
}

TEST(Kelvikctl, LongestTextIsSent) {
  CFakeConsole console;
  const std::string text(2044, 'x');
  EXPECT_EQ(0, RunCtl(console.Port(), {"send", text}).m_ExitCode);
  EXPECT_EQ((Strings{Frame(text), kStatus}), console.Datagrams());
}

TEST(Kelvikctl, PortWithoutAListenerIsToldAtOnce) {
  const uint16_t port = FindFreePort();
  for (const Strings& args : {Strings{"status"},
                              {"level", "debug", "on"},
                              {"send", "-x"},
                              {"attach"},
                              {"watch", "a", "b"}}) {
    const tagChildResult result = RunCtl(port, args, 5000);
    EXPECT_EQ(2, result.m_ExitCode) << args[0];
    EXPECT_TRUE(Contains(result.m_Errors, "nobody listens")) << result.m_Errors;
  }
}

TEST(Kelvikctl, ProcessThatDoesNotOpenTheTerminalIsNoAnswer) {
  CFakeConsole console;
  console.FallSilent();
  for (const Strings& args : {Strings{"status"}, {"send", "-x"}, {"attach"}}) {
    Strings all = {"--timeout", "1.5"};
    all.insert(all.end(), args.begin(), args.end());
    const tagChildResult result = RunCtl(console.Port(), all);
    EXPECT_EQ(2, result.m_ExitCode) << args[0];
    EXPECT_TRUE(Contains(result.m_Errors, "did not open the pseudo-terminal")) << result.m_Errors;
  }
  // A change that needs a reading before was not sent.
  EXPECT_EQ(2, RunCtl(console.Port(), {"--timeout", "0.3", "level", "debug", "on"}).m_ExitCode);
  EXPECT_EQ(kStatus, console.Datagrams().back());
}

TEST(Kelvikctl, ProcessThatDoesNotReadIsSaidToBeBusy) {
  const int fd = BindPlainSocket(0);
  const tagChildResult result = RunCtl(PortOf(fd), {"--timeout", "0.3", "status"});
  EXPECT_EQ(2, result.m_ExitCode);
  EXPECT_TRUE(Contains(result.m_Errors, "does not read its commands")) << result.m_Errors;
  close(fd);
}

CHILD_CASE(OtherUsersConsole) {
  // The socket belongs to whoever makes it.
  if (setgid(65534) != 0 || setuid(65534) != 0) return 1;
  const CTestConsole console;
  std::printf("port %u\n", unsigned{console.Port()});
  std::fflush(stdout);
  PauseMs(600000);
  return 0;
}

TEST(Kelvikctl, OtherUsersProcessIsNamedAsTheReason) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can start a process of another user";
  CChild child(ChildCommand("OtherUsersConsole"));
  ASSERT_TRUE(child.WaitForOutput("port ", 10000)) << child.Errors();
  const std::string output = child.Output();
  const int port = std::atoi(output.c_str() + output.find("port ") + 5);
  const tagChildResult result =
      RunCtl(static_cast<uint16_t>(port), {"--timeout", "3", "level", "debug", "on"});
  EXPECT_EQ(2, result.m_ExitCode);
  EXPECT_TRUE(Contains(result.m_Errors, "cannot open the pseudo-terminal")) << result.m_Errors;
  EXPECT_FALSE(Contains(child.Output(), "-leveldbg")) << child.Output();
}

TEST(Kelvikctl, OtherTextThanAStatusIsNotBelieved) {
  for (const std::string& text : {std::string("\n"), std::string(3 << 20, 'x'),
                                  CFakeConsole::Status("debug:true") + "more\n"}) {
    CFakeConsole console;
    console.Answer("attribute", text);
    for (const Strings& args : {Strings{"status"}, {"level", "debug", "on"}}) {
      const tagChildResult result = RunCtl(console.Port(), args);
      EXPECT_EQ(1, result.m_ExitCode) << result.m_Errors;
      EXPECT_EQ("", result.m_Output);
    }
  }
}

TEST(Kelvikctl, NamesCannotSteerTheTerminal) {
  CFakeConsole console;
  console.Answer("module", "==========Register Module==========\n[a\033[2J]\n");
  console.Answer("cmd", "==========Cmd Module==========\nmoudle:[\033c], title:[b\rc]\n");
  EXPECT_EQ("a\\x1b[2J\n", RunCtl(console.Port(), {"modules"}).m_Output);
  EXPECT_EQ("\\x1bc b\\x0dc\n", RunCtl(console.Port(), {"list"}).m_Output);
}

TEST(Kelvikctl, ModuleThatWouldReachAnotherLevelIsRefused) {
  CFakeConsole console;
  console.Answer("module", "==========Register Module==========\n[ethernet]\n[net]\n");
  for (const Strings& args :
       {Strings{"level", "debug", "on", "net"}, {"level", "debug", "on", "mem"}, {"save", "mem"}}) {
    EXPECT_EQ(1, RunCtl(console.Port(), args).m_ExitCode) << args[3 % args.size()];
  }
  for (const std::string& datagram : console.Datagrams())
    EXPECT_EQ(kModules, datagram);
  EXPECT_EQ(0, RunCtl(console.Port(), {"level", "debug", "on", "ethernet"}).m_ExitCode);
}

TEST(Kelvikctl, SaveWithoutAConfigurationFileIsTold) {
  CFakeConsole console;
  console.Answer("attribute", CFakeConsole::Status("datetime:false"));
  EXPECT_EQ(1, RunCtl(console.Port(), {"save"}).m_ExitCode);
  EXPECT_EQ(0, RunCtl(console.Port(), {"save", "net"}).m_ExitCode);
}

TEST(Kelvikctl, DisplayArrivesByteForByte) {
  std::string text = "\033[31mred\033[0m\n";
  for (int byte = 0; byte < 256; ++byte)
    text += static_cast<char>(byte);
  CFakeConsole console;
  console.Answer("counters", text + std::string(300000, 'x'));
  const tagChildResult result = RunCtl(console.Port(), {"show", "net", "counters"});
  EXPECT_EQ(0, result.m_ExitCode);
  EXPECT_TRUE(text + std::string(300000, 'x') == result.m_Output);
}

TEST(Kelvikctl, DisplayThatIsNotRegisteredIsAFailure) {
  CFakeConsole console;
  for (const char* const command : {"show", "watch"})
    EXPECT_EQ(1, RunCtl(console.Port(), {command, "net", "nothing"}).m_ExitCode) << command;
}

TEST(Kelvikctl, WatchAsksAgainAndAgainUntilASignal) {
  CFakeConsole console;
  console.Answer("counters", "one line\n");
  CChild watch(ProgramCommand(KELVIK_KELVIKCTL,
                              CtlArgs(console.Port(), {"watch", "net", "counters", "-n", "0.1"})));
  EXPECT_TRUE(watch.WaitForOutput("one line\n\none line\n\none line\n", 8000));
  console.Answer("counters", "another\n");
  EXPECT_TRUE(watch.WaitForOutput("another\n", 8000));
  watch.Signal(SIGINT);
  const tagChildResult result = watch.Wait();
  EXPECT_EQ(0, result.m_ExitCode) << result.m_Errors;
  EXPECT_FALSE(Contains(result.m_Output, "\033")) << result.m_Output;
}

TEST(Kelvikctl, OutputThatCannotBeWrittenIsAFailure) {
  CFakeConsole console;
  const tagChildResult result = RunCommand(ShellCommand(
      "\"$@\" > /dev/full", ProgramCommand(KELVIK_KELVIKCTL, CtlArgs(console.Port(), {"list"}))));
  EXPECT_EQ(1, result.m_ExitCode);
  EXPECT_TRUE(Contains(result.m_Errors, "cannot write")) << result.m_Errors;
}

// Starts "level --for", waits until the level is on, lets the test end it and returns its result.
class CHeldLevel {
 public:
  CHeldLevel(CFakeConsole& console, const Strings& args) : m_Child(Command(console, args)) {}

  bool IsHeld() { return m_Child.WaitForOutput(" is on for ", 20000); }
  tagChildResult EndBy(int signal) {
    if (signal != 0) m_Child.Signal(signal);
    return m_Child.Wait();
  }

 private:
  static Strings Command(CFakeConsole& console, const Strings& args) {
    console.AnswerAfter("-leveldbg 1", "attribute", CFakeConsole::Status("debug:true"));
    console.AnswerAfter("-leveldbg 0", "attribute", CFakeConsole::Status("debug:false"));
    return ProgramCommand(KELVIK_KELVIKCTL, CtlArgs(console.Port(), args));
  }

  CChild m_Child;
};

TEST(Kelvikctl, HeldLevelIsRestoredByTheClockAndBySignals) {
  for (const int signal : {0, SIGINT, SIGTERM, SIGHUP}) {
    CFakeConsole console;
    CHeldLevel level(console, {"level", "debug", "on", "--for", signal == 0 ? "0.3" : "600"});
    ASSERT_TRUE(level.IsHeld()) << signal;
    const tagChildResult result = level.EndBy(signal);
    EXPECT_EQ(0, result.m_ExitCode) << signal << result.m_Errors;
    const Strings datagrams = console.Datagrams();
    EXPECT_EQ(1, std::count(datagrams.begin(), datagrams.end(), Frame("-leveldbg 1")));
    EXPECT_EQ(Frame("-leveldbg 0"), *(datagrams.end() - 2)) << signal;
  }
}

TEST(Kelvikctl, HeldLevelOfAModuleIsSwitchedBack) {
  CFakeConsole console;
  CHeldLevel level(console, {"level", "debug", "on", "net", "--for", "0.2"});
  EXPECT_EQ(0, level.EndBy(0).m_ExitCode);
  EXPECT_EQ(
      (Strings{kModules, Frame("-leveldbg 1 net"), kStatus, Frame("-leveldbg 0 net"), kStatus}),
      console.Datagrams());
}

TEST(Kelvikctl, LevelThatWasOnAlreadyIsLeftOn) {
  CFakeConsole console;
  console.Answer("attribute", CFakeConsole::Status("debug:true"));
  EXPECT_EQ(0, RunCtl(console.Port(), {"level", "debug", "on", "--for", "600"}).m_ExitCode);
  EXPECT_EQ(Strings{kStatus}, console.Datagrams());
}

TEST(Kelvikctl, HeldLevelIsSwitchedBackWhenTheChangeIsNotConfirmed) {
  CFakeConsole console;
  EXPECT_EQ(1, RunCtl(console.Port(), {"level", "debug", "on", "--for", "600"}).m_ExitCode);
  EXPECT_TRUE(WaitUntil([&] { return console.Datagrams().back() == Frame("-leveldbg 0"); }, 5000));
}

}  // namespace
}  // namespace Kelvik
