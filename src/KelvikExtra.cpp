#include "KelvikExtra.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "CrashFlush.h"
#include "EntryPoint.h"
#include "Global.h"
#include "Kelvik.h"
#include "Output.h"
#include "Statistics.h"

namespace {

// The record as it was first published; no caller has a smaller one.
constexpr size_t kFirstStatisticsBytes = 64;

static_assert(sizeof(tagKelvikStatistics) >= kFirstStatisticsBytes, "fields are only appended");
static_assert(offsetof(tagKelvikStatistics, m_Rotations) == 56, "no field ever moves");

Kelvik::COutput& Output() {
  return Kelvik::CGlobal::Instance()->GetOutput();
}

}  // namespace

int KelvikExtra_SetOverflow(eOverflowPolicy policy) {
  return Kelvik::Guarded([&]() -> int { return Output().SetOverflow(policy); });
}

int KelvikExtra_Flush(unsigned int timeoutMs, int toDisk) {
  return Kelvik::Guarded([&]() -> int { return Output().Flush(timeoutMs, toDisk != 0); });
}

int KelvikExtra_GetStatistics(tagKelvikStatistics* statistics, unsigned int size) {
  return Kelvik::Guarded([&]() -> int {
    if (statistics == nullptr || size < kFirstStatisticsBytes) return eResultInvalid;
    tagKelvikStatistics own = {};
    Kelvik::CollectStatistics(own);
    own.m_Size = static_cast<uint32_t>(std::min<size_t>(size, sizeof(own)));
    std::memcpy(statistics, &own, own.m_Size);
    return eResultSuccess;
  });
}

int KelvikExtra_RegisterStatistics(void) {
  return Kelvik::Guarded([]() -> int {
    return Kelvik::CGlobal::Instance()->GetModuleState().Register("Kelvik", "statistics",
                                                                  &Kelvik::ShowStatistics, nullptr);
  });
}

int KelvikExtra_InstallCrashFlush(void) {
  return Kelvik::Guarded([]() -> int { return Kelvik::InstallCrashFlush(); });
}

int KelvikExtra_SetRotationCallback(void (*callback)(const char* path, void* context),
                                    void* context) {
  return Kelvik::Guarded([&]() -> int {
    Output().SetRotationCallback(callback, context);
    return eResultSuccess;
  });
}
