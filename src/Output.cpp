// Life of the output engine: construction, start, stop, and the two ways it ends.
//
// Destroy takes the engine apart, which needs that nobody is inside. Finish is for the end of the
// process, where nobody can promise that: it closes the door (m_Ended), waits for whoever holds the
// locks, writes what is left, and leaves mutexes and memory to the kernel.

#include "Output.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "FileIo.h"
#include "Global.h"
#include "OutputInternal.h"
#include "Relaxed.h"
#include "ScopeLock.h"

namespace Kelvik {
namespace {

// One more for a scope, also when the thread is cancelled in it.
class CCounted {
 public:
  explicit CCounted(int32_t& count) : m_Count(count) {
    __atomic_fetch_add(&m_Count, 1, __ATOMIC_RELAXED);
  }
  CCounted(const CCounted&) = delete;
  CCounted& operator=(const CCounted&) = delete;
  ~CCounted() { __atomic_fetch_sub(&m_Count, 1, __ATOMIC_RELAXED); }

 private:
  int32_t& m_Count;
};

constexpr int32_t kLargestStartBuffer = 5242880;  // bytes
constexpr uint32_t kFallbackBuffer = 65536;       // bytes

}  // namespace

bool g_WriterIsStarting = false;

COutput::COutput() : m_Thread("Kelvik::COutput") {
  Initialize();
}

COutput::~COutput() {
  Destroy();
  // What Destroy leaves open by its contract would leak with the object.
  CloseDescriptor(m_CurrentFd);
  std::free(m_BackBuffer);
  std::free(m_FrontBuffer);
}

int COutput::Initialize() {
  m_CurrentFd = -1;
  for (int32_t& fd : m_FileFds)
    fd = -1;
  m_FileSize = 0;
  m_FileIndex = 0;
  m_TerminalFlag = 1;
  std::memset(m_FileNames, 0, sizeof(m_FileNames));
  std::memset(m_SlotOpened, 0, sizeof(m_SlotOpened));
  std::memset(m_SlotRestored, 0, sizeof(m_SlotRestored));
  if (m_BufferMutex.create() != eResultSuccess) return eResultFailure;
  m_SizeMode = 0;
  m_TimeMode = 0;
  m_FileStartTime = 0;
  m_FrontLength = 0;
  m_BackLength = 0;
  m_FrontRecords = 0;
  m_BackRecords = 0;
  m_NewFileOpened = 0;
  if (m_WriteMutex.create() != eResultSuccess) {
    m_BufferMutex.destroy();
    return eResultFailure;
  }
  if (m_Signal.create() != eResultSuccess || m_StopSignal.create() != eResultSuccess) {
    m_Signal.destroy();
    m_WriteMutex.destroy();
    m_BufferMutex.destroy();
    return eResultFailure;
  }
  m_RotatePending = 0;
  std::memset(m_NextFileName, 0, sizeof(m_NextFileName));
  m_TerminalFd = -1;
  m_AllocatedSize = 0;
  m_BufferCapacity = 0;
  m_BackBuffer = nullptr;
  m_FrontBuffer = nullptr;
  m_LastFlushTime = 0;
  m_BufferReset = 0;
  m_DiskFull = 0;
  m_Stopping = 0;
  m_Ended = eLifeOpen;
  m_Overflow = eOverflowReplace;
  m_FileKeptOpen = 0;
  m_WakeWanted = 0;
  m_LastFillTime = 0;
  m_FloodTime = 0;
  m_CallerWrites = 0;
  m_WriterOnDemand = eOnDemandNo;
  m_HandedOver = 0;
  m_BatchSizeLimit = 0;
  m_LostBatch = 0;
  m_RotateBatch = 0;
  m_Writing = 0;
  m_WritingThread = pthread_t();
  m_RotationCallback = nullptr;
  m_RotationContext = nullptr;
  m_FinishedCount = 0;
  std::memset(m_SlotUnsynced, 0, sizeof(m_SlotUnsynced));
  m_Buffered = tagBufferedCounters();
  m_Statistics = tagOutputStatistics();
  m_BelowLevel = 0;
  m_Refused = 0;
  m_TerminalRecords = 0;
  m_SystemRecords = 0;
  m_Focus.Clear();
  // As GetConsolePath, but without the stream's lock: nobody else knows the engine yet, and whoever
  // has the stream may wait for the context that this makes.
  if (::ttyname_r(STDIN_FILENO, m_ConsolePath, sizeof(m_ConsolePath)) != 0) {
    m_ConsolePath[0] = '\0';
  }
  return eResultSuccess;
}

int COutput::Start() {
  {
    const CScopeLock bufferGuard(m_BufferMutex);
    tagLimits limits;
    ReadLimits(limits);
    if (limits.m_BufferSize != 0) {
      const bool fits =
          limits.m_BufferSize >= kSmallestBuffer && limits.m_BufferSize <= kLargestStartBuffer;
      if (!MakeBuffers(fits ? static_cast<uint32_t>(limits.m_BufferSize) : kFallbackBuffer)) {
        return eResultFailure;
      }
    }
    RelaxedStore(m_WriterOnDemand, eOnDemandNo);  // a forked child's starts here
  }
  m_StopSignal.create();  // takes back what an earlier Stop left pending
  m_Thread.Create(this);
  return eResultSuccess;
}

int COutput::Stop() {
  // Before the wake-up, so that a writer that wakes does not wait again; and counted, so that one
  // that another thread starts meanwhile does not wait at all: the wake-up is not meant for it.
  const CCounted stopping(m_Stopping);
  m_Signal.signal();
  m_StopSignal.signal();
  m_Thread.Destroy();
  return eResultSuccess;
}

int COutput::Destroy() {
  Stop();
  std::fflush(stdout);
  // A descriptor that the ring still calls current is closed with its slot, not twice.
  for (int slot = 0; slot < 2; ++slot) {
    if (m_FileFds[slot] != -1 && m_CurrentFd == m_FileFds[slot]) m_CurrentFd = -1;
    CloseDescriptor(m_FileFds[slot]);
  }
  CloseDescriptor(m_TerminalFd);
  m_BufferMutex.destroy();
  m_WriteMutex.destroy();
  m_Signal.destroy();
  m_StopSignal.destroy();
  return eResultSuccess;
}

int COutput::Finish() {
  {
    const CScopeLock bufferGuard(m_BufferMutex);
    RelaxedStore(m_Ended, eLifeDraining);
  }
  Stop();
  std::fflush(stdout);
  const tagWriter* failed = nullptr;
  {
    const CScopeLock bufferGuard(m_BufferMutex);
    const tagWriter* writer = ModeWriter();
    const bool fileOutput = RelaxedLoad(CGlobal::Instance()->GetAttribute()->m_OutputFile) != 0;
    if (fileOutput && writer != nullptr) WriteWaiting(*writer, failed);
    const CScopeLock writeGuard(m_WriteMutex);
    CloseCurrent();
    RelaxedStore(m_Ended, eLifeEnded);
  }
  Settle(failed);
  CloseDescriptor(m_TerminalFd);
  return eResultSuccess;
}

}  // namespace Kelvik
