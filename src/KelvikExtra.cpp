#include "KelvikExtra.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "EntryPoint.h"
#include "Global.h"
#include "Kelvik.h"
#include "Output.h"

namespace {

// The record as it was first published; no caller has a smaller one.
constexpr size_t kFirstStatisticsBytes = 64;

static_assert(sizeof(tagKelvikStatistics) >= kFirstStatisticsBytes, "fields are only appended");
static_assert(offsetof(tagKelvikStatistics, m_Rotations) == 56, "no field ever moves");

}  // namespace

int KelvikExtra_GetStatistics(tagKelvikStatistics* statistics, unsigned int size) {
  return Kelvik::Guarded([&]() -> int {
    if (statistics == nullptr || size < kFirstStatisticsBytes) return eResultInvalid;
    Kelvik::tagOutputStatistics counters = {};
    Kelvik::CGlobal::Instance()->GetOutput().GetStatistics(counters);
    const size_t filled = std::min<size_t>(size, sizeof(tagKelvikStatistics));
    tagKelvikStatistics own = {};
    own.m_Size = static_cast<uint32_t>(filled);
    own.m_LastError = counters.m_LastError;
    own.m_RecordsAccepted = counters.m_RecordsAccepted;
    own.m_RecordsWritten = counters.m_RecordsWritten;
    own.m_RecordsLost = counters.m_RecordsLost;
    own.m_BytesWritten = counters.m_BytesWritten;
    own.m_OpenErrors = counters.m_OpenErrors;
    own.m_WriteErrors = counters.m_WriteErrors;
    own.m_Rotations = counters.m_Rotations;
    std::memcpy(statistics, &own, filled);
    return eResultSuccess;
  });
}
