// The counters of engine and console as the application and the operator see them.
#ifndef KELVIK_STATISTICS_H_
#define KELVIK_STATISTICS_H_

#include "KelvikExtra.h"

namespace Kelvik {

// Fills all fields but m_Size.
void CollectStatistics(tagKelvikStatistics& statistics);

// The display "Kelvik" / "statistics": a heading and a line "name: number" for each counter. A
// display callback; returns 0.
int ShowStatistics(int fd, const char* module, const char* title, void* param);

}  // namespace Kelvik

#endif  // KELVIK_STATISTICS_H_
