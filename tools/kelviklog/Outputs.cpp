#include "Outputs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>

#include "Global.h"
#include "Guard.h"
#include "Kelvik.h"
#include "KelvikExtra.h"
#include "RingIndex.h"

namespace KelvikLog {

namespace {

void Switch(int kind, int option, bool isOn) {
  const unsigned char value = isOn ? 1 : 0;
  SetAttribute(kind, option, &value, sizeof(value));
}

void SetNumber(int option, int32_t value) {
  SetAttribute(eAttributeOther, option, &value, sizeof(value));
}

Kelvik::tagAttribute Settings() {
  Kelvik::tagAttribute settings = {};
  Kelvik::CGlobal::Instance()->CopyAttribute(settings);
  return settings;
}

// How records reach the files: through the library's buffers, and a full buffer is written before
// it is used again, so that a fast input waits for the disk and no record is lost to speed. A file
// grows past its size by up to one buffer, so the buffer is small beside it; for files so small
// that this leaves none, and for files that change with the time (which the library does when a
// record comes, and only behind waiting ones), each record is written by the call that logs it. The
// one place that knows.
void UseBuffers() {
  constexpr int32_t kLargest = 131072;  // bytes
  constexpr int32_t kShare = 16;        // of a file
  constexpr int32_t kSmallest = 1024;   // bytes, below it the library writes directly
  const auto fileBytes = static_cast<int32_t>(Settings().m_LogMaxSize);
  const int32_t share = fileBytes / kShare;
  const auto bytes = static_cast<uint32_t>(share < kSmallest ? 0 : std::min(share, kLargest));
  Kelvik::CGlobal* const global = Kelvik::CGlobal::Instance();
  const Kelvik::CGuard guard(&global->GetOutput().m_BufferMutex);
  char* const attribute = reinterpret_cast<char*>(global->GetAttribute());
  std::memcpy(attribute + offsetof(Kelvik::tagAttribute, m_BufferSize), &bytes, sizeof(bytes));
}

// What the library takes as the log path: it appends the files' names to it as it stands. Paths
// that a configuration file keeps are absolute, so that they hold when the next run starts
// elsewhere.
std::string LogPath(const tagOptions& options) {
  std::string path = *options.m_Folder;
  if (options.m_Config && !path.empty()) {
    path = std::filesystem::absolute(path).lexically_normal().string();
  }
  return path.empty() || path.back() == '/' ? path : path + '/';
}

bool CheckLogPath(const std::string& path, std::string& problem) {
  constexpr std::size_t kLimit = Kelvik::kLogPathBytes - 1;
  if (path.empty()) {
    problem = "the name of the folder is empty";
  } else if (path.size() > kLimit) {
    problem = "the name of the folder has more than " + std::to_string(kLimit) + " characters";
  } else {
    return true;
  }
  return false;
}

// Records wait in the buffer no longer than this, however slowly the input goes on. Together with
// the write it stays below 200 ms.
constexpr std::chrono::milliseconds kHandOverAge(100);

std::string ErrorText(int error) {
  return error == 0 ? std::string("write error") : std::string(std::strerror(error));
}

// Writes out what was printed. Returns -1, or the errno of a failed write, 0 if it is not known.
int FlushTerminal() {
  if (std::ferror(stdout) == 0) {
    return std::fflush(stdout) == 0 ? -1 : errno;
  }
  // The write that failed is some records back and its errno with it; a further one fails alike.
  std::clearerr(stdout);
  return std::fflush(stdout) == 0 ? 0 : errno;
}

}  // namespace

int COutputs::Start(std::string& problem) {
  if (m_Options.m_Folder && !CheckLogPath(LogPath(m_Options), problem)) {
    return kExitFailed;
  }
  for (const int level :
       {eLogLevelDebug, eLogLevelInfo, eLogLevelWarning, eLogLevelError, eLogLevelFatal}) {
    Switch(eAttributeLevel, level, true);
  }
  Switch(eAttributeOutput, eOutputFile, m_Options.m_Folder || m_Options.m_Config);
  // Before the configuration file is read, so that what it says wins over the defaults, and again
  // after it, so that the options win over what it says.
  ApplyOptions();
  UseBuffers();
  if (m_Options.m_Config) {
    SetConfigFilePath(m_Options.m_Config->c_str());
  }
  Initialize();
  ApplyOptions();
  UseBuffers();
  KelvikExtra_SetOverflow(eOverflowWrite);  // whatever the configuration file says
  if (m_Options.m_Config && (m_Options.m_Count || m_Options.m_SizeKib)) {
    RestoreRing(*m_Options.m_Config, static_cast<int>(Settings().m_LogMaxCount));
  }

  const Kelvik::tagAttribute settings = Settings();
  m_LogPath.assign(settings.m_LogPath, strnlen(settings.m_LogPath, sizeof(settings.m_LogPath)));
  m_HasFile = settings.m_OutputFile != 0;
  m_HasTerminal = settings.m_OutputConsole != 0 && isatty(STDOUT_FILENO) == 1;
  if (settings.m_OutputConsole == 0 && settings.m_OutputSystem == 0 && !m_HasFile) {
    problem = "every output is off: no record would go anywhere";
    return kExitUsage;
  }
  return !m_HasFile || CheckFolder(problem) ? kExitDelivered : kExitFailed;
}

void COutputs::ApplyOptions() const {
  if (m_Options.m_Terminal) {
    Switch(eAttributeOutput, eOutputTerminal, *m_Options.m_Terminal);
  }
  if (m_Options.m_Syslog) {
    Switch(eAttributeOutput, eOutputSyslog, true);
  }
  if (m_Options.m_File) {
    Switch(eAttributeOutput, eOutputFile, *m_Options.m_File);
  }
  if (m_Options.m_Level) {
    Switch(eAttributeLevel, *m_Options.m_Level, true);
  }
  if (m_Options.m_Time) {
    Switch(eAttributeOther, eOtherDateTime, *m_Options.m_Time);
  }
  if (m_Options.m_ThreadId) {
    Switch(eAttributeOther, eOtherThreadId, true);
  }
  if (m_Options.m_Folder) {
    const std::string path = LogPath(m_Options);
    SetAttribute(eAttributeOther, eOtherLogPath, path.c_str(), static_cast<int>(path.size()));
  }
  if (m_Options.m_SizeKib) {
    SetNumber(eOtherLogMaxSize, *m_Options.m_SizeKib);
  }
  if (m_Options.m_Duration) {
    SetNumber(eOtherLogMaxSize, 0);  // a size would win over the duration
    SetNumber(eOtherLogMaxDuration, *m_Options.m_Duration);
  }
  if (m_Options.m_Count) {
    SetNumber(eOtherLogMaxCount, *m_Options.m_Count);
  }
}

tagRecordStyle COutputs::Style() const {
  const Kelvik::tagAttribute settings = Settings();
  tagRecordStyle style;
  style.m_Module = m_Options.m_Module ? m_Options.m_Module->c_str() : nullptr;
  style.m_Title = m_Options.m_Title ? m_Options.m_Title->c_str() : nullptr;
  style.m_Level = m_Options.m_Level.value_or(eLogLevelInfo);
  style.m_ReadsPriority = m_Options.m_ReadsPriority;
  style.m_Escapes = m_Options.m_Escape.value_or(m_HasTerminal);
  style.m_PrefixBytes = PrefixBytes(settings.m_OutputDateTime != 0, settings.m_OutputThreadID != 0,
                                    style.m_Module, style.m_Title);
  return style;
}

bool COutputs::Flush() {
  if (!m_TerminalProblem.empty()) {
    return true;
  }
  const int error = FlushTerminal();
  if (error < 0) {
    return true;
  }
  m_TerminalProblem = "standard output: " + ErrorText(error);
  Switch(eAttributeOutput, eOutputTerminal, false);
  const Kelvik::tagAttribute settings = Settings();
  return error != EPIPE && (settings.m_OutputFile != 0 || settings.m_OutputSystem != 0);
}

int COutputs::HandOverDueMs() {
  if (!m_HasFile) return -1;
  const auto now = std::chrono::steady_clock::now();
  if (!m_IsWaiting) {
    m_IsWaiting = true;
    m_WaitsSince = now;
  }
  const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_WaitsSince);
  return age < kHandOverAge ? static_cast<int>((kHandOverAge - age).count()) : 0;
}

void COutputs::HandOver() {
  WriteBufferContent2File();
  m_IsWaiting = false;
}

bool COutputs::Finish(uint64_t refused, std::string& problem) {
  Flush();
  // Without a limit, as the writes of a direct output have none.
  KelvikExtra_Flush(std::numeric_limits<unsigned>::max(), 0);
  tagKelvikStatistics statistics = {};
  KelvikExtra_GetStatistics(&statistics, sizeof(statistics));
  // What could not be written and still waits counts as lost, too: the process ends.
  const uint64_t lost = refused + (statistics.m_RecordsAccepted - statistics.m_RecordsWritten);
  if (lost > 0) {
    problem = std::to_string(lost) + " of " +
              std::to_string(refused + statistics.m_RecordsAccepted) +
              " records did not reach the files in " + m_LogPath + ": " +
              ErrorText(statistics.m_LastError);
    return false;
  }
  problem = m_TerminalProblem;
  return problem.empty();
}

bool COutputs::CheckFolder(std::string& problem) const {
  const std::size_t slash = m_LogPath.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : m_LogPath.substr(0, slash + 1);
  struct stat status = {};
  if (stat(folder.c_str(), &status) == 0) {
    if (!S_ISDIR(status.st_mode)) {
      errno = ENOTDIR;
    } else if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0) {
      return true;
    }
  }
  problem = "cannot write files in " + folder + ": " + std::strerror(errno);
  return false;
}

}  // namespace KelvikLog
