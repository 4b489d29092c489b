// What each request stores or does: switches, levels, file output, texts and numbers.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "AttributeRequest.h"
#include "AttributeRequestTools.h"
#include "ChildProcess.h"
#include "Kelvik.h"
#include "PrintedText.h"
#include "TempDir.h"

namespace Kelvik {
namespace {

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

uint32_t Word(const tagAttribute& attribute, size_t offset) {
  uint32_t word = 0;
  std::memcpy(&word, reinterpret_cast<const char*>(&attribute) + offset, sizeof(word));
  return word;
}

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

}  // namespace
}  // namespace Kelvik
