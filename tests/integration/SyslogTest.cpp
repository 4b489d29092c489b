// What the system log receives.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "FakeClock.h"
#include "RecordTools.h"
#include "SyslogCapture.h"

namespace Kelvik {
namespace {

CHILD_CASE(SystemRecords) {
  CFakeClock clock(kMoment, kMomentMicros);
  Global().m_LevelMask = 0x3e;
  Store(Global().m_OutputConsole, false);
  Store(Global().m_OutputSystem, true);
  const int priorities[] = {0, 7, 6, 4, 3, 2};
  for (int bits = 0; bits < 4; ++bits) {
    Store(Global().m_OutputDateTime, (bits & 1) != 0);
    Store(Global().m_OutputThreadID, (bits & 2) != 0);
    const std::string tid = (bits & 2) != 0 ? "[" + std::to_string(getpid()) + "]" : "";
    for (int level = 1; level <= 5; ++level) {
      CSyslogCapture::Clear();
      EXPECT_EQ(0, LogList(level, "net", "rx", "50%% %s\n", "%s"));
      EXPECT_EQ(0, LogListAt(level, "net", "rx", "a.c", "main", 7, "x\n"));
      EXPECT_EQ(0, Engine().Log(Level(level), nullptr, nullptr, "x\n"));
      EXPECT_EQ(0, Engine().Logs(Level(level), "net", "rx", "raw %s\n", 3));
      EXPECT_EQ(0, Engine().Logs(Level(level), "net", "rx", "a.c", "main", 7, "raw\n", 4));
      // With a date the thread id stands alone too.
      const std::string alone = (bits & 1) != 0 && !tid.empty() ? tid + " " : "";
      const std::string expected[] = {tid + "[net][rx] 50% %s\n",
                                      tid + "[net][rx] [a.c main 7] x\n", alone + "x\n", "raw %s\n",
                                      "raw\n"};
      const std::vector<tagSyslogRecord> records = CSyslogCapture::Records();
      EXPECT_EQ(std::size(expected), records.size());
      for (size_t i = 0; i < records.size() && i < std::size(expected); ++i) {
        EXPECT_EQ(expected[i], records[i].m_Text) << "bits " << bits;
        EXPECT_EQ(priorities[level], records[i].m_Priority) << "level " << level;
      }
    }
  }
  EXPECT_EQ(0, CSyslogCapture::OpenlogCalls());
  return 0;
}

TEST(Syslog, ReceivesRecordsWithoutTheDateAndRawOnesWithoutAPrefix) {
  EXPECT_TRUE(Passes("SystemRecords"));
}

CHILD_CASE(SystemSelfReport) {
  CPrintedText printed;
  Store(Global().m_OutputSystem, true);
  EXPECT_EQ(3, KLog(Level(9), "net", "rx", "x\n"));
  const std::vector<tagSyslogRecord> records = CSyslogCapture::Records();
  EXPECT_EQ(1u, records.size());
  EXPECT_EQ("[Kelvik][Internal] Kelvik KLog 47 level invalid : 9\n", records.at(0).m_Text);
  EXPECT_EQ(3, records.at(0).m_Priority);
  // A module's own switch for it counts nowhere.
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  Store(Global().m_OutputSystem, false);
  CSyslogCapture::Clear();
  EXPECT_EQ(0, KLog(eLogLevelError, "net", "rx", "x\n"));
  EXPECT_EQ(0u, CSyslogCapture::Count());
  return 0;
}

TEST(Syslog, ReceivesTheLibrarysOwnReports) {
  EXPECT_TRUE(Passes("SystemSelfReport"));
}

}  // namespace
}  // namespace Kelvik
