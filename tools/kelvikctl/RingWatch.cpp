#include "RingWatch.h"

#include <poll.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>

namespace KelvikCtl {

namespace {

// Without the system's help: how old a change may get.
constexpr int kBlindMs = 100;
// A file that grows record by record does not wake us for each of them.
constexpr int kGatherMs = 10;

std::string FolderOf(const std::string& path) {
  char* const real = realpath(path.c_str(), nullptr);
  const std::string name = real == nullptr ? path : real;
  free(real);
  const std::size_t slash = name.rfind('/');
  return slash == std::string::npos ? "." : name.substr(0, slash + 1);
}

void Drain(int fd) {
  alignas(inotify_event) char events[4096];
  while (read(fd, events, sizeof(events)) > 0) {
  }
}

}  // namespace

CRingWatch::CRingWatch(const std::string& config, int stopFd)
    : m_StopFd(stopFd),
      m_SavedFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      m_GrownFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  // A save puts another file in its place, or writes into it where that cannot be done.
  inotify_add_watch(m_SavedFd, FolderOf(config).c_str(), IN_MOVED_TO | IN_CLOSE_WRITE);
}

CRingWatch::~CRingWatch() {
  close(m_SavedFd);
  close(m_GrownFd);
}

void CRingWatch::Follow(int fd) {
  if (fd == m_File) return;
  if (m_Watch != -1) inotify_rm_watch(m_GrownFd, m_Watch);
  m_File = fd;
  m_Watch = -1;
  if (fd == -1) return;
  // By the descriptor: the name may be another file's by now.
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  m_Watch = inotify_add_watch(m_GrownFd, path.c_str(), IN_MODIFY);
}

bool CRingWatch::Wait(int limitMs) {
  if (m_SavedFd == -1 || m_GrownFd == -1 || (m_File != -1 && m_Watch == -1)) {
    limitMs = std::min(limitMs, kBlindMs);
  }
  eWoken woken = Poll(limitMs, true);
  // A change of the file cannot wait: a small ring may go round in no time.
  if (woken == eWoken::kGrown) woken = Poll(kGatherMs, false);
  return woken != eWoken::kStop;
}

CRingWatch::eWoken CRingWatch::Poll(int limitMs, bool alsoGrown) {
  // A pipe whose reader is gone reports an error, unasked.
  pollfd waits[] = {{m_StopFd, POLLIN, 0},
                    {STDOUT_FILENO, 0, 0},
                    {m_SavedFd, POLLIN, 0},
                    {alsoGrown ? m_GrownFd : -1, POLLIN, 0}};
  const int ready = poll(waits, 4, limitMs);
  if (ready <= 0) return eWoken::kTimeOut;
  if (waits[0].revents != 0 || waits[1].revents != 0) return eWoken::kStop;
  if (waits[2].revents != 0) {
    Drain(m_SavedFd);
    return eWoken::kSaved;
  }
  Drain(m_GrownFd);
  return eWoken::kGrown;
}

}  // namespace KelvikCtl
