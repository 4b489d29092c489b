// kelvikctl: the operator's client of the network console. It asks and changes a running process.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <optional>

#include "Commands.h"
#include "Failure.h"
#include "Options.h"
#include "StandardOutput.h"

namespace KelvikCtl {

namespace {

// Keeps descriptors 0 to 2 from being given to a terminal or socket when the parent has closed
// them. Each is held open the wrong way round, so that reading or writing fails as it does on a
// closed one.
void HoldStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) == -1) {
      // The lowest free descriptor is this one.
      [[maybe_unused]] const int held = open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}

int Fail(int exitCode, const char* reason) {
  std::fprintf(stderr, "kelvikctl: %s\n", reason);
  return exitCode;
}

int Run(int argc, char** argv) {
  tagOptions options;
  const std::optional<int> exitCode = ParseOptions(argc, argv, options);
  if (exitCode) return *exitCode;
  const int result = RunCommand(options);
  return FinishOutput() ? result : Fail(kExitRefused, "cannot write to standard output");
}

}  // namespace

}  // namespace KelvikCtl

int main(int argc, char** argv) {
  using namespace KelvikCtl;
  HoldStandardDescriptors();
  static_cast<void>(signal(SIGPIPE, SIG_IGN));
  try {
    return Run(argc, argv);
  } catch (const CFailure& failure) {
    return Fail(failure.ExitCode(), failure.what());
  } catch (const std::exception& error) {
    return Fail(kExitRefused, error.what());
  }
}
