/* A library inside a larger program. The program's standard output is data for somebody else, so no
 * record may stand in it; and the program has an Initialize and a SetAttribute of its own.
 *
 *   cc -std=c99 guest.c -o guest $(pkg-config --cflags --libs kelvik)
 *   seq 5 | ./guest /tmp/ > doubled
 *
 * doubled holds 2, 4, 6, 8, 10; the records are in a new file in /tmp. Were they wanted on a screen
 * too: SetAttribute with eOtherRedirectTty sends all of standard output there, the data included,
 * so a program like this one leaves the terminal off and lets an operator read the files. */
#define KELVIK_NO_PLAIN_NAMES

#include <KelvikMacros.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* --- The library: doubles numbers, and logs --- */

static int Doubled(const char* text, long* number) {
  char* end;
  *number = strtol(text, &end, 10);
  if (end == text || (*end != '\n' && *end != '\0')) {
    KELVIK_WARNING("double", "input", "not a number: %.*s\n", (int)strcspn(text, "\n"), text);
    return 0;
  }
  *number *= 2;
  KELVIK_INFO("double", "output", "%ld\n", *number);
  return 1;
}

/* --- The program, with names of its own --- */

static int s_Total;

static void Initialize(void) {
  s_Total = 0;
}

static void SetAttribute(int total) {
  s_Total = total;
}

/* Kelvik_SetLogFilePath would print the path: the attribute says the same without a word. */
static void OpenLog(const char* folder) {
  const char on = 1;
  const char off = 0;
  Kelvik_SetAttribute(eAttributeOutput, eOutputTerminal, &off, sizeof(off));
  Kelvik_SetAttribute(eAttributeOther, eOtherLogPath, folder, 1);
  Kelvik_SetAttribute(eAttributeOutput, eOutputFile, &on, sizeof(on));
  Kelvik_SetAttribute(eAttributeLevel, eLogLevelInfo, &on, sizeof(on));
  Kelvik_SetAttribute(eAttributeLevel, eLogLevelWarning, &on, sizeof(on));
  Kelvik_Initialize();
}

int main(int argc, char** argv) {
  char line[64];
  long number;
  if (argc != 2) {
    fprintf(stderr, "usage: guest FOLDER/\n");
    return 64;
  }
  OpenLog(argv[1]);
  Initialize();
  while (fgets(line, sizeof(line), stdin) != NULL) {
    if (!Doubled(line, &number)) continue;
    printf("%ld\n", number);
    SetAttribute(s_Total + 1);
  }
  KELVIK_INFO("double", "end", "%d numbers\n", s_Total);
  return 0;
}
