#include "Statistics.h"

#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "FileIo.h"
#include "Global.h"
#include "Kelvik.h"

namespace Kelvik {
namespace {

struct tagCounter {
  char m_Name[20];
  uint16_t m_Offset;  // of its uint64_t in tagKelvikStatistics
};

constexpr tagCounter kCounters[] = {
    {"records accepted", offsetof(tagKelvikStatistics, m_RecordsAccepted)},
    {"records written", offsetof(tagKelvikStatistics, m_RecordsWritten)},
    {"records replaced", offsetof(tagKelvikStatistics, m_RecordsReplaced)},
    {"records dropped", offsetof(tagKelvikStatistics, m_RecordsDropped)},
    {"records below level", offsetof(tagKelvikStatistics, m_RecordsBelowLevel)},
    {"records refused", offsetof(tagKelvikStatistics, m_RecordsRefused)},
    {"records on terminal", offsetof(tagKelvikStatistics, m_TerminalRecords)},
    {"records to syslog", offsetof(tagKelvikStatistics, m_SystemRecords)},
    {"bytes formatted", offsetof(tagKelvikStatistics, m_BytesFormatted)},
    {"bytes handed over", offsetof(tagKelvikStatistics, m_BytesHandedOver)},
    {"bytes written", offsetof(tagKelvikStatistics, m_BytesWritten)},
    {"bytes replaced", offsetof(tagKelvikStatistics, m_BytesReplaced)},
    {"bytes dropped", offsetof(tagKelvikStatistics, m_BytesDropped)},
    {"batches", offsetof(tagKelvikStatistics, m_Batches)},
    {"writes", offsetof(tagKelvikStatistics, m_Writes)},
    {"rotations", offsetof(tagKelvikStatistics, m_Rotations)},
    {"files removed", offsetof(tagKelvikStatistics, m_FilesRemoved)},
    {"open errors", offsetof(tagKelvikStatistics, m_OpenErrors)},
    {"write errors", offsetof(tagKelvikStatistics, m_WriteErrors)},
    {"datagrams accepted", offsetof(tagKelvikStatistics, m_DatagramsAccepted)},
    {"datagrams refused", offsetof(tagKelvikStatistics, m_DatagramsRefused)},
    {"datagrams denied", offsetof(tagKelvikStatistics, m_DatagramsDenied)},
    {"commands denied", offsetof(tagKelvikStatistics, m_CommandsDenied)},
    {"buffer high water", offsetof(tagKelvikStatistics, m_BufferHighWater)},
};

uint64_t ValueOf(const tagKelvikStatistics& statistics, const tagCounter& counter) {
  uint64_t value;
  std::memcpy(&value, reinterpret_cast<const char*>(&statistics) + counter.m_Offset, sizeof(value));
  return value;
}

void WriteLine(int fd, const char* line, int length) {
  if (length > 0) WriteAll(fd, line, static_cast<size_t>(length), nullptr);
}

}  // namespace

void CollectStatistics(tagKelvikStatistics& statistics) {
  CGlobal* global = CGlobal::Instance();
  tagOutputStatistics output;
  global->GetOutput().GetStatistics(output);
  statistics.m_LastError = output.m_LastError;
  statistics.m_RecordsAccepted = output.m_RecordsAccepted;
  statistics.m_RecordsWritten = output.m_RecordsWritten;
  statistics.m_RecordsLost = output.m_RecordsReplaced + output.m_RecordsDropped;
  statistics.m_BytesWritten = output.m_BytesWritten;
  statistics.m_OpenErrors = output.m_OpenErrors;
  statistics.m_WriteErrors = output.m_WriteErrors;
  statistics.m_Rotations = output.m_Rotations;
  statistics.m_RecordsReplaced = output.m_RecordsReplaced;
  statistics.m_RecordsDropped = output.m_RecordsDropped;
  statistics.m_RecordsBelowLevel = output.m_BelowLevel;
  statistics.m_RecordsRefused = output.m_Refused;
  statistics.m_BytesFormatted = output.m_BytesAccepted;
  statistics.m_BytesHandedOver = output.m_BytesHandedOver;
  statistics.m_BytesReplaced = output.m_BytesReplaced;
  statistics.m_BytesDropped = output.m_BytesDropped;
  statistics.m_Batches = output.m_Batches;
  statistics.m_Writes = output.m_Writes;
  statistics.m_FilesRemoved = output.m_FilesRemoved;
  statistics.m_TerminalRecords = output.m_TerminalRecords;
  statistics.m_SystemRecords = output.m_SystemRecords;
  statistics.m_LastErrorTime = output.m_LastErrorTime;
  statistics.m_BufferHighWater = output.m_BufferHighWater;
  global->GetConsole().GetCounters(statistics.m_DatagramsAccepted, statistics.m_DatagramsRefused);
  global->GetConsole().GetDenied(statistics.m_DatagramsDenied, statistics.m_CommandsDenied);
}

int ShowStatistics(int fd, const char* module, const char* title, void* param) {
  static_cast<void>(param);
  tagKelvikStatistics statistics = {};
  CollectStatistics(statistics);
  char line[320];
  int length = std::snprintf(line, sizeof(line), "[Statistics] module:%.120s title:%.120s.\n",
                             module, title);
  WriteLine(fd, line, length);
  for (const tagCounter& counter : kCounters) {
    length = std::snprintf(line, sizeof(line), "%s: %" PRIu64 "\n", counter.m_Name,
                           ValueOf(statistics, counter));
    WriteLine(fd, line, length);
  }
  length = std::snprintf(line, sizeof(line), "last error: %d at %" PRId64 "\n",
                         statistics.m_LastError, statistics.m_LastErrorTime);
  WriteLine(fd, line, length);
  return eResultSuccess;
}

}  // namespace Kelvik
