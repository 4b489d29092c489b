// What a record looks like: prefix, location piece, cuts, its time, and the caller's errno.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "FakeClock.h"
#include "RecordTools.h"
#include "SyslogCapture.h"

// Some formats are made up here, beyond what the compiler can check.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace Kelvik {
namespace {

// --- The prefix ---

std::string Tid() {
  return std::to_string(getpid());
}

// The table of prefixes, written out.
std::string Prefix(bool date, bool tid, const char* module, const char* title) {
  const std::string d = kMomentText;
  const std::string t = Tid();
  const std::string m = module == nullptr ? "" : module;
  const std::string i = title == nullptr ? "" : title;
  const int row = (module != nullptr ? 0 : 2) + (title != nullptr ? 0 : 1);
  if (date && tid) {
    const std::string rows[] = {d + " [" + t + "][" + m + "][" + i + "] ",
                                d + " [" + t + "][" + m + "] ", d + " [" + t + "][" + i + "] ",
                                d + " [" + t + "] "};
    return rows[row];
  }
  if (date) {
    const std::string rows[] = {d + " [" + m + "][" + i + "] ", d + " [" + m + "] ",
                                d + " [" + i + "] ", d + " "};
    return rows[row];
  }
  if (tid) {
    const std::string rows[] = {"[" + t + "][" + m + "][" + i + "] ", "[" + t + "][" + m + "] ",
                                "[" + t + "][" + i + "] ", ""};
    return rows[row];
  }
  const std::string rows[] = {"[" + m + "][" + i + "] ", "[" + m + "] ", "[" + i + "] ", ""};
  return rows[row];
}

CHILD_CASE(Prefixes) {
  CPrintedText printed;
  CFakeClock clock(kMoment, kMomentMicros);
  UseBareRecords();
  const char* const nothing = nullptr;
  for (int bits = 0; bits < 4; ++bits) {
    const bool date = (bits & 1) != 0;
    const bool tid = (bits & 2) != 0;
    Store(Global().m_OutputDateTime, date);
    Store(Global().m_OutputThreadID, tid);
    for (const char* module : {"net", "", nothing}) {
      for (const char* title : {"rx", "", nothing}) {
        SCOPED_TRACE(testing::Message() << "date " << date << " tid " << tid);
        const std::string prefix = Prefix(date, tid, module, title);
        const std::string line = Shown(3, prefix + "x\n");
        EXPECT_EQ(0, Engine().Log(Level(3), module, title, "%c\n", 'x'));
        EXPECT_EQ(line, printed.Take());
        EXPECT_EQ(0, LogList(3, module, title, "%c\n", 'x'));
        EXPECT_EQ(line, printed.Take());
        EXPECT_EQ(0, Engine().Log(Level(3), module, title, nothing, nothing, -1, "%c\n", 'x'));
        EXPECT_EQ(line, printed.Take());
        EXPECT_EQ(0, LogListAt(3, module, title, nothing, nothing, -1, "%c\n", 'x'));
        EXPECT_EQ(line, printed.Take());
        const std::string raw = prefix + Shown(3, "x\n");
        EXPECT_EQ(0, Engine().Logs(Level(3), module, title, "x\n", 2));
        EXPECT_EQ(raw, printed.Take());
        EXPECT_EQ(0, Engine().Logs(Level(3), module, title, nothing, nothing, -1, "x\n", 2));
        EXPECT_EQ(raw, printed.Take());
      }
    }
  }
  return 0;
}

TEST(Record, TwelvePrefixesStandBeforeBothKindsOfRecord) {
  EXPECT_TRUE(Passes("Prefixes"));
}

struct tagPlaceCase {
  const char* m_File;
  const char* m_Func;
  int m_Line;
  const char* m_Piece;
};

const tagPlaceCase kPlaces[] = {
    {"a.c", "main", 12, "[a.c main 12] "},
    {"a.c", "main", -1, "[a.c main] "},
    {"a.c", nullptr, 12, "[a.c 12] "},
    {"a.c", nullptr, -1, "[a.c] "},
    {nullptr, "main", 12, "[main 12] "},
    {nullptr, "main", -1, "[main] "},
    {nullptr, nullptr, 12, "[12] "},
    {nullptr, nullptr, 0, "[0] "},
    {nullptr, nullptr, -2, "[-2] "},
    {nullptr, nullptr, -1, ""},
    {nullptr, nullptr, -2147483647 - 1, "[-2147483648] "},
    {"%s %n", "operator%", 2147483647, "[%s %n operator% 2147483647] "},
};

CHILD_CASE(Places) {
  CPrintedText printed;
  UseBareRecords();
  for (const bool isShown : {true, false}) {
    Store(Global().m_OutputLocation, isShown);
    for (const tagPlaceCase& at : kPlaces) {
      SCOPED_TRACE(at.m_Piece);
      const std::string piece = isShown ? at.m_Piece : "";
      EXPECT_EQ(0, Engine().Log(Level(4), "net", "rx", at.m_File, at.m_Func, at.m_Line, "%d\n", 5));
      EXPECT_EQ(Shown(4, "[net][rx] " + piece + "5\n"), printed.Take());
      EXPECT_EQ(0, LogListAt(4, nullptr, nullptr, at.m_File, at.m_Func, at.m_Line, "%d\n", 5));
      EXPECT_EQ(Shown(4, piece + "5\n"), printed.Take());
      EXPECT_EQ(0,
                Engine().Logs(Level(4), "net", nullptr, at.m_File, at.m_Func, at.m_Line, "5\n", 2));
      EXPECT_EQ("[net] " + piece + Shown(4, "5\n"), printed.Take());
    }
  }
  return 0;
}

TEST(Record, LocationPieceShowsItsPresentPartsWhenSwitchedOn) {
  EXPECT_TRUE(Passes("Places"));
}

CHILD_CASE(PresentEmptyParts) {
  CPrintedText printed;
  UseBareRecords();
  // Present is what is not null; each present part is parted from the next by one blank.
  EXPECT_EQ(0, Engine().Log(Level(4), nullptr, nullptr, "", "", 1, "x\n"));
  EXPECT_EQ(Shown(4, "[  1] x\n"), printed.Take());
  EXPECT_EQ(0, Engine().Log(Level(4), nullptr, nullptr, "", nullptr, -1, "x\n"));
  EXPECT_EQ(Shown(4, "[] x\n"), printed.Take());
  EXPECT_EQ(0, Engine().Logs(Level(4), "", "", "", "", -1, "x\n", 2));
  EXPECT_EQ("[][] [ ] " + Shown(4, "x\n"), printed.Take());
  return 0;
}

TEST(Record, EmptyPartsOfTheLocationArePresent) {
  EXPECT_TRUE(Passes("PresentEmptyParts"));
}

// --- Cuts ---

// What a field of limit characters keeps of a text.
std::string Cut(const std::string& text, size_t limit) {
  return text.substr(0, limit);
}

CHILD_CASE(LongRecords) {
  CPrintedText printed;
  CFakeClock clock(kMoment, kMomentMicros);
  Global().m_LevelMask = 0x3e;
  Store(Global().m_OutputSystem, true);
  const std::string date = std::string(kMomentText) + " ";
  // Around the cut: the last character that fits, the first that does not, and far beyond.
  for (const size_t name : {3u, 64u, 65u, 4000u, 8150u, 8160u, 8163u, 8164u, 8165u, 8166u, 8190u,
                            8191u, 8192u, 20000u}) {
    const std::string module(name, 'm');
    for (const size_t length : {1u, 4000u, 8161u, 8162u, 8163u, 8164u, 8192u, 70000u}) {
      SCOPED_TRACE(testing::Message() << "module " << name << " text " << length);
      const std::string text(length, 't');
      const std::string whole = Cut(date + "[" + module + "] " + text, 8191);
      CSyslogCapture::Clear();
      EXPECT_EQ(0, LogList(2, module.c_str(), nullptr, "%s", text.c_str()));
      EXPECT_EQ(Shown(2, whole), printed.Take());
      EXPECT_EQ(1u, CSyslogCapture::Count());
      EXPECT_EQ(whole.substr(date.size()), CSyslogCapture::Records().at(0).m_Text);
      const std::string located = Cut(date + "[" + module + "] [a.c main 12] " + text, 8191);
      EXPECT_EQ(0, LogListAt(2, module.c_str(), nullptr, "a.c", "main", 12, "%s", text.c_str()));
      EXPECT_EQ(Shown(2, located), printed.Take());
      const std::string named = Cut(date + "[" + module + "][rx] " + text, 8191);
      EXPECT_EQ(0, KLog(Level(2), module.c_str(), "rx", "%s", text.c_str()));
      EXPECT_EQ(Shown(2, named), printed.Take());
    }
  }
  // The format itself is long.
  const std::string format(9000, 'f');
  EXPECT_EQ(0, Engine().Log(Level(2), nullptr, nullptr, (format + "%d").c_str(), 1));
  EXPECT_EQ(Shown(2, Cut(date + format, 8191)), printed.Take());
  return 0;
}

TEST(Record, FormattedRecordIsCutAt8191Characters) {
  EXPECT_TRUE(Passes("LongRecords", {}, 30000));
}

CHILD_CASE(LongPlaces) {
  CPrintedText printed;
  UseBareRecords();
  const std::string endless(20000, 'f');
  for (const size_t length : {1u, 8180u, 8186u, 8187u, 8188u, 8189u, 8190u, 8191u, 8192u, 9000u}) {
    SCOPED_TRACE(length);
    const std::string file(length, 'f');
    EXPECT_EQ(0, LogListAt(2, nullptr, nullptr, file.c_str(), "g", 7, "%s", "x"));
    EXPECT_EQ(Shown(2, Cut("[" + file + " g 7] x", 8191)), printed.Take());
    EXPECT_EQ(0, LogListAt(2, nullptr, nullptr, nullptr, file.c_str(), 7, "%s", "x"));
    EXPECT_EQ(Shown(2, Cut("[" + file + " 7] x", 8191)), printed.Take());
  }
  for (size_t length = 230; length < 262; ++length) {
    SCOPED_TRACE(length);
    const std::string name(length, 'n');
    const char* const data = "data\n";
    EXPECT_EQ(0, Engine().Logs(Level(2), name.c_str(), nullptr, data, 5));
    EXPECT_EQ(Cut("[" + name + "] ", 255) + Shown(2, data), printed.Take());
    EXPECT_EQ(0, Engine().Logs(Level(2), "m", name.c_str(), "a.c", "main", 12, data, 5));
    EXPECT_EQ(Cut("[m][" + name + "] [a.c main 12] ", 255) + Shown(2, data), printed.Take());
    EXPECT_EQ(0, Engine().Logs(Level(2), nullptr, nullptr, name.c_str(), "main", 12, data, 5));
    EXPECT_EQ(Cut("[" + name + " main 12] ", 255) + Shown(2, data), printed.Take());
  }
  EXPECT_EQ(0, Engine().Logs(Level(2), endless.c_str(), endless.c_str(), endless.c_str(),
                             endless.c_str(), 1, "x\n", 2));
  EXPECT_EQ("[" + std::string(254, 'f') + Shown(2, "x\n"), printed.Take());
  return 0;
}

TEST(Record, RawPrefixIsCutAt255CharactersAndItsDataIsNot) {
  EXPECT_TRUE(Passes("LongPlaces"));
}

CHILD_CASE(LongRawData) {
  CPrintedText printed;
  UseBareRecords();
  Store(Global().m_OutputSystem, true);
  const std::string data(70000, 'd');
  EXPECT_EQ(0, Engine().Logs(Level(5), "net", nullptr, data.c_str(), 70000));
  EXPECT_EQ("[net] " + Shown(5, data), printed.Take());
  EXPECT_EQ(data, CSyslogCapture::Records().at(0).m_Text);
  // Terminal and syslog take the text up to its NUL, whatever the length says.
  EXPECT_EQ(0, Engine().Logs(Level(5), "net", nullptr, "%d %s\n", 1));
  EXPECT_EQ("[net] " + Shown(5, "%d %s\n"), printed.Take());
  EXPECT_EQ("%d %s\n", CSyslogCapture::Records().at(1).m_Text);
  return 0;
}

TEST(Record, RawDataGoesOutAsItIs) {
  EXPECT_TRUE(Passes("LongRawData"));
}

CHILD_CASE(NoLineEnd) {
  CPrintedText printed;
  UseBareRecords();
  EXPECT_EQ(0, LogList(4, "net", "rx", "%s", ""));
  EXPECT_EQ(Shown(4, "[net][rx] "), printed.Take());
  EXPECT_EQ(0, LogList(1, nullptr, nullptr, "%s", ""));
  EXPECT_EQ(Shown(1, ""), printed.Take());
  EXPECT_EQ(0, LogList(1, nullptr, nullptr, "%s", "a\nb"));
  EXPECT_EQ(Shown(1, "a\nb"), printed.Take());
  // A NUL character ends the record.
  EXPECT_EQ(0, LogList(1, nullptr, nullptr, "a%cb", '\0'));
  EXPECT_EQ(Shown(1, "a"), printed.Take());
  return 0;
}

TEST(Record, NothingIsAddedToTheText) {
  EXPECT_TRUE(Passes("NoLineEnd"));
}

// --- Its time ---

CHILD_CASE(ClockRuns) {
  CPrintedText printed;
  CFakeClock clock(kMoment, 0);
  const char* const texts[] = {"2024-03-15 12:00:00.000", "2024-03-15 12:00:00.999",
                               "2024-03-15 12:00:01.000", "2024-03-15 11:59:58.250",
                               "2024-12-31 23:59:59.999", "2025-01-01 00:00:00.000"};
  const struct {
    int64_t m_Seconds;
    int m_Micros;
  } moments[] = {{kMoment, 999},        {kMoment, 999999},    {kMoment + 1, 0},
                 {kMoment - 2, 250000}, {1735689599, 999999}, {1735689600, 0}};
  for (size_t i = 0; i < std::size(texts); ++i) {
    clock.Set(moments[i].m_Seconds, moments[i].m_Micros);
    EXPECT_EQ(0, LogList(4, nullptr, nullptr, "x\n"));
    EXPECT_EQ(Shown(4, std::string(texts[i]) + " x\n"), printed.Take());
    EXPECT_EQ(0, Engine().Logs(Level(4), nullptr, nullptr, "x\n", 2));
    EXPECT_EQ(std::string(texts[i]) + " " + Shown(4, "x\n"), printed.Take());
  }
  return 0;
}

TEST(Record, EachRecordHasItsOwnTime) {
  EXPECT_TRUE(Passes("ClockRuns"));
}

CHILD_CASE(ZoneChanges) {
  CPrintedText printed;
  CFakeClock clock(kMoment, kMomentMicros);
  EXPECT_EQ(0, LogList(4, nullptr, nullptr, "x\n"));
  EXPECT_EQ(Shown(4, "2024-03-15 12:00:00.007 x\n"), printed.Take());
  setenv("TZ", "EAST-5:30", 1);
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, LogList(4, nullptr, nullptr, "x\n"));
  EXPECT_EQ(Shown(4, "2024-03-15 17:30:01.007 x\n"), printed.Take());
  EXPECT_EQ(0, Engine().Logs(Level(4), nullptr, nullptr, "x\n", 2));
  EXPECT_EQ("2024-03-15 17:30:01.007 " + Shown(4, "x\n"), printed.Take());
  // Threads see it as well, those that have a second of their own already included.
  std::thread([] { LogList(4, nullptr, nullptr, "x\n"); }).join();
  EXPECT_EQ(Shown(4, "2024-03-15 17:30:01.007 x\n"), printed.Take());
  unsetenv("TZ");
  setenv("TZ", "WEST8", 1);
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, LogList(4, nullptr, nullptr, "x\n"));
  EXPECT_EQ(Shown(4, "2024-03-15 04:00:02.007 x\n"), printed.Take());
  return 0;
}

TEST(Record, ChangedZoneShowsWithTheNextSecond) {
  EXPECT_TRUE(Passes("ZoneChanges"));
}

int CountOf(const std::string& text, const std::string& piece) {
  int count = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
    ++count;
  return count;
}

CHILD_CASE(NoTime) {
  CPrintedText printed;
  CFakeClock clock(kMoment, kMomentMicros);
  clock.FailLocaltime(true);
  Global().m_LevelMask = 0x3e;
  const std::string zero = std::string(kZeroText) + " ";
  const std::string report =
      Shown(4, zero + "[Kelvik][Internal] Global GetDateTime 469 localtime failed : " +
                   std::to_string(kMoment) + "\n");
  EXPECT_EQ(0, LogList(2, "net", "rx", "x\n"));
  EXPECT_EQ(report + Shown(2, zero + "[net][rx] x\n"), printed.Take());
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, Engine().Logs(Level(2), "net", "rx", "x\n", 2));
  const std::string raw = printed.Take();
  EXPECT_EQ(1, CountOf(raw, "localtime failed")) << raw;
  EXPECT_EQ(zero + "[net][rx] " + Shown(2, "x\n"), raw.substr(raw.find("\033[0m") + 4)) << raw;
  // A record that is not made asks for no time.
  Global().m_LevelMask = 0x10;
  EXPECT_EQ(2, LogList(2, "net", "rx", "x\n"));
  EXPECT_EQ(2, Engine().Logs(Level(2), "net", "rx", "x\n", 2));
  EXPECT_EQ("", printed.Take());
  // The time comes back.
  clock.FailLocaltime(false);
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, LogList(4, "net", "rx", "x\n"));
  EXPECT_EQ(Shown(4, "2024-03-15 12:00:02.007 [net][rx] x\n"), printed.Take());
  return 0;
}

TEST(Record, RecordWithoutATimeCarriesAZeroOneAndOneReport) {
  EXPECT_TRUE(Passes("NoTime"));
}

// --- errno ---

// Not a literal, since compilers that go by the standard alone complain about %m.
std::string ErrnoFormat(const std::string& name) {
  return name + " %d %m\n";
}

CHILD_CASE(CallersErrno) {
  CPrintedText printed;
  CFakeClock clock(kMoment, kMomentMicros);
  Global().m_LevelMask = 0x3e;
  const auto expect = [&](const std::string& text, int result) {
    EXPECT_EQ(ENOSPC, errno) << text << ": left as it was";
    EXPECT_EQ(0, result);
    const std::string shown = printed.Take();
    EXPECT_NE(std::string::npos, shown.find(text + std::strerror(ENOSPC))) << shown;
  };
  for (int round = 0; round < 2; ++round) {  // a conversion of the time, and none
    errno = ENOSPC;
    expect("a 5 ", Engine().Log(Level(4), "net", "rx", ErrnoFormat("a").c_str(), 5));
    errno = ENOSPC;
    expect("b 5 ", LogList(4, "net", "rx", ErrnoFormat("b").c_str(), 5));
    errno = ENOSPC;
    expect("c 5 ", LogListAt(4, "net", "rx", "a.c", "main", 1, ErrnoFormat("c").c_str(), 5));
    errno = ENOSPC;
    expect("d 5 ", KLog(eLogLevelError, "net", "rx", ErrnoFormat("d").c_str(), 5));
    errno = ENOSPC;
    expect("e 5 ",
           KLogV1(eLogLevelError, "net", "rx", "a.c", "main", 1, ErrnoFormat("e").c_str(), 5));
  }
  errno = ENOSPC;
  KLogs(eLogLevelError, "net", "rx", "raw\n", 4);
  EXPECT_EQ(ENOSPC, errno);
  errno = ENOSPC;
  KLog(Level(9), "net", "rx", "bad\n");
  EXPECT_EQ(ENOSPC, errno);
  // The failed conversion of the time and its report do not come between.
  clock.FailLocaltime(true);
  clock.AdvanceMs(5000);
  errno = ENOSPC;
  expect("f 5 ", LogList(4, "net", "rx", ErrnoFormat("f").c_str(), 5));
  return 0;
}

TEST(Record, FormatSeesTheCallersErrnoAndLeavesItAsItWas) {
  EXPECT_TRUE(Passes("CallersErrno"));
}

CHILD_CASE(ErrnoOfTheFirstCall) {
  CPrintedText printed;
  const std::string format = ErrnoFormat("first");
  errno = ENOSPC;
  EXPECT_EQ(0, KLog(eLogLevelError, "net", "rx", format.c_str(), 5));
  EXPECT_EQ(ENOSPC, errno) << "left as it was";
  const std::string shown = printed.Take();
  EXPECT_NE(std::string::npos, shown.find(std::string("first 5 ") + std::strerror(ENOSPC)))
      << shown;
  return 0;
}

TEST(Record, MakingTheContextDoesNotComeBetweenTheCallAndItsErrno) {
  EXPECT_TRUE(Passes("ErrnoOfTheFirstCall"));
}

CHILD_CASE(ErrnoBesideFailures) {
  CPrintedText printed;
  UseBareRecords();
  Store(Global().m_OutputFile, true);
  Global().m_BufferSize = 0;
  Context().SetLogPath("/nonexistent/folder/");
  errno = EDOM;
  LogList(4, "net", "rx", "x\n");
  EXPECT_EQ(EDOM, errno);
  errno = EDOM;
  EXPECT_EQ(3, KLogs(eLogLevelError, "net", "rx", "x\n", 2));
  EXPECT_EQ(EDOM, errno);
  return 0;
}

TEST(Record, FailedFileLeavesErrnoAsItWas) {
  EXPECT_TRUE(Passes("ErrnoBesideFailures", {}, 20000));
}

}  // namespace
}  // namespace Kelvik
