#include "ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

#include "RealClock.h"

extern char** environ;

namespace Kelvik {
namespace {

std::string gSelf;  // absolute path of this test program

std::map<std::string, ChildBody>& Bodies() {
  static std::map<std::string, ChildBody> bodies;
  return bodies;
}

[[noreturn]] void Die(const char* what) {
  std::perror(what);
  std::abort();
}

// An unnamed file for a child's standard stream. Unlike a pipe it never fills and has no end that
// an orphaned grandchild could keep open.
int MakeCaptureFile() {
  const int fd = memfd_create("captured", MFD_CLOEXEC);
  if (fd < 0 || fcntl(fd, F_SETFL, O_APPEND) != 0) {
    Die("memfd_create");
  }
  return fd;
}

std::string ReadCaptured(int fd) {
  std::string text;
  struct stat status = {};
  if (fd < 0 || fstat(fd, &status) != 0) {
    return text;
  }
  text.resize(static_cast<std::size_t>(status.st_size));
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count =
        pread(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (count <= 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  text.resize(done);
  return text;
}

bool WriteAll(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = write(fd, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

// The strings and pointers of argv and envp, made before the fork: after it nothing may allocate.
struct tagImage {
  std::vector<std::string> m_Text;
  std::vector<char*> m_Argv;
  std::vector<char*> m_Envp;
};

void MakeImage(const std::vector<std::string>& command, const tagChildOptions& options,
               tagImage* image) {
  std::map<std::string, std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    char* equals = std::strchr(*entry, '=');
    if (equals != nullptr) {
      environment[std::string(*entry, equals)] = equals + 1;
    }
  }
  for (const auto& [name, value] : options.m_Environment) {
    environment[name] = value;
  }
  image->m_Text = command;
  for (const auto& [name, value] : environment) {
    image->m_Text.push_back(name + "=" + value);
  }
  for (std::size_t i = 0; i < image->m_Text.size(); ++i) {
    (i < command.size() ? image->m_Argv : image->m_Envp).push_back(image->m_Text[i].data());
  }
  image->m_Argv.push_back(nullptr);
  image->m_Envp.push_back(nullptr);
}

struct tagStreams {
  int m_Input;
  int m_Output;
  int m_Error;
};

// Between fork and exec: only calls that are safe there.
[[noreturn]] void BecomeProgram(const tagImage& image, const tagStreams& streams,
                                const char* folder) {
  setsid();
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const rlimit noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  // What the test runner left open is none of the child's business.
  for (int fd = 3; fd < 1024; ++fd) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
  }
  if (dup2(streams.m_Input, 0) == 0 && dup2(streams.m_Output, 1) == 1 &&
      dup2(streams.m_Error, 2) == 2 && (folder[0] == '\0' || chdir(folder) == 0)) {
    execvpe(image.m_Argv[0], image.m_Argv.data(), image.m_Envp.data());
  }
  const char* message = std::strerror(errno);
  if (write(2, message, std::strlen(message)) < 0) {
    _exit(126);
  }
  _exit(127);
}

int OpenInput(const tagChildOptions& options, int* writeEnd) {
  if (options.m_IsInputPiped) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      Die("pipe2");
    }
    *writeEnd = ends[1];
    return ends[0];
  }
  if (options.m_Input.empty()) {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
  }
  const int fd = memfd_create("input", MFD_CLOEXEC);
  if (fd < 0 || !WriteAll(fd, options.m_Input) || lseek(fd, 0, SEEK_SET) != 0) {
    Die("input");
  }
  return fd;
}

}  // namespace

int ScaledMs(int limitMs) {
  return limitMs * KELVIK_TIME_FACTOR;
}

CChild::CChild(std::vector<std::string> command, const tagChildOptions& options) {
  tagImage image;
  MakeImage(command, options, &image);
  const int inputFd = OpenInput(options, &m_InputFd);
  m_OutputFd = MakeCaptureFile();
  m_ErrorFd = options.m_IsErrorJoined ? m_OutputFd : MakeCaptureFile();
  // What stands in our own buffers must not be written a second time by a child that fails to exec.
  std::fflush(nullptr);
  m_StartMs = RealClockMs();
  m_EndMs = m_StartMs + ScaledMs(options.m_LimitMs);
  m_Pid = fork();
  if (m_Pid < 0) {
    Die("fork");
  }
  if (m_Pid == 0) {
    BecomeProgram(image, {inputFd, m_OutputFd, m_ErrorFd}, options.m_Folder.c_str());
  }
  close(inputFd);
}

CChild::~CChild() {
  if (!Look()) {
    Kill();
  }
  CloseInput();
  if (m_ErrorFd != m_OutputFd) {
    close(m_ErrorFd);
  }
  close(m_OutputFd);
}

// Takes note of its end; true when it has ended.
bool CChild::Look() {
  if (!m_IsReaped) {
    const pid_t pid = waitpid(m_Pid, &m_Status, WNOHANG);
    m_IsReaped = pid == m_Pid || (pid < 0 && errno == ECHILD);
  }
  return m_IsReaped;
}

// It has not been reaped, so its id, and that of the group it leads, cannot be anyone else's.
void CChild::Kill() {
  kill(-m_Pid, SIGKILL);
  kill(m_Pid, SIGKILL);
  while (waitpid(m_Pid, &m_Status, 0) < 0 && errno == EINTR) {
  }
  m_IsReaped = true;
}

bool CChild::IsRunning() {
  return !Look();
}

std::string CChild::Output() const {
  return ReadCaptured(m_OutputFd);
}

std::string CChild::Errors() const {
  return m_ErrorFd == m_OutputFd ? std::string() : ReadCaptured(m_ErrorFd);
}

bool CChild::WaitForOutput(const std::string& text, int limitMs) {
  const auto isThere = [&] { return Output().find(text) != std::string::npos; };
  WaitUntil([&] { return isThere() || Look(); }, limitMs);
  return isThere();
}

bool CChild::Write(const std::string& text) {
  // A reader that went away must not end the test program.
  sigset_t pipeSignal;
  sigset_t before;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
  const bool isWritten = m_InputFd >= 0 && WriteAll(m_InputFd, text);
  if (!isWritten && errno == EPIPE) {
    const timespec noTime = {0, 0};
    sigtimedwait(&pipeSignal, nullptr, &noTime);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return isWritten;
}

void CChild::CloseInput() {
  if (m_InputFd >= 0) {
    close(m_InputFd);
    m_InputFd = -1;
  }
}

void CChild::Signal(int number) {
  if (!Look()) {
    kill(m_Pid, number);
  }
}

tagChildResult CChild::Wait() {
  while (!Look()) {
    if (RealClockMs() >= m_EndMs) {
      m_TimedOut = true;
      Kill();
      break;
    }
    PauseMs(1);
  }
  tagChildResult result;
  result.m_TimedOut = m_TimedOut;
  result.m_ElapsedMs = RealClockMs() - m_StartMs;
  result.m_ExitCode = WIFEXITED(m_Status) ? WEXITSTATUS(m_Status) : -1;
  result.m_Signal = WIFSIGNALED(m_Status) ? WTERMSIG(m_Status) : 0;
  result.m_Output = Output();
  result.m_Errors = Errors();
  return result;
}

std::vector<std::string> ProgramCommand(const std::string& path,
                                        const std::vector<std::string>& args) {
  std::vector<std::string> command;
  std::istringstream emulator(KELVIK_EMULATOR);
  for (std::string word; emulator >> word;) {
    command.push_back(word);
  }
  command.push_back(path);
  command.insert(command.end(), args.begin(), args.end());
  return command;
}

std::vector<std::string> ChildCommand(const std::string& name,
                                      const std::vector<std::string>& args) {
  std::vector<std::string> words = {"--child=" + name};
  words.insert(words.end(), args.begin(), args.end());
  return ProgramCommand(gSelf, words);
}

std::vector<std::string> ShellCommand(const std::string& script,
                                      const std::vector<std::string>& command,
                                      const std::string& name) {
  std::vector<std::string> words = {"sh", "-c", script, name};
  words.insert(words.end(), command.begin(), command.end());
  return words;
}

tagChildResult RunCommand(const std::vector<std::string>& command, const tagChildOptions& options) {
  CChild child(command, options);
  return child.Wait();
}

tagChildResult RunChild(const std::string& name, const std::vector<std::string>& args,
                        int limitMs) {
  tagChildOptions options;
  options.m_LimitMs = limitMs;
  return RunChild(name, args, options);
}

tagChildResult RunChild(const std::string& name, const std::vector<std::string>& args,
                        const tagChildOptions& options) {
  return RunCommand(ChildCommand(name, args), options);
}

tagChildResult RunProgram(const std::string& path, const std::vector<std::string>& args,
                          const tagChildOptions& options) {
  return RunCommand(ProgramCommand(path, args), options);
}

testing::AssertionResult Succeeded(const tagChildResult& result) {
  if (!result.m_TimedOut && result.m_ExitCode == 0) {
    return testing::AssertionSuccess();
  }
  testing::AssertionResult failure = testing::AssertionFailure();
  if (result.m_TimedOut) {
    failure << "the child was killed after " << result.m_ElapsedMs << " ms";
  } else if (result.m_Signal != 0) {
    failure << "the child died of signal " << result.m_Signal;
  } else {
    failure << "the child's exit code is " << result.m_ExitCode;
  }
  return failure << "\n--- its output:\n"
                 << result.m_Output << "\n--- its errors:\n"
                 << result.m_Errors << "\n---";
}

CChildCase::CChildCase(const char* name, ChildBody body) {
  if (!Bodies().emplace(name, body).second) {
    std::fprintf(stderr, "CHILD_CASE(%s) stands twice in this program\n", name);
    std::abort();
  }
}

bool RunAsChild(int argc, char** argv, int* exitCode) {
  // A test may change the folder before it starts a child.
  char* path = realpath(argv[0], nullptr);
  gSelf = path == nullptr ? argv[0] : path;
  free(path);

  const std::string mark = "--child=";
  if (argc < 2 || std::string(argv[1]).compare(0, mark.size(), mark) != 0) {
    return false;
  }
  const auto found = Bodies().find(argv[1] + mark.size());
  if (found == Bodies().end()) {
    std::fprintf(stderr, "no CHILD_CASE(%s)\n", argv[1] + mark.size());
    *exitCode = kChildUnknownCase;
    return true;
  }
  *exitCode = found->second(std::vector<std::string>(argv + 2, argv + argc));
  if (testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed()) {
    *exitCode = kChildCheckFailed;
  }
  return true;
}

}  // namespace Kelvik
