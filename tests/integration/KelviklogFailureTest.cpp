// How kelviklog fails and how it is ended: exit codes, one line on standard error, and what was
// read is written.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "KelviklogTools.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 64;

bool WaitFor(const std::function<bool()>& condition) {
  for (int i = 0; i < 500; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// A text file of 1 MiB, as a command line of many.
Strings LongInput(const CTempDir& work, std::size_t copies) {
  EXPECT_TRUE(WriteFile(work.File("input"), Join(Numbers(0, 1048576 / 9))));
  return Strings(copies, work.File("input"));
}

TEST(KelviklogFailure, BadUsageIsOneLineAnd64) {
  const std::string longName(128, 'x');
  const Strings cases[] = {
      {"--bogus"},
      {"-z"},
      {"--module"},
      {"--module", longName},
      {"--title", longName},
      {"--level", "loud"},
      {"--level", "3"},
      {"--level", ""},
      {"--size", "0"},
      {"--size", "-1"},
      {"--size", "2097152"},
      {"--size", "many"},
      {"--size"},
      {"--count", "0"},
      {"--count", "11"},
      {"--duration", "0"},
      {"--duration", "2147483648"},
      {"--duration", "1", "--size", "1"},
      {"--config", ""},
      {"--config", longName},
      {"--no-terminal"},
      {"--no-terminal", "--dir", "/tmp", "--no-file"},
  };
  for (const Strings& args : cases) {
    const tagChildResult result = RunKelviklog(args, "x\n");
    EXPECT_EQ(result.m_ExitCode, kUsage) << testing::PrintToString(args);
    EXPECT_EQ(result.m_Output, "") << testing::PrintToString(args);
    EXPECT_TRUE(IsOneMessage(result.m_Errors, "")) << testing::PrintToString(args);
  }
}

TEST(KelviklogFailure, HelpAndVersionAreNoFailure) {
  const tagChildResult help = RunKelviklog({"--help"});
  ASSERT_TRUE(Succeeded(help));
  for (const char* option :
       {"-m,--module", "-t,--title", "-l,--level", "--dir", "--size", "--count", "--duration",
        "--config", "--[no-]terminal", "--[no-]file", "--[no-]time", "--syslog", "--tid",
        "--priority-prefix", "--version", "--help", "[FILE...]"}) {
    EXPECT_NE(help.m_Output.find(option), std::string::npos) << option;
  }
  EXPECT_EQ(help.m_Errors, "");
  const tagChildResult version = RunKelviklog({"--version"});
  ASSERT_TRUE(Succeeded(version));
  EXPECT_EQ(version.m_Output, "kelviklog " KELVIK_TEST_VERSION "\n");
}

TEST(KelviklogFailure, AFolderThatCannotBeUsedIsRefusedBeforeAnythingIsRead) {
  const CTempDir folder;
  ASSERT_TRUE(WriteFile(folder.File("file"), ""));
  const std::pair<std::string, const char*> cases[] = {
      {folder.File("missing"), "No such file or directory"},
      {folder.File("file"), "Not a directory"},
      {"", "empty"},
      {"/" + std::string(254, 'x'), "more than 255 characters"},
  };
  for (const auto& [name, reason] : cases) {
    const tagChildResult result = RunKelviklog({"--dir", name}, "x\n");
    EXPECT_EQ(result.m_ExitCode, kFailed) << name;
    EXPECT_EQ(result.m_Output, "") << name;
    EXPECT_TRUE(IsOneMessage(result.m_Errors, reason));
  }
}

TEST(KelviklogFailure, AFolderWithoutPermissionIsRefused) {
  const CTempDir folder;
  const CTempDir counters;
  ASSERT_EQ(chmod(folder.Path().c_str(), 0555), 0);
  Strings command = ProgramCommand(KELVIK_KELVIKLOG, {"--dir", folder.Path()});
  if (geteuid() == 0) {
    // Root may write everywhere; nobody may not. That goes for the counters of gcov in the build
    // folder too, which says so on standard error wherever it is told to report.
    ASSERT_EQ(chmod(counters.Path().c_str(), 0777), 0);
    command.insert(command.begin(), {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                     "env", "GCOV_PREFIX=" + counters.Path()});
  }
  const tagChildResult result = RunCommand(command);
  if (result.m_ExitCode == 126 || result.m_ExitCode == 127) {
    GTEST_SKIP() << "NOT CHECKED: kelviklog cannot be run by another user: " << result.m_Errors;
  }
  EXPECT_EQ(result.m_ExitCode, kFailed);
  EXPECT_TRUE(IsOneMessage(result.m_Errors, "Permission denied"));
}

TEST(KelviklogFailure, AFolderThatTakesNoFileLosesTheRecords) {
  // Nobody, not even root, makes files here.
  const tagChildResult result = RunKelviklog({"--no-terminal", "--dir", "/proc"}, "a\nb\n");
  EXPECT_EQ(result.m_ExitCode, kFailed);
  EXPECT_EQ(result.m_Output, "");
  EXPECT_TRUE(IsOneMessage(result.m_Errors, "/proc/: "));
}

TEST(KelviklogFailure, ARefusedConfigurationFileIsOneLine) {
  const CTempDir folder;
  for (const std::string& name : {folder.Path(), folder.File("missing/c.ini")}) {
    const tagChildResult result = RunKelviklog({"--config", name}, "x\n");
    EXPECT_EQ(result.m_ExitCode, kFailed) << name;
    EXPECT_EQ(result.m_Output, "") << name;
    EXPECT_TRUE(IsOneMessage(result.m_Errors, name));
  }
}

TEST(KelviklogFailure, AnInputThatCannotBeReadDoesNotStopTheOthers) {
  const CTempDir folder;
  ASSERT_TRUE(WriteFile(folder.File("a"), "a\n"));
  const std::pair<std::string, const char*> cases[] = {
      {folder.File("missing"), "No such file or directory"}, {folder.Path(), "Is a directory"}};
  for (const auto& [name, reason] : cases) {
    const tagChildResult result =
        RunKelviklog({"--no-time", folder.File("a"), name, folder.File("a")});
    EXPECT_EQ(result.m_ExitCode, kFailed);
    EXPECT_EQ(result.m_Output, "\x1B[0ma\n\x1B[0ma\n");
    EXPECT_TRUE(IsOneMessage(result.m_Errors, name + ": " + reason));
  }
}

TEST(KelviklogFailure, AFileLimitLosesRecordsAndSaysSo) {
  const CTempDir folder;
  const CTempDir work;
  ASSERT_TRUE(WriteFile(work.File("input"), Join(Numbers(0, 5000))));
  // The thread sanitizer maps a file of its own in TMPDIR, which the limit would cut short.
  const tagChildResult result =
      RunInShell("export TMPDIR=/nonexistent; ulimit -f 8; exec \"$@\"",
                 {"--no-terminal", "--no-time", "--dir", folder.Path(), work.File("input")}, 30000);
  EXPECT_EQ(result.m_ExitCode, kFailed);
  EXPECT_EQ(result.m_Output, "");
  EXPECT_TRUE(IsOneMessage(result.m_Errors, "of 5000 records did not reach the files in " +
                                                folder.LogPath() + ": File too large"));
}

TEST(KelviklogFailure, AFullDiskLosesRecordsAndSaysSo) {
  const CTempDir folder;
  const CTempDir work;
  ASSERT_TRUE(WriteFile(work.File("input"), Join(Numbers(0, 20000))));
  // A disk of 64 KiB that is gone with its shell.
  const std::string script =
      "mount -t tmpfs -o size=64k none '" + folder.Path() + "' || exit 77; exec \"$@\"";
  Strings command = ShellCommand(
      script, ProgramCommand(KELVIK_KELVIKLOG, {"--no-terminal", "--dir", folder.Path(), "--size",
                                                "1024", work.File("input")}));
  command.insert(command.begin(), {"unshare", "-rm"});
  tagChildOptions options;
  options.m_LimitMs = 30000;
  const tagChildResult result = RunCommand(command, options);
  if (result.m_ExitCode == 77 || result.m_Errors.find("unshare") != std::string::npos ||
      result.m_ExitCode == 127) {
    GTEST_SKIP() << "NOT CHECKED: no small disk can be mounted here: " << result.m_Errors;
  }
  EXPECT_EQ(result.m_ExitCode, kFailed);
  EXPECT_EQ(result.m_Output, "");
  EXPECT_TRUE(IsOneMessage(result.m_Errors, "No space left on device"));
}

TEST(KelviklogFailure, AFullStandardOutputIsReportedAndTheFilesGoOn) {
  const CTempDir folder;
  const CTempDir work;
  ASSERT_TRUE(WriteFile(work.File("input"), Join(Numbers(0, 5000))));
  for (const bool hasFile : {false, true}) {
    Strings args = {"--no-time", work.File("input")};
    if (hasFile) args.insert(args.end(), {"--dir", folder.Path()});
    const tagChildResult result = RunInShell("exec \"$@\" > /dev/full", args);
    EXPECT_EQ(result.m_ExitCode, kFailed);
    EXPECT_TRUE(IsOneMessage(result.m_Errors, "standard output: No space left on device"));
  }
  ASSERT_EQ(LogFiles(folder.Path()).size(), 1u);
  EXPECT_TRUE(ReadFile(LogFiles(folder.Path()).front()) == Join(Numbers(0, 5000)));
}

TEST(KelviklogFailure, AClosedStandardDescriptorIsNotTakenByAFile) {
  const CTempDir folder;
  const CTempDir work;
  ASSERT_TRUE(WriteFile(work.File("input"), "x\n"));
  const tagChildResult output =
      RunInShell("exec \"$@\" >&-", {"--no-time", "--dir", folder.Path(), work.File("input")});
  EXPECT_EQ(output.m_ExitCode, kFailed);
  EXPECT_TRUE(IsOneMessage(output.m_Errors, "standard output: Bad file descriptor"));
  ASSERT_EQ(LogFiles(folder.Path()).size(), 1u);
  EXPECT_EQ(ReadFile(LogFiles(folder.Path()).front()), "x\n");
  EXPECT_EQ(ReadFile(work.File("input")), "x\n");

  const tagChildResult input = RunInShell("exec \"$@\" <&-", {"--no-time"});
  EXPECT_EQ(input.m_ExitCode, kFailed);
  EXPECT_TRUE(IsOneMessage(input.m_Errors, "standard input: Bad file descriptor"));

  const tagChildResult errors = RunInShell("exec \"$@\" 2>&-", {"--no-time", work.File("input")});
  ASSERT_TRUE(Succeeded(errors));
  EXPECT_EQ(errors.m_Output, "\x1B[0mx\n");
}

TEST(KelviklogFailure, TheEndOfTheReaderIsTheEnd) {
  const CTempDir folder;
  const CTempDir work;
  // The input is far longer than what the time limit allows: only the broken pipe ends it.
  Strings args = LongInput(work, 20000);
  args.insert(args.end(), {"--no-time", "--dir", folder.Path()});
  const tagChildResult result =
      RunInShell("{ \"$@\"; echo \"code $?\" >&2; } | head -n 1", args, 20000);
  EXPECT_FALSE(result.m_TimedOut);
  EXPECT_EQ(result.m_Output, "\x1B[0m00000000\n");
  EXPECT_EQ(result.m_Errors, "kelviklog: standard output: Broken pipe\ncode 1\n");
}

TEST(KelviklogFailure, ASignalEndsItWithAllThatWasRead) {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    const CTempDir folder;
    const CTempDir work;
    tagChildOptions options;
    options.m_IsInputPiped = true;
    CChild child(ProgramCommand(KELVIK_KELVIKLOG, {"--no-time", "--dir", folder.Path(), "--config",
                                                   work.File("c.ini")}),
                 options);
    ASSERT_TRUE(child.Write("one\nhalf a l"));
    ASSERT_TRUE(child.WaitForOutput("one\n", 5000));
    child.Signal(number);
    const tagChildResult result = child.Wait();
    EXPECT_TRUE(Succeeded(result)) << number;
    EXPECT_EQ(result.m_Output, "\x1B[0mone\n\x1B[0mhalf a l\n");
    EXPECT_EQ(result.m_Errors, "");
    ASSERT_EQ(LogFiles(folder.Path()).size(), 1u);
    EXPECT_EQ(ReadFile(LogFiles(folder.Path()).front()), "one\nhalf a l\n");
    EXPECT_EQ(ListFolder(work.Path()), Strings{"c.ini"});
  }
}

TEST(KelviklogFailure, ASignalEndsItInTheMiddleOfAnEndlessInput) {
  const CTempDir folder;
  const CTempDir work;
  Strings args = LongInput(work, 20000);
  args.insert(args.end(), {"--no-time", "--no-terminal", "--dir", folder.Path()});
  CChild child(ProgramCommand(KELVIK_KELVIKLOG, args));
  ASSERT_TRUE(WaitFor([&] { return !LogFiles(folder.Path()).empty(); }));
  child.Signal(SIGTERM);
  const tagChildResult result = child.Wait();
  EXPECT_TRUE(Succeeded(result));
  // Whole lines, but for the one that the last read cut.
  Strings lines;
  for (const std::string& path : LogFiles(folder.Path())) {
    const std::string text = ReadFile(path);
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    for (const std::string& line : Lines(text)) {
      if (line.size() != 8) lines.push_back(line);
    }
  }
  EXPECT_LE(lines.size(), 1u) << testing::PrintToString(lines);
}

TEST(KelviklogFailure, AnIgnoredSignalStaysIgnored) {
  const CTempDir folder;
  tagChildOptions options;
  options.m_IsInputPiped = true;
  CChild child(
      ShellCommand("trap '' INT; exec \"$@\"", ProgramCommand(KELVIK_KELVIKLOG, {"--no-time"})),
      options);
  ASSERT_TRUE(child.Write("one\n"));
  ASSERT_TRUE(child.WaitForOutput("one\n", 5000));
  child.Signal(SIGINT);
  ASSERT_TRUE(child.Write("two\n"));
  EXPECT_TRUE(child.WaitForOutput("two\n", 5000));
  child.CloseInput();
  EXPECT_TRUE(Succeeded(child.Wait()));
}

TEST(KelviklogFailure, ASecondSignalEndsOneThatIsStuckInAWrite) {
  const CTempDir work;
  // Its output is a pipe that nobody reads: the shell between has it open for reading.
  const std::string fifo = work.File("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  Strings args = LongInput(work, 4);
  args.insert(args.end(), "--no-time");
  CChild child(ShellCommand("exec 3<>\"$0\"; exec \"$@\" > \"$0\"",
                            ProgramCommand(KELVIK_KELVIKLOG, args), fifo));
  const auto isStuck = [&] {
    const std::string stat = ReadFile("/proc/" + std::to_string(child.Pid()) + "/wchan");
    return stat.find("pipe") != std::string::npos;
  };
  if (!WaitFor(isStuck)) {
    // Where the system hides what a process waits for.
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  child.Signal(SIGTERM);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_TRUE(child.IsRunning()) << "the first signal must not lose what was read";
  child.Signal(SIGTERM);
  EXPECT_EQ(child.Wait().m_Signal, SIGTERM);
}

}  // namespace
}  // namespace Kelvik
