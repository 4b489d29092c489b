// The output engine: makes records and delivers them to terminal, syslog and log files.
//
// One class over several files; each block below names the one that holds it.
#ifndef KELVIK_OUTPUT_H_
#define KELVIK_OUTPUT_H_

#include <cstddef>
#include <cstdint>

#include "Arguments.h"
#include "Attribute.h"
#include "Export.h"
#include "FocusName.h"
#include "Kelvik.h"
#include "KelvikExtra.h"
#include "Mutex.h"
#include "OutputStatistics.h"
#include "Signal.h"
#include "Thread.h"

namespace Kelvik {

constexpr int kSlotCount = 10;       // slots of the ring of kept log files
constexpr int kSlotNameBytes = 128;  // bytes of a kept file's path with its NUL
constexpr int kNextNameBytes = 36;   // bytes of a file's name with its NUL

struct tagLimits;
struct tagMessage;
struct tagRecord;
struct tagRecordHead;
struct tagSourcePlace;
struct tagWriter;

// Any thread may call any method at any time unless stated. Lock order: m_BufferMutex, then
// m_WriteMutex; no other lock is taken between the two. The ring (m_FileFds, m_FileNames,
// m_FileIndex, m_CurrentFd and the slot marks) is changed by a thread that holds both and read by
// one that holds either.
class KELVIK_API COutput : public CThread::IExecute {
 public:
  // --- Life: Output.cpp ---

  COutput();
  ~COutput();
  COutput(const COutput&) = delete;
  COutput& operator=(const COutput&) = delete;

  // Sets every member to its start value and makes the mutexes and the signal. Returns 0, or 1 when
  // one of them cannot be made. For a fresh engine only.
  int Initialize();

  // Makes the buffers (m_BufferSize bytes when that is 1024..5242880, 65536 when it is another
  // non-zero number, none when 0) and starts the writer thread. Buffers and text that earlier
  // records made stay. Returns 0, or 1 when memory runs out (no buffers, no thread then). A thread
  // that cannot be started is reported by a record; the buffered text then leaves at a hand-over
  // by the caller's side only when the writer is started later or the context ends.
  int Start();

  // Ends the writer thread; from the writer thread itself it returns at once and the thread ends
  // after the current pass. Buffered text stays. Returns 0.
  int Stop();

  // Ends the writer thread, flushes standard output, closes the files of the first two slots and
  // the redirected terminal, and destroys the mutexes and the signal. Returns 0. No other thread
  // may be inside the engine.
  int Destroy();

  // Process end: refuses records from now on, ends the writer thread, and writes what the buffers
  // hold under the settings as they stand. Mutexes and memory stay, since other threads may still
  // be inside a call. Returns 0.
  KELVIK_INTERNAL int Finish();

  // Copies the counters.
  KELVIK_INTERNAL void GetStatistics(tagOutputStatistics& statistics);

  // --- Records: OutputRecord.cpp ---
  // Results: 0 done; 1 write failed or the context has ended; 2 level switched off; 3 bad level
  // (in the sink stage) or file output not possible.

  // The library's own reports. Every switch comes from the global settings.
  int Log(eLogLevel level, const char* module, const char* title, const char* format, ...)
      __attribute__((format(printf, 5, 6)));
  // Level, date-time and thread-id switches of the module's settings.
  int Log(eLogLevel level, const char* module, const char* title, const char* format,
          const tagArguments& arguments) __attribute__((format(printf, 5, 0)));
  // With source location (file, func may be null, line -1: not given). Every switch is global.
  // Beware: a call of the first form whose format is followed by a text, an int and a text is taken
  // for this one; such callers wrap their arguments in tagArguments.
  int Log(eLogLevel level, const char* module, const char* title, const char* file,
          const char* func, int line, const char* format, ...)
      __attribute__((format(printf, 8, 9)));
  int Log(eLogLevel level, const char* module, const char* title, const char* file,
          const char* func, int line, const char* format, const tagArguments& arguments)
      __attribute__((format(printf, 8, 0)));

  // The common sink stage of formatted records: length bytes of text (NUL-terminated), of which
  // syslog does not see the first skip.
  int Logs(eLogLevel level, const char* module, const char* title, const char* text, int length,
           const tagAbsoluteTime& time, int skip);

  // Raw records: data goes out as it is; terminal and syslog need its terminating NUL, the file
  // takes length bytes. The level mask is the module's.
  int Logs(eLogLevel level, const char* module, const char* title, const char* data, int length);
  int Logs(eLogLevel level, const char* module, const char* title, const char* file,
           const char* func, int line, const char* data, int length);

  // --- Terminal: OutputTerminal.cpp ---

  // Opens path and lets the callback registered for (module, title) print there. Returns 0 (also
  // when there is no such callback), 3 for a null or empty text or a zero length, 5 when the path
  // cannot be opened.
  int LogTerminal(const char* path, int pathLength, const char* module, int moduleLength,
                  const char* title, int titleLength);

  // Moves standard output to a device; the device's first line is "******************* node = "
  // and the path. What was printed before goes to the old device. From then on each record reaches
  // the device at once. Returns 0, 3 (null or empty path, length 0) or 5 (cannot be opened).
  int RedirectTTY(const char* path, int length);

  // RedirectTTY to the terminal of standard input at start, else to "/dev/console".
  int RedirectConsole();

  // Stores the terminal of standard input as the console path, if there is one. Returns 0.
  int GetConsolePath();

  // Records of this module are shown in cyan; null, length 0 or "false" (any case): none is.
  // Returns 0.
  int ResetFocusModule(const char* name, int length);

  // --- Buffer and writer thread: OutputBuffer.cpp ---

  // Hands what the front buffer holds to the writer thread. Returns 0.
  int WriteBuffer2File();

  // Drops what the back buffer holds. Returns 0.
  int Losslog();

  // Passes value to the parameter callback of (module, title). Returns 0, or 3 for a null or empty
  // text or a zero length.
  int SetParam(const char* module, int moduleLength, const char* title, int titleLength, int value);

  // Wall clock in milliseconds, modulo 2^32.
  unsigned GetTickCount();

  // The writer thread's body; returns 1 once Stop or Finish has been called.
  int RunTask() override;

  // --- File writers: OutputWriter.cpp, OutputBySize.cpp, OutputByTime.cpp, OutputRaw.cpp ---
  // data null writes the back buffer, otherwise length bytes of data. Results: 0 done, 1 the write
  // failed, 3 no file could be opened. The V1 forms close the file after each buffered write.
  int WriteLogBySzie(const char* data, int length);
  int WriteLogBySzieV1(const char* data, int length);
  int WriteLogByTime(const char* data, int length);
  int WriteLogByTimeV1(const char* data, int length);

  // --- File index: OutputIndex.cpp ---

  // Records path as the file of slot, and slot as the current one, in the configuration file.
  // Returns 0 (also without a configuration path), or 3 when the path cannot be had.
  int WriteFileName2Ini(int slot, const char* path);

  // Removes every file of the ring and its index entries, and drops what the buffers hold.
  // Returns 0.
  int ClearFileInfo();

  // ClearFileInfo, then one kept file fewer (down to 1), then the disk counts as free again.
  int ClearFile();

  // Restores the name of a slot (0..9; others are ignored). A path that begins with the log path
  // and has 128 characters or more, or no '/', is kept as its bare name; another one that is as
  // long is not restored. A path of 19 characters or more without a '/' that does not begin with
  // the log path is one of the working folder and kept as "./" and the path. Returns 0.
  int SetLogName(int slot, const char* name);

  // Makes slot (0..9; others are ignored) the current one; when size rotation is on and the slot
  // has a name, size (bytes) becomes the file's size. Returns 0.
  int SetCurrentFileInfo(int slot, int size);

  // Closes the open log file; the next record opens it again. Returns 0.
  int CloseFile();

  // --- Opt-in additions: OutputExtra.cpp ---

  // What a hand-over does with a batch that the writer has not written yet: replace it (the
  // default), or see it written first by the calling thread, so that no accepted record is lost to
  // speed; a change of the buffer size then writes both buffers first. Returns 0, or 3 for another
  // value.
  KELVIK_INTERNAL int SetOverflow(eOverflowPolicy policy);

  // Returns 0 once every record accepted before the call is in its file (toDisk: and on the disk),
  // 4 when that takes longer than timeoutMs, 1 when a record was lost on the way.
  KELVIK_INTERNAL int Flush(unsigned timeoutMs, bool toDisk);

  // callback(path, context) is called after a rotation with the path of the finished file, outside
  // all locks, by the thread that rotated or one that logs. null: none.
  KELVIK_INTERNAL void SetRotationCallback(void (*callback)(const char* path, void* context),
                                           void* context);

  // Async-signal-safe: writes what both buffers hold to the current file without a lock. For a
  // process that is about to die.
  KELVIK_INTERNAL void CrashWrite();

  // Makes sure that a file is open whenever records wait in the buffers, for CrashWrite's sake.
  KELVIK_INTERNAL void KeepFileOpen();

  // Around fork(): both mutexes are held across it. In the child they are made anew, the parent's
  // buffered text is dropped (the parent writes it), and the writer starts on demand.
  KELVIK_INTERNAL void BeforeFork();
  KELVIK_INTERNAL void AfterForkInParent();
  KELVIK_INTERNAL void AfterForkInChild();

  // --- Members ---
  // Public for inspection only.

  int32_t m_CurrentFd;            // file writes go here; -1 when none
  int32_t m_FileFds[kSlotCount];  // -1 when closed
  int32_t m_FileSize;             // bytes in the current file, saturating; m_WriteMutex
  int32_t m_FrontLength;          // bytes in m_FrontBuffer; m_BufferMutex
  int32_t m_BackLength;           // bytes in m_BackBuffer, waiting for the writer; m_WriteMutex
  int8_t m_FileIndex;             // current slot of the ring, 0..9
  char m_FileNames[kSlotCount][kSlotNameBytes];  // empty: the slot is free
  uint32_t m_FrontRecords;                       // records in m_FrontBuffer; m_BufferMutex
  CMutex m_BufferMutex;                          // front buffer, ring, mode flags
  CMutex m_WriteMutex;                           // back buffer, file size, the write itself
  CSignal m_Signal;                              // wakes the writer thread
  int32_t m_RotatePending;                       // after the next write, move to a new file
  char m_NextFileName[kNextNameBytes];           // the time writer's next file; m_BufferMutex
  CThread m_Thread;                              // the writer thread
  CFocusName m_Focus;                            // the module shown in cyan
  int32_t m_SizeMode;                            // the last record went the size writer's way
  int32_t m_TimeMode;                            // the last record went the time writer's way
  int32_t m_FileStartTime;   // wall-clock seconds at which the time writer's file began; 0: not yet
  char* m_BackBuffer;        // owned, malloc; m_WriteMutex
  char* m_FrontBuffer;       // owned, malloc; m_BufferMutex
  uint32_t m_AllocatedSize;  // m_BufferSize as of the last record; 0: not yet known
  uint32_t
      m_LastFlushTime;      // wall-clock milliseconds of the last write of the back buffer; 0: none
  int32_t m_BufferReset;    // set while the buffers are exchanged for a new size
  int32_t m_DiskFull;       // set while the files are cleared after ENOSPC
  int32_t m_TerminalFlag;   // set to 1, read by nothing
  int32_t m_NewFileOpened;  // the current slot was named and waits for its file
  char m_ConsolePath[256];  // where RedirectConsole goes
  int32_t m_TerminalFd;     // standard output's descriptor once redirected, else -1

 private:
  friend struct tagLevelGate;

  // OutputRecord.cpp. MakeRecord is for a level that passes.
  KELVIK_INTERNAL bool IsTurnedAway(eLogLevel level, const tagAttribute& settings, int& result);
  KELVIK_INTERNAL int MakeRecord(eLogLevel level, const char* module, const char* title,
                                 const tagAttribute& settings, tagMessage& message);
  KELVIK_INTERNAL int Deliver(tagRecord record);

  // OutputLog.cpp. place is null for a record that has none.
  KELVIK_INTERNAL int LogList(eLogLevel level, const char* module, const char* title,
                              const tagAttribute& settings, const tagSourcePlace* place,
                              const char* format, va_list list)
      __attribute__((format(printf, 7, 0)));

  // OutputRawRecord.cpp
  KELVIK_INTERNAL int LogRaw(const tagRecordHead& head, const char* data, int length, int levelLine,
                             const tagWriter& writer);
  KELVIK_INTERNAL void PrintRaw(eLogLevel level, const char* module, const char* prefix,
                                const char* data);

  // OutputTerminal.cpp
  KELVIK_INTERNAL const char* Colour(eLogLevel level, const char* module) const;
  KELVIK_INTERNAL void PrintRecord(const tagRecord& record);
  KELVIK_INTERNAL void AfterPrint(bool failed);

  // OutputRedirect.cpp
  KELVIK_INTERNAL void Recover();

  // OutputStore.cpp
  KELVIK_INTERNAL int StoreRecord(const char* text, int length);
  KELVIK_INTERNAL bool AppendQuickly(const char* text, uint32_t bytes);

  // OutputBuffer.cpp. What stores or hands over holds m_BufferMutex. failed is set to the writer
  // whose failure is to be reported once all locks are released.
  KELVIK_INTERNAL int StoreSlowly(const char* text, int length);
  KELVIK_INTERNAL int StoreBySize(const tagLimits& limits, const char* text, int length,
                                  const tagWriter*& failed);
  KELVIK_INTERNAL int StoreByTime(const tagLimits& limits, const char* text, int length,
                                  const tagWriter*& failed);
  KELVIK_INTERNAL int StoreAtTimeUp(const tagLimits& limits, int32_t now, const char* text,
                                    int length, const tagWriter*& failed);
  KELVIK_INTERNAL void RequestRotation();
  KELVIK_INTERNAL int Append(const tagWriter& writer, const tagLimits& limits, const char* text,
                             int length, const tagWriter*& failed);
  KELVIK_INTERNAL int WriteDirect(const tagWriter& writer, const char* text, int length,
                                  const tagWriter*& failed);
  KELVIK_INTERNAL int WriteWaiting(const tagWriter& writer, const tagWriter*& failed);
  KELVIK_INTERNAL bool MakeBuffers(uint32_t size);
  KELVIK_INTERNAL void DropBuffers();
  KELVIK_INTERNAL void HandOver(const tagWriter*& failed);
  KELVIK_INTERNAL void HandOverFull(const tagWriter*& failed);
  KELVIK_INTERNAL bool MoveToBack(const tagWriter*& failed);
  KELVIK_INTERNAL void ExchangeBuffers();
  KELVIK_INTERNAL void EmptyFront();
  KELVIK_INTERNAL void HandOverWhenDue(int32_t writeInterval, const tagWriter*& failed);
  KELVIK_INTERNAL void DropBack(bool replaced);
  KELVIK_INTERNAL void WakeWriter();
  KELVIK_INTERNAL void WakeWantedWriter();
  KELVIK_INTERNAL void StartWantedWriter();

  // OutputExtra.cpp
  KELVIK_INTERNAL bool BatchIsGone(uint32_t batch) const;
  KELVIK_INTERNAL int SyncFiles();
  KELVIK_INTERNAL void StampNextFileName();
  KELVIK_INTERNAL void ReadLimits(tagLimits& limits) const;
  KELVIK_INTERNAL const tagWriter* ModeWriter() const;
  KELVIK_INTERNAL bool IsStopping() const;
  KELVIK_INTERNAL bool HasWork();
  KELVIK_INTERNAL void WriteHandedOver();

  // OutputWriter.cpp. LockFile returns 0 with m_WriteMutex held and the current file open. What
  // follows it runs under m_WriteMutex, and what changes names or slots under both mutexes.
  KELVIK_INTERNAL void Settle(const tagWriter* failed);
  KELVIK_INTERNAL int WriteAndSettle(const tagWriter& writer, const char* data, int length);
  KELVIK_INTERNAL int Write(const tagWriter& writer, const char* data, int length,
                            const tagWriter*& failed);
  KELVIK_INTERNAL int LockFile(const tagWriter& writer);
  KELVIK_INTERNAL int WriteBackFirst(const tagWriter& writer, const tagWriter*& failed);
  KELVIK_INTERNAL bool NeedsFile(const tagWriter& writer, int32_t sizeLimit) const;
  KELVIK_INTERNAL int PrepareFile(const tagWriter& writer);
  KELVIK_INTERNAL int WriteBytes(const tagWriter& writer, const char* data, int length,
                                 bool counted, const tagWriter*& failed);
  KELVIK_INTERNAL int WriteBack(const tagWriter& writer, const tagWriter*& failed);
  KELVIK_INTERNAL int ClearWhenFull(int result);
  KELVIK_INTERNAL int RotateWhenPending(const tagWriter& writer);
  KELVIK_INTERNAL void AdvanceSlot();
  KELVIK_INTERNAL void CloseCurrent();
  KELVIK_INTERNAL void NameSlot(const char* name);
  KELVIK_INTERNAL int OpenSlot(bool append);
  KELVIK_INTERNAL void RemoveSlotFile(int slot, bool tryFolder);
  KELVIK_INTERNAL bool IsSharedFile(int slot) const;
  KELVIK_INTERNAL void FreeSlot(int slot);
  KELVIK_INTERNAL void CountDirect(int length);
  KELVIK_INTERNAL void NoteError(int error);
  KELVIK_INTERNAL void NoteFinished();

  // OutputBySize.cpp, OutputByTime.cpp, OutputRaw.cpp
  KELVIK_INTERNAL int PrepareBySize(const tagWriter& writer);
  KELVIK_INTERNAL int RotateBySize(const tagWriter& writer);
  KELVIK_INTERNAL int RotatePendingBySize();
  KELVIK_INTERNAL void NameSlotByClock(bool unique);
  KELVIK_INTERNAL int PrepareByTime();
  KELVIK_INTERNAL int RotatePendingByTime(const tagWriter& writer);
  KELVIK_INTERNAL int PrepareRaw();

  // Additions behind the members above.
  enum eLife { eLifeOpen = 0, eLifeDraining = 1, eLifeEnded = 2 };
  enum eRestored { eRestoredNot = 0, eRestoredWhole = 1, eRestoredShortened = 2 };
  enum eOnDemand { eOnDemandNo = 0, eOnDemandIdle = 1, eOnDemandWanted = 2 };
  uint32_t m_BufferCapacity;           // bytes each buffer really has; m_BufferMutex
  uint32_t m_BackRecords;              // records in m_BackBuffer; m_WriteMutex
  uint8_t m_SlotOpened[kSlotCount];    // this process opened the slot's file since it was named
  uint8_t m_SlotRestored[kSlotCount];  // eRestored: it came from the configuration file
  uint8_t m_SlotUnsynced[kSlotCount];  // the slot's file has text that was not synced to the disk
  int32_t m_Stopping;                  // how many threads end the writer thread
  int32_t m_Ended;                     // eLife: whether records are taken and files written
  int16_t m_Overflow;                  // eOverflowPolicy
  int16_t m_WriterOnDemand;  // eOnDemand: whether this is a forked child without its writer yet
  int32_t m_BatchSizeLimit;  // m_LogMaxSize as it was at the hand-over; m_WriteMutex
  int16_t m_FileKeptOpen;    // KeepFileOpen was called
  int16_t m_WakeWanted;      // the writer is to be woken once all locks are released
  uint32_t m_HandedOver;     // number of the batch in the back buffer, wrapping; m_WriteMutex
  uint32_t m_RotateBatch;    // the last batch before the rotation that waits; m_BufferMutex
  uint32_t m_LostBatch;      // number of the latest batch that was lost; m_WriteMutex
  int32_t m_Writing;         // the back buffer is being written, by
  pthread_t m_WritingThread;
  uint32_t m_LastFillTime;  // milliseconds of the last full buffer; m_BufferMutex
  uint32_t m_FloodTime;     // milliseconds of the first of the full buffers that came quickly
  int16_t m_CallerWrites;   // the batch is its caller's to write; m_BufferMutex
  CSignal m_StopSignal;     // ends the writer's pause at once

  // The finished file that the rotation callback has not been told of; m_WriteMutex.
  void (*m_RotationCallback)(const char* path, void* context);
  void* m_RotationContext;
  int32_t m_FinishedCount;
  char m_Finished[2][512];

  // Counters. m_Buffered: what has left the front buffer; m_BufferMutex. m_Statistics:
  // the file's; m_WriteMutex. The others are counted without a lock.
  struct tagBufferedCounters {
    uint64_t m_Records;
    uint64_t m_Bytes;
    uint32_t m_HighWater;
  };
  tagBufferedCounters m_Buffered;
  tagOutputStatistics m_Statistics;
  uintptr_t m_BelowLevel;
  uintptr_t m_Refused;
  uintptr_t m_TerminalRecords;
  uintptr_t m_SystemRecords;
};

}  // namespace Kelvik

#endif  // KELVIK_OUTPUT_H_
