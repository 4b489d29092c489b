// Saves what the buffers hold when the process dies by a fault.
#ifndef KELVIK_CRASHFLUSH_H_
#define KELVIK_CRASHFLUSH_H_

namespace Kelvik {

// Installs handlers for SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGABRT that write both buffers to the
// current log file with async-signal-safe calls only, take no lock, and then let the handler that
// was installed before run or the signal take its default course. Installed once; later calls do
// nothing. Returns 0, or 1 when a handler cannot be installed.
int InstallCrashFlush();

}  // namespace Kelvik

#endif  // KELVIK_CRASHFLUSH_H_
