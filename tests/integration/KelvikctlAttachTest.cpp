// kelvikctl attach: the process's terminal output comes here, and goes back before kelvikctl ends,
// however it ends.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "ChildProcess.h"
#include "ConsoleClient.h"
#include "KelvikctlTools.h"
#include "PseudoTerminal.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

constexpr char kYellow[] = "\033[33m";
// The library recovers by itself from a lost terminal; that the output was sent back shows here.
constexpr char kSentBack[] = "receive command: -console";
constexpr char kNode[] = "******************* node = ";

// args: the terminal that is its standard input, and milliseconds between two records (0: none).
CHILD_CASE(Ticking) {
  const int terminal = open(args[0].c_str(), O_RDWR | O_NOCTTY);
  if (terminal == -1 || dup2(terminal, STDIN_FILENO) == -1) return 1;
  close(terminal);
  const CTestConsole console;
  std::printf("port %u\n", unsigned{console.Port()});
  std::fflush(stdout);
  const int pause = std::atoi(args[1].c_str());
  for (int tick = 0; getppid() != 1; ++tick) {
    KLog(eLogLevelError, "clock", "tick", "tick %d\n", tick);
    PauseMs(pause);
  }
  return 0;
}

// A process that prints a record again and again, and the terminal that it started from.
class CTicking {
 public:
  explicit CTicking(int pauseMs = 10)
      : m_Home(std::make_unique<CPseudoTerminal>()),
        m_Child(ChildCommand("Ticking", {m_Home->Path(), std::to_string(pauseMs)}), Options()) {
    if (!m_Child.WaitForOutput("tick 0", 20000)) {
      ADD_FAILURE() << "it does not start: " << m_Child.Errors();
      return;
    }
    const std::string output = m_Child.Output();
    m_Port = static_cast<uint16_t>(std::atoi(output.c_str() + output.find("port ") + 5));
  }

  uint16_t Port() const { return m_Port; }
  CChild& Child() { return m_Child; }

  // Whether its records come out where it started. Takes what has come there so far.
  bool IsHome() {
    m_Home->Take();
    return Contains(m_Home->ReadUntil("tick "), "tick ");
  }
  bool AwaitHome(const std::string& text) { return Contains(m_Home->ReadUntil(text, 20000), text); }
  std::string HomeBanner() const { return kNode + m_Home->Path(); }
  std::string TakeHome() { return m_Home->Take(); }
  void CloseHome() { m_Home.reset(); }

 private:
  static tagChildOptions Options() {
    tagChildOptions options;
    options.m_LimitMs = 60000;
    return options;
  }

  std::unique_ptr<CPseudoTerminal> m_Home;
  CChild m_Child;
  uint16_t m_Port = 0;
};

tagChildOptions Patient() {
  tagChildOptions options;
  options.m_LimitMs = 40000;
  return options;
}

Strings AttachCommand(uint16_t port, const Strings& args = {}) {
  Strings all = CtlArgs(port, {"attach"});
  all.insert(all.end(), args.begin(), args.end());
  return ProgramCommand(KELVIK_KELVIKCTL, all);
}

// Runs attach in a shell that does something with its output.
tagChildResult RunAttachInShell(const std::string& script, uint16_t port,
                                const Strings& args = {}) {
  return RunCommand(ShellCommand(script, AttachCommand(port, args)), Patient());
}

TEST(KelvikctlAttach, OutputComesHereForATimeAndThenGoesBack) {
  CTicking process;
  const tagChildResult result =
      RunCommand(AttachCommand(process.Port(), {"--for", "0.5"}), Patient());
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(0u, result.m_Output.find(kNode)) << result.m_Output.substr(0, 200);
  EXPECT_TRUE(Contains(result.m_Output, kYellow)) << result.m_Output;
  EXPECT_TRUE(Contains(result.m_Output, "[clock][tick] tick ")) << result.m_Output;
  EXPECT_TRUE(Contains(result.m_Output, kSentBack)) << result.m_Output;
  EXPECT_TRUE(process.IsHome());
}

TEST(KelvikctlAttach, EachEndingSignalSendsTheOutputBackFirst) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    CTicking process;
    CChild attach(AttachCommand(process.Port()), Patient());
    ASSERT_TRUE(attach.WaitForOutput("tick ", 20000)) << signal << attach.Errors();
    EXPECT_FALSE(Contains(process.TakeHome(), "tick")) << signal;
    attach.Signal(signal);
    const tagChildResult result = attach.Wait();
    EXPECT_EQ(0, result.m_ExitCode) << signal << result.m_Errors;
    EXPECT_TRUE(Contains(result.m_Output, kSentBack)) << signal;
    EXPECT_TRUE(process.IsHome()) << signal;
  }
}

// Whether a stop really stops depends on the shell above; here it is passed over and attach goes
// on.
TEST(KelvikctlAttach, StopSignalSendsTheOutputBackAndItsEndTakesItAgain) {
  CTicking process;
  CChild attach(AttachCommand(process.Port()), Patient());
  ASSERT_TRUE(attach.WaitForOutput("tick ", 20000)) << attach.Errors();
  const std::size_t first = attach.Output().size();
  attach.Signal(SIGTSTP);
  EXPECT_TRUE(process.AwaitHome(process.HomeBanner()));
  EXPECT_TRUE(WaitUntil([&] { return Contains(attach.Output().substr(first), kNode); }, 20000));
  attach.Signal(SIGINT);
  EXPECT_EQ(0, attach.Wait().m_ExitCode);
  EXPECT_TRUE(process.IsHome());
}

TEST(KelvikctlAttach, ReaderThatGoesAwaySendsTheOutputBack) {
  CTicking process;
  const tagChildResult result = RunAttachInShell("\"$@\" | head -n 3", process.Port());
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ("", result.m_Errors);
  EXPECT_TRUE(process.IsHome());
}

// Standard output that takes nothing holds up neither the end of --for nor the process.
TEST(KelvikctlAttach, ReaderThatSleepsDoesNotKeepTheOutput) {
  CTicking process(0);
  const CTempDir folder;
  const Strings command = ShellCommand(
      "mkfifo \"$0\" && { sleep 600 < \"$0\" & } && \"$@\" > \"$0\"; "
      "code=$?; kill $!; exit $code",
      AttachCommand(process.Port(), {"--for", "0.5"}), folder.File("fifo"));
  EXPECT_TRUE(Succeeded(RunCommand(command, Patient())));
  EXPECT_TRUE(process.IsHome());
}

TEST(KelvikctlAttach, ProcessThatPrintsWithoutPauseIsLeftInTime) {
  CTicking process(0);
  const tagChildResult result =
      RunAttachInShell("\"$@\" > /dev/null", process.Port(), {"--for", "0.5"});
  EXPECT_TRUE(Succeeded(result));
  EXPECT_TRUE(process.IsHome());
}

TEST(KelvikctlAttach, ProcessThatCannotOpenItsConsoleIsAFailure) {
  CTicking process;
  Strings command = CtlArgs(process.Port(), {"--timeout", "6", "attach", "--for", "0.3"});
  process.CloseHome();
  const tagChildResult result = RunCommand(ProgramCommand(KELVIK_KELVIKCTL, command), Patient());
  EXPECT_EQ(1, result.m_ExitCode);
  EXPECT_TRUE(Contains(result.m_Errors, "cannot open its console")) << result.m_Errors;
}

TEST(KelvikctlAttach, ProcessThatEndsIsToldAsSuch) {
  CTicking process;
  CChild attach(AttachCommand(process.Port()), Patient());
  ASSERT_TRUE(attach.WaitForOutput("tick ", 20000)) << attach.Errors();
  process.Child().Signal(SIGKILL);
  const tagChildResult result = attach.Wait();
  EXPECT_EQ(2, result.m_ExitCode);
  EXPECT_TRUE(Contains(result.m_Errors, "nobody listens")) << result.m_Errors;
}

TEST(KelvikctlAttach, OutputThatIsSentElsewhereEndsItAndStaysThere) {
  CTicking process;
  CChild attach(AttachCommand(process.Port()), Patient());
  ASSERT_TRUE(attach.WaitForOutput("tick ", 20000)) << attach.Errors();
  CPseudoTerminal other;
  EXPECT_TRUE(Succeeded(RunCtl(process.Port(), {"tty", other.Path()})));
  const tagChildResult result = attach.Wait();
  EXPECT_EQ(1, result.m_ExitCode);
  EXPECT_TRUE(Contains(result.m_Errors, "elsewhere")) << result.m_Errors;
  other.Take();
  EXPECT_TRUE(Contains(other.ReadUntil("tick "), "tick "));
  EXPECT_TRUE(Succeeded(RunCtl(process.Port(), {"console"})));
  EXPECT_TRUE(process.IsHome());
}

}  // namespace
}  // namespace Kelvik
