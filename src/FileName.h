// Names and paths of log files.
#ifndef KELVIK_FILENAME_H_
#define KELVIK_FILENAME_H_

#include <cstddef>

#include "Attribute.h"

namespace Kelvik {

constexpr size_t kFileNameBytes = 36;  // of a name made here, its terminator included
constexpr size_t kFilePathBytes = 512;

// "%04d%02d%02d%02d%02d%02d.log" of year, month, day, hour, minute, second; at most 32 characters.
void MakeFileName(char (&name)[kFileNameBytes], const tagAbsoluteTime& time);

// "%04d%02d%02d%02d%02d%02d_%d.log" with the slot as the last field; at most 32 characters.
void MakeNumberedFileName(char (&name)[kFileNameBytes], const tagAbsoluteTime& time, int slot);

// True when the name is a path of its own (it holds a '/') and needs no folder before it.
bool IsPath(const char* name);

// Stores folder + name (no separator between) into path, terminated. folder is a field of
// kLogPathBytes that may lack a terminator. Returns false, with an empty path, when it does not
// fit.
bool JoinPath(char (&path)[kFilePathBytes], const char* folder, const char* name);

// The path of a slot's file: the name itself when IsPath(name), else folder + name.
bool SlotPath(char (&path)[kFilePathBytes], const char* folder, const char* name);

// True when the path ends in the name, whatever folder or prefix stands before it.
bool EndsInName(const char* path, const char* name);

}  // namespace Kelvik

#endif  // KELVIK_FILENAME_H_
