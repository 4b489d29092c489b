#include "Watch.h"

#include <poll.h>
#include <unistd.h>

#include "Clock.h"
#include "StandardOutput.h"
#include "StopSignal.h"

namespace KelvikCtl {

namespace {

constexpr char kHome[] = "\033[H";
constexpr char kClearLine[] = "\033[K";
constexpr char kClearBelow[] = "\033[J";

// The text so that it covers an older one; each line clears what stood behind it.
std::string InPlace(const std::string& text) {
  std::string screen = kHome;
  for (const char character : text) {
    if (character == '\n') screen += kClearLine;
    screen += character;
  }
  return screen + kClearBelow;
}

}  // namespace

void Watch(CProcess& process, const tagOptions& options) {
  const CStopSignal stop(false);
  CDisplay display(process.Client(), options.m_TimeOutMs, stop.Descriptor());
  const bool isTerminal = isatty(STDOUT_FILENO) == 1;
  bool isFirst = true;
  while (!stop.HasCome()) {
    std::string text = display.Read(options.m_Module, options.m_Title);
    // cppcheck-suppress oppositeInnerCondition ; a signal may come while it reads
    if (stop.HasCome()) return;
    if (isTerminal) {
      text = InPlace(text);
      if (isFirst) text.insert(0, kClearBelow);
    } else if (!isFirst) {
      text.insert(0, "\n");
    }
    isFirst = false;
    if (WriteOut(text.data(), text.size(), stop.Descriptor()) != eWrite::kDone) return;
    const int64_t next = NowMs() + options.m_EveryMs;
    pollfd waiting = {stop.Descriptor(), POLLIN, 0};
    while (!stop.HasCome() && NowMs() < next)
      poll(&waiting, 1, LeftMs(next));
  }
}

}  // namespace KelvikCtl
