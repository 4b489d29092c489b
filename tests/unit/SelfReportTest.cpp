// The library's records about itself. Each case is a process of its own, whose standard output
// holds the records.

#include "SelfReport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "ChildProcess.h"
#include "FakeClock.h"
#include "FileTools.h"
#include "Global.h"
#include "Kelvik.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

// The records in a child's standard output, without colours.
std::string Records(std::string text) {
  for (const char* sequence : {"\x1b[33m", "\x1b[0m"}) {
    for (size_t at = text.find(sequence); at != std::string::npos; at = text.find(sequence)) {
      text.erase(at, strlen(sequence));
    }
  }
  return text;
}

CHILD_CASE(EveryForm) {
  CGlobal::Instance()->GetAttribute()->m_OutputDateTime = 0;
  ReportMessage("Thread", "Create", 87, "console already running");
  ReportNumber("Kelvik", "KLog", 12, "level invalid", -9);
  ReportSystemError("Thread", "Create", 105, EAGAIN);
  ReportSocketError("Console", "Create", 88, -1, EADDRINUSE);
  ReportFileFailure("WriteLogBySzie", 901);
  ReportMessage("Thread", "Create", 109, "ends in a line feed of its own\n");
  return 0;
}

TEST(SelfReport, EveryFormIsAnErrorRecordOfTheLibrary) {
  const tagChildResult result = RunChild("EveryForm");
  EXPECT_TRUE(Succeeded(result));
  const std::string prefix = "[Kelvik][Internal] ";
  EXPECT_EQ(Records(result.m_Output),
            prefix + "Thread Create 87 console already running\n" +  //
                prefix + "Kelvik KLog 12 level invalid : -9\n" +     //
                prefix + "Thread Create 105 Failed syserr:" + std::to_string(EAGAIN) + " " +
                strerror(EAGAIN) + "\n" +  //
                prefix + "Console Create 88 Failed:-1 syserr:" + std::to_string(EADDRINUSE) + " " +
                strerror(EADDRINUSE) + "\n" +  //
                prefix +
                "Output WriteLogBySzie 901 Attempt to write to the file failed for more than 1 "
                "second\n" +  //
                prefix +
                "Thread Create 109 ends in a line feed of its own\n\n");
  EXPECT_NE(result.m_Output.find("\x1b[33m"), std::string::npos);  // the colour of errors
}

CHILD_CASE(Masked) {
  CGlobal::Instance()->GetAttribute()->m_LevelMask = 0;
  ReportMessage("Thread", "Create", 87, "console already running");
  return 0;
}

TEST(SelfReport, PassesTheLevelMaskLikeAnyRecord) {
  const tagChildResult result = RunChild("Masked");
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(result.m_Output, "");
}

CHILD_CASE(Errno) {
  errno = 77;
  ReportMessage("Kelvik", "KLog", 1, "message");
  EXPECT_EQ(errno, 77);
  ReportSystemError("Kelvik", "KLog", 1, 100000);
  EXPECT_EQ(errno, 77);
  return 0;
}

TEST(SelfReport, KeepsErrno) {
  EXPECT_TRUE(Succeeded(RunChild("Errno")));
}

CHILD_CASE(FileReport) {
  tagAttribute* const attribute = CGlobal::Instance()->GetAttribute();
  EXPECT_EQ(CGlobal::Instance()->SetLogFilePath(args.at(0).c_str()), eResultSuccess);
  attribute->m_OutputFile = 1;
  attribute->m_BufferSize = 0;
  ReportMessage("Kelvik", "KLog", 1, "before");
  ReportFileFailure("WriteLogBySzie", 901);
  EXPECT_TRUE(ReportMayUseFile());
  EXPECT_FALSE(IsReporting());
  ReportMessage("Kelvik", "KLog", 2, "after");
  return 0;
}

TEST(SelfReport, FileFailureIsNotWrittenToTheFile) {
  const CTempDir folder;
  const tagChildResult result = RunChild("FileReport", {folder.LogPath()});
  EXPECT_TRUE(Succeeded(result));
  const std::string text = "failed for more than 1 second\n";
  EXPECT_NE(result.m_Output.find(text), std::string::npos);
  std::string written;
  for (const std::string& name : ListFolder(folder.Path()))
    written += ReadFile(folder.File(name));
  EXPECT_EQ(written.find(text), std::string::npos) << written;
  EXPECT_NE(written.find("KLog 1 before\n"), std::string::npos);
  EXPECT_NE(written.find("KLog 2 after\n"), std::string::npos);
}

CHILD_CASE(FailingClock) {
  CFakeClock clock(1700000000);
  clock.FailLocaltime(true);
  ReportMessage("Kelvik", "KLog", 1, "message");
  return 0;
}

// The record's own time cannot be had, which would be worth a report on its own.
TEST(SelfReport, FailureInsideAReportIsNotReported) {
  const tagChildResult result = RunChild("FailingClock");
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ(Lines(result.m_Output).size(), 1u + (result.m_Output.back() == '\n' ? 0u : 1u))
      << result.m_Output;
  EXPECT_EQ(result.m_Output.find("localtime"), std::string::npos);
  EXPECT_NE(result.m_Output.find("Kelvik KLog 1 message\n"), std::string::npos);
}

}  // namespace
}  // namespace Kelvik
