// kelviklog's lines and records: what goes in comes out, in the shape that the options ask for.

#include <gtest/gtest.h>

#include <string>

#include "KelviklogTools.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

const char kPlain[] = "\x1B[0m";
const char kYellow[] = "\x1B[33m";
const char kRed[] = "\x1B[31m";

// The record as the terminal shows it.
std::string Shown(const std::string& colour, const std::string& record) {
  return colour + record + "\n" + (colour == kPlain ? "" : kPlain);
}

// Runs with --no-time and returns what stands on standard output.
std::string Terminal(Strings args, const std::string& input) {
  args.insert(args.begin(), "--no-time");
  const tagChildResult result = RunKelviklog(args, input);
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Errors, "");
  return result.m_Output;
}

// The records of a run with --no-time into a file that takes them all.
std::string Filed(Strings args, const std::string& input) {
  const CTempDir folder;
  args.insert(args.end(), {"--no-time", "--no-terminal", "--size", "1000000", "--dir"});
  args.push_back(folder.Path());
  const tagChildResult result = RunKelviklog(args, input, 30000);
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Output, "");
  EXPECT_EQ(result.m_Errors, "");
  const Strings files = LogFiles(folder.Path());
  EXPECT_EQ(files.size(), 1u);
  return files.empty() ? "" : ReadFile(files.front());
}

TEST(Kelviklog, EachLineIsARecordWithItsTime) {
  const tagChildResult result = RunKelviklog({}, "one\ntwo\n");
  ASSERT_TRUE(Succeeded(result));
  const Strings lines = Lines(result.m_Output);
  ASSERT_EQ(lines.size(), 2u);
  ASSERT_EQ(lines[0].compare(0, 4, kPlain), 0);
  EXPECT_EQ(Payload(lines[0].substr(4), " "), "one");
  EXPECT_EQ(Payload(lines[1].substr(4), " "), "two");
}

TEST(Kelviklog, NoInputIsNoRecord) {
  EXPECT_EQ(Terminal({}, ""), "");
}

TEST(Kelviklog, ModuleTitleAndTimeMakeThePrefix) {
  struct tagCase {
    Strings m_Args;
    std::string m_Record;
  };
  const tagCase cases[] = {
      {{}, "x"},
      {{"-m", "net"}, "[net] x"},
      {{"--module", "net"}, "[net] x"},
      {{"--module=net"}, "[net] x"},
      {{"-t", "rx"}, "[rx] x"},
      {{"--title", "rx"}, "[rx] x"},
      {{"-m", "net", "-t", "rx"}, "[net][rx] x"},
      {{"-m", "", "-t", ""}, "[][] x"},
      {{"-m", "%s%n", "-t", "%d"}, "[%s%n][%d] x"},
      {{"-m", "first", "-m", "second"}, "[second] x"},
  };
  for (const tagCase& entry : cases) {
    EXPECT_EQ(Terminal(entry.m_Args, "x\n"), Shown(kPlain, entry.m_Record));
  }
  const tagChildResult result = RunKelviklog({"-m", "net", "-t", "rx", "--time"}, "x\n");
  EXPECT_EQ(Payload(result.m_Output.substr(4), " [net][rx] "), "x\n");
}

TEST(Kelviklog, TheThreadIdIsTheProcess) {
  tagChildOptions options;
  options.m_Input = "x\n";
  CChild child(ProgramCommand(KELVIK_KELVIKLOG, {"--tid", "-m", "net", "--no-time"}), options);
  const std::string id = std::to_string(child.Pid());
  const tagChildResult result = child.Wait();
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Output, Shown(kPlain, "[" + id + "][net] x"));
}

TEST(Kelviklog, TheLevelColoursTheTerminal) {
  const std::pair<const char*, const char*> cases[] = {{"debug", kPlain},
                                                       {"info", kPlain},
                                                       {"warning", kPlain},
                                                       {"error", kYellow},
                                                       {"fatal", kRed}};
  for (const auto& [level, colour] : cases) {
    EXPECT_EQ(Terminal({"-l", level}, "x\n"), Shown(colour, "x")) << level;
    EXPECT_EQ(Terminal({"--level", level}, "x\n"), Shown(colour, "x")) << level;
  }
}

TEST(Kelviklog, ThePriorityPrefixGivesTheLevelAndGoes) {
  const std::string input = "<0>a\n<2>b\n<3>c\n<4>d\n<7>e\nf\n<8>g\n<3>\n";
  EXPECT_EQ(Terminal({"--priority-prefix"}, input), Shown(kRed, "a") + Shown(kRed, "b") +
                                                        Shown(kYellow, "c") + Shown(kPlain, "d") +
                                                        Shown(kPlain, "e") + Shown(kPlain, "f") +
                                                        Shown(kPlain, "<8>g") + Shown(kYellow, ""));
  // A line without one has the level of the option.
  EXPECT_EQ(Terminal({"--priority-prefix", "-l", "error"}, "<6>a\nb\n"),
            Shown(kPlain, "a") + Shown(kYellow, "b"));
}

TEST(Kelviklog, WithoutTheOptionAPriorityIsText) {
  EXPECT_EQ(Terminal({}, "<3>x\n"), Shown(kPlain, "<3>x"));
}

TEST(Kelviklog, TheSystemLogGetsThePriorityAndNoTime) {
  tagChildOptions options;
  options.m_Input = "<0>a\n<3>b\n<4>c\n<5>d\n<6>e\n<7>f\ng\n";
  const tagChildResult result =
      RunProgram(KELVIK_KELVIKLOG_SYSLOG,
                 {"--syslog", "--no-terminal", "--priority-prefix", "-m", "net"}, options);
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Output, "");
  EXPECT_EQ(result.m_Errors,
            "<2>[net] a\n<3>[net] b\n<4>[net] c\n<6>[net] d\n<6>[net] e\n<7>[net] f\n<6>[net] g\n");
}

TEST(Kelviklog, LinesComeOutByteForByte) {
  std::string hostile;
  for (int byte = 1; byte < 256; ++byte) {
    hostile += static_cast<char>(byte == '\n' ? ' ' : byte);
  }
  const std::string input =
      "%s%n%d\n\n  \ttabs \r\n\xC3\xA4\xE2\x82\xAC\n\xC3(\xFF\xFE\n" + hostile + "\n";
  EXPECT_EQ(Filed({}, input), input);
}

TEST(Kelviklog, ALastLineWithoutALineEndIsLogged) {
  EXPECT_EQ(Terminal({}, "one\nlast"), Shown(kPlain, "one") + Shown(kPlain, "last"));
}

TEST(Kelviklog, ANulByteIsShown) {
  EXPECT_EQ(Terminal({}, std::string("a\0b\0\0\n\0\n", 8)),
            Shown(kPlain, "a\\0b\\0\\0") + Shown(kPlain, "\\0"));
}

TEST(Kelviklog, FilesAreReadInTheirOrder) {
  const CTempDir folder;
  ASSERT_TRUE(WriteFile(folder.File("a"), "a1\na2"));
  ASSERT_TRUE(WriteFile(folder.File("[b,c]"), "b1\n"));
  ASSERT_TRUE(WriteFile(folder.File("-d"), "d1\n"));
  const std::string a = Shown(kPlain, "a1") + Shown(kPlain, "a2");
  const std::string b = Shown(kPlain, "b1");
  const std::string input = Shown(kPlain, "in");
  EXPECT_EQ(Terminal({folder.File("a"), folder.File("[b,c]"), folder.File("a")}, "in\n"),
            a + b + a);
  EXPECT_EQ(Terminal({folder.File("a"), "-", folder.File("[b,c]")}, "in\n"), a + input + b);
  EXPECT_EQ(Terminal({"-"}, "in\n"), input);
  tagChildOptions options;
  options.m_Folder = folder.Path();
  EXPECT_EQ(RunProgram(KELVIK_KELVIKLOG, {"--no-time", "--", "-d"}, options).m_Output,
            Shown(kPlain, "d1"));
}

// The room that a record has for a line, by the prefix "[net] " and the line end.
constexpr std::size_t kRoom = 8191 - 6 - 1;

TEST(Kelviklog, ALineThatJustFitsIsOneRecord) {
  const std::string line(kRoom, 'x');
  EXPECT_EQ(Filed({"-m", "net"}, line + "\n"), "[net] " + line + "\n");
}

TEST(Kelviklog, ALongerLineBecomesSeveralRecords) {
  const std::string line(kRoom, 'x');
  EXPECT_EQ(Filed({"-m", "net"}, line + "yz\n"), "[net] " + line + "\n[net] yz\n");
  EXPECT_EQ(Filed({"-m", "net"}, line + line + "\n"), "[net] " + line + "\n[net] " + line + "\n");
}

TEST(Kelviklog, NothingOfALongLineIsLost) {
  // Longer than what is read at a time, with characters of every length at every place, NUL bytes,
  // and bytes that are no characters.
  std::string line;
  for (int i = 0; line.size() < 1500000; ++i) {
    line += std::to_string(i) +
            (i % 3 == 0   ? "\xC3\xA4"
             : i % 3 == 1 ? "\xE2\x82\xAC"
                          : "\xFF") +
            (i % 101 == 0 ? std::string(1, '\0') : "\xF0\x9F\x98\x80");
  }
  std::string expected;
  for (const char character : line) {
    expected += character == '\0' ? "\\0" : std::string(1, character);
  }
  std::string joined;
  const Strings records = Lines(Filed({"-m", "net", "-t", "rx"}, line + "\nnext\n"));
  ASSERT_GT(records.size(), expected.size() / 8191);
  EXPECT_EQ(records.back(), "[net][rx] next");
  for (std::size_t i = 0; i + 1 < records.size(); ++i) {
    ASSERT_EQ(records[i].compare(0, 10, "[net][rx] "), 0);
    ASSERT_LT(records[i].size(), 8191u);
    ASSERT_NE(static_cast<unsigned char>(records[i][10]) & 0xC0u, 0x80u) << "a torn character";
    joined += records[i].substr(10);
  }
  EXPECT_TRUE(joined == expected);
}

TEST(Kelviklog, EveryPartOfALongLineHasItsLevel) {
  const std::string text(300000, 'x');
  const std::string output = Terminal({"--priority-prefix"}, "<3>" + text + "\nend\n");
  std::string joined;
  const Strings lines = Lines(output);
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    const std::string mark = std::string(i == 0 ? "" : kPlain) + kYellow;
    ASSERT_EQ(lines[i].compare(0, mark.size(), mark), 0) << i;
    joined += lines[i].substr(mark.size());
  }
  EXPECT_TRUE(joined == text);
  EXPECT_EQ(lines.back(), std::string(kPlain) + kPlain + "end");
}

TEST(Kelviklog, ARecordIsOutBeforeTheNextInputIsWaitedFor) {
  tagChildOptions options;
  options.m_IsInputPiped = true;
  CChild child(ProgramCommand(KELVIK_KELVIKLOG, {"--no-time"}), options);
  ASSERT_TRUE(child.Write("one\n"));
  EXPECT_TRUE(child.WaitForOutput("one\n", 5000));
  ASSERT_TRUE(child.Write("two"));
  child.CloseInput();
  const tagChildResult result = child.Wait();
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Output, Shown(kPlain, "one") + Shown(kPlain, "two"));
}

}  // namespace
}  // namespace Kelvik
