// What is fixed for good, on every target: the records that other programs and files of settings
// rely on, the order of the members, and the values of the enumerations. Compiling is the test.

#include <cstddef>
#include <cstdint>

#include "Attribute.h"
#include "Console.h"
#include "Global.h"
#include "Kelvik.h"
#include "KelvikExtra.h"
#include "ModuleState.h"
#include "Output.h"
#include "OutputStatistics.h"

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace Kelvik {
namespace {

#define KELVIK_AT(type, member, offset, bytes)                                      \
  static_assert(offsetof(type, member) == (offset), #member " stands at " #offset); \
  static_assert(sizeof(type::member) == (bytes), #member " has " #bytes " bytes")

// The settings: no gaps, so the words are unaligned.
KELVIK_AT(tagAttribute, m_OutputConsole, 0, 1);
KELVIK_AT(tagAttribute, m_OutputSystem, 1, 1);
KELVIK_AT(tagAttribute, m_OutputFile, 2, 1);
KELVIK_AT(tagAttribute, m_OutputDateTime, 3, 1);
KELVIK_AT(tagAttribute, m_OutputThreadID, 4, 1);
KELVIK_AT(tagAttribute, m_OutputLocation, 5, 1);
KELVIK_AT(tagAttribute, m_LevelMask, 6, 1);
KELVIK_AT(tagAttribute, m_LogPath, 7, 256);
KELVIK_AT(tagAttribute, m_LogMaxSize, 263, 4);
KELVIK_AT(tagAttribute, m_LogMaxDuration, 267, 4);
KELVIK_AT(tagAttribute, m_LogMaxCount, 271, 4);
KELVIK_AT(tagAttribute, m_BufferSize, 275, 4);
KELVIK_AT(tagAttribute, m_WriteInterval, 279, 4);
static_assert(sizeof(tagAttribute) == 283 && alignof(tagAttribute) == 1, "no gaps");

// The broken-down time.
KELVIK_AT(tagAbsoluteTime, m_Year, 0, 2);
KELVIK_AT(tagAbsoluteTime, m_Month, 2, 2);
KELVIK_AT(tagAbsoluteTime, m_Reserved, 4, 2);
KELVIK_AT(tagAbsoluteTime, m_Day, 6, 2);
KELVIK_AT(tagAbsoluteTime, m_Hour, 8, 2);
KELVIK_AT(tagAbsoluteTime, m_Minute, 10, 2);
KELVIK_AT(tagAbsoluteTime, m_Second, 12, 2);
KELVIK_AT(tagAbsoluteTime, m_Millisecond, 14, 2);
static_assert(sizeof(tagAbsoluteTime) == 16, "eight fields");

// A registration.
KELVIK_AT(tagModule, m_Module, 0, 128);
KELVIK_AT(tagModule, m_Title, 128, 128);
KELVIK_AT(tagModule, m_Callback, 256, sizeof(void*));
KELVIK_AT(tagModule, m_Param, 256 + sizeof(void*), sizeof(void*));
static_assert(sizeof(tagModule) == 256 + 2 * sizeof(void*), "no more than four fields");

// The statistics of programs that were built against the record's first version.
KELVIK_AT(tagKelvikStatistics, m_Size, 0, 4);
KELVIK_AT(tagKelvikStatistics, m_LastError, 4, 4);
KELVIK_AT(tagKelvikStatistics, m_RecordsAccepted, 8, 8);
KELVIK_AT(tagKelvikStatistics, m_RecordsWritten, 16, 8);
KELVIK_AT(tagKelvikStatistics, m_RecordsLost, 24, 8);
KELVIK_AT(tagKelvikStatistics, m_BytesWritten, 32, 8);
KELVIK_AT(tagKelvikStatistics, m_OpenErrors, 40, 8);
KELVIK_AT(tagKelvikStatistics, m_WriteErrors, 48, 8);
KELVIK_AT(tagKelvikStatistics, m_Rotations, 56, 8);

// The order of the members. What the library adds for itself stands behind them.
#define KELVIK_ORDER(type, first, second) \
  static_assert(offsetof(type, first) < offsetof(type, second), #first " before " #second)

static_assert(offsetof(CGlobal, m_Attribute) == 0, "a context is its settings");
KELVIK_ORDER(CGlobal, m_Attribute, m_Output);
KELVIK_ORDER(CGlobal, m_Output, m_Console);
KELVIK_ORDER(CGlobal, m_Console, m_ModuleState);
KELVIK_ORDER(CGlobal, m_ModuleState, m_ModuleAttribute);
KELVIK_ORDER(CGlobal, m_ModuleAttribute, m_ConfigFilePath);

KELVIK_ORDER(CConsole, m_Running, m_Socket);
KELVIK_ORDER(CConsole, m_Socket, m_Worker);

KELVIK_ORDER(COutput, m_CurrentFd, m_FileFds);
KELVIK_ORDER(COutput, m_FileFds, m_FileSize);
KELVIK_ORDER(COutput, m_FileSize, m_FrontLength);
KELVIK_ORDER(COutput, m_FrontLength, m_BackLength);
KELVIK_ORDER(COutput, m_BackLength, m_FileIndex);
KELVIK_ORDER(COutput, m_FileIndex, m_FileNames);
KELVIK_ORDER(COutput, m_FileNames, m_BufferMutex);
KELVIK_ORDER(COutput, m_BufferMutex, m_WriteMutex);
KELVIK_ORDER(COutput, m_WriteMutex, m_Signal);
KELVIK_ORDER(COutput, m_Signal, m_RotatePending);
KELVIK_ORDER(COutput, m_RotatePending, m_NextFileName);
KELVIK_ORDER(COutput, m_NextFileName, m_Thread);
KELVIK_ORDER(COutput, m_Thread, m_Focus);
KELVIK_ORDER(COutput, m_Focus, m_SizeMode);
KELVIK_ORDER(COutput, m_SizeMode, m_TimeMode);
KELVIK_ORDER(COutput, m_TimeMode, m_FileStartTime);
KELVIK_ORDER(COutput, m_FileStartTime, m_BackBuffer);
KELVIK_ORDER(COutput, m_BackBuffer, m_FrontBuffer);
KELVIK_ORDER(COutput, m_FrontBuffer, m_AllocatedSize);
KELVIK_ORDER(COutput, m_AllocatedSize, m_LastFlushTime);
KELVIK_ORDER(COutput, m_LastFlushTime, m_BufferReset);
KELVIK_ORDER(COutput, m_BufferReset, m_DiskFull);
KELVIK_ORDER(COutput, m_DiskFull, m_TerminalFlag);
KELVIK_ORDER(COutput, m_TerminalFlag, m_NewFileOpened);
KELVIK_ORDER(COutput, m_NewFileOpened, m_ConsolePath);
KELVIK_ORDER(COutput, m_ConsolePath, m_TerminalFd);

static_assert(sizeof(COutput::m_FileFds) == 10 * sizeof(int32_t), "ten slots");
static_assert(sizeof(COutput::m_FileNames) == size_t{10} * 128, "ten names");
static_assert(sizeof(COutput::m_FileIndex) == 1, "a signed byte");
static_assert(sizeof(COutput::m_NextFileName) == 36, "a name made of a time");
static_assert(sizeof(COutput::m_ConsolePath) == 256, "a path");
static_assert(sizeof(CGlobal::m_ConfigFilePath) == 128, "a path");
static_assert(sizeof(CConsole::m_Running) == 1, "a byte");

// Enumerations: as wide as an int, and these values.
static_assert(sizeof(eLogLevel) == sizeof(int), "an int");
static_assert(eLogLevelDebug == 1, "eLogLevelDebug");
static_assert(eLogLevelInfo == 2, "eLogLevelInfo");
static_assert(eLogLevelWarning == 3, "eLogLevelWarning");
static_assert(eLogLevelError == 4, "eLogLevelError");
static_assert(eLogLevelFatal == 5, "eLogLevelFatal");
static_assert(sizeof(eResult) == sizeof(int), "an int");
static_assert(eResultSuccess == 0, "eResultSuccess");
static_assert(eResultFailure == 1, "eResultFailure");
static_assert(eResultDisabled == 2, "eResultDisabled");
static_assert(eResultInvalid == 3, "eResultInvalid");
static_assert(eResultBusy == 4, "eResultBusy");
static_assert(eResultUnavailable == 5, "eResultUnavailable");
static_assert(eResultExists == 6, "eResultExists");
static_assert(sizeof(eAttributeKind) == sizeof(int), "an int");
static_assert(eAttributeOutput == 1, "eAttributeOutput");
static_assert(eAttributeLevel == 2, "eAttributeLevel");
static_assert(eAttributeOther == 3, "eAttributeOther");
static_assert(eAttributeReserved == 4, "eAttributeReserved");
static_assert(sizeof(eAttributeOutputOption) == sizeof(int), "an int");
static_assert(eOutputTerminal == 0, "eOutputTerminal");
static_assert(eOutputSyslog == 1, "eOutputSyslog");
static_assert(eOutputFile == 2, "eOutputFile");
static_assert(sizeof(eAttributeOtherOption) == sizeof(int), "an int");
static_assert(eOtherDateTime == 0, "eOtherDateTime");
static_assert(eOtherLogPath == 1, "eOtherLogPath");
static_assert(eOtherRedirectConsole == 2, "eOtherRedirectConsole");
static_assert(eOtherRedirectTty == 3, "eOtherRedirectTty");
static_assert(eOtherFocusModule == 4, "eOtherFocusModule");
static_assert(eOtherThreadId == 5, "eOtherThreadId");
static_assert(eOtherLocation == 6, "eOtherLocation");
static_assert(eOtherLogMaxSize == 7, "eOtherLogMaxSize");
static_assert(eOtherLogMaxDuration == 8, "eOtherLogMaxDuration");
static_assert(eOtherLogMaxCount == 9, "eOtherLogMaxCount");
static_assert(sizeof(eOverflowPolicy) == sizeof(int), "an int");
static_assert(eOverflowReplace == 0, "eOverflowReplace");
static_assert(eOverflowWrite == 1, "eOverflowWrite");
static_assert(sizeof(eConsoleRestriction) == sizeof(int), "an int");
static_assert(eRestrictTerminals == 1, "eRestrictTerminals");
static_assert(eRestrictLogPath == 2, "eRestrictLogPath");
static_assert(eRestrictSenders == 4, "eRestrictSenders");

}  // namespace
}  // namespace Kelvik
