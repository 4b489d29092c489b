// The settings and the ring of a child process as text, and a configuration file as a map.
#ifndef KELVIK_CONFIGTOOLS_H_
#define KELVIK_CONFIGTOOLS_H_

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "FileTools.h"
#include "Global.h"

namespace Kelvik {

using Entries = std::map<std::string, std::string>;

// Prints the global settings and the ring of this process as lines "@name=value".
inline void PrintState() {
  CGlobal& context = *CGlobal::Instance();
  const COutput& output = context.GetOutput();
  tagAttribute a;
  context.CopyAttribute(a);
  const std::string path(a.m_LogPath, strnlen(a.m_LogPath, sizeof(a.m_LogPath)));
  // The words are unaligned: read by value, never bound to a reference.
  const uint32_t size = a.m_LogMaxSize, duration = a.m_LogMaxDuration, count = a.m_LogMaxCount;
  const uint32_t buffer = a.m_BufferSize, interval = a.m_WriteInterval;
  std::printf("@Console=%d\n@System=%d\n@File=%d\n@DateTime=%d\n@ThreadID=%d\n@Location=%d\n",
              a.m_OutputConsole, a.m_OutputSystem, a.m_OutputFile, a.m_OutputDateTime,
              a.m_OutputThreadID, a.m_OutputLocation);
  std::printf("@Mask=%02x\n@Path=%s\n", a.m_LevelMask, path.c_str());
  std::printf("@Size=%u\n@Duration=%u\n@Count=%u\n@Buffer=%u\n@Interval=%u\n", size, duration,
              count, buffer, interval);
  std::printf("@Index=%d\n@FileSize=%d\n", output.m_FileIndex, output.m_FileSize);
  for (int i = 0; i < kSlotCount; ++i)
    std::printf("@Name%d=%s\n", i, output.m_FileNames[i]);
  std::printf("@Started=%d\n", output.m_FrontBuffer != nullptr ? 1 : 0);
}

// The lines "@name=value" of a child's output.
inline Entries ParseState(const std::string& output) {
  Entries state;
  for (const std::string& line : Lines(output)) {
    const size_t equals = line.find('=');
    if (line.empty() || line[0] != '@' || equals == std::string::npos) continue;
    state[line.substr(1, equals - 1)] = line.substr(equals + 1);
  }
  return state;
}

// The lines of a configuration file, without the bytes that are no text at its start.
inline std::vector<std::string> ConfigLines(const std::string& path) {
  const std::string text = ReadFile(path);
  size_t start = 0;
  while (start < text.size() && static_cast<signed char>(text[start]) < 0)
    ++start;
  return Lines(text.substr(start));
}

// "section/key" in lower case to value; what stands first of equal names wins.
inline Entries ReadEntries(const std::string& path) {
  const auto lower = [](std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
  };
  Entries entries;
  std::string section;
  for (const std::string& line : ConfigLines(path)) {
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    if (line[0] == '[') {
      section = lower(line.substr(1, line.find(']') - 1));
      continue;
    }
    const size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    entries.emplace(section + "/" + lower(line.substr(0, equals)), line.substr(equals + 1));
  }
  return entries;
}

// The section names of a file in their order.
inline std::vector<std::string> SectionNames(const std::string& path) {
  std::vector<std::string> names;
  for (const std::string& line : ConfigLines(path)) {
    if (!line.empty() && line[0] == '[') names.push_back(line.substr(1, line.find(']') - 1));
  }
  return names;
}

// The keys of one section in their order, spelled as they stand.
inline std::vector<std::string> KeyNames(const std::string& path, const std::string& section) {
  std::vector<std::string> names;
  bool isInside = false;
  for (const std::string& line : ConfigLines(path)) {
    if (!line.empty() && line[0] == '[') isInside = line == "[" + section + "]";
    const size_t equals = line.find('=');
    if (isInside && equals != std::string::npos) names.push_back(line.substr(0, equals));
  }
  return names;
}

// Lines that make each load and save of a file take its time, so that threads meet in them.
inline std::string ManyComments() {
  std::string text;
  for (int line = 0; line < 5000; ++line)
    text += "# what stands here stays\n";
  return text + "\n";
}

// The names in a folder that end in ".log".
inline std::vector<std::string> LogFiles(const std::string& folder) {
  std::vector<std::string> names;
  for (const std::string& name : ListFolder(folder)) {
    if (name.size() > 4 && name.compare(name.size() - 4, 4, ".log") == 0) names.push_back(name);
  }
  return names;
}

}  // namespace Kelvik

#endif  // KELVIK_CONFIGTOOLS_H_
