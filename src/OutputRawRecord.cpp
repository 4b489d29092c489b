// Raw records. Their data goes out as the caller gave it; only the terminal sees a short prefix,
// and the file gets the bytes at once. No lock is held up to there.

#include <cerrno>

#include "Context.h"
#include "Output.h"
#include "OutputInternal.h"
#include "RecordGate.h"
#include "Relaxed.h"
#include "SelfReport.h"
#include "SystemLog.h"
#include "TerminalStream.h"

namespace Kelvik {
namespace {

constexpr int kRawLevelLine = 1043;
constexpr int kLocatedRawLevelLine = 1409;

}  // namespace

bool PrintColoured(const char* colour, const char* text) {
  if (!PrintText(colour) || !PrintText(text)) return false;
  return colour == kColourReset || PrintText(kColourReset);
}

void COutput::PrintRaw(eLogLevel level, const char* module, const char* prefix, const char* data) {
  const char* colour = Colour(level, module);
  bool printed;
  {
    CStreamGuard guard;
    printed = *prefix == '\0' || PrintText(prefix);
    // A lost terminal is recovered before the data, which then reaches the new one.
    if (!printed) Recover();
    printed = PrintColoured(colour, data);
  }
  AfterPrint(!printed);
}

int COutput::Logs(eLogLevel level, const char* module, const char* title, const char* data,
                  int length) {
  return LogRaw({level, module, title, GlobalSettings(), nullptr}, data, length, kRawLevelLine,
                kRawWriter);
}

int COutput::Logs(eLogLevel level, const char* module, const char* title, const char* file,
                  const char* func, int line, const char* data, int length) {
  const tagSourcePlace place = {file, func, line};
  return LogRaw({level, module, title, GlobalSettings(), &place}, data, length,
                kLocatedRawLevelLine, kLocatedRawWriter);
}

int COutput::LogRaw(const tagRecordHead& head, const char* data, int length, int levelLine,
                    const tagWriter& writer) {
  if (data == nullptr || length < 0) return eResultInvalid;
  int turnedAway;
  if (IsTurnedAway(head.m_Level, *ModuleSettings(head.m_Module), turnedAway)) return turnedAway;
  const int callerErrno = errno;
  const tagAttribute* global = GlobalSettings();
  int result = eResultSuccess;
  if (RelaxedLoad(global->m_OutputConsole) != 0) {
    char prefix[kRawPrefixBytes];
    int dateTimeLength = 0;
    WritePrefix(prefix, kRawPrefixBytes, head, dateTimeLength);
    PrintRaw(head.m_Level, head.m_Module, prefix, data);
  }
  if (RelaxedLoad(global->m_OutputSystem) != 0 &&
      !WriteSystemLog(head.m_Level, data, levelLine, m_SystemRecords)) {
    result = eResultInvalid;
  } else if (RelaxedLoad(global->m_OutputFile) == 0) {
    if (RelaxedLoad(m_Ended) != eLifeOpen) result = eResultFailure;  // as in Deliver
  } else if (ReportMayUseFile()) {
    result = WriteAndSettle(writer, data, length);
  }
  errno = callerErrno;
  return result;
}

}  // namespace Kelvik
