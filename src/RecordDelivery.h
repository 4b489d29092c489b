// From a formatted record to its sinks: terminal, syslog and the buffered file step.
#ifndef KELVIK_RECORDDELIVERY_H_
#define KELVIK_RECORDDELIVERY_H_

#include <algorithm>

#include "Context.h"
#include "Output.h"
#include "OutputInternal.h"
#include "Relaxed.h"
#include "SelfReport.h"
#include "SystemLog.h"

namespace Kelvik {

constexpr int kSinkLevelLine = 1600;

// By value, so that a record that only the file sees is never stored.
inline int COutput::Deliver(tagRecord record) {
  const tagAttribute* global = GlobalSettings();
  if (RelaxedLoad(global->m_OutputConsole) != 0) {
    const tagRecord printed = record;
    PrintRecord(printed);
  }
  if (RelaxedLoad(global->m_OutputSystem) != 0) {
    const char* const text = record.m_Text + std::min(record.m_Skip, record.m_Length);
    if (!WriteSystemLog(record.m_Level, text, kSinkLevelLine, m_SystemRecords)) {
      return eResultInvalid;
    }
  }
  // Switched off, or put back to its default by the end of the process, which has lost the record.
  if (RelaxedLoad(global->m_OutputFile) == 0) {
    return RelaxedLoad(m_Ended) == eLifeOpen ? eResultSuccess : eResultFailure;
  }
  // Reports are errors; the question costs a look at the thread's own storage.
  if (record.m_Level == eLogLevelError && !ReportMayUseFile()) return eResultSuccess;
  return StoreRecord(record.m_Text, record.m_Length);
}

}  // namespace Kelvik

#endif  // KELVIK_RECORDDELIVERY_H_
