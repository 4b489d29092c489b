#include "StandardOutput.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace KelvikCtl {

namespace {

// A pipe that is ready takes so much without waiting.
constexpr std::size_t kPieceBytes = 4096;

bool gHasFailed = false;

}  // namespace

eWrite WriteOut(const char* bytes, std::size_t size, int stopFd, int waitMs) {
  while (size > 0) {
    pollfd waiting[] = {{STDOUT_FILENO, POLLOUT, 0}, {stopFd, POLLIN, 0}};
    const int ready = poll(waiting, 2, waitMs);
    if (ready == -1) continue;
    if (ready == 0 || waiting[1].revents != 0) return eWrite::kStopped;
    const ssize_t written = write(STDOUT_FILENO, bytes, std::min(size, kPieceBytes));
    if (written == -1 && errno != EINTR && errno != EAGAIN) {
      gHasFailed = gHasFailed || errno != EPIPE;
      return eWrite::kFailed;
    }
    if (written > 0) {
      bytes += written;
      size -= static_cast<std::size_t>(written);
    }
  }
  return eWrite::kDone;
}

void PrintLine(const std::string& line) {
  const std::string text = line + "\n";
  WriteOut(text.data(), text.size(), -1);
}

bool FinishOutput() {
  return !gHasFailed;
}

}  // namespace KelvikCtl
