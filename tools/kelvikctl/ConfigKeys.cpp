// The library's own rules are in the code that reads the file; a test holds this table against it.

#include "ConfigKeys.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "IniFile.h"
#include "Words.h"

namespace KelvikCtl {

namespace {

using Said = std::optional<std::string>;

constexpr int kSlots = 10;
constexpr int kKeep = -1;
constexpr std::size_t kPathBytes = 256;
constexpr std::size_t kSlotNameBytes = 127;

constexpr char kDigits[] = "0123456789";

std::size_t SignBytes(const std::string& value) {
  return value.find_first_of("+-") == 0 ? 1 : 0;
}

// The number as the library reads it, which is not always what stands there; kKeep for none.
int ReadNumber(const std::string& value) {
  const std::unique_ptr<xini_keyvalue_t> key(xini_keyvalue_t::try_create("k=" + value, nullptr));
  return key->get_nvalue<int>();
}

// Nothing stands behind the number.
bool IsNumberOnly(const std::string& value) {
  return value.find_first_not_of(kDigits, SignBytes(value)) == std::string::npos;
}

// Why a value is read as kKeep.
std::string IgnoredBecause(const std::string& value) {
  if (value.find_first_of(kDigits) != SignBytes(value)) return "it is no number";
  return std::strtoll(value.c_str(), nullptr, 10) == kKeep ? "-1 stands for as it is"
                                                           : "it does not fit 32 bits";
}

std::string Quoted(const std::string& text) {
  return "'" + Printable(text) + "'";
}

using Judge = Said (*)(int number, const tagContext& context);

Said JudgeSwitch(int number, const tagContext& /*context*/) {
  if (number == 0 || number == 1) return std::nullopt;
  return std::to_string(number) + " counts as 0, off";
}

Said JudgeSize(int kib, const tagContext& /*context*/) {
  constexpr int kMost = 2097151;
  if (kib >= 0 && kib <= kMost) return std::nullopt;
  const auto bytes = static_cast<int32_t>(static_cast<uint32_t>(kib) * 1024U);
  return std::to_string(kib) + " KiB counts as " + std::to_string(bytes) + " bytes: 0 to " +
         std::to_string(kMost) + " can be said";
}

Said JudgeDuration(int seconds, const tagContext& context) {
  if (seconds < 0) return "a duration below 0 is as good as none";
  if (seconds == 0 && context.m_SizeKib == 0) return "with LogMaxSize 0 too no file is written";
  return std::nullopt;
}

Said JudgeCount(int count, const tagContext& /*context*/) {
  if (count > kSlots) return std::to_string(count) + " counts as 10, the most";
  if (count < 1) {
    return std::to_string(count) + " keeps one file, and a restart forgets it: 1 to 10 can be said";
  }
  return std::nullopt;
}

Said JudgeBuffer(int kib, const tagContext& /*context*/) {
  if (kib >= 1 && kib <= 1024) return std::nullopt;
  return std::to_string(kib) + " is ignored: 1 to 1024 KiB can be said";
}

Said JudgeInterval(int ms, const tagContext& /*context*/) {
  if (ms == 0 || ms >= 200) return std::nullopt;
  return std::to_string(ms) + " is ignored: 0, or 200 ms and more, can be said";
}

Said JudgeIndex(int slot, const tagContext& context) {
  const int count = context.m_Count == kKeep || context.m_Count > kSlots ? kSlots : context.m_Count;
  if (slot >= 0 && slot < count) return std::nullopt;
  return "there is no slot " + std::to_string(slot) + ": a start begins in slot 0";
}

Said JudgeTime(int number, const tagContext& /*context*/) {
  if (number == 1) return std::nullopt;
  return "is never read, and a save writes 1";
}

Said JudgeThreadId(int number, const tagContext& /*context*/) {
  if (number == 0 || number == 1) return std::nullopt;
  return "is never read, and a save writes 0 or 1";
}

struct tagKey {
  const char* m_Name;
  Judge m_Judge;
  bool m_IsRead;  // a value that is no number says nothing where somebody would read it
  bool m_InModule;
};

constexpr tagKey kKeys[] = {
    {"OutputConsole", JudgeSwitch, true, false},    {"OutputSystem", JudgeSwitch, true, false},
    {"OutputFile", JudgeSwitch, true, false},       {"OutputDateTime", JudgeTime, false, true},
    {"OutputThreadID", JudgeThreadId, false, true}, {"LogMaxSize", JudgeSize, true, false},
    {"LogMaxDuration", JudgeDuration, true, false}, {"LogMaxCount", JudgeCount, true, false},
    {"bufferSize", JudgeBuffer, true, false},       {"writeInterval", JudgeInterval, true, false},
    {"LevelDbg", JudgeSwitch, true, true},          {"LevelInfo", JudgeSwitch, true, true},
    {"LevelWar", JudgeSwitch, true, true},          {"LevelError", JudgeSwitch, true, true},
    {"LevelFatal", JudgeSwitch, true, true},        {"LogIndex", JudgeIndex, true, false},
};

Said JudgeNumber(const tagKey& key, const std::string& value, const tagContext& context) {
  if (value.empty()) return std::nullopt;
  const int number = ReadNumber(value);
  if (key.m_IsRead && number == kKeep) {
    return Quoted(value) + " is ignored: " + IgnoredBecause(value);
  }
  if (key.m_IsRead && !IsNumberOnly(value)) {
    return Quoted(value) + " is read as " + std::to_string(number);
  }
  return key.m_Judge(number, context);
}

Said JudgeFolder(const std::string& path) {
  if (path.find('\0') != std::string::npos) return "is ignored: there is a NUL byte in it";
  if (path.size() > kPathBytes) {
    return "has " + std::to_string(path.size()) + " characters: the first 256 are kept";
  }
  if (path.find(" ;") != std::string::npos || path.find(" #") != std::string::npos) {
    return "goes to the end of the line: a comment needs a line of its own";
  }
  return std::nullopt;
}

Said JudgeOverflow(const std::string& value) {
  if (value.empty() || EqualsIgnoringCase(value, "replace") || EqualsIgnoringCase(value, "write")) {
    return std::nullopt;
  }
  return Quoted(value) + " is ignored: replace or write can be said";
}

Said JudgeFileName(int slot, const std::string& path, const tagContext& context) {
  if (path.empty()) return std::nullopt;
  if (context.m_Count != kKeep && slot >= context.m_Count) {
    return "is left over: with LogMaxCount " + std::to_string(context.m_Count) +
           " a start does not take the file into its ring";
  }
  if (path.find('\0') != std::string::npos) return "is ignored: there is a NUL byte in it";
  if (path.size() <= kSlotNameBytes) return std::nullopt;
  const std::string& folder = context.m_Folder;
  const bool isKept = !folder.empty() && path.compare(0, folder.size(), folder) == 0 &&
                      path.find('/', folder.size()) == std::string::npos;
  if (isKept && path.size() > folder.size()) return std::nullopt;
  return "has " + std::to_string(path.size()) + " characters: a start forgets the file";
}

Said JudgeFileKey(const std::string& key, const std::string& value, const tagContext& context) {
  for (int slot = 0; slot < kSlots; ++slot) {
    if (EqualsIgnoringCase(key, "fileName_" + std::to_string(slot))) {
      return JudgeFileName(slot, value, context);
    }
  }
  return "is no key that the library reads: fileName_0 to fileName_9 are";
}

}  // namespace

std::optional<std::string> JudgeKey(eSection section, const std::string& key,
                                    const std::string& value, const tagContext& context) {
  if (section == eSection::kFileNames) return JudgeFileKey(key, value, context);
  if (EqualsIgnoringCase(key, "Version")) return std::nullopt;
  const bool isGlobal = section == eSection::kGlobal;
  if (isGlobal && EqualsIgnoringCase(key, "LogFilePath")) return JudgeFolder(value);
  if (isGlobal && EqualsIgnoringCase(key, "Overflow")) return JudgeOverflow(value);
  for (const tagKey& known : kKeys) {
    if (!EqualsIgnoringCase(key, known.m_Name)) continue;
    if (!isGlobal && !known.m_InModule) return "is read in section Global only";
    return JudgeNumber(known, value, context);
  }
  const bool isGlobalText =
      EqualsIgnoringCase(key, "LogFilePath") || EqualsIgnoringCase(key, "Overflow");
  if (isGlobalText) return "is read in section Global only";
  return "is no key that the library reads";
}

}  // namespace KelvikCtl
