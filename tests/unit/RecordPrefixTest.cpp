// Prefix and location against the printf formats that describe them.
#include "RecordPrefix.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Rounds.h"

namespace Kelvik {
namespace {

constexpr char kGuard = '\x5a';
constexpr char kDate[] = "2024-03-15 08:30:00.007";
constexpr size_t kGuardBytes = 8;

const char* OrNull(const std::string* text) {
  return text == nullptr ? nullptr : text->c_str();
}

// A field between guard bytes.
class CGuardedField {
 public:
  explicit CGuardedField(int room)
      : m_Room(static_cast<size_t>(room)), m_Bytes(m_Room + 2 * kGuardBytes, kGuard) {}

  char* Field() { return m_Bytes.data() + kGuardBytes; }
  std::string Text() { return Field(); }

  bool IsGuardWhole() const {
    for (size_t index = 0; index < kGuardBytes; ++index) {
      if (m_Bytes[index] != kGuard) return false;
      if (m_Bytes[kGuardBytes + m_Room + index] != kGuard) return false;
    }
    return true;
  }

 private:
  size_t m_Room;
  std::vector<char> m_Bytes;
};

// The prefix as the table of twelve formats gives it.
std::string PrintedPrefix(const tagRecordPrefix& prefix) {
  const bool isDated = prefix.m_DateTime != nullptr;
  const bool isThreaded = prefix.m_ShowThreadID;
  const char* const date = isDated ? prefix.m_DateTime : "";
  const unsigned long id = prefix.m_ThreadID;
  const bool hasModule = prefix.m_Module != nullptr;
  const bool hasTitle = prefix.m_Title != nullptr;
  const char* const module = hasModule ? prefix.m_Module : "";
  const char* const title = hasTitle ? prefix.m_Title : "";
  const char* const name = hasModule ? module : title;
  char text[4096] = "";
  const size_t room = sizeof(text);
  if (isDated && hasModule && hasTitle) {
    if (isThreaded) snprintf(text, room, "%s [%lu][%s][%s] ", date, id, module, title);
    if (!isThreaded) snprintf(text, room, "%s [%s][%s] ", date, module, title);
  } else if (isDated && (hasModule || hasTitle)) {
    if (isThreaded) snprintf(text, room, "%s [%lu][%s] ", date, id, name);
    if (!isThreaded) snprintf(text, room, "%s [%s] ", date, name);
  } else if (isDated) {
    if (isThreaded) snprintf(text, room, "%s [%lu] ", date, id);
    if (!isThreaded) snprintf(text, room, "%s ", date);
  } else if (hasModule && hasTitle) {
    if (isThreaded) snprintf(text, room, "[%lu][%s][%s] ", id, module, title);
    if (!isThreaded) snprintf(text, room, "[%s][%s] ", module, title);
  } else if (hasModule || hasTitle) {
    if (isThreaded) snprintf(text, room, "[%lu][%s] ", id, name);
    if (!isThreaded) snprintf(text, room, "[%s] ", name);
  }
  return text;
}

std::string PrintedLocation(const char* file, const char* func, int line) {
  std::string parts;
  if (file != nullptr) parts += file;
  if (func != nullptr) parts += (file != nullptr ? " " : "") + std::string(func);
  if (line != -1) {
    char number[16];
    snprintf(number, sizeof(number), "%d", line);
    parts += (file != nullptr || func != nullptr ? " " : "") + std::string(number);
  }
  const bool isAbsent = file == nullptr && func == nullptr && line == -1;
  return isAbsent ? "" : "[" + parts + "] ";
}

void ExpectPrefix(const tagRecordPrefix& prefix, int room) {
  const std::string expected = PrintedPrefix(prefix).substr(0, static_cast<size_t>(room - 1));
  CGuardedField field(room);
  const int length = WriteRecordPrefix(field.Field(), room, prefix);
  EXPECT_EQ(field.Text(), expected) << "room " << room;
  EXPECT_EQ(length, static_cast<int>(expected.size())) << "room " << room;
  EXPECT_TRUE(field.IsGuardWhole()) << "room " << room;
}

void ExpectLocation(const char* file, const char* func, int line, int room) {
  const std::string whole = PrintedLocation(file, func, line);
  const std::string expected = whole.substr(0, static_cast<size_t>(room - 1));
  CGuardedField field(room);
  const int length = WriteLocation(field.Field(), room, file, func, line);
  EXPECT_EQ(field.Text(), expected) << "room " << room;
  EXPECT_EQ(length, static_cast<int>(expected.size())) << "room " << room;
  EXPECT_TRUE(field.IsGuardWhole()) << "room " << room;
}

tagRecordPrefix MakePrefix(const char* date, bool isThreaded, unsigned long id, const char* module,
                           const char* title) {
  tagRecordPrefix prefix = {};
  prefix.m_DateTime = date;
  prefix.m_DateTimeLength = date == nullptr ? 0 : static_cast<int>(strlen(date));
  prefix.m_ShowThreadID = isThreaded;
  prefix.m_ThreadID = id;
  prefix.m_Module = module;
  prefix.m_Title = title;
  return prefix;
}

TEST(RecordPrefix, HasTheTwelveForms) {
  struct tagForm {
    bool m_IsDated;
    bool m_IsThreaded;
    const char* m_Module;
    const char* m_Title;
    const char* m_Text;
  };
  constexpr tagForm kForms[] = {
      {true, true, "net", "rx", "2024-03-15 08:30:00.007 [42][net][rx] "},
      {true, false, "net", "rx", "2024-03-15 08:30:00.007 [net][rx] "},
      {true, true, "net", nullptr, "2024-03-15 08:30:00.007 [42][net] "},
      {true, false, "net", nullptr, "2024-03-15 08:30:00.007 [net] "},
      {true, true, nullptr, "rx", "2024-03-15 08:30:00.007 [42][rx] "},
      {true, false, nullptr, "rx", "2024-03-15 08:30:00.007 [rx] "},
      {true, true, nullptr, nullptr, "2024-03-15 08:30:00.007 [42] "},
      {true, false, nullptr, nullptr, "2024-03-15 08:30:00.007 "},
      {false, true, "net", "rx", "[42][net][rx] "},
      {false, false, "net", "rx", "[net][rx] "},
      {false, true, "net", nullptr, "[42][net] "},
      {false, false, "net", nullptr, "[net] "},
      {false, true, nullptr, "rx", "[42][rx] "},
      {false, false, nullptr, "rx", "[rx] "},
      {false, true, nullptr, nullptr, ""},
      {false, false, nullptr, nullptr, ""},
  };
  for (const tagForm& form : kForms) {
    char field[256];
    const tagRecordPrefix prefix = MakePrefix(form.m_IsDated ? kDate : nullptr, form.m_IsThreaded,
                                              42, form.m_Module, form.m_Title);
    const int length = WriteRecordPrefix(field, sizeof(field), prefix);
    EXPECT_STREQ(field, form.m_Text);
    EXPECT_EQ(length, static_cast<int>(strlen(form.m_Text)));
  }
}

TEST(RecordPrefix, AnEmptyNameIsPresent) {
  char field[64];
  WriteRecordPrefix(field, sizeof(field), MakePrefix(nullptr, true, 7, "", ""));
  EXPECT_STREQ(field, "[7][][] ");
}

TEST(RecordPrefix, ThreadIdsAreDecimalUpToTheLargest) {
  for (const unsigned long id : {0UL, 9UL, 10UL, 2147483648UL, ULONG_MAX - 1, ULONG_MAX}) {
    ExpectPrefix(MakePrefix(nullptr, true, id, "m", nullptr), 64);
  }
}

TEST(RecordPrefix, OfEveryRoomIsTheStartOfTheWhole) {
  const tagRecordPrefix prefix = MakePrefix(kDate, true, 1234567, "network", "receive");
  const int whole = static_cast<int>(PrintedPrefix(prefix).size());
  for (int room = 1; room <= whole + 3; ++room)
    ExpectPrefix(prefix, room);
}

TEST(RecordPrefix, EqualsPrintfForGeneratedNames) {
  std::mt19937 random(20240315);
  const auto pick = [&random](unsigned count) { return static_cast<unsigned>(random() % count); };
  const auto name = [&pick] {
    std::string text;
    for (unsigned left = pick(8) == 0 ? pick(600) : pick(12); left > 0; --left) {
      text += static_cast<char>(1 + pick(255));
    }
    return text;
  };
  for (int round = Rounds() * 200; round > 0 && !testing::Test::HasFailure(); --round) {
    const std::string module = name();
    const std::string title = name();
    const std::string date = pick(4) == 0 ? name() : kDate;
    const unsigned long id = static_cast<unsigned long>(random()) >> pick(32);
    const int room = 1 + static_cast<int>(pick(8) == 0 ? pick(2000) : pick(128));
    for (unsigned form = 0; form < 16; ++form) {
      ExpectPrefix(MakePrefix((form & 1) != 0 ? date.c_str() : nullptr, (form & 2) != 0, id,
                              OrNull((form & 4) != 0 ? &module : nullptr),
                              OrNull((form & 8) != 0 ? &title : nullptr)),
                   room);
    }
  }
}

TEST(RecordPrefix, UsualNamesStandAsInEveryPrefix) {
  for (int module = 0; module <= kUsualNameLetters + 1; ++module) {
    for (int title = 0; title <= kUsualNameLetters + 1; ++title) {
      const std::string moduleName(static_cast<size_t>(module), 'm');
      const std::string titleName(static_cast<size_t>(title), 't');
      // On the heap, so that a byte too many is seen.
      std::vector<char> field(kUsualNamesBytes);
      const char* end = PutUsualNames(field.data(), moduleName.c_str(), titleName.c_str());
      if (module > kUsualNameLetters || title > kUsualNameLetters) {
        EXPECT_EQ(end, nullptr) << module << " " << title;
        continue;
      }
      ASSERT_NE(end, nullptr) << module << " " << title;
      EXPECT_EQ(std::string(field.data(), static_cast<size_t>(end - field.data())),
                " [" + moduleName + "][" + titleName + "] ");
    }
  }
}

TEST(RecordLocation, ShowsThePresentParts) {
  struct tagForm {
    const char* m_File;
    const char* m_Func;
    int m_Line;
    const char* m_Text;
  };
  constexpr tagForm kForms[] = {
      {"a.c", "main", 12, "[a.c main 12] "},
      {"a.c", "main", -1, "[a.c main] "},
      {"a.c", nullptr, 12, "[a.c 12] "},
      {"a.c", nullptr, -1, "[a.c] "},
      {nullptr, "main", 12, "[main 12] "},
      {nullptr, "main", -1, "[main] "},
      {nullptr, nullptr, 12, "[12] "},
      {nullptr, nullptr, -1, ""},
      {"", "", 0, "[  0] "},
      {nullptr, nullptr, INT_MIN, "[-2147483648] "},
      {"a.c", nullptr, -2, "[a.c -2] "},
      {nullptr, nullptr, INT_MAX, "[2147483647] "},
  };
  for (const tagForm& form : kForms) {
    char field[256];
    const int length = WriteLocation(field, sizeof(field), form.m_File, form.m_Func, form.m_Line);
    EXPECT_STREQ(field, form.m_Text);
    EXPECT_EQ(length, static_cast<int>(strlen(form.m_Text)));
  }
}

TEST(RecordLocation, OfEveryRoomIsTheStartOfTheWhole) {
  const std::string longName(300, 'f');
  for (int room = 1; room < 40; ++room) {
    ExpectLocation("source.cpp", "Function", -123, room);
    ExpectLocation(longName.c_str(), nullptr, 1, room);
    ExpectLocation(nullptr, longName.c_str(), -1, room);
  }
}

}  // namespace
}  // namespace Kelvik
