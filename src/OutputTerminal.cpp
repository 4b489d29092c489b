// The terminal sink: a record in its colour.

#include <cstdio>
#include <cstring>

#include "Output.h"
#include "OutputInternal.h"
#include "Relaxed.h"
#include "TerminalStream.h"

namespace Kelvik {
namespace {

constexpr char kYellow[] = "\033[33m";
constexpr char kRed[] = "\033[31m";
constexpr char kCyan[] = "\033[36m";

static_assert(sizeof(kYellow) <= kColourBytes && sizeof(kColourReset) <= kColourBytes,
              "a colour sequence fits beside a record");

}  // namespace

const char* COutput::Colour(eLogLevel level, const char* module) const {
  if (level == eLogLevelError) return kYellow;
  if (level == eLogLevelFatal) return kRed;
  return m_Focus.IsSet() && m_Focus.Matches(module) ? kCyan : kColourReset;
}

// One write to the stream where the record leaves room for its colour; the record is as it was
// afterwards.
void COutput::PrintRecord(const tagRecord& record) {
  const char* colour = Colour(record.m_Level, record.m_Module);
  bool printed;
  if (record.m_Composable == nullptr) {
    CStreamGuard guard;
    printed = PrintColoured(colour, record.m_Text);
  } else {
    const size_t lead = std::strlen(colour);
    char* begin = record.m_Composable - lead;
    char* end = record.m_Composable + record.m_Length;
    std::memcpy(begin, colour, lead);  // NOLINT(bugprone-not-null-terminated-result)
    const size_t tail = colour == kColourReset ? 0 : sizeof(kColourReset) - 1;
    std::memcpy(end, kColourReset, tail);
    printed = PrintPiece(begin, static_cast<size_t>(end - begin) + tail);
    *end = '\0';
  }
  AfterPrint(!printed);
}

// A redirected terminal gets each record at once; one that is lost is left for the console device.
// The record is not printed again.
void COutput::AfterPrint(bool failed) {
  RelaxedAdd(m_TerminalRecords, 1);
  if (RelaxedLoad(m_TerminalFd) == -1) return;
  if (!failed) failed = std::fflush(stdout) != 0;
  if (failed) Recover();
}

}  // namespace Kelvik
