// One change of the configuration file: load, edit, save, under the lock of the file.
#ifndef KELVIK_CONFIGEDIT_H_
#define KELVIK_CONFIGEDIT_H_

#include "IniFile.h"

namespace Kelvik {

class CGlobal;

// A function object with the signature void(xini_file_t&), called in place: neither copied nor
// owned, so it lives as long as the call it is given to. One body of EditConfigFile serves them
// all.
class CConfigChange {
 public:
  template <class Edit>
  CConfigChange(const Edit& edit)  // NOLINT(google-explicit-constructor)
      : m_Edit(&edit), m_Call([](const void* object, xini_file_t& document) {
          (*static_cast<const Edit*>(object))(document);
        }) {}
  void operator()(xini_file_t& document) const { m_Call(m_Edit, document); }

 private:
  const void* m_Edit;
  void (*m_Call)(const void* object, xini_file_t& document);
};

// Loads the context's configuration file, runs edit and saves what changed, all while m_ConfigMutex
// is held, so that two threads lose no entry of each other. A missing file, or none named yet, is
// an empty document; where nothing can be written the change is lost.
//
// edit takes no lock of the output engine, does not print, and hands to the document only names
// that can stand in a line of their own.
//
// Returns eResultSuccess, or eResultFailure when memory ran out or the file is a pipe: nothing is
// saved then. Throws nothing.
int EditConfigFile(CGlobal& context, const CConfigChange& edit);

// Keys of a section; a missing one is made. The name must be one that a key can have.
int GetNumber(xini_section_t& section, const char* key);  // -1: no number
void SetNumber(xini_section_t& section, const char* key, int number);
void SetText(xini_section_t& section, const char* key, const char* text);

// The section of that name; a missing one is made. The name must fit in a line.
xini_section_t& FindSection(xini_file_t& document, const char* name);

}  // namespace Kelvik

#endif  // KELVIK_CONFIGEDIT_H_
