// Standard output on another device: the order of what is printed around the change, a terminal
// that is lost, and how devices are opened.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "PseudoTerminal.h"
#include "RealClock.h"
#include "RecordTools.h"
#include "TempDir.h"

namespace {

bool gFailDup = false;

}  // namespace

extern "C" {

int __real_dup2(int fd, int target);
int __wrap_dup2(int fd, int target) {
  if (!gFailDup) return __real_dup2(fd, target);
  errno = EBUSY;
  return -1;
}

}  // extern "C"

namespace Kelvik {
namespace {

std::string Banner(const std::string& path) {
  return "******************* node = " + path + "\n";
}

int Redirect(const std::string& path) {
  return Engine().RedirectTTY(path.c_str(), static_cast<int>(path.size()));
}

std::string DeviceOfOutput() {
  const char* const path = ttyname(STDOUT_FILENO);
  return path == nullptr ? "" : path;
}

bool IsSameFile(int fd, const std::string& path) {
  struct stat first = {};
  struct stat second = {};
  return fstat(fd, &first) == 0 && stat(path.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// --- Where it goes ---

CHILD_CASE(OldAndNew) {
  CPrintedText printed;
  CPseudoTerminal device;
  UseBareRecords();
  EXPECT_EQ(-1, Engine().m_TerminalFd);
  // Not flushed: it waits in the stream's buffer when the device changes.
  std::printf("the program's own ");
  LogList(4, nullptr, nullptr, "before\n");
  const int descriptors = OpenDescriptors();
  EXPECT_EQ(0, Redirect(device.Path()));
  EXPECT_EQ(descriptors, OpenDescriptors()) << "the opened descriptor is closed again";
  EXPECT_EQ(STDOUT_FILENO, Engine().m_TerminalFd);
  EXPECT_EQ(device.Path(), DeviceOfOutput());
  EXPECT_EQ(Banner(device.Path()), device.ReadUntil("\n")) << "the first line, at once";
  // Each record at once, a line end or none.
  for (const char* text : {"first\n", "second", "third\n"}) {
    EXPECT_EQ(0, LogList(4, nullptr, nullptr, "%s", text));
    EXPECT_EQ(Shown(4, text), device.ReadUntil(Shown(4, text)));
    EXPECT_EQ(0, LogList(1, nullptr, nullptr, "%s", text));
    EXPECT_EQ(Shown(1, text), device.ReadUntil(Shown(1, text)));
    EXPECT_EQ(0, Engine().Logs(Level(5), "net", nullptr, text, 1));
    EXPECT_EQ("[net] " + Shown(5, text), device.ReadUntil(Shown(5, text)));
  }
  const std::string large(8000, 'l');
  EXPECT_EQ(0, LogList(4, nullptr, nullptr, "%s", large.c_str()));
  EXPECT_EQ(Shown(4, large), device.ReadUntil(Shown(4, large)));
  EXPECT_EQ("the program's own " + Shown(4, "before\n"), printed.Take());
  return 0;
}

TEST(Redirect, EarlierTextGoesToTheOldDeviceAndTheBannerLeadsOnTheNewOne) {
  EXPECT_TRUE(Passes("OldAndNew"));
}

CHILD_CASE(TwoDevices) {
  CPseudoTerminal first;
  CPseudoTerminal second;
  UseBareRecords();
  EXPECT_EQ(0, Redirect(first.Path()));
  LogList(4, nullptr, nullptr, "one\n");
  std::printf("waiting ");
  EXPECT_EQ(0, Redirect(second.Path()));
  LogList(4, nullptr, nullptr, "two\n");
  EXPECT_EQ(Banner(first.Path()) + Shown(4, "one\n") + "waiting ", first.ReadUntil("waiting "));
  EXPECT_EQ(Banner(second.Path()) + Shown(4, "two\n"), second.ReadUntil(Shown(4, "two\n")));
  // The same device again.
  EXPECT_EQ(0, Redirect(second.Path()));
  EXPECT_EQ(Banner(second.Path()), second.ReadUntil("\n"));
  EXPECT_EQ("", first.Take());
  return 0;
}

TEST(Redirect, EachRedirectionLeavesTheDeviceBefore) {
  EXPECT_TRUE(Passes("TwoDevices"));
}

CHILD_CASE(Refused) {
  CPrintedText printed;
  const CTempDir folder;
  UseBareRecords();
  const int descriptors = OpenDescriptors();
  EXPECT_EQ(3, Engine().RedirectTTY(nullptr, 5));
  EXPECT_EQ(3, Engine().RedirectTTY("", 5));
  EXPECT_EQ(3, Engine().RedirectTTY("/dev/null", 0));
  EXPECT_EQ(5, Redirect("/nonexistent/tty"));
  EXPECT_EQ(5, Redirect(folder.File("nothing")));
  EXPECT_EQ(5, Redirect(folder.Path())) << "a folder";
  EXPECT_EQ(5, Redirect(std::string(5000, 'p')));
  EXPECT_FALSE(Exists(folder.File("nothing"))) << "nothing is made";
  EXPECT_EQ(-1, Engine().m_TerminalFd);
  EXPECT_EQ(descriptors, OpenDescriptors());
  EXPECT_EQ(0, LogList(4, nullptr, nullptr, "still here\n"));
  EXPECT_EQ(Shown(4, "still here\n"), printed.Take());
  // Of the length only zero or not counts.
  CPseudoTerminal device;
  EXPECT_EQ(0, Engine().RedirectTTY(device.Path().c_str(), -1));
  EXPECT_EQ(Banner(device.Path()), device.ReadUntil("\n"));
  EXPECT_EQ(5, Redirect("/nonexistent/tty")) << "from a device";
  EXPECT_EQ(STDOUT_FILENO, Engine().m_TerminalFd);
  EXPECT_EQ(0, LogList(4, nullptr, nullptr, "there still\n"));
  EXPECT_EQ(Shown(4, "there still\n"), device.ReadUntil(Shown(4, "there still\n")));
  return 0;
}

TEST(Redirect, WhatCannotBeOpenedKeepsTheOldOutput) {
  EXPECT_TRUE(Passes("Refused"));
}

CHILD_CASE(PlainFile) {
  CPrintedText printed;
  const CTempDir folder;
  const std::string path = folder.File("file");
  EXPECT_TRUE(WriteFile(path, ""));
  UseBareRecords();
  EXPECT_EQ(0, Redirect(path));
  EXPECT_EQ(Banner(path), ReadFile(path));
  EXPECT_EQ(0, LogList(4, nullptr, nullptr, "x"));
  EXPECT_EQ(Banner(path) + Shown(4, "x"), ReadFile(path)) << "at once on any device";
  return 0;
}

TEST(Redirect, AnythingThatOpensForReadingAndWritingIsADevice) {
  EXPECT_TRUE(Passes("PlainFile"));
}

CHILD_CASE(DupFails) {
  CPseudoTerminal device;
  UseBareRecords();
  EXPECT_EQ(0, Redirect("/dev/null"));
  EXPECT_EQ(STDOUT_FILENO, Engine().m_TerminalFd);
  const int descriptors = OpenDescriptors();
  gFailDup = true;
  EXPECT_EQ(0, Redirect(device.Path())) << "it is not noticed";
  gFailDup = false;
  EXPECT_EQ(-1, Engine().m_TerminalFd) << "nothing is recovered from here on";
  EXPECT_EQ(descriptors, OpenDescriptors());
  EXPECT_TRUE(IsSameFile(STDOUT_FILENO, "/dev/null"));
  EXPECT_EQ("", device.Take());
  return 0;
}

TEST(Redirect, DeviceThatCannotTakeThePlaceOfStandardOutputLeavesItAlone) {
  EXPECT_TRUE(Passes("DupFails"));
}

// --- How it is opened ---

CHILD_CASE(Openings) {
  const CTempDir folder;
  CPseudoTerminal device;
  // A child has a session of its own and no terminal: the first one that it opened carelessly
  // would become its own.
  EXPECT_EQ(getpid(), getsid(0));
  EXPECT_EQ(-1, open("/dev/tty", O_RDWR | O_NOCTTY));
  EXPECT_EQ(0, Redirect(device.Path()));
  EXPECT_EQ(-1, open("/dev/tty", O_RDWR | O_NOCTTY)) << "it has become the process's terminal";
  EXPECT_EQ(0, fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK) << "it blocks afterwards";
  EXPECT_EQ(O_RDWR, fcntl(STDOUT_FILENO, F_GETFL) & O_ACCMODE);
  EXPECT_EQ(0, fcntl(STDOUT_FILENO, F_GETFD)) << "a program that is started inherits it";
  // A pipe without a reader or a writer.
  const std::string fifo = folder.File("fifo");
  EXPECT_EQ(0, mkfifo(fifo.c_str(), 0600));
  const int64_t start = RealClockMs();
  const int result = Redirect(fifo);
  EXPECT_TRUE(result == 0 || result == 5) << result;
  EXPECT_LT(RealClockMs() - start, ScaledMs(2000));
  if (result == 0) {
    EXPECT_EQ(0, fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK);
  }
  return 0;
}

TEST(Redirect, DeviceIsOpenedWithoutWaitingAndWithoutTakingItOver) {
  EXPECT_TRUE(Passes("Openings"));
}

// --- The console path ---

// Makes a terminal the standard input, before the context looks at it.
CHILD_CASE(FromATerminal) {
  CPseudoTerminal start;
  EXPECT_EQ(STDIN_FILENO, dup2(start.Slave(), STDIN_FILENO));
  EXPECT_STREQ(start.Path().c_str(), Engine().m_ConsolePath);
  CPseudoTerminal other;
  EXPECT_EQ(0, Redirect(other.Path()));
  EXPECT_EQ(0, Engine().RedirectConsole());
  EXPECT_EQ(start.Path(), DeviceOfOutput());
  EXPECT_EQ(Banner(start.Path()), start.ReadUntil("\n"));
  // Another terminal of standard input later counts only when it is asked for again.
  EXPECT_EQ(STDIN_FILENO, dup2(other.Slave(), STDIN_FILENO));
  EXPECT_EQ(0, Redirect(other.Path()));
  EXPECT_EQ(0, Engine().RedirectConsole());
  EXPECT_EQ(start.Path(), DeviceOfOutput());
  return 0;
}

TEST(Redirect, ConsoleIsTheTerminalOfStandardInputAtTheStart) {
  EXPECT_TRUE(Passes("FromATerminal"));
}

CHILD_CASE(PathOfNone) {
  // Standard input is no terminal.
  EXPECT_STREQ("", Engine().m_ConsolePath);
  EXPECT_EQ(0, Engine().GetConsolePath());
  EXPECT_STREQ("", Engine().m_ConsolePath);
  CPseudoTerminal terminal;
  EXPECT_EQ(STDIN_FILENO, dup2(terminal.Slave(), STDIN_FILENO));
  EXPECT_EQ(0, Engine().GetConsolePath());
  EXPECT_STREQ(terminal.Path().c_str(), Engine().m_ConsolePath);
  EXPECT_EQ(1, Engine().m_TerminalFlag) << "set at the start and read by nothing";
  return 0;
}

TEST(Redirect, ConsolePathIsEmptyWithoutATerminal) {
  EXPECT_TRUE(Passes("PathOfNone"));
}

constexpr int kNoConsole = 41;

CHILD_CASE(SystemConsole) {
  CPrintedText printed;
  UseBareRecords();
  const int probe = open("/dev/console", O_RDWR | O_NOCTTY | O_NONBLOCK);
  const int result = Engine().RedirectConsole();
  EXPECT_STREQ("/dev/console", Engine().m_ConsolePath) << "kept for the next time";
  if (probe == -1) {
    EXPECT_EQ(5, result);
    EXPECT_EQ(-1, Engine().m_TerminalFd);
    EXPECT_EQ(0, LogList(4, nullptr, nullptr, "still here\n"));
    EXPECT_EQ(Shown(4, "still here\n"), printed.Take());
    return testing::Test::HasFailure() ? 1 : kNoConsole;
  }
  close(probe);
  EXPECT_EQ(0, result);
  EXPECT_TRUE(IsSameFile(STDOUT_FILENO, "/dev/console"));
  EXPECT_EQ(-1, open("/dev/tty", O_RDWR | O_NOCTTY)) << "it has become the process's terminal";
  return 0;
}

TEST(Redirect, ConsoleWithoutATerminalIsTheSystemConsole) {
  const tagChildResult result = RunChild("SystemConsole");
  if (result.m_ExitCode == kNoConsole) {
    GTEST_SKIP() << "/dev/console cannot be opened here: only the refusal was tried";
  }
  EXPECT_TRUE(Succeeded(result));
}

// --- A terminal that is lost ---

CHILD_CASE(LostTerminal) {
  CPseudoTerminal start;
  EXPECT_EQ(STDIN_FILENO, dup2(start.Slave(), STDIN_FILENO));
  UseBareRecords();
  const bool isRaw = args.at(0) == "raw";
  const auto log = [&](const std::string& text) {
    return isRaw ? Engine().Logs(Level(4), args.at(1).empty() ? nullptr : "net", nullptr,
                                 text.c_str(), static_cast<int>(text.size()))
                 : LogList(4, args.at(1).empty() ? nullptr : "net", nullptr, "%s", text.c_str());
  };
  const std::string prefix = args.at(1).empty() ? "" : "[net] ";
  const auto shown = [&](const std::string& text) {
    return isRaw ? prefix + Shown(4, text) : Shown(4, prefix + text);
  };
  for (int round = 0; round < 3; ++round) {
    auto lost = std::make_unique<CPseudoTerminal>();
    EXPECT_EQ(0, Redirect(lost->Path()));
    EXPECT_EQ(0, log("on it\n"));
    const std::string first = Banner(lost->Path()) + shown("on it\n");
    EXPECT_EQ(first, lost->ReadUntil(shown("on it\n")));
    lost.reset();
    errno = EDOM;
    EXPECT_EQ(0, log("lost\n"));
    EXPECT_EQ(EDOM, errno);
    EXPECT_EQ(start.Path(), DeviceOfOutput());
    EXPECT_FALSE(std::ferror(stdout)) << "the error does not stick";
    EXPECT_EQ(0, log("back\n"));
    EXPECT_EQ(0, log("again"));
    const std::string got = start.ReadUntil(shown("again"));
    // The record that found the terminal lost is not printed again. Of a raw one the prefix may
    // have found it; its data then goes to the console.
    const std::string rest = shown("back\n") + shown("again");
    EXPECT_TRUE(
        got == Banner(start.Path()) + rest ||
        (isRaw && !prefix.empty() && got == Banner(start.Path()) + Shown(4, "lost\n") + rest))
        << got;
  }
  return 0;
}

TEST(Redirect, LostTerminalGivesWayToTheConsole) {
  EXPECT_TRUE(Passes("LostTerminal", {"formatted", ""}));
  EXPECT_TRUE(Passes("LostTerminal", {"formatted", "net"}));
  EXPECT_TRUE(Passes("LostTerminal", {"raw", ""}));
  EXPECT_TRUE(Passes("LostTerminal", {"raw", "net"}));
}

CHILD_CASE(LostForGood) {
  CPrintedText printed;
  UseBareRecords();
  std::strcpy(Engine().m_ConsolePath, "/nonexistent/console");
  auto lost = std::make_unique<CPseudoTerminal>();
  EXPECT_EQ(0, Redirect(lost->Path()));
  lost.reset();
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(0, LogList(4, "net", nullptr, "nobody sees it\n")) << "no failure of the record";
  // A new device is a fresh start: nothing of the old text comes after its banner.
  CPseudoTerminal next;
  EXPECT_EQ(0, Redirect(next.Path()));
  EXPECT_EQ(0, LogList(4, nullptr, nullptr, "seen\n"));
  EXPECT_EQ(Banner(next.Path()) + Shown(4, "seen\n"), next.ReadUntil(Shown(4, "seen\n")));
  EXPECT_FALSE(std::ferror(stdout));
  return 0;
}

TEST(Redirect, WithoutAConsoleALostTerminalIsLeftBehindByTheNextDevice) {
  EXPECT_TRUE(Passes("LostForGood"));
}

CHILD_CASE(NeverRedirected) {
  // Standard output is lost without a redirection: nothing is opened in its place.
  CPseudoTerminal start;
  EXPECT_EQ(STDIN_FILENO, dup2(start.Slave(), STDIN_FILENO));
  UseBareRecords();
  auto lost = std::make_unique<CPseudoTerminal>();
  EXPECT_EQ(STDOUT_FILENO, dup2(lost->Slave(), STDOUT_FILENO));
  setvbuf(stdout, nullptr, _IONBF, 0);
  const std::string path = lost->Path();
  lost.reset();
  EXPECT_EQ(0, LogList(4, nullptr, nullptr, "lost\n"));
  EXPECT_EQ(0, Engine().Logs(Level(4), "net", nullptr, "lost\n", 5));
  EXPECT_EQ(-1, Engine().m_TerminalFd);
  EXPECT_EQ("", start.Take());
  return 0;
}

TEST(Redirect, OutputThatWasNotRedirectedIsNotRecovered) {
  EXPECT_TRUE(Passes("NeverRedirected"));
}

CHILD_CASE(OtherError) {
  CPseudoTerminal start;
  EXPECT_EQ(STDIN_FILENO, dup2(start.Slave(), STDIN_FILENO));
  UseBareRecords();
  EXPECT_EQ(0, Redirect("/dev/full"));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(0, LogList(4, "net", nullptr, "no room\n"));
    EXPECT_EQ(0, Engine().Logs(Level(4), "net", nullptr, "no room\n", 8));
  }
  EXPECT_TRUE(IsSameFile(STDOUT_FILENO, "/dev/full"));
  EXPECT_EQ(STDOUT_FILENO, Engine().m_TerminalFd);
  EXPECT_EQ("", start.Take());
  return 0;
}

TEST(Redirect, DeviceWithAnotherErrorIsKept) {
  EXPECT_TRUE(Passes("OtherError"));
}

CHILD_CASE(LostBesideThreads) {
  CPseudoTerminal start;
  EXPECT_EQ(STDIN_FILENO, dup2(start.Slave(), STDIN_FILENO));
  UseBareRecords();
  auto lost = std::make_unique<CPseudoTerminal>();
  EXPECT_EQ(0, Redirect(lost->Path()));
  lost.reset();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 20; ++round) {
        LogList(4, "net", nullptr, "text %d\n", i);
        Engine().Logs(Level(4), "net", nullptr, "raw\n", 4);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  LogList(4, nullptr, nullptr, "last\n");
  const std::string got = start.ReadUntil(Shown(4, "last\n"));
  EXPECT_NE(std::string::npos, got.find(Shown(4, "last\n"))) << got;
  EXPECT_EQ(start.Path(), DeviceOfOutput());
  EXPECT_FALSE(std::ferror(stdout));
  return 0;
}

TEST(Redirect, ThreadsThatFindTheTerminalLostTogetherGoOn) {
  EXPECT_TRUE(Passes("LostBesideThreads", {}, 20000));
}

CHILD_CASE(ChangeBesideThreads) {
  CPseudoTerminal devices[2];
  UseBareRecords();
  EXPECT_EQ(0, Redirect(devices[0].Path()));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 50; ++round)
        LogList(4, nullptr, nullptr, "record\n");
    });
  }
  std::string got;
  for (int i = 1; i <= 20; ++i) {
    EXPECT_EQ(0, Redirect(devices[i % 2].Path()));
    got += devices[0].Take() + devices[1].Take();
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(0, Redirect("/dev/null"));
  WaitUntil(
      [&] {
        got += devices[0].Take() + devices[1].Take();
        return false;
      },
      100);
  size_t records = 0;
  for (size_t at = got.find("record\n"); at != std::string::npos; at = got.find("record\n", at + 1))
    ++records;
  EXPECT_EQ(200u, records) << "each record is on one of the devices";
  return 0;
}

TEST(Redirect, DeviceChangesBesideThreadsThatLog) {
  EXPECT_TRUE(Passes("ChangeBesideThreads", {}, 20000));
}

// --- The end ---

CHILD_CASE(DestroyCloses) {
  COutput engine;
  const int terminal = engine.m_TerminalFd = open("/dev/null", O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(0, engine.Destroy());
  EXPECT_EQ(-1, engine.m_TerminalFd);
  EXPECT_EQ(-1, fcntl(terminal, F_GETFD));
  return 0;
}

TEST(Redirect, EndOfTheEngineClosesItsDescriptor) {
  EXPECT_TRUE(Passes("DestroyCloses"));
}

CHILD_CASE(AtTheEnd) {
  UseBareRecords();
  EXPECT_EQ(0, Redirect(args.at(0)));
  std::printf("waiting at the end");
  return 0;
}

TEST(Redirect, WhatWaitsAtTheEndReachesTheDevice) {
  CPseudoTerminal device;
  EXPECT_TRUE(Passes("AtTheEnd", {device.Path()}));
  EXPECT_EQ(Banner(device.Path()) + "waiting at the end", device.ReadUntil("at the end"));
}

}  // namespace
}  // namespace Kelvik
