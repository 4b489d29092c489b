// Prints those lines of files that are asked for, or counts them.

#ifndef KELVIK_KELVIKCTL_LINEPRINTER_H_
#define KELVIK_KELVIKCTL_LINEPRINTER_H_

#include <cstdint>
#include <string>

#include "LineReader.h"
#include "RecordFilter.h"
#include "RingFile.h"

namespace KelvikCtl {

// Takes files one after the other. Memory is bounded, however long a line is: of one that is longer
// than the buffer the first part decides whether it is printed.
class CLinePrinter {
 public:
  // On a terminal control bytes are shown as \xNN. Printing ends when stopFd becomes readable.
  CLinePrinter(const CRecordFilter& filter, int stopFd);

  // How many lines of the file, up to offset end, would be printed. An unfinished last line counts
  // when countsRest is set. The file is read from its start; its place is lost.
  uint64_t Count(CRingFile& file, int64_t end, bool countsRest);

  // So many of the next lines that would be printed are not.
  void Skip(uint64_t lines) { m_Skip = lines; }

  // Prints the whole lines from where the file was read to last, up to offset end (-1: none), and
  // keeps an unfinished one for the next call. False when the program should end.
  bool Print(CRingFile& file, int64_t end);
  // Prints the unfinished line of the file that was printed last, if there is one, which no more
  // comes to; ended by a line end or as it stands. Another file may follow then.
  void PrintRest(bool endsLine);
  // Sends what was printed on its way. False when the program should end.
  bool Flush();

 private:
  bool Fill(CRingFile& file, int64_t end);
  bool Passes(const KelvikLog::tagLine& line);
  void Put(const KelvikLog::tagLine& line, bool endsLine);

  KelvikLog::CLineReader m_Reader;
  CRecordFilter m_Filter;
  const int m_StopFd;
  const bool m_Escapes;
  bool m_Passes = false;  // the line whose parts are read
  uint64_t m_Skip = 0;
  std::string m_Out;
};

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_LINEPRINTER_H_
