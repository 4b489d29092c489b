// The frame of the file writers: who may touch the files, the write itself, and the steps of the
// ring that all writers share. What differs between them is data (tagWriter) or stands in
// OutputBySize.cpp, OutputByTime.cpp and OutputRaw.cpp.
//
// One thread at a time opens, closes, rotates or writes: it holds m_WriteMutex. Whoever names a
// file or moves to another slot holds m_BufferMutex as well. Who writes a batch takes m_BufferMutex
// only when the file has to be opened or changed, so that callers who only buffer do not wait for
// the disk.

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <ctime>

#include "FileIo.h"
#include "FileName.h"
#include "Global.h"
#include "NoCancel.h"
#include "Output.h"
#include "OutputInternal.h"
#include "Relaxed.h"
#include "ScopeLock.h"
#include "SelfReport.h"
#include "TimeStamp.h"

namespace Kelvik {
namespace {

using CSteadyClock = std::chrono::steady_clock;

// For how long a write to a descriptor that is not open is tried again. Measured on a clock that
// nobody can set, so that the attempts end whatever the wall clock does.
constexpr std::chrono::milliseconds kRetryLimit(1001);

constexpr size_t kOwnNameBytes = 32;  // of a slot's name made here

const char* LogPath() {
  return CGlobal::Instance()->GetAttribute()->m_LogPath;
}

}  // namespace

const tagWriter kSizeWriter = {tagWriter::eKind::kBySize, false, "WriteLogBySzie", 1806};
const tagWriter kSizeWriterV1 = {tagWriter::eKind::kBySize, true, "WriteLogBySzieV1", 2012};
const tagWriter kTimeWriter = {tagWriter::eKind::kByTime, false, "WriteLogByTime", 2214};
const tagWriter kTimeWriterV1 = {tagWriter::eKind::kByTime, true, "WriteLogByTimeV1", 2420};
const tagWriter kRawWriter = {tagWriter::eKind::kRaw, false, "Logs", 1159};
const tagWriter kLocatedRawWriter = {tagWriter::eKind::kRaw, false, "Logs", 1525};

// What had to wait until all locks were released: waking the writer, the report of a failed write,
// and telling the application of files that are finished.
void COutput::Settle(const tagWriter* failed) {
  WakeWantedWriter();
  if (failed != nullptr) ReportFileFailure(failed->m_Function, failed->m_ReportLine);
  if (RelaxedLoad(m_WriterOnDemand) == eOnDemandWanted) StartWantedWriter();
  if (RelaxedLoad(m_FinishedCount) == 0) return;
  char paths[sizeof(m_Finished) / sizeof(m_Finished[0])][kFilePathBytes];
  void (*callback)(const char*, void*);
  void* context;
  int count;
  {
    const CScopeLock guard(m_WriteMutex);
    count = m_FinishedCount;
    std::memcpy(paths, m_Finished, sizeof(paths));
    callback = m_RotationCallback;
    context = m_RotationContext;
    RelaxedStore(m_FinishedCount, 0);
  }
  for (int i = 0; i < count && callback != nullptr; ++i)
    callback(paths[i], context);
}

int COutput::WriteLogBySzie(const char* data, int length) {
  return WriteAndSettle(kSizeWriter, data, length);
}

int COutput::WriteLogBySzieV1(const char* data, int length) {
  return WriteAndSettle(kSizeWriterV1, data, length);
}

int COutput::WriteLogByTime(const char* data, int length) {
  return WriteAndSettle(kTimeWriter, data, length);
}

int COutput::WriteLogByTimeV1(const char* data, int length) {
  return WriteAndSettle(kTimeWriterV1, data, length);
}

// Caller holds no lock.
int COutput::WriteAndSettle(const tagWriter& writer, const char* data, int length) {
  const tagWriter* failed = nullptr;
  const int result = Write(writer, data, length, failed);
  Settle(failed);
  return result;
}

// data null: the back buffer. A record of the ring's writers is written under m_BufferMutex, which
// keeps the order of records; a raw record only needs it to open its file.
int COutput::Write(const tagWriter& writer, const char* data, int length,
                   const tagWriter*& failed) {
  if (data != nullptr && length < 0) return eResultInvalid;
  const CNoCancel whole;
  const bool ordered = data != nullptr && writer.m_Kind != tagWriter::eKind::kRaw;
  if (ordered) m_BufferMutex.lock();
  int result = LockFile(writer);
  if (result == eResultSuccess) {
    if (data == nullptr) {
      result = WriteBack(writer, failed);
    } else {
      CountDirect(length);
      result = WriteBytes(writer, data, length, true, failed);
      ++(result == eResultSuccess ? m_Statistics.m_RecordsWritten : m_Statistics.m_RecordsDropped);
    }
    m_WriteMutex.unlock();
    result = ClearWhenFull(result);
    if (result == eResultSuccess && writer.m_Kind != tagWriter::eKind::kRaw) {
      result = RotateWhenPending(writer);
    }
  } else if (data != nullptr) {
    const CScopeLock guard(m_WriteMutex);
    CountDirect(length);
    ++m_Statistics.m_RecordsDropped;
    m_Statistics.m_BytesDropped += static_cast<uint32_t>(length);
  }
  if (ordered) m_BufferMutex.unlock();
  return result;
}

// The way of a batch that was handed over: without m_BufferMutex, which callers take for every
// record, as long as the batch goes to the file that is open; a caller that must have it written
// before it goes on holds that mutex. Settings changed since the hand-over show with the next. A
// batch that another thread has written needs no other file: the oldest one would be removed for
// nothing. No file is open once the context has ended.
int COutput::WriteBackFirst(const tagWriter& writer, const tagWriter*& failed) {
  const CNoCancel whole;
  m_WriteMutex.lockSpinning();
  int result = eResultSuccess;
  if (m_BackLength > 0 && NeedsFile(writer, m_BatchSizeLimit)) {
    // Once more, in the order of the locks: who writes the batch meanwhile has its file, too.
    m_WriteMutex.unlock();
    m_BufferMutex.lock();
    m_WriteMutex.lock();
    if (m_BackLength > 0 && (result = LockFile(writer)) == eResultSuccess) m_WriteMutex.unlock();
    m_BufferMutex.unlock();
  }
  if (result == eResultSuccess && m_BackLength > 0) result = WriteBack(writer, failed);
  m_WriteMutex.unlock();
  result = ClearWhenFull(result);
  if (result == eResultSuccess) RotateWhenPending(writer);
  return result;
}

void COutput::CountDirect(int length) {
  ++m_Statistics.m_RecordsAccepted;
  m_Statistics.m_BytesAccepted += static_cast<uint32_t>(length);
}

// Returns 0 with m_WriteMutex held and the current slot's file open for this writer, else the
// result for the caller with nothing held.
int COutput::LockFile(const tagWriter& writer) {
  tagLimits limits;
  {
    const CScopeLock guard(m_BufferMutex);
    if (RelaxedLoad(m_Ended) == eLifeEnded) return eResultFailure;
    ReadLimits(limits);
  }
  m_WriteMutex.lock();
  if (!NeedsFile(writer, limits.m_LogMaxSize)) return eResultSuccess;
  // Something is to be opened: once more, in the order of the locks.
  m_WriteMutex.unlock();
  m_BufferMutex.lock();
  m_WriteMutex.lock();
  const int result =
      RelaxedLoad(m_Ended) == eLifeEnded ? static_cast<int>(eResultFailure) : PrepareFile(writer);
  m_BufferMutex.unlock();
  if (result != eResultSuccess) m_WriteMutex.unlock();
  return result;
}

bool COutput::NeedsFile(const tagWriter& writer, int32_t sizeLimit) const {
  if (m_FileFds[m_FileIndex] == -1) return true;
  return writer.m_Kind != tagWriter::eKind::kByTime && sizeLimit < m_FileSize;
}

int COutput::PrepareFile(const tagWriter& writer) {
  switch (writer.m_Kind) {
    case tagWriter::eKind::kBySize:
      return PrepareBySize(writer);
    case tagWriter::eKind::kByTime:
      return PrepareByTime();
    case tagWriter::eKind::kRaw:
      break;
  }
  return PrepareRaw();
}

// Writes to the current file; counted: its bytes add to m_FileSize. A descriptor that somebody else
// closed is tried again without pause for a second, as it may come back; then it is forgotten (it
// is not ours to close any more), so that the next call opens the file by its name.
int COutput::WriteBytes(const tagWriter& writer, const char* data, int length, bool counted,
                        const tagWriter*& failed) {
  const auto start = CSteadyClock::now();
  auto rest = static_cast<size_t>(length);
  bool firstError = true;
  ++m_Statistics.m_Writes;
  for (;;) {
    size_t written = 0;
    const int error = WriteAll(m_CurrentFd, data, rest, &written);
    data += written;
    rest -= written;
    m_Statistics.m_BytesWritten += written;
    m_SlotUnsynced[m_FileIndex] = 1;
    if (counted) {
      const int64_t size = static_cast<int64_t>(m_FileSize) + static_cast<int64_t>(written);
      m_FileSize = size < INT32_MAX ? static_cast<int32_t>(size) : INT32_MAX;
    }
    if (error == 0) return eResultSuccess;
    if (firstError) ++m_Statistics.m_WriteErrors;
    firstError = false;
    NoteError(error);
    int result = eResultFailure;
    if (error == ENOSPC && writer.m_Kind != tagWriter::eKind::kRaw) {
      RelaxedStore(m_DiskFull, 1);
      result = kDiskFull;
    } else if (error == EBADF) {
      if (CSteadyClock::now() - start < kRetryLimit) continue;
      m_FileFds[m_FileIndex] = -1;
      m_CurrentFd = -1;
      failed = &writer;
    }
    m_Statistics.m_BytesDropped += rest;
    return result;
  }
}

void COutput::NoteError(int error) {
  m_Statistics.m_LastError = error;
  m_Statistics.m_LastErrorTime = static_cast<int64_t>(std::time(nullptr));
}

// Caller holds m_WriteMutex. Whatever happens, the batch is gone afterwards; on a full disk it goes
// with the clearing of the files.
int COutput::WriteBack(const tagWriter& writer, const tagWriter*& failed) {
  if (RelaxedLoad(m_BufferReset) != 0) return eResultSuccess;
  const bool counted = writer.m_Kind == tagWriter::eKind::kBySize;
  m_WritingThread = ::pthread_self();
  RelaxedStore(m_Writing, 1);
  const int result = WriteBytes(writer, m_BackBuffer, m_BackLength, counted, failed);
  (result == eResultSuccess ? m_Statistics.m_RecordsWritten : m_Statistics.m_RecordsDropped) +=
      m_BackRecords;
  if (result != eResultSuccess) m_LostBatch = m_HandedOver;
  RelaxedStore(m_BackLength, 0);
  m_BackRecords = 0;
  RelaxedStore(m_Writing, 0);
  if (result == eResultSuccess) {
    const uint32_t now = WallMilliseconds();
    RelaxedStore(m_LastFlushTime, now == 0 ? 1 : now);  // 0 means "never"
  }
  if (writer.m_CloseAfterWrite) CloseCurrent();
  return result;
}

// Turns the inner result of a full disk into the caller's, after the files have been cleared.
// Caller has let go of m_WriteMutex.
int COutput::ClearWhenFull(int result) {
  if (result != kDiskFull) return result;
  ClearFile();
  return eResultFailure;
}

int COutput::RotateWhenPending(const tagWriter& writer) {
  if (RelaxedLoad(m_RotatePending) == 0) return eResultSuccess;
  const CScopeLock bufferGuard(m_BufferMutex);
  const CScopeLock writeGuard(m_WriteMutex);
  if (RelaxedLoad(m_RotatePending) == 0 || RelaxedLoad(m_Ended) == eLifeEnded) {
    return eResultSuccess;
  }
  // The last batch of the old file still waits: it is written first.
  if (m_BackLength > 0 && m_HandedOver == m_RotateBatch) return eResultSuccess;
  RelaxedStore(m_RotatePending, 0);
  NoteFinished();
  CloseCurrent();
  return writer.m_Kind == tagWriter::eKind::kByTime ? RotatePendingByTime(writer)
                                                    : RotatePendingBySize();
}

// The next slot of the ring: its file is the oldest one. Whatever the count says, slots stay 0
// to 9.
void COutput::AdvanceSlot() {
  tagLimits limits;
  ReadLimits(limits);
  const int next = m_FileIndex + 1;
  const bool wraps = limits.m_LogMaxCount <= next || next >= kSlotCount;
  m_FileIndex = static_cast<int8_t>(wraps ? 0 : next);
}

// The current file is left for another one. Caller holds both mutexes.
void COutput::NoteFinished() {
  ++m_Statistics.m_Rotations;
  if (m_RotationCallback == nullptr || m_FileNames[m_FileIndex][0] == '\0') return;
  constexpr int kRoom = static_cast<int>(sizeof(m_Finished) / sizeof(m_Finished[0]));
  // The callback is told of the latest files when it is slower than the rotations.
  if (m_FinishedCount == kRoom) std::memmove(m_Finished[0], m_Finished[1], kFilePathBytes);
  const int last = m_FinishedCount < kRoom ? m_FinishedCount : kRoom - 1;
  if (SlotPath(m_Finished[last], LogPath(), m_FileNames[m_FileIndex])) {
    RelaxedStore(m_FinishedCount, last + 1);
  }
}

void COutput::CloseCurrent() {
  int32_t& own = m_FileFds[m_FileIndex];
  if (m_CurrentFd != own) CloseDescriptor(m_CurrentFd);
  m_CurrentFd = -1;
  CloseDescriptor(own);
}

// Gives the current slot a name of the ring's own. The index entry comes before the file: a process
// killed between the two leaves an entry without a file, not a file that nobody will ever remove.
void COutput::NameSlot(const char* name) {
  FreeSlot(m_FileIndex);
  char* own = m_FileNames[m_FileIndex];
  std::memcpy(own, name, ::strnlen(name, kOwnNameBytes));
  m_NewFileOpened = 1;
  char path[kFilePathBytes];
  if (JoinPath(path, LogPath(), own)) WriteFileName2Ini(m_FileIndex, path);
}

// Opens the current slot's file by its name. A failure leaves the name, so that the next call tries
// the same file again.
int COutput::OpenSlot(bool append) {
  const int slot = m_FileIndex;
  const char* name = m_FileNames[slot];
  const eOpenTrust trust = m_SlotRestored[slot] != 0 ? eOpenTrust::kAsStands : eOpenTrust::kOwnName;
  char path[kFilePathBytes];
  int fd = -1;
  if (*name == '\0') {
    errno = EISDIR;  // the bare folder
  } else if (!SlotPath(path, LogPath(), name)) {
    errno = ENAMETOOLONG;
  } else {
    fd = OpenLogFile(path, append ? eOpenMode::kAppend : eOpenMode::kOver, trust);
  }
  m_NewFileOpened = 0;
  if (fd == -1) {
    ++m_Statistics.m_OpenErrors;
    NoteError(errno);
    return eResultInvalid;
  }
  m_FileFds[slot] = fd;
  m_SlotOpened[slot] = 1;
  m_CurrentFd = fd;
  return eResultSuccess;
}

// Removes a slot's file and frees the slot. A file that this process opened stands under the log
// path or, where it is not found there, under its bare name; one that it did not open is removed
// under the name as it was restored. tryFolder: a bare name that is not found is looked for under
// the log path too, as is one that was restored without its folder. A path that was shortened is
// under the log path and nowhere else; a name that is a path of its own is nowhere else either.
void COutput::RemoveSlotFile(int slot, bool tryFolder) {
  const char* name = m_FileNames[slot];
  if (*name == '\0') return;  // a free slot: removing "" would cost a system call
  CloseDescriptor(m_FileFds[slot]);
  if (!IsSharedFile(slot)) {
    char joined[kFilePathBytes];
    const bool hasFolder = !IsPath(name) && JoinPath(joined, LogPath(), name);
    const bool shortened = m_SlotRestored[slot] == eRestoredShortened;
    const bool opened = m_SlotOpened[slot] != 0 || shortened;
    const bool folderToo =
        hasFolder && (opened || tryFolder || m_SlotRestored[slot] != eRestoredNot);
    int error = RemoveFile(opened && folderToo ? joined : name);
    if (error == ENOENT && folderToo && !shortened) error = RemoveFile(opened ? name : joined);
    if (error == 0) ++m_Statistics.m_FilesRemoved;
  }
  FreeSlot(slot);
}

// Two rotations within a second may give two slots the same file; it is removed with the newer one.
bool COutput::IsSharedFile(int slot) const {
  char path[kFilePathBytes];
  if (!SlotPath(path, LogPath(), m_FileNames[slot])) return false;
  for (int other = 0; other < kSlotCount; ++other) {
    char otherPath[kFilePathBytes];
    if (other != slot && m_FileNames[other][0] != '\0' &&
        SlotPath(otherPath, LogPath(), m_FileNames[other]) && std::strcmp(path, otherPath) == 0) {
      return true;
    }
  }
  return false;
}

void COutput::FreeSlot(int slot) {
  std::memset(m_FileNames[slot], 0, sizeof(m_FileNames[slot]));
  m_SlotOpened[slot] = 0;
  m_SlotRestored[slot] = 0;
  m_SlotUnsynced[slot] = 0;
}

}  // namespace Kelvik
