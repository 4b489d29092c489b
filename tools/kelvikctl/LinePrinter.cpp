#include "LinePrinter.h"

#include <unistd.h>

#include "Escape.h"
#include "StandardOutput.h"

namespace KelvikCtl {

namespace {

constexpr std::size_t kLineBytes = 65536;  // several times a record's
constexpr std::size_t kOutBytes = 65536;

}  // namespace

CLinePrinter::CLinePrinter(const CRecordFilter& filter, int stopFd)
    : m_Reader(kLineBytes),
      m_Filter(filter),
      m_StopFd(stopFd),
      m_Escapes(isatty(STDOUT_FILENO) == 1) {}

// False at the end of the file.
bool CLinePrinter::Fill(CRingFile& file, int64_t end) {
  std::size_t room = 0;
  char* const space = m_Reader.Space(room);
  const std::size_t count = file.Read(space, room, end);
  m_Reader.Add(count);
  return count > 0;
}

bool CLinePrinter::Passes(const KelvikLog::tagLine& line) {
  if (line.m_IsStart) {
    m_Passes = m_Filter.Passes(line.m_Text, line.m_Length);
    if (m_Passes && m_Skip > 0) {
      --m_Skip;
      m_Passes = false;
    }
  }
  return m_Passes;
}

uint64_t CLinePrinter::Count(CRingFile& file, int64_t end, bool countsRest) {
  uint64_t count = 0;
  KelvikLog::tagLine line = {};
  const auto take = [&] { count += line.m_IsStart && Passes(line) ? 1 : 0; };
  file.Seek(0);
  while (Fill(file, end)) {
    while (m_Reader.Next(line))
      take();
  }
  if (m_Reader.Rest(line) && countsRest) take();
  m_Filter.Reset();
  return count;
}

bool CLinePrinter::Print(CRingFile& file, int64_t end) {
  KelvikLog::tagLine line = {};
  while (Fill(file, end)) {
    while (m_Reader.Next(line)) {
      if (Passes(line)) Put(line, line.m_IsEnd);
    }
    if (m_Out.size() >= kOutBytes && !Flush()) return false;
  }
  return true;
}

void CLinePrinter::PrintRest(bool endsLine) {
  KelvikLog::tagLine line = {};
  if (m_Reader.Rest(line) && Passes(line)) Put(line, endsLine);
  m_Filter.Reset();
}

void CLinePrinter::Put(const KelvikLog::tagLine& line, bool endsLine) {
  if (m_Escapes) {
    KelvikLog::AppendEscaped(m_Out, line.m_Text, line.m_Length);
  } else {
    m_Out.append(line.m_Text, line.m_Length);
  }
  if (endsLine) m_Out += '\n';
}

bool CLinePrinter::Flush() {
  const bool isDone = WriteOut(m_Out.data(), m_Out.size(), m_StopFd) == eWrite::kDone;
  m_Out.clear();
  return isDone;
}

}  // namespace KelvikCtl
