// The process-wide context: settings, module table, and the three engines.
#ifndef KELVIK_GLOBAL_H_
#define KELVIK_GLOBAL_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "Attribute.h"
#include "Console.h"
#include "Export.h"
#include "ModuleState.h"
#include "Mutex.h"
#include "Output.h"

class xini_file_t;

namespace Kelvik {

class CConfigChange;

constexpr int kConfigPathBytes = 128;  // bytes of the configuration file's path with its NUL

// Any thread may call any method at any time. Results: 0 done, 1 missing callback parameter or the
// context has ended, 3 bad argument or nothing done, 5 a system call failed, 6 duplicate.
class KELVIK_API CGlobal {
 public:
  // The one context. Made at the first call, ended at process exit; its memory stays, so that
  // threads and static destructors that still log then meet a context that refuses them.
  static CGlobal* Instance();

  // True once the context has ended.
  KELVIK_INTERNAL static bool IsEnded();

  CGlobal();
  ~CGlobal();
  CGlobal(const CGlobal&) = delete;
  CGlobal& operator=(const CGlobal&) = delete;

  // Sets the global settings to their defaults and registers the library's own displays ("Kelvik":
  // "attribute", "module", "cmd"). Modules and configuration path stay. Returns 0.
  int Initialize();

  // --- Access: Global.cpp ---

  // The global settings, which live as long as the process.
  tagAttribute* GetAttribute() { return &m_Attribute; }

  // The settings that apply to a module (non-null): those of the first registered module, in byte
  // order of the names, whose name contains the argument, letter case ignored; the global ones when
  // there is none. Takes no lock; records never move.
  tagAttribute* GetAttribute(const char* module) {
    return FirstModule() == nullptr ? &m_Attribute : FindAttribute(module);
  }

  // The engines of the context, which live as long as the process.
  COutput& GetOutput() { return m_Output; }
  CConsole& GetConsole() { return m_Console; }
  CModuleState& GetModuleState() { return m_ModuleState; }

  // Copies the global settings, the unaligned words and the path included, under the buffer lock.
  void CopyAttribute(tagAttribute& attribute);

  // --- Setters: Global.cpp ---

  // Reads a binary switch of 1, 2, 4 or 8 bytes: result = (value != 0). Returns 0, or 3 for a null
  // value or another length (result is then false for an other length, unchanged for null or 0).
  int ParseValue(const void* value, int length, bool& result);

  int SetMaxLogCount(int count);        // 1..10 files; others are ignored; returns 0
  int SetBufferSize(const char* size);  // text, 1..1024 KiB; others are ignored; returns 0
  int SetInterval(const char* ms);      // text, 0 or 200..3600000 ms; others are ignored; returns 0

  // Sets the configuration file's path, once per process (later calls return 0 and change
  // nothing). Returns 3 for null, empty or 128 characters and more.
  int SetConfigFilePath(const char* path);
  // Copies the path (possibly empty) to out, which has room for 128 characters. Returns 3 for null.
  int GetConfigFilePath(char* out);
  // Sets the log path and prints it. Returns 3 for null, empty or 128 characters and more.
  int SetLogFilePath(const char* path);

  // Stores without the checks above (the attribute requests have their own). Of a path at most 256
  // characters; the rest of the field is filled with zeros.
  KELVIK_INTERNAL void SetLogPath(const char* path);
  KELVIK_INTERNAL void SetLogMaxSize(uint32_t bytes);
  KELVIK_INTERNAL void SetLogMaxDuration(uint32_t seconds);
  KELVIK_INTERNAL void StoreLogMaxCount(uint32_t count);

  // --- Time: Global.cpp ---

  // The local time; m_Reserved is left alone. Returns 0, or 5 when the conversion fails, which a
  // record reports.
  int GetDateTime(tagAbsoluteTime& time);
  // Its text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", as snprintf(text, size, ...); its result, or 5.
  int GetDateTime(char* text, int size);
  // The text of a time; snprintf's result.
  int GetString(const tagAbsoluteTime& time, char* text, int size);
  int GetCurrentThreadID();  // getpid()

  // Pauses the calling thread for ms milliseconds, signals or not. Returns 0.
  int Sleep(unsigned int ms);

  // --- Modules: GlobalModules.cpp ---

  // Gives a module its own settings: a copy of the global ones, overlaid with the levels of its
  // section in the configuration file. version (null counts as empty) is written there. Returns 0,
  // 3 when the module has settings already (or module is null), 1 when memory runs out.
  int InsertModuleName(const char* module, const char* version);

  // Changes nothing. Returns 3 when the module is registered and 0 when it is not.
  int PopModuleName(const char* module);

  // --- Status display: GlobalStatus.cpp ---

  // Print on fd; module and title only label the output. Return 0; ShowModule and ShowCmd return 1
  // when module or title is null.
  int ShowAttribute(int fd, const char* module, const char* title);
  int ShowModule(int fd, const char* module, const char* title);
  int ShowCmd(int fd, const char* module, const char* title);

  // --- Configuration file: GlobalConfig.cpp ---

  // Reads settings and file index from the configuration file and starts the output engine. Returns
  // 0, or 3 when it has run already or there is no configuration path (the engine is started all
  // the same).
  int ConfigFileInitialize();

  // The number of section/key, else of "Global"/key, else -1.
  int GetKeyValue(xini_file_t* doc, const char* key, const char* section);

  // Writes version into the module's section and overlays attribute with the section's levels.
  // Returns 0, or 3 without a configuration path.
  int ReadAttributeByConfigFile(const char* module, tagAttribute& attribute, const char* version);

  // Saves what name selects: a part of "Global" (letter case ignored) the global settings, a part
  // of "All" everything, else the modules whose name contains it. Returns 0, or 3 without a
  // configuration path or for an empty name.
  int SaveAttribute2File(const char* name);
  int SaveGlobalAtri();
  int SaveMoudleAttri2File(const char* name);

  // --- Members ---

  tagAttribute m_Attribute;  // first: a pointer to the context is one to the global settings
  // Records and their delivery; the network console; the callbacks that operators reach. At the
  // start of a cache line, m_BufferMutex and the count of records under it share one on most
  // targets.
  alignas(64) COutput m_Output;
  CConsole m_Console;
  CModuleState m_ModuleState;
  std::map<std::string, tagAttribute> m_ModuleAttribute;  // grows only; written under m_ModuleMutex
  char m_ConfigFilePath[kConfigPathBytes];                // written once, under m_ModuleMutex

  // Empty until it was set; it never changes afterwards.
  const char* ConfigFilePath() const {
    return __atomic_load_n(&s_ConfigPathSet, __ATOMIC_ACQUIRE) ? m_ConfigFilePath : "";
  }

  // The registered modules in byte order of their names, for readers that take no lock.
  struct tagModuleNode {
    const char* m_Name;         // not owned: the key in m_ModuleAttribute
    tagAttribute* m_Attribute;  // not owned: the value there
    tagModuleNode* m_Next;      // null for the last one
  };
  // The first of them and the one behind a node, null when there is none.
  const tagModuleNode* FirstModule() const {
    return __atomic_load_n(&m_FirstModule, __ATOMIC_ACQUIRE);
  }
  KELVIK_INTERNAL static const tagModuleNode* NextModule(const tagModuleNode* node);

  static bool s_ConfigPathSet;  // the configuration path was set
  static bool s_ConfigLoaded;   // ConfigFileInitialize has run

  // Registered with pthread_atfork as the library is loaded: the engine's and the registries' locks
  // are held across fork(), so that the child finds whole data. In the child they are made anew,
  // the console is closed, and the parent's buffered text is dropped (the parent writes it).
  KELVIK_INTERNAL static void BeforeFork();
  KELVIK_INTERNAL static void AfterForkInParent();
  KELVIK_INTERNAL static void AfterForkInChild();

 private:
  friend struct tagContext;
  friend struct tagLevelGate;

  // A name that was asked for. The name never changes once the entry can be met.
  static constexpr uint32_t kKnownNameBytes = 24;
  static constexpr uint32_t kKnownNames = 256;
  static constexpr uint32_t kKnownBuckets = 64;
  static constexpr uint32_t kHintBits = 6;
  struct tagKnownName {
    char m_Name[kKnownNameBytes];
    tagAttribute* m_Attribute;  // what applies to it; changed by registrations
    tagKnownName* m_Next;       // in its bucket
  };

  tagAttribute* FindAttribute(const char* module);
  KELVIK_INTERNAL tagAttribute* FindByLetters(const char* module);
  KELVIK_INTERNAL tagKnownName* AddKnownName(const char* module, size_t length,
                                             tagKnownName*& bucket);
  KELVIK_INTERNAL void AddEmptyName();
  KELVIK_INTERNAL bool IsRegistered(const char* module) const;
  KELVIK_INTERNAL tagAttribute* WalkModules(const char* module);
  KELVIK_INTERNAL void End();
  KELVIK_INTERNAL void PublishModule(tagModuleNode* node);
  // Stores one of m_Attribute's words, given by its offset in the record, under the buffer lock.
  KELVIK_INTERNAL void StoreWord(size_t offset, uint32_t value);
  KELVIK_INTERNAL void FreeModules();

  tagModuleNode* m_FirstModule;
  CMutex m_ModuleMutex;  // registration of modules, known names, configuration path
  CMutex m_ConfigMutex;  // one load-change-save of the configuration file at a time; nothing is
                         // called under it that takes a lock of the output engine

  tagKnownName* m_Hints[1U << kHintBits];  // by the address of the name; never null
  tagKnownName* m_Buckets[kKnownBuckets];  // by the letters; written under m_ModuleMutex
  uint32_t m_KnownCount;                   // written under m_ModuleMutex
  tagKnownName m_Known[kKnownNames];

  friend class COutput;
  friend int EditConfigFile(CGlobal& context, const CConfigChange& edit);
};

}  // namespace Kelvik

#endif  // KELVIK_GLOBAL_H_
