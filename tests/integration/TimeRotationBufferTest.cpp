// Log files that change after a time: records that wait in the buffer, and changes of the mode. The
// wall clock stands where a case puts it.

#include <gmock/gmock.h>

#include "FakeClock.h"
#include "TimeRotationTools.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Waits until the writer has made the folder look like this.
template <class Matcher>
void ExpectSoon(const std::string& folder, Matcher matcher) {
  WaitUntil([&] { return testing::Matches(matcher)(Contents(folder)); }, 5000);
  EXPECT_THAT(Contents(folder), matcher);
}

CHILD_CASE(Buffered) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 4096, 10);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("a"));
  clock.AdvanceMs(9000);
  EXPECT_EQ(0, LogLine("b"));
  EXPECT_THAT(ListFolder(args[1]), IsEmpty());
  // Time is up before there was a file: what waits gets the new one, and nothing overwrites it.
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, LogLine("c"));
  ExpectSoon(args[1], ElementsAre("20240315120010.log:a b "));
  EXPECT_EQ(kNoon + 10, Look(Output().m_FileStartTime));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectSoon(args[1], ElementsAre("20240315120010.log:a b c "));
  return 0;
}

TEST(TimeRotation, TimeUpBeforeTheFirstFileKeepsTheBatchThatWaited) {
  EXPECT_TRUE(RunCase("Buffered"));
}

CHILD_CASE(BufferedTwoFiles) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 4096, 10);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a "));
  EXPECT_EQ(0, LogLine("b"));
  clock.AdvanceMs(10000);
  EXPECT_EQ(0, LogLine("c"));
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a b ", "20240315120010.log:"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a b ", "20240315120010.log:c "));
  // Time up with nothing waiting rotates nothing and keeps the old start.
  clock.AdvanceMs(20000);
  EXPECT_EQ(0, LogLine("d"));
  EXPECT_EQ(kNoon + 10, Look(Output().m_FileStartTime));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a b ", "20240315120010.log:c d "));
  // The next record meets it again, with data waiting this time.
  EXPECT_EQ(0, LogLine("e"));
  EXPECT_EQ(0, LogLine("f"));
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a b ", "20240315120010.log:c d e ",
                                  "20240315120030.log:"));
  EXPECT_EQ(kNoon + 30, Look(Output().m_FileStartTime));
  EXPECT_EQ(0, Look(Output().m_FileSize)) << "batches do not count";
  return 0;
}

TEST(TimeRotation, BatchThatWaitedGoesToTheOldFileAndAloneMakesItRotate) {
  EXPECT_TRUE(RunCase("BufferedTwoFiles"));
}

CHILD_CASE(Interval) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 4096, 1000);
  SetIntervalMs(1000);
  // The interval counts from the first record on, without a writer here.
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(Output().GetTickCount(), Output().m_LastFlushTime);
  clock.AdvanceMs(999);
  EXPECT_EQ(0, LogLine("b"));
  EXPECT_EQ(0, Output().m_BackLength);
  clock.AdvanceMs(1);
  EXPECT_EQ(0, LogLine("c"));
  EXPECT_EQ(4, Output().m_BackLength);
  EXPECT_EQ(2, Output().m_FrontLength);
  // And then from the write of a batch, which a direct one is not.
  clock.AdvanceMs(500);
  EXPECT_EQ(0, Output().WriteLogByTime(nullptr, 0));
  const uint32_t written = Output().m_LastFlushTime;
  EXPECT_EQ(Output().GetTickCount(), written);
  clock.AdvanceMs(10);
  EXPECT_EQ(0, Output().WriteLogByTime("direct\n", 7));
  EXPECT_EQ(written, Output().m_LastFlushTime);
  EXPECT_EQ(7, Output().m_FileSize) << "the direct record alone counts";
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a b direct "));
  return 0;
}

TEST(TimeRotation, IntervalCountsFromTheFirstRecordAndThenFromTheLastBatch) {
  EXPECT_TRUE(RunCase("Interval"));
}

// args[2]: the buffer size.
CHILD_CASE(TooSmall) {
  CFakeClock clock(kNoon);
  UseTime(args[0], static_cast<uint32_t>(std::stoul(args[2])), 10);
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a "));
  return 0;
}

TEST(TimeRotation, BufferBelow1024SignedWritesEveryRecordAtOnce) {
  for (const char* size : {"1023", "2147483648", "4294967295"})
    EXPECT_TRUE(RunCase("TooSmall", {size})) << size;
}

// --- Changes of the mode ---

// args[2] and args[3]: the maximum size before and after, 0 for rotation by time.
CHILD_CASE(BufferedSwitch) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 4096, 10);
  CGlobal& context = *CGlobal::Instance();
  const auto after = static_cast<uint32_t>(std::stoul(args[3]));
  context.SetLogMaxSize(static_cast<uint32_t>(std::stoul(args[2])));
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a "));
  EXPECT_EQ(0, LogLine("b"));
  clock.AdvanceMs(5000);
  context.SetLogMaxSize(after);
  EXPECT_EQ(0, LogLine("c"));
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a b ", "20240315120005.log:"));
  EXPECT_EQ(after == 0 ? kNoon + 5 : 0, Look(Output().m_FileStartTime));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a b ", "20240315120005.log:c "));
  return 0;
}

TEST(TimeRotation, SwitchFromSizeWritesTheWaitingBatchOnceToItsFile) {
  EXPECT_TRUE(RunCase("BufferedSwitch", {"1048576", "0"}));
}

TEST(TimeRotation, SwitchToSizeWritesTheWaitingBatchOnceToItsFile) {
  EXPECT_TRUE(RunCase("BufferedSwitch", {"0", "1048576"}));
}

// As BufferedSwitch, with nothing in the buffer when the mode changes.
CHILD_CASE(EmptySwitch) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 4096, 10);
  CGlobal& context = *CGlobal::Instance();
  const auto after = static_cast<uint32_t>(std::stoul(args[3]));
  context.SetLogMaxSize(static_cast<uint32_t>(std::stoul(args[2])));
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a "));
  clock.AdvanceMs(5000);
  context.SetLogMaxSize(after);
  EXPECT_EQ(0, LogLine("b"));
  if (after != 0) {
    // By size the record itself is the last one of the old file, written by the caller.
    EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a b ", "20240315120005.log:"));
    return 0;
  }
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a ", "20240315120005.log:"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectSoon(args[1], ElementsAre("20240315120000.log:a ", "20240315120005.log:b "));
  return 0;
}

TEST(TimeRotation, SwitchWithAnEmptyBufferBeginsAFileToo) {
  EXPECT_TRUE(RunCase("EmptySwitch", {"1048576", "0"}));
  EXPECT_TRUE(RunCase("EmptySwitch", {"0", "1048576"}));
}

CHILD_CASE(FailedSwitch) {
  UseTime(args[0] + "missing/", 0, 10);
  CGlobal& context = *CGlobal::Instance();
  EXPECT_EQ(3, LogLine("a"));
  context.SetLogMaxSize(1024);
  EXPECT_EQ(3, LogLine("b")) << "the writer's result";
  EXPECT_EQ(0, LogLine("c")) << "by size only the switch tells it";
  context.SetLogMaxSize(0);
  EXPECT_EQ(3, LogLine("d"));
  return 0;
}

TEST(TimeRotation, SwitchWithoutBuffersGivesTheWritersResult) {
  EXPECT_TRUE(RunCase("FailedSwitch"));
}

CHILD_CASE(DirectSwitch) {
  CFakeClock clock(kNoon);
  UseTime(args[0], 0, 10);
  CGlobal& context = *CGlobal::Instance();
  context.SetLogMaxSize(1024);
  EXPECT_EQ(0, LogLine("a"));
  clock.AdvanceMs(5000);
  context.SetLogMaxSize(0);
  // Without buffers the record goes to the file that is open; its time begins with the next one.
  EXPECT_EQ(0, LogLine("b"));
  EXPECT_EQ(0, LogLine("c"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a b c "));
  EXPECT_EQ(kNoon + 5, Look(Output().m_FileStartTime));
  // Back: the record is the last one of its file.
  clock.AdvanceMs(5000);
  context.SetLogMaxSize(1024);
  EXPECT_EQ(0, LogLine("d"));
  EXPECT_THAT(Contents(args[1]), ElementsAre("20240315120000.log:a b c d ", "20240315120010.log:"));
  return 0;
}

TEST(TimeRotation, SwitchWithoutBuffersLosesNoRecord) {
  EXPECT_TRUE(RunCase("DirectSwitch"));
}

}  // namespace
}  // namespace Kelvik
