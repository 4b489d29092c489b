// Opened files that a test stands in for. In an executable that has OpenSeam.cpp among its sources
// and open and open64 wrapped by the linker (CMakeLists.txt), every opening comes here first.

#ifndef KELVIK_OPENSEAM_H_
#define KELVIK_OPENSEAM_H_

namespace Kelvik {

// The test's own: true when it answers the call, with the descriptor, or -1 and errno.
bool AnswersOpen(const char* path, int* descriptor);

}  // namespace Kelvik

#endif  // KELVIK_OPENSEAM_H_
