// Calls that leave something out, or come before anything else: nothing given, lengths that no text
// has, the first call of all.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "OutputTools.h"
#include "PrintedText.h"
#include "SyslogCapture.h"

namespace Kelvik {
namespace {

CHILD_CASE(NothingGiven) {
  UseSize(args.at(0), 0);
  CGlobal& context = *CGlobal::Instance();
  EXPECT_EQ(0, context.SetConfigFilePath((args.at(1) + "/kelvik.ini").c_str()));
  EXPECT_EQ(3, context.SetBufferSize(nullptr));
  EXPECT_EQ(3, context.SetInterval(nullptr));
  EXPECT_EQ(3, context.SaveAttribute2File(nullptr));
  EXPECT_EQ(3, context.SaveMoudleAttri2File(nullptr));
  EXPECT_EQ(3, context.InsertModuleName(nullptr, "V1"));
  EXPECT_EQ(3, context.PopModuleName(nullptr));
  EXPECT_EQ(3, Output().WriteFileName2Ini(0, nullptr));
  EXPECT_EQ(3, Output().WriteLogBySzie("text", -1));
  EXPECT_EQ(3, Output().WriteLogByTime("text", INT_MIN));
  EXPECT_EQ(3, Output().Logs(eLogLevelInfo, "net", "rx", nullptr, 4));
  EXPECT_EQ(3, Output().Logs(eLogLevelInfo, "net", "rx", "text", -1));
  const tagAbsoluteTime time = {};
  EXPECT_EQ(3, Output().Logs(eLogLevelInfo, "net", "rx", nullptr, 4, time, 0));
  EXPECT_EQ(3, Output().Logs(eLogLevelInfo, "net", "rx", "text", -1, time, 0));
  EXPECT_EQ(0, context.GetConsole().Dispose("127.0.0.1", 1, nullptr, 4));
  EXPECT_TRUE(ListFolder(args.at(1)).empty()) << "nothing was written";
  return 0;
}

TEST(BareCalls, NothingGivenIsRefusedWithoutATrace) {
  EXPECT_TRUE(RunCase("NothingGiven"));
}

CHILD_CASE(AnySkip) {
  UseSize(args.at(0), 0);
  SwitchFile(false);
  const char on = 1;
  SetAttribute(eAttributeOutput, eOutputSyslog, &on, 1);
  const tagAbsoluteTime time = {};
  const struct {
    int m_Skip;
    const char* m_Seen;
  } rows[] = {{0, "text"}, {1, "ext"}, {-1, "text"}, {INT_MIN, "text"}, {4, ""}, {INT_MAX, ""}};
  for (const auto& row : rows) {
    CSyslogCapture::Clear();
    EXPECT_EQ(0, Output().Logs(eLogLevelInfo, "net", "rx", "text", 4, time, row.m_Skip));
    std::string seen;
    for (const tagSyslogRecord& record : CSyslogCapture::Records())
      seen += "<" + record.m_Text + ">";
    EXPECT_EQ("<" + std::string(row.m_Seen) + ">", seen) << row.m_Skip;
  }
  return 0;
}

TEST(BareCalls, SkipPastTheTextShowsTheSystemLogNothingElse) {
  EXPECT_TRUE(RunCase("AnySkip"));
}

// The context is made by the call itself.
CHILD_CASE(FirstOfAll) {
  CPrintedText printed;
  const std::string& form = args.at(2);
  if (form == "formatted") {
    EXPECT_EQ(0, KLogV1(eLogLevelError, "net", "rx", "a.c", "main", 12, "%d men\n", 3));
  } else {
    EXPECT_EQ(0, KLogsV1(eLogLevelError, "net", "rx", "a.c", "main", 12, "3 men\n", 6));
  }
  const std::string text = printed.Take();
  for (const char* piece : {"net", "rx", "a.c", "main", "12", "3 men\n"})
    EXPECT_NE(std::string::npos, text.find(piece)) << piece << " in " << text;
  return 0;
}

TEST(BareCalls, FirstCallOfAllIsLoggedWithItsPlace) {
  for (const char* form : {"formatted", "raw"})
    EXPECT_TRUE(RunCase("FirstOfAll", {form})) << form;
}

// Making the context asks for the terminal, which is none here.
CHILD_CASE(FirstOfAllErrno) {
  CPrintedText printed;
  const std::string format = "%d %m\n";  // no literal: not every compiler knows %m
  errno = ENOSPC;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  EXPECT_EQ(0, KLog(eLogLevelError, "net", "rx", format.c_str(), 5));
#pragma GCC diagnostic pop
  EXPECT_EQ(ENOSPC, errno) << "left as it was";
  const std::string text = printed.Take();
  EXPECT_NE(std::string::npos, text.find("5 " + std::string(std::strerror(ENOSPC)))) << text;
  return 0;
}

TEST(BareCalls, FirstCallOfAllIsAboutTheCallersErrno) {
  EXPECT_TRUE(RunCase("FirstOfAllErrno"));
}

volatile sig_atomic_t gAlarms = 0;

void CountAlarm(int) {
  gAlarms = gAlarms + 1;
}

CHILD_CASE(InterruptedSleep) {
  struct sigaction action = {};
  action.sa_handler = CountAlarm;
  EXPECT_EQ(0, sigaction(SIGALRM, &action, nullptr));
  const itimerval often = {{0, 20000}, {0, 20000}};
  EXPECT_EQ(0, setitimer(ITIMER_REAL, &often, nullptr));
  const int64_t start = RealClockMs();
  EXPECT_EQ(0, CGlobal::Instance()->Sleep(300));
  EXPECT_GE(RealClockMs() - start, 299);
  EXPECT_GE(gAlarms, 1);
  return 0;
}

TEST(BareCalls, SignalsDoNotShortenASleep) {
  EXPECT_TRUE(RunCase("InterruptedSleep"));
}

}  // namespace
}  // namespace Kelvik
