// Prints what a program that was compiled against the headers has built into it: sizes, offsets of
// public members, slots of virtual functions, values of enumerations. One fact a line.

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "Arguments.h"
#include "Attribute.h"
#include "Console.h"
#include "FocusName.h"
#include "Global.h"
#include "Guard.h"
#include "Kelvik.h"
#include "KelvikExtra.h"
#include "ModuleState.h"
#include "Mutex.h"
#include "Output.h"
#include "OutputStatistics.h"
#include "Signal.h"
#include "Thread.h"

// The classes are no C records, but both compilers that build the library lay them out as such.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace {

template <class Class, class Function>
void PrintSlot(const char* name, Function Class::*method) {
  // A pointer to a virtual member function begins with its offset in the table, plus one.
  static_assert(sizeof(method) >= sizeof(std::ptrdiff_t), "a member function's pointer");
  std::ptrdiff_t word;
  std::memcpy(&word, &method, sizeof(word));
  std::printf("slot %s %d\n", name,
              word % 2 == 0 ? -1 : static_cast<int>(word / std::ptrdiff_t{sizeof(void*)}));
}

void PrintSize(const char* type, size_t size, size_t align) {
  std::printf("size %s %u align %u\n", type, static_cast<unsigned>(size),
              static_cast<unsigned>(align));
}

void PrintMember(const char* type, const char* member, size_t offset, size_t size) {
  std::printf("member %s::%s %u size %u\n", type, member, static_cast<unsigned>(offset),
              static_cast<unsigned>(size));
}

#define KELVIK_SIZE(type) PrintSize(#type, sizeof(type), alignof(type))
#define KELVIK_OFFSET(type, member) \
  PrintMember(#type, #member, offsetof(type, member), sizeof(type::member))

void PrintRecords() {
  KELVIK_SIZE(Kelvik::tagAttribute);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_OutputConsole);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_OutputSystem);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_OutputFile);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_OutputDateTime);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_OutputThreadID);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_OutputLocation);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_LevelMask);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_LogPath);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_LogMaxSize);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_LogMaxDuration);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_LogMaxCount);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_BufferSize);
  KELVIK_OFFSET(Kelvik::tagAttribute, m_WriteInterval);
  KELVIK_SIZE(Kelvik::tagAbsoluteTime);
  KELVIK_OFFSET(Kelvik::tagAbsoluteTime, m_Year);
  KELVIK_OFFSET(Kelvik::tagAbsoluteTime, m_Month);
  KELVIK_OFFSET(Kelvik::tagAbsoluteTime, m_Reserved);
  KELVIK_OFFSET(Kelvik::tagAbsoluteTime, m_Day);
  KELVIK_OFFSET(Kelvik::tagAbsoluteTime, m_Hour);
  KELVIK_OFFSET(Kelvik::tagAbsoluteTime, m_Minute);
  KELVIK_OFFSET(Kelvik::tagAbsoluteTime, m_Second);
  KELVIK_OFFSET(Kelvik::tagAbsoluteTime, m_Millisecond);
  KELVIK_SIZE(Kelvik::tagModule);
  KELVIK_OFFSET(Kelvik::tagModule, m_Module);
  KELVIK_OFFSET(Kelvik::tagModule, m_Title);
  KELVIK_OFFSET(Kelvik::tagModule, m_Callback);
  KELVIK_OFFSET(Kelvik::tagModule, m_Param);
  KELVIK_SIZE(Kelvik::tagArguments);
  KELVIK_OFFSET(Kelvik::tagArguments, m_List);
  KELVIK_SIZE(Kelvik::CGlobal::tagModuleNode);
  KELVIK_OFFSET(Kelvik::CGlobal::tagModuleNode, m_Name);
  KELVIK_OFFSET(Kelvik::CGlobal::tagModuleNode, m_Attribute);
  KELVIK_OFFSET(Kelvik::CGlobal::tagModuleNode, m_Next);
}

void PrintStatistics() {
  KELVIK_SIZE(Kelvik::tagOutputStatistics);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_RecordsAccepted);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_RecordsWritten);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_RecordsReplaced);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_RecordsDropped);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_BytesAccepted);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_BytesHandedOver);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_BytesWritten);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_BytesReplaced);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_BytesDropped);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_Batches);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_Writes);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_OpenErrors);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_WriteErrors);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_Rotations);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_FilesRemoved);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_BelowLevel);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_Refused);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_TerminalRecords);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_SystemRecords);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_BufferHighWater);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_LastError);
  KELVIK_OFFSET(Kelvik::tagOutputStatistics, m_LastErrorTime);
  KELVIK_SIZE(tagKelvikStatistics);
  KELVIK_OFFSET(tagKelvikStatistics, m_Size);
  KELVIK_OFFSET(tagKelvikStatistics, m_LastError);
  KELVIK_OFFSET(tagKelvikStatistics, m_RecordsAccepted);
  KELVIK_OFFSET(tagKelvikStatistics, m_RecordsWritten);
  KELVIK_OFFSET(tagKelvikStatistics, m_RecordsLost);
  KELVIK_OFFSET(tagKelvikStatistics, m_BytesWritten);
  KELVIK_OFFSET(tagKelvikStatistics, m_OpenErrors);
  KELVIK_OFFSET(tagKelvikStatistics, m_WriteErrors);
  KELVIK_OFFSET(tagKelvikStatistics, m_Rotations);
  KELVIK_OFFSET(tagKelvikStatistics, m_RecordsReplaced);
  KELVIK_OFFSET(tagKelvikStatistics, m_RecordsDropped);
  KELVIK_OFFSET(tagKelvikStatistics, m_RecordsBelowLevel);
  KELVIK_OFFSET(tagKelvikStatistics, m_RecordsRefused);
  KELVIK_OFFSET(tagKelvikStatistics, m_BytesFormatted);
  KELVIK_OFFSET(tagKelvikStatistics, m_BytesHandedOver);
  KELVIK_OFFSET(tagKelvikStatistics, m_BytesReplaced);
  KELVIK_OFFSET(tagKelvikStatistics, m_BytesDropped);
  KELVIK_OFFSET(tagKelvikStatistics, m_Batches);
  KELVIK_OFFSET(tagKelvikStatistics, m_Writes);
  KELVIK_OFFSET(tagKelvikStatistics, m_FilesRemoved);
  KELVIK_OFFSET(tagKelvikStatistics, m_TerminalRecords);
  KELVIK_OFFSET(tagKelvikStatistics, m_SystemRecords);
  KELVIK_OFFSET(tagKelvikStatistics, m_DatagramsAccepted);
  KELVIK_OFFSET(tagKelvikStatistics, m_DatagramsRefused);
  KELVIK_OFFSET(tagKelvikStatistics, m_LastErrorTime);
  KELVIK_OFFSET(tagKelvikStatistics, m_BufferHighWater);
  KELVIK_OFFSET(tagKelvikStatistics, m_DatagramsDenied);
  KELVIK_OFFSET(tagKelvikStatistics, m_CommandsDenied);
}

void PrintPrimitives() {
  KELVIK_SIZE(Kelvik::CMutex);
  KELVIK_SIZE(Kelvik::CGuard);
  KELVIK_SIZE(Kelvik::CSignal);
  KELVIK_SIZE(Kelvik::CThread);
  KELVIK_SIZE(Kelvik::CFocusName);
  KELVIK_SIZE(Kelvik::CModuleState);
}

void PrintOutput() {
  KELVIK_SIZE(Kelvik::COutput);
  KELVIK_OFFSET(Kelvik::COutput, m_CurrentFd);
  KELVIK_OFFSET(Kelvik::COutput, m_FileFds);
  KELVIK_OFFSET(Kelvik::COutput, m_FileSize);
  KELVIK_OFFSET(Kelvik::COutput, m_FrontLength);
  KELVIK_OFFSET(Kelvik::COutput, m_BackLength);
  KELVIK_OFFSET(Kelvik::COutput, m_FileIndex);
  KELVIK_OFFSET(Kelvik::COutput, m_FileNames);
  KELVIK_OFFSET(Kelvik::COutput, m_BufferMutex);
  KELVIK_OFFSET(Kelvik::COutput, m_WriteMutex);
  KELVIK_OFFSET(Kelvik::COutput, m_Signal);
  KELVIK_OFFSET(Kelvik::COutput, m_RotatePending);
  KELVIK_OFFSET(Kelvik::COutput, m_NextFileName);
  KELVIK_OFFSET(Kelvik::COutput, m_Thread);
  KELVIK_OFFSET(Kelvik::COutput, m_Focus);
  KELVIK_OFFSET(Kelvik::COutput, m_SizeMode);
  KELVIK_OFFSET(Kelvik::COutput, m_TimeMode);
  KELVIK_OFFSET(Kelvik::COutput, m_FileStartTime);
  KELVIK_OFFSET(Kelvik::COutput, m_BackBuffer);
  KELVIK_OFFSET(Kelvik::COutput, m_FrontBuffer);
  KELVIK_OFFSET(Kelvik::COutput, m_AllocatedSize);
  KELVIK_OFFSET(Kelvik::COutput, m_LastFlushTime);
  KELVIK_OFFSET(Kelvik::COutput, m_BufferReset);
  KELVIK_OFFSET(Kelvik::COutput, m_DiskFull);
  KELVIK_OFFSET(Kelvik::COutput, m_TerminalFlag);
  KELVIK_OFFSET(Kelvik::COutput, m_NewFileOpened);
  KELVIK_OFFSET(Kelvik::COutput, m_ConsolePath);
  KELVIK_OFFSET(Kelvik::COutput, m_TerminalFd);
}

void PrintContext() {
  KELVIK_SIZE(Kelvik::CConsole);
  KELVIK_OFFSET(Kelvik::CConsole, m_Running);
  KELVIK_OFFSET(Kelvik::CConsole, m_Socket);
  KELVIK_OFFSET(Kelvik::CConsole, m_Worker);
  KELVIK_SIZE(Kelvik::CGlobal);
  KELVIK_OFFSET(Kelvik::CGlobal, m_Attribute);
  KELVIK_OFFSET(Kelvik::CGlobal, m_Output);
  KELVIK_OFFSET(Kelvik::CGlobal, m_Console);
  KELVIK_OFFSET(Kelvik::CGlobal, m_ModuleState);
  KELVIK_OFFSET(Kelvik::CGlobal, m_ModuleAttribute);
  KELVIK_OFFSET(Kelvik::CGlobal, m_ConfigFilePath);
}

void PrintSlots() {
  PrintSlot("Kelvik::CThread::IExecute::RunTask", &Kelvik::CThread::IExecute::RunTask);
  PrintSlot("Kelvik::COutput::RunTask", &Kelvik::COutput::RunTask);
  PrintSlot("Kelvik::CConsole::RunTask", &Kelvik::CConsole::RunTask);
}

}  // namespace

int main() {
  KELVIK_SIZE(void*);
  PrintRecords();
  PrintStatistics();
  PrintPrimitives();
  PrintOutput();
  PrintContext();
  PrintSlots();
  return 0;
}
