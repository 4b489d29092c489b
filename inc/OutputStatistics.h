// What the output engine has done since the process began.
#ifndef KELVIK_OUTPUTSTATISTICS_H_
#define KELVIK_OUTPUTSTATISTICS_H_

#include <cstdint>

namespace Kelvik {

// Records and bytes concern the file output where nothing else is said. A record is accepted, then
// written, replaced (by a hand-over), or dropped (by an error or a clearing of the files).
struct tagOutputStatistics {
  uint64_t m_RecordsAccepted;  // taken, into the buffer or directly
  uint64_t m_RecordsWritten;   // of these, in a file
  uint64_t m_RecordsReplaced;  // of these, lost to a hand-over or a change of the buffer size
  uint64_t m_RecordsDropped;   // of these, lost to an error or a clearing of the files
  uint64_t m_BytesAccepted;    // of the records accepted
  uint64_t m_BytesHandedOver;  // that left the front buffer
  uint64_t m_BytesWritten;     // that are in files, or were before a file was removed
  uint64_t m_BytesReplaced;    // of the records replaced
  uint64_t m_BytesDropped;     // of the records dropped
  uint64_t m_Batches;          // hand-overs of the front buffer
  uint64_t m_Writes;           // batches and records given to the system
  uint64_t m_OpenErrors;       // files that could not be opened
  uint64_t m_WriteErrors;      // writes that failed
  uint64_t m_Rotations;        // moves to another file
  uint64_t m_FilesRemoved;     // files deleted
  uint64_t m_BelowLevel;       // records whose level was switched off; these four wrap at the width
  uint64_t m_Refused;          // of a pointer: file output refused with 3
  uint64_t m_TerminalRecords;  // records printed
  uint64_t m_SystemRecords;    // records given to syslog
  uint32_t m_BufferHighWater;  // most bytes that the front buffer has held
  int32_t m_LastError;         // errno of the last open or write error; 0: none yet
  int64_t m_LastErrorTime;     // seconds since the epoch at that error
};

}  // namespace Kelvik

#endif  // KELVIK_OUTPUTSTATISTICS_H_
