// kelviklog: a pipe into the library. Standard input or files come in, each line goes out as one
// record to the terminal, syslog and a ring of files.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "ConfigLock.h"
#include "Input.h"
#include "LineLogger.h"
#include "LineReader.h"
#include "Options.h"
#include "Outputs.h"
#include "Progress.h"
#include "StopSignal.h"

namespace KelvikLog {

namespace {

constexpr std::size_t kReadBytes = 262144;  // of one read at most; a longer line comes in parts

// Keeps descriptors 0 to 2 from being given to a file when the parent has closed them. Each is held
// open the wrong way round, so that reading or writing fails as it does on a closed one.
void HoldStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) == -1) {
      // The lowest free descriptor is this one.
      [[maybe_unused]] const int held = open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}

int Fail(int exitCode, const std::string& problem) {
  std::fprintf(stderr, "kelviklog: %s\n", problem.c_str());
  return exitCode;
}

// One run over all the inputs.
class CRun {
 public:
  CRun(const CStopSignal& stop, COutputs& outputs, bool showsProgress)
      : m_Stop(stop),
        m_Outputs(outputs),
        m_Logger(outputs.Style()),
        m_Reader(kReadBytes),
        m_Progress(showsProgress) {}

  // Logs every line of the input. Returns false when the program should end. An input that cannot
  // be read is reported, and the next one is as welcome.
  bool LogInput(const std::string& name) {
    CInput input;
    std::string problem;
    if (!input.Open(name, problem)) {
      m_ExitCode = Fail(kExitFailed, problem);
      return true;
    }
    m_Progress.Begin(input.Name(), input.Size());
    eReadResult result = eReadResult::kBytes;
    bool goesOn = true;
    int handOverMs = -1;
    while (goesOn && (result == eReadResult::kBytes || result == eReadResult::kQuiet)) {
      std::size_t room = 0;
      std::size_t count = 0;
      char* const space = m_Reader.Space(room);
      result = input.Read(m_Stop.Descriptor(), handOverMs, space, room, count, problem);
      if (handOverMs == 0 || result == eReadResult::kQuiet) {
        m_Outputs.HandOver();
        handOverMs = -1;
      }
      if (result != eReadResult::kBytes) continue;
      m_Reader.Add(count);
      m_Progress.Add(count);
      if (m_Outputs.HasTerminal()) m_Progress.Clear();
      tagLine line;
      while (m_Reader.Next(line)) {
        m_Logger.Log(line);
      }
      // Now, since the next read may wait for long.
      goesOn = m_Outputs.Flush();
      m_Progress.Draw();
      handOverMs = m_Outputs.HandOverDueMs();
    }
    m_Progress.End();
    tagLine rest;
    if (m_Reader.Rest(rest)) {
      m_Logger.Log(rest);
    }
    m_Outputs.HandOver();  // opening the next input may wait for long
    if (result == eReadResult::kFailed) {
      m_ExitCode = Fail(kExitFailed, problem);
    }
    return goesOn && result != eReadResult::kStopped;
  }

  int Finish() {
    std::string problem;
    if (!m_Outputs.Finish(m_Logger.Refused(), problem)) {
      m_ExitCode = Fail(kExitFailed, problem);
    }
    return m_ExitCode;
  }

 private:
  const CStopSignal& m_Stop;
  COutputs& m_Outputs;
  CLineLogger m_Logger;
  CLineReader m_Reader;
  CProgress m_Progress;
  int m_ExitCode = kExitDelivered;
};

// Where nothing else is written unless it was asked for: between records on the same terminal the
// line would come and go.
bool ShowsProgress(const tagOptions& options, const COutputs& outputs) {
  return options.m_Progress.value_or(!outputs.HasTerminal()) && isatty(STDERR_FILENO) == 1;
}

int Run(const tagOptions& options) {
  std::string problem;
  CStopSignal stop;
  CConfigLock lock;
  if (!stop.Install(problem) || (options.m_Config && !lock.Take(*options.m_Config, problem))) {
    return Fail(kExitFailed, problem);
  }
  COutputs outputs(options);
  if (const int exitCode = outputs.Start(problem); exitCode != kExitDelivered) {
    return Fail(exitCode, problem);
  }
  CRun run(stop, outputs, ShowsProgress(options, outputs));
  for (const std::string& name : options.m_Files) {
    if (!run.LogInput(name)) break;
  }
  return run.Finish();
}

}  // namespace

}  // namespace KelvikLog

int main(int argc, char** argv) {
  using namespace KelvikLog;
  HoldStandardDescriptors();
  try {
    tagOptions options;
    const std::optional<int> exitCode = ParseOptions(argc, argv, options);
    return exitCode ? *exitCode : Run(options);
  } catch (const std::exception& error) {
    return Fail(kExitFailed, error.what());
  }
}
