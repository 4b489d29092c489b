// How the console ends: from outside, from a callback, from several threads, with the process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "ConsoleClient.h"
#include "ConsoleTools.h"
#include "FileTools.h"
#include "Relaxed.h"
#include "Rounds.h"

namespace Kelvik {
namespace {

constexpr int kMostWaitMs = 1100;

int64_t TimeOfDestroy() {
  const int64_t start = RealClockMs();
  EXPECT_EQ(0, NetworkConsoleDestroy());
  return RealClockMs() - start;
}

CHILD_CASE(IdleDestroy) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(0, NetworkConsoleCreate(nullptr, FindFreePort()));
    PauseMs(20 * i);
    EXPECT_LE(TimeOfDestroy(), ScaledMs(kMostWaitMs));
  }
  return 0;
}
TEST(ConsoleLife, DestroyTakesAtMostASecondWhenNothingRuns) {
  EXPECT_TRUE(Succeeded(RunChild("IdleDestroy")));
}

struct tagSlowCall {
  std::atomic<bool> m_Begun{false};
  std::atomic<bool> m_Ended{false};
};

int RunSlowly(int ms, void* state) {
  auto* call = static_cast<tagSlowCall*>(state);
  call->m_Begun = true;
  PauseMs(ms);
  call->m_Ended = true;
  return 0;
}

CHILD_CASE(BusyDestroy) {
  tagSlowCall call;
  CTestConsole console;
  ModuleSetParamRegister("net", "slow", &RunSlowly, &call);
  EXPECT_TRUE(console.Client().Send("-set net slow 300 -logcount 9"));
  EXPECT_TRUE(WaitUntil([&] { return call.m_Begun.load(); }, 5000));
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_TRUE(call.m_Ended.load());
  // The datagram in hand was obeyed to its end.
  tagAttribute now;
  Context().CopyAttribute(now);
  EXPECT_TRUE(now.m_LogMaxCount == 9);
  return 0;
}
TEST(ConsoleLife, DestroyWaitsForARunningCallback) {
  EXPECT_TRUE(Succeeded(RunChild("BusyDestroy")));
}

// --- Ends and begins in a callback ---

// What a callback does to the console, letter by letter: d destroys, c creates.
struct tagScript {
  const char* m_Steps;
  std::atomic<uint16_t> m_Port;
  std::atomic<int> m_Results{0};  // the sum of what the calls returned
  std::atomic<int> m_Runs{0};
};

int RunScript(int, void* state) {
  auto* script = static_cast<tagScript*>(state);
  const CConsole& console = TheConsole();
  for (const char* step = script->m_Steps; *step != '\0'; ++step) {
    if (*step == 'd') {
      script->m_Results += NetworkConsoleDestroy();
      EXPECT_EQ(-1, RelaxedLoad(console.m_Socket));
      EXPECT_FALSE(RelaxedLoad(console.m_Running));
    } else {
      script->m_Results += NetworkConsoleCreate(nullptr, script->m_Port);
      EXPECT_NE(-1, RelaxedLoad(console.m_Socket));
      EXPECT_TRUE(RelaxedLoad(console.m_Running));
    }
  }
  ++script->m_Runs;
  return 0;
}

CHILD_CASE(DestroyInCallback) {
  tagScript script = {"dd", {FindFreePort()}};
  ModuleSetParamRegister("net", "script", &RunScript, &script);
  CConsoleClient client(script.m_Port);
  const int before = OpenDescriptors();
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, script.m_Port));
  EXPECT_TRUE(client.Send("-set net script 1"));
  EXPECT_TRUE(WaitUntil([&] { return script.m_Runs == 1; }, 5000));
  EXPECT_EQ(0, script.m_Results.load());
  EXPECT_FALSE(client.IsSomeoneThere());
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, script.m_Port));
  EXPECT_TRUE(client.Send("-set net script 1"));
  EXPECT_TRUE(WaitUntil([&] { return script.m_Runs == 2; }, 5000));
  return 0;
}
TEST(ConsoleLife, DestroyInACallbackReturnsAtOnce) {
  EXPECT_TRUE(Succeeded(RunChild("DestroyInCallback")));
}

CHILD_CASE(RestartInCallback) {
  tagScript script = {args[0].c_str(), {0}};
  ModuleSetParamRegister("net", "script", &RunScript, &script);
  const int before = OpenDescriptors();
  const int rounds = 2 * Rounds();
  {
    CTestConsole console;
    script.m_Port = console.Port();
    for (int i = 1; i <= rounds; ++i) {
      EXPECT_TRUE(console.Client().Send("-set net script 1"));
      EXPECT_TRUE(WaitUntil([&] { return script.m_Runs == i; }, 5000));
    }
    EXPECT_EQ(0, script.m_Results.load());
    EXPECT_TRUE(console.Sync());
  }
  EXPECT_EQ(rounds, script.m_Runs.load());
  EXPECT_EQ(before, OpenDescriptors());
  return 0;
}
TEST(ConsoleLife, DestroyAndCreateInACallbackGoOnWithTheNewRun) {
  EXPECT_TRUE(Succeeded(RunChild("RestartInCallback", {"dc"}, 60000)));
}
TEST(ConsoleLife, RunBegunAndEndedInOneCallbackLeavesTheNext) {
  EXPECT_TRUE(Succeeded(RunChild("RestartInCallback", {"dcddc"}, 60000)));
}

// A worker of an ended run comes back from its callback while the next run works.
struct tagLateReturn {
  uint16_t m_Port;
  std::atomic<bool> m_Restarted{false};
  std::atomic<bool> m_MayReturn{false};
};

int RestartAndStay(int, void* state) {
  auto* late = static_cast<tagLateReturn*>(state);
  NetworkConsoleDestroy();
  NetworkConsoleCreate(nullptr, late->m_Port);
  late->m_Restarted = true;
  WaitUntil([&] { return late->m_MayReturn.load(); }, 10000);
  return 0;
}

CHILD_CASE(LateReturn) {
  CTestConsole console;
  tagLateReturn late = {console.Port()};
  ModuleSetParamRegister("net", "restart", &RestartAndStay, &late);
  EXPECT_TRUE(console.Client().Send("-set net restart 1"));
  EXPECT_TRUE(WaitUntil([&] { return late.m_Restarted.load(); }, 5000));
  EXPECT_TRUE(console.Sync());
  const int socket = RelaxedLoad(TheConsole().m_Socket);
  late.m_MayReturn = true;
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(console.Sync());
  }
  EXPECT_EQ(socket, RelaxedLoad(TheConsole().m_Socket));
  EXPECT_TRUE(RelaxedLoad(TheConsole().m_Running));
  return 0;
}
TEST(ConsoleLife, EndedWorkerLeavesTheNextRunAlone) {
  EXPECT_TRUE(Succeeded(RunChild("LateReturn")));
}

// Datagrams are handled one at a time: by one worker, whoever began its run.
CHILD_CASE(LateReturnEnds) {
  CTestConsole console;
  const auto countThreads = [] { return ListFolder("/proc/self/task").size(); };
  const size_t before = countThreads();
  tagLateReturn late = {console.Port()};
  ModuleSetParamRegister("net", "restart", &RestartAndStay, &late);
  EXPECT_TRUE(console.Client().Send("-set net restart 1"));
  EXPECT_TRUE(WaitUntil([&] { return late.m_Restarted.load(); }, 5000));
  EXPECT_TRUE(console.Sync());
  EXPECT_EQ(before + 1, countThreads());
  late.m_MayReturn = true;
  EXPECT_TRUE(WaitUntil([&] { return countThreads() == before; }, 5000));
  EXPECT_TRUE(console.Sync());
  return 0;
}
TEST(ConsoleLife, EndedWorkerIsGoneWhenItsCallbackReturns) {
  EXPECT_TRUE(Succeeded(RunChild("LateReturnEnds")));
}

// While one thread waits for the callback's end, the callback cannot start the console again.
int CreateLate(int, void* state) {
  auto* late = static_cast<tagLateReturn*>(state);
  late->m_Restarted = true;
  WaitUntil([] { return !RelaxedLoad(TheConsole().m_Running); }, 5000);
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_EQ(6, NetworkConsoleCreate(nullptr, late->m_Port));
  return 0;
}

CHILD_CASE(CreateWhileEnding) {
  CTestConsole console;
  tagLateReturn late = {console.Port()};
  ModuleSetParamRegister("net", "late", &CreateLate, &late);
  EXPECT_TRUE(console.Client().Send("-set net late 1"));
  EXPECT_TRUE(WaitUntil([&] { return late.m_Restarted.load(); }, 5000));
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_FALSE(TheConsole().m_Running);
  EXPECT_EQ(-1, TheConsole().m_Socket);
  return 0;
}
TEST(ConsoleLife, CallbackCannotRestartWhatAnotherThreadEnds) {
  EXPECT_TRUE(Succeeded(RunChild("CreateWhileEnding")));
}

// --- Several threads ---

CHILD_CASE(ManyThreads) {
  const uint16_t port = FindFreePort();
  const int before = OpenDescriptors();
  const int rounds = 5 * Rounds();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < rounds; ++i) {
        if ((i + t) % 2 == 0) {
          const int result = NetworkConsoleCreate(nullptr, port);
          EXPECT_TRUE(result == 0 || result == 6) << result;
        } else {
          EXPECT_EQ(0, NetworkConsoleDestroy());
        }
      }
    });
  }
  threads.emplace_back([&] {
    CConsoleClient client(port);
    for (int i = 0; i < rounds; ++i) {
      client.Send("-logcount 3");
    }
  });
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_FALSE(TheConsole().m_Running);
  EXPECT_EQ(-1, TheConsole().m_Socket);
  EXPECT_EQ(before, OpenDescriptors());
  CTestConsole console;
  EXPECT_TRUE(console.Sync());
  return 0;
}
TEST(ConsoleLife, ThreadsThatCreateAndDestroyAtOnceLeaveItWhole) {
  EXPECT_TRUE(Succeeded(RunChild("ManyThreads", {}, 60000)));
}

// --- End of the process, and of a thread ---

int ExitNow(int value, void*) {
  std::exit(value);
}

CHILD_CASE(ExitInCallback) {
  CTestConsole console;
  ModuleSetParamRegister("net", "exit", &ExitNow, nullptr);
  console.Client().Send("-set net exit 43");
  PauseMs(ScaledMs(9000));
  return 1;
}
TEST(ConsoleLife, ExitInACallbackEndsTheProcess) {
  const tagChildResult result = RunChild("ExitInCallback");
  EXPECT_EQ(43, result.m_ExitCode) << result.m_Output << result.m_Errors;
}

CHILD_CASE(ExitWhileRunning) {
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, FindFreePort()));
  std::exit(0);
}
TEST(ConsoleLife, ProcessEndsWithARunningConsole) {
  const tagChildResult result = RunChild("ExitWhileRunning");
  EXPECT_TRUE(Succeeded(result));
}

CHILD_CASE(ForkedChild) {
  CTestConsole console;
  const pid_t child = fork();
  if (child == 0) {
    NetworkConsoleDestroy();
    _exit(RelaxedLoad(TheConsole().m_Socket) == -1 ? 0 : 1);
  }
  int status = 0;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_TRUE(console.Client().IsSomeoneThere());
  CPrintedText printed;
  EXPECT_TRUE(console.Obey("-logcount 7"));
  EXPECT_TRUE(console.Obey("-logcount 8"));
  // A socket that the child had shut down would end every wait at once.
  EXPECT_EQ(Arrival("-logcount 7") + Arrival("-logcount 8"), TakePrinted(printed));
  return 0;
}
TEST(ConsoleLife, ForkedChildThatEndsItsCopyLeavesTheParents) {
  EXPECT_TRUE(Succeeded(RunChild("ForkedChild")));
}

int ThrowSomething(int value, void*) {
  if (value == 1) throw std::runtime_error("callback");
  if (value == 2) throw std::bad_alloc();
  throw value;
}

CHILD_CASE(ThrowInCallback) {
  CTestConsole console;
  ModuleSetParamRegister("net", "throw", &ThrowSomething, nullptr);
  for (int kind = 1; kind <= 3; ++kind) {
    EXPECT_TRUE(console.Obey("-set net throw " + std::to_string(kind) + " -logcount 9"));
  }
  // The rest of such a text is dropped.
  tagAttribute now;
  Context().CopyAttribute(now);
  EXPECT_TRUE(now.m_LogMaxCount == 2);
  return 0;
}
TEST(ConsoleLife, CallbackThatThrowsEndsOnlyItsDatagram) {
  EXPECT_TRUE(Succeeded(RunChild("ThrowInCallback")));
}

int EndThread(int, void*) {
  pthread_exit(nullptr);
}

CHILD_CASE(ThreadEndInCallback) {
  CTestConsole console;
  ModuleSetParamRegister("net", "end", &EndThread, nullptr);
  EXPECT_TRUE(console.Client().Send("-set net end 1"));
  EXPECT_FALSE(console.Sync(300));
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, console.Port()));
  EXPECT_TRUE(console.Sync());
  return 0;
}
TEST(ConsoleLife, CallbackThatEndsTheWorkerLeavesAConsoleThatCanRestart) {
  EXPECT_TRUE(Succeeded(RunChild("ThreadEndInCallback")));
}

// Notes the terminal in the std::atomic<int> of its context and does not return.
int ThrowFromDisplay(int fd, const char*, const char*, void* context) {
  *static_cast<std::atomic<int>*>(context) = fd;
  throw std::runtime_error("callback");
}

int EndThreadFromDisplay(int fd, const char*, const char*, void* context) {
  *static_cast<std::atomic<int>*>(context) = fd;
  pthread_exit(nullptr);
}

CHILD_CASE(TerminalAfterDisplay) {
  CTestConsole console;
  std::atomic<int> fd{-1};
  ModuleStateRegister("net", "throw", &ThrowFromDisplay, &fd);
  ModuleStateRegister("net", "end", &EndThreadFromDisplay, &fd);
  EXPECT_TRUE(console.Obey("-show /dev/null net throw"));
  EXPECT_NE(-1, fd);
  EXPECT_EQ(-1, fcntl(fd, F_GETFD));
  fd = -1;
  EXPECT_TRUE(console.Client().Send("-show /dev/null net end"));
  EXPECT_FALSE(console.Sync(300));
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_NE(-1, fd);
  EXPECT_EQ(-1, fcntl(fd, F_GETFD));
  return 0;
}
TEST(ConsoleLife, TerminalIsClosedAlsoWhenTheCallbackDoesNotReturn) {
  EXPECT_TRUE(Succeeded(RunChild("TerminalAfterDisplay")));
}

}  // namespace
}  // namespace Kelvik
