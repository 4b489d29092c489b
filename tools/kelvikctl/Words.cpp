#include "Words.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace KelvikCtl {

namespace {

constexpr tagSwitchWords kSwitches[kSwitchCount] = {
    {"terminal", "-printf"},  {"syslog", "-syslog"},     {"file", "-file"},
    {"time", "-time"},        {"tid", "-tid"},           {"debug", "-leveldbg"},
    {"info", "-levelinfo"},   {"warning", "-levelwarn"}, {"error", "-levelerror"},
    {"fatal", "-levelfatal"},
};

// The size is kept in bytes as a signed 32-bit number. A duration or a count of 0 would keep
// nothing.
constexpr tagLimit kLimits[] = {
    {"size", "-logsize", 1, 2097151, true, "0 to 2097151 KiB"},
    {"duration", "-logduration", 1, std::numeric_limits<int32_t>::max(), false,
     "1 to 2147483647 seconds"},
    {"count", "-logcount", 1, 10, false, "1 to 10 files"},
    {"buffer", "-buffersize", 1, 1024, false, "1 to 1024 KiB"},
    {"interval", "-interval", 200, 3600000, true, "0, or 200 to 3600000 milliseconds"},
};

constexpr double kLeastSeconds = 0.1;

bool IsDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool IsControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7F;
}

char ToLower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

}  // namespace

const tagSwitchWords& SwitchWords(eSwitch which) {
  return kSwitches[which];
}

const tagLimit* FindLimit(const std::string& name) {
  for (const tagLimit& limit : kLimits) {
    if (EqualsIgnoringCase(name, limit.m_Name)) return &limit;
  }
  return nullptr;
}

std::optional<eSwitch> ParseSwitch(const std::string& text, eSwitch first, eSwitch last) {
  for (std::size_t which = first; which <= last; ++which) {
    if (EqualsIgnoringCase(text, kSwitches[which].m_Name)) return static_cast<eSwitch>(which);
  }
  if (first == kFirstLevel && text.size() == 1 && text[0] >= '1' && text[0] <= '5') {
    return static_cast<eSwitch>(kFirstLevel + static_cast<std::size_t>(text[0] - '1'));
  }
  return std::nullopt;
}

std::optional<bool> ParseOnOff(const std::string& text) {
  if (EqualsIgnoringCase(text, "on")) return true;
  if (EqualsIgnoringCase(text, "off")) return false;
  return std::nullopt;
}

std::optional<int32_t> ParseNumber(const std::string& text) {
  const bool isNegative = !text.empty() && text[0] == '-';
  const std::string digits = text.substr(isNegative ? 1 : 0);
  if (!IsDigits(digits) || digits.size() > 10) return std::nullopt;
  const long long number = std::strtoll(text.c_str(), nullptr, 10);
  if (number < std::numeric_limits<int32_t>::min() ||
      number > std::numeric_limits<int32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<int32_t>(number);
}

std::optional<int> ParseSeconds(const std::string& text, int most) {
  std::string digits = text;
  const std::size_t point = digits.find('.');
  if (point != std::string::npos) digits.erase(point, 1);
  if (!IsDigits(digits) || text.size() > 16) return std::nullopt;
  const double seconds = std::strtod(text.c_str(), nullptr);
  if (seconds < kLeastSeconds || seconds > most) return std::nullopt;
  return static_cast<int>(seconds * 1000);
}

bool IsAllowed(const tagLimit& limit, int32_t number) {
  return (number >= limit.m_Least && number <= limit.m_Most) || (number == 0 && limit.m_OrZero);
}

std::string WordProblem(const std::string& text, std::size_t mostBytes) {
  if (text.empty()) return "a word is empty";
  if (text.size() > mostBytes) {
    return "a word is longer than " + std::to_string(mostBytes) + " bytes";
  }
  if (text.find(' ') != std::string::npos) {
    return "'" + Printable(text) + "' has a blank inside; the console takes it as two words";
  }
  if (std::any_of(text.begin(), text.end(), IsControl)) {
    return "'" + Printable(text) + "' has a control character inside";
  }
  return "";
}

bool EqualsIgnoringCase(const std::string& left, const std::string& right) {
  return left.size() == right.size() && strcasecmp(left.c_str(), right.c_str()) == 0;
}

bool ContainsIgnoringCase(const std::string& text, const std::string& part) {
  return std::search(text.begin(), text.end(), part.begin(), part.end(), [](char left, char right) {
           return ToLower(left) == ToLower(right);
         }) != text.end();
}

std::string JoinWords(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += ' ';
    text += word;
  }
  return text;
}

const std::string* FindModule(const std::vector<std::string>& modules, const std::string& word) {
  const auto found = std::find_if(
      modules.begin(), modules.end(),
      [&word](const std::string& module) { return ContainsIgnoringCase(module, word); });
  return found == modules.end() ? nullptr : &*found;
}

std::string Printable(const std::string& text) {
  std::string clean;
  for (const char character : text) {
    if (!IsControl(character)) {
      clean += character;
      continue;
    }
    char code[5];
    std::snprintf(code, sizeof(code), "\\x%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(character)));
    clean += code;
  }
  return clean;
}

}  // namespace KelvikCtl
