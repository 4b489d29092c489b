// How kelvikctl ends when something does not work: an exit code and one line that says why.

#ifndef KELVIK_KELVIKCTL_FAILURE_H_
#define KELVIK_KELVIKCTL_FAILURE_H_

#include <stdexcept>
#include <string>

namespace KelvikCtl {

constexpr int kExitDone = 0;
constexpr int kExitRefused = 1;   // a reading contradicts what was asked, or it could not be done
constexpr int kExitNoAnswer = 2;  // nobody listens, no answer in time, a file cannot be read
constexpr int kExitUsage = 64;    // nothing was sent

class CFailure : public std::runtime_error {
 public:
  CFailure(int exitCode, const std::string& reason)
      : std::runtime_error(reason), m_ExitCode(exitCode) {}

  int ExitCode() const { return m_ExitCode; }

 private:
  int m_ExitCode;
};

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_FAILURE_H_
