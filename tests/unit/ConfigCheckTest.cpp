#include "ConfigCheck.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "IniFile.h"
#include "Rounds.h"

namespace {

using KelvikCtl::CheckConfig;
using KelvikCtl::tagFinding;

// "line: what", a line for each.
std::string Said(const std::string& text) {
  std::string said;
  for (const tagFinding& finding : CheckConfig(text))
    said += std::to_string(finding.m_Line) + ": " + finding.m_Text + "\n";
  return said;
}

// What is said about one line of a section.
std::string SaidOf(const std::string& section, const std::string& line) {
  const std::string said = Said("[" + section + "]\n" + line + "\n");
  return said.empty() ? "" : said.substr(3, said.size() - 4);
}

TEST(ConfigCheck, WhatTheLibraryWritesIsSound) {
  EXPECT_EQ(Said(""), "");
  EXPECT_EQ(
      Said("\xEF\xBB\xBF; comment\n# another\n\n  \t\n[Global]\r\n"
           "Version=[libkelvik.so(a) V1.2.0.19180 Build 20241104]\r\n"
           "OutputConsole=1\nOutputSystem=0\nOutputFile=\n LogMaxSize = 1024 \nlogmaxduration=1\n"
           "LogMaxCount=2\nbufferSize=32\nwriteInterval=0\nLevelInfo=0\nLevelDbg=\nLevelError=1\n"
           "LevelWar=0\nLevelFatal=1\nLogFilePath=/tmp/\nLogIndex=1\nOutputDateTime=1\n"
           "OutputThreadID=0\nOverflow=WRITE\n\n[fileName]\nfileName_0=/tmp/a.log\n"
           "fileName_1=\n\n[net]\nVersion=V1.0\nLevelDbg=1\nOutputDateTime=1\n"
           "OutputThreadID=1"),
      "");
}

TEST(ConfigCheck, ValuesAreHeldAgainstTheirRanges) {
  struct tagCase {
    const char* m_Line;
    const char* m_Said;
  };
  const tagCase cases[] = {
      {"LogMaxCount=10", ""},
      {"LogMaxCount=25", "LogMaxCount 25 counts as 10, the most"},
      {"LogMaxCount=0",
       "LogMaxCount 0 keeps one file, and a restart forgets it: 1 to 10 can be said"},
      {"logmaxcount=-3",
       "logmaxcount -3 keeps one file, and a restart forgets it: 1 to 10 can be said"},
      {"bufferSize=1", ""},
      {"bufferSize=1024", ""},
      {"bufferSize=0", "bufferSize 0 is ignored: 1 to 1024 KiB can be said"},
      {"bufferSize=1025", "bufferSize 1025 is ignored: 1 to 1024 KiB can be said"},
      {"writeInterval=200", ""},
      {"writeInterval=5000000", ""},
      {"writeInterval=199", "writeInterval 199 is ignored: 0, or 200 ms and more, can be said"},
      {"LogMaxSize=2097151", ""},
      {"LogMaxSize=2097152",
       "LogMaxSize 2097152 KiB counts as -2147483648 bytes: 0 to 2097151 can be said"},
      {"LogMaxSize=4194305",
       "LogMaxSize 4194305 KiB counts as 1024 bytes: 0 to 2097151 can be said"},
      {"LogMaxSize=-5", "LogMaxSize -5 KiB counts as -5120 bytes: 0 to 2097151 can be said"},
      {"LogMaxDuration=0", ""},
      {"LogMaxDuration=-2", "LogMaxDuration a duration below 0 is as good as none"},
      {"OutputFile=2", "OutputFile 2 counts as 0, off"},
      {"LevelDbg=yes", "LevelDbg 'yes' is ignored: it is no number"},
      {"LevelDbg=1 ; debug", "LevelDbg '1 ; debug' is read as 1"},
      {"LevelDbg=-1", "LevelDbg '-1' is ignored: -1 stands for as it is"},
      {"LevelDbg=99999999999", "LevelDbg '99999999999' is ignored: it does not fit 32 bits"},
      {"OutputDateTime=0", "OutputDateTime is never read, and a save writes 1"},
      {"OutputThreadID=7", "OutputThreadID is never read, and a save writes 0 or 1"},
      {"Overflow=block", "Overflow 'block' is ignored: replace or write can be said"},
      {"LogIndex=9", ""},
      {"LogIndex=10", "LogIndex there is no slot 10: a start begins in slot 0"},
      {"LogFilePath=/var/log/app-", ""},
      {"LogFilePath=/log/ ; here",
       "LogFilePath goes to the end of the line: a comment needs a line of its own"},
      {"LevelWarning=1", "LevelWarning is no key that the library reads"},
      {"fileName_0=/tmp/a", "fileName_0 is no key that the library reads"},
  };
  for (const tagCase& entry : cases) {
    EXPECT_EQ(SaidOf("Global", entry.m_Line), entry.m_Said) << entry.m_Line;
  }
  EXPECT_EQ(SaidOf("Global", "LogFilePath=/" + std::string(256, 'x')),
            "LogFilePath has 257 characters: the first 256 are kept");
}

TEST(ConfigCheck, KeysBelongToTheirSections) {
  EXPECT_EQ(SaidOf("net", "LevelDbg=1"), "");
  EXPECT_EQ(SaidOf("net", "LevelDbg=5"), "LevelDbg 5 counts as 0, off");
  EXPECT_EQ(SaidOf("net", "OutputFile=1"), "OutputFile is read in section Global only");
  EXPECT_EQ(SaidOf("net", "LogFilePath=/"), "LogFilePath is read in section Global only");
  EXPECT_EQ(SaidOf("net", "x=1"), "x is no key that the library reads");
  EXPECT_EQ(SaidOf("filename", "FILENAME_9=/tmp/a"), "");
  EXPECT_EQ(SaidOf("fileName", "fileName_10=/tmp/a"),
            "fileName_10 is no key that the library reads: fileName_0 to fileName_9 are");
  EXPECT_EQ(Said("OutputFile=1\n[Global]\n"),
            "1: 'OutputFile' stands in no section: it is not read\n");
}

TEST(ConfigCheck, LinesAreHeldAgainstEachOther) {
  EXPECT_EQ(Said("[Global]\nLogMaxSize=0\nLogMaxDuration=0\n"),
            "3: LogMaxDuration with LogMaxSize 0 too no file is written\n");
  EXPECT_EQ(
      Said("[Global]\nLogMaxCount=2\nLogIndex=2\n[fileName]\nfileName_1=/a\nfileName_2=/b\n"),
      "3: LogIndex there is no slot 2: a start begins in slot 0\n"
      "6: fileName_2 is left over: with LogMaxCount 2 a start does not take the file into its "
      "ring\n");
  const std::string name = std::string(127, 'x');
  EXPECT_EQ(Said("[fileName]\nfileName_0=/" + name + "\n"),
            "2: fileName_0 has 128 characters: a start forgets the file\n");
  EXPECT_EQ(Said("[Global]\nLogFilePath=/\n[fileName]\nfileName_0=/" + name + "\n"), "");
}

TEST(ConfigCheck, WhatASaveWouldDropOrMoveIsSaid) {
  EXPECT_EQ(Said("[Global]\nOutputFile\nLevel#Dbg=1\n=1\n"),
            "2: 'OutputFile' is no comment, section or key: a save drops it\n"
            "3: 'Level#Dbg=1' is no comment, section or key: a save drops it\n"
            "4: '=1' is no comment, section or key: a save drops it\n");
  EXPECT_EQ(Said("[Global\n[Global] ; all\n"),
            "1: '[Global' is no comment, section or key: a save drops it\n"
            "2: '; all' behind the section's name: a save drops it\n");
  EXPECT_EQ(Said("[Global]\nOutputFile=1\n[net]\noutputfile=0\n[global]\nOUTPUTFILE=0\n[GLOBAL]\n"),
            "4: outputfile is read in section Global only\n"
            "5: section 'global' stands in line 1 already: a save moves what follows there\n"
            "6: 'OUTPUTFILE' stands in line 2 already: that one counts, and a save drops this one\n"
            "7: section 'GLOBAL' stands in line 1 already: a save drops the line\n");
  EXPECT_EQ(Said("[net]\n[]\n"),
            "2: a section without a name means the top: a save moves what follows there\n");
}

// The lines that are not empty, keys without the blanks around their names and values.
std::vector<std::string> Content(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  std::string line;
  while (std::getline(stream, line)) {
    line = xini_node_t::trim_xstr(line);
    if (!line.empty()) lines.push_back(line);
  }
  return lines;
}

TEST(ConfigCheck, ASaveMovesNothingOfAFileWithoutFindings) {
  static const char* const kLines[] = {"[Global]", "[net]",      "[disk]",      "; c",        "# d",
                                       "",         "LevelDbg=1", "LevelInfo=0", "LevelWar=1", "x",
                                       "[",        "[]",         "[net] x"};
  std::mt19937 random(3);
  int sound = 0;
  int other = 0;
  for (int round = 0; round < Kelvik::Rounds() * 200; ++round) {
    std::string text;
    for (auto left = random() % 9; left > 0; --left)
      text += std::string(kLines[random() % std::size(kLines)]) + "\n";
    xini_file_t document("");
    std::istringstream in(text);
    document << in;
    std::ostringstream out;
    document >> out;
    const bool isKept = Content(text) == Content(out.str());
    const bool saysSo = [&] {
      for (const tagFinding& finding : CheckConfig(text)) {
        if (finding.m_Text.find("a save") != std::string::npos) return false;
      }
      return true;
    }();
    EXPECT_TRUE(isKept || !saysSo) << text << "---\n" << out.str();
    sound += isKept && saysSo ? 1 : 0;
    other += !isKept ? 1 : 0;
  }
  EXPECT_GT(sound, 0);
  EXPECT_GT(other, 0);
}

}  // namespace
