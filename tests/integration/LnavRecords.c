/* Writes records of every shape into one log file: LnavRecords FOLDER/ */

#include <string.h>

#include "Kelvik.h"

int main(int argc, char** argv) {
  const unsigned char on = 1;
  const unsigned char off = 0;
  if (argc != 2) return 64;
  SetAttribute(eAttributeOther, eOtherLogPath, argv[1], (int)strlen(argv[1]));
  SetAttribute(eAttributeOutput, eOutputTerminal, &off, 1);
  SetAttribute(eAttributeOutput, eOutputFile, &on, 1);
  SetAttribute(eAttributeLevel, eLogLevelInfo, &on, 1);
  Initialize();
  KLog(eLogLevelInfo, "net", "link", "eth0 is up, [fast] at %d Mbit/s\n", 100);
  KLogV1(eLogLevelError, "disk", "scan", "disk.c", "ScanDisk", 42, "error: no sector %d\n", 7);
  SetAttribute(eAttributeOther, eOtherThreadId, &on, 1);
  KLogV1(eLogLevelError, "net", "link", "src/net.c", "OnCarrier", 118, "warning: carrier lost\n");
  KLog(eLogLevelError, "net", "link", "two\nlines\n");
  KLog(eLogLevelError, "mem", NULL, "failed to grow\n");
  KLog(eLogLevelError, NULL, NULL, "neither\n");
  return 0;
}
