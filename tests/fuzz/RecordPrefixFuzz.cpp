// Prefix and location of any names: the bytes of the whole text, cut at the field's room.
//
// Input: which parts are present (1 byte), room (2), thread id (8), line (4), then date, module,
// title, file and function, each ended by a NUL.
#include <string>
#include <vector>

#include "FuzzBytes.h"
#include "RecordPrefix.h"

namespace Kelvik {
namespace {

struct tagParts {
  bool m_Has[7];  // date, thread id, module, title, file, function, line
  unsigned long m_ThreadID;
  int m_Line;
  std::string m_Date, m_Module, m_Title, m_File, m_Func;
};

std::string WholePrefix(const tagParts& parts) {
  const bool isNamed = parts.m_Has[2] || parts.m_Has[3];
  if (!parts.m_Has[0] && !isNamed) return "";
  std::string text = parts.m_Has[0] ? parts.m_Date + " " : "";
  if (parts.m_Has[1]) text += "[" + std::to_string(parts.m_ThreadID) + "]";
  if (parts.m_Has[2]) text += "[" + parts.m_Module + "]";
  if (parts.m_Has[3]) text += "[" + parts.m_Title + "]";
  return parts.m_Has[1] || isNamed ? text + " " : text;
}

std::string WholeLocation(const tagParts& parts) {
  std::string text;
  if (parts.m_Has[4]) text += " " + parts.m_File;
  if (parts.m_Has[5]) text += " " + parts.m_Func;
  if (parts.m_Has[6] && parts.m_Line != -1) text += " " + std::to_string(parts.m_Line);
  return text.empty() ? "" : "[" + text.substr(1) + "] ";
}

// The field is exactly as long as it says, so that the address sanitizer sees a byte too much.
void Require(const std::vector<char>& field, int length, const std::string& whole) {
  const std::string expected = whole.substr(0, field.size() - 1);
  FuzzRequire(length == static_cast<int>(expected.size()), "the length is that of the cut text");
  FuzzRequire(field[expected.size()] == '\0', "the text is terminated");
  FuzzRequire(expected == field.data(), "the text is the start of the whole");
}

void WriteAny(CFuzzBytes bytes) {
  tagParts parts;
  const unsigned present = bytes.Byte();
  for (unsigned index = 0; index < 7; ++index)
    parts.m_Has[index] = (present >> index & 1U) != 0;
  const int room = 1 + static_cast<int>(bytes.Number(2) % 600);
  parts.m_ThreadID = static_cast<unsigned long>(bytes.Number(8));
  parts.m_Line = static_cast<int>(static_cast<uint32_t>(bytes.Number(4)));
  for (std::string* const text :
       {&parts.m_Date, &parts.m_Module, &parts.m_Title, &parts.m_File, &parts.m_Func}) {
    *text = bytes.Text();
  }

  tagRecordPrefix prefix = {};
  prefix.m_DateTime = parts.m_Has[0] ? parts.m_Date.c_str() : nullptr;
  prefix.m_DateTimeLength = static_cast<int>(parts.m_Date.size());
  prefix.m_ShowThreadID = parts.m_Has[1];
  prefix.m_ThreadID = parts.m_ThreadID;
  prefix.m_Module = parts.m_Has[2] ? parts.m_Module.c_str() : nullptr;
  prefix.m_Title = parts.m_Has[3] ? parts.m_Title.c_str() : nullptr;
  std::vector<char> field(static_cast<size_t>(room), '\x5a');
  int length = WriteRecordPrefix(field.data(), room, prefix);
  Require(field, length, WholePrefix(parts));

  field.assign(field.size(), '\x5a');
  length = WriteLocation(field.data(), room, parts.m_Has[4] ? parts.m_File.c_str() : nullptr,
                         parts.m_Has[5] ? parts.m_Func.c_str() : nullptr,
                         parts.m_Has[6] ? parts.m_Line : -1);
  Require(field, length, WholeLocation(parts));
}

}  // namespace
}  // namespace Kelvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Kelvik::WriteAny(Kelvik::CFuzzBytes(data, size));
  return 0;
}
