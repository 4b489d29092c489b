// kelviklog on a terminal: control bytes of the input do not reach it, and the progress line never
// mixes with the records.

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "KelviklogTools.h"
#include "PseudoTerminal.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

const char kClear[] = "\r\x1B[K";

// The shell's words for one of the descriptors, 1 or 2, on the terminal.
std::string On(const CPseudoTerminal& terminal, const std::string& descriptor) {
  return " " + descriptor + "> " + terminal.Path();
}

TEST(KelviklogTerminal, ControlBytesAreShownOnATerminal) {
  const CTempDir folder;
  CPseudoTerminal terminal;
  const std::string file = folder.File("in");
  ASSERT_TRUE(WriteFile(file, std::string("a\x1B[2J\tb\0c\n", 10)));
  const std::string script = "exec \"$@\"" + On(terminal, "1");
  ASSERT_TRUE(Succeeded(RunInShell(script, {"--no-time", file})));
  EXPECT_EQ(terminal.ReadUntil("\n"), "\x1B[0ma\\x1B[2J\tb\\x00c\n");
  ASSERT_TRUE(Succeeded(RunInShell(script, {"--no-time", "--no-escape", file})));
  EXPECT_EQ(terminal.ReadUntil("\n"), "\x1B[0ma\x1B[2J\tb\\0c\n");
}

TEST(KelviklogTerminal, ElsewhereControlBytesStayUnlessAskedFor) {
  const std::string input = "\x1B[2J\x9B\r\n";
  const auto shown = [&input](Strings args) {
    args.emplace_back("--no-time");
    return RunKelviklog(args, input).m_Output;
  };
  EXPECT_EQ(shown({}), "\x1B[0m" + input);
  EXPECT_EQ(shown({"--escape"}), "\x1B[0m\\x1B[2J\\x9B\\x0D\n");
  EXPECT_EQ(shown({"--escape", "--no-escape"}), "\x1B[0m" + input);
}

TEST(KelviklogTerminal, WithoutTerminalOutputFilesKeepControlBytes) {
  const CTempDir folder;
  CPseudoTerminal terminal;
  ASSERT_TRUE(WriteFile(folder.File("in"), "\x1B[2J\n"));
  ASSERT_TRUE(Succeeded(
      RunInShell("exec \"$@\"" + On(terminal, "1"),
                 {"--no-time", "--no-terminal", "--dir", folder.Path(), folder.File("in")})));
  const Strings files = LogFiles(folder.Path());
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(ReadFile(files.front()), "\x1B[2J\n");
}

TEST(KelviklogTerminal, EscapedLinesThatOutgrowARecordKeepEveryByte) {
  const std::string output =
      RunKelviklog({"--escape", "--no-time"}, std::string(5000, '\x01') + "\n").m_Output;
  std::string text;
  for (const std::string& line : Lines(output)) {
    text += line.substr(4);  // behind the colour
  }
  std::string expected;
  for (int i = 0; i < 5000; ++i) {
    expected += "\\x01";
  }
  EXPECT_EQ(text, expected);
}

// An input that takes its time: files so small that each record is written by itself, and every few
// of them one is changed.
class CLongInput {
 public:
  CLongInput() {
    const std::string line = std::string(63, 'x') + "\n";
    std::string content;
    for (int i = 0; i < 16384 * 32; ++i) {
      content += line;
    }
    EXPECT_TRUE(WriteFile(File(), content));
  }
  std::string File() const { return m_Folder.File("long"); }
  Strings Args(Strings args) const {
    args.insert(args.end(), {"--size", "1", "--dir", m_Folder.Path(), File()});
    return args;
  }

 private:
  CTempDir m_Folder;
};

TEST(KelviklogTerminal, ALongFileShowsItsProgressAndTakesTheLineAway) {
  const CLongInput input;
  CPseudoTerminal terminal;
  CChild child(ShellCommand("exec \"$@\"" + On(terminal, "2"),
                            ProgramCommand(KELVIK_KELVIKLOG, input.Args({"--no-terminal"}))));
  std::string shown = terminal.ReadUntil(" of 32.0 MiB\x1B[K", 30000);
  child.Signal(SIGINT);
  EXPECT_TRUE(Succeeded(child.Wait()));
  shown += terminal.Take();
  ASSERT_GT(shown.size(), sizeof(kClear));
  EXPECT_EQ(shown.substr(shown.size() - 4), kClear);
  EXPECT_EQ(shown.compare(0, 1, "\r"), 0);
  EXPECT_NE(shown.find("/long: "), std::string::npos) << shown;
  EXPECT_EQ(shown.find('\n'), std::string::npos);
}

TEST(KelviklogTerminal, RecordsOnTheSameTerminalMeetNoProgressLine) {
  const CLongInput input;
  struct tagCase {
    Strings m_Args;
    bool m_HasLine;
  };
  const tagCase cases[] = {{{}, false}, {{"--progress"}, true}};
  for (const tagCase& entry : cases) {
    CPseudoTerminal terminal;
    Strings args = entry.m_Args;
    args.emplace_back("--no-time");
    CChild child(ShellCommand("exec \"$@\"" + On(terminal, "1") + " 2>&1",
                              ProgramCommand(KELVIK_KELVIKLOG, input.Args(args))));
    std::string shown = terminal.ReadUntil(" MiB\x1B[K", entry.m_HasLine ? 30000 : 800);
    child.Signal(SIGINT);
    WaitUntil(
        [&] {
          shown += terminal.Take();
          return !child.IsRunning();
        },
        10000);
    shown += terminal.Take();
    EXPECT_EQ(shown.find('%') != std::string::npos, entry.m_HasLine);
    // With the progress line and its clearing taken out, records are all there is.
    std::string records;
    for (std::size_t at = 0; at < shown.size();) {
      if (shown[at] == '\r') {
        const std::size_t end = shown.find("\x1B[K", at);
        ASSERT_NE(end, std::string::npos);
        at = end + 3;
      } else {
        records += shown[at++];
      }
    }
    for (const std::string& line : Lines(records)) {
      ASSERT_EQ(line, "\x1B[0m" + std::string(63, 'x'));
    }
  }
}

TEST(KelviklogTerminal, WithoutATerminalThereIsNoProgressLine) {
  const CLongInput input;
  CChild child(ProgramCommand(KELVIK_KELVIKLOG, input.Args({"--no-terminal", "--progress"})));
  usleep(800 * 1000);
  child.Signal(SIGINT);
  const tagChildResult result = child.Wait();
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Errors, "");
}

}  // namespace
}  // namespace Kelvik
