/* The least that a C program does to log: to the terminal and to files of its own.
 *
 *   cc -std=c99 minimal.c -o minimal $(pkg-config --cflags --libs kelvik)
 *   ./minimal /tmp/
 *
 * Prints, with the moment in front of each line (errors are yellow on a terminal)
 *   m_Attribute.m_LogPath = /tmp/
 *   [net][link] eth0 is up at 100 Mbit/s
 *   [net][link] eth1: no carrier
 * and writes the two records to a new file in /tmp. */
#include <Kelvik.h>
#include <stdio.h>

int main(int argc, char** argv) {
  const char on = 1;
  if (argc != 2) {
    fprintf(stderr, "usage: minimal FOLDER/\n");
    return 64;
  }
  SetLogFilePath(argv[1]);
  SetAttribute(eAttributeOutput, eOutputFile, &on, sizeof(on));
  SetAttribute(eAttributeLevel, eLogLevelInfo, &on, sizeof(on));
  Initialize();

  KLog(eLogLevelInfo, "net", "link", "%s is up at %d Mbit/s\n", "eth0", 100);
  KLog(eLogLevelError, "net", "link", "%s: no carrier\n", "eth1");
  KLog(eLogLevelDebug, "net", "link", "debug records are off, so this one is not made\n");
  /* What waits in the buffer is written when the process ends. */
  return 0;
}
