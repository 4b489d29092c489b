// The output engine of a child process: its settings, its members under their locks, and what its
// folder holds.

#ifndef KELVIK_OUTPUTTOOLS_H_
#define KELVIK_OUTPUTTOOLS_H_

#include <gmock/gmock.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "FileTools.h"
#include "Global.h"
#include "Guard.h"
#include "Kelvik.h"
#include "RealClock.h"
#include "TempDir.h"

namespace Kelvik {

constexpr int64_t kNoon = 1710504000;  // 2024-03-15 12:00:00 UTC
constexpr char kNoonName[] = "20240315120000.log";

inline COutput& Output() {
  return CGlobal::Instance()->GetOutput();
}

// A member that other threads may use.
template <class tField>
tField Look(const tField& field) {
  CGuard first(&Output().m_BufferMutex);
  CGuard second(&Output().m_WriteMutex);
  return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

template <class tField>
void Put(tField& field, tField value) {
  CGuard first(&Output().m_BufferMutex);
  CGuard second(&Output().m_WriteMutex);
  __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

inline void SetBufferBytes(uint32_t bytes) {
  CGuard guard(&Output().m_BufferMutex);
  CGlobal::Instance()->m_Attribute.m_BufferSize = bytes;
}

inline void SetIntervalMs(uint32_t ms) {
  CGuard guard(&Output().m_BufferMutex);
  CGlobal::Instance()->m_Attribute.m_WriteInterval = ms;
}

inline void SwitchFile(bool on) {
  const char value = on ? 1 : 0;
  SetAttribute(eAttributeOutput, eOutputFile, &value, 1);
}

inline void SwitchTerminal(bool on) {
  const char value = on ? 1 : 0;
  SetAttribute(eAttributeOutput, eOutputTerminal, &value, 1);
}

// Files of maxSize bytes in a ring of count, records without a prefix, nothing on the terminal.
inline void UseSize(const std::string& logPath, uint32_t bufferBytes,
                    uint32_t maxSize = 1024 * 1024, uint32_t count = 3) {
  CGlobal& context = *CGlobal::Instance();
  context.SetLogPath(logPath.c_str());
  context.SetLogMaxSize(maxSize);
  context.StoreLogMaxCount(count);
  SetBufferBytes(bufferBytes);
  const char on = 1;
  const char off = 0;
  for (int level = eLogLevelDebug; level <= eLogLevelFatal; ++level)
    SetAttribute(eAttributeLevel, level, &on, 1);
  SetAttribute(eAttributeOther, eOtherDateTime, &off, 1);
  SwitchTerminal(false);
  SwitchFile(true);
}

inline int LogLine(const std::string& text) {
  return KLog(eLogLevelInfo, nullptr, nullptr, "%s\n", text.c_str());
}

// A record of so many bytes in all: the letter repeated, and a line end.
inline int LogBytes(char letter, int bytes) {
  return LogLine(std::string(static_cast<size_t>(bytes - 1), letter));
}

inline std::string Bytes(char letter, int bytes) {
  return std::string(static_cast<size_t>(bytes - 1), letter) + "\n";
}

// The folder's files as "name:content" with line ends as blanks.
inline std::vector<std::string> Contents(const std::string& folder) {
  std::vector<std::string> contents;
  for (const std::string& name : ListFolder(folder)) {
    std::string text = ReadFile(folder + "/" + name);
    std::replace(text.begin(), text.end(), '\n', ' ');
    contents.push_back(name + ":" + text);
  }
  return contents;
}

// All files of the folder behind one another, in the order of their names.
inline std::string AllText(const std::string& folder) {
  std::string text;
  for (const std::string& name : ListFolder(folder))
    text += ReadFile(folder + "/" + name);
  return text;
}

// Waits for the writer to have made the folder's text this one.
inline void ExpectTextSoon(const std::string& folder, const std::string& text) {
  WaitUntil([&] { return AllText(folder) == text; }, 3000);
  EXPECT_EQ(text, AllText(folder));
}

// Has the writer drop a batch, since file output goes off; it is in its pause then.
inline void DropBatch() {
  EXPECT_EQ(0, LogLine("dropped"));
  SwitchFile(false);
  EXPECT_EQ(0, WriteBufferContent2File());
  EXPECT_TRUE(WaitUntil([] { return Look(Output().m_BackLength) == 0; }, 3000));
}

// Runs a case with a log folder of its own; args are the log path, the folder, and then the more.
inline testing::AssertionResult RunCase(const std::string& name,
                                        const std::vector<std::string>& more = {},
                                        int limitMs = kChildDefaultLimitMs) {
  const CTempDir logs;
  tagChildOptions options;
  options.m_LimitMs = limitMs;
  options.m_Environment = {{"TZ", "UTC0"}};
  std::vector<std::string> args = {logs.LogPath(), logs.Path()};
  args.insert(args.end(), more.begin(), more.end());
  return Succeeded(RunChild(name, args, options));
}

}  // namespace Kelvik

#endif  // KELVIK_OUTPUTTOOLS_H_
