// Life of the context, setters, time.

#include "Global.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include "Context.h"
#include "Kelvik.h"
#include "NoCancel.h"
#include "Relaxed.h"
#include "ScopeLock.h"
#include "SelfReport.h"
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

// The switches one by one, the path and the words whole. Caller holds the buffer lock.
void CopySettings(tagAttribute& to, const tagAttribute& from) {
  auto* const target = reinterpret_cast<uint8_t*>(&to);
  const auto* const source = reinterpret_cast<const uint8_t*>(&from);
  constexpr size_t kSwitches = offsetof(tagAttribute, m_LogPath);
  for (size_t i = 0; i < kSwitches; ++i)
    RelaxedStore(target[i], RelaxedLoad(source[i]));
  std::memcpy(target + kSwitches, source + kSwitches, sizeof(to) - kSwitches);
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

struct tagContext {
  // The first record makes the context, and may be about the caller's errno.
  tagContext() {
    const int callerErrno = errno;
    ReleaseStore(g_Context, new (s_Storage) CGlobal);
    errno = callerErrno;
  }
  ~tagContext() { Get()->End(); }
  static CGlobal* Get() { return std::launder(reinterpret_cast<CGlobal*>(s_Storage)); }
  static void WatchForks() {
    ::pthread_atfork(&CGlobal::BeforeFork, &CGlobal::AfterForkInParent, &CGlobal::AfterForkInChild);
  }
};

CGlobal* g_Context = nullptr;

namespace {

// As the library is loaded, before the program can have handlers of its own: these then run outside
// ours, where no lock is held, and may log.
__attribute__((constructor)) void WatchForksFromTheStart() {
  tagContext::WatchForks();
}

// What this thread holds while it is inside fork().
enum class eForkHold : uint8_t { kNothing, kMaking, kAllLocks };
thread_local eForkHold t_ForkHold = eForkHold::kNothing;

// The context is made under it, and fork() waits for it: in the child of a fork that came meanwhile
// nobody would finish the making, and the first call there would wait for it for ever.
pthread_mutex_t s_Making = PTHREAD_MUTEX_INITIALIZER;

// Set for as long as this thread has the lock and a moment longer on both sides: what logs first
// may be a handler of signals or of fork() that came into it.
thread_local bool t_HasMaking = false;

void TakeMaking() {
  t_HasMaking = true;
  ::pthread_mutex_lock(&s_Making);
}

void ReleaseMaking() {
  ::pthread_mutex_unlock(&s_Making);
  t_HasMaking = false;
}

// For a scope, unless the thread has it.
class CMaking {
 public:
  CMaking() : m_IsTaken(!t_HasMaking) {
    if (m_IsTaken) TakeMaking();
  }
  ~CMaking() {
    if (m_IsTaken) ReleaseMaking();
  }
  CMaking(const CMaking&) = delete;
  CMaking& operator=(const CMaking&) = delete;

 private:
  const bool m_IsTaken;
};

}  // namespace

CGlobal* CGlobal::Instance() {
  CGlobal* const made = AcquireLoad(g_Context);
  if (made != nullptr) return made;
  const CMaking making;
  static tagContext context;
  return tagContext::Get();
}

bool CGlobal::IsEnded() {
  return RelaxedLoad(s_Ended) != 0;
}

CGlobal::CGlobal()
    : m_ConfigFilePath(), m_FirstModule(nullptr), m_Hints(), m_Buckets(), m_KnownCount(0) {
  m_ModuleMutex.create();
  m_ConfigMutex.create();
  AddEmptyName();
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
    const CScopeLock guard(m_Output.m_BufferMutex);
    CopySettings(m_Attribute, defaults);
  }
  // Refused as duplicates when this runs again.
  m_ModuleState.Register("Kelvik", "attribute", &ShowAdapter<&CGlobal::ShowAttribute>, this);
  m_ModuleState.Register("Kelvik", "module", &ShowAdapter<&CGlobal::ShowModule>, this);
  m_ModuleState.Register("Kelvik", "cmd", &ShowAdapter<&CGlobal::ShowCmd>, this);
  return eResultSuccess;
}

void CGlobal::CopyAttribute(tagAttribute& attribute) {
  const CScopeLock guard(m_Output.m_BufferMutex);
  CopySettings(attribute, m_Attribute);
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
  const CScopeLock guard(m_ModuleMutex);
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
  for (size_t i = 0; i < sizeof(field) && path[i] != '\0'; ++i)
    field[i] = path[i];
  const CScopeLock guard(m_Output.m_BufferMutex);
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
  const CScopeLock guard(m_Output.m_BufferMutex);
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

// In the order of the locks. What stands in standard output's stream would leave twice, once from
// each process. It is written with no lock held, since whoever has the stream's may fork as well,
// and behind a making that goes on, whose first record may stand there next.
void CGlobal::BeforeFork() {
  if (t_HasMaking) return;  // in a handler of signals, amid the making
  TakeMaking();
  CGlobal* global = AcquireLoad(g_Context);
  ReleaseMaking();
  if (global != nullptr && RelaxedLoad(global->m_Attribute.m_OutputConsole) != 0) {
    const CNoCancel whole;  // fork() is no place to end a thread
    std::fflush(stdout);
  }
  TakeMaking();
  t_ForkHold = eForkHold::kMaking;
  global = AcquireLoad(g_Context);
  if (global == nullptr) return;
  global->m_ModuleMutex.lock();
  global->m_Output.BeforeFork();
  global->m_ConfigMutex.lock();
  global->m_ModuleState.BeforeFork();
  BeforeForkOfTime();
  t_ForkHold = eForkHold::kAllLocks;
}

void CGlobal::AfterForkInParent() {
  const eForkHold held = t_ForkHold;
  t_ForkHold = eForkHold::kNothing;
  // Else the context is younger: a handler of fork() made it.
  if (held == eForkHold::kAllLocks) {
    CGlobal* global = tagContext::Get();
    AfterForkOfTimeInParent();
    global->m_ModuleState.AfterForkInParent();
    global->m_ConfigMutex.unlock();
    global->m_Output.AfterForkInParent();
    global->m_ModuleMutex.unlock();
  }
  if (held != eForkHold::kNothing) ReleaseMaking();
}

void CGlobal::AfterForkInChild() {
  const eForkHold held = t_ForkHold;
  t_ForkHold = eForkHold::kNothing;
  CGlobal* global = AcquireLoad(g_Context);
  if (global != nullptr) {
    AfterForkOfTimeInChild();
    global->m_ModuleState.AfterForkInChild();
    global->m_ConfigMutex.AfterForkInChild();
    FreeInitializeInChild();
    global->m_Output.AfterForkInChild();
    global->m_ModuleMutex.AfterForkInChild();
    global->m_Console.AfterForkInChild();
  }
  if (held != eForkHold::kNothing) ReleaseMaking();
}

}  // namespace Kelvik
