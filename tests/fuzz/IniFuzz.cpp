// Any bytes as an INI document: they load and save without a fault, the save says what a plain
// model says, the next save is equal to it, and lookups of all its names agree. The first byte
// selects how many of the bytes are appended to the document instead of being in the file.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "IniModel.h"
#include "IniTools.h"

namespace {

using Kelvik::CIniModel;
using Kelvik::CMemoryFile;

// The model looks through everything for every line.
constexpr std::size_t kMostBytes = 4096;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

std::string Saved(const xini_file_t& doc) {
  const CMemoryFile file;
  Require(doc.dump(file.Path()), "a document was not saved");
  return Kelvik::ReadFile(file.Path());
}

void RequireSameLookups(const CIniModel& model, xini_file_t& doc) {
  for (const auto& name : model.Names()) {
    const xini_section_t* section = doc.find_sect(name.first);
    Require(section != nullptr, "a section is not found");
    const xini_keyvalue_t* key = section->find_knode(name.second);
    Require(key != nullptr, "a key is not found");
    Require(key->value() == *model.Find(name.first, name.second), "a key has another value");
    // A lookup puts outer brackets aside: names that have some are out of its reach, and of an
    // empty name in brackets only what follows is left.
    const std::string& found = section->sname();
    if (found.empty() || found.front() == '[' || found.back() == '[') continue;
    Require(&doc[found] == section, "a lookup does not meet the section that was read");
    Require(&doc["[ " + found + " ] tail ]"] == section, "a header line does not meet its section");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0 || size > kMostBytes) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t appended = bytes.size() * (data[0] % 4) / 4;
  const std::string loaded = bytes.substr(0, bytes.size() - appended);
  const std::string more = bytes.substr(loaded.size());

  const CMemoryFile file;
  file.Fill(loaded);
  xini_file_t doc(file.Path());
  CIniModel model(loaded);
  if (appended != 0) {
    std::istringstream stream(more);
    doc << stream;
    model.Append(more);
  }
  const std::string first = Saved(doc);
  Require(first == model.Saved(), "the model saves other bytes");
  RequireSameLookups(model, doc);
  doc.set_dirty(false);

  const CMemoryFile again;
  again.Fill(first);
  xini_file_t second(again.Path());
  Require(Saved(second) == first, "the second save differs from the first");
  RequireSameLookups(model, second);
  return 0;
}
