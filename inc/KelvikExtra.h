// Additions to the interface of Kelvik.h that a program opts into. C99 and C++17.
//
// All functions may be called from any thread at any time. Unless stated, they return eResult codes
// and eResultFailure, touching nothing, once the process has ended the library's context.

#ifndef KELVIK_KELVIKEXTRA_H_
#define KELVIK_KELVIKEXTRA_H_

#include <stdint.h>

#include "Export.h"

#ifdef __cplusplus
extern "C" {
#endif

// What happens when a full buffer is handed to the writer before it has written the one before.
#ifdef __cplusplus
enum eOverflowPolicy : int {
#else
enum eOverflowPolicy {
#endif
  eOverflowReplace = 0,  // the default: the unwritten batch is replaced, the caller never waits
  eOverflowWrite = 1     // the caller sees the unwritten batch written first: nothing is lost
};
#ifndef __cplusplus
typedef enum eOverflowPolicy eOverflowPolicy;
#endif

// Chooses the policy. With eOverflowWrite a change of the buffer size writes both buffers first,
// too, so that no accepted record is lost to speed; a caller may then wait for the disk. When full
// buffers follow one another for more than a few milliseconds, the callers write them themselves,
// which takes less processor time than the writer thread does. The configuration file's key
// "Overflow" (replace or write, in section "Global") sets the same at Initialize when it is
// present. Returns eResultSuccess, or eResultInvalid for another value.
KELVIK_API int KelvikExtra_SetOverflow(eOverflowPolicy policy);

// Waits until every record that was accepted before the call has been written to its file; with
// toDisk (non-zero) until it has reached the disk (fdatasync) as well.
// Returns eResultSuccess; eResultBusy when that takes longer than timeoutMs milliseconds (the wait
// for the disk itself is not bounded); eResultFailure when a file could not be opened or written,
// or a record was replaced on the way.
KELVIK_API int KelvikExtra_Flush(unsigned int timeoutMs, int toDisk);

// What has become of the records since the process (or the forked child) began. The counters only
// grow. Records and bytes concern the file output where nothing else is said.
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

  // Since version 1.2 of this record.
  uint64_t m_RecordsReplaced;    // lost to a hand-over or a change of the buffer size
  uint64_t m_RecordsDropped;     // lost to an error, a clearing of the files, or file output off
  uint64_t m_RecordsBelowLevel;  // not made: level switched off (32-bit targets: modulo 2^32)
  uint64_t m_RecordsRefused;     // not taken: the files were being cleared (modulo as above)
  uint64_t m_BytesFormatted;     // bytes of accepted records
  uint64_t m_BytesHandedOver;    // bytes that left the front buffer
  uint64_t m_BytesReplaced;      // bytes of the records replaced
  uint64_t m_BytesDropped;       // bytes of the records dropped
  uint64_t m_Batches;            // hand-overs
  uint64_t m_Writes;             // batches and single records given to the system
  uint64_t m_FilesRemoved;       // log files deleted
  uint64_t m_TerminalRecords;    // records printed (modulo as above)
  uint64_t m_SystemRecords;      // records given to syslog (modulo as above)
  uint64_t m_DatagramsAccepted;  // console datagrams obeyed (modulo as above)
  uint64_t m_DatagramsRefused;   // console datagrams with wrong framing (modulo as above)
  int64_t m_LastErrorTime;       // seconds since the epoch; 0: there was no error
  uint64_t m_BufferHighWater;    // most bytes that have waited in the front buffer

  // Since version 1.3 of this record.
  uint64_t m_DatagramsDenied;  // of senders that KelvikExtra_RestrictConsole shuts out (modulo)
  uint64_t m_CommandsDenied;   // console commands that it refuses (modulo as above)
};

// Fills *statistics, which the caller owns. size is sizeof(struct tagKelvikStatistics) as the
// caller's header has it. Fields that the library is too old to know are left as they are: a field
// is filled when it ends within m_Size bytes. It may wait for a write in progress.
// Returns eResultSuccess, or eResultInvalid when statistics is null or size is smaller than the
// record's first version (64).
KELVIK_API int KelvikExtra_GetStatistics(struct tagKelvikStatistics* statistics, unsigned int size);

// Registers the display "Kelvik" / "statistics", which prints the counters for the console's
// command "-show". Returns eResultSuccess, or eResultExists when it is registered already.
KELVIK_API int KelvikExtra_RegisterStatistics(void);

// Saves the buffered text when the process dies by SIGSEGV, SIGBUS, SIGILL, SIGFPE or SIGABRT: both
// buffers go to the current file, with async-signal-safe calls and without a lock; then the handler
// that was installed before runs, or the signal takes its default course. From now on a file is
// opened as soon as text waits for it. Handlers that the program installs later replace these.
// Returns eResultSuccess, or eResultFailure when a handler cannot be installed.
KELVIK_API int KelvikExtra_InstallCrashFlush(void);

// What KelvikExtra_RestrictConsole takes away; bits that are added up.
#ifdef __cplusplus
enum eConsoleRestriction : int {
#else
enum eConsoleRestriction {
#endif
  eRestrictTerminals = 1,  // "-tty" and "-show" open terminals only
  eRestrictLogPath = 2,    // "-logpath" is refused
  eRestrictSenders = 4     // datagrams come from this process's effective user or from root only
};
#ifndef __cplusplus
typedef enum eConsoleRestriction eConsoleRestriction;
#endif

// Restricts what the network console obeys, from now on and however often it is created; flags
// replace the ones before, and 0, as at the start, restricts nothing. What the program itself asks
// for by SetAttribute is not restricted.
//
// A command that is refused has no effect, is printed ("[Kelvik] [Internal] command -logpath is
// refused.") and counted, and the rest of its datagram is obeyed. A datagram of another user is
// dropped without a word and counted.
//
// The sender's user is the owner of its socket in the kernel's table (/proc/net/udp). The socket
// must be of IPv4, send from the loopback network, be connected to the console or have a port that
// the system chose, and be open until the datagram is handled, which is at the latest when a later
// one has had an effect. Where nothing is found out, or the table cannot be read, the datagram is
// dropped.
// Returns eResultSuccess, or eResultInvalid, changing nothing, for an unknown flag.
KELVIK_API int KelvikExtra_RestrictConsole(unsigned int flags);

// callback(path, context) is called after each rotation with the path of the finished file, which
// lives as long as the call; on the writer thread or on one that logs, with no lock held, so it may
// log. It must not throw. null: no callback any more; one that runs may still finish. Returns
// eResultSuccess.
KELVIK_API int KelvikExtra_SetRotationCallback(void (*callback)(const char* path, void* context),
                                               void* context);

// --- Which records are made -------------------------------------------------------------------
// The questions that the macros of KelvikMacros.h ask before they evaluate a record's arguments.

// Whether a record of the level would pass the level mask that KLog goes by for the module (see
// there); null asks the global mask, which KLogV1 goes by. Which outputs are on does not matter.
// Takes no lock, allocates nothing, counts nothing. Returns 1 or 0; 0 as well for a level that is
// not 1 to 5, and once the context has ended.
KELVIK_API int KelvikExtra_IsEnabled(int level, const char* module);

// A place in a program that logs only some of its records. Made of zeros, static, and asked by one
// of the two functions below only; any threads may ask at once.
struct tagKelvikPlace {
  uint32_t m_Count;  // the library's
  uint32_t m_Time;   // the library's
};

// Room for the longest note on what was passed over, its NUL included.
#define KELVIK_PASSED_OVER_BYTES 32

// Whether this call is the first one, or the n-th after the last that was answered with 1 (n below
// 2: every call). Then writes to note, which has room for KELVIK_PASSED_OVER_BYTES, how many calls
// were answered with 0 in between: "(<number> passed over) ", or "" for none. Every call counts
// exactly once, whatever other threads do. Returns 1 or 0; 0 leaves note alone, and is the answer
// to a null pointer.
KELVIK_API int KelvikExtra_IsNth(struct tagKelvikPlace* place, uint32_t n, char* note);

// The same by time: whether this call is the first one, or comes intervalMs milliseconds or more
// after the last that was answered with 1, on a clock that nobody sets and that wraps after 49
// days.
KELVIK_API int KelvikExtra_IsDue(struct tagKelvikPlace* place, uint32_t intervalMs, char* note);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // KELVIK_KELVIKEXTRA_H_
