// What the output engine has done since the process began.
#ifndef KELVIK_OUTPUTSTATISTICS_H_
#define KELVIK_OUTPUTSTATISTICS_H_

#include <cstdint>

namespace Kelvik {

// Records and bytes concern the file output where nothing else is said. A record is accepted, then
// written, replaced (by a hand-over), or dropped (by an error or a clearing of the files).
struct tagOutputStatistics {
  uint64_t m_RecordsAccepted;
  uint64_t m_RecordsWritten;
  uint64_t m_RecordsReplaced;
  uint64_t m_RecordsDropped;
  uint64_t m_BytesAccepted;
  uint64_t m_BytesHandedOver;
  uint64_t m_BytesWritten;
  uint64_t m_BytesReplaced;
  uint64_t m_BytesDropped;
  uint64_t m_Batches;  // hand-overs of the front buffer
  uint64_t m_Writes;   // batches and records given to the system
  uint64_t m_OpenErrors;
  uint64_t m_WriteErrors;
  uint64_t m_Rotations;  // moves to another file
  uint64_t m_FilesRemoved;
  uint64_t m_BelowLevel;  // records whose level was switched off; these four wrap at the width
  uint64_t m_Refused;     // of a pointer: file output refused with 3
  uint64_t m_TerminalRecords;
  uint64_t m_SystemRecords;
  uint32_t m_BufferHighWater;  // most bytes that the front buffer has held
  int32_t m_LastError;         // errno of the last open or write error; 0: none yet
  int64_t m_LastErrorTime;     // seconds since the epoch at that error
};

}  // namespace Kelvik

#endif  // KELVIK_OUTPUTSTATISTICS_H_
