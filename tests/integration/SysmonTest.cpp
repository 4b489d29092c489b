// The example sysmon, commanded by kelvikctl: the console's whole way from a shell to a callback.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <string>

#include "ChildProcess.h"
#include "FileTools.h"
#include "KelvikctlTools.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

class CSysmon {
 public:
  explicit CSysmon(const std::string& config)
      : m_Port(FindFreePort()),
        m_Child(
            ProgramCommand(KELVIK_SYSMON, {"--config", config, "--port", std::to_string(m_Port)}),
            Options()) {
    EXPECT_TRUE(WaitUntil([this] { return Ctl({"status"}).m_ExitCode == 0; }, 10000))
        << m_Child.Errors();
  }

  uint16_t Port() const { return m_Port; }
  CChild& Child() { return m_Child; }
  tagChildResult Ctl(const Strings& args) { return RunCtl(m_Port, args); }
  // What kelvikctl prints; the test fails when it does not return 0.
  std::string Say(const Strings& args) {
    const tagChildResult result = Ctl(args);
    EXPECT_EQ(0, result.m_ExitCode) << testing::PrintToString(args) << result.m_Errors;
    return result.m_Output;
  }
  tagChildResult End() {
    m_Child.Signal(SIGTERM);
    return m_Child.Wait();
  }

 private:
  static tagChildOptions Options() {
    tagChildOptions options;
    options.m_LimitMs = 60000;
    return options;
  }

  const uint16_t m_Port;
  CChild m_Child;
};

class Sysmon : public testing::Test {
 protected:
  Sysmon() : m_Config(m_Folder.File("sysmon.ini")) {
    WriteFile(m_Config,
              "[Global]\nOutputConsole=0\nOutputFile=1\nLogFilePath=" + m_Folder.LogPath() +
                  "\nLogMaxSize=64\nLogMaxCount=3\nbufferSize=1\nwriteInterval=0\n");
  }

  // All that is in its log files.
  std::string Logged() const {
    std::string text;
    for (const std::string& name : ListFolder(m_Folder.Path())) {
      if (Contains(name, ".log")) text += ReadFile(m_Folder.File(name));
    }
    return text;
  }

  const CTempDir m_Folder;
  const std::string m_Config;
};

TEST_F(Sysmon, ShowsWhatTheSystemSays) {
  CSysmon sysmon(m_Config);
  EXPECT_EQ("disk\nmem\nnet\n", sysmon.Say({"modules"}));
  EXPECT_EQ("Kelvik attribute\nKelvik module\nKelvik cmd\nnet counters\ndisk io\nmem usage\n",
            sysmon.Say({"list"}));
  const std::string meminfo = ReadFile("/proc/meminfo");
  const Strings total = SplitWords(meminfo.substr(0, meminfo.find('\n')));
  ASSERT_EQ("MemTotal:", total.at(0));
  EXPECT_TRUE(Contains(sysmon.Say({"show", "mem", "usage"}), "total " + total.at(1) + " KiB\n"));
  EXPECT_TRUE(Contains(sysmon.Say({"show", "NET", "Counters"}), "\nlo "));
  EXPECT_TRUE(Contains(sysmon.Say({"show", "disk", "io"}), "disk io\n"));
}

TEST_F(Sysmon, DebugOfOneModuleAndTheIntervalAreSwitchedWhileItRuns) {
  CSysmon sysmon(m_Config);
  sysmon.Say({"set", "net", "interval", "100"});
  sysmon.Say({"level", "debug", "on", "net"});
  EXPECT_TRUE(WaitUntil(
      [&] {
        const std::string text = Logged();
        const std::string word = "[net][sample] lo: in ";
        std::size_t count = 0;
        for (std::size_t at = text.find(word); at != std::string::npos;
             at = text.find(word, at + 1))
          ++count;
        return count >= 10;
      },
      10000));
  EXPECT_TRUE(Contains(Logged(), "[net][interval] a sample every 100 ms\n"));
  EXPECT_FALSE(Contains(Logged(), "[mem][sample]")) << "debug of another module";
  // Global levels are as they were.
  EXPECT_TRUE(Contains(sysmon.Say({"status"}), "debug:false info:true"));
  sysmon.Say({"set", "net", "interval", "1"});
  EXPECT_TRUE(Succeeded(sysmon.End()));
  EXPECT_TRUE(Contains(Logged(), "[net][interval] 1 is not 100 to 60000 ms\n"));
}

TEST_F(Sysmon, EveryVisibleSwitchGoesOnAndOff) {
  CSysmon sysmon(m_Config);
  const Strings switches[] = {{"level", "debug"},   {"level", "2"},     {"level", "Warning"},
                              {"level", "error"},   {"level", "fatal"}, {"output", "terminal"},
                              {"output", "syslog"}, {"output", "file"}, {"prefix", "time"},
                              {"prefix", "tid"}};
  for (Strings words : switches) {
    words.push_back("off");
    sysmon.Say(words);
    const std::string off = sysmon.Say({"status"});
    words.back() = "on";
    EXPECT_TRUE(Contains(sysmon.Say(words), "is on, was off")) << words[1];
    EXPECT_NE(off, sysmon.Say({"status"})) << words[1];
    words.back() = "off";
    EXPECT_TRUE(Contains(sysmon.Say(words), "is off, was on")) << words[1];
    EXPECT_EQ(off, sysmon.Say({"status"})) << words[1];
  }
}

TEST_F(Sysmon, SavedSettingsAreThereAfterARestart) {
  {
    CSysmon sysmon(m_Config);
    sysmon.Say({"level", "debug", "on", "disk"});
    sysmon.Say({"prefix", "tid", "on"});
    sysmon.Say({"limit", "size", "17"});
    sysmon.Say({"limit", "count", "2"});
    sysmon.Say({"limit", "buffer", "2"});
    sysmon.Say({"limit", "interval", "300"});
    sysmon.Say({"path", m_Folder.Path()});
    sysmon.Say({"save"});
    EXPECT_TRUE(Succeeded(sysmon.End()));
  }
  const std::string saved = ReadFile(m_Config);
  for (const char* const line : {"LogMaxSize=17\n", "LogMaxCount=2\n", "bufferSize=2\n",
                                 "writeInterval=300\n", "OutputThreadID=1\n"})
    EXPECT_TRUE(Contains(saved, line)) << line << saved;
  CSysmon sysmon(m_Config);
  sysmon.Say({"set", "net", "interval", "100"});
  EXPECT_TRUE(WaitUntil([&] { return Contains(Logged(), "[disk][sample]"); }, 10000));
  EXPECT_TRUE(Succeeded(sysmon.End()));
}

TEST_F(Sysmon, EndsCleanlyWithItsLastRecordInTheFile) {
  for (const int signal : {SIGTERM, SIGINT}) {
    CSysmon sysmon(m_Config);
    sysmon.Child().Signal(signal);
    EXPECT_TRUE(Succeeded(sysmon.Child().Wait()));
    EXPECT_TRUE(Contains(Logged(), "signal " + std::to_string(signal) + ": sysmon ends\n"));
  }
}

TEST_F(Sysmon, IsListedWithItsPortWhileItRuns) {
  CSysmon sysmon(m_Config);
  const std::string pid = std::to_string(sysmon.Child().Pid());
  const auto find = [&]() -> Strings {
    for (const std::string& line : Lines(sysmon.Say({"ps"}))) {
      const Strings words = SplitWords(line);
      if (words.size() > 3 && words[0] == pid) return words;
    }
    return {};
  };
  const Strings found = find();
  ASSERT_LT(3u, found.size());
  EXPECT_EQ(std::to_string(sysmon.Port()), found[2]);
  EXPECT_NE(found.end(), std::find(found.begin(), found.end(), m_Config));
  EXPECT_TRUE(Succeeded(sysmon.End()));
  EXPECT_EQ(Strings{}, find());
}

TEST_F(Sysmon, BadUsageIsRefused) {
  for (const Strings& args :
       {Strings{"more"}, {"--port", "0"}, {"--port", "x"}, {"--port", "65536"}, {"--what"}}) {
    EXPECT_EQ(64, RunProgram(KELVIK_SYSMON, args).m_ExitCode) << args[0];
  }
}

}  // namespace
}  // namespace Kelvik
