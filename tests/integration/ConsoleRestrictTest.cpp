// What KelvikExtra_RestrictConsole leaves of the console, through the wire.

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ConsoleClient.h"
#include "ConsoleTools.h"
#include "KelvikExtra.h"
#include "PseudoTerminal.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

constexpr int kLimitMs = 30000;
constexpr uid_t kNobody = 65534;
constexpr uid_t kDaemon = 1;
constexpr unsigned kEverything = eRestrictTerminals | eRestrictLogPath | eRestrictSenders;

tagKelvikStatistics Counters() {
  tagKelvikStatistics statistics = {};
  EXPECT_EQ(0, KelvikExtra_GetStatistics(&statistics, sizeof(statistics)));
  return statistics;
}

tagAttribute Settings() {
  tagAttribute settings;
  Context().CopyAttribute(settings);
  return settings;
}

std::string LogPath() {
  const tagAttribute settings = Settings();
  return std::string(settings.m_LogPath, strnlen(settings.m_LogPath, sizeof(settings.m_LogPath)));
}

std::string Refusal(const std::string& word) {
  return "[Kelvik] [Internal] command " + word + " is refused.\n";
}

// --- Commands ---

CHILD_CASE(Flags) {
  CPrintedText printed;
  CTestConsole console;
  EXPECT_TRUE(console.Obey("-logpath /tmp/a/"));
  EXPECT_EQ("/tmp/a/", LogPath()) << "nothing is restricted at the start";
  EXPECT_EQ(0, KelvikExtra_RestrictConsole(eRestrictLogPath));
  for (const unsigned unknown : {8u, 8u | eRestrictTerminals, 0x80000000u, ~0u}) {
    EXPECT_EQ(3, KelvikExtra_RestrictConsole(unknown));
  }
  TakePrinted(printed);
  EXPECT_TRUE(console.Obey("-LOGPATH /tmp/b/ -logcount 4"));
  EXPECT_EQ("/tmp/a/", LogPath());
  const uint32_t count = Settings().m_LogMaxCount;
  EXPECT_EQ(4u, count) << "the rest of the text is obeyed";
  EXPECT_EQ(Arrival("-LOGPATH /tmp/b/ -logcount 4") + Refusal("-logpath"), TakePrinted(printed));
  EXPECT_EQ(1u, Counters().m_CommandsDenied);
  EXPECT_EQ(0u, Counters().m_DatagramsDenied);
  EXPECT_EQ(0, SetAttribute(eAttributeOther, eOtherLogPath, "/tmp/c/", 7));
  EXPECT_EQ("/tmp/c/", LogPath()) << "the program itself is free";

  EXPECT_EQ(0, KelvikExtra_RestrictConsole(eRestrictTerminals));
  EXPECT_TRUE(console.Obey("-logpath /tmp/d/"));
  EXPECT_EQ("/tmp/d/", LogPath()) << "flags replace the ones before";

  EXPECT_EQ(0, KelvikExtra_RestrictConsole(eRestrictLogPath));
  EXPECT_EQ(0, NetworkConsoleDestroy());
  EXPECT_EQ(0, NetworkConsoleCreate(nullptr, console.Port()));
  EXPECT_TRUE(console.Obey("-logpath /tmp/e/"));
  EXPECT_EQ("/tmp/d/", LogPath()) << "a later run is restricted too";
  EXPECT_EQ(0, KelvikExtra_RestrictConsole(0));
  EXPECT_TRUE(console.Obey("-logpath /tmp/f/"));
  EXPECT_EQ("/tmp/f/", LogPath());
  EXPECT_EQ(2u, Counters().m_CommandsDenied);
  return 0;
}

TEST(ConsoleRestrict, LogPathIsRefusedAndTheRestObeyedWhileTheFlagStands) {
  EXPECT_TRUE(Succeeded(RunChild("Flags", {}, kLimitMs)));
}

int PrintHere(int fd, const char*, const char*, void* calls) {
  ++*static_cast<std::atomic<int>*>(calls);
  return write(fd, "state\n", 6) == 6 ? 0 : 1;
}

CHILD_CASE(NoTerminal) {
  const CTempDir folder;
  std::atomic<int> calls{0};
  CPrintedText printed;
  CTestConsole console;
  ModuleStateRegister("net", "state", &PrintHere, &calls);
  EXPECT_TRUE(console.Obey("-time 0"));
  EXPECT_EQ(0, KelvikExtra_RestrictConsole(eRestrictTerminals));
  EXPECT_TRUE(WriteFile(folder.File("file"), "precious\n"));
  EXPECT_EQ(0, symlink("file", folder.File("link").c_str()));
  EXPECT_EQ(0, mkfifo(folder.File("fifo").c_str(), 0600));
  const int opens = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  EXPECT_NE(-1, inotify_add_watch(opens, folder.Path().c_str(), IN_OPEN));
  const std::vector<std::string> paths = {
      folder.File("file"), folder.File("link"), folder.File("fifo"), folder.Path(),
      folder.File("none"), "/dev/null",         "/dev/zero",         std::string(300, 'x')};
  uint64_t refused = 0;
  for (const std::string& path : paths) {
    SCOPED_TRACE(path);
    for (const std::string& text : {"-tty " + path, "-show " + path + " net state"}) {
      TakePrinted(printed);
      EXPECT_TRUE(console.Obey(text));
      EXPECT_EQ(Arrival(text) + Refusal(text.substr(0, text.find(' '))), TakePrinted(printed));
      EXPECT_EQ(++refused, Counters().m_CommandsDenied);
    }
  }
  alignas(inotify_event) char event[1024];
  EXPECT_EQ(-1, read(opens, event, sizeof(event))) << "something was opened";
  close(opens);
  KLog(eLogLevelError, "net", "rx", "still here\n");
  EXPECT_NE(std::string::npos, printed.Take().find("still here")) << "standard output stays";
  EXPECT_EQ(0, calls);
  EXPECT_EQ("precious\n", ReadFile(folder.File("file")));
  EXPECT_FALSE(Exists(folder.File("none")));
  return 0;
}

TEST(ConsoleRestrict, WhatIsNoTerminalIsNeitherWrittenNorOpened) {
  EXPECT_TRUE(Succeeded(RunChild("NoTerminal", {}, kLimitMs)));
}

CHILD_CASE(Terminals) {
  const CTempDir folder;
  std::atomic<int> calls{0};
  CPseudoTerminal first;
  CPseudoTerminal second;
  dup2(first.Slave(), STDIN_FILENO);  // before the context looks for its terminal
  EXPECT_EQ(0, symlink(second.Path().c_str(), folder.File("link").c_str()));
  std::string onFirst;
  std::string onSecond;
  const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  {
    CTestConsole console;
    ModuleStateRegister("net", "state", &PrintHere, &calls);
    console.Obey("-time 0");
    EXPECT_EQ(0, KelvikExtra_RestrictConsole(kEverything));
    console.Obey("-show " + second.Path() + " net state");
    onSecond = second.ReadUntil("state\n");
    console.Obey("-show " + folder.File("link") + " net state");
    onSecond += second.ReadUntil("state\n");
    console.Obey("-tty " + folder.File("link"));
    KLog(eLogLevelError, "net", "rx", "to the second\n");
    onSecond += second.ReadUntil("to the second");
    console.Obey("-console");
    KLog(eLogLevelError, "net", "rx", "to the first\n");
    onFirst = first.ReadUntil("to the first");
  }
  std::fflush(stdout);
  dup2(output, STDOUT_FILENO);
  EXPECT_EQ(2, calls);
  EXPECT_EQ(0u, onSecond.find("state\nstate\n******************* node = " + second.Path() + "\n"))
      << onSecond;
  EXPECT_NE(std::string::npos, onSecond.find("to the second"));
  EXPECT_NE(std::string::npos, onFirst.find("to the first"));
  EXPECT_EQ(0u, Counters().m_CommandsDenied);
  return 0;
}

TEST(ConsoleRestrict, TerminalsAreOpenedByTheSystemsNameForThem) {
  EXPECT_TRUE(Succeeded(RunChild("Terminals", {}, kLimitMs)));
}

// --- Senders ---

int TakeValue(int value, void* sum) {
  *static_cast<std::atomic<int>*>(sum) += value;
  return 0;
}

// Waits until the value behind it is set.
int WaitForRelease(int, void* isReleased) {
  WaitUntil([&] { return static_cast<std::atomic<bool>*>(isReleased)->load(); }, kLimitMs);
  return 0;
}

CHILD_CASE(OwnSenders) {
  std::atomic<int> sum{0};
  CPrintedText printed;
  CTestConsole console;
  ModuleSetParamRegister("test", "value", &TakeValue, &sum);
  EXPECT_EQ(0, KelvikExtra_RestrictConsole(eRestrictSenders));
  const std::string bytes = Frame("-set test value 1");
  const sockaddr_in address = LoopbackAddress(console.Port());
  const auto* const to = reinterpret_cast<const sockaddr*>(&address);

  EXPECT_TRUE(console.Obey("-set test value 1"));
  EXPECT_EQ(1, sum) << "connected";

  const int chosen = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  EXPECT_NE(-1, sendto(chosen, bytes.data(), bytes.size(), 0, to, sizeof(address)));
  EXPECT_TRUE(console.Sync());
  EXPECT_EQ(2, sum) << "a port that the system chose";

  int fixed = -1;
  for (uint16_t port = 20000; fixed == -1 && port < 30000; ++port)
    fixed = BindPlainSocket(port);
  EXPECT_NE(-1, sendto(fixed, bytes.data(), bytes.size(), 0, to, sizeof(address)));
  EXPECT_TRUE(console.Sync());
  EXPECT_EQ(2, sum) << "a port of a service, not connected";
  EXPECT_EQ(1u, Counters().m_DatagramsDenied);
  EXPECT_EQ(0, connect(fixed, to, sizeof(address)));
  EXPECT_NE(-1, send(fixed, bytes.data(), bytes.size(), 0));
  EXPECT_TRUE(console.Sync());
  EXPECT_EQ(3, sum) << "the same port, connected";

  // Framing faults of the own user are reported as ever.
  TakePrinted(printed);
  EXPECT_TRUE(console.Client().SendRaw("abcd"));
  EXPECT_TRUE(console.Client().SendRaw(""));
  EXPECT_TRUE(console.Sync());
  EXPECT_EQ("[Kelvik] [Internal] receive length:4 is error.\n", TakePrinted(printed));
  EXPECT_EQ(1u, Counters().m_DatagramsRefused);
  EXPECT_EQ(1u, Counters().m_DatagramsDenied);
  close(chosen);
  close(fixed);
  return 0;
}

TEST(ConsoleRestrict, OwnUserIsObeyed) {
  EXPECT_TRUE(Succeeded(RunChild("OwnSenders", {}, kLimitMs)));
}

CHILD_CASE(ClosedSender) {
  std::atomic<int> sum{0};
  std::atomic<bool> isReleased{false};
  CPrintedText printed;
  CTestConsole console;
  ModuleSetParamRegister("test", "value", &TakeValue, &sum);
  ModuleSetParamRegister("test", "wait", &WaitForRelease, &isReleased);
  EXPECT_EQ(0, KelvikExtra_RestrictConsole(eRestrictSenders));
  EXPECT_TRUE(console.Client().Send("-set test wait 1"));
  {
    CConsoleClient brief(console.Port());
    EXPECT_TRUE(brief.Send("-set test value 1"));
  }
  isReleased = true;
  EXPECT_TRUE(console.Sync());
  EXPECT_EQ(0, sum);
  EXPECT_EQ(1u, Counters().m_DatagramsDenied);
  EXPECT_EQ(std::string::npos, printed.Take().find("test value"));
  return 0;
}

TEST(ConsoleRestrict, SenderThatIsGoneIsNobodysAndDenied) {
  EXPECT_TRUE(Succeeded(RunChild("ClosedSender", {}, kLimitMs)));
}

// Becomes the user, for good and in every respect.
bool Become(uid_t user) {
  return user == geteuid() ||
         (setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0);
}

int PrintValue(int value, void*) {
  std::printf("value %d\n", value);
  std::fflush(stdout);
  return 0;
}

int EndServer(int, void* isOver) {
  *static_cast<std::atomic<bool>*>(isOver) = true;
  return 0;
}

// args: user. A process with a restricted console, until "-set test end 1".
CHILD_CASE(Server) {
  if (!Become(static_cast<uid_t>(std::stoul(args.at(0))))) return 1;
  std::atomic<bool> isOver{false};
  CTestConsole console;
  ModuleSetParamRegister("test", "value", &PrintValue, nullptr);
  ModuleSetParamRegister("test", "end", &EndServer, &isOver);
  EXPECT_EQ(0, KelvikExtra_RestrictConsole(eRestrictSenders));
  std::printf("port %u.\n", static_cast<unsigned>(console.Port()));
  std::fflush(stdout);
  EXPECT_TRUE(WaitUntil([&] { return isOver.load(); }, kLimitMs));
  std::printf("denied %u\n", static_cast<unsigned>(Counters().m_DatagramsDenied));
  return 0;
}

// args: user, port, then texts; sends them, says so, and keeps the socket until its input ends.
CHILD_CASE(SendAs) {
  if (!Become(static_cast<uid_t>(std::stoul(args.at(0))))) return 1;
  CConsoleClient client(static_cast<uint16_t>(std::stoul(args.at(1))));
  for (size_t i = 2; i < args.size(); ++i)
    EXPECT_TRUE(client.SendRaw(args[i][0] == '-' ? Frame(args[i]) : args[i]));
  std::printf("sent\n");
  std::fflush(stdout);
  char byte;
  EXPECT_EQ(0, read(STDIN_FILENO, &byte, 1));
  return 0;
}

// Sends as the user and waits until it is sent; the result keeps the sender.
std::unique_ptr<CChild> SendAs(uid_t user, const std::string& port,
                               const std::vector<std::string>& texts) {
  std::vector<std::string> args = {std::to_string(user), port};
  args.insert(args.end(), texts.begin(), texts.end());
  tagChildOptions options;
  options.m_IsInputPiped = true;
  options.m_LimitMs = kLimitMs;
  auto sender = std::make_unique<CChild>(ChildCommand("SendAs", args), options);
  EXPECT_TRUE(sender->WaitForOutput("sent\n", kLimitMs)) << sender->Errors();
  return sender;
}

std::string PortOfServer(CChild& server) {
  EXPECT_TRUE(server.WaitForOutput(".\n", kLimitMs)) << server.Errors();
  const std::string output = server.Output();
  const size_t begin = output.find("port ") + 5;
  return output.substr(begin, output.find('.', begin) - begin);
}

// The process runs as serverUser. Strangers send first, then those who may; all of them keep their
// sockets to the end.
void TryUsers(uid_t serverUser, const std::vector<uid_t>& strangers,
              const std::vector<uid_t>& friends) {
  tagChildOptions options;
  options.m_LimitMs = kLimitMs;
  CChild server(ChildCommand("Server", {std::to_string(serverUser)}), options);
  const std::string port = PortOfServer(server);
  std::vector<std::unique_ptr<CChild>> senders;
  for (const uid_t user : strangers)
    senders.push_back(SendAs(user, port, {"-set test value 666", "unframed", "-set test end 1"}));
  for (const uid_t user : friends) {
    const std::string value = std::to_string(100000 + user);
    senders.push_back(SendAs(user, port, {"-set test value " + value}));
    EXPECT_TRUE(server.WaitForOutput("value " + value, kLimitMs)) << user;
  }
  senders.push_back(SendAs(friends[0], port, {"-set test end 1"}));
  const tagChildResult result = server.Wait();
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(std::string::npos, result.m_Output.find("value 666")) << result.m_Output;
  EXPECT_EQ(std::string::npos, result.m_Output.find("is error")) << result.m_Output;
  const std::string denied = "denied " + std::to_string(3 * strangers.size()) + "\n";
  EXPECT_NE(std::string::npos, result.m_Output.find(denied)) << result.m_Output;
  for (const auto& sender : senders) {
    sender->CloseInput();
    EXPECT_TRUE(Succeeded(sender->Wait()));
  }
}

CHILD_CASE(BecomeOthers) {
  return Become(kDaemon) ? 0 : 1;
}

// Why no process of another user can be had here; empty when one can.
std::string WhyNoOtherUser() {
  if (geteuid() != 0) return "SKIPPED: only root can start a process of another user";
  if (ChildCommand("").size() > 2) return "SKIPPED: the emulator does not change users";
  if (RunChild("BecomeOthers").m_ExitCode != 0) return "SKIPPED: there are no other users here";
  return "";
}

TEST(ConsoleRestrict, RootsProcessObeysRootAlone) {
  const std::string why = WhyNoOtherUser();
  if (!why.empty()) GTEST_SKIP() << why;
  TryUsers(0, {kNobody, kDaemon}, {0});
}

TEST(ConsoleRestrict, ProcessObeysItsUserAndRootAndNobodyElse) {
  const std::string why = WhyNoOtherUser();
  if (!why.empty()) GTEST_SKIP() << why;
  TryUsers(kNobody, {kDaemon}, {kNobody, 0});
}

TEST(ConsoleRestrict, WithoutOtherUsersTheOwnOneIsObeyed) {
  TryUsers(geteuid(), {}, {geteuid()});
}

}  // namespace
}  // namespace Kelvik
