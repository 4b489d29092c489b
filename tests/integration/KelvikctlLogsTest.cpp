// kelvikctl logs: the ring in its order, and every line once while it goes on.

#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <string>

#include "ChildProcess.h"
#include "FileTools.h"
#include "KelviklogTools.h"
#include "PseudoTerminal.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

constexpr int kLimitMs = 30000;

tagChildResult RunLogs(const Strings& args) {
  Strings all = {"logs"};
  all.insert(all.end(), args.begin(), args.end());
  tagChildOptions options;
  options.m_LimitMs = kLimitMs;
  return RunProgram(KELVIK_KELVIKCTL, all, options);
}

// A ring as the library would leave it, made by hand.
class CRing {
 public:
  std::string Config() const { return m_Folder.File("app.ini"); }
  std::string File(const std::string& name) const { return m_Folder.File(name); }

  // As the library does it: a new file takes the place of the old one.
  void List(int newest, const std::map<int, std::string>& names, int count = -1) const {
    std::string text = "[Global]\nLogIndex=" + (newest < 0 ? "" : std::to_string(newest)) + "\n";
    if (count >= 0) text += "LogMaxCount=" + std::to_string(count) + "\n";
    text += "\n[fileName]\n";
    for (const auto& [slot, name] : names) {
      text += "fileName_" + std::to_string(slot) + "=" + (name.empty() ? "" : File(name)) + "\n";
    }
    ASSERT_TRUE(WriteFile(File("new"), text));
    ASSERT_EQ(rename(File("new").c_str(), Config().c_str()), 0);
  }
  void Append(const std::string& name, const std::string& text) const {
    std::ofstream(File(name), std::ios::app) << text;
  }
  // A file of one line, its own name, for each.
  void AppendNames(const Strings& names) const {
    for (const std::string& name : names)
      Append(name, name + "\n");
  }
  // A new file under a name that may have been another's.
  void Replace(const std::string& name, const std::string& text) const {
    unlink(File(name).c_str());
    Append(name, text);
  }

  std::string Shown(Strings args = {}) const {
    args.insert(args.begin(), {"--config", Config()});
    const tagChildResult result = RunLogs(args);
    EXPECT_TRUE(Succeeded(result));
    EXPECT_EQ(result.m_Errors, "");
    return result.m_Output;
  }
  Strings ShowCommand() const {
    return ProgramCommand(KELVIK_KELVIKCTL, {"logs", "--config", Config()});
  }
  Strings FollowCommand(const Strings& args = {}) const {
    Strings all = {"logs", "-f", "--config", Config()};
    all.insert(all.end(), args.begin(), args.end());
    return ProgramCommand(KELVIK_KELVIKCTL, all);
  }

 private:
  CTempDir m_Folder;
};

tagChildOptions Long() {
  tagChildOptions options;
  options.m_LimitMs = 2 * kLimitMs;
  return options;
}

// What a follower has printed when it is told to end.
std::string End(CChild& follower) {
  follower.Signal(SIGINT);
  const tagChildResult result = follower.Wait();
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Errors, "");
  return result.m_Output;
}

TEST(KelvikctlLogs, TheRingIsPrintedFromItsOldestFile) {
  const CRing ring;
  for (const char* const name : {"a", "b", "c"})
    ring.Append(name, std::string(name) + "1\n" + name + "2\n");
  ring.List(1, {{0, "b"}, {1, "c"}, {2, "a"}});
  EXPECT_EQ(ring.Shown(), "a1\na2\nb1\nb2\nc1\nc2\n");
  ring.List(9, {{9, "a"}, {0, "b"}});
  EXPECT_EQ(ring.Shown(), "b1\nb2\na1\na2\n");
  // No index, as after the ring was cleared.
  ring.List(-1, {});
  EXPECT_EQ(ring.Shown(), "");
}

TEST(KelvikctlLogs, AFileThatIsGoneIsPassedOver) {
  const CRing ring;
  ring.Append("b", "b\n");
  ring.List(2, {{0, "a"}, {1, "b"}, {2, "c"}, {3, ""}});
  EXPECT_EQ(ring.Shown(), "b\n");
  EXPECT_EQ(ring.Shown({"-n", "1"}), "b\n");
  ring.List(0, {{0, "nowhere/a"}});
  EXPECT_EQ(ring.Shown(), "");
}

TEST(KelvikctlLogs, SlotsThatALowerCountLeftBehindComeFirst) {
  const CRing ring;
  const timespec old[] = {{1000, 0}, {1000, 0}};
  ring.AppendNames({"a", "b", "old"});
  ASSERT_EQ(utimensat(AT_FDCWD, ring.File("old").c_str(), old, 0), 0);
  ring.List(0, {{0, "b"}, {1, "a"}, {2, "old"}}, 2);
  EXPECT_EQ(ring.Shown(), "old\na\nb\n");
}

TEST(KelvikctlLogs, ASlotBeyondTheFilesCountMayBeInUse) {
  const CRing ring;
  ring.AppendNames({"a", "b", "c"});
  ring.List(0, {{0, "c"}, {1, "a"}, {2, "b"}}, 2);
  EXPECT_EQ(ring.Shown(), "a\nb\nc\n");
}

TEST(KelvikctlLogs, WhatCannotBeReadIsSaid) {
  const CTempDir folder;
  struct tagCase {
    Strings m_Args;
    int m_ExitCode;
    std::string m_Says;
  };
  ASSERT_TRUE(WriteFile(folder.File("ini"),
                        "[Global]\nLogIndex=0\n[fileName]\nfileName_0=" + folder.File("") + "\n"));
  const tagCase cases[] = {
      {{"--config", folder.File("none")}, 2, folder.File("none") + ": No such file"},
      {{"--config", folder.File("none"), "-f"}, 2, "No such file"},
      {{"--config", folder.Path()}, 2, folder.Path() + " is no file"},
      {{"--config", "/dev/null"}, 2, "/dev/null is no file"},
      {{"--config", folder.File("ini")}, 1, " is no file"},
      {{}, 64, "--config"},
      {{"--config", folder.File("ini"), "-n", "-1"}, 64, "'-1' is no number of lines"},
      {{"--config", folder.File("ini"), "-n", "x"}, 64, "'x' is no number of lines"},
      {{"--config", folder.File("ini"), "more"}, 64, "more"},
  };
  for (const tagCase& entry : cases) {
    const tagChildResult result = RunLogs(entry.m_Args);
    EXPECT_EQ(result.m_ExitCode, entry.m_ExitCode) << entry.m_Says;
    EXPECT_NE(result.m_Errors.find(entry.m_Says), std::string::npos) << result.m_Errors;
    EXPECT_EQ(result.m_Errors.find("kelvikctl: "), 0u) << result.m_Errors;
    EXPECT_EQ(result.m_Output, "");
  }
}

TEST(KelvikctlLogs, OnlyTheLastLinesOfThoseAskedFor) {
  const CRing ring;
  ring.Append("a", "[net][x] 1\n[disk][x] 2\n[net][x] 3\n");
  ring.Append("b", "[disk][x] 4\n[77][net][x] 5\nmore of 5\n[disk][x] 6");
  ring.List(1, {{0, "a"}, {1, "b"}});
  const std::pair<Strings, std::string> cases[] = {
      {{},
       "[net][x] 1\n[disk][x] 2\n[net][x] 3\n[disk][x] 4\n[77][net][x] 5\nmore of 5\n"
       "[disk][x] 6"},
      {{"-n", "0"}, ""},
      {{"-n", "1"}, "[disk][x] 6"},
      {{"--lines", "3"}, "[77][net][x] 5\nmore of 5\n[disk][x] 6"},
      {{"-n", "5"}, "[net][x] 3\n[disk][x] 4\n[77][net][x] 5\nmore of 5\n[disk][x] 6"},
      {{"-n", "2000000000", "--module", "disk"}, "[disk][x] 2\n[disk][x] 4\n[disk][x] 6"},
      {{"--module", "NET"}, "[net][x] 1\n[net][x] 3\n[77][net][x] 5\nmore of 5\n"},
      {{"--module", "net", "-n", "3"}, "[net][x] 3\n[77][net][x] 5\nmore of 5\n"},
      {{"--module", "x"}, ""},
      {{"--grep", "5"}, "[77][net][x] 5\nmore of 5\n"},
      {{"--grep", "[net]", "-n", "2"}, "[net][x] 3\n[77][net][x] 5\n"},
      {{"--module", "net", "--grep", "more"}, "more of 5\n"},
  };
  for (const auto& [args, shown] : cases) {
    EXPECT_EQ(ring.Shown(args), shown) << testing::PrintToString(args);
  }
}

TEST(KelvikctlLogs, ALineLongerThanAnyBufferIsPrintedWhole) {
  const CRing ring;
  const std::string line = "[net] " + std::string(300000, 'x') + "\n";
  ring.Append("a", line + "[disk] " + std::string(200000, 'y') + "\n" + line);
  ring.List(0, {{0, "a"}});
  EXPECT_EQ(ring.Shown({"--module", "net"}), line + line);
  EXPECT_EQ(ring.Shown({"-n", "1"}), line);
}

TEST(KelvikctlLogs, AnUnfinishedLineIsPrintedWhenItEnds) {
  const CRing ring;
  ring.Append("a", "one\ntw");
  ring.List(0, {{0, "a"}, {1, ""}});
  CChild follower(ring.FollowCommand(), Long());
  ASSERT_TRUE(follower.WaitForOutput("one\n", kLimitMs));
  ring.Append("a", "o\nthr");
  ASSERT_TRUE(follower.WaitForOutput("two\n", kLimitMs));
  EXPECT_EQ(follower.Output(), "one\ntwo\n");
  // Left for the next file, it ends as it stands.
  ring.Append("b", "four\nfi");
  ring.List(1, {{0, "a"}, {1, "b"}});
  ASSERT_TRUE(follower.WaitForOutput("four\n", kLimitMs));
  EXPECT_EQ(End(follower), "one\ntwo\nthr\nfour\n");
}

TEST(KelvikctlLogs, FollowingSeesEachNewFileHoweverItIsCalled) {
  const CRing ring;
  ring.AppendNames({"a", "b"});
  ring.List(1, {{0, "a"}, {1, "b"}});
  CChild follower(ring.FollowCommand({"-n", "1"}), Long());
  ASSERT_TRUE(follower.WaitForOutput("b\n", kLimitMs));
  // The next file, whose entry comes before it is there.
  unlink(ring.File("a").c_str());
  ring.List(0, {{0, "c"}, {1, "b"}});
  usleep(50000);
  ring.Append("c", "c\n");
  ASSERT_TRUE(follower.WaitForOutput("c\n", kLimitMs));
  // The other slot's next file has the name of its last one.
  ring.Replace("b", "again\n");
  ring.List(1, {{0, "c"}, {1, "b"}});
  ASSERT_TRUE(follower.WaitForOutput("again\n", kLimitMs));
  // And the same slot's.
  ring.Replace("b", "and again\n");
  ring.List(1, {{0, "c"}, {1, "b"}});
  ASSERT_TRUE(follower.WaitForOutput("and again\n", kLimitMs));
  // The ring is cleared and begins anew.
  unlink(ring.File("b").c_str());
  unlink(ring.File("c").c_str());
  ring.List(-1, {});
  usleep(50000);
  ring.Append("b", "new\n");
  ring.List(0, {{0, "b"}});
  ASSERT_TRUE(follower.WaitForOutput("new\n", kLimitMs));
  // A restart with fewer files leaves an old one behind, which is not printed again.
  ring.Append("d", "d\n");
  ring.List(3, {{0, "b"}, {3, "d"}});
  ASSERT_TRUE(follower.WaitForOutput("d\n", kLimitMs));
  ring.Replace("b", "e\n");
  ring.List(0, {{0, "b"}, {3, "d"}}, 2);
  ASSERT_TRUE(follower.WaitForOutput("e\n", kLimitMs));
  EXPECT_EQ(End(follower), "b\nc\nagain\nand again\nnew\nd\ne\n");
}

TEST(KelvikctlLogs, FollowingAnEmptyRingWaitsForItsFirstFile) {
  const CRing ring;
  ring.List(-1, {});
  CChild follower(ring.FollowCommand(), Long());
  usleep(100000);
  EXPECT_TRUE(follower.IsRunning());
  ring.List(0, {{0, "a"}});
  ring.Append("a", "first\n");
  ASSERT_TRUE(follower.WaitForOutput("first\n", kLimitMs));
  EXPECT_EQ(End(follower), "first\n");
}

TEST(KelvikctlLogs, ALostFileIsReported) {
  const CRing ring;
  ring.AppendNames({"a", "b"});
  ring.List(1, {{0, "a"}, {1, "b"}});
  CChild follower(ring.FollowCommand(), Long());
  ASSERT_TRUE(follower.WaitForOutput("b\n", kLimitMs));
  follower.Signal(SIGSTOP);
  const std::string status = "/proc/" + std::to_string(follower.Pid()) + "/status";
  ASSERT_TRUE(WaitUntil([&] { return ReadFile(status).find("\nState:\tT") != std::string::npos; },
                        kLimitMs));
  ring.Append("b", "tail\n");
  ring.Replace("a", "e\n");
  ring.Replace("b", "f\n");
  ring.List(1, {{0, "a"}, {1, "b"}});
  follower.Signal(SIGCONT);
  ASSERT_TRUE(follower.WaitForOutput("f\n", kLimitMs));
  follower.Signal(SIGINT);
  const tagChildResult result = follower.Wait();
  EXPECT_TRUE(Succeeded(result));
  // What was open was read to its end all the same.
  EXPECT_EQ(result.m_Output, "a\nb\ntail\ne\nf\n");
  EXPECT_EQ(result.m_Errors,
            "kelvikctl: files were deleted before they could be read: lines may be missing\n");
}

// A run fits into the ring, so nothing is lost however slow the follower is; what it prints must be
// all of every run.
TEST(KelvikctlLogs, EveryLineOfAProgramThatRotatesAndRestartsComesOnce) {
  constexpr int kLines = 600;
  const CTempDir folder;
  const std::string config = folder.File("app.ini");
  const Strings common = {"--no-terminal", "-m",          "net",      "--count", "10",
                          "--dir",         folder.Path(), "--config", config};
  const auto args = [&common](const Strings& more) {
    Strings all = common;
    all.insert(all.end(), more.begin(), more.end());
    return all;
  };
  ASSERT_TRUE(Succeeded(RunKelviklog(args({"--size", "4"}), Join(Numbers(0, 10)), kLimitMs)));
  CChild follower(ProgramCommand(KELVIK_KELVIKCTL, {"logs", "-f", "--config", config}), Long());
  int next = 10;
  for (const Strings& rotation : {Strings{"--size", "4"}, Strings{"--size", "4"},
                                  Strings{"--duration", "1"}, Strings{"--size", "4"}}) {
    const Strings lines = Numbers(next, kLines);
    next += kLines;
    ASSERT_TRUE(Succeeded(RunKelviklog(args(rotation), Join(lines), kLimitMs)));
    ASSERT_TRUE(follower.WaitForOutput(lines.back(), kLimitMs)) << follower.Errors();
  }
  {
    tagChildOptions options = Long();
    options.m_IsInputPiped = true;
    CChild killed(ProgramCommand(KELVIK_KELVIKLOG, args({"--size", "4"})), options);
    const Strings lines = Numbers(next, kLines / 2);
    next += kLines / 2;
    ASSERT_TRUE(killed.Write(Join(lines)));
    ASSERT_TRUE(follower.WaitForOutput(lines.back(), kLimitMs));
    killed.Signal(SIGKILL);
    killed.Wait();
  }
  const Strings last = Numbers(next, kLines);
  ASSERT_TRUE(Succeeded(RunKelviklog(args({"--size", "4"}), Join(last), kLimitMs)));
  ASSERT_TRUE(follower.WaitForOutput(last.back() + "\n", kLimitMs));
  EXPECT_EQ(Payloads(Lines(End(follower)), " [net] "), Numbers(0, next + kLines));
  // The whole ring once more, as it stands.
  const Strings ring = Payloads(Lines(RunLogs({"--config", config}).m_Output), " [net] ");
  EXPECT_TRUE(IsTail(ring, Numbers(0, next + kLines)));
  EXPECT_EQ(ring, RingPayloads(folder.Path(), " [net] "));
}

TEST(KelvikctlLogs, AReaderThatGoesAwayEndsItQuietly) {
  const CRing ring;
  ring.Append("a", "first\n" + std::string(300000, 'x') + "\n");
  ring.List(0, {{0, "a"}});
  for (const std::string& follow : {std::string(), std::string("-f")}) {
    Strings command = ShellCommand("{ \"$@\"; echo code=$? >&2; } | head -n 1", ring.ShowCommand());
    if (!follow.empty()) command.push_back(follow);
    const tagChildResult result = RunCommand(command, Long());
    EXPECT_FALSE(result.m_TimedOut);
    EXPECT_EQ(result.m_Output, "first\n");
    EXPECT_EQ(result.m_Errors, "code=0\n");
  }
}

TEST(KelvikctlLogs, ControlBytesDoNotReachATerminal) {
  const CRing ring;
  CPseudoTerminal terminal;
  ring.Append("a", "a\x1B[2J\tb\n");
  ring.List(0, {{0, "a"}});
  ASSERT_TRUE(Succeeded(
      RunCommand(ShellCommand("exec \"$@\" > " + terminal.Path(), ring.ShowCommand()), Long())));
  EXPECT_EQ(terminal.ReadUntil("\n"), "a\\x1B[2J\tb\n");
  EXPECT_EQ(ring.Shown(), "a\x1B[2J\tb\n");
}

}  // namespace
}  // namespace Kelvik
