// One change of the configuration file: load, edit, save, under the lock of the file.
#ifndef KELVIK_CONFIGEDIT_H_
#define KELVIK_CONFIGEDIT_H_

#include <sys/stat.h>

#include <exception>
#include <string>

#include "Guard.h"
#include "IniFile.h"
#include "Kelvik.h"
#include "Mutex.h"

namespace Kelvik {

// Loads the document at path, runs edit(xini_file_t&) and saves what changed, all while mutex (the
// context's m_ConfigMutex) is held, so that two threads lose no entry of each other. A missing file
// is an empty document; a file that cannot be written stays as it is and the change is lost.
//
// edit takes no lock of the output engine, does not print, and hands to the document only names
// that can stand in a line of their own.
//
// Returns eResultSuccess, or eResultFailure when memory ran out or path is a pipe: nothing is saved
// then. Throws nothing.
template <class Edit>
int EditConfigFile(CMutex& mutex, const char* path, Edit edit) {
  // A pipe would keep the caller, and with it everybody who needs the lock, until somebody reads
  // it.
  struct stat status;
  if (::stat(path, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode))) {
    return eResultFailure;
  }
  CGuard guard(&mutex);
  try {
    const std::string file(path);
    xini_file_t document(file);
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

}  // namespace Kelvik

#endif  // KELVIK_CONFIGEDIT_H_
