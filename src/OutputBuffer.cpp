// The double buffer between the callers and the writer thread.
//
// A caller appends its record to the front buffer under m_BufferMutex (the usual record:
// OutputStore.cpp). When the buffer is full or due, the two buffers change places under
// m_WriteMutex (the hand-over) and the writer thread is woken, which writes the back buffer through
// the file writer of the current mode. A hand-over never waits for the writer to have written the
// batch before: what the back buffer still held is replaced. With eOverflowWrite that is written
// first, and in a flood (HandOverFull) the callers write their batches themselves.
//
// Records that no buffer can take (buffering off, a record longer than the buffer) are written by
// the caller itself, behind everything that was accepted before them.

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "Context.h"
#include "FileName.h"
#include "NoCancel.h"
#include "Output.h"
#include "OutputInternal.h"
#include "Relaxed.h"
#include "ScopeLock.h"
#include "TimeStamp.h"

namespace Kelvik {
namespace {

constexpr unsigned kForever = 0xFFFFFFFF;
constexpr uint32_t kQuickFillMs = 2;     // buffers that are full at shorter intervals make a flood
constexpr uint32_t kBurstMs = 5;         // what ends sooner is a burst
constexpr unsigned kIdlePauseMs = 1000;  // while file output is switched off
constexpr unsigned kFaultPauseMs = 100;  // when the wait itself fails
constexpr size_t kStampedBytes = 32;     // of m_NextFileName

// Ends a lock that was taken elsewhere, also when the thread is cancelled.
class CUnlockAtEnd {
 public:
  explicit CUnlockAtEnd(CMutex& mutex) : m_Mutex(mutex) {}
  CUnlockAtEnd(const CUnlockAtEnd&) = delete;
  CUnlockAtEnd& operator=(const CUnlockAtEnd&) = delete;
  ~CUnlockAtEnd() { m_Mutex.unlock(); }

 private:
  CMutex& m_Mutex;
};

uint32_t NonZero(uint32_t moment) {
  return moment == 0 ? 1 : moment;
}

}  // namespace

// Caller holds m_BufferMutex.
void COutput::ReadLimits(tagLimits& limits) const {
  const tagAttribute* global = Context()->GetAttribute();
  std::memcpy(&limits, reinterpret_cast<const char*>(global) + offsetof(tagAttribute, m_LogMaxSize),
              sizeof(limits));
}

// Caller holds m_BufferMutex, which is let go of here.
int COutput::StoreSlowly(const char* text, int length) {
  const tagWriter* failed = nullptr;
  int result = eResultSuccess;
  bool writesHere = false;
  {
    const CUnlockAtEnd unlock(m_BufferMutex);
    if (RelaxedLoad(m_Ended) != eLifeOpen) return eResultFailure;
    if (RelaxedLoad(m_BufferReset) == 1 || RelaxedLoad(m_DiskFull) == 1) {
      RelaxedAdd(m_Refused, 1);
      return eResultInvalid;
    }
    tagLimits limits;
    ReadLimits(limits);
    if (limits.m_LogMaxSize > 0) {
      result = StoreBySize(limits, text, length, failed);
    } else if (limits.m_LogMaxDuration >= 1) {
      result = StoreByTime(limits, text, length, failed);
    }
    writesHere = m_CallerWrites != 0;
    m_CallerWrites = 0;
  }
  if (writesHere) WriteHandedOver();
  Settle(failed);
  return result;
}

int COutput::StoreBySize(const tagLimits& limits, const char* text, int length,
                         const tagWriter*& failed) {
  RelaxedStore(m_SizeMode, 1);
  if (RelaxedLoad(m_TimeMode) != 0) {
    RelaxedStore(m_TimeMode, 0);
    m_FileStartTime = 0;
    if (m_FrontLength < 1) {
      WriteWaiting(kSizeWriter, failed);
      RequestRotation();
      return Write(kSizeWriter, text, length, failed);
    }
    HandOver(failed);
    RequestRotation();
    WakeWriter();
  }
  const auto size = static_cast<uint32_t>(limits.m_BufferSize);
  if (m_AllocatedSize != 0 && m_AllocatedSize != size) {
    if (RelaxedLoad(m_Overflow) == eOverflowWrite) WriteWaiting(kSizeWriter, failed);
    DropBuffers();
  }
  m_AllocatedSize = size;
  if (limits.m_BufferSize < kSmallestBuffer) {
    RelaxedStore(m_BufferReset, 0);
    WriteDirect(kSizeWriter, text, length, failed);
    return eResultSuccess;
  }
  return Append(kSizeWriter, limits, text, length, failed);
}

int COutput::StoreByTime(const tagLimits& limits, const char* text, int length,
                         const tagWriter*& failed) {
  RelaxedStore(m_TimeMode, 1);
  if (RelaxedLoad(m_SizeMode) != 0) {
    RelaxedStore(m_SizeMode, 0);
    StampNextFileName();  // no time writer runs without a name to open
    if (m_BackBuffer == nullptr) return WriteDirect(kTimeWriter, text, length, failed);
    HandOver(failed);
    RequestRotation();
    WakeWriter();
  }
  int32_t now = WallSeconds();
  if (now == 0) now = 1;  // 0 means "not yet"
  if (m_FileStartTime != 0) {
    const auto age =
        static_cast<int32_t>(static_cast<uint32_t>(now) - static_cast<uint32_t>(m_FileStartTime));
    if (age < 0) m_FileStartTime = now;  // the clock went back: the file's time begins anew
    if (age >= limits.m_LogMaxDuration) {
      return StoreAtTimeUp(limits, now, text, length, failed);
    }
  } else {
    m_FileStartTime = now;
    StampNextFileName();
    RelaxedStore(m_LastFlushTime, NonZero(WallMilliseconds()));
  }
  // Unlike rotation by size, a later change of the size does not exchange the buffers here.
  if (m_AllocatedSize == 0) m_AllocatedSize = static_cast<uint32_t>(limits.m_BufferSize);
  if (static_cast<int32_t>(m_AllocatedSize) < kSmallestBuffer) {
    return WriteDirect(kTimeWriter, text, length, failed);
  }
  return Append(kTimeWriter, limits, text, length, failed);
}

// The file's time is up: what waits goes to the old file, this record to the next one. A buffer
// without text rotates nothing and keeps the old start.
int COutput::StoreAtTimeUp(const tagLimits& limits, int32_t now, const char* text, int length,
                           const tagWriter*& failed) {
  if (limits.m_BufferSize == 0 || m_BackBuffer == nullptr) {
    WriteWaiting(kTimeWriter, failed);
    m_FileStartTime = now;
    StampNextFileName();
    RequestRotation();
    return Write(kTimeWriter, text, length, failed);
  }
  if (m_FrontLength > 0) {
    HandOver(failed);
    m_FileStartTime = now;
    StampNextFileName();
    RequestRotation();
    WakeWriter();
  }
  return Append(kTimeWriter, limits, text, length, failed);
}

// Asks for another file as soon as everything handed over so far has been written. Caller holds
// m_BufferMutex.
void COutput::RequestRotation() {
  m_RotateBatch = m_HandedOver;
  RelaxedStore(m_RotatePending, 1);
}

// Without memory the record is dropped and the caller told nothing: the statistics count it.
int COutput::Append(const tagWriter& writer, const tagLimits& limits, const char* text, int length,
                    const tagWriter*& failed) {
  const bool ready = m_FrontBuffer != nullptr || MakeBuffers(m_AllocatedSize);
  RelaxedStore(m_BufferReset, 0);
  const auto bytes = static_cast<uint32_t>(length);
  if (ready && bytes > m_BufferCapacity) return WriteDirect(writer, text, length, failed);
  if (!ready) {
    const CScopeLock guard(m_WriteMutex);
    CountDirect(length);
    ++m_Statistics.m_RecordsDropped;
    m_Statistics.m_BytesDropped += bytes;
    return eResultSuccess;
  }
  if (bytes + static_cast<uint32_t>(m_FrontLength) >= m_BufferCapacity) HandOverFull(failed);
  if (limits.m_WriteInterval >= kSmallestInterval) HandOverWhenDue(limits.m_WriteInterval, failed);
  std::memcpy(m_FrontBuffer + m_FrontLength, text, bytes);
  m_FrontLength += length;
  ++m_FrontRecords;
  // The first text in the buffer: a crash must find a file to save it to.
  if (RelaxedLoad(m_FileKeptOpen) != 0 && m_FrontLength == length) {
    const CNoCancel whole;
    if (LockFile(writer) == eResultSuccess) m_WriteMutex.unlock();
  }
  return eResultSuccess;
}

// Writes a record that is not buffered, behind what was accepted before it. Caller holds
// m_BufferMutex, so no other record comes in between.
int COutput::WriteDirect(const tagWriter& writer, const char* text, int length,
                         const tagWriter*& failed) {
  WriteWaiting(writer, failed);
  return Write(writer, text, length, failed);
}

// Writes what the back buffer and then the front buffer hold, both to the file that is current.
// Caller holds m_BufferMutex.
int COutput::WriteWaiting(const tagWriter& writer, const tagWriter*& failed) {
  int result = WriteBackFirst(writer, failed);
  if (result != eResultSuccess || m_FrontLength == 0) return result;
  HandOver(failed);
  return WriteBackFirst(writer, failed);
}

// Makes both buffers, unless they exist. Returns false, and leaves none, when memory runs out.
// Caller holds m_BufferMutex.
bool COutput::MakeBuffers(uint32_t size) {
  if (m_FrontBuffer != nullptr) return true;
  auto* back = static_cast<char*>(std::malloc(size));
  auto* front = static_cast<char*>(std::malloc(size));
  if (back == nullptr || front == nullptr) {
    std::free(back);
    std::free(front);
    return false;
  }
  const CScopeLock guard(m_WriteMutex);
  m_BackBuffer = back;
  RelaxedStore(m_BackLength, 0);
  m_FrontBuffer = front;
  m_FrontLength = 0;
  m_BufferCapacity = size < INT32_MAX ? size : INT32_MAX;
  return true;
}

// Drops both buffers with what they hold, since their size has changed. Caller holds m_BufferMutex.
void COutput::DropBuffers() {
  const CScopeLock guard(m_WriteMutex);
  RelaxedStore(m_BufferReset, 1);
  DropBack(true);
  m_Statistics.m_RecordsReplaced += m_FrontRecords;
  m_Statistics.m_BytesReplaced += static_cast<uint32_t>(m_FrontLength);
  EmptyFront();
  std::free(m_BackBuffer);
  std::free(m_FrontBuffer);
  m_BackBuffer = nullptr;
  m_FrontBuffer = nullptr;
  m_BufferCapacity = 0;
}

// Caller holds m_BufferMutex.
void COutput::HandOver(const tagWriter*& failed) {
  if (MoveToBack(failed)) WakeWriter();
}

// While callers fill buffer after buffer, none of which may be lost, they have to wait for each of
// them to be written. In such a flood the caller that filled it writes it, as soon as it holds no
// lock: that is cheaper than to wake the writer each time and to get the buffers' memory back from
// the writer's core. A burst is left to the writer, so that the caller need not wait for the disk.
// Caller holds m_BufferMutex.
void COutput::HandOverFull(const tagWriter*& failed) {
  if (!MoveToBack(failed)) return;
  const uint32_t now = WallMilliseconds();
  if (now - m_LastFillTime > kQuickFillMs) m_FloodTime = now;
  m_LastFillTime = now;
  if (now - m_FloodTime > kBurstMs && RelaxedLoad(m_Overflow) == eOverflowWrite) {
    m_CallerWrites = 1;
  } else {
    WakeWriter();
  }
}

// Moves the front buffer's content to the back buffer, in place of what that still holds
// (eOverflowWrite: after that has been written). An empty batch is none: it must not replace an
// unwritten one, and false is returned. Caller holds m_BufferMutex.
bool COutput::MoveToBack(const tagWriter*& failed) {
  const tagWriter* writer = ModeWriter();
  if (RelaxedLoad(m_Overflow) == eOverflowWrite && m_FrontLength > 0 && writer != nullptr) {
    WriteBackFirst(*writer, failed);  // on a full disk this clears the front buffer as well
  }
  if (m_FrontLength == 0) return false;
  tagLimits limits;
  ReadLimits(limits);
  m_WriteMutex.lockSpinning();
  const CUnlockAtEnd unlock(m_WriteMutex);
  DropBack(true);
  m_BatchSizeLimit = limits.m_LogMaxSize;
  ++m_HandedOver;
  ++m_Statistics.m_Batches;
  m_Statistics.m_BytesHandedOver += static_cast<uint32_t>(m_FrontLength);
  ExchangeBuffers();
  return true;
}

// Gives the back buffer, which is empty, the front buffer's content, in an order in which a crash
// may come at any step: what is in either buffer is then saved, never what is left of older text.
// Caller holds both mutexes.
void COutput::ExchangeBuffers() {
  char* const empty = m_BackBuffer;
  RelaxedStore(m_BackBuffer, m_FrontBuffer);
  OrderStores();
  RelaxedStore(m_BackLength, m_FrontLength);
  m_BackRecords = m_FrontRecords;
  OrderStores();
  EmptyFront();
  OrderStores();
  RelaxedStore(m_FrontBuffer, empty);
}

// Caller holds m_BufferMutex.
void COutput::EmptyFront() {
  const auto bytes = static_cast<uint32_t>(m_FrontLength);
  m_Buffered.m_Records += m_FrontRecords;
  m_Buffered.m_Bytes += bytes;
  if (bytes > m_Buffered.m_HighWater) m_Buffered.m_HighWater = bytes;
  m_FrontRecords = 0;
  RelaxedStore(m_FrontLength, 0);
}

void COutput::HandOverWhenDue(int32_t writeInterval, const tagWriter*& failed) {
  if (m_FrontLength == 0) return;
  const uint32_t last = RelaxedLoad(m_LastFlushTime);
  if (last != 0 && WallMilliseconds() - last >= static_cast<uint32_t>(writeInterval)) {
    HandOver(failed);
  }
}

// Forgets what the back buffer holds. Caller holds m_WriteMutex.
void COutput::DropBack(bool replaced) {
  const auto bytes = static_cast<uint32_t>(m_BackLength);
  (replaced ? m_Statistics.m_RecordsReplaced : m_Statistics.m_RecordsDropped) += m_BackRecords;
  (replaced ? m_Statistics.m_BytesReplaced : m_Statistics.m_BytesDropped) += bytes;
  if (m_BackLength > 0) m_LostBatch = m_HandedOver;
  RelaxedStore(m_BackLength, 0);
  m_BackRecords = 0;
}

// The writer needs the locks that its waker holds: it is woken when they are released (Settle).
// Caller holds m_BufferMutex.
void COutput::WakeWriter() {
  if (RelaxedLoad(m_WriterOnDemand) == eOnDemandIdle) {
    RelaxedStore(m_WriterOnDemand, eOnDemandWanted);
  }
  ReleaseStore(m_WakeWanted, 1);
}

// Exchanged in one step: who takes back another thread's wish has seen that thread's hand-over, and
// so has the writer that it wakes.
void COutput::WakeWantedWriter() {
  if (RelaxedLoad(m_WakeWanted) == 0) return;
  if (__atomic_exchange_n(&m_WakeWanted, int16_t{0}, __ATOMIC_ACQ_REL) != 0) m_Signal.signal();
}

// Starts the writer of a forked child, once. No lock is held: a failure is reported.
void COutput::StartWantedWriter() {
  {
    const CScopeLock guard(m_BufferMutex);
    if (m_WriterOnDemand != eOnDemandWanted || RelaxedLoad(m_Ended) != eLifeOpen) return;
    RelaxedStore(m_WriterOnDemand, eOnDemandNo);
  }
  m_Thread.Create(this);
}

void COutput::StampNextFileName() {
  tagTimeStamp stamp;
  TakeTimeStamp(stamp);  // a time that cannot be had stamps zeros
  char name[kFileNameBytes];
  MakeFileName(name, stamp.m_Time);
  std::memset(m_NextFileName, 0, sizeof(m_NextFileName));
  std::memcpy(m_NextFileName, name, ::strnlen(name, kStampedBytes));
}

const tagWriter* COutput::ModeWriter() const {
  if (RelaxedLoad(m_SizeMode) != 0) return &kSizeWriter;
  return RelaxedLoad(m_TimeMode) != 0 ? &kTimeWriter : nullptr;
}

int COutput::WriteBuffer2File() {
  const tagWriter* failed = nullptr;
  {
    const CScopeLock guard(m_BufferMutex);
    if (m_BackBuffer != nullptr && m_FrontLength != 0) HandOver(failed);
  }
  Settle(failed);
  return eResultSuccess;
}

int COutput::Losslog() {
  const CScopeLock guard(m_WriteMutex);
  DropBack(false);
  return eResultSuccess;
}

int COutput::SetParam(const char* module, int moduleLength, const char* title, int titleLength,
                      int value) {
  if (module == nullptr || *module == '\0' || moduleLength == 0 || title == nullptr ||
      *title == '\0' || titleLength == 0) {
    return eResultInvalid;
  }
  Context()->GetModuleState().Set(module, title, value);
  return eResultSuccess;
}

unsigned COutput::GetTickCount() {
  return WallMilliseconds();
}

bool COutput::IsStopping() const {
  return RelaxedLoad(m_Stopping) != 0 || (m_Thread.IsCurrent() && !m_Thread.KeepsRunning());
}

bool COutput::HasWork() {
  return RelaxedLoad(m_BackLength) > 0 || RelaxedLoad(m_RotatePending) != 0;
}

int COutput::RunTask() {
  while (!IsStopping()) {
    const int waited = m_Signal.wait(kForever);
    if (IsStopping()) break;
    if (waited != eResultSuccess) {
      // Without its signal the writer looks for work by itself.
      m_StopSignal.wait(kFaultPauseMs);
      if (IsStopping()) break;
    }
    if (RelaxedLoad(Context()->GetAttribute()->m_OutputFile) == 0) {
      Losslog();
      m_StopSignal.wait(kIdlePauseMs);
      continue;
    }
    WriteHandedOver();
  }
  return 1;
}

// Caller holds no lock.
void COutput::WriteHandedOver() {
  if (!HasWork()) return;  // another thread has written the batch already
  const tagWriter* writer = ModeWriter();
  if (writer == nullptr) {
    Losslog();
  } else {
    const tagWriter* failed = nullptr;
    WriteBackFirst(*writer, failed);
    Settle(failed);
  }
}

}  // namespace Kelvik
