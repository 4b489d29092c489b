// Rotation by size: before a write, a file past the limit gives way to the next slot of the ring.
//
// All of it runs under both mutexes of the engine.

#include "FileName.h"
#include "Output.h"
#include "OutputInternal.h"
#include "Relaxed.h"
#include "TimeStamp.h"

namespace Kelvik {

// The limit is tested before the write, so a file exceeds it by up to one batch.
int COutput::PrepareBySize(const tagWriter& writer) {
  tagLimits limits;
  ReadLimits(limits);
  if (limits.m_LogMaxSize < m_FileSize) {
    const int result = RotateBySize(writer);
    if (result != eResultSuccess) return result;
  }
  if (m_FileFds[m_FileIndex] != -1) return eResultSuccess;
  if (m_FileNames[m_FileIndex][0] == '\0') {
    NameSlotByClock(true);
    m_FileSize = 0;
    // A waiting rotation has its new file; within this second it would only overwrite it.
    RelaxedStore(m_RotatePending, 0);
  }
  return OpenSlot(true);
}

// Moves to the next slot and frees it of its file. A slot whose file this process opened gets its
// new file at once, any other one with the open test that follows. A new name starts with size 0
// even if its file cannot be opened: the next call then tries the same slot again and removes
// nothing further.
int COutput::RotateBySize(const tagWriter& writer) {
  NoteFinished();
  CloseCurrent();
  AdvanceSlot();
  const bool opened = m_SlotOpened[m_FileIndex] != 0;
  RemoveSlotFile(m_FileIndex, writer.m_CloseAfterWrite);
  if (!opened) return eResultSuccess;
  NameSlotByClock(true);
  m_FileSize = 0;
  return OpenSlot(false);
}

// After a switch of the mode: the batch that waited has been written to the old file.
int COutput::RotatePendingBySize() {
  AdvanceSlot();
  RemoveSlotFile(m_FileIndex, false);
  NameSlotByClock(false);
  m_FileSize = 0;
  return OpenSlot(false);
}

// Names the current slot by the current time. unique: when another slot has that name already, a
// restored path included, the slot number tells the two apart, so that no two rotations within a
// second share a file. The current slot's former name does not count.
void COutput::NameSlotByClock(bool unique) {
  tagTimeStamp stamp;
  TakeTimeStamp(stamp);  // a time that cannot be had names a file of zeros
  char name[kFileNameBytes];
  MakeFileName(name, stamp.m_Time);
  if (unique) {
    for (int slot = 0; slot < kSlotCount; ++slot) {
      if (slot != m_FileIndex && EndsInName(m_FileNames[slot], name)) {
        MakeNumberedFileName(name, stamp.m_Time, m_FileIndex);
        break;
      }
    }
  }
  NameSlot(name);
}

}  // namespace Kelvik
