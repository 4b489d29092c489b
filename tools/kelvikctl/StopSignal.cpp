#include "StopSignal.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include "Failure.h"

namespace KelvikCtl {

namespace {

constexpr std::array<int, 5> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

// Set before a handler is installed.
std::array<int, 2> gPipe = {-1, -1};
std::array<struct sigaction, kSignals.size()> gBefore;
std::size_t gCaught = 0;

void OnSignal(int number) {
  const int error = errno;
  const auto byte = static_cast<unsigned char>(number);
  // A full pipe is readable already.
  [[maybe_unused]] const ssize_t written = write(gPipe[1], &byte, 1);
  errno = error;
}

struct sigaction Action(void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  return action;
}

}  // namespace

CStopSignal::CStopSignal(bool catchesStop) {
  if (pipe2(gPipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw CFailure(kExitRefused, std::string("cannot make a pipe: ") + std::strerror(errno));
  }
  gCaught = catchesStop ? kSignals.size() : kSignals.size() - 1;
  const struct sigaction action = Action(OnSignal);
  for (std::size_t i = 0; i < gCaught; ++i) {
    sigaction(kSignals.at(i), nullptr, &gBefore.at(i));
    if (gBefore.at(i).sa_handler != SIG_IGN) sigaction(kSignals.at(i), &action, nullptr);
  }
  static_cast<void>(signal(SIGPIPE, SIG_IGN));
}

CStopSignal::~CStopSignal() {
  for (std::size_t i = 0; i < gCaught; ++i)
    sigaction(kSignals.at(i), &gBefore.at(i), nullptr);
  close(gPipe[0]);
  close(gPipe[1]);
}

int CStopSignal::Descriptor() const {
  return gPipe[0];
}

bool CStopSignal::HasCome() const {
  pollfd waiting = {gPipe[0], POLLIN, 0};
  return poll(&waiting, 1, 0) == 1;
}

int CStopSignal::Take() {
  int last = 0;
  unsigned char number = 0;
  while (read(gPipe[0], &number, 1) == 1) {
    if (number != SIGTSTP || last == 0) last = number;
  }
  return last;
}

void CStopSignal::StopNow() {
  const struct sigaction standard = Action(SIG_DFL);
  struct sigaction before = {};
  sigaction(SIGTSTP, &standard, &before);
  raise(SIGTSTP);
  sigaction(SIGTSTP, &before, nullptr);
}

}  // namespace KelvikCtl
