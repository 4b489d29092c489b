// The double buffer in front of the log files: when text waits, when it moves, and when it is lost.

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>

#include "FakeClock.h"
#include "OutputTools.h"
#include "Sanitizers.h"

namespace Kelvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// --- The state of a fresh engine ---

CHILD_CASE(Fresh) {
  COutput& output = Output();
  EXPECT_EQ(-1, output.m_CurrentFd);
  for (int slot = 0; slot < kSlotCount; ++slot) {
    EXPECT_EQ(-1, output.m_FileFds[slot]);
    EXPECT_STREQ("", output.m_FileNames[slot]);
  }
  for (const int32_t value :
       {output.m_FileSize, output.m_FrontLength, output.m_BackLength,
        static_cast<int32_t>(output.m_FileIndex), output.m_RotatePending, output.m_SizeMode,
        output.m_TimeMode, output.m_FileStartTime, output.m_BufferReset, output.m_DiskFull,
        output.m_NewFileOpened, static_cast<int32_t>(output.m_AllocatedSize),
        static_cast<int32_t>(output.m_LastFlushTime)})
    EXPECT_EQ(0, value);
  EXPECT_EQ(1, output.m_TerminalFlag);
  EXPECT_EQ(-1, output.m_TerminalFd);
  EXPECT_STREQ("", output.m_NextFileName);
  EXPECT_EQ(nullptr, output.m_BackBuffer);
  EXPECT_EQ(nullptr, output.m_FrontBuffer);
  return 0;
}

TEST(Engine, FreshOneHasNoFileNoTextAndNoBuffer) {
  EXPECT_TRUE(RunCase("Fresh"));
}

CHILD_CASE(DestroyTwoSlots) {
  COutput output;
  int fds[4];
  for (int slot = 0; slot < 3; ++slot)
    fds[slot] = output.m_FileFds[slot] = open("/dev/null", O_WRONLY);
  fds[3] = output.m_TerminalFd = open("/dev/null", O_WRONLY);
  EXPECT_EQ(0, output.Destroy());
  EXPECT_EQ(-1, output.m_FileFds[0]);
  EXPECT_EQ(-1, output.m_FileFds[1]);
  for (const int closed : {0, 1, 3})
    EXPECT_EQ(-1, fcntl(fds[closed], F_GETFD)) << closed;
  EXPECT_NE(-1, fcntl(fds[2], F_GETFD));
  return 0;
}

TEST(Engine, DestroyClosesTheFirstTwoSlotsAndTheTerminal) {
  EXPECT_TRUE(RunCase("DestroyTwoSlots"));
}

CHILD_CASE(TickCount) {
  CFakeClock clock(0);
  EXPECT_EQ(0u, Output().GetTickCount());
  clock.Set(1, 2999);
  EXPECT_EQ(1002u, Output().GetTickCount());
  clock.Set(4294967, 295999);
  EXPECT_EQ(0xFFFFFFFFu, Output().GetTickCount());
  clock.Set(4294967, 296000);
  EXPECT_EQ(0u, Output().GetTickCount());
  return 0;
}

TEST(Engine, TickCountIsTheWallClockInMillisecondsAndWraps) {
  EXPECT_TRUE(RunCase("TickCount"));
}

int TakeValue(int value, void* context) {
  *static_cast<int*>(context) = value;
  return 0;
}

CHILD_CASE(SetParam) {
  int taken = 0;
  EXPECT_EQ(0, ModuleSetParamRegister("net", "rate", &TakeValue, &taken));
  COutput& output = Output();
  EXPECT_EQ(3, output.SetParam(nullptr, 3, "rate", 4, 1));
  EXPECT_EQ(3, output.SetParam("", 3, "rate", 4, 1));
  EXPECT_EQ(3, output.SetParam("net", 0, "rate", 4, 1));
  EXPECT_EQ(3, output.SetParam("net", 3, nullptr, 4, 1));
  EXPECT_EQ(3, output.SetParam("net", 3, "", 4, 1));
  EXPECT_EQ(3, output.SetParam("net", 3, "rate", 0, 1));
  EXPECT_EQ(0, taken);
  EXPECT_EQ(0, output.SetParam("net", 3, "rate", 4, 7));
  EXPECT_EQ(7, taken);
  EXPECT_EQ(0, output.SetParam("nobody", 6, "rate", 4, 8));
  EXPECT_EQ(7, taken);
  return 0;
}

TEST(Engine, SetParamChecksItsTextsAndReachesTheCallback) {
  EXPECT_TRUE(RunCase("SetParam"));
}

// --- Without a buffer ---

// args[2]: the buffer size.
CHILD_CASE(Direct) {
  UseSize(args[0], static_cast<uint32_t>(std::stoul(args[2])));
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ("a\n", AllText(args[1]));
  EXPECT_EQ(nullptr, Output().m_FrontBuffer);
  EXPECT_EQ(4, Output().m_Signal.wait(0)) << "nobody is woken";
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(args[2] == "0", Output().m_FrontBuffer == nullptr) << "made for any other size";
  EXPECT_EQ(0, LogLine("b"));
  EXPECT_EQ("a\nb\n", AllText(args[1]));
  EXPECT_EQ(4, Look(Output().m_FileSize));
  EXPECT_EQ(1, Look(Output().m_SizeMode));
  return 0;
}

TEST(Buffer, SizeBelow1024SignedWritesEveryRecordAtOnce) {
  for (const char* size : {"0", "1", "512", "1023", "2147483648", "4294967295"})
    EXPECT_TRUE(RunCase("Direct", {size})) << size;
}

// --- Sizes at the start ---

struct tagStartCase {
  uint32_t m_Bytes;
  int m_Capacity;
};

CHILD_CASE(StartSizes) {
  const auto size = static_cast<uint32_t>(std::stoul(args[2]));
  const int capacity = std::stoi(args[3]);
  UseSize(args[0], size);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0u, Output().m_AllocatedSize) << "known by the first record";
  EXPECT_NE(nullptr, Output().m_FrontBuffer);
  EXPECT_NE(nullptr, Output().m_BackBuffer);
  // Fill to one byte below the capacity: everything waits.
  int waiting = 0;
  while (capacity - 1 - waiting > 0) {
    const int next = std::min(8000, capacity - 1 - waiting);
    EXPECT_EQ(0, LogBytes('a', next));
    waiting += next;
  }
  EXPECT_EQ(size, Look(Output().m_AllocatedSize));
  EXPECT_EQ(waiting, Look(Output().m_FrontLength));
  EXPECT_THAT(ListFolder(args[1]), IsEmpty());
  // One more byte fills it, and it moves before that byte is stored.
  EXPECT_EQ(0, LogBytes('b', 1));
  EXPECT_EQ(1, Look(Output().m_FrontLength));
  WaitUntil([&] { return AllText(args[1]).size() == static_cast<size_t>(waiting); }, 3000);
  EXPECT_EQ(static_cast<size_t>(waiting), AllText(args[1]).size());
  return 0;
}

TEST(Buffer, FillTestUsesTheSizeTheBuffersReallyHave) {
  const tagStartCase kCases[] = {{1024, 1024},       {1025, 1025},     {32768, 32768},
                                 {5242880, 5242880}, {5242881, 65536}, {6000000, 65536}};
  for (const tagStartCase& entry : kCases)
    EXPECT_TRUE(RunCase("StartSizes",
                        {std::to_string(entry.m_Bytes), std::to_string(entry.m_Capacity)}, 20000))
        << entry.m_Bytes;
}

CHILD_CASE(StartKeeps) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, LogLine("early"));
  const char* front = Output().m_FrontBuffer;
  const char* back = Output().m_BackBuffer;
  EXPECT_NE(nullptr, front);
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(6, Look(Output().m_BackLength));
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(front, Look(Output().m_BackBuffer)) << "the hand-over has exchanged them";
  EXPECT_EQ(back, Look(Output().m_FrontBuffer));
  ExpectTextSoon(args[1], "early\n");
  EXPECT_EQ(0, LogLine("late"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "early\nlate\n");
  return 0;
}

TEST(Buffer, StartKeepsTheBuffersAndTextOfEarlierRecords) {
  EXPECT_TRUE(RunCase("StartKeeps"));
}

// --- The fill test and the order ---

CHILD_CASE(Fills) {
  UseSize(args[0], 1024);  // no writer: what is handed over stays in the back buffer
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(0, LogBytes('a', 100));
  EXPECT_EQ(1000, Output().m_FrontLength);
  EXPECT_EQ(0, LogBytes('b', 23));
  EXPECT_EQ(1023, Output().m_FrontLength);
  EXPECT_EQ(0, Output().m_BackLength);
  EXPECT_EQ(0, LogBytes('c', 1));
  EXPECT_EQ(1, Output().m_FrontLength);
  EXPECT_EQ(1023, Output().m_BackLength);
  EXPECT_EQ(0, Output().m_Signal.wait(0)) << "a hand-over wakes the writer";
  EXPECT_EQ(0, std::memcmp("aaa", Output().m_BackBuffer, 3));
  EXPECT_EQ('\n', Output().m_FrontBuffer[0]);
  return 0;
}

TEST(Buffer, RecordThatWouldFillItMovesWhatWaitsFirst) {
  EXPECT_TRUE(RunCase("Fills"));
}

// args[2]: whether the writer runs.
CHILD_CASE(LongRecord) {
  UseSize(args[0], 1024);
  if (args[2] == "1") {
    EXPECT_EQ(0, Initialize());
  }
  std::string expected;
  for (const int bytes : {10, 1025, 900, 200, 8000, 30, 5000}) {
    const char letter = static_cast<char>('a' + bytes % 26);
    EXPECT_EQ(0, LogBytes(letter, bytes));
    expected += Bytes(letter, bytes);
    if (bytes > 1024) {
      EXPECT_EQ(expected, AllText(args[1])) << bytes;
    }
  }
  return 0;
}

TEST(Buffer, RecordLongerThanTheBufferIsWrittenAtOnceAfterWhatWaited) {
  EXPECT_TRUE(RunCase("LongRecord", {"0"}));
  EXPECT_TRUE(RunCase("LongRecord", {"1"}));
}

CHILD_CASE(TwoHandOvers) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  {
    CGuard order(&Output().m_BufferMutex);
    CGuard hold(&Output().m_WriteMutex);  // the writer cannot begin
    EXPECT_EQ(0, LogLine("first"));
    EXPECT_EQ(0, WriteBufferContent2File());
    EXPECT_EQ(6, Output().m_BackLength);
    EXPECT_EQ(0, LogLine("second batch"));
    EXPECT_EQ(0, WriteBufferContent2File());
    EXPECT_EQ(13, Output().m_BackLength);
  }
  ExpectTextSoon(args[1], "second batch\n");
  return 0;
}

TEST(Buffer, SecondHandOverReplacesABatchThatWasNotWrittenYet) {
  EXPECT_TRUE(RunCase("TwoHandOvers"));
}

// --- Explicit flush and loss ---

CHILD_CASE(EmptyFlush) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(4, Output().m_Signal.wait(0)) << "there is no buffer";
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, Kelvik_WriteBufferContent2File());
  EXPECT_EQ(0, Output().m_Signal.wait(0));
  EXPECT_EQ(2, Output().m_BackLength);
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(4, Output().m_Signal.wait(0)) << "nothing waits";
  EXPECT_EQ(2, Output().m_BackLength) << "an empty flush replaces no batch";
  return 0;
}

TEST(Buffer, FlushWithNothingWaitingWakesNobody) {
  EXPECT_TRUE(RunCase("EmptyFlush"));
}

CHILD_CASE(Loss) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Output().Losslog());
  EXPECT_EQ(0, LogLine("lost"));
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(0, LogLine("kept"));
  EXPECT_EQ(0, Output().Losslog());
  EXPECT_EQ(0, Output().m_BackLength);
  EXPECT_EQ(5, Output().m_FrontLength);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "kept\n");
  return 0;
}

TEST(Buffer, LossDropsTheBackBufferAlone) {
  EXPECT_TRUE(RunCase("Loss"));
}

CHILD_CASE(Refused) {
  UseSize(args[0], 4096);
  Output().m_DiskFull = 1;
  EXPECT_EQ(3, LogLine("a"));
  Output().m_DiskFull = 0;
  Output().m_BufferReset = 1;
  EXPECT_EQ(3, LogLine("a"));
  Output().m_BufferReset = 0;
  SwitchFile(false);
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(nullptr, Output().m_FrontBuffer);
  SwitchFile(true);
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(2, Output().m_FrontLength);
  // The writer leaves the batch alone while the buffers are exchanged.
  EXPECT_EQ(0, WriteBufferContent2File());
  Output().m_BufferReset = 1;
  EXPECT_EQ(0, Output().WriteLogBySzie(nullptr, 0));
  EXPECT_EQ(2, Output().m_BackLength);
  Output().m_BufferReset = 0;
  EXPECT_EQ(0, Output().WriteLogBySzie(nullptr, 0));
  EXPECT_EQ(0, Output().m_BackLength);
  EXPECT_EQ("a\n", AllText(args[1]));
  return 0;
}

TEST(Buffer, RecordsAreRefusedWhileFilesAreClearedOrBuffersExchanged) {
  EXPECT_TRUE(RunCase("Refused"));
}

// --- The write interval ---

// args[2]: the interval.
CHILD_CASE(NoInterval) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 4096);
  SetIntervalMs(static_cast<uint32_t>(std::stoul(args[2])));
  EXPECT_EQ(0, LogLine("a"));
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(0, Output().WriteLogBySzie(nullptr, 0));
  EXPECT_NE(0u, Output().m_LastFlushTime);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(0, LogLine("b"));
    clock.AdvanceMs(1000000);
  }
  EXPECT_EQ(20, Output().m_FrontLength);
  EXPECT_EQ(0, Output().m_BackLength);
  return 0;
}

TEST(WriteInterval, Below200SignedNeverMovesText) {
  for (const char* interval : {"0", "1", "150", "199", "2147483648", "4294967295"})
    EXPECT_TRUE(RunCase("NoInterval", {interval})) << interval;
}

CHILD_CASE(Interval) {
  const int interval = std::stoi(args[2]);
  CFakeClock clock(kNoon);
  UseSize(args[0], 4096);
  SetIntervalMs(static_cast<uint32_t>(interval));
  // Before the first write of a batch the interval does not count.
  EXPECT_EQ(0, LogLine("a"));
  clock.AdvanceMs(10 * interval);
  EXPECT_EQ(0, LogLine("b"));
  EXPECT_EQ(4, Output().m_FrontLength);
  EXPECT_EQ(0u, Output().m_LastFlushTime);
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(0, Output().WriteLogBySzie(nullptr, 0));
  EXPECT_EQ(Output().GetTickCount(), Output().m_LastFlushTime);
  // From then on it does; the record that finds it over stays behind.
  clock.AdvanceMs(interval - 1);
  EXPECT_EQ(0, LogLine("c"));
  EXPECT_EQ(2, Output().m_FrontLength);
  clock.AdvanceMs(1);
  EXPECT_EQ(0, LogLine("d"));
  EXPECT_EQ(2, Output().m_FrontLength);
  EXPECT_EQ(2, Output().m_BackLength);
  EXPECT_EQ("a\nb\n", AllText(args[1]));
  EXPECT_EQ(0, Output().WriteLogBySzie(nullptr, 0));
  EXPECT_EQ("a\nb\nc\n", AllText(args[1]));
  // Without records nothing happens however long it takes.
  clock.AdvanceMs(10 * interval);
  EXPECT_EQ(2, Output().m_FrontLength);
  return 0;
}

TEST(WriteInterval, CountsFromTheLastWriteOfABatch) {
  for (const char* interval : {"200", "1000", "3600000"})
    EXPECT_TRUE(RunCase("Interval", {interval})) << interval;
}

// --- Changes of the size ---

CHILD_CASE(SizeChanges) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("dropped"));
  for (const uint32_t size : {8192u, 1024u, 5000u, 8000000u}) {
    SetBufferBytes(size);
    const std::string text = std::to_string(size);
    EXPECT_EQ(0, LogLine(text));
    EXPECT_EQ(0, Look(Output().m_BufferReset));
    EXPECT_EQ(size, Look(Output().m_AllocatedSize));
    EXPECT_EQ(static_cast<int32_t>(text.size()) + 1, Look(Output().m_FrontLength))
        << "what waited went with its buffer";
  }
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "8000000\n");
  return 0;
}

TEST(BufferSize, ChangeExchangesTheBuffersAndDropsWhatWaited) {
  EXPECT_TRUE(RunCase("SizeChanges"));
}

CHILD_CASE(SizeDropsBatch) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, LogLine("back"));
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(0, LogLine("front"));
  SetBufferBytes(512);
  EXPECT_EQ(0, LogLine("direct"));
  EXPECT_EQ(0, Output().m_BufferReset);
  EXPECT_EQ(0, Output().m_FrontLength);
  EXPECT_EQ(0, Output().m_BackLength);
  EXPECT_EQ("direct\n", AllText(args[1]));
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(0, Output().WriteLogBySzie(nullptr, 0)) << "no buffer, no length";
  EXPECT_EQ(0, Output().Losslog());
  SetBufferBytes(0);
  EXPECT_EQ(0, LogLine("none"));
  SetBufferBytes(2048);
  EXPECT_EQ(0, LogLine("again"));
  EXPECT_EQ(6, Output().m_FrontLength);
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_EQ(0, Output().WriteLogBySzie(nullptr, 0));
  EXPECT_EQ("direct\nnone\nagain\n", AllText(args[1]));
  return 0;
}

TEST(BufferSize, SmallSizeAtRunTimeWritesDirectlyAndALargeOneBuffersAgain) {
  EXPECT_TRUE(RunCase("SizeDropsBatch"));
}

CHILD_CASE(NoMemory) {
  UseSize(args[0], 4096);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogLine("dropped"));
  const rlimit limit = {512u << 20, 512u << 20};
  EXPECT_EQ(0, setrlimit(RLIMIT_AS, &limit));
  SetBufferBytes(0x7FFFFF00);
  EXPECT_EQ(0, LogLine("lost"));
  EXPECT_EQ(0, Look(Output().m_BufferReset));
  EXPECT_EQ(0, Look(Output().m_FrontLength));
  EXPECT_EQ(nullptr, Look(Output().m_FrontBuffer));
  EXPECT_EQ(nullptr, Look(Output().m_BackBuffer));
  EXPECT_EQ(0, LogLine("lost"));
  EXPECT_EQ(0, WriteBufferContent2File());
  SetBufferBytes(4096);
  EXPECT_EQ(0, LogLine("kept"));
  EXPECT_EQ(0, WriteBufferContent2File());
  ExpectTextSoon(args[1], "kept\n");
  SetBufferBytes(0x7FFFFF00);
  EXPECT_EQ(0, LogLine("lost"));
  SetBufferBytes(0);
  EXPECT_EQ(0, LogLine("direct"));
  EXPECT_EQ("kept\ndirect\n", AllText(args[1]));
  return 0;
}

TEST(BufferSize, OneThatCannotBeHadLosesRecordsOnlyUntilItChanges) {
#if KELVIK_TEST_SANITIZED
  GTEST_SKIP() << "SKIPPED: a limit on the address space does not work with a sanitizer";
#else
  EXPECT_TRUE(RunCase("NoMemory"));
#endif
}

CHILD_CASE(TimeModeKeepsBuffers) {
  CFakeClock clock(kNoon);
  UseSize(args[0], 4096, 0);
  CGlobal::Instance()->SetLogMaxDuration(1000);
  EXPECT_EQ(0, LogLine("a"));
  const char* front = Output().m_FrontBuffer;
  SetBufferBytes(8192);
  EXPECT_EQ(0, LogLine("b"));
  EXPECT_EQ(front, Output().m_FrontBuffer);
  EXPECT_EQ(4, Output().m_FrontLength);
  EXPECT_EQ(4096u, Output().m_AllocatedSize);
  return 0;
}

TEST(BufferSize, ChangeKeepsTheBuffersWhileFilesRotateByTime) {
  EXPECT_TRUE(RunCase("TimeModeKeepsBuffers"));
}

}  // namespace
}  // namespace Kelvik
