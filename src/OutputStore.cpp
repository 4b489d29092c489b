// The file step of the usual record: appended to the front buffer with other records. All that a
// record may ask for besides stands in OutputBuffer.cpp, which is built for size.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Context.h"
#include "CopyBytes.h"
#include "Output.h"
#include "OutputInternal.h"
#include "Prefetch.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

// The front buffer was the back buffer before: its cache lines are with the core on which the
// writer read them. A line that is asked for two records ahead is here when its turn comes.
constexpr uintptr_t kBytesAhead = 256;
constexpr uintptr_t kCacheLine = 64;

// A word of the packed settings, as a signed number.
inline int32_t LimitWord(const tagAttribute& attribute, size_t offset) {
  return LoadUnaligned<int32_t>(reinterpret_cast<const char*>(&attribute) + offset);
}

}  // namespace

int COutput::StoreRecord(const char* text, int length) {
  if (RelaxedLoad(m_BufferReset) == 1 || RelaxedLoad(m_DiskFull) == 1) {
    RelaxedAdd(m_Refused, 1);
    return eResultInvalid;
  }
  m_BufferMutex.lockSpinning();
  if (!AppendQuickly(text, static_cast<uint32_t>(length))) return StoreSlowly(text, length);
  m_BufferMutex.unlock();
  return eResultSuccess;
}

// What nearly every record needs: rotation by size as before, the buffers as they were, room for
// the text behind other text, no interval. Returns false, having done nothing, when a record asks
// for anything else. Caller holds m_BufferMutex.
inline bool COutput::AppendQuickly(const char* text, uint32_t bytes) {
  const tagAttribute& global = *Context()->GetAttribute();
  const int32_t size = LimitWord(global, offsetof(tagAttribute, m_BufferSize));
  const auto front = static_cast<uint32_t>(m_FrontLength);
  const bool steady =
      LimitWord(global, offsetof(tagAttribute, m_LogMaxSize)) > 0 && RelaxedLoad(m_SizeMode) == 1 &&
      RelaxedLoad(m_TimeMode) == 0 && m_AllocatedSize == static_cast<uint32_t>(size) &&
      size >= kSmallestBuffer &&
      LimitWord(global, offsetof(tagAttribute, m_WriteInterval)) < kSmallestInterval &&
      RelaxedLoad(m_Ended) == eLifeOpen && RelaxedLoad(m_BufferReset) != 1 &&
      RelaxedLoad(m_DiskFull) != 1;
  // Without buffers the front length is 0.
  if (!steady || front == 0 || bytes + front >= m_BufferCapacity) return false;
  char* const end = m_FrontBuffer + front;
  PrefetchForWrite(end, kBytesAhead);
  PrefetchForWrite(end, kBytesAhead + kCacheLine);
  std::memcpy(end, text, bytes);
  m_FrontLength = static_cast<int32_t>(front + bytes);
  ++m_FrontRecords;
  return true;
}

}  // namespace Kelvik
