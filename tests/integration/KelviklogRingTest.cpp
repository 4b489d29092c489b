// kelviklog's ring of files, its configuration file and its restarts.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>
#include <thread>

#include "KelviklogTools.h"
#include "RealClock.h"
#include "Rounds.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

const char kPrefix[] = " [net] ";

// The options that most runs here share, and more behind them.
Strings IntoRing(const std::string& folder, const Strings& more = {}) {
  Strings args = {"-m", "net", "--no-terminal", "--dir", folder};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

void Log(const Strings& args, const Strings& lines) {
  const tagChildResult result = RunKelviklog(args, Join(lines), 60000);
  ASSERT_TRUE(Succeeded(result));
  ASSERT_EQ(result.m_Output, "");
  ASSERT_EQ(result.m_Errors, "");
}

TEST(KelviklogRing, AFolderSwitchesTheFilesOn) {
  const CTempDir folder;
  // The final '/' is added where it is missing.
  for (const std::string& name : {folder.Path(), folder.LogPath()}) {
    const CTempDir work;
    Log({"-m", "net", "--no-terminal", "--dir", name}, {"x"});
    EXPECT_EQ(RingPayloads(folder.Path(), kPrefix).back(), "x") << name;
  }
}

TEST(KelviklogRing, TheTerminalStaysOnBesideTheFiles) {
  const CTempDir folder;
  const tagChildResult result = RunKelviklog({"--no-time", "--dir", folder.Path()}, "x\n");
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Output, "\x1B[0mx\n");
  ASSERT_EQ(LogFiles(folder.Path()).size(), 1u);
  EXPECT_EQ(ReadFile(LogFiles(folder.Path()).front()), "x\n");
}

TEST(KelviklogRing, NoFileLeavesTheFolderEmpty) {
  const CTempDir folder;
  const tagChildResult result =
      RunKelviklog({"--no-time", "--no-file", "--dir", folder.Path()}, "x\n");
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Output, "\x1B[0mx\n");
  EXPECT_EQ(ListFolder(folder.Path()), Strings{});
}

TEST(KelviklogRing, AHundredThousandLinesAreTheTailOfTheInput) {
  const CTempDir folder;
  const Strings input = Numbers(0, 100000);
  Log(IntoRing(folder.Path(), {"--size", "256", "--count", "4"}), input);
  const Strings files = LogFiles(folder.Path());
  EXPECT_EQ(files.size(), 4u);
  const int64_t record = kTimeBytes + sizeof(kPrefix) - 1 + 9;
  for (const std::string& path : files) {
    EXPECT_LE(FileSize(path), 256 * 1024 + 16 * 1024 + record) << path;
  }
  const Strings kept = RingPayloads(folder.Path(), kPrefix);
  EXPECT_GT(static_cast<int64_t>(kept.size()), 3 * 256 * 1024 / record);
  EXPECT_TRUE(IsTail(kept, input));
}

TEST(KelviklogRing, ARingThatIsLargeEnoughKeepsEveryLine) {
  const CTempDir folder;
  const Strings input = Numbers(0, 20000);
  Log(IntoRing(folder.Path(), {"--size", "200", "--count", "10"}), input);
  EXPECT_TRUE(RingPayloads(folder.Path(), kPrefix) == input);
}

TEST(KelviklogRing, TheCountIsTheNumberOfFiles) {
  for (const int count : {1, 2, 5, 10}) {
    const CTempDir folder;
    const Strings input = Numbers(0, 2000);
    Log(IntoRing(folder.Path(), {"--size", "1", "--count", std::to_string(count)}), input);
    EXPECT_EQ(LogFiles(folder.Path()).size(), static_cast<std::size_t>(count));
    EXPECT_TRUE(IsTail(RingPayloads(folder.Path(), kPrefix), input)) << count;
  }
}

TEST(KelviklogRing, ADurationChangesTheFileWhateverItsSize) {
  const CTempDir folder;
  tagChildOptions options;
  options.m_IsInputPiped = true;
  const auto dir = IntoRing(folder.Path(), {"--duration", "1", "--count", "5"});
  CChild child(ProgramCommand(KELVIK_KELVIKLOG, dir), options);
  const auto start = std::chrono::steady_clock::now();
  int written = 0;
  // The change needs records to go on, so they come until it is seen.
  while (LogFiles(folder.Path()).size() < 3 &&
         std::chrono::steady_clock::now() - start < std::chrono::seconds(8)) {
    ASSERT_TRUE(child.Write(Join(Numbers(written++, 1))));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  child.CloseInput();
  ASSERT_TRUE(Succeeded(child.Wait()));
  EXPECT_GE(LogFiles(folder.Path()).size(), 3u);
  EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(RingPayloads(folder.Path(), kPrefix), Numbers(0, written));
}

TEST(KelviklogRing, RecordsAreInTheFileSoonAfterTheInputFallsQuiet) {
  const CTempDir folder;
  tagChildOptions options;
  options.m_IsInputPiped = true;
  CChild child(ProgramCommand(KELVIK_KELVIKLOG, IntoRing(folder.Path())), options);
  const auto areThere = [&](int count) {
    return RingPayloads(folder.Path(), kPrefix) == Numbers(0, count);
  };
  ASSERT_TRUE(child.Write(Join(Numbers(0, 1))));
  ASSERT_TRUE(WaitUntil([&] { return areThere(1); }, 5000));  // it has started
  for (int count = 2; count <= Rounds(); ++count) {
    ASSERT_TRUE(child.Write(Join(Numbers(count - 1, 1))));
    const int64_t start = RealClockMs();
    ASSERT_TRUE(WaitUntil([&] { return areThere(count); }, 5000));
    EXPECT_LT(RealClockMs() - start, ScaledMs(200)) << count;
  }
  child.CloseInput();
  EXPECT_TRUE(Succeeded(child.Wait()));
}

TEST(KelviklogRing, RecordsReachTheFileWhileASlowInputGoesOn) {
  const CTempDir folder;
  tagChildOptions options;
  options.m_IsInputPiped = true;
  CChild child(ProgramCommand(KELVIK_KELVIKLOG, IntoRing(folder.Path())), options);
  int written = 0;
  // Never quiet for as long as a record may wait.
  const auto isAnyThere = [&] {
    EXPECT_TRUE(child.Write(Join(Numbers(written++, 1))));
    PauseMs(10);
    return !RingPayloads(folder.Path(), kPrefix).empty();
  };
  EXPECT_TRUE(WaitUntil(isAnyThere, 5000));
  child.CloseInput();
  ASSERT_TRUE(Succeeded(child.Wait()));
  EXPECT_EQ(RingPayloads(folder.Path(), kPrefix), Numbers(0, written));
}

TEST(KelviklogRing, ARestartWithAConfigurationFileAppends) {
  const CTempDir folder;
  const CTempDir work;
  const Strings args = IntoRing(folder.Path(), {"--config", work.File("c.ini")});
  Log(args, {"one"});
  Log(args, {"two"});
  ASSERT_EQ(LogFiles(folder.Path()).size(), 1u);
  EXPECT_EQ(RingPayloads(folder.Path(), kPrefix), (Strings{"one", "two"}));
  // Nothing but the configuration file stays.
  EXPECT_EQ(ListFolder(work.Path()), Strings{"c.ini"});
}

TEST(KelviklogRing, RestartsTurnTheRingOn) {
  const CTempDir folder;
  const CTempDir work;
  const Strings args =
      IntoRing(folder.Path(), {"--config", work.File("c.ini"), "--size", "2", "--count", "3"});
  Strings input;
  for (int run = 0; run < 10; ++run) {
    const Strings lines = Numbers(run * 60, 60);
    input.insert(input.end(), lines.begin(), lines.end());
    Log(args, lines);
    EXPECT_LE(LogFiles(folder.Path()).size(), 3u) << "run " << run;
    EXPECT_TRUE(IsTail(RingPayloads(folder.Path(), kPrefix), input)) << "run " << run;
  }
  EXPECT_EQ(LogFiles(folder.Path()).size(), 3u);
}

TEST(KelviklogRing, ARestartFromAnotherFolderFindsTheFiles) {
  const CTempDir base;
  std::filesystem::create_directory(base.File("ring"));
  tagChildOptions options;
  options.m_Input = "one\n";
  options.m_Folder = base.Path();
  ASSERT_TRUE(Succeeded(
      RunProgram(KELVIK_KELVIKLOG, IntoRing("ring", {"--config", base.File("c.ini")}), options)));
  options.m_Folder = base.File("ring");
  options.m_Input = "two\n";
  ASSERT_TRUE(
      Succeeded(RunProgram(KELVIK_KELVIKLOG, IntoRing(".", {"--config", "../c.ini"}), options)));
  EXPECT_EQ(RingPayloads(base.File("ring"), kPrefix), (Strings{"one", "two"}));
}

TEST(KelviklogRing, WithADurationARestartGoesOnToTheNextFile) {
  const CTempDir folder;
  const CTempDir work;
  const Strings args = IntoRing(
      folder.Path(), {"--config", work.File("c.ini"), "--duration", "1000", "--count", "3"});
  Log(args, {"00000001"});
  // Names have seconds: the next file needs another one.
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  Log(args, {"00000002"});
  EXPECT_EQ(LogFiles(folder.Path()).size(), 2u);
  EXPECT_EQ(RingPayloads(folder.Path(), kPrefix), (Strings{"00000001", "00000002"}));
}

TEST(KelviklogRing, TheConfigurationFileDecidesWhatOptionsLeaveOpen) {
  const CTempDir folder;
  const CTempDir work;
  const std::string config = work.File("c.ini");
  ASSERT_TRUE(WriteFile(config, "[Global]\nOutputConsole=0\nLogFilePath=" + folder.LogPath() +
                                    "\nLogMaxSize=1\nLogMaxCount=3\nLevelDbg=0\n"));
  const Strings input = Numbers(0, 500);
  Log({"-m", "net", "--config", config}, input);
  EXPECT_EQ(LogFiles(folder.Path()).size(), 3u);
  EXPECT_TRUE(IsTail(RingPayloads(folder.Path(), kPrefix), input));
  // Its level switches hold as well.
  const tagChildResult result = RunKelviklog(
      {"--config", config, "--terminal", "--no-file", "--priority-prefix", "--no-time"},
      "<7>debug\n<6>info\n");
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Output, "\x1B[0minfo\n");
}

TEST(KelviklogRing, OptionsWinOverTheConfigurationFile) {
  const CTempDir folder;
  const CTempDir other;
  const CTempDir work;
  const std::string config = work.File("c.ini");
  ASSERT_TRUE(WriteFile(config,
                        "[Global]\nOutputConsole=0\nOutputFile=0\nOutputSystem=0\n"
                        "LogFilePath=" +
                            other.LogPath() +
                            "\nLogMaxSize=0\nLogMaxDuration=7\nLogMaxCount=2\n"
                            "bufferSize=64\nLevelDbg=0\n"));
  const Strings input = Numbers(0, 500);
  const tagChildResult result =
      RunKelviklog({"-m", "net", "-l", "debug", "--terminal", "--file", "--dir", folder.Path(),
                    "--size", "1", "--count", "4", "--config", config},
                   Join(input));
  ASSERT_TRUE(Succeeded(result));
  EXPECT_EQ(Lines(result.m_Output).size(), input.size());
  EXPECT_EQ(ListFolder(other.Path()), Strings{});
  EXPECT_EQ(LogFiles(folder.Path()).size(), 4u);
  EXPECT_TRUE(IsTail(RingPayloads(folder.Path(), kPrefix), input));
}

TEST(KelviklogRing, ARestartKnowsAllFilesOfALargerRingThanTheConfigurationFileAsksFor) {
  const CTempDir folder;
  const CTempDir work;
  const std::string config = work.File("c.ini");
  // Nor does the file ask for a size, so that the library measures no file by itself.
  ASSERT_TRUE(WriteFile(config, "[Global]\nLogMaxSize=0\nLogMaxCount=2\n"));
  const Strings args = IntoRing(folder.Path(), {"--config", config, "--size", "2", "--count", "4"});
  Strings input;
  for (int run = 0; run < 8; ++run) {
    const Strings lines = Numbers(run * 50, 50);
    input.insert(input.end(), lines.begin(), lines.end());
    Log(args, lines);
    EXPECT_LE(LogFiles(folder.Path()).size(), 4u) << "run " << run;
    EXPECT_TRUE(IsTail(RingPayloads(folder.Path(), kPrefix), input)) << "run " << run;
    for (const std::string& path : LogFiles(folder.Path())) {
      EXPECT_LE(FileSize(path), 2048 + 64) << "run " << run;
    }
  }
  EXPECT_EQ(LogFiles(folder.Path()).size(), 4u);
}

TEST(KelviklogRing, ASecondInstanceOnTheSameConfigurationFileIsRefused) {
  const CTempDir folder;
  const CTempDir work;
  const std::string config = work.File("c.ini");
  const Strings args = IntoRing(folder.Path(), {"--config", config, "--terminal"});
  tagChildOptions options;
  options.m_IsInputPiped = true;
  CChild first(ProgramCommand(KELVIK_KELVIKLOG, args), options);
  ASSERT_TRUE(first.Write("one\n"));
  ASSERT_TRUE(first.WaitForOutput("one\n", 5000));

  std::filesystem::create_symlink(config, work.File("link.ini"));
  for (const std::string& name : {config, work.Path() + "/./c.ini", work.File("link.ini")}) {
    const tagChildResult second =
        RunKelviklog(IntoRing(folder.Path(), {"--config", name, "--terminal"}), "two\n");
    EXPECT_EQ(second.m_ExitCode, 1) << name;
    EXPECT_EQ(second.m_Output, "");
    EXPECT_TRUE(IsOneMessage(second.m_Errors, name + " is in use by another kelviklog"));
  }
  // Another configuration file is free.
  EXPECT_TRUE(Succeeded(RunKelviklog({"--config", work.File("d.ini"), "--no-file"}, "x\n")));

  // What the refused ones did not touch goes on.
  ASSERT_TRUE(first.Write("three\n"));
  first.CloseInput();
  ASSERT_TRUE(Succeeded(first.Wait()));
  EXPECT_EQ(RingPayloads(folder.Path(), kPrefix), (Strings{"one", "three"}));
  EXPECT_TRUE(Succeeded(RunKelviklog(args, "four\n")));
}

TEST(KelviklogRing, AKilledInstanceLeavesTheConfigurationFileFree) {
  const CTempDir folder;
  const CTempDir work;
  const Strings args = IntoRing(folder.Path(), {"--config", work.File("c.ini"), "--terminal"});
  for (int round = 0; round < Rounds() / 10 + 1; ++round) {
    tagChildOptions options;
    options.m_IsInputPiped = true;
    CChild child(ProgramCommand(KELVIK_KELVIKLOG, args), options);
    ASSERT_TRUE(child.Write("x\n"));
    ASSERT_TRUE(child.WaitForOutput("x\n", 5000));
    child.Signal(SIGKILL);
    EXPECT_EQ(child.Wait().m_Signal, SIGKILL);
  }
  EXPECT_TRUE(Succeeded(RunKelviklog(args, "last\n")));
  EXPECT_EQ(LogFiles(folder.Path()).size(), 1u);
  EXPECT_EQ(ListFolder(work.Path()), Strings{"c.ini"});
}

}  // namespace
}  // namespace Kelvik
