// The requests as tables: kind 3 has a row for each option, which names the form of its value, the
// line number of its report; Apply() does what it asks for. The line numbers are those of the plain
// family.

#include "AttributeRequest.h"

#include <cstdint>
#include <cstring>

#include "Attribute.h"
#include "EntryPoint.h"
#include "Global.h"
#include "Kelvik.h"
#include "Output.h"
#include "Relaxed.h"
#include "SelfReport.h"

namespace Kelvik {

const tagRequestShell kPlainRequestShell = {
    "Kelvik", {"SetAttribute", 0}, {"SetAttributeByModule", 0}, true};

const tagRequestShell kPrefixedRequestShell = {
    "KelvikForC", {"Kelvik_SetAttribute", -9}, {"Kelvik_SetAttributeByModule", -2}, false};

namespace {

constexpr int kOutputOptionLine = 339;
constexpr int kLevelOptionLine = 347;
constexpr int kLevelValueLine = 355;
constexpr int kOtherOptionLine = 489;
constexpr int kKindLine = 507;
constexpr int kModuleOptionLine = 261;
constexpr int kModuleValueLine = 269;

constexpr int kMaxTextLength = 256;
constexpr int kRefusedLogCount = 11;
constexpr uint32_t kBytesPerKib = 1024;

// The request in hand and the name under which its bad arguments are reported.
struct tagRequest {
  const tagRequestShell& m_Shell;
  const tagRequestName& m_Name;
  int m_Option;
  const void* m_Value;
  int m_Length;
};

int Reject(const tagRequest& request, int line, const char* message, int number) {
  ReportNumber(request.m_Shell.m_Source, request.m_Name.m_Function,
               line + request.m_Name.m_LineShift, message, number);
  return eResultInvalid;
}

int RejectOption(const tagRequest& request, int line) {
  return Reject(request, line, "option invalid", request.m_Option);
}

int ParseSwitch(const tagRequest& request, bool& on) {
  return CGlobal::Instance()->ParseValue(request.m_Value, request.m_Length, on);
}

void StoreSwitch(uint8_t& field, bool on) {
  RelaxedStore(field, on ? 1 : 0);
}

// --- Kind 1: sinks ---

void SwitchFileOutput(const tagRequest& request, bool on) {
  uint8_t& field = CGlobal::Instance()->GetAttribute()->m_OutputFile;
  if (!request.m_Shell.m_ClosesFile) {
    StoreSwitch(field, on);
    return;
  }
  const bool wasOn = RelaxedLoad(field) != 0;
  if (wasOn == on) return;
  StoreSwitch(field, on);
  if (!on) CGlobal::Instance()->GetOutput().CloseFile();
}

int RequestOutput(const tagRequest& request) {
  bool on = false;
  // The value comes first here: a bad one is refused silently, whatever the option is.
  const int parsed = ParseSwitch(request, on);
  if (parsed != eResultSuccess) return parsed;
  switch (request.m_Option) {
    case eOutputTerminal:
      StoreSwitch(CGlobal::Instance()->GetAttribute()->m_OutputConsole, on);
      return eResultSuccess;
    case eOutputSyslog:
      StoreSwitch(CGlobal::Instance()->GetAttribute()->m_OutputSystem, on);
      return eResultSuccess;
    case eOutputFile:
      SwitchFileOutput(request, on);
      return eResultSuccess;
    default:
      return RejectOption(request, kOutputOptionLine);
  }
}

// --- Kind 2: level mask ---

// The record is looked up once the request is known to be good.
template <class tLookup>
int RequestLevel(const tagRequest& request, int optionLine, int valueLine, tLookup lookup) {
  if (request.m_Option < eLogLevelDebug || request.m_Option > eLogLevelFatal) {
    return RejectOption(request, optionLine);
  }
  bool on = false;
  const int parsed = ParseSwitch(request, on);
  if (parsed != eResultSuccess) {
    Reject(request, valueLine, "value invalid", request.m_Length);
    return parsed;
  }
  const auto bit = static_cast<uint8_t>(1u << request.m_Option);
  uint8_t& mask = lookup()->m_LevelMask;
  if (on) {
    RelaxedOr(mask, bit);
  } else {
    RelaxedAnd(mask, static_cast<uint8_t>(~bit));
  }
  return eResultSuccess;
}

// --- Kind 3: everything else ---

// A request's value in the form that its row asks for; the other members are zero.
struct tagValue {
  bool m_On;
  const char* m_Text;
  int m_Length;
  int32_t m_Number;
};

enum class eForm : uint8_t { kNone, kSwitch, kText, kNumber };

struct tagOption {
  uint8_t m_Option;
  eForm m_Form;
  uint16_t m_ValueLine;  // 0: every value is good
};

constexpr tagOption kOptions[] = {
    {eOtherDateTime, eForm::kSwitch, 376},       {eOtherLogPath, eForm::kText, 385},
    {eOtherRedirectConsole, eForm::kNone, 0},    {eOtherRedirectTty, eForm::kText, 407},
    {eOtherFocusModule, eForm::kText, 421},      {eOtherThreadId, eForm::kSwitch, 434},
    {eOtherLocation, eForm::kSwitch, 446},       {eOtherLogMaxSize, eForm::kNumber, 455},
    {eOtherLogMaxDuration, eForm::kNumber, 466}, {eOtherLogMaxCount, eForm::kNumber, 477},
};

void Apply(int option, const tagValue& value) {
  CGlobal& global = *CGlobal::Instance();
  COutput& output = global.GetOutput();
  const auto number = static_cast<uint32_t>(value.m_Number);
  switch (option) {
    case eOtherDateTime:
      StoreSwitch(global.GetAttribute()->m_OutputDateTime, value.m_On);
      break;
    case eOtherLogPath:
      global.SetLogPath(value.m_Text);
      break;
    case eOtherRedirectConsole:
      output.RedirectConsole();
      break;
    case eOtherRedirectTty:
      output.RedirectTTY(value.m_Text, value.m_Length);
      break;
    case eOtherFocusModule:
      output.ResetFocusModule(value.m_Text, value.m_Length);
      break;
    case eOtherThreadId:
      StoreSwitch(global.GetAttribute()->m_OutputThreadID, value.m_On);
      break;
    case eOtherLocation:
      StoreSwitch(global.GetAttribute()->m_OutputLocation, value.m_On);
      break;
    case eOtherLogMaxSize:
      global.SetLogMaxSize(number * kBytesPerKib);
      break;
    case eOtherLogMaxDuration:
      global.SetLogMaxDuration(number);
      break;
    case eOtherLogMaxCount:
      if (value.m_Number < kRefusedLogCount) global.StoreLogMaxCount(number);
      break;
    default:
      break;
  }
}

// Returns 0, or the code with which the request is refused.
int ReadValue(const tagRequest& request, eForm form, tagValue& value) {
  switch (form) {
    case eForm::kNone:
      return eResultSuccess;
    case eForm::kSwitch:
      return ParseSwitch(request, value.m_On);
    case eForm::kText:
      if (request.m_Value == nullptr) return eResultInvalid;
      if (request.m_Length < 1 || request.m_Length > kMaxTextLength) return eResultInvalid;
      value.m_Text = static_cast<const char*>(request.m_Value);
      value.m_Length = request.m_Length;
      return eResultSuccess;
    case eForm::kNumber:
      if (request.m_Value == nullptr || request.m_Length < 1) return eResultInvalid;
      // A whole word even for a shorter length: that the value has four bytes is the caller's part.
      std::memcpy(&value.m_Number, request.m_Value, sizeof(value.m_Number));
      return eResultSuccess;
  }
  return eResultInvalid;
}

int RequestOther(const tagRequest& request) {
  for (const tagOption& row : kOptions) {
    if (row.m_Option != request.m_Option) continue;
    tagValue value = {};
    const int read = ReadValue(request, row.m_Form, value);
    if (read != eResultSuccess) {
      Reject(request, row.m_ValueLine, "value invalid", request.m_Length);
      return read;
    }
    Apply(row.m_Option, value);
    return eResultSuccess;
  }
  return RejectOption(request, kOtherOptionLine);
}

}  // namespace

int RequestAttribute(const tagRequestShell& shell, int kind, int option, const void* value,
                     int length) {
  const tagRequest request = {shell, shell.m_SetAttribute, option, value, length};
  return Guarded([&]() -> int {
    switch (kind) {
      case eAttributeOutput:
        return RequestOutput(request);
      case eAttributeLevel:
        return RequestLevel(request, kLevelOptionLine, kLevelValueLine,
                            [] { return CGlobal::Instance()->GetAttribute(); });
      case eAttributeOther:
        return RequestOther(request);
      case eAttributeReserved:
        return eResultSuccess;
      default:
        return Reject(request, kKindLine, "attribute invalid", kind);
    }
  });
}

int RequestAttributeByModule(const tagRequestShell& shell, int kind, int option, const void* value,
                             int length, const char* module) {
  const tagRequest request = {shell, shell.m_SetAttributeByModule, option, value, length};
  return Guarded([&]() -> int {
    if (module == nullptr || *module == '\0') return eResultInvalid;
    if (kind != eAttributeLevel) return eResultSuccess;
    return RequestLevel(request, kModuleOptionLine, kModuleValueLine,
                        [&] { return CGlobal::Instance()->GetAttribute(module); });
  });
}

}  // namespace Kelvik
