// One change of the configuration file, and the accesses to its keys that the library makes.

#include "ConfigEdit.h"

#include <sys/stat.h>

#include <cstring>
#include <exception>

#include "Global.h"
#include "Kelvik.h"
#include "NoCancel.h"
#include "ScopeLock.h"

namespace Kelvik {

int EditConfigFile(CGlobal& context, const CConfigChange& edit) {
  const char* path = context.ConfigFilePath();
  // A pipe would keep the caller, and with it everybody who needs the lock, until somebody reads
  // it.
  struct stat status;
  if (::stat(path, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode))) {
    return eResultFailure;
  }
  const CNoCancel whole;  // the document saves itself in its destructor
  const CScopeLock guard(context.m_ConfigMutex);
  try {
    xini_file_t document(path);
    try {
      edit(document);
    } catch (const std::exception&) {
      // Half an edit is worse than none.
      document.set_dirty(false);
      throw;
    }
  } catch (const std::exception&) {
    return eResultFailure;
  }
  return eResultSuccess;
}

namespace {

xini_keyvalue_t& FindKey(xini_section_t& section, const char* key) {
  const std::size_t length = std::strlen(key);
  return section[{key, length}];
}

}  // namespace

int GetNumber(xini_section_t& section, const char* key) {
  return FindKey(section, key).get_nvalue<int>();
}

void SetNumber(xini_section_t& section, const char* key, int number) {
  FindKey(section, key).set_nvalue<int>(number);
}

void SetText(xini_section_t& section, const char* key, const char* text) {
  FindKey(section, key) = text;
}

xini_section_t& FindSection(xini_file_t& document, const char* name) {
  const std::size_t length = std::strlen(name);
  return document[{name, length}];
}

}  // namespace Kelvik
