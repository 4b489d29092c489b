#include "KelvikExtra.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "FileTools.h"
#include "Global.h"
#include "Kelvik.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

constexpr char kRecord[] = "[net][rx] a record of 40 characters....\n";
constexpr uint64_t kRecordLength = sizeof(kRecord) - 1;

tagKelvikStatistics Statistics() {
  tagKelvikStatistics statistics = {};
  EXPECT_EQ(0, KelvikExtra_GetStatistics(&statistics, sizeof(statistics)));
  EXPECT_EQ(sizeof(statistics), statistics.m_Size);
  return statistics;
}

int LogRecord() {
  return KLog(eLogLevelError, "net", "rx", "a record of 40 characters....\n");
}

void Prepare(const std::string& logPath, uint32_t bufferSize) {
  const char on = 1;
  const char off = 0;
  tagAttribute& attribute = *CGlobal::Instance()->GetAttribute();
  std::memcpy(&attribute.m_BufferSize, &bufferSize, sizeof(bufferSize));
  EXPECT_EQ(0, SetAttribute(eAttributeOutput, eOutputTerminal, &off, 1));
  EXPECT_EQ(0, SetAttribute(eAttributeOther, eOtherDateTime, &off, 1));
  EXPECT_EQ(0, SetAttribute(eAttributeOther, eOtherLogPath, logPath.c_str(), 1));
  EXPECT_EQ(0, SetAttribute(eAttributeOutput, eOutputFile, &on, 1));
}

CHILD_CASE(CountDirectRecords) {
  CTempDir folder;
  Prepare(folder.LogPath(), 0);
  for (uint64_t count = 1; count <= 3; ++count) {
    EXPECT_EQ(0, LogRecord());
    const tagKelvikStatistics now = Statistics();
    EXPECT_EQ(count, now.m_RecordsAccepted);
    EXPECT_EQ(count, now.m_RecordsWritten);
    EXPECT_EQ(count * kRecordLength, now.m_BytesWritten);
  }
  EXPECT_EQ(2, KLog(eLogLevelDebug, "net", "rx", "off\n"));
  const tagKelvikStatistics now = Statistics();
  EXPECT_EQ(3u, now.m_RecordsAccepted) << "a disabled record is none";
  EXPECT_EQ(0u, now.m_RecordsLost);
  EXPECT_EQ(0u, now.m_OpenErrors);
  EXPECT_EQ(0u, now.m_WriteErrors);
  EXPECT_EQ(0u, now.m_Rotations);
  EXPECT_EQ(0, now.m_LastError);
  const std::vector<std::string> files = ListFolder(folder.Path());
  EXPECT_EQ(1u, files.size());
  EXPECT_EQ(std::string(kRecord) + kRecord + kRecord, ReadFile(folder.File(files.at(0))));
  return 0;
}

TEST(Statistics, DirectRecordsAreCountedAsTheyAreWritten) {
  EXPECT_TRUE(Succeeded(RunChild("CountDirectRecords")));
}

CHILD_CASE(CountBufferedRecords) {
  CTempDir folder;
  Prepare(folder.LogPath(), 4096);
  EXPECT_EQ(0, Initialize());
  EXPECT_EQ(0, LogRecord());
  EXPECT_EQ(0, LogRecord());
  EXPECT_EQ(2u, Statistics().m_RecordsAccepted);
  EXPECT_EQ(0u, Statistics().m_RecordsWritten);
  EXPECT_EQ(0u, Statistics().m_BytesWritten);
  EXPECT_EQ(0, WriteBufferContent2File());
  for (int i = 0; i < 1000 && Statistics().m_RecordsWritten < 2; ++i)
    usleep(5000);
  EXPECT_EQ(2u, Statistics().m_RecordsWritten);
  EXPECT_EQ(2 * kRecordLength, Statistics().m_BytesWritten);
  EXPECT_EQ(0, LogRecord());
  EXPECT_EQ(0, ClearFileInfo());
  EXPECT_EQ(3u, Statistics().m_RecordsAccepted);
  EXPECT_EQ(1u, Statistics().m_RecordsLost) << "it waited in a buffer that was cleared";
  return 0;
}

TEST(Statistics, BufferedRecordsAreWrittenOrLostLater) {
  EXPECT_TRUE(Succeeded(RunChild("CountBufferedRecords")));
}

CHILD_CASE(CountFailures) {
  CTempDir folder;
  Prepare(folder.File("missing/"), 0);
  LogRecord();
  const tagKelvikStatistics failed = Statistics();
  EXPECT_EQ(1u, failed.m_RecordsAccepted);
  EXPECT_EQ(0u, failed.m_RecordsWritten);
  EXPECT_EQ(1u, failed.m_RecordsLost);
  EXPECT_GE(failed.m_OpenErrors, 1u);
  EXPECT_EQ(ENOENT, failed.m_LastError);
  return 0;
}

TEST(Statistics, FailedOpenIsCountedWithItsError) {
  EXPECT_TRUE(Succeeded(RunChild("CountFailures")));
}

CHILD_CASE(CountRotations) {
  CTempDir folder;
  const int kibibytes = 1;
  Prepare(folder.LogPath(), 0);
  EXPECT_EQ(0, SetAttribute(eAttributeOther, eOtherLogMaxSize, &kibibytes, 4));
  // 26 records fill a file past 1024 bytes; the next one goes to a new file.
  for (int i = 0; i < 26 * 3 + 1; ++i)
    EXPECT_EQ(0, LogRecord());
  EXPECT_EQ(3u, Statistics().m_Rotations);
  EXPECT_EQ(79 * kRecordLength, Statistics().m_BytesWritten) << "removed files count too";
  return 0;
}

TEST(Statistics, RotationsAreCounted) {
  EXPECT_TRUE(Succeeded(RunChild("CountRotations")));
}

CHILD_CASE(RefuseAndFill) {
  struct {
    tagKelvikStatistics m_Known;
    unsigned char m_Later[8];
  } record;
  std::memset(&record, 0x5a, sizeof(record));
  const std::string untouched(sizeof(record), '\x5a');
  EXPECT_EQ(3, KelvikExtra_GetStatistics(nullptr, sizeof(record)));
  for (const unsigned size : {0u, 4u, 63u}) {
    EXPECT_EQ(3, KelvikExtra_GetStatistics(&record.m_Known, size));
    EXPECT_EQ(0, std::memcmp(untouched.data(), &record, sizeof(record)));
  }
  // A caller that knows the first version only gets no byte more.
  EXPECT_EQ(0, KelvikExtra_GetStatistics(&record.m_Known, 64));
  EXPECT_EQ(64u, record.m_Known.m_Size);
  EXPECT_EQ(0, std::memcmp(untouched.data(), reinterpret_cast<unsigned char*>(&record) + 64,
                           sizeof(record) - 64));
  EXPECT_EQ(0, KelvikExtra_GetStatistics(&record.m_Known, sizeof(record)));
  EXPECT_EQ(sizeof(tagKelvikStatistics), record.m_Known.m_Size);
  EXPECT_EQ(0, std::memcmp(untouched.data(), record.m_Later, sizeof(record.m_Later)));
  return 0;
}

TEST(Statistics, RecordIsFilledAsFarAsBothSidesKnowIt) {
  EXPECT_TRUE(Succeeded(RunChild("RefuseAndFill")));
}

}  // namespace
}  // namespace Kelvik
