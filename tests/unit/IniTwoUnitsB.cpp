// The second of two translation units with IniFile.h; IniTwoUnitsA.cpp is the first.

#include "IniFile.h"

#include "IniTwoUnits.h"

std::string ValueSeenByOtherUnit(xini_file_t& doc) {
  doc["unit"].key_remove("gone");
  return doc["unit"]["key"].value();
}
