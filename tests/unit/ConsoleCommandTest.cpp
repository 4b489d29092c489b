// The command language, without anything being done: which commands stand in a text.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "CommandText.h"

namespace Kelvik {
namespace {

const char* Shown(const char* word) {
  return word == nullptr ? "(none)" : word;
}

// A command as one line: its word, then what it was given.
std::string Describe(const tagCommand& command) {
  std::string text = command.m_Row->m_Word;
  if (command.m_Row->m_Command == eCommand::kSwitch) {
    return text + (command.m_On ? " on " : " off ") + Shown(command.m_Module);
  }
  for (const char* word : command.m_Words) {
    if (word != nullptr) text += std::string(" ") + word;
  }
  if (command.m_Row->m_Command == eCommand::kNumber || command.m_Row->m_Command == eCommand::kSet) {
    text += " =" + std::to_string(command.m_Number);
  }
  return text;
}

using Commands = std::vector<std::string>;

Commands Read(std::string text) {
  CCommandText reader(text.data());
  Commands commands;
  tagCommand command;
  while (reader.Next(command)) {
    commands.push_back(Describe(command));
  }
  // What has ended stays so.
  EXPECT_FALSE(reader.Next(command));
  return commands;
}

struct tagCase {
  const char* m_Text;
  Commands m_Commands;
};

void ExpectAll(const std::vector<tagCase>& cases) {
  for (const tagCase& row : cases) {
    EXPECT_EQ(Read(row.m_Text), row.m_Commands) << "'" << row.m_Text << "'";
  }
}

TEST(CommandText, EveryWordHasItsRequest) {
  const struct {
    const char* m_Word;
    eCommand m_Command;
    int m_Arguments;
    int m_Kind;
    int m_Option;
  } rows[] = {
      {"-printf", eCommand::kSwitch, 0, 1, 0},
      {"-syslog", eCommand::kSwitch, 0, 1, 1},
      {"-file", eCommand::kSwitch, 0, 1, 2},
      {"-leveldbg", eCommand::kSwitch, 0, 2, 1},
      {"-levelinfo", eCommand::kSwitch, 0, 2, 2},
      {"-levelwarn", eCommand::kSwitch, 0, 2, 3},
      {"-levelerror", eCommand::kSwitch, 0, 2, 4},
      {"-levelfatal", eCommand::kSwitch, 0, 2, 5},
      {"-time", eCommand::kSwitch, 0, 3, 0},
      {"-tid", eCommand::kSwitch, 0, 3, 5},
      {"-focus", eCommand::kText, 1, 3, 4},
      {"-logpath", eCommand::kText, 1, 3, 1},
      {"-console", eCommand::kPlain, 0, 3, 2},
      {"-tty", eCommand::kText, 1, 3, 3},
      {"-show", eCommand::kShow, 3, 0, 0},
      {"-set", eCommand::kSet, 3, 0, 0},
      {"-sav", eCommand::kSave, 1, 0, 0},
      {"-logsize", eCommand::kNumber, 1, 3, 7},
      {"-logduration", eCommand::kNumber, 1, 3, 8},
      {"-logcount", eCommand::kNumber, 1, 3, 9},
      {"-buffersize", eCommand::kBufferSize, 1, 0, 0},
      {"-interval", eCommand::kInterval, 1, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.m_Word);
    const tagCommandRow* found = FindCommand(row.m_Word);
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->m_Word, row.m_Word);
    EXPECT_EQ(found->m_Command, row.m_Command);
    EXPECT_EQ(found->m_Arguments, row.m_Arguments);
    EXPECT_EQ(found->m_Kind, row.m_Kind);
    EXPECT_EQ(found->m_Option, row.m_Option);
  }
}

TEST(CommandText, OtherWordsAreNoCommands) {
  for (const char* word : {"", "-", "printf", "--printf", "-prin", "-printff", "-save", "-level",
                           "-leveldebug", "-printf\n", "-printf\t", "-location", "-help"}) {
    EXPECT_EQ(FindCommand(word), nullptr) << word;
  }
}

TEST(CommandText, SwitchTakesUpToTwoWords) {
  ExpectAll({
      {"-file", {"-file off (none)"}},
      {"-file 1", {"-file on (none)"}},
      {"-file 1 net", {"-file on net"}},
      {"-leveldbg 0 net", {"-leveldbg off net"}},
      {"-leveldbg 1 net -leveldbg 0 disk", {"-leveldbg on net", "-leveldbg off disk"}},
      {"-leveldbg 1 net -levelinfo", {"-leveldbg on net", "-levelinfo off (none)"}},
  });
}

TEST(CommandText, SwitchValueIsOneOfSixWordsInAnyCase) {
  for (const char* word : {"1", "true", "enable", "TRUE", "Enable"}) {
    EXPECT_EQ(Read(std::string("-tid ") + word), Commands{"-tid on (none)"}) << word;
  }
  for (const char* word : {"0", "false", "disable", "FALSE", "dIsAbLe"}) {
    EXPECT_EQ(Read(std::string("-tid ") + word), Commands{"-tid off (none)"}) << word;
  }
  for (const char* word : {"on", "off", "yes", "no", "2", "01", "1\n", "tru", "truee", "-file"}) {
    EXPECT_EQ(Read(std::string("-tid ") + word), Commands{}) << word;
  }
}

TEST(CommandText, WordAfterASwitchValueIsAModule) {
  ExpectAll({
      {"-printf 1 -file 1", {"-printf on -file"}},
      {"-printf true -syslog true", {"-printf on -syslog"}},
      {"-printf 1 -file -file 0", {"-printf on -file", "-file off (none)"}},
      {"-printf 1 1 -file 0", {"-printf on 1", "-file off (none)"}},
  });
}

TEST(CommandText, CommandWordsIgnoreCase) {
  ExpectAll({
      {"-PRINTF FALSE", {"-printf off (none)"}},
      {"-LogSize 3", {"-logsize 3 =3"}},
      {"-SHOW /dev/pts/0 Net State", {"-show /dev/pts/0 Net State"}},
  });
}

TEST(CommandText, WordsAreSeparatedByBlanksOnly) {
  ExpectAll({
      {"", {}},
      {" ", {}},
      {"     ", {}},
      {"  -logsize    7   -logcount 2  ", {"-logsize 7 =7", "-logcount 2 =2"}},
      {"-file\t1", {}},
      {"-file 1\n", {}},
      {"-file\n", {}},
      {"-logpath /tmp/a\tb", {"-logpath /tmp/a\tb"}},
      {"-logsize 7\n", {"-logsize 7\n =7"}},
  });
}

TEST(CommandText, ReadingStopsAtWhatIsNoCommand) {
  ExpectAll({
      {"-foo -printf 1", {}},
      {"-logsize 1 -foo -logcount 2", {"-logsize 1 =1"}},
      {"-logsize 1 2 -logcount 2", {"-logsize 1 =1"}},
      {"-console now -console", {"-console"}},
      {"-leveldbg on -console", {}},
      {"-console -leveldbg on -console", {"-console"}},
  });
}

TEST(CommandText, MissingArgumentEndsTheText) {
  ExpectAll({
      {"-focus", {}},
      {"-logpath", {}},
      {"-tty", {}},
      {"-show", {}},
      {"-show /dev/ttyS0", {}},
      {"-show /dev/ttyS0 net", {}},
      {"-show /dev/ttyS0 net rx", {"-show /dev/ttyS0 net rx"}},
      {"-set", {}},
      {"-set net", {}},
      {"-set net interval", {}},
      {"-sav", {}},
      {"-logsize", {}},
      {"-logduration", {}},
      {"-logcount", {}},
      {"-buffersize", {}},
      {"-interval", {}},
      {"-console -interval", {"-console"}},
  });
}

TEST(CommandText, CommandsFollowOneAnother) {
  ExpectAll({
      {"-logsize 2048 -logcount 5", {"-logsize 2048 =2048", "-logcount 5 =5"}},
      {"-console -focus net -buffersize 64 -interval 200 -sav all",
       {"-console", "-focus net", "-buffersize 64", "-interval 200", "-sav all"}},
      {"-set net interval 5 -show /dev/tty net rx -tty /dev/pts/1 -logpath /var/log/ -file 0",
       {"-set net interval 5 =5", "-show /dev/tty net rx", "-tty /dev/pts/1", "-logpath /var/log/",
        "-file off (none)"}},
  });
}

TEST(CommandText, AnArgumentMayLookLikeACommand) {
  ExpectAll({
      {"-focus -console -console", {"-focus -console", "-console"}},
      {"-logsize -logcount 5", {"-logsize -logcount =0"}},
      {"-set -set -set -set", {"-set -set -set -set =0"}},
  });
}

TEST(CommandText, NumbersAreReadAsFarAsTheyGo) {
  const struct {
    const char* m_Word;
    int m_Number;
  } rows[] = {
      {"0", 0},
      {"5", 5},
      {"-5", -5},
      {"+5", 5},
      {"007", 7},
      {"12abc", 12},
      {"abc", 0},
      {"-", 0},
      {"0x10", 0},
      {"1.9", 1},
      {"\t8", 8},
      {"2147483647", INT_MAX},
      {"2147483648", INT_MAX},
      {"-2147483648", INT_MIN},
      {"-2147483649", INT_MIN},
      {"4294967297", INT_MAX},
      {"99999999999999999999999999", INT_MAX},
      {"-99999999999999999999999999", INT_MIN},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.m_Word);
    std::string text = std::string("-logsize ") + row.m_Word + " -set m t " + row.m_Word;
    CCommandText reader(text.data());
    tagCommand command;
    ASSERT_TRUE(reader.Next(command));
    EXPECT_EQ(command.m_Number, row.m_Number);
    ASSERT_TRUE(reader.Next(command));
    EXPECT_EQ(command.m_Number, row.m_Number);
    EXPECT_FALSE(reader.Next(command));
  }
}

TEST(CommandText, LongestTextIsReadToItsEnd) {
  std::string text;
  while (text.size() + 9 <= 2044)
    text += "-console ";
  EXPECT_EQ(Read(text).size(), 2044u / 9u);
  EXPECT_EQ(Read("-focus " + std::string(2037, 'n')), Commands{"-focus " + std::string(2037, 'n')});
}

}  // namespace
}  // namespace Kelvik
