// Datagrams of every kind as fast as the loopback takes them, while the process logs.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <thread>

#include "ChildProcess.h"
#include "ConsoleClient.h"
#include "ConsoleTools.h"
#include "Rounds.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

constexpr int kDatagramsPerRound = 5000;
constexpr int kLimitMs = 60000;

// Commands that leave the logging thread's file alone.
const char* const kCommands[] = {
    "-leveldbg 1",
    "-leveldbg 0 net",
    "-leveldbg 1 net -levelinfo 0 disk -levelwarn",
    "-tid 1",
    "-time false",
    "-syslog 0",
    "-printf 0 net",
    "-focus net",
    "-focus false",
    "-logcount 2",
    "-buffersize 32 -interval 200",
    "-set flood count 1",
    "-set flood nobody 1",
    "-show /nowhere/at/all Kelvik attribute",
    "-show /dev/null Kelvik cmd",
    "-sav nothing",
    "-foo",
    "   ",
};

// Makes the datagrams of a flood: the same ones for the same seed.
class CDatagramSource {
 public:
  explicit CDatagramSource(uint32_t seed) : m_Random(seed) {}

  std::string Next() {
    switch (Below(5)) {
      case 0:
        return Bytes(Below(64));
      case 1:
        return Frame(Bytes(1 + Below(200)));
      case 2: {
        const std::string bytes = Frame(Command());
        return bytes.substr(0, Below(bytes.size()));
      }
      case 3:
        return Below(50) == 0 ? Frame(Bytes(2000 + Below(100))) : Frame(Command());
      default: {
        std::string bytes = Frame(Command());
        bytes[Below(4)] = static_cast<char>(Below(256));
        return bytes;
      }
    }
  }

 private:
  size_t Below(size_t limit) { return m_Random() % limit; }

  std::string Command() { return kCommands[Below(sizeof(kCommands) / sizeof(kCommands[0]))]; }

  std::string Bytes(size_t count) {
    std::string bytes(count, '\0');
    for (char& byte : bytes)
      byte = static_cast<char>(m_Random());
    return bytes;
  }

  std::mt19937 m_Random;
};

int CountCall(int value, void* sum) {
  *static_cast<std::atomic<int>*>(sum) += value;
  return 0;
}

bool HoldsText(const CTempDir& folder, const std::string& text) {
  for (const std::string& name : ListFolder(folder.Path())) {
    if (ReadFile(folder.File(name)).find(text) != std::string::npos) return true;
  }
  return false;
}

CHILD_CASE(Flood) {
  const CTempDir folder;
  CPrintedText printed;
  CTestConsole console;
  std::atomic<int> counted{0};
  registerModule("net", "1");
  registerModule("disk", "1");
  ModuleSetParamRegister("flood", "count", &CountCall, &counted);
  SetLogFilePath(folder.LogPath().c_str());
  Initialize();
  EXPECT_TRUE(console.Obey("-printf 0"));
  EXPECT_TRUE(console.Obey("-logsize 65536 -logcount 2"));
  EXPECT_TRUE(console.Obey("-file 1"));

  std::atomic<bool> isOver{false};
  std::atomic<int> logged{0};
  std::thread logger([&] {
    while (!isOver) {
      EXPECT_EQ(0, KLog(eLogLevelError, "net", "rx", "record %d\n", logged.load()));
      ++logged;
      PauseMs(1);
    }
  });
  WaitUntil([&] { return logged > 0; }, 5000);

  const int loggedBefore = logged;
  CDatagramSource source(20241104);
  int sent = 0;
  for (int i = 0; i < kDatagramsPerRound * Rounds(); ++i) {
    if (console.Client().SendRaw(source.Next())) ++sent;
  }
  EXPECT_EQ(kDatagramsPerRound * Rounds(), sent);
  EXPECT_TRUE(console.Sync(kLimitMs));
  EXPECT_GT(counted.load(), 0);
  EXPECT_TRUE(console.Obey("-set flood count 1000000"));
  EXPECT_GE(counted.load(), 1000000);
  EXPECT_TRUE(WaitUntil([&] { return logged > loggedBefore + 10; }, 5000));
  isOver = true;
  logger.join();
  EXPECT_EQ(0, KLog(eLogLevelError, "net", "rx", "the last record\n"));
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_TRUE(WaitUntil([&] { return HoldsText(folder, "the last record\n"); }, 5000));
  EXPECT_NE(std::string::npos, printed.Take().find("is error.\n"));
  return 0;
}
TEST(ConsoleFlood, ProcessKeepsLoggingAndAnswersAfterwards) {
  EXPECT_TRUE(Succeeded(RunChild("Flood", {}, 2 * kLimitMs)));
}

}  // namespace
}  // namespace Kelvik
