#include "RecordFilter.h"

#include <string_view>

#include "Words.h"

namespace KelvikCtl {

namespace {

constexpr std::string_view kTimeShape = "dddd-dd-dd dd:dd:dd.ddd ";

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

bool HasTime(std::string_view line) {
  if (line.size() < kTimeShape.size()) return false;
  for (std::size_t at = 0; at < kTimeShape.size(); ++at) {
    const bool isRight = kTimeShape[at] == 'd' ? IsDigit(line[at]) : line[at] == kTimeShape[at];
    if (!isRight) return false;
  }
  return true;
}

// The text begins with "[name]".
bool BeginsWithField(std::string_view text, const std::string& name) {
  return text.size() > name.size() + 1 && text[0] == '[' && text[name.size() + 1] == ']' &&
         EqualsIgnoringCase(std::string(text.substr(1, name.size())), name);
}

// Bytes of a "[number]" at the start, 0 when there is none.
std::size_t NumberField(std::string_view text) {
  if (text.empty() || text[0] != '[') return 0;
  std::size_t at = 1;
  while (at < text.size() && IsDigit(text[at]))
    ++at;
  return at > 1 && at < text.size() && text[at] == ']' ? at + 1 : 0;
}

}  // namespace

bool IsOfModule(const char* line, std::size_t length, const std::string& module) {
  std::string_view text(line, length);
  if (HasTime(text)) text.remove_prefix(kTimeShape.size());
  const std::size_t number = NumberField(text);
  return BeginsWithField(text, module) ||
         (number > 0 && BeginsWithField(text.substr(number), module));
}

bool IsContinuation(const char* line, std::size_t length) {
  const std::string_view text(line, length);
  return !HasTime(text) && (text.empty() || text[0] != '[');
}

bool CRecordFilter::Passes(const char* line, std::size_t length) {
  if (!m_Module.empty()) {
    if (!IsContinuation(line, length)) m_IsInModule = IsOfModule(line, length, m_Module);
    if (!m_IsInModule) return false;
  }
  return m_Text.empty() || std::string_view(line, length).find(m_Text) != std::string_view::npos;
}

}  // namespace KelvikCtl
