// Two translation units include IniFile.h and share one document.

#ifndef KELVIK_INITWOUNITS_H_
#define KELVIK_INITWOUNITS_H_

#include <string>

class xini_file_t;

// Removes [unit] gone and returns the value of [unit] key.
std::string ValueSeenByOtherUnit(xini_file_t& doc);

#endif  // KELVIK_INITWOUNITS_H_
