#include "CrashFlush.h"

#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <cstddef>

#include "Global.h"
#include "Kelvik.h"
#include "Relaxed.h"

namespace Kelvik {
namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr size_t kSignalCount = sizeof(kSignals) / sizeof(kSignals[0]);

struct sigaction s_Earlier[kSignalCount];
int32_t s_Crashing = 0;
pthread_mutex_t s_InstallLock = PTHREAD_MUTEX_INITIALIZER;
bool s_Installed = false;  // guarded by s_InstallLock

bool IsDefault(const struct sigaction& action) {
  if ((action.sa_flags & SA_SIGINFO) != 0) return false;
  return action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN;
}

// What would have happened without us. A fault that is taken by default comes again as soon as this
// returns, or at once by the raised signal, which waits until then.
void PassOn(size_t index, int number, siginfo_t* info, void* context) {
  const struct sigaction& earlier = s_Earlier[index];
  if (IsDefault(earlier)) {
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    ::sigemptyset(&standard.sa_mask);
    ::sigaction(number, &standard, nullptr);
    ::raise(number);
  } else if ((earlier.sa_flags & SA_SIGINFO) != 0) {
    earlier.sa_sigaction(number, info, context);
  } else {
    earlier.sa_handler(number);
  }
}

void OnCrash(int number, siginfo_t* info, void* context) {
  const int callerErrno = errno;
  // The first crash saves the text; one that comes while it does (a fault in here included) does
  // not try again.
  if (__atomic_exchange_n(&s_Crashing, 1, __ATOMIC_ACQ_REL) == 0) {
    CGlobal::Instance()->GetOutput().CrashWrite();
    RelaxedStore(s_Crashing, 0);  // the earlier handler may survive the signal
  }
  errno = callerErrno;
  for (size_t i = 0; i < kSignalCount; ++i) {
    if (kSignals[i] == number) PassOn(i, number, info, context);
  }
}

}  // namespace

int InstallCrashFlush() {
  CGlobal::Instance()->GetOutput().KeepFileOpen();
  ::pthread_mutex_lock(&s_InstallLock);
  int result = eResultSuccess;
  if (!s_Installed) {
    struct sigaction action = {};
    action.sa_sigaction = &OnCrash;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    ::sigemptyset(&action.sa_mask);
    // All earlier handlers are known before the first of ours can run.
    for (size_t i = 0; i < kSignalCount; ++i)
      ::sigaction(kSignals[i], nullptr, &s_Earlier[i]);
    for (const int number : kSignals) {
      if (::sigaction(number, &action, nullptr) != 0) result = eResultFailure;
    }
    s_Installed = result == eResultSuccess;
  }
  ::pthread_mutex_unlock(&s_InstallLock);
  return result;
}

}  // namespace Kelvik
