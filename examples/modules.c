/* Levels for each module, from a configuration file and while the program runs.
 *
 *   cc -std=c99 modules.c -o modules $(pkg-config --cflags --libs kelvik)
 *   ./modules modules.ini
 *
 * With a file modules.ini of
 *   [Global]
 *   LevelInfo=1
 *   [net]
 *   LevelDbg=1
 *   [disk]
 *   LevelInfo=0
 * it prints, with the moment in front of each line
 *   [net][start] debug
 *   [net][start] info
 *   [mem][start] info
 *   [disk][later] debug
 * The library adds the keys that the file lacks, and the version of each module. */
#include <Kelvik.h>
#include <KelvikMacros.h>
#include <stdio.h>

static void LogAs(const char* module, const char* title) {
  KELVIK_DEBUG(module, title, "debug\n");
  KELVIK_INFO(module, title, "info\n");
}

int main(int argc, char** argv) {
  const char on = 1;
  const char off = 0;
  if (argc != 2) {
    fprintf(stderr, "usage: modules FILE.ini\n");
    return 64;
  }
  SetConfigFilePath(argv[1]);
  Initialize();
  /* A module has the global levels of this moment, and those of its section laid over them. */
  registerModule("net", "V1.0");
  registerModule("disk", "V2.3");

  LogAs("net", "start");
  LogAs("disk", "start");
  LogAs("mem", "start"); /* has no levels of its own: the global ones */

  /* What an operator does by "kelvikctl level debug on disk". */
  SetAttributeByModule(eAttributeLevel, eLogLevelDebug, &on, sizeof(on), "disk");
  SetAttributeByModule(eAttributeLevel, eLogLevelDebug, &off, sizeof(off), "net");
  SetAttributeByModule(eAttributeLevel, eLogLevelInfo, &off, sizeof(off), "net");
  LogAs("net", "later");
  LogAs("disk", "later");
  return 0;
}
