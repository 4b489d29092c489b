// Additions to the interface of Kelvik.h that a program opts into. C99 and C++17.

#ifndef KELVIK_KELVIKEXTRA_H_
#define KELVIK_KELVIKEXTRA_H_

#include <stdint.h>

#include "Export.h"

#ifdef __cplusplus
extern "C" {
#endif

// What has become of the records of the file output since the process began. The counters only
// grow; each is right by itself, but they are not taken at one instant together.
//
// Later versions append fields and change none, so that a program and a library of different
// versions understand each other: see KelvikExtra_GetStatistics.
struct tagKelvikStatistics {
  uint32_t m_Size;             // bytes of this record that were filled, this field included
  int32_t m_LastError;         // errno of the last open or write error; 0: there was none
  uint64_t m_RecordsAccepted;  // records that the file output took, into the buffer or directly
  uint64_t m_RecordsWritten;   // of these, records that are in a file
  uint64_t m_RecordsLost;      // of these, records that were dropped; the rest waits in the buffers
  uint64_t m_BytesWritten;     // bytes that are in files, or were before a file was removed
  uint64_t m_OpenErrors;       // log files that could not be opened
  uint64_t m_WriteErrors;      // writes to log files that failed
  uint64_t m_Rotations;        // changes from one log file to the next
};

// Fills *statistics, which the caller owns. size is sizeof(struct tagKelvikStatistics) as the
// caller's header has it. Fields that the library is too old to know are left as they are: a field
// is filled when it ends within m_Size bytes.
// Any thread may call it at any time; it does not wait for the disk. Returns eResultInvalid when
// statistics is null or size is smaller than the record's first version (64), eResultFailure once
// the context has ended at exit, else eResultSuccess.
KELVIK_API int KelvikExtra_GetStatistics(struct tagKelvikStatistics* statistics, unsigned int size);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // KELVIK_KELVIKEXTRA_H_
