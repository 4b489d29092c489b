// The files of raw records: they alternate between the first two slots of the ring, whatever the
// count says, under the names that the ring gave them; no new name and no index entry is made.
//
// All of it runs under both mutexes of the engine.

#include "FileIo.h"
#include "FileName.h"
#include "Global.h"
#include "Output.h"
#include "OutputInternal.h"

namespace Kelvik {

// A slot that the ring has not named yet has no file to open: the record is refused.
int COutput::PrepareRaw() {
  tagLimits limits;
  ReadLimits(limits);
  if (limits.m_LogMaxSize < m_FileSize) {
    NoteFinished();
    CloseCurrent();
    m_FileIndex = static_cast<int8_t>((m_FileIndex + 1) % 2);
    if (m_SlotOpened[m_FileIndex] != 0) {
      char path[kFilePathBytes];
      const char* name = m_FileNames[m_FileIndex];
      if (SlotPath(path, CGlobal::Instance()->GetAttribute()->m_LogPath, name) &&
          RemoveFile(path) == 0) {
        ++m_Statistics.m_FilesRemoved;
      }
      const int result = OpenSlot(false);
      if (result != eResultSuccess) return result;
      m_FileSize = 0;
    }
  }
  return m_FileFds[m_FileIndex] != -1 ? static_cast<int>(eResultSuccess) : OpenSlot(false);
}

}  // namespace Kelvik
