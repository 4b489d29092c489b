// Operator new that fails on command. In an executable that has FailingNew.cpp among its sources,
// operator new and delete are malloc and free, but for the one allocation that a test lets fail.

#ifndef KELVIK_FAILINGNEW_H_
#define KELVIK_FAILINGNEW_H_

namespace Kelvik {

// The calling thread's nth operator new from now on (1: the next) finds no memory.
void FailNew(int nth);

// No allocation fails any more. Returns whether one did since FailNew.
bool StopFailingNew();

}  // namespace Kelvik

#endif  // KELVIK_FAILINGNEW_H_
