// The process-wide context: its defaults, its setters and its clock.

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "FakeClock.h"
#include "RealClock.h"
#include "RecordTools.h"

namespace Kelvik {
namespace {

// --- Life and defaults ---

// The words of the packed record are unaligned: by value only.
void ExpectDefaults(const tagAttribute& a) {
  EXPECT_EQ(1, a.m_OutputConsole);
  EXPECT_EQ(0, a.m_OutputSystem);
  EXPECT_EQ(0, a.m_OutputFile);
  EXPECT_EQ(1, a.m_OutputDateTime);
  EXPECT_EQ(0, a.m_OutputThreadID);
  EXPECT_EQ(1, a.m_OutputLocation);
  EXPECT_EQ(0x30, a.m_LevelMask);
  const std::string path(a.m_LogPath, kLogPathBytes);
  EXPECT_EQ("/tmp/" + std::string(kLogPathBytes - 5, '\0'), path);
  EXPECT_EQ(1048576u, static_cast<uint32_t>(a.m_LogMaxSize));
  EXPECT_EQ(1u, static_cast<uint32_t>(a.m_LogMaxDuration));
  EXPECT_EQ(2u, static_cast<uint32_t>(a.m_LogMaxCount));
  EXPECT_EQ(32768u, static_cast<uint32_t>(a.m_BufferSize));
  EXPECT_EQ(0u, static_cast<uint32_t>(a.m_WriteInterval));
}

CHILD_CASE(FreshContext) {
  // Once before, so that what the C library opens for itself is there.
  ListFolder("/proc/self/task");
  const size_t threads = ListFolder("/proc/self/task").size();
  const int descriptors = OpenDescriptors();
  ExpectDefaults(Global());
  EXPECT_EQ(threads, ListFolder("/proc/self/task").size());
  EXPECT_EQ(descriptors, OpenDescriptors());
  EXPECT_TRUE(Context().m_ModuleAttribute.empty());
  EXPECT_STREQ("", Context().m_ConfigFilePath);
  EXPECT_FALSE(CGlobal::s_ConfigPathSet);
  EXPECT_FALSE(CGlobal::s_ConfigLoaded);
  return 0;
}

TEST(Global, FreshContextHasTheDefaultsAndNoThreadSocketOrFile) {
  EXPECT_TRUE(Passes("FreshContext"));
}

CHILD_CASE(MembersInOrder) {
  CGlobal& context = Context();
  EXPECT_EQ(static_cast<void*>(&context), static_cast<void*>(context.GetAttribute()));
  const void* const members[] = {
      &context.m_Attribute,   &context.m_Output,          &context.m_Console,
      &context.m_ModuleState, &context.m_ModuleAttribute, context.m_ConfigFilePath,
  };
  for (size_t i = 1; i < std::size(members); ++i)
    EXPECT_LT(members[i - 1], members[i]) << i;
  EXPECT_EQ(members[1], &context.GetOutput());
  EXPECT_EQ(members[2], &context.GetConsole());
  EXPECT_EQ(members[3], &context.GetModuleState());
  return 0;
}

TEST(Global, PointerToTheContextIsOneToTheGlobalSettings) {
  EXPECT_TRUE(Passes("MembersInOrder"));
}

CHILD_CASE(FirstCallsTogether) {
  constexpr int kThreads = 8;
  std::atomic<int> waiting{kThreads};
  CGlobal* found[kThreads] = {};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      --waiting;
      while (waiting.load() > 0)
        std::this_thread::yield();
      found[i] = CGlobal::Instance();
      ExpectDefaults(*found[i]->GetAttribute());
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (CGlobal* context : found)
    EXPECT_EQ(CGlobal::Instance(), context);
  return 0;
}

TEST(Global, ConcurrentFirstCallsFindOneFinishedContext) {
  for (int round = 0; round < 3; ++round)
    ASSERT_TRUE(Passes("FirstCallsTogether"));
}

int ShowNothing(int, const char*, const char*, void*) {
  return 0;
}

CHILD_CASE(InitializeAgain) {
  CGlobal& context = Context();
  EXPECT_EQ(0, context.SetConfigFilePath("/tmp/kelvik-kept.ini"));
  EXPECT_EQ(0, context.InsertModuleName("network", nullptr));
  tagAttribute* const module = context.GetAttribute("network");
  module->m_LevelMask = 0x02;
  Global().m_LevelMask = 0x3e;
  Store(Global().m_OutputConsole, false);
  Store(Global().m_OutputThreadID, true);
  context.SetLogPath(std::string(256, 'x').c_str());
  context.SetLogMaxSize(1);
  context.SetLogMaxDuration(77);
  EXPECT_EQ(0, context.Initialize());
  ExpectDefaults(Global());
  EXPECT_EQ(module, context.GetAttribute("network"));
  EXPECT_EQ(0x02, module->m_LevelMask);
  EXPECT_STREQ("/tmp/kelvik-kept.ini", context.m_ConfigFilePath);
  // Each display is there once.
  CModuleState& displays = context.GetModuleState();
  for (const char* title : {"attribute", "module", "cmd"}) {
    EXPECT_EQ(6, displays.Register("Kelvik", title, ShowNothing, nullptr)) << title;
    EXPECT_EQ(0, displays.Unregister("Kelvik", title)) << title;
    EXPECT_EQ(1, displays.Unregister("Kelvik", title)) << title;
  }
  return 0;
}

TEST(Global, InitializeRestoresTheDefaultsAndLeavesModulesAndPath) {
  EXPECT_TRUE(Passes("InitializeAgain"));
}

CHILD_CASE(OwnDisplays) {
  CPrintedText printed;
  const std::list<tagModule> displays = Context().GetModuleState().CopyModules();
  const char* const firstWords[] = {"[Attribute] module:m title:t.\n", "==========Register Module",
                                    "==========Cmd Module"};
  size_t index = 0;
  for (const tagModule& display : displays) {
    SCOPED_TRACE(display.m_Title);
    EXPECT_EQ(&Context(), display.m_Param);
    EXPECT_EQ(1, display.m_Callback(STDOUT_FILENO, "m", "t", nullptr));
    EXPECT_EQ("", printed.Take());
    EXPECT_EQ(0, display.m_Callback(STDOUT_FILENO, "m", "t", display.m_Param));
    EXPECT_EQ(0u, printed.Take().find(firstWords[index]));
    // The display's own result comes through.
    EXPECT_EQ(index == 0 ? 0 : 1,
              display.m_Callback(STDOUT_FILENO, nullptr, nullptr, display.m_Param));
    printed.Take();
    ++index;
  }
  EXPECT_EQ(3u, index);
  return 0;
}

TEST(Global, OwnDisplaysTakeTheContextAndRefuseNull) {
  EXPECT_TRUE(Passes("OwnDisplays"));
}

// A static object that outlives the context looks at what is left of it.
class CLateReader {
 public:
  ~CLateReader() {
    if (!m_IsWatching) return;
    ExpectDefaults(Global());
    _exit(CGlobal::IsEnded() && !testing::Test::HasFailure() ? 0 : 1);
  }
  bool m_IsWatching = false;
};

CHILD_CASE(DefaultsAtTheEnd) {
  static CLateReader reader;  // made before the context, so destroyed after it
  reader.m_IsWatching = true;
  CGlobal& context = Context();
  EXPECT_EQ(0, context.InsertModuleName("network", nullptr));
  Global().m_LevelMask = 0x3e;
  Store(Global().m_OutputThreadID, true);
  context.SetLogPath("/var/log/");
  context.SetLogMaxDuration(77);
  return 0;
}

TEST(Global, SettingsAreTheDefaultsAgainAtTheEndOfTheProcess) {
  EXPECT_TRUE(Passes("DefaultsAtTheEnd"));
}

// --- Values ---

struct tagValueCase {
  int m_Length;
  std::vector<uint8_t> m_Bytes;
  int m_Result;
  bool m_Flag;
};

CHILD_CASE(ParseTable) {
  const tagValueCase cases[] = {
      {1, {0}, 0, false},
      {1, {1}, 0, true},
      {1, {0x80, 0, 0, 0}, 0, true},
      {1, {0, 1, 1, 1}, 0, false},
      {2, {0, 0, 1, 1}, 0, false},
      {2, {0, 1}, 0, true},
      {2, {1, 0}, 0, true},
      {4, {0, 0, 0, 0, 1}, 0, false},
      {4, {0, 0, 0, 0x80}, 0, true},
      {4, {0, 0, 1, 0}, 0, true},
      {8, {0, 0, 0, 0, 0, 0, 0, 0, 1}, 0, false},
      {8, {0, 0, 0, 0, 0, 0, 0, 1}, 0, true},
      {8, {0, 0, 0, 0, 1, 0, 0, 0}, 0, true},
      {8, {1, 0, 0, 0, 0, 0, 0, 0}, 0, true},
      {1, {'0'}, 0, true},
      {3, {1, 1, 1, 1}, 3, false},
      {5, {1, 1, 1, 1, 1}, 3, false},
      {6, {1, 1, 1, 1, 1, 1}, 3, false},
      {7, {1, 1, 1, 1, 1, 1, 1}, 3, false},
      {9, {1, 1, 1, 1, 1, 1, 1, 1, 1}, 3, false},
      {16, std::vector<uint8_t>(16, 1), 3, false},
      {-1, {1, 1, 1, 1}, 3, false},
      {-8, {1, 1, 1, 1}, 3, false},
  };
  for (const tagValueCase& row : cases) {
    for (size_t shift = 0; shift < 4; ++shift) {  // the value may stand anywhere
      alignas(8) uint8_t field[32] = {};
      std::memcpy(field + shift, row.m_Bytes.data(), row.m_Bytes.size());
      for (const bool before : {false, true}) {
        bool flag = before;
        EXPECT_EQ(row.m_Result, Context().ParseValue(field + shift, row.m_Length, flag));
        EXPECT_EQ(row.m_Flag, flag) << row.m_Length << " bytes, flag before " << before;
      }
    }
  }
  for (const bool before : {false, true}) {
    bool flag = before;
    const uint8_t one = 1;
    EXPECT_EQ(3, Context().ParseValue(nullptr, 1, flag));
    EXPECT_EQ(before, flag);
    EXPECT_EQ(3, Context().ParseValue(&one, 0, flag));
    EXPECT_EQ(before, flag) << "refused before the flag is touched";
  }
  return 0;
}

TEST(Global, SwitchIsAValueOfOneTwoFourOrEightBytes) {
  EXPECT_TRUE(Passes("ParseTable"));
}

struct tagSetterCase {
  const char* m_Text;
  uint32_t m_Stored;  // 7: ignored
};

uint32_t Count() {
  return Global().m_LogMaxCount;
}
uint32_t BufferSize() {
  return Global().m_BufferSize;
}
uint32_t Interval() {
  return Global().m_WriteInterval;
}

CHILD_CASE(NumberSetters) {
  CGlobal& context = Context();
  constexpr uint32_t kKept = 7;
  for (const int count : {-2147483647 - 1, -1, 0, 1, 2, 9, 10, 11, 12, 2147483647}) {
    context.StoreLogMaxCount(kKept);
    EXPECT_EQ(0, context.SetMaxLogCount(count));
    EXPECT_EQ(count >= 1 && count <= 10 ? static_cast<uint32_t>(count) : kKept, Count()) << count;
  }
  const tagSetterCase sizes[] = {
      {"1", 1024},     {"2", 2048},      {"1023", 1047552},     {"1024", 1048576},
      {"1025", kKept}, {"0", kKept},     {"-1", kKept},         {"", kKept},
      {"abc", kKept},  {"12abc", 12288}, {" 3", 3072},          {"+4", 4096},
      {"2.9", 2048},   {"0x10", kKept},  {"2147483647", kKept}, {"-2147483648", kKept},
  };
  for (const tagSetterCase& row : sizes) {
    Global().m_BufferSize = kKept;
    EXPECT_EQ(0, context.SetBufferSize(row.m_Text)) << row.m_Text;
    EXPECT_EQ(row.m_Stored, BufferSize()) << row.m_Text;
  }
  const tagSetterCase intervals[] = {
      {"0", 0},      {"1", kKept},           {"199", kKept},        {"200", 200},
      {"201", 201},  {"3599999", 3599999},   {"3600000", 3600000},  {"3600001", kKept},
      {"-1", kKept}, {"-2147483648", kKept}, {"2147483647", kKept}, {"", 0},
      {"abc", 0},    {"250ms", 250},
  };
  for (const tagSetterCase& row : intervals) {
    Global().m_WriteInterval = kKept;
    EXPECT_EQ(0, context.SetInterval(row.m_Text)) << row.m_Text;
    EXPECT_EQ(row.m_Stored, Interval()) << row.m_Text;
  }
  return 0;
}

TEST(Global, NumbersOutOfRangeAreIgnoredWithSuccess) {
  EXPECT_TRUE(Passes("NumberSetters"));
}

CHILD_CASE(ConfigPath) {
  CPrintedText printed;
  CGlobal& context = Context();
  char path[kConfigPathBytes];
  std::memset(path, 'x', sizeof(path));
  EXPECT_EQ(3, context.GetConfigFilePath(nullptr));
  EXPECT_EQ(0, context.GetConfigFilePath(path));
  EXPECT_STREQ("", path);
  EXPECT_EQ(3, context.SetConfigFilePath(nullptr));
  EXPECT_EQ(3, context.SetConfigFilePath(""));
  EXPECT_EQ(3, context.SetConfigFilePath(std::string(128, 'p').c_str()));
  EXPECT_EQ(3, context.SetConfigFilePath(std::string(5000, 'p').c_str()));
  EXPECT_FALSE(CGlobal::s_ConfigPathSet) << "a refused path does not count";
  const std::string longest(127, 'p');
  EXPECT_EQ(0, context.SetConfigFilePath(longest.c_str()));
  EXPECT_TRUE(CGlobal::s_ConfigPathSet);
  // The second call is not even looked at.
  for (const char* second : {"/tmp/second.ini", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(0, context.SetConfigFilePath(second));
  EXPECT_EQ(0, context.SetConfigFilePath(std::string(128, 'q').c_str()));
  EXPECT_EQ(0, context.GetConfigFilePath(path));
  EXPECT_EQ(longest, path);
  EXPECT_EQ("", printed.Take());
  return 0;
}

TEST(Global, ConfigurationPathIsSetOnce) {
  EXPECT_TRUE(Passes("ConfigPath"));
}

CHILD_CASE(LogPath) {
  CPrintedText printed;
  CGlobal& context = Context();
  EXPECT_EQ(3, context.SetLogFilePath(nullptr));
  EXPECT_EQ(3, context.SetLogFilePath(""));
  EXPECT_EQ(3, context.SetLogFilePath(std::string(128, 'p').c_str()));
  EXPECT_EQ(3, context.SetLogFilePath(std::string(256, 'p').c_str()));
  EXPECT_EQ("", printed.Take());
  EXPECT_STREQ("/tmp/", Global().m_LogPath);
  for (const std::string& path :
       {std::string(127, 'p'), std::string("/%s/%n/"), std::string("/")}) {
    EXPECT_EQ(0, context.SetLogFilePath(path.c_str()));
    EXPECT_EQ("m_Attribute.m_LogPath = " + path + "\n", printed.Take());
    EXPECT_EQ(path, Global().m_LogPath);
  }
  return 0;
}

TEST(Global, LogPathOfUpTo127CharactersIsStoredAndPrinted) {
  EXPECT_TRUE(Passes("LogPath"));
}

// --- Time ---

CHILD_CASE(Times) {
  CFakeClock clock(kMoment, 987654);
  CGlobal& context = Context();
  tagAbsoluteTime time;
  std::memset(&time, 0xAA, sizeof(time));
  EXPECT_EQ(0, context.GetDateTime(time));
  EXPECT_EQ(2024, time.m_Year);
  EXPECT_EQ(3, time.m_Month);
  EXPECT_EQ(0xAAAA, time.m_Reserved) << "left alone";
  EXPECT_EQ(15, time.m_Day);
  EXPECT_EQ(12, time.m_Hour);
  EXPECT_EQ(0, time.m_Minute);
  EXPECT_EQ(0, time.m_Second);
  EXPECT_EQ(987, time.m_Millisecond);
  const std::string text = "2024-03-15 12:00:00.987";
  for (const int size : {1, 2, 5, 23, 24, 32}) {
    char field[40];
    char other[40];
    std::memset(field, '#', sizeof(field));
    std::memset(other, '#', sizeof(other));
    EXPECT_EQ(23, context.GetDateTime(field, size)) << "the untruncated length";
    EXPECT_EQ(23, context.GetString(time, other, size));
    EXPECT_EQ(text.substr(0, static_cast<size_t>(size) - 1), field);
    EXPECT_STREQ(field, other);
    EXPECT_EQ('#', field[size]) << "nothing behind the room";
    EXPECT_EQ('#', other[size]);
  }
  clock.Set(951827696, 999999);  // 2000-02-29 12:34:56
  char field[32];
  EXPECT_EQ(23, context.GetDateTime(field, sizeof(field)));
  EXPECT_STREQ("2000-02-29 12:34:56.999", field);
  const tagAbsoluteTime wide = {65535, 65535, 0, 65535, 65535, 65535, 65535, 65535};
  char roomy[64];
  EXPECT_EQ(41, context.GetString(wide, roomy, sizeof(roomy)));
  EXPECT_STREQ("65535-65535-65535 65535:65535:65535.65535", roomy);
  const tagAbsoluteTime zero = {};
  EXPECT_EQ(23, context.GetString(zero, roomy, sizeof(roomy)));
  EXPECT_STREQ(kZeroText, roomy);
  return 0;
}

TEST(Global, TimeIsTheLocalOneToTheMillisecond) {
  EXPECT_TRUE(Passes("Times"));
}

std::string LocaltimeReport(const std::string& prefix, int line) {
  return Shown(eLogLevelError, prefix + "[Kelvik][Internal] Global GetDateTime " +
                                   std::to_string(line) +
                                   " localtime failed : " + std::to_string(kMoment) + "\n");
}

CHILD_CASE(NoLocaltime) {
  CPrintedText printed;
  CFakeClock clock(kMoment, kMomentMicros);
  clock.FailLocaltime(true);
  tagAbsoluteTime time = {};
  char text[32] = "";
  // The report has no time either, and does not report that.
  const std::string prefix = std::string(kZeroText) + " ";
  EXPECT_EQ(5, Context().GetDateTime(time));
  EXPECT_EQ(LocaltimeReport(prefix, 469), printed.Take());
  EXPECT_EQ(5, Context().GetDateTime(text, sizeof(text)));
  EXPECT_EQ(LocaltimeReport(prefix, 507), printed.Take());
  Store(Global().m_OutputDateTime, false);
  EXPECT_EQ(5, Context().GetDateTime(time));
  EXPECT_EQ(LocaltimeReport("", 469), printed.Take());
  Global().m_LevelMask = 0x2e;  // no errors
  EXPECT_EQ(5, Context().GetDateTime(time));
  EXPECT_EQ(5, Context().GetDateTime(text, sizeof(text)));
  EXPECT_EQ("", printed.Take());
  clock.FailLocaltime(false);
  EXPECT_EQ(0, Context().GetDateTime(time));
  EXPECT_EQ(2024, time.m_Year);
  return 0;
}

TEST(Global, FailedConversionOfTheTimeIsReportedOnceWithAZeroTime) {
  EXPECT_TRUE(Passes("NoLocaltime"));
}

CHILD_CASE(SleepAndId) {
  EXPECT_EQ(getpid(), Context().GetCurrentThreadID());
  int inThread = 0;
  std::thread([&] { inThread = Context().GetCurrentThreadID(); }).join();
  EXPECT_EQ(getpid(), inThread);
  for (const unsigned ms : {0u, 30u, 1100u}) {  // more than a second is no special case
    const int64_t start = RealClockMs();
    EXPECT_EQ(0, Context().Sleep(ms));
    EXPECT_GE(RealClockMs() - start, static_cast<int64_t>(ms));
  }
  return 0;
}

TEST(Global, ThreadIdIsTheProcessAndSleepIsInMilliseconds) {
  EXPECT_TRUE(Passes("SleepAndId"));
}

}  // namespace
}  // namespace Kelvik
