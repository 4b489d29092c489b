// The words of a command line and of a console command: what may be said, and how it is written.
// Pure; nothing here knows a socket.

#ifndef KELVIK_KELVIKCTL_WORDS_H_
#define KELVIK_KELVIKCTL_WORDS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KelvikCtl {

// The switches that the process's status shows, in the order of its lines.
enum eSwitch : std::size_t {
  kSwitchTerminal,
  kSwitchSyslog,
  kSwitchFile,
  kSwitchTime,
  kSwitchTid,
  kSwitchDebug,
  kSwitchInfo,
  kSwitchWarning,
  kSwitchError,
  kSwitchFatal,
  kSwitchCount
};

constexpr eSwitch kFirstLevel = kSwitchDebug;

struct tagSwitchWords {
  const char* m_Name;     // as the operator says it: "debug"
  const char* m_Command;  // as the console takes it: "-leveldbg"
};

const tagSwitchWords& SwitchWords(eSwitch which);

// A number that the console takes, with the values that it does not ignore.
struct tagLimit {
  const char* m_Name;     // "size"
  const char* m_Command;  // "-logsize"
  int32_t m_Least;
  int32_t m_Most;
  bool m_OrZero;        // 0 may be said as well
  const char* m_Range;  // for messages
};

const tagLimit* FindLimit(const std::string& name);  // letter case ignored; null when there is none

// A switch by its name (letter case ignored), from first to last; a level also by its number, 1 to
// 5.
std::optional<eSwitch> ParseSwitch(const std::string& text, eSwitch first, eSwitch last);

// "on" or "off", letter case ignored.
std::optional<bool> ParseOnOff(const std::string& text);

// A whole decimal number with nothing before or behind it.
std::optional<int32_t> ParseNumber(const std::string& text);

// Seconds as milliseconds: digits with at most one point, 0.1 to most seconds.
std::optional<int> ParseSeconds(const std::string& text, int most);

bool IsAllowed(const tagLimit& limit, int32_t number);

// What keeps the text from being one word of a command: empty, too long, or with a blank or a
// control character, which the other side would cut or misread. Empty when nothing does.
std::string WordProblem(const std::string& text, std::size_t mostBytes);

bool EqualsIgnoringCase(const std::string& left, const std::string& right);
bool ContainsIgnoringCase(const std::string& text, const std::string& part);

// The words with a blank between them.
std::string JoinWords(const std::vector<std::string>& words);

// The module whose attributes a level command with this word changes: the first, in byte order,
// whose name contains it (letter case ignored). Null: the command would change the global ones.
const std::string* FindModule(const std::vector<std::string>& modules, const std::string& word);

// The text with every control character as \xNN: what another process has sent cannot steer this
// terminal.
std::string Printable(const std::string& text);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_WORDS_H_
