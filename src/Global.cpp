// Life of the context, lookup of settings, setters, time.

#include "Global.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "Context.h"
#include "Guard.h"
#include "Kelvik.h"
#include "Relaxed.h"
#include "SelfReport.h"
#include "TextMatch.h"
#include "TextNumber.h"
#include "TimeStamp.h"

namespace Kelvik {
namespace {

constexpr uint8_t kDefaultLevelMask = 0x30;  // error and fatal
constexpr char kDefaultLogPath[] = "/tmp/";
constexpr uint32_t kBytesPerKib = 1024;

// The context's memory is never given back: a thread that is still inside a call when the process
// ends finds it there, and so does a static destructor that logs.
alignas(CGlobal) unsigned char s_Storage[sizeof(CGlobal)];
int32_t s_Ended = 0;

void FillDefaults(tagAttribute& attribute) {
  std::memset(&attribute, 0, sizeof(attribute));
  attribute.m_OutputConsole = 1;
  attribute.m_OutputDateTime = 1;
  attribute.m_OutputLocation = 1;
  std::memcpy(attribute.m_LogPath, kDefaultLogPath, sizeof(kDefaultLogPath));
  attribute.m_LogMaxSize = 1024 * kBytesPerKib;
  attribute.m_LogMaxDuration = 1;
  attribute.m_LogMaxCount = 2;
  attribute.m_BufferSize = 32 * kBytesPerKib;
  attribute.m_LevelMask = kDefaultLevelMask;
}

using ShowMethod = int (CGlobal::*)(int, const char*, const char*);

template <ShowMethod kShow>
int ShowAdapter(int fd, const char* module, const char* title, void* param) {
  if (param == nullptr) return eResultFailure;
  return (static_cast<CGlobal*>(param)->*kShow)(fd, module, title);
}

}  // namespace

bool CGlobal::s_ConfigPathSet = false;
bool CGlobal::s_ConfigLoaded = false;

// A module's name as a thread last looked it up, and what was found. A registration since then
// makes it stale.
struct tagLookup {
  const CGlobal* m_Context;
  uint32_t m_Generation;
  char m_Name[20];  // longer names are looked up each time
  tagAttribute* m_Attribute;
};

namespace {

constexpr unsigned kLookups = 8;  // a thread logs for a few modules

thread_local tagLookup t_Lookups[kLookups];

unsigned LookupIndex(const char* module) {
  const auto first = static_cast<unsigned char>(module[0]);
  if (first == 0) return 0;
  return (first + 3U * static_cast<unsigned char>(module[1])) % kLookups;
}

}  // namespace

struct tagContext {
  tagContext() {
    ReleaseStore(g_Context, new (s_Storage) CGlobal);
    ::pthread_atfork(&CGlobal::BeforeFork, &CGlobal::AfterForkInParent, &CGlobal::AfterForkInChild);
  }
  ~tagContext() { Get()->End(); }
  static CGlobal* Get() { return std::launder(reinterpret_cast<CGlobal*>(s_Storage)); }
};

CGlobal* g_Context = nullptr;

CGlobal* CGlobal::Instance() {
  static tagContext context;
  return tagContext::Get();
}

bool CGlobal::IsEnded() {
  return RelaxedLoad(s_Ended) != 0;
}

CGlobal::CGlobal() : m_ConfigFilePath(), m_FirstModule(nullptr), m_ModuleGeneration(1) {
  m_ModuleMutex.create();
  m_ConfigMutex.create();
  Initialize();
}

CGlobal::~CGlobal() {
  m_Console.Destroy();
  m_Output.Stop();
  Initialize();
  FreeModules();
  m_ModuleMutex.destroy();
  m_ConfigMutex.destroy();
}

// The process ends. What a destructor would free stays (see s_Storage): the kernel takes it back.
// The console goes first, so that no command changes the settings under which the writer drains.
void CGlobal::End() {
  m_Console.Destroy();
  m_Output.Finish();
  RelaxedStore(s_Ended, 1);
  Initialize();
}

int CGlobal::Initialize() {
  tagAttribute defaults;
  FillDefaults(defaults);
  {
    CGuard guard(&m_Output.m_BufferMutex);
    RelaxedStore(m_Attribute.m_OutputConsole, defaults.m_OutputConsole);
    RelaxedStore(m_Attribute.m_OutputSystem, defaults.m_OutputSystem);
    RelaxedStore(m_Attribute.m_OutputFile, defaults.m_OutputFile);
    RelaxedStore(m_Attribute.m_OutputDateTime, defaults.m_OutputDateTime);
    RelaxedStore(m_Attribute.m_OutputThreadID, defaults.m_OutputThreadID);
    RelaxedStore(m_Attribute.m_OutputLocation, defaults.m_OutputLocation);
    RelaxedStore(m_Attribute.m_LevelMask, defaults.m_LevelMask);
    constexpr size_t kPlain = offsetof(tagAttribute, m_LogPath);
    std::memcpy(reinterpret_cast<char*>(&m_Attribute) + kPlain,
                reinterpret_cast<const char*>(&defaults) + kPlain, sizeof(defaults) - kPlain);
  }
  // Refused as duplicates when this runs again.
  m_ModuleState.Register("Kelvik", "attribute", &ShowAdapter<&CGlobal::ShowAttribute>, this);
  m_ModuleState.Register("Kelvik", "module", &ShowAdapter<&CGlobal::ShowModule>, this);
  m_ModuleState.Register("Kelvik", "cmd", &ShowAdapter<&CGlobal::ShowCmd>, this);
  return eResultSuccess;
}

// Answered from the thread's own memory where nothing was registered since.
tagAttribute* CGlobal::FindAttribute(const char* module) {
  const uint32_t generation = AcquireLoad(m_ModuleGeneration);
  tagLookup& cached = t_Lookups[LookupIndex(module)];
  if (cached.m_Context == this && cached.m_Generation == generation &&
      std::strcmp(cached.m_Name, module) == 0) {
    return cached.m_Attribute;
  }
  return WalkModules(module, generation, cached);
}

// Walks the list, and keeps the answer for the thread's next record of that name.
tagAttribute* CGlobal::WalkModules(const char* module, uint32_t generation, tagLookup& cached) {
  tagAttribute* found = &m_Attribute;
  for (const tagModuleNode* node = FirstModule(); node != nullptr; node = NextModule(node)) {
    if (ContainsIgnoreCase(node->m_Name, module)) {
      found = node->m_Attribute;
      break;
    }
  }
  const size_t length = ::strnlen(module, sizeof(cached.m_Name));
  if (length < sizeof(cached.m_Name)) {
    std::memcpy(cached.m_Name, module, length + 1);
    cached.m_Context = this;
    cached.m_Generation = generation;
    cached.m_Attribute = found;
  }
  return found;
}

void CGlobal::CopyAttribute(tagAttribute& attribute) {
  CGuard guard(&m_Output.m_BufferMutex);
  attribute.m_OutputConsole = RelaxedLoad(m_Attribute.m_OutputConsole);
  attribute.m_OutputSystem = RelaxedLoad(m_Attribute.m_OutputSystem);
  attribute.m_OutputFile = RelaxedLoad(m_Attribute.m_OutputFile);
  attribute.m_OutputDateTime = RelaxedLoad(m_Attribute.m_OutputDateTime);
  attribute.m_OutputThreadID = RelaxedLoad(m_Attribute.m_OutputThreadID);
  attribute.m_OutputLocation = RelaxedLoad(m_Attribute.m_OutputLocation);
  attribute.m_LevelMask = RelaxedLoad(m_Attribute.m_LevelMask);
  constexpr size_t kPlain = offsetof(tagAttribute, m_LogPath);
  std::memcpy(reinterpret_cast<char*>(&attribute) + kPlain,
              reinterpret_cast<const char*>(&m_Attribute) + kPlain, sizeof(attribute) - kPlain);
}

int CGlobal::ParseValue(const void* value, int length, bool& result) {
  if (value == nullptr || length == 0) return eResultInvalid;
  result = false;
  if (length != 1 && length != 2 && length != 4 && length != 8) return eResultInvalid;
  const auto* bytes = static_cast<const unsigned char*>(value);
  for (int i = 0; i < length; ++i) {
    if (bytes[i] != 0) result = true;
  }
  return eResultSuccess;
}

int CGlobal::SetMaxLogCount(int count) {
  if (count >= 1 && count <= kSlotCount) StoreLogMaxCount(static_cast<uint32_t>(count));
  return eResultSuccess;
}

int CGlobal::SetBufferSize(const char* size) {
  if (size == nullptr) return eResultInvalid;
  const int kib = ParseInt(size);
  if (kib >= 1 && kib <= 1024) {
    StoreWord(offsetof(tagAttribute, m_BufferSize), static_cast<uint32_t>(kib) * kBytesPerKib);
  }
  return eResultSuccess;
}

int CGlobal::SetInterval(const char* ms) {
  if (ms == nullptr) return eResultInvalid;
  const int interval = ParseInt(ms);
  if (interval == 0 || (interval >= 200 && interval <= 3600000)) {
    StoreWord(offsetof(tagAttribute, m_WriteInterval), static_cast<uint32_t>(interval));
  }
  return eResultSuccess;
}

int CGlobal::SetConfigFilePath(const char* path) {
  CGuard guard(&m_ModuleMutex);
  if (RelaxedLoad(s_ConfigPathSet)) return eResultSuccess;
  if (path == nullptr || *path == '\0') return eResultInvalid;
  const size_t length = ::strnlen(path, kConfigPathBytes);
  if (length >= kConfigPathBytes) return eResultInvalid;
  std::memcpy(m_ConfigFilePath, path, length + 1);
  ReleaseStore(s_ConfigPathSet, true);
  return eResultSuccess;
}

int CGlobal::GetConfigFilePath(char* out) {
  if (out == nullptr) return eResultInvalid;
  *out = '\0';
  // The path never changes again once the flag is set, so no lock is needed.
  if (AcquireLoad(s_ConfigPathSet)) std::memcpy(out, m_ConfigFilePath, kConfigPathBytes);
  return eResultSuccess;
}

int CGlobal::SetLogFilePath(const char* path) {
  constexpr size_t kLimit = 128;  // although the field holds more
  if (path == nullptr || *path == '\0') return eResultInvalid;
  if (::strnlen(path, kLimit) >= kLimit) return eResultInvalid;
  SetLogPath(path);
  std::printf("m_Attribute.m_LogPath = %s\n", path);
  return eResultSuccess;
}

void CGlobal::SetLogPath(const char* path) {
  char field[kLogPathBytes] = {};
  std::memcpy(field, path, ::strnlen(path, sizeof(field)));
  CGuard guard(&m_Output.m_BufferMutex);
  std::memcpy(m_Attribute.m_LogPath, field, sizeof(field));
}

void CGlobal::SetLogMaxSize(uint32_t bytes) {
  StoreWord(offsetof(tagAttribute, m_LogMaxSize), bytes);
}

void CGlobal::SetLogMaxDuration(uint32_t seconds) {
  StoreWord(offsetof(tagAttribute, m_LogMaxDuration), seconds);
}

void CGlobal::StoreLogMaxCount(uint32_t count) {
  StoreWord(offsetof(tagAttribute, m_LogMaxCount), count);
}

void CGlobal::StoreWord(size_t offset, uint32_t value) {
  CGuard guard(&m_Output.m_BufferMutex);
  std::memcpy(reinterpret_cast<char*>(&m_Attribute) + offset, &value, sizeof(value));
}

int CGlobal::GetDateTime(tagAbsoluteTime& time) {
  tagTimeStamp stamp;
  if (!TakeTimeStamp(stamp)) {
    ReportNumber("Global", "GetDateTime", 469, "localtime failed",
                 static_cast<int>(stamp.m_Seconds));
    return eResultUnavailable;
  }
  stamp.m_Time.m_Reserved = time.m_Reserved;
  time = stamp.m_Time;
  return eResultSuccess;
}

int CGlobal::GetDateTime(char* text, int size) {
  tagTimeStamp stamp;
  if (!TakeTimeStamp(stamp)) {
    ReportNumber("Global", "GetDateTime", 507, "localtime failed",
                 static_cast<int>(stamp.m_Seconds));
    return eResultUnavailable;
  }
  return FormatTime(stamp.m_Time, text, size);
}

int CGlobal::GetString(const tagAbsoluteTime& time, char* text, int size) {
  return FormatTime(time, text, size);
}

int CGlobal::GetCurrentThreadID() {
  return static_cast<int>(::getpid());
}

int CGlobal::Sleep(unsigned int ms) {
  timespec rest;
  rest.tv_sec = static_cast<time_t>(ms / 1000);
  rest.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
  return eResultSuccess;
}

int CGlobal::InsertModuleName(const char* module, const char* version) {
  if (module == nullptr) return eResultInvalid;
  try {
    const std::string name(module);
    {
      CGuard guard(&m_ModuleMutex);
      if (m_ModuleAttribute.find(name) != m_ModuleAttribute.end()) return eResultInvalid;
    }
    // Read without the lock: a file is read, and text printed, on the way.
    tagAttribute snapshot;
    CopyAttribute(snapshot);
    ReadAttributeByConfigFile(module, snapshot, version == nullptr ? "" : version);
    auto node = std::make_unique<tagModuleNode>();
    CGuard guard(&m_ModuleMutex);
    const auto inserted = m_ModuleAttribute.emplace(name, snapshot);
    if (!inserted.second) return eResultInvalid;
    node->m_Name = inserted.first->first.c_str();
    node->m_Attribute = &inserted.first->second;
    PublishModule(node.release());
    return eResultSuccess;
  } catch (const std::bad_alloc&) {
    return eResultFailure;
  }
}

// Puts the module into the readers' list. The node is complete before a reader can meet it, and
// none is ever taken out. Caller holds m_ModuleMutex.
void CGlobal::PublishModule(tagModuleNode* node) {
  tagModuleNode** link = &m_FirstModule;
  while (*link != nullptr && std::strcmp((*link)->m_Name, node->m_Name) < 0) {
    link = &(*link)->m_Next;
  }
  node->m_Next = *link;
  ReleaseStore(*link, node);
  // After the list: an answer found before the change never carries the new number.
  ReleaseStore(m_ModuleGeneration, m_ModuleGeneration + 1);
}

const CGlobal::tagModuleNode* CGlobal::NextModule(const tagModuleNode* node) {
  return AcquireLoad(node->m_Next);
}

void CGlobal::FreeModules() {
  while (m_FirstModule != nullptr) {
    tagModuleNode* next = m_FirstModule->m_Next;
    delete m_FirstModule;
    m_FirstModule = next;
  }
  m_ModuleAttribute.clear();
}

// Nothing is ever removed: a module that is gone could come back, and readers hold its record. The
// results are kept as applications know them, inverted as they are.
int CGlobal::PopModuleName(const char* module) {
  if (module == nullptr) return eResultInvalid;
  CGuard guard(&m_ModuleMutex);
  try {
    return m_ModuleAttribute.find(module) != m_ModuleAttribute.end() ? eResultInvalid
                                                                     : eResultSuccess;
  } catch (const std::bad_alloc&) {
    return eResultFailure;
  }
}

// In the order of the locks. What stands in standard output's stream would leave twice, once from
// each process.
void CGlobal::BeforeFork() {
  CGlobal* global = tagContext::Get();
  if (RelaxedLoad(global->m_Attribute.m_OutputConsole) != 0) std::fflush(stdout);
  global->m_ModuleMutex.lock();
  global->m_Output.BeforeFork();
  global->m_ConfigMutex.lock();
  global->m_ModuleState.BeforeFork();
}

void CGlobal::AfterForkInParent() {
  CGlobal* global = tagContext::Get();
  global->m_ModuleState.AfterForkInParent();
  global->m_ConfigMutex.unlock();
  global->m_Output.AfterForkInParent();
  global->m_ModuleMutex.unlock();
}

void CGlobal::AfterForkInChild() {
  CGlobal* global = tagContext::Get();
  global->m_ModuleState.AfterForkInChild();
  global->m_ConfigMutex.AfterForkInChild();
  global->m_Output.AfterForkInChild();
  global->m_ModuleMutex.AfterForkInChild();
  global->m_Console.AfterForkInChild();
}

}  // namespace Kelvik
