// The index of the log files in the configuration file, and clearing the ring.

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ConfigEdit.h"
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

constexpr char kIndexSection[] = "fileName";
constexpr char kGlobalSection[] = "Global";
constexpr char kIndexKey[] = "LogIndex";
constexpr size_t kKeyBytes = 24;
constexpr size_t kShortestPath = 19;  // characters; a shorter name stands under the log path
constexpr char kHere[] = "./";

void MakeSlotKey(char (&key)[kKeyBytes], int slot) {
  std::snprintf(key, sizeof(key), "fileName_%d", slot);
}

}  // namespace

int COutput::WriteFileName2Ini(int slot, const char* path) {
  if (path == nullptr) return eResultInvalid;
  CGlobal* global = CGlobal::Instance();
  if (*global->ConfigFilePath() == '\0') return eResultSuccess;
  EditConfigFile(*global, [slot, path](xini_file_t& document) {
    char key[kKeyBytes];
    MakeSlotKey(key, slot);
    SetText(FindSection(document, kIndexSection), key, path);
    SetNumber(FindSection(document, kGlobalSection), kIndexKey, slot);
  });
  return eResultSuccess;
}

int COutput::ClearFileInfo() {
  CGlobal* global = CGlobal::Instance();
  const CNoCancel whole;
  const CScopeLock bufferGuard(m_BufferMutex);
  const CScopeLock writeGuard(m_WriteMutex);
  tagLimits limits;
  ReadLimits(limits);
  const int count = limits.m_LogMaxCount < kSlotCount ? limits.m_LogMaxCount : kSlotCount;
  CloseCurrent();
  for (int slot = 0; slot < count; ++slot)
    RemoveSlotFile(slot, false);
  DropBack(false);
  m_Statistics.m_RecordsDropped += m_FrontRecords;
  m_Statistics.m_BytesDropped += static_cast<uint32_t>(m_FrontLength);
  EmptyFront();
  m_FileSize = 0;
  m_FileIndex = 0;
  if (*global->ConfigFilePath() == '\0') return eResultSuccess;
  EditConfigFile(*global, [count](xini_file_t& document) {
    for (int slot = 0; slot < count; ++slot) {
      char key[kKeyBytes];
      MakeSlotKey(key, slot);
      FindSection(document, kIndexSection).key_remove(key);
    }
    FindSection(document, kGlobalSection).key_remove(kIndexKey);
  });
  return eResultSuccess;
}

int COutput::ClearFile() {
  CGlobal* global = CGlobal::Instance();
  ClearFileInfo();
  tagLimits limits;
  {
    const CScopeLock guard(m_BufferMutex);
    ReadLimits(limits);
  }
  if (limits.m_LogMaxCount >= 2) global->SetMaxLogCount(limits.m_LogMaxCount - 1);
  RelaxedStore(m_DiskFull, 0);
  return eResultSuccess;
}

int COutput::SetLogName(int slot, const char* name) {
  if (slot < 0 || slot >= kSlotCount || name == nullptr || *name == '\0') return eResultSuccess;
  const CScopeLock bufferGuard(m_BufferMutex);
  const CScopeLock writeGuard(m_WriteMutex);
  const char* kept = name;
  size_t lead = 0;
  const size_t length = std::strlen(name);
  // A path of the working folder is not to be looked for under the log path.
  const bool isHere = length >= kShortestPath && !IsPath(name);
  if (length >= kSlotNameBytes || isHere) {
    const char* folder = CGlobal::Instance()->GetAttribute()->m_LogPath;
    const size_t folderLength = ::strnlen(folder, kLogPathBytes);
    if (length >= folderLength && std::memcmp(name, folder, folderLength) == 0) {
      kept = name + folderLength;
      if (*kept == '\0' || IsPath(kept)) return eResultSuccess;
    } else if (isHere) {
      lead = sizeof(kHere) - 1;
    }
  }
  const size_t keptLength = std::strlen(kept);
  if (lead + keptLength >= kSlotNameBytes) return eResultSuccess;
  FreeSlot(slot);
  std::memcpy(m_FileNames[slot], kHere, lead);
  std::memcpy(m_FileNames[slot] + lead, kept, keptLength);
  m_SlotRestored[slot] = kept == name ? eRestoredWhole : eRestoredShortened;
  return eResultSuccess;
}

int COutput::SetCurrentFileInfo(int slot, int size) {
  if (slot < 0 || slot >= kSlotCount) return eResultSuccess;
  const CScopeLock bufferGuard(m_BufferMutex);
  const CScopeLock writeGuard(m_WriteMutex);
  if (slot != m_FileIndex) CloseCurrent();
  m_FileIndex = static_cast<int8_t>(slot);
  tagLimits limits;
  ReadLimits(limits);
  if (limits.m_LogMaxSize >= 1 && m_FileNames[slot][0] != '\0') m_FileSize = size;
  return eResultSuccess;
}

int COutput::CloseFile() {
  const CScopeLock bufferGuard(m_BufferMutex);
  const CScopeLock writeGuard(m_WriteMutex);
  CloseCurrent();
  return eResultSuccess;
}

}  // namespace Kelvik
