// Rotation by time: the buffered file step decides when a file's time is up and stamps the next
// file's name; this writer opens it.
//
// All of it runs under both mutexes of the engine. m_FileSize decides nothing here.

#include <cstring>

#include "FileName.h"
#include "Output.h"
#include "OutputInternal.h"
#include "Relaxed.h"

namespace Kelvik {

// Opens the current slot's file when it is closed. A slot whose file was named by this process and
// never opened takes the latest stamp in its place, so that a folder that is away for long does not
// cost the ring one file after the other; any other name than the stamped one (a restored path, a
// file of the size writer) belongs to an older file, and the ring moves on.
int COutput::PrepareByTime() {
  if (m_FileFds[m_FileIndex] != -1) return eResultSuccess;
  if (m_NextFileName[0] == '\0') StampNextFileName();  // a direct call, before any record
  const char* name = m_FileNames[m_FileIndex];
  if (std::strcmp(name, m_NextFileName) == 0) return OpenSlot(true);
  const bool isFree = *name == '\0';
  const bool neverOpened = m_SlotOpened[m_FileIndex] == 0 && m_SlotRestored[m_FileIndex] == 0;
  if (!isFree && !neverOpened) {
    NoteFinished();
    CloseCurrent();
    AdvanceSlot();
    m_SlotOpened[m_FileIndex] = 1;  // looked for under the log path first, then under its name
    RemoveSlotFile(m_FileIndex, true);
  }
  NameSlot(m_NextFileName);
  // This is the file that a waiting rotation would move to: moving there once more would overwrite
  // the batch that is about to be written.
  RelaxedStore(m_RotatePending, 0);
  return OpenSlot(!isFree);
}

int COutput::RotatePendingByTime(const tagWriter& writer) {
  AdvanceSlot();
  RemoveSlotFile(m_FileIndex, writer.m_CloseAfterWrite);
  NameSlot(m_NextFileName);
  const int result = OpenSlot(writer.m_CloseAfterWrite);
  if (result == eResultSuccess && writer.m_CloseAfterWrite) CloseCurrent();
  return result;
}

}  // namespace Kelvik
