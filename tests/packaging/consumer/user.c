/* A C99 program of a stranger, who has the installed library and a file for its records. */
#include <Kelvik.h>
#include <KelvikExtra.h>
#include <stdio.h>

int main(int argc, char** argv) {
  const char on = 1;
  struct tagKelvikStatistics statistics;
  if (argc != 2 || SetLogFilePath(argv[1]) != eResultSuccess) return 1;
  SetAttribute(eAttributeOutput, eOutputFile, &on, 1);
  SetAttribute(eAttributeLevel, eLogLevelInfo, &on, 1);
  Initialize();
  if (Kelvik_KLog(eLogLevelInfo, "user", "c", "%d records\n", 1) != eResultSuccess) return 2;
  if (KelvikExtra_Flush(10000, 0) != eResultSuccess) return 3;
  if (KelvikExtra_GetStatistics(&statistics, sizeof statistics) != eResultSuccess) return 4;
  return statistics.m_RecordsWritten == 1 ? 0 : 5;
}
