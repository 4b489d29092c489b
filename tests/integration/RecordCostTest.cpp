// What a record costs: no memory is allocated for it, and a second is converted once a thread.

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "FakeClock.h"
#include "RecordTools.h"
#include "Sanitizers.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

// Allocations of the thread that counts; what the writer thread does is not the record's cost.
thread_local bool tIsCounting = false;
std::atomic<int> gAllocations{0};

void CountOne() {
  if (tIsCounting) ++gAllocations;
}

}  // namespace
}  // namespace Kelvik

#if KELVIK_TEST_SANITIZED
// The sanitizers' own, whose header not every compiler brings.
extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*onMalloc)(const volatile void* memory, size_t size),
    void (*onFree)(const volatile void* memory));
#else
// Every allocation of the process comes by here.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);

void* malloc(size_t size) {
  Kelvik::CountOne();
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  Kelvik::CountOne();
  return __libc_calloc(count, size);
}
void* realloc(void* old, size_t size) {
  Kelvik::CountOne();
  return __libc_realloc(old, size);
}
}
#endif

namespace Kelvik {
namespace {

#if KELVIK_TEST_SANITIZED
void Count(const volatile void*, size_t) {
  CountOne();
}
void Ignore(const volatile void*) {}
#endif

// Counts this thread's from here on, and makes sure of it.
void CountAllocations() {
  tIsCounting = true;
#if KELVIK_TEST_SANITIZED
  EXPECT_NE(0, __sanitizer_install_malloc_and_free_hooks(Count, Ignore));
#endif
  const int before = gAllocations;
  void* volatile memory = std::malloc(77);
  std::free(memory);
  EXPECT_EQ(before + 1, gAllocations.load());
  std::string* volatile text = new std::string(500, 'x');
  delete text;
  EXPECT_EQ(before + 3, gAllocations.load());
}

// One record of each kind.
void LogAll(const char* module) {
  Engine().Log(Level(4), module, "rx", "text %d %s\n", 5, "more");
  LogList(4, module, "rx", "%s %.3f\n", "text", 2.5);
  LogListAt(4, module, "rx", "a.c", "main", 12, "%8d|%-8s|\n", 5, "more");
  Engine().Logs(Level(4), module, "rx", "text\n", 5);
  Engine().Logs(Level(4), module, nullptr, "a.c", "main", 12, "text\n", 5);
  KLog(eLogLevelDebug, module, "rx", "below the mask\n");
}

void ExpectNoAllocations(CFakeClock& clock) {
  LogAll("net");  // what standard output and the file buffer need once
  const int before = gAllocations;
  for (int i = 0; i < 200; ++i) {
    LogAll("network");
    clock.AdvanceMs(100);
  }
  EXPECT_EQ(before, gAllocations.load());
}

CHILD_CASE(OnTheTerminal) {
  CPrintedText printed;
  CFakeClock clock(kMoment, kMomentMicros);
  CountAllocations();
  EXPECT_EQ(0, Context().InsertModuleName("network", nullptr));
  Store(Global().m_OutputThreadID, true);
  ExpectNoAllocations(clock);
  Engine().ResetFocusModule("network", 7);
  ExpectNoAllocations(clock);
  return 0;
}

TEST(RecordCost, NothingIsAllocatedForTheTerminal) {
  EXPECT_TRUE(Passes("OnTheTerminal"));
}

CHILD_CASE(InTheFile) {
  CTempDir folder;
  CFakeClock clock(kMoment, kMomentMicros);
  CountAllocations();
  Store(Global().m_OutputConsole, false);
  Store(Global().m_OutputFile, true);
  Context().SetLogPath(folder.LogPath().c_str());
  Global().m_BufferSize = static_cast<uint32_t>(std::stoul(args.at(0)));
  EXPECT_EQ(0, Initialize());
  ExpectNoAllocations(clock);
  return 0;
}

TEST(RecordCost, NothingIsAllocatedForTheFile) {
  EXPECT_TRUE(Passes("InTheFile", {"1048576"})) << "the buffer never fills";
  EXPECT_TRUE(Passes("InTheFile", {"4096"})) << "the buffer fills again and again";
  EXPECT_TRUE(Passes("InTheFile", {"0"})) << "without a buffer";
}

CHILD_CASE(Conversions) {
  Store(Global().m_OutputConsole, false);
  CFakeClock clock(kMoment, kMomentMicros);
  for (int second = 0; second < 3; ++second) {
    const int before = CFakeClock::LocaltimeCalls();
    for (int i = 0; i < 100; ++i) {
      LogAll("net");
      clock.AdvanceMs(i < 90 ? 10 : 0);
    }
    EXPECT_LE(CFakeClock::LocaltimeCalls() - before, 1) << "of one thread in one second";
    clock.AdvanceMs(100);
  }
  constexpr int kThreads = 4;
  const int before = CFakeClock::LocaltimeCalls();
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 100; ++round)
        LogAll("net");
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_LE(CFakeClock::LocaltimeCalls() - before, kThreads);
  // A record that is not made asks for no time, and one without date-time may not need it either.
  const int idle = CFakeClock::LocaltimeCalls();
  clock.AdvanceMs(5000);
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(2, KLog(eLogLevelDebug, "net", "rx", "x\n"));
  EXPECT_EQ(idle, CFakeClock::LocaltimeCalls());
  return 0;
}

TEST(RecordCost, SecondIsConvertedAtMostOnceAThread) {
  EXPECT_TRUE(Passes("Conversions"));
}

}  // namespace
}  // namespace Kelvik
