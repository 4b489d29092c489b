#include "AttributeRequest.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "Global.h"
#include "Kelvik.h"
#include "PrintedText.h"
#include "Rounds.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

constexpr int kOn = 1;

CGlobal& Context() {
  return *CGlobal::Instance();
}

tagAttribute Copy() {
  tagAttribute attribute;
  Context().CopyAttribute(attribute);
  return attribute;
}

bool Equal(const tagAttribute& left, const tagAttribute& right) {
  return std::memcmp(&left, &right, sizeof(left)) == 0;
}

uint32_t Word(const tagAttribute& attribute, size_t offset) {
  uint32_t word = 0;
  std::memcpy(&word, reinterpret_cast<const char*>(&attribute) + offset, sizeof(word));
  return word;
}

// What the terminal shows of a report; the date-time is switched off.
std::string Report(const char* source, const char* function, int line, const char* message,
                   int number) {
  return "\033[33m[Kelvik][Internal] " + std::string(source) + " " + function + " " +
         std::to_string(line) + " " + message + " : " + std::to_string(number) + "\n\033[0m";
}

void SwitchDateTimeOff() {
  Context().GetAttribute()->m_OutputDateTime = 0;
}

// --- Rejected requests ---

struct tagBadRequest {
  int m_Kind;
  int m_Option;
  const void* m_Value;
  int m_Length;
  const char* m_Message;  // null: silent
  int m_Number;
  int m_PlainLine;
  int m_PrefixedLine;
};

const char kText[] = "text of a value";

const tagBadRequest kBadRequests[] = {
    // Kind 1: the value is looked at first, and silently.
    {1, 0, kText, 3, nullptr, 0, 0, 0},
    {1, 1, kText, 0, nullptr, 0, 0, 0},
    {1, 2, kText, -1, nullptr, 0, 0, 0},
    {1, 2, nullptr, 4, nullptr, 0, 0, 0},
    {1, 3, kText, 3, nullptr, 0, 0, 0},
    {1, -1, nullptr, 0, nullptr, 0, 0, 0},
    {1, 3, kText, 4, "option invalid", 3, 339, 330},
    {1, -1, kText, 1, "option invalid", -1, 339, 330},
    {1, INT_MAX, kText, 8, "option invalid", INT_MAX, 339, 330},
    // Kind 2: the option is looked at first.
    {2, 0, kText, 4, "option invalid", 0, 347, 338},
    {2, 6, kText, 4, "option invalid", 6, 347, 338},
    {2, -1, kText, 4, "option invalid", -1, 347, 338},
    {2, INT_MIN, nullptr, 0, "option invalid", INT_MIN, 347, 338},
    {2, 6, kText, 3, "option invalid", 6, 347, 338},
    {2, 1, kText, 3, "value invalid", 3, 355, 346},
    {2, 5, kText, 0, "value invalid", 0, 355, 346},
    {2, 5, nullptr, 4, "value invalid", 4, 355, 346},
    // Kind 3: each option has its own check.
    {3, 0, kText, 3, "value invalid", 3, 376, 367},
    {3, 0, nullptr, 1, "value invalid", 1, 376, 367},
    {3, 1, kText, 0, "value invalid", 0, 385, 376},
    {3, 1, kText, -7, "value invalid", -7, 385, 376},
    {3, 1, kText, 257, "value invalid", 257, 385, 376},
    {3, 1, nullptr, 5, "value invalid", 5, 385, 376},
    {3, 3, kText, 0, "value invalid", 0, 407, 398},
    {3, 3, kText, 257, "value invalid", 257, 407, 398},
    {3, 3, nullptr, 5, "value invalid", 5, 407, 398},
    {3, 4, kText, 0, "value invalid", 0, 421, 412},
    {3, 4, kText, 257, "value invalid", 257, 421, 412},
    {3, 4, nullptr, 5, "value invalid", 5, 421, 412},
    {3, 5, kText, 3, "value invalid", 3, 434, 425},
    {3, 5, nullptr, 1, "value invalid", 1, 434, 425},
    {3, 6, kText, 5, "value invalid", 5, 446, 437},
    {3, 6, nullptr, 1, "value invalid", 1, 446, 437},
    {3, 7, kText, 0, "value invalid", 0, 455, 446},
    {3, 7, nullptr, 4, "value invalid", 4, 455, 446},
    {3, 8, kText, -1, "value invalid", -1, 466, 457},
    {3, 8, nullptr, 4, "value invalid", 4, 466, 457},
    {3, 9, kText, INT_MIN, "value invalid", INT_MIN, 477, 468},
    {3, 9, nullptr, 4, "value invalid", 4, 477, 468},
    {3, 10, kText, 4, "option invalid", 10, 489, 480},
    {3, -1, nullptr, 0, "option invalid", -1, 489, 480},
    // Other kinds.
    {0, 0, kText, 1, "attribute invalid", 0, 507, 498},
    {5, 1, kText, 4, "attribute invalid", 5, 507, 498},
    {-1, 1, kText, 4, "attribute invalid", -1, 507, 498},
    {INT_MIN, 0, nullptr, 0, "attribute invalid", INT_MIN, 507, 498},
};

void RejectAll(const tagRequestShell& shell, const char* source, const char* function,
               int tagBadRequest::*line) {
  CPrintedText printed;
  SwitchDateTimeOff();
  const tagAttribute before = Copy();
  for (const tagBadRequest& bad : kBadRequests) {
    SCOPED_TRACE(testing::Message() << source << " kind " << bad.m_Kind << " option "
                                    << bad.m_Option << " length " << bad.m_Length);
    EXPECT_EQ(eResultInvalid,
              RequestAttribute(shell, bad.m_Kind, bad.m_Option, bad.m_Value, bad.m_Length));
    EXPECT_EQ(bad.m_Message == nullptr
                  ? ""
                  : Report(source, function, bad.*line, bad.m_Message, bad.m_Number),
              printed.Take());
    EXPECT_TRUE(Equal(before, Copy()));
  }
}

CHILD_CASE(RejectBadRequests) {
  RejectAll(kPlainRequestShell, "Kelvik", "SetAttribute", &tagBadRequest::m_PlainLine);
  RejectAll(kPrefixedRequestShell, "KelvikForC", "Kelvik_SetAttribute",
            &tagBadRequest::m_PrefixedLine);
  return 0;
}

TEST(AttributeRequest, BadRequestIsReportedAndChangesNothing) {
  EXPECT_TRUE(Succeeded(RunChild("RejectBadRequests")));
}

CHILD_CASE(RejectWithErrorsOff) {
  CPrintedText printed;
  const char off = 0;
  EXPECT_EQ(0, RequestAttribute(kPlainRequestShell, 2, 4, &off, 1));
  for (const tagBadRequest& bad : kBadRequests) {
    EXPECT_EQ(3, RequestAttribute(kPlainRequestShell, bad.m_Kind, bad.m_Option, bad.m_Value,
                                  bad.m_Length));
  }
  EXPECT_EQ(3, RequestAttributeByModule(kPlainRequestShell, 2, 6, &off, 1, "net"));
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(AttributeRequest, ReportPassesTheLevelMask) {
  EXPECT_TRUE(Succeeded(RunChild("RejectWithErrorsOff")));
}

// --- Switches ---

struct tagSwitch {
  int m_Kind;
  int m_Option;
  size_t m_Offset;  // the byte that it stores
};

const tagSwitch kSwitches[] = {
    {1, 0, offsetof(tagAttribute, m_OutputConsole)},
    {1, 1, offsetof(tagAttribute, m_OutputSystem)},
    {1, 2, offsetof(tagAttribute, m_OutputFile)},
    {3, 0, offsetof(tagAttribute, m_OutputDateTime)},
    {3, 5, offsetof(tagAttribute, m_OutputThreadID)},
    {3, 6, offsetof(tagAttribute, m_OutputLocation)},
};

struct tagSwitchValue {
  std::vector<unsigned char> m_Bytes;
  bool m_On;
};

const tagSwitchValue kSwitchValues[] = {
    {{1}, true},
    {{0}, false},
    {{0xff}, true},
    {{0, 0}, false},
    {{0, 1}, true},
    {{0, 0, 0, 0}, false},
    {{0, 0, 0, 0x80}, true},
    {{0, 0, 0, 0, 0, 0, 0, 0}, false},
    {{0, 0, 0, 0, 0, 1, 0, 0}, true},
};

void StoreSwitches(const tagRequestShell& shell) {
  for (const tagSwitch& field : kSwitches) {
    for (const tagSwitchValue& value : kSwitchValues) {
      SCOPED_TRACE(testing::Message() << "kind " << field.m_Kind << " option " << field.m_Option
                                      << " length " << value.m_Bytes.size());
      tagAttribute expected = Copy();
      reinterpret_cast<unsigned char*>(&expected)[field.m_Offset] = value.m_On ? 1 : 0;
      EXPECT_EQ(0, RequestAttribute(shell, field.m_Kind, field.m_Option, value.m_Bytes.data(),
                                    static_cast<int>(value.m_Bytes.size())));
      EXPECT_TRUE(Equal(expected, Copy()));
    }
  }
}

CHILD_CASE(StoreEverySwitch) {
  StoreSwitches(kPlainRequestShell);
  StoreSwitches(kPrefixedRequestShell);
  return 0;
}

TEST(AttributeRequest, SwitchStoresItsByteAndNoOther) {
  EXPECT_TRUE(Succeeded(RunChild("StoreEverySwitch")));
}

CHILD_CASE(SwitchLevels) {
  const uint8_t kMasks[] = {0x00, 0x3e, 0xff, 0xc1};
  const uint32_t on = 0x100;
  const uint32_t off = 0;
  for (const tagRequestShell* shell : {&kPlainRequestShell, &kPrefixedRequestShell}) {
    for (const uint8_t start : kMasks) {
      for (int level = 1; level <= 5; ++level) {
        tagAttribute expected = Copy();
        Context().GetAttribute()->m_LevelMask = start;
        expected.m_LevelMask = static_cast<uint8_t>(start | 1 << level);
        EXPECT_EQ(0, RequestAttribute(*shell, 2, level, &on, 4));
        EXPECT_TRUE(Equal(expected, Copy()));
        expected.m_LevelMask = static_cast<uint8_t>(start & ~(1 << level));
        EXPECT_EQ(0, RequestAttribute(*shell, 2, level, &off, 4));
        EXPECT_TRUE(Equal(expected, Copy()));
      }
    }
  }
  return 0;
}

TEST(AttributeRequest, LevelSwitchesItsBitAndNoOther) {
  EXPECT_TRUE(Succeeded(RunChild("SwitchLevels")));
}

CHILD_CASE(SwitchWarningsOff) {
  const uint32_t off = 0;
  Context().GetAttribute()->m_LevelMask = 0x3e;
  EXPECT_EQ(0, RequestAttribute(kPlainRequestShell, 2, 3, &off, 4));
  EXPECT_EQ(eResultDisabled, KLog(eLogLevelWarning, "net", "rx", "warning\n"));
  EXPECT_EQ(eResultSuccess, KLog(eLogLevelInfo, "net", "rx", "info\n"));
  return 0;
}

TEST(AttributeRequest, WarningsAreSwitchedOffGlobally) {
  EXPECT_TRUE(Succeeded(RunChild("SwitchWarningsOff")));
}

// --- File output ---

// Opens a log file by a record that is written directly.
void OpenLogFile(const CTempDir& folder) {
  Context().GetAttribute()->m_OutputConsole = 0;
  Context().SetLogPath(folder.LogPath().c_str());
  const uint32_t unbuffered = 0;
  std::memcpy(&Context().GetAttribute()->m_BufferSize, &unbuffered, sizeof(unbuffered));
  EXPECT_EQ(0, RequestAttribute(kPlainRequestShell, 1, 2, &kOn, 1));
  EXPECT_EQ(0, KLog(eLogLevelError, "net", "rx", "opens the file\n"));
  EXPECT_NE(-1, Context().GetOutput().m_CurrentFd);
}

CHILD_CASE(SwitchFileOffPlain) {
  CTempDir folder;
  const char off = 0;
  OpenLogFile(folder);
  EXPECT_EQ(0, RequestAttribute(kPlainRequestShell, 1, 2, &kOn, 4));
  EXPECT_NE(-1, Context().GetOutput().m_CurrentFd) << "on to on closes nothing";
  const int fd = Context().GetOutput().m_CurrentFd;
  EXPECT_EQ(0, RequestAttribute(kPlainRequestShell, 1, 2, &off, 1));
  EXPECT_EQ(-1, Context().GetOutput().m_CurrentFd);
  EXPECT_EQ(-1, fcntl(fd, F_GETFD));
  EXPECT_EQ(0, Context().GetAttribute()->m_OutputFile);
  return 0;
}

TEST(AttributeRequest, PlainFamilyClosesTheFileWhenFileOutputGoesOff) {
  EXPECT_TRUE(Succeeded(RunChild("SwitchFileOffPlain")));
}

CHILD_CASE(SwitchFileOffPrefixed) {
  CTempDir folder;
  const char off = 0;
  OpenLogFile(folder);
  const int fd = Context().GetOutput().m_CurrentFd;
  EXPECT_EQ(0, RequestAttribute(kPrefixedRequestShell, 1, 2, &off, 1));
  EXPECT_EQ(fd, Context().GetOutput().m_CurrentFd);
  EXPECT_NE(-1, fcntl(fd, F_GETFD));
  EXPECT_EQ(0, Context().GetAttribute()->m_OutputFile);
  // Off already: the plain family does nothing, so the file stays open.
  EXPECT_EQ(0, RequestAttribute(kPlainRequestShell, 1, 2, &off, 1));
  EXPECT_EQ(fd, Context().GetOutput().m_CurrentFd);
  EXPECT_NE(-1, fcntl(fd, F_GETFD));
  return 0;
}

TEST(AttributeRequest, PrefixedFamilyLeavesTheFileOpenWhenFileOutputGoesOff) {
  EXPECT_TRUE(Succeeded(RunChild("SwitchFileOffPrefixed")));
}

// --- Texts ---

struct tagPathCase {
  size_t m_Characters;
  int m_Length;
  size_t m_Kept;
};

const tagPathCase kPathCases[] = {{5, 5, 5},       {5, 1, 5},       {5, 256, 5},    {0, 1, 0},
                                  {255, 255, 255}, {256, 256, 256}, {300, 256, 256}};

CHILD_CASE(StoreLogPaths) {
  // The length is checked and not used: the path goes up to its NUL, or fills the field.
  for (const tagPathCase& row : kPathCases) {
    SCOPED_TRACE(testing::Message() << row.m_Characters << " characters");
    const std::string path(row.m_Characters, 'p');
    tagAttribute expected = Copy();
    std::memset(expected.m_LogPath, 0, sizeof(expected.m_LogPath));
    std::memcpy(expected.m_LogPath, path.data(), row.m_Kept);
    EXPECT_EQ(0, RequestAttribute(kPlainRequestShell, 3, 1, path.c_str(), row.m_Length));
    EXPECT_TRUE(Equal(expected, Copy()));
  }
  return 0;
}

TEST(AttributeRequest, LogPathIsBoundedByItsFieldOnly) {
  const tagChildResult result = RunChild("StoreLogPaths");
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ("", result.m_Output) << "only SetLogFilePath prints the path";
}

CHILD_CASE(RedirectToNothing) {
  CPrintedText printed;
  const char path[] = "/nonexistent/tty";
  for (const tagRequestShell* shell : {&kPlainRequestShell, &kPrefixedRequestShell}) {
    EXPECT_EQ(0, RequestAttribute(*shell, 3, 3, path, 16));
    EXPECT_EQ(0, RequestAttribute(*shell, 3, 3, "", 1));
  }
  SwitchDateTimeOff();
  EXPECT_EQ(0, KLog(eLogLevelError, nullptr, nullptr, "still here\n"));
  EXPECT_EQ("\033[33mstill here\n\033[0m", printed.Take());
  return 0;
}

TEST(AttributeRequest, FailedRedirectionIsNotPassedOn) {
  EXPECT_TRUE(Succeeded(RunChild("RedirectToNothing")));
}

CHILD_CASE(RedirectToTerminal) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  EXPECT_NE(-1, master);
  EXPECT_EQ(0, grantpt(master));
  EXPECT_EQ(0, unlockpt(master));
  const std::string path = ptsname(master);
  const tagRequestShell& shell = args.at(0) == "plain" ? kPlainRequestShell : kPrefixedRequestShell;
  EXPECT_EQ(0, RequestAttribute(shell, 3, 3, path.c_str(), static_cast<int>(path.size())));
  const std::string banner = "******************* node = " + path;
  char shown[256] = {};
  const ssize_t length = read(master, shown, sizeof(shown) - 1);
  EXPECT_GE(length, static_cast<ssize_t>(banner.size()));
  EXPECT_EQ(banner, std::string(shown).substr(0, banner.size()));
  return 0;
}

TEST(AttributeRequest, RedirectionShowsItsBannerOnTheDevice) {
  EXPECT_TRUE(Succeeded(RunChild("RedirectToTerminal", {"plain"})));
  EXPECT_TRUE(Succeeded(RunChild("RedirectToTerminal", {"prefixed"})));
}

// Standard input is no terminal in a child, so that "/dev/console" is asked for; whether the
// machine has one must not show in the result.
CHILD_CASE(RedirectToConsole) {
  // The path is the context's own business; here it leads nowhere.
  std::strcpy(Context().GetOutput().m_ConsolePath, "/nonexistent/console");
  for (const tagRequestShell* shell : {&kPlainRequestShell, &kPrefixedRequestShell}) {
    EXPECT_EQ(0, RequestAttribute(*shell, 3, 2, nullptr, 0));
    EXPECT_EQ(0, RequestAttribute(*shell, 3, 2, kText, -5));
  }
  return 0;
}

TEST(AttributeRequest, RedirectionToTheConsoleTakesNoValue) {
  const tagChildResult result = RunChild("RedirectToConsole");
  EXPECT_TRUE(Succeeded(result));
  EXPECT_EQ("", result.m_Output);
}

CHILD_CASE(FocusOnModule) {
  CPrintedText printed;
  SwitchDateTimeOff();
  Context().GetAttribute()->m_LevelMask = 0x3e;
  for (const tagRequestShell* shell : {&kPlainRequestShell, &kPrefixedRequestShell}) {
    EXPECT_EQ(0, RequestAttribute(*shell, 3, 4, "Net", 3));
    EXPECT_EQ(0, KLog(eLogLevelInfo, "net", nullptr, "in focus\n"));
    EXPECT_EQ("\033[36m[net] in focus\n\033[0m", printed.Take());
    EXPECT_EQ(0, RequestAttribute(*shell, 3, 4, "FALSE", 5));
    EXPECT_EQ(0, KLog(eLogLevelInfo, "net", nullptr, "not in focus\n"));
    EXPECT_EQ("\033[0m[net] not in focus\n", printed.Take());
  }
  return 0;
}

TEST(AttributeRequest, FocusModuleIsSetAndCleared) {
  EXPECT_TRUE(Succeeded(RunChild("FocusOnModule")));
}

// --- Numbers ---

struct tagNumberCase {
  int m_Option;
  int32_t m_Number;
  int m_Length;
  uint32_t m_Stored;
};

constexpr uint32_t kUnchanged = 0x12345678;

const tagNumberCase kNumbers[] = {
    {7, 2, 4, 2048},
    {7, 0, 4, 0},
    {7, 1, 1, 1024},
    {7, 4194303, 4, 4294966272u},
    {7, 4194304, 4, 0},
    {7, 4194305, 4, 1024},
    {7, -1, 4, 0xfffffc00u},
    {7, INT32_MIN, 4, 0},
    {8, 60, 4, 60},
    {8, 0, 4, 0},
    {8, -1, 4, 0xffffffffu},
    {8, INT32_MAX, 1000, 0x7fffffffu},
    {8, 0x01020304, 1, 0x01020304u},
    {8, 0x01020304, 2, 0x01020304u},
    {8, 0x01020304, 3, 0x01020304u},
    {9, 10, 4, 10},
    {9, 1, 4, 1},
    {9, 0, 4, 0},
    {9, -1, 4, 0xffffffffu},
    {9, INT32_MIN, 4, 0x80000000u},
    {9, 11, 4, kUnchanged},
    {9, 12, 1, kUnchanged},
    {9, INT32_MAX, 4, kUnchanged},
};

void StoreNumbers(const tagRequestShell& shell) {
  const size_t offsets[] = {offsetof(tagAttribute, m_LogMaxSize),
                            offsetof(tagAttribute, m_LogMaxDuration),
                            offsetof(tagAttribute, m_LogMaxCount)};
  for (const tagNumberCase& row : kNumbers) {
    SCOPED_TRACE(testing::Message() << "option " << row.m_Option << " number " << row.m_Number);
    const size_t offset = offsets[row.m_Option - 7];
    tagAttribute expected = Copy();
    std::memcpy(reinterpret_cast<char*>(Context().GetAttribute()) + offset, &kUnchanged,
                sizeof(kUnchanged));
    // One byte off a word's place: the value may stand anywhere.
    alignas(4) char value[8];
    std::memcpy(value + 1, &row.m_Number, sizeof(row.m_Number));
    EXPECT_EQ(0, RequestAttribute(shell, 3, row.m_Option, value + 1, row.m_Length));
    EXPECT_EQ(row.m_Stored, Word(Copy(), offset));
    std::memcpy(reinterpret_cast<char*>(&expected) + offset, &row.m_Stored, sizeof(row.m_Stored));
    EXPECT_TRUE(Equal(expected, Copy()));
  }
}

CHILD_CASE(StoreEveryNumber) {
  StoreNumbers(kPlainRequestShell);
  StoreNumbers(kPrefixedRequestShell);
  return 0;
}

TEST(AttributeRequest, NumberStoresItsWordAndNoOther) {
  EXPECT_TRUE(Succeeded(RunChild("StoreEveryNumber")));
}

// --- The reserved kind ---

CHILD_CASE(ReservedKind) {
  CPrintedText printed;
  const tagAttribute before = Copy();
  for (const tagRequestShell* shell : {&kPlainRequestShell, &kPrefixedRequestShell}) {
    EXPECT_EQ(0, RequestAttribute(*shell, 4, 0, &kOn, 4));
    EXPECT_EQ(0, RequestAttribute(*shell, 4, -1, nullptr, -1));
  }
  EXPECT_TRUE(Equal(before, Copy()));
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(AttributeRequest, ReservedKindIsAcceptedWithoutEffect) {
  EXPECT_TRUE(Succeeded(RunChild("ReservedKind")));
}

// --- Requests for a module ---

struct tagBadModuleRequest {
  int m_Kind;
  int m_Option;
  const void* m_Value;
  int m_Length;
  const char* m_Module;
  int m_Result;
  const char* m_Message;  // null: silent
  int m_Number;
  int m_PlainLine;
};

const tagBadModuleRequest kBadModuleRequests[] = {
    // In the order of testing: module, kind, option, value.
    {2, 1, kText, 1, nullptr, 3, nullptr, 0, 0},
    {2, 1, kText, 1, "", 3, nullptr, 0, 0},
    {1, 9, nullptr, 0, nullptr, 3, nullptr, 0, 0},
    {2, 9, kText, 3, "", 3, nullptr, 0, 0},
    {1, 0, kText, 1, "net", 0, nullptr, 0, 0},
    {1, 9, nullptr, 0, "net", 0, nullptr, 0, 0},
    {3, 0, kText, 1, "net", 0, nullptr, 0, 0},
    {9, 9, kText, 3, "net", 0, nullptr, 0, 0},
    {2, 0, kText, 1, "net", 3, "option invalid", 0, 261},
    {2, 6, kText, 3, "net", 3, "option invalid", 6, 261},
    {2, -1, nullptr, 0, "net", 3, "option invalid", -1, 261},
    {2, 1, kText, 3, "net", 3, "value invalid", 3, 269},
    {2, 5, nullptr, 4, "net", 3, "value invalid", 4, 269},
    {2, 5, kText, 0, "net", 3, "value invalid", 0, 269},
};

CHILD_CASE(RejectBadModuleRequests) {
  CPrintedText printed;
  SwitchDateTimeOff();
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  const tagAttribute global = Copy();
  const tagAttribute module = *Context().GetAttribute("net");
  for (const tagBadModuleRequest& bad : kBadModuleRequests) {
    SCOPED_TRACE(testing::Message() << "kind " << bad.m_Kind << " option " << bad.m_Option);
    EXPECT_EQ(bad.m_Result, RequestAttributeByModule(kPlainRequestShell, bad.m_Kind, bad.m_Option,
                                                     bad.m_Value, bad.m_Length, bad.m_Module));
    EXPECT_EQ(bad.m_Message == nullptr ? ""
                                       : Report("Kelvik", "SetAttributeByModule", bad.m_PlainLine,
                                                bad.m_Message, bad.m_Number),
              printed.Take());
    EXPECT_EQ(bad.m_Result,
              RequestAttributeByModule(kPrefixedRequestShell, bad.m_Kind, bad.m_Option, bad.m_Value,
                                       bad.m_Length, bad.m_Module));
    EXPECT_EQ(bad.m_Message == nullptr ? ""
                                       : Report("KelvikForC", "Kelvik_SetAttributeByModule",
                                                bad.m_PlainLine - 2, bad.m_Message, bad.m_Number),
              printed.Take());
    EXPECT_TRUE(Equal(global, Copy()));
    EXPECT_TRUE(Equal(module, *Context().GetAttribute("net")));
  }
  return 0;
}

TEST(AttributeRequestByModule, RequestIsCheckedInOrder) {
  EXPECT_TRUE(Succeeded(RunChild("RejectBadModuleRequests")));
}

CHILD_CASE(SwitchModuleLevels) {
  const uint64_t on = 1;
  const char off = 0;
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  EXPECT_EQ(0, Context().InsertModuleName("zone", nullptr));
  const tagAttribute global = Copy();
  // "n" stands in both names; the first in the order of names counts. Letter case is ignored.
  for (const char* name : {"net", "n", "NE", "T"}) {
    for (int level = 1; level <= 5; ++level) {
      tagAttribute expected = *Context().GetAttribute("net");
      expected.m_LevelMask = static_cast<uint8_t>(expected.m_LevelMask | 1 << level);
      EXPECT_EQ(0, RequestAttributeByModule(kPlainRequestShell, 2, level, &on, 8, name));
      EXPECT_TRUE(Equal(expected, *Context().GetAttribute("net"))) << name << level;
      expected.m_LevelMask = static_cast<uint8_t>(expected.m_LevelMask & ~(1 << level));
      EXPECT_EQ(0, RequestAttributeByModule(kPrefixedRequestShell, 2, level, &off, 1, name));
      EXPECT_TRUE(Equal(expected, *Context().GetAttribute("net"))) << name << level;
    }
  }
  EXPECT_TRUE(Equal(global, Copy()));
  EXPECT_TRUE(Equal(global, *Context().GetAttribute("zone")));
  return 0;
}

TEST(AttributeRequestByModule, LevelGoesToTheFirstModuleWhoseNameContainsTheArgument) {
  EXPECT_TRUE(Succeeded(RunChild("SwitchModuleLevels")));
}

CHILD_CASE(SwitchUnknownModule) {
  const char on = 1;
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  const tagAttribute module = *Context().GetAttribute("net");
  EXPECT_EQ(0, RequestAttributeByModule(kPlainRequestShell, 2, 1, &on, 1, "network"));
  EXPECT_EQ(0x32, Context().GetAttribute()->m_LevelMask);
  EXPECT_TRUE(Equal(module, *Context().GetAttribute("net")));
  EXPECT_EQ(Context().GetAttribute(), Context().GetAttribute("network"));
  EXPECT_EQ(1u, Context().m_ModuleAttribute.size());
  return 0;
}

TEST(AttributeRequestByModule, UnknownModuleChangesTheGlobalMask) {
  EXPECT_TRUE(Succeeded(RunChild("SwitchUnknownModule")));
}

// --- Threads ---

CHILD_CASE(RequestWhileLogging) {
  std::atomic<bool> done{false};
  Context().GetAttribute()->m_OutputConsole = 0;
  EXPECT_EQ(0, Context().InsertModuleName("net", nullptr));
  std::vector<std::thread> loggers;
  for (int i = 0; i < 2; ++i) {
    loggers.emplace_back([&done] {
      while (!done) {
        const int result = KLog(eLogLevelInfo, "net", "rx", "text\n");
        EXPECT_TRUE(result == eResultSuccess || result == eResultDisabled) << result;
      }
    });
  }
  std::vector<std::thread> setters;
  for (int level = 1; level <= 5; ++level) {
    setters.emplace_back([level] {
      for (int round = 0; round < Rounds() * 50; ++round) {
        const int value = round % 2;
        RequestAttribute(kPlainRequestShell, 2, level, &value, 4);
        RequestAttributeByModule(kPrefixedRequestShell, 2, level, &value, 4, "net");
        RequestAttribute(kPlainRequestShell, 3, 0, &value, 4);
        RequestAttribute(kPlainRequestShell, 3, 1, value == 0 ? "/tmp/a/" : "/tmp/bb/", 8);
        RequestAttribute(kPlainRequestShell, 3, 7, &round, 4);
        RequestAttribute(kPlainRequestShell, 3, 4, value == 0 ? "net" : "false", 5);
      }
      const int on = 1;
      RequestAttribute(kPlainRequestShell, 2, level, &on, 4);
      RequestAttributeByModule(kPrefixedRequestShell, 2, level, &on, 4, "net");
    });
  }
  for (std::thread& setter : setters)
    setter.join();
  done = true;
  for (std::thread& logger : loggers)
    logger.join();
  // No thread's bit was lost to another's.
  EXPECT_EQ(0x3e, Context().GetAttribute()->m_LevelMask & 0x3e);
  EXPECT_EQ(0x3e, Context().GetAttribute("net")->m_LevelMask & 0x3e);
  return 0;
}

TEST(AttributeRequest, LevelsSwitchedByManyThreadsKeepTheirBits) {
  EXPECT_TRUE(Succeeded(RunChild("RequestWhileLogging", {}, 30000)));
}

}  // namespace
}  // namespace Kelvik
