// What a program opts into: a policy for overflow, flush, statistics, the rotation callback, and
// saving the buffers in a crash.

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
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

namespace Kelvik {
namespace {

using CSteadyClock = std::chrono::steady_clock;

constexpr long kPollNs = 500000;   // between two looks at a lock or a batch
constexpr int kLockTries = 50;     // before the first pause, as other threads hold it but briefly
constexpr int kCrashPauseMs = 10;  // so long a crash lets other threads finish their records
constexpr int kCrashWaitPolls = 200;  // so many milliseconds more for a write on another thread

void PollPause() {
  const timespec pause = {0, kPollNs};
  ::nanosleep(&pause, nullptr);
}

// Takes the mutex unless the deadline passes first.
bool LockUntil(CMutex& mutex, CSteadyClock::time_point deadline) {
  for (int tries = 1; mutex.trylock() != eResultSuccess; ++tries) {
    if (CSteadyClock::now() >= deadline) return false;
    if (tries % kLockTries == 0) {
      PollPause();
    } else {
      ::sched_yield();
    }
  }
  return true;
}

// Async-signal-safe; an error ends it.
void WriteRaw(int fd, const char* data, int32_t length) {
  while (length > 0) {
    const ssize_t written = ::write(fd, data, static_cast<size_t>(length));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    data += written;
    length -= static_cast<int32_t>(written);
  }
}

}  // namespace

void COutput::GetStatistics(tagOutputStatistics& statistics) {
  const CScopeLock bufferGuard(m_BufferMutex);
  const CScopeLock writeGuard(m_WriteMutex);
  statistics = m_Statistics;
  const auto waiting = static_cast<uint32_t>(m_FrontLength);
  statistics.m_RecordsAccepted += m_Buffered.m_Records + m_FrontRecords;
  statistics.m_BytesAccepted += m_Buffered.m_Bytes + waiting;
  statistics.m_BufferHighWater = std::max(m_Buffered.m_HighWater, waiting);
  statistics.m_BelowLevel = RelaxedLoad(m_BelowLevel);
  statistics.m_Refused = RelaxedLoad(m_Refused);
  statistics.m_TerminalRecords = RelaxedLoad(m_TerminalRecords);
  statistics.m_SystemRecords = RelaxedLoad(m_SystemRecords);
}

int COutput::SetOverflow(eOverflowPolicy policy) {
  if (policy != eOverflowReplace && policy != eOverflowWrite) return eResultInvalid;
  RelaxedStore(m_Overflow, static_cast<int16_t>(policy));
  return eResultSuccess;
}

void COutput::SetRotationCallback(void (*callback)(const char* path, void* context),
                                  void* context) {
  const CScopeLock guard(m_WriteMutex);
  m_RotationCallback = callback;
  m_RotationContext = context;
}

// The records accepted so far stand in at most two batches: the one in the back buffer and the one
// that the front buffer will become. Both are watched until they are gone, while other threads may
// go on logging. Nothing is written here as long as there is a writer thread, so that a disk that
// hangs does not hang the caller.
int COutput::Flush(unsigned timeoutMs, bool toDisk) {
  const CNoCancel whole;  // what is looked at under locks, and the files that are to be synced
  const auto deadline = CSteadyClock::now() + std::chrono::milliseconds(timeoutMs);
  const tagWriter* failed = nullptr;
  uint32_t first = 0;
  uint32_t last = 0;
  uint64_t openErrors = 0;
  int result = eResultBusy;
  for (bool begun = false; result == eResultBusy; begun = true) {
    if (!LockUntil(m_BufferMutex, deadline)) return eResultBusy;
    if (!LockUntil(m_WriteMutex, deadline)) {
      m_BufferMutex.unlock();
      return eResultBusy;
    }
    if (!begun) {
      first = m_HandedOver;
      last = m_FrontLength > 0 ? first + 1 : first;
      openErrors = m_Statistics.m_OpenErrors;
      if (m_BackLength == 0) ++first;  // that batch is written or was given up before
    }
    const bool lost = m_LostBatch - first <= last - first && first - last != 1;
    const bool backIsFree = m_BackLength == 0;
    if (lost || m_Statistics.m_OpenErrors != openErrors) {
      result = eResultFailure;
    } else if (BatchIsGone(last)) {
      result = eResultSuccess;
    }
    m_WriteMutex.unlock();
    if (result == eResultBusy) {
      if (!m_Thread.IsRunning()) {
        const tagWriter* writer = ModeWriter();
        if (writer != nullptr) WriteWaiting(*writer, failed);
      } else if (backIsFree && m_HandedOver != last) {
        HandOver(failed);
      } else {
        WakeWriter();  // a file that could not be opened before
      }
    }
    m_BufferMutex.unlock();
    Settle(failed);
    failed = nullptr;
    if (result == eResultBusy) {
      if (CSteadyClock::now() >= deadline) return eResultBusy;
      PollPause();
    }
  }
  return result == eResultSuccess && toDisk ? SyncFiles() : result;
}

// Caller holds both mutexes.
bool COutput::BatchIsGone(uint32_t batch) const {
  const auto ahead = static_cast<int32_t>(m_HandedOver - batch);
  return ahead > 0 || (ahead == 0 && m_BackLength == 0);
}

// Syncs every file of the ring that has text since its last sync, without keeping writers out.
int COutput::SyncFiles() {
  int result = eResultSuccess;
  int32_t fds[kSlotCount];
  {
    const CScopeLock bufferGuard(m_BufferMutex);
    const CScopeLock writeGuard(m_WriteMutex);
    const char* folder = CGlobal::Instance()->GetAttribute()->m_LogPath;
    for (int slot = 0; slot < kSlotCount; ++slot) {
      fds[slot] = -1;
      if (m_SlotUnsynced[slot] == 0) continue;
      char path[kFilePathBytes];
      if (m_FileFds[slot] != -1) {
        fds[slot] = ::fcntl(m_FileFds[slot], F_DUPFD_CLOEXEC, 3);
      } else if (SlotPath(path, folder, m_FileNames[slot])) {
        fds[slot] = LiftDescriptor(
            ::open(path, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (fds[slot] == -1 && errno == ENOENT) {
          m_SlotUnsynced[slot] = 0;  // removed by someone else: there is nothing left to keep
          continue;
        }
      }
      if (fds[slot] == -1) {
        result = eResultFailure;  // the mark stays for the next flush
      } else {
        m_SlotUnsynced[slot] = 0;
      }
    }
  }
  for (int32_t& fd : fds) {
    // A special file has nothing to sync and says EINVAL.
    if (fd != -1 && ::fdatasync(fd) != 0 && errno != EINVAL) result = eResultFailure;
    CloseDescriptor(fd);
  }
  return result;
}

void COutput::KeepFileOpen() {
  RelaxedStore(m_FileKeptOpen, 1);
}

// No lock is taken, since the crash may have come while its own thread held them. Other threads'
// records are refused meanwhile, lest they overwrite what is being saved; those that are inside are
// given a moment to finish, and so is a write of the back buffer, which would be written twice.
void COutput::CrashWrite() {
  const int32_t life = RelaxedLoad(m_Ended);
  if (life == eLifeOpen) RelaxedStore(m_Ended, eLifeDraining);
  ::poll(nullptr, 0, kCrashPauseMs);
  for (int i = 0; i < kCrashWaitPolls && RelaxedLoad(m_Writing) != 0 &&
                  ::pthread_equal(m_WritingThread, ::pthread_self()) == 0;
       ++i)
    ::poll(nullptr, 0, 1);
  const int fd = RelaxedLoad(m_CurrentFd);
  if (fd != -1 && RelaxedLoad(CGlobal::Instance()->GetAttribute()->m_OutputFile) != 0) {
    const int32_t back = RelaxedLoad(m_BackLength);
    const int32_t front = RelaxedLoad(m_FrontLength);
    const char* backBuffer = RelaxedLoad(m_BackBuffer);
    const char* frontBuffer = RelaxedLoad(m_FrontBuffer);
    RelaxedStore(m_BackLength, 0);
    RelaxedStore(m_FrontLength, 0);
    if (backBuffer != nullptr) WriteRaw(fd, backBuffer, back);
    // In the middle of a hand-over both are the same text.
    const bool isSame = frontBuffer == backBuffer && back > 0;
    if (frontBuffer != nullptr && !isSame) WriteRaw(fd, frontBuffer, front);
  }
  if (life == eLifeOpen) RelaxedStore(m_Ended, life);  // the program may survive the signal
}

// What waits is written first: a parent that goes on to _exit(), as one that becomes a daemon does,
// would take it along. A failure is counted and keeps what WriteWaiting keeps.
void COutput::BeforeFork() {
  m_BufferMutex.lock();
  const tagWriter* writer = ModeWriter();
  if (writer != nullptr && RelaxedLoad(CGlobal::Instance()->GetAttribute()->m_OutputFile) != 0) {
    const tagWriter* failed = nullptr;
    WriteWaiting(*writer, failed);
  }
  m_WriteMutex.lock();
}

void COutput::AfterForkInParent() {
  m_WriteMutex.unlock();
  m_BufferMutex.unlock();
  WakeWantedWriter();
}

// The locks were held across the fork, so the members are whole.
void COutput::AfterForkInChild() {
  m_BufferMutex.AfterForkInChild();
  m_WriteMutex.AfterForkInChild();
  m_Signal.AfterForkInChild();
  m_StopSignal.AfterForkInChild();
  m_Focus.AfterForkInChild();
  if (g_WriterIsStarting || m_Thread.IsRunning()) m_WriterOnDemand = eOnDemandIdle;
  g_WriterIsStarting = false;
  m_Thread.AfterForkInChild();
  m_FrontLength = 0;
  m_FrontRecords = 0;
  m_BackLength = 0;
  m_BackRecords = 0;
  m_Stopping = 0;
  m_DiskFull = 0;  // the thread that was about to clear the files lives in the parent alone
  m_WakeWanted = 0;
  m_Writing = 0;
  m_FinishedCount = 0;
  m_Buffered = tagBufferedCounters();
  m_Statistics = tagOutputStatistics();
  m_BelowLevel = 0;
  m_Refused = 0;
  m_TerminalRecords = 0;
  m_SystemRecords = 0;
}

}  // namespace Kelvik
