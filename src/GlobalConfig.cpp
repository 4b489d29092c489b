// The configuration file: settings and file index read at start, settings saved on request.
//
// Each operation loads the file anew and holds m_ConfigMutex from load to save. Under that lock
// only the document is touched: the path and the words of the settings are copied before, what was
// read is applied after, and nothing is printed.
//
// Reads go through the indexing operations of the document, which make the key that they do not
// find; so a saved file lists every key, with an empty value where nobody has set one.

#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "ConfigEdit.h"
#include "Context.h"
#include "Global.h"
#include "IniFile.h"
#include "Kelvik.h"
#include "KelvikExtra.h"
#include "OutputInternal.h"
#include "Relaxed.h"
#include "TextMatch.h"

namespace Kelvik {
namespace {

constexpr char kVersionText[] = "[libkelvik.so(a) V1.2.0.19180 Build 20241104]";
constexpr char kGlobalSection[] = "Global";
constexpr char kFileSection[] = "fileName";
constexpr char kEverything[] = "All";

constexpr int kKeep = -1;  // no key, no number, or this very number: the setting stays as it is

struct tagSwitchKey {
  const char* m_Key;
  uint8_t tagAttribute::*m_Field;
};

constexpr tagSwitchKey kSwitches[] = {
    {"OutputConsole", &tagAttribute::m_OutputConsole},
    {"OutputSystem", &tagAttribute::m_OutputSystem},
    {"OutputFile", &tagAttribute::m_OutputFile},
};
constexpr size_t kSwitchCount = sizeof(kSwitches) / sizeof(kSwitches[0]);

struct tagLevelKey {
  const char* m_Key;
  eLogLevel m_Level;
};

constexpr tagLevelKey kLevels[] = {
    {"LevelInfo", eLogLevelInfo},   {"LevelDbg", eLogLevelDebug},   {"LevelError", eLogLevelError},
    {"LevelWar", eLogLevelWarning}, {"LevelFatal", eLogLevelFatal},
};
constexpr size_t kLevelCount = sizeof(kLevels) / sizeof(kLevels[0]);

// A limit of the file.
struct tagWordKey {
  const char* m_ReadKey;  // the two spellings name the same key; a new one gets the spelling used
  const char* m_WriteKey;
  size_t m_Offset;   // of the field in tagAttribute
  uint32_t m_Scale;  // units of the field in one of the file
};

constexpr tagWordKey kWords[] = {
    {"logMaxSize", "LogMaxSize", offsetof(tagAttribute, m_LogMaxSize), 1024},
    {"logMaxDuration", "LogMaxDuration", offsetof(tagAttribute, m_LogMaxDuration), 1},
    {"logMaxCount", "LogMaxCount", offsetof(tagAttribute, m_LogMaxCount), 1},
    {"bufferSize", "bufferSize", offsetof(tagAttribute, m_BufferSize), 1024},
    {"writeInterval", "writeInterval", offsetof(tagAttribute, m_WriteInterval), 1},
};
constexpr size_t kWordCount = sizeof(kWords) / sizeof(kWords[0]);
constexpr size_t kCountWord = 2;
constexpr size_t kBufferWord = 3;  // LogFilePath is written before it
constexpr size_t kIntervalWord = 4;

// The number of a word to store, in the file's units, or kKeep.
int TakeWord(size_t word, int value) {
  switch (word) {
    case kCountWord:
      return value > kSlotCount ? kSlotCount : value;
    case kBufferWord:
      return value >= 1 && value <= 1024 ? value : kKeep;
    case kIntervalWord:
      return value == 0 || value >= 200 ? value : kKeep;
    default:
      return value;
  }
}

// Not listed in a file: it is read where somebody has set it, and never added.
constexpr char kOverflowKey[] = "Overflow";

struct tagOverflowName {
  const char* m_Name;
  eOverflowPolicy m_Policy;
};

constexpr tagOverflowName kOverflows[] = {{"replace", eOverflowReplace}, {"write", eOverflowWrite}};

// What the file says; kKeep or an empty text where it says nothing.
struct tagFileSettings {
  int m_Switches[kSwitchCount];
  int m_Words[kWordCount];  // in the file's units
  int m_Levels[kLevelCount];
  int m_LogIndex;
  int m_Overflow;       // eOverflowPolicy
  int m_Slots;          // of the ring: so many names are read
  std::string m_Texts;  // the log path and the names of the ring's files, each with its NUL
};

// One caller of ConfigFileInitialize reads at a time; the next one waits until the settings are in
// place, but not in a child made by fork() for one that lives in the parent alone.
pthread_mutex_t s_InitializeMutex = PTHREAD_MUTEX_INITIALIZER;

class CInitializeGuard {
 public:
  CInitializeGuard() { ::pthread_mutex_lock(&s_InitializeMutex); }
  ~CInitializeGuard() { ::pthread_mutex_unlock(&s_InitializeMutex); }
  CInitializeGuard(const CInitializeGuard&) = delete;
  CInitializeGuard& operator=(const CInitializeGuard&) = delete;
};

uint8_t LevelBit(eLogLevel level) {
  return static_cast<uint8_t>(1U << level);
}

void ApplySwitches(tagAttribute& attribute, const int (&switches)[kSwitchCount]) {
  for (size_t i = 0; i < kSwitchCount; ++i) {
    if (switches[i] == kKeep) continue;
    RelaxedStore(attribute.*kSwitches[i].m_Field, switches[i] == 1 ? 1 : 0);
  }
}

void ApplyLevels(uint8_t& mask, const int (&levels)[kLevelCount]) {
  for (size_t i = 0; i < kLevelCount; ++i) {
    if (levels[i] == kKeep) continue;
    const uint8_t bit = LevelBit(kLevels[i].m_Level);
    if (levels[i] == 1) {
      RelaxedOr(mask, bit);
    } else {
      RelaxedAnd(mask, static_cast<uint8_t>(~bit));
    }
  }
}

// A text with a NUL inside comes from a damaged file; what stands before it would be another path.
void ReadText(xini_section_t& section, const char* key, std::string& texts) {
  const std::string_view text = section[key].value();
  if (text.find('\0') == std::string_view::npos) texts.append(text);
  texts += '\0';
}

// The policy's name in any case; any other text says nothing.
int ReadOverflow(const xini_file_t& document) {
  const xini_section_t* global = document.find_sect(kGlobalSection);
  const xini_keyvalue_t* key = global == nullptr ? nullptr : global->find_knode(kOverflowKey);
  if (key == nullptr) return kKeep;
  for (const tagOverflowName& overflow : kOverflows) {
    const char* value = key->value().c_str();
    if (ContainsIgnoreCase(value, overflow.m_Name) && ContainsIgnoreCase(overflow.m_Name, value)) {
      return overflow.m_Policy;
    }
  }
  return kKeep;
}

// count: the files kept when the file does not say.
void ReadSettings(xini_file_t& document, int count, tagFileSettings& settings) {
  xini_section_t& global = FindSection(document, kGlobalSection);
  SetText(global, "Version", kVersionText);
  for (size_t i = 0; i < kSwitchCount; ++i) {
    settings.m_Switches[i] = GetNumber(global, kSwitches[i].m_Key);
  }
  for (size_t i = 0; i < kWordCount; ++i) {
    settings.m_Words[i] = TakeWord(i, GetNumber(global, kWords[i].m_ReadKey));
  }
  for (size_t i = 0; i < kLevelCount; ++i) {
    settings.m_Levels[i] = GetNumber(global, kLevels[i].m_Key);
  }
  settings.m_Overflow = ReadOverflow(document);
  ReadText(global, "LogFilePath", settings.m_Texts);
  settings.m_LogIndex = GetNumber(global, "LogIndex");
  const int read = settings.m_Words[kCountWord];
  settings.m_Slots = std::min(read == kKeep ? count : read, kSlotCount);
  for (int i = 0; i < settings.m_Slots; ++i) {
    char key[24];
    std::snprintf(key, sizeof(key), "fileName_%d", i);
    ReadText(FindSection(document, kFileSection), key, settings.m_Texts);
  }
}

// Bytes of the file, at most INT_MAX; 0 when there is none.
int MeasureFile(const char* path) {
  struct stat status;
  std::memset(&status, 0, sizeof(status));
  if (::stat(path, &status) != 0) return errno == EOVERFLOW ? INT_MAX : 0;
  return status.st_size < INT_MAX ? static_cast<int>(status.st_size) : INT_MAX;
}

// The log path, and the ring's files, whose names are held against it.
void RestoreRing(CGlobal& context, const tagFileSettings& settings) {
  const char* text = settings.m_Texts.c_str();
  if (*text != '\0') context.SetLogPath(text);
  for (int i = 0; i < settings.m_Slots; ++i) {
    text += std::strlen(text) + 1;
    context.m_Output.SetLogName(i, text);
    if (i == settings.m_LogIndex) context.m_Output.SetCurrentFileInfo(i, MeasureFile(text));
  }
}

void WriteLevels(xini_section_t& section, uint8_t mask) {
  for (const tagLevelKey& level : kLevels) {
    SetNumber(section, level.m_Key, (mask & LevelBit(level.m_Level)) != 0 ? 1 : 0);
  }
}

void WriteWord(xini_section_t& section, const tagWordKey& key, const tagAttribute& attribute) {
  uint32_t value;
  std::memcpy(&value, reinterpret_cast<const char*>(&attribute) + key.m_Offset, sizeof(value));
  SetNumber(section, key.m_WriteKey, static_cast<int>(value / key.m_Scale));
}

void WriteModule(xini_section_t& section, const tagAttribute& record) {
  SetNumber(section, "OutputDateTime", 1);
  SetNumber(section, "OutputThreadID", RelaxedLoad(record.m_OutputThreadID) != 0 ? 1 : 0);
  WriteLevels(section, RelaxedLoad(record.m_LevelMask));
}

}  // namespace

void FreeInitializeInChild() {
  ::pthread_mutex_init(&s_InitializeMutex, nullptr);
}

int CGlobal::ConfigFileInitialize() {
  int result = eResultInvalid;
  {
    const CInitializeGuard guard;
    if (RelaxedLoad(s_ConfigLoaded)) return eResultInvalid;
    if (*ConfigFilePath() != '\0') {
      tagAttribute current;
      CopyAttribute(current);
      const int count = static_cast<int>(current.m_LogMaxCount);
      tagFileSettings settings;
      result = EditConfigFile(
          *this, [&](xini_file_t& document) { ReadSettings(document, count, settings); });
      if (result == eResultSuccess) {
        ApplySwitches(m_Attribute, settings.m_Switches);
        for (size_t i = 0; i < kWordCount; ++i) {
          if (settings.m_Words[i] == kKeep) continue;
          // Modulo 2^32: the file's numbers have no bounds of their own.
          StoreWord(kWords[i].m_Offset,
                    static_cast<uint32_t>(settings.m_Words[i]) * kWords[i].m_Scale);
        }
        ApplyLevels(m_Attribute.m_LevelMask, settings.m_Levels);
        if (settings.m_Overflow != kKeep) {
          m_Output.SetOverflow(static_cast<eOverflowPolicy>(settings.m_Overflow));
        }
        RestoreRing(*this, settings);
      }
    }
    RelaxedStore(g_WriterIsStarting, true);
    RelaxedStore(s_ConfigLoaded, true);
  }
  // With no lock held: what a start reports may be a record that calls the program back.
  m_Output.Start();
  RelaxedStore(g_WriterIsStarting, false);
  return result;
}

int CGlobal::GetKeyValue(xini_file_t* doc, const char* key, const char* section) {
  if (doc == nullptr || key == nullptr) return kKeep;
  if (!xini_section_t::takes(key)) return kKeep;
  // A name with a line end inside has no header line, and so no section.
  if (section != nullptr && xini_file_t::takes(section)) {
    const int value = GetNumber(FindSection(*doc, section), key);
    if (value != kKeep) return value;
  }
  return GetNumber(FindSection(*doc, kGlobalSection), key);
}

int CGlobal::ReadAttributeByConfigFile(const char* module, tagAttribute& attribute,
                                       const char* version) {
  if (module == nullptr || *ConfigFilePath() == '\0') return eResultInvalid;
  if (version == nullptr) version = "";
  std::printf("************************ module = %s, version = %s\n", module, version);
  int levels[kLevelCount];
  bool isRead = false;
  const int result = EditConfigFile(*this, [&](xini_file_t& document) {
    if (!xini_file_t::takes(module)) return;
    SetText(FindSection(document, module), "Version", version);
    for (size_t i = 0; i < kLevelCount; ++i) {
      levels[i] = GetKeyValue(&document, kLevels[i].m_Key, module);
    }
    isRead = true;
  });
  if (result != eResultSuccess) return result;
  if (!isRead) return eResultInvalid;
  ApplyLevels(attribute.m_LevelMask, levels);
  return eResultSuccess;
}

int CGlobal::SaveAttribute2File(const char* name) {
  if (*ConfigFilePath() == '\0' || name == nullptr || *name == '\0') return eResultInvalid;
  if (ContainsIgnoreCase(kGlobalSection, name)) return SaveGlobalAtri();
  if (ContainsIgnoreCase(kEverything, name)) {
    const int result = SaveGlobalAtri();
    if (result != eResultSuccess) return result;
  }
  return SaveMoudleAttri2File(name);
}

int CGlobal::SaveGlobalAtri() {
  tagAttribute attribute;
  CopyAttribute(attribute);
  char path[kLogPathBytes + 1] = {};
  std::memcpy(path, attribute.m_LogPath, kLogPathBytes);
  return EditConfigFile(*this, [&](xini_file_t& document) {
    xini_section_t& global = FindSection(document, kGlobalSection);
    for (const tagSwitchKey& key : kSwitches) {
      SetNumber(global, key.m_Key, attribute.*key.m_Field != 0 ? 1 : 0);
    }
    // A save always switches the date-time prefix on.
    RelaxedStore(m_Attribute.m_OutputDateTime, 1);
    SetNumber(global, "OutputDateTime", 1);
    SetNumber(global, "OutputThreadID", attribute.m_OutputThreadID != 0 ? 1 : 0);
    for (size_t i = 0; i < kWordCount; ++i) {
      if (i == kBufferWord) SetText(global, "LogFilePath", path);
      WriteWord(global, kWords[i], attribute);
    }
    WriteLevels(global, attribute.m_LevelMask);
  });
}

int CGlobal::SaveMoudleAttri2File(const char* name) {
  if (name == nullptr) return eResultInvalid;
  const bool isAll = ContainsIgnoreCase(kEverything, name);
  const auto isChosen = [&](const tagModuleNode* node) {
    return isAll || ContainsIgnoreCase(node->m_Name, name);
  };
  for (const tagModuleNode* node = FirstModule(); node != nullptr; node = NextModule(node)) {
    if (!isChosen(node)) continue;
    std::printf("**************************** module = %s\n", node->m_Name);
    // The record that the name finds, which may be another module's.
    RelaxedStore(GetAttribute(node->m_Name)->m_OutputDateTime, 1);
  }
  return EditConfigFile(*this, [&](xini_file_t& document) {
    for (const tagModuleNode* node = FirstModule(); node != nullptr; node = NextModule(node)) {
      if (!isChosen(node) || !xini_file_t::takes(node->m_Name)) continue;
      WriteModule(FindSection(document, node->m_Name), *GetAttribute(node->m_Name));
    }
  });
}

}  // namespace Kelvik
