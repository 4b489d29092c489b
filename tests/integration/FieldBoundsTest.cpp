// Names and paths that just fit their fixed field, just do not, and are far too long, through every
// entry: C functions, the configuration file, the console. What stands beside a field in its object
// stays as it was, which no sanitizer watches.

#include <gmock/gmock.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "ConfigTools.h"
#include "ConsoleClient.h"
#include "ConsoleTools.h"
#include "OutputTools.h"

namespace Kelvik {
namespace {

constexpr int kLimitMs = 60000;         // saves wait for the disk, which may be busy
constexpr size_t kDatagramText = 2044;  // the longest text that a console takes

// Around a field of so many characters, its terminator not counted where it needs one.
std::vector<size_t> LengthsAround(size_t fits) {
  return {fits - 1, fits, fits + 1, 10 * fits};
}

std::string Path(size_t length) {
  return "/" + std::string(length - 1, 'p');
}

tagAttribute Settings() {
  tagAttribute settings;
  CGlobal::Instance()->CopyAttribute(settings);
  return settings;
}

// What may not change when one field is written: the context's other fixed fields, as text.
std::string Others(const std::string& but) {
  const CGlobal& context = *CGlobal::Instance();
  const COutput& output = context.m_Output;
  tagAttribute settings = Settings();
  if (but == "log path") std::memset(settings.m_LogPath, 0, sizeof(settings.m_LogPath));
  std::string text(reinterpret_cast<const char*>(&settings), sizeof(settings));
  if (but != "names") {
    text.append(output.m_FileNames[0], sizeof(output.m_FileNames));
  }
  if (but != "config") text.append(context.m_ConfigFilePath, sizeof(context.m_ConfigFilePath));
  text.append(output.m_NextFileName, sizeof(output.m_NextFileName));
  text.append(output.m_ConsolePath, sizeof(output.m_ConsolePath));
  for (const int32_t fd : output.m_FileFds)
    text += " " + std::to_string(fd);
  text += " " + std::to_string(output.m_CurrentFd) + " " + std::to_string(output.m_FileIndex) +
          " " + std::to_string(context.m_ModuleAttribute.size()) + " " +
          std::to_string(context.FirstModule() == nullptr);
  return text;
}

std::string LogPath() {
  const tagAttribute settings = Settings();
  return std::string(settings.m_LogPath, strnlen(settings.m_LogPath, sizeof(settings.m_LogPath)));
}

// --- The log path: 256 characters, without a terminator when it is full ---

CHILD_CASE(LogPathByCall) {
  CPrintedText printed;
  const std::string others = Others("log path");
  // SetLogFilePath takes what fits 128 characters with a terminator, whatever the field takes.
  for (const size_t length : LengthsAround(127)) {
    const std::string before = LogPath();
    EXPECT_EQ(0, SetLogFilePath(Path(length).c_str()));
    EXPECT_EQ(length < 128 ? Path(length) : before, LogPath()) << length;
    EXPECT_EQ(others, Others("log path")) << length;
  }
  for (const size_t length : LengthsAround(256)) {
    const std::string before = LogPath();
    const int result = SetAttribute(eAttributeOther, eOtherLogPath, Path(length).c_str(),
                                    static_cast<int>(length));
    EXPECT_EQ(length <= 256 ? 0 : 3, result) << length;
    EXPECT_EQ(length <= 256 ? Path(length) : before, LogPath()) << length;
    EXPECT_EQ(others, Others("log path")) << length;
    CGlobal::Instance()->SetLogPath(Path(length).c_str());
    EXPECT_EQ(Path(length).substr(0, 256), LogPath()) << length;
    EXPECT_EQ(others, Others("log path")) << length;
  }
  return 0;
}

TEST(FieldBounds, LogPathByCall) {
  EXPECT_TRUE(RunCase("LogPathByCall", {}, kLimitMs));
}

CHILD_CASE(LogPathByConsole) {
  CPrintedText printed;
  CTestConsole console;
  const std::string others = Others("log path");
  const std::string word = "-logpath ";
  for (const size_t length : {size_t{255}, size_t{256}, size_t{257}, kDatagramText - word.size()}) {
    const std::string before = LogPath();
    EXPECT_TRUE(console.Obey(word + Path(length)));
    EXPECT_EQ(length <= 256 ? Path(length) : before, LogPath()) << length;
    EXPECT_EQ(others, Others("log path")) << length;
  }
  return 0;
}

TEST(FieldBounds, LogPathByConsole) {
  EXPECT_TRUE(RunCase("LogPathByConsole", {}, kLimitMs));
}

CHILD_CASE(Load) {
  EXPECT_EQ(0, SetConfigFilePath(args.at(2).c_str()));
  Initialize();
  PrintState();
  return 0;
}

// The state of a process that has read this configuration file.
Entries StateAfter(const std::string& content) {
  const CTempDir folder;
  const std::string path = folder.File("kelvik.ini");
  EXPECT_TRUE(WriteFile(path, content));
  const tagChildResult result = RunChild("Load", {"", "", path}, kLimitMs);
  EXPECT_TRUE(Succeeded(result));
  return ParseState(result.m_Output);
}

TEST(FieldBounds, LogPathByConfigurationFile) {
  const Entries defaults = StateAfter("");
  for (const size_t length : LengthsAround(256)) {
    Entries expected = defaults;
    expected["Path"] = Path(length).substr(0, 256);
    EXPECT_EQ(expected, StateAfter("[Global]\nLogFilePath=" + Path(length) + "\n")) << length;
  }
}

// --- The ring's names: 128 characters with their terminator ---

CHILD_CASE(NamesByCall) {
  const std::string others = Others("names");
  for (const size_t length : LengthsAround(127)) {
    for (const int slot : {0, 4, 9}) {
      for (int other = 0; other < kSlotCount; ++other)
        EXPECT_EQ(0, Output().SetLogName(other, "/tmp/other"));
      EXPECT_EQ(0, Output().SetLogName(slot, Path(length).c_str()));
      for (int other = 0; other < kSlotCount; ++other) {
        const bool isStored = other == slot && length <= 127;
        EXPECT_EQ(isStored ? Path(length) : "/tmp/other", Output().m_FileNames[other])
            << length << " " << slot;
      }
      EXPECT_EQ(others, Others("names")) << length << " " << slot;
    }
  }
  return 0;
}

TEST(FieldBounds, FileNamesByCall) {
  EXPECT_TRUE(RunCase("NamesByCall", {}, kLimitMs));
}

TEST(FieldBounds, FileNamesByConfigurationFile) {
  const Entries defaults = StateAfter("[Global]\nLogMaxCount=10\nLogIndex=4\n");
  for (const size_t length : LengthsAround(127)) {
    std::string content = "[Global]\nLogMaxCount=10\nLogIndex=4\n[fileName]\n";
    Entries expected = defaults;
    for (int slot = 0; slot < kSlotCount; ++slot) {
      const std::string number = std::to_string(slot);
      content.append("fileName_").append(number).append("=").append(Path(length)).append("\n");
      if (length <= 127) expected["Name" + number] = Path(length);
    }
    EXPECT_EQ(expected, StateAfter(content)) << length;
  }
}

// --- The configuration file's own path: 128 characters with their terminator ---

CHILD_CASE(ConfigPath) {
  const size_t length = std::stoul(args.at(2));
  const std::string others = Others("config");
  EXPECT_EQ(0, SetConfigFilePath(Path(length).c_str()));
  char path[128] = {};
  EXPECT_EQ(0, CGlobal::Instance()->GetConfigFilePath(path));
  EXPECT_EQ(length <= 127 ? Path(length) : "", path);
  EXPECT_EQ(others, Others("config"));
  return 0;
}

TEST(FieldBounds, ConfigurationPath) {
  for (const size_t length : LengthsAround(127))
    EXPECT_TRUE(RunCase("ConfigPath", {std::to_string(length)}, kLimitMs));
}

// --- Callbacks: module and title of 128 characters with their terminators ---

int Display(int, const char*, const char*, void* calls) {
  ++*static_cast<std::atomic<int>*>(calls);
  return 0;
}

int Parameter(int, void* calls) {
  ++*static_cast<std::atomic<int>*>(calls);
  return 0;
}

CHILD_CASE(Callbacks) {
  CPrintedText printed;
  std::atomic<int> displays{0};
  std::atomic<int> parameters{0};
  int expected = 0;
  CTestConsole console;
  CModuleState& registry = CGlobal::Instance()->GetModuleState();
  for (const size_t length : LengthsAround(127)) {
    SCOPED_TRACE(length);
    const std::string name(length, 'n');
    const bool fits = length <= 127;
    const size_t before = registry.CopyModules().size();
    EXPECT_EQ(fits ? 0 : 3, ModuleStateRegister(name.c_str(), name.c_str(), &Display, &displays));
    EXPECT_EQ(fits ? 0 : 3,
              ModuleSetParamRegister(name.c_str(), name.c_str(), &Parameter, &parameters));
    EXPECT_EQ(3, ModuleStateRegister("short", std::string(128, 't').c_str(), &Display, &displays));
    EXPECT_EQ(3, ModuleStateRegister(std::string(128, 'm').c_str(), "short", &Display, &displays));
    EXPECT_EQ(before + (fits ? 1 : 0), registry.CopyModules().size());
    if (fits) {
      const tagModule record = registry.CopyModules().back();
      EXPECT_EQ(name, record.m_Module);
      EXPECT_EQ(name, record.m_Title);
      EXPECT_EQ(&Display, record.m_Callback);
      EXPECT_EQ(&displays, record.m_Param);
    }
    if (2 * length + 30 > kDatagramText) continue;
    EXPECT_TRUE(console.Obey("-show /dev/null " + name + " " + name));
    EXPECT_TRUE(console.Obey("-set " + name + " " + name + " 7"));
    if (fits) ++expected;
    EXPECT_EQ(expected, displays);
    EXPECT_EQ(expected, parameters);
  }
  for (const size_t length : {size_t{127}, size_t{128}, size_t{900}}) {
    const std::string name(length, 'n');
    EXPECT_EQ(length == 127 ? 0 : 1, ModuleStateUnregister(name.c_str(), name.c_str()));
    EXPECT_EQ(length == 127 ? 0 : 1, ModuleSetParamUnregister(name.c_str(), name.c_str()));
  }
  return 0;
}

TEST(FieldBounds, CallbackNames) {
  EXPECT_TRUE(RunCase("Callbacks", {}, kLimitMs));
}

// --- The other words of the console ---

CHILD_CASE(Words) {
  CPrintedText printed;
  CTestConsole console;
  EXPECT_EQ(0, registerModule(std::string("net").data(), std::string("1").data()));
  const std::string others = Others("");
  for (const char* word : {"-tty ", "-focus ", "-sav ", "-buffersize ", "-interval ",
                           "-leveldbg 0 ", "-show ", "-set ", "-tid 0 "}) {
    for (const size_t length :
         {size_t{255}, size_t{256}, size_t{257}, kDatagramText - std::strlen(word)}) {
      EXPECT_TRUE(console.Obey(word + std::string(length, 'w'))) << word << length;
      EXPECT_EQ(others, Others("")) << word << length;
    }
  }
  // A text of one word that fills the datagram.
  EXPECT_TRUE(console.Obey(std::string(kDatagramText, '-')));
  EXPECT_EQ(others, Others(""));
  return 0;
}

TEST(FieldBounds, WordsOfTheConsole) {
  EXPECT_TRUE(RunCase("Words", {}, kLimitMs));
}

// --- Names of records: 8192 bytes with prefix and message, 256 of a raw record's prefix ---

using LogCall = std::function<int(const std::string& name)>;

CHILD_CASE(RecordNames) {
  UseSize(args.at(0), 0);
  const LogCall calls[] = {
      [](const std::string& n) { return KLog(eLogLevelInfo, n.c_str(), n.c_str(), "x\n"); },
      [](const std::string& n) { return KLog(eLogLevelInfo, "m", "t", "%s\n", n.c_str()); },
      [](const std::string& n) {
        return KLogV1(eLogLevelInfo, n.c_str(), "t", n.c_str(), n.c_str(), 1, "x\n");
      },
      [](const std::string& n) { return KLogs(eLogLevelInfo, n.c_str(), n.c_str(), "x\n", 2); },
      [](const std::string& n) {
        return KLogsV1(eLogLevelInfo, n.c_str(), "t", n.c_str(), n.c_str(), 1, "x\n", 2);
      },
  };
  EXPECT_EQ(0, LogLine("first"));
  const std::string others = Others("");
  const std::string file = args.at(0) + Output().m_FileNames[0];
  size_t size = ReadFile(file).size();
  for (const size_t fits : {size_t{255}, size_t{8191}}) {
    for (const size_t length : LengthsAround(fits)) {
      for (const LogCall& call : calls) {
        EXPECT_EQ(0, call(std::string(length, 'n'))) << length;
        const size_t now = ReadFile(file).size();
        EXPECT_GT(now, size);
        EXPECT_LE(now - size, 8191u + 2) << length;
        size = now;
      }
    }
  }
  EXPECT_EQ(0, LogLine("last"));
  EXPECT_THAT(ReadFile(file), testing::EndsWith("last\n"));
  EXPECT_EQ(others, Others(""));
  return 0;
}

TEST(FieldBounds, NamesOfRecords) {
  EXPECT_TRUE(RunCase("RecordNames", {}, kLimitMs));
}

CHILD_CASE(ModuleNames) {
  CPrintedText printed;
  const std::string path = args.at(0) + "kelvik.ini";
  EXPECT_EQ(0, SetConfigFilePath(path.c_str()));
  std::vector<std::string> names;
  for (const size_t length : LengthsAround(127)) {
    names.push_back(std::string(length, static_cast<char>('a' + names.size())));
    EXPECT_EQ(0, registerModule(names.back().data(), names.back().data()));
  }
  for (const std::string& name : names) {
    const char on = 1;
    EXPECT_EQ(0, SetAttributeByModule(eAttributeLevel, eLogLevelDebug, &on, 1, name.c_str()));
    EXPECT_NE(0, CGlobal::Instance()->m_ModuleAttribute.at(name).m_LevelMask & 2);
    EXPECT_EQ(0, CGlobal::Instance()->SaveAttribute2File(name.c_str()));
    EXPECT_EQ("1", ReadEntries(path)[name + "/leveldbg"]);
  }
  EXPECT_EQ(0, Settings().m_LevelMask & 2);
  return 0;
}

TEST(FieldBounds, NamesOfModules) {
  EXPECT_TRUE(RunCase("ModuleNames", {}, kLimitMs));
}

}  // namespace
}  // namespace Kelvik
