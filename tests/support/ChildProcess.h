// Runs the cases that must not share a process with anything else: the process-wide context, exit,
// standard output, signals, crashes. A child is another run of the same test program (or any other
// program), in a session of its own, with captured output and a hard time limit:
//
//   CHILD_CASE(ExitWithFullBuffer) {   // std::vector<std::string> args; the result is the exit
//   code
//     Initialize();
//     return 0;
//   }
//   TEST(Exit, FullBufferIsWritten) {
//     const tagChildResult result = RunChild("ExitWithFullBuffer", {folder.Path()}, 2000);
//     EXPECT_TRUE(Succeeded(result));
//   }
//
// This works under the sanitizers and under an emulator, where a fork that goes on does not. Time
// limits are milliseconds, multiplied by the build's KELVIK_TIME_FACTOR. EXPECT_ and ASSERT_ (in a
// void function) may be used in a child; a failure there makes the exit code kChildCheckFailed.

#ifndef KELVIK_CHILDPROCESS_H_
#define KELVIK_CHILDPROCESS_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Kelvik {

constexpr int kChildCheckFailed = 97;
constexpr int kChildUnknownCase = 98;
constexpr int kChildDefaultLimitMs = 10000;

struct tagChildResult {
  bool m_TimedOut = false;  // it was killed at its limit
  int m_ExitCode = -1;      // -1 when a signal ended it
  int m_Signal = 0;         // the signal that ended it, or 0
  int64_t m_ElapsedMs = 0;  // not scaled; a little more than it took
  std::string m_Output;     // standard output
  std::string m_Errors;     // standard error
};

struct tagChildOptions {
  int m_LimitMs = kChildDefaultLimitMs;
  std::string m_Input;           // its whole standard input; /dev/null when empty
  bool m_IsInputPiped = false;   // instead: a pipe that CChild::Write fills
  bool m_IsErrorJoined = false;  // standard error goes to the same place as standard output
  std::string m_Folder;          // where it runs; empty: here
  std::vector<std::pair<std::string, std::string>> m_Environment;  // set beside what is inherited
};

// One child while it runs. Ends it, with its process group, if it is still there at the end of the
// scope. For one thread.
class CChild {
 public:
  // Starts argv[0] with the given words. A start that fails shows as exit code 127.
  explicit CChild(std::vector<std::string> command, const tagChildOptions& options = {});
  CChild(const CChild&) = delete;
  CChild& operator=(const CChild&) = delete;
  ~CChild();

  pid_t Pid() const { return m_Pid; }
  bool IsRunning();
  // What it has written so far.
  std::string Output() const;
  std::string Errors() const;
  // Waits until the text stands in its standard output; false when it ended without or time is up.
  bool WaitForOutput(const std::string& text, int limitMs);
  // With m_IsInputPiped. Write waits when the pipe is full; false when nobody reads any more.
  bool Write(const std::string& text);
  void CloseInput();
  void Signal(int number);
  // Waits for its end, at most until the limit counted from the start, then kills it.
  tagChildResult Wait();

 private:
  bool Look();
  void Kill();

  pid_t m_Pid = -1;
  int m_OutputFd = -1;
  int m_ErrorFd = -1;
  int m_InputFd = -1;  // our end of the pipe
  int64_t m_StartMs = 0;
  int64_t m_EndMs = 0;
  bool m_IsReaped = false;
  int m_Status = 0;
  bool m_TimedOut = false;
};

// The command line that runs CHILD_CASE(name) of this test program, the emulator included.
std::vector<std::string> ChildCommand(const std::string& name,
                                      const std::vector<std::string>& args = {});
// The command line that runs a program of the same build, the emulator included.
std::vector<std::string> ProgramCommand(const std::string& path,
                                        const std::vector<std::string>& args = {});
// The command line of a shell that runs the script, in which "$@" is the command and "$0" the name.
std::vector<std::string> ShellCommand(const std::string& script,
                                      const std::vector<std::string>& command,
                                      const std::string& name = "sh");

tagChildResult RunCommand(const std::vector<std::string>& command,
                          const tagChildOptions& options = {});
tagChildResult RunChild(const std::string& name, const std::vector<std::string>& args = {},
                        int limitMs = kChildDefaultLimitMs);
tagChildResult RunChild(const std::string& name, const std::vector<std::string>& args,
                        const tagChildOptions& options);
tagChildResult RunProgram(const std::string& path, const std::vector<std::string>& args = {},
                          const tagChildOptions& options = {});

// Exit code 0 in time; the explanation of anything else holds what the child wrote.
testing::AssertionResult Succeeded(const tagChildResult& result);

// Registration of a child's body; made by CHILD_CASE.
using ChildBody = int (*)(const std::vector<std::string>& args);
class CChildCase {
 public:
  CChildCase(const char* name, ChildBody body);
};

// For main(): remembers how this program was started, and, when it is a child, runs its body.
// Returns true when it was one, with the exit code.
bool RunAsChild(int argc, char** argv, int* exitCode);

}  // namespace Kelvik

#define CHILD_CASE(Name)                                                      \
  static int ChildCase##Name(const std::vector<std::string>& args);           \
  static const ::Kelvik::CChildCase gChildCase##Name(#Name, ChildCase##Name); \
  static int ChildCase##Name([[maybe_unused]] const std::vector<std::string>& args)

#endif  // KELVIK_CHILDPROCESS_H_
