// The command datagram server: how it starts, what it takes for a command, how it ends.

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cstring>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ConsoleClient.h"
#include "ConsoleTools.h"

namespace {

int gOptionError = 0;  // the errno with which setsockopt fails, 0: it works

}  // namespace

// Stands in front of the C library's.
extern "C" int setsockopt(int fd, int level, int option, const void* value,
                          socklen_t length) noexcept {
  if (gOptionError == 0) {
    return static_cast<int>(syscall(SYS_setsockopt, fd, level, option, value, length));
  }
  errno = gOptionError;
  return -1;
}

namespace Kelvik {
namespace {

void SwitchDateTimeOff() {
  Context().GetAttribute()->m_OutputDateTime = 0;
}

std::string SocketReport(int line, int descriptor, int error) {
  return Report("Console Create " + std::to_string(line) + " Failed:" + std::to_string(descriptor) +
                " syserr:" + std::to_string(error) + " " + std::strerror(error));
}

void ExpectStopped(const CConsole& console) {
  EXPECT_FALSE(console.m_Running);
  EXPECT_EQ(-1, console.m_Socket);
  EXPECT_FALSE(console.m_Worker.IsRunning());
}

// --- Start ---

CHILD_CASE(FreshConsole) {
  CConsole console;
  ExpectStopped(console);
  EXPECT_EQ(0, console.Destroy());
  EXPECT_EQ(0, console.Initialize());
  EXPECT_EQ(1, console.RunTask());
  ExpectStopped(console);
  EXPECT_EQ(0, NetworkConsoleDestroy());
  return 0;
}
TEST(Console, IsStoppedUntilItIsCreated) {
  EXPECT_TRUE(Succeeded(RunChild("FreshConsole")));
}

CHILD_CASE(CreatedConsole) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const int before = OpenDescriptors();
  const uint16_t port = FindFreePort();
  EXPECT_EQ(0, NetworkConsoleCreate("127.0.0.1", port));
  const CConsole& console = TheConsole();
  EXPECT_TRUE(console.m_Running);
  EXPECT_GE(console.m_Socket, 3);
  EXPECT_NE(0, fcntl(console.m_Socket, F_GETFD) & FD_CLOEXEC);
  EXPECT_EQ(port, PortOf(console.m_Socket));
  int reuse = 0;
  socklen_t length = sizeof(reuse);
  EXPECT_EQ(0, getsockopt(console.m_Socket, SOL_SOCKET, SO_REUSEADDR, &reuse, &length));
  EXPECT_EQ(1, reuse);
  sockaddr_in local = {};
  length = sizeof(local);
  EXPECT_EQ(0, getsockname(console.m_Socket, reinterpret_cast<sockaddr*>(&local), &length));
  EXPECT_EQ(htonl(INADDR_LOOPBACK), local.sin_addr.s_addr);

  EXPECT_EQ("", printed.Take());
  EXPECT_EQ(6, NetworkConsoleCreate("127.0.0.1", port));
  EXPECT_EQ(Report("Console Create 41 console already running"), printed.Take());
  EXPECT_TRUE(CConsoleClient(port).IsSomeoneThere());

  const int copy = fcntl(console.m_Socket, F_DUPFD_CLOEXEC, 3);
  EXPECT_EQ(0, NetworkConsoleDestroy());
  ExpectStopped(console);
  pollfd ended = {copy, 0, 0};
  EXPECT_EQ(1, poll(&ended, 1, 0)) << "it is not shut down for both directions";
  close(copy);
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_FALSE(CConsoleClient(port).IsSomeoneThere());
  EXPECT_EQ(0, NetworkConsoleDestroy());
  return 0;
}
TEST(Console, CreateBindsOnceAndDestroyLeavesNothingOpen) {
  EXPECT_TRUE(Succeeded(RunChild("CreatedConsole")));
}

CHILD_CASE(DefaultPort) {
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, 0));
  EXPECT_EQ(8799, PortOf(TheConsole().m_Socket));
  CConsoleClient client(8799);
  EXPECT_TRUE(client.Send("-logcount 7"));
  EXPECT_TRUE(WaitUntil(
      [] {
        tagAttribute now;
        Context().CopyAttribute(now);
        return now.m_LogMaxCount == 7;
      },
      5000));
  EXPECT_EQ(0, Kelvik_NetworkConsoleDestroy());
  // Only the low 16 bits of the port count.
  EXPECT_EQ(0, Kelvik_NetworkConsoleCreate(nullptr, 0x10000u));
  EXPECT_EQ(8799, PortOf(TheConsole().m_Socket));
  return 0;
}
TEST(Console, NullAddressAndPortZeroMeanLoopbackPort8799) {
  EXPECT_TRUE(Succeeded(RunChild("DefaultPort")));
}

CHILD_CASE(BadAddresses) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const int before = OpenDescriptors();
  for (const char* address : {"", "localhost", "256.0.0.1", "127.0.0.1.1", "127.0.0.x", "::1",
                              "no address", "192.0.2.1"}) {
    SCOPED_TRACE(address);
    EXPECT_EQ(5, NetworkConsoleCreate(address, FindFreePort()));
    const std::string text = printed.Take();
    EXPECT_EQ(0u, text.find("\033[33m[Kelvik][Internal] Console Create 88 Failed:")) << text;
    const std::string end = " syserr:" + std::to_string(EADDRNOTAVAIL) + " " +
                            std::strerror(EADDRNOTAVAIL) + "\n\033[0m";
    EXPECT_NE(std::string::npos, text.find(end)) << text;
    ExpectStopped(TheConsole());
    EXPECT_EQ(before, OpenDescriptors());
  }
  EXPECT_EQ(0, NetworkConsoleCreate("127.0.0.1", FindFreePort()));
  return 0;
}
TEST(Console, AddressThatCannotBeBoundIsReportedAsTheBind) {
  EXPECT_TRUE(Succeeded(RunChild("BadAddresses")));
}

CHILD_CASE(OptionRefused) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const int before = OpenDescriptors();
  const int probe = dup(0);
  close(probe);
  const uint16_t port = FindFreePort();
  gOptionError = ENOBUFS;
  EXPECT_EQ(5, NetworkConsoleCreate(nullptr, port));
  EXPECT_EQ(SocketReport(72, probe, ENOBUFS), printed.Take());
  ExpectStopped(TheConsole());
  EXPECT_EQ(before, OpenDescriptors());
  gOptionError = 0;
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, port));
  return 0;
}
TEST(Console, RefusedOptionIsReported) {
  EXPECT_TRUE(Succeeded(RunChild("OptionRefused")));
}

CHILD_CASE(PortInUse) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const int holder = BindPlainSocket(0);
  const uint16_t port = PortOf(holder);
  EXPECT_EQ(5, NetworkConsoleCreate(nullptr, port));
  EXPECT_EQ(SocketReport(88, holder + 1, EADDRINUSE), printed.Take());
  ExpectStopped(TheConsole());
  close(holder);
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, port));
  return 0;
}
TEST(Console, PortInUseIsReportedAsTheBind) {
  EXPECT_TRUE(Succeeded(RunChild("PortInUse")));
}

CHILD_CASE(DescriptorZero) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const int before = OpenDescriptors();
  close(0);
  EXPECT_EQ(5, NetworkConsoleCreate(nullptr, FindFreePort()));
  EXPECT_EQ(SocketReport(62, 0, 0), printed.Take());
  EXPECT_EQ(before - 1, OpenDescriptors());
  ExpectStopped(TheConsole());
  return 0;
}
TEST(Console, DescriptorZeroIsRefused) {
  EXPECT_TRUE(Succeeded(RunChild("DescriptorZero")));
}

CHILD_CASE(LowDescriptors) {
  const int errors = dup(2);
  close(2);
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, FindFreePort()));
  EXPECT_GE(TheConsole().m_Socket, 3);
  EXPECT_NE(0, fcntl(TheConsole().m_Socket, F_GETFD) & FD_CLOEXEC);
  EXPECT_EQ(-1, fcntl(2, F_GETFD));
  dup2(errors, 2);
  return 0;
}
TEST(Console, SocketStaysClearOfTheStandardStreams) {
  EXPECT_TRUE(Succeeded(RunChild("LowDescriptors")));
}

// While one lives the process can open so many descriptors more.
class CFewDescriptors {
 public:
  explicit CFewDescriptors(int count) {
    // What checks a program at run time needs descriptors at the first use of a class.
    EXPECT_EQ(0, NetworkConsoleCreate(nullptr, FindFreePort()));
    EXPECT_EQ(0, NetworkConsoleDestroy());
    EXPECT_EQ(5, NetworkConsoleCreate("", 1));
    const int probe = dup(0);
    close(probe);
    EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &m_Before));
    rlimit few = m_Before;
    few.rlim_cur = static_cast<rlim_t>(probe + count);
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
  }
  CFewDescriptors(const CFewDescriptors&) = delete;
  CFewDescriptors& operator=(const CFewDescriptors&) = delete;
  ~CFewDescriptors() { EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &m_Before)); }

 private:
  rlimit m_Before = {};
};

CHILD_CASE(NoDescriptors) {
  CPrintedText printed;
  SwitchDateTimeOff();
  {
    const CFewDescriptors none(0);
    printed.Take();
    EXPECT_EQ(5, NetworkConsoleCreate(nullptr, 20000));
  }
  EXPECT_EQ(SocketReport(62, -1, EMFILE), printed.Take());
  ExpectStopped(TheConsole());
  return 0;
}
TEST(Console, MissingSocketIsReported) {
  EXPECT_TRUE(Succeeded(RunChild("NoDescriptors")));
}

// The socket is the last descriptor that there is; the worker's time-out replaces the wake-up.
CHILD_CASE(LastDescriptor) {
  const uint16_t port = FindFreePort();
  const CFewDescriptors one(1);
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, port));
  const int64_t start = RealClockMs();
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_LE(RealClockMs() - start, ScaledMs(1100));
  ExpectStopped(TheConsole());
  return 0;
}
TEST(Console, OneDescriptorIsEnough) {
  EXPECT_TRUE(Succeeded(RunChild("LastDescriptor")));
}

// No address space holds the stack of a thread from here on.
void RefuseThreads() {
  pthread_attr_t attributes;
  EXPECT_EQ(0, pthread_attr_init(&attributes));
  EXPECT_EQ(0, pthread_attr_setstacksize(&attributes, SIZE_MAX / 4 * 3 & ~size_t{0xFFFFF}));
  EXPECT_EQ(0, pthread_setattr_default_np(&attributes));
}

CHILD_CASE(NoThread) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const int before = OpenDescriptors();
  const uint16_t port = FindFreePort();
  RefuseThreads();
  EXPECT_EQ(5, NetworkConsoleCreate(nullptr, port));
  EXPECT_EQ(0u, printed.Take().find("\033[33m[Kelvik][Internal] Thread Create 105 Failed syserr:"));
  ExpectStopped(TheConsole());
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_FALSE(CConsoleClient(port).IsSomeoneThere());
  return 0;
}
TEST(Console, MissingThreadLeavesNothingOpen) {
  EXPECT_TRUE(Succeeded(RunChild("NoThread")));
}

class CWaitingTask : public CThread::IExecute {
 public:
  int RunTask() override {
    PauseMs(1);
    return 0;
  }
};

CHILD_CASE(ThreadRefused) {
  CWaitingTask task;
  CConsole console;
  const int before = OpenDescriptors();
  EXPECT_EQ(0, console.m_Worker.Create(&task));
  const uint16_t port = FindFreePort();
  EXPECT_EQ(6, console.Create(nullptr, port));
  EXPECT_FALSE(console.m_Running);
  EXPECT_EQ(-1, console.m_Socket);
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_EQ(0, console.Destroy());
  EXPECT_EQ(0, console.Create(nullptr, port));
  return 0;
}
TEST(Console, ThreadsRefusalIsCreatesResult) {
  EXPECT_TRUE(Succeeded(RunChild("ThreadRefused")));
}

CHILD_CASE(ManyDescriptors) {
  rlimit limit = {};
  EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
  limit.rlim_cur = 1200;
  EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
  while (dup(0) < 1100) {
  }
  CTestConsole console;
  EXPECT_GT(TheConsole().m_Socket, 1024);
  EXPECT_TRUE(console.Obey("-logcount 7"));
  return 0;
}
TEST(Console, DescriptorsPast1024Work) {
  EXPECT_TRUE(Succeeded(RunChild("ManyDescriptors")));
}

CHILD_CASE(TwoConsoles) {
  CTestConsole first;
  CConsole second;
  EXPECT_EQ(0, second.Create(nullptr, first.Port()));
  return 0;
}
TEST(Console, PortOfAnotherConsoleCanBeBound) {
  EXPECT_TRUE(Succeeded(RunChild("TwoConsoles")));
}

// --- Framing ---

std::string Line(const std::string& text) {
  return "[Kelvik] [Internal] " + text + "\n";
}

CHILD_CASE(Framing) {
  CPrintedText printed;
  CTestConsole console;
  const std::string magic = "\xF9\x51";
  const std::string zero(1, '\0');
  const struct {
    const char* m_Name;
    std::string m_Bytes;
    std::string m_Printed;
  } cases[] = {
      {"empty", "", ""},
      {"one byte", "\xF9", Line("receive length:1 is error.")},
      {"four bytes", magic + zero + "\x01", Line("receive length:4 is error.")},
      {"five bytes", magic + zero + "\x01x", Line("receive command: x, length: 1")},
      {"length 0", magic + zero + zero + "x", Line("receive:5 command length:0 is error.")},
      {"short length", magic + zero + "\x01xy", Line("receive:6 command length:1 is error.")},
      {"long length", magic + zero + "\x03xy", Line("receive:6 command length:3 is error.")},
      {"little-endian magic", "\x51\xF9" + zero + "\x01x",
       Line("receive command magic:51f9 is error.")},
      {"magic and length wrong", "\x01\x02" + zero + zero + "x",
       Line("receive command magic:102 is error.")},
      {"text magic", "-printf 0", Line("receive command magic:2d70 is error.")},
      {"longest text", Frame(std::string(2044, 'a')),
       Line("receive command: " + std::string(2044, 'a') + ", length: 2044")},
      {"one byte too long", Frame(std::string(2045, 'a')),
       Line("receive:2048 command length:2045 is error.")},
      {"much too long", Frame(std::string(9000, 'a')),
       Line("receive:2048 command length:9000 is error.")},
      {"cut to a command", magic + "\x07\xFC" + std::string(3000, 'b'),
       Line("receive command: " + std::string(2044, 'b') + ", length: 2044")},
      {"zero in the text", Frame("ab" + zero + "cd"), Line("receive command: ab, length: 5")},
      {"blanks", Frame("   "), Line("receive command:    , length: 3")},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.m_Name);
    EXPECT_TRUE(console.Client().SendRaw(row.m_Bytes));
    EXPECT_TRUE(console.Sync());
    EXPECT_EQ(row.m_Printed, TakePrinted(printed));
  }
  return 0;
}
TEST(Console, EveryFramingFaultIsPrintedAndTheDatagramDropped) {
  EXPECT_TRUE(Succeeded(RunChild("Framing")));
}

// The descriptor is exchanged for one that always has an error and cannot be received from.
CHILD_CASE(FailedReceive) {
  CPrintedText printed;
  CTestConsole console;
  const int socket = TheConsole().m_Socket;
  const int kept = fcntl(socket, F_DUPFD_CLOEXEC, 3);
  int pipe[2] = {};
  EXPECT_EQ(0, pipe2(pipe, O_CLOEXEC));
  close(pipe[0]);
  EXPECT_EQ(socket, dup2(pipe[1], socket));
  const std::string line = Line("receive command magic:0 is error.");
  std::string text;
  EXPECT_TRUE(WaitUntil(
      [&] {
        text += printed.Take();
        return text.find(line + line) != std::string::npos;
      },
      5000));
  EXPECT_EQ(socket, dup2(kept, socket));
  EXPECT_TRUE(console.Sync());
  return 0;
}
TEST(Console, FailedReceiveIsPrintedAsMagicZeroAndTheLoopGoesOn) {
  EXPECT_TRUE(Succeeded(RunChild("FailedReceive")));
}

// In its place a stream with an urgent byte: an exception, and nothing to receive.
CHILD_CASE(UrgentByte) {
  CPrintedText printed;
  CTestConsole console;
  const int socket = TheConsole().m_Socket;
  const int kept = fcntl(socket, F_DUPFD_CLOEXEC, 3);
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int sender = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = LoopbackAddress(0);
  auto* const name = reinterpret_cast<sockaddr*>(&address);
  EXPECT_TRUE(bind(listener, name, sizeof(address)) == 0 && listen(listener, 1) == 0);
  address = LoopbackAddress(PortOf(listener));
  EXPECT_EQ(0, connect(sender, name, sizeof(address)));
  pollfd stream = {accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), POLLPRI, 0};
  EXPECT_EQ(1, send(sender, "x", 1, MSG_OOB));
  EXPECT_EQ(1, poll(&stream, 1, 5000));
  EXPECT_EQ(socket, dup2(stream.fd, socket));
  EXPECT_TRUE(WaitUntil([&] { return poll(&stream, 1, 0) == 0; }, 5000));
  EXPECT_EQ(socket, dup2(kept, socket));
  EXPECT_TRUE(console.Sync());
  EXPECT_EQ("", TakePrinted(printed));
  return 0;
}
TEST(Console, ExceptionWithoutDataIsReceivedWithoutWaiting) {
  EXPECT_TRUE(Succeeded(RunChild("UrgentByte")));
}

// --- Order and pace ---

int CollectNumber(int value, void* list) {
  static_cast<std::vector<int>*>(list)->push_back(value);
  return 0;
}

CHILD_CASE(OrderAndPace) {
  std::vector<int> numbers;
  CTestConsole console;
  EXPECT_EQ(0, ModuleSetParamRegister("net", "number", &CollectNumber, &numbers));
  constexpr int kCount = 30;
  std::vector<int> expected;
  const int64_t start = RealClockMs();
  for (int i = 0; i < kCount; ++i) {
    EXPECT_TRUE(console.Client().Send("-set net number " + std::to_string(i)));
    expected.push_back(i);
  }
  EXPECT_TRUE(console.Sync());
  EXPECT_GE(RealClockMs() - start, kCount * 10);
  EXPECT_EQ(expected, numbers);
  return 0;
}
TEST(Console, DatagramsAreHandledInOrderTenMillisecondsApart) {
  EXPECT_TRUE(Succeeded(RunChild("OrderAndPace")));
}

CHILD_CASE(PaceOfRefused) {
  CPrintedText printed;
  CTestConsole console;
  EXPECT_TRUE(console.Sync());
  constexpr int kCount = 30;
  const int64_t start = RealClockMs();
  for (int i = 0; i < kCount; ++i) {
    EXPECT_TRUE(console.Client().SendRaw(i % 2 == 0 ? "" : "no magic"));
  }
  EXPECT_TRUE(console.Sync());
  EXPECT_GE(RealClockMs() - start, kCount * 10);
  return 0;
}
TEST(Console, RefusedAndEmptyDatagramsArePacedToo) {
  EXPECT_TRUE(Succeeded(RunChild("PaceOfRefused")));
}

}  // namespace
}  // namespace Kelvik
