#include "KelvikExtra.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ctime>

#include "CrashFlush.h"
#include "EntryPoint.h"
#include "Global.h"
#include "Kelvik.h"
#include "LogPlace.h"
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

// Wraps.
uint32_t MonotonicMs() {
  timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(now.tv_sec) * 1000 + static_cast<uint32_t>(now.tv_nsec) / 1000000;
}

}  // namespace

int KelvikExtra_SetOverflow(eOverflowPolicy policy) {
  return Kelvik::WhileAlive([&]() -> int { return Output().SetOverflow(policy); });
}

int KelvikExtra_Flush(unsigned int timeoutMs, int toDisk) {
  return Kelvik::Guarded([&]() -> int { return Output().Flush(timeoutMs, toDisk != 0); });
}

int KelvikExtra_GetStatistics(tagKelvikStatistics* statistics, unsigned int size) {
  return Kelvik::WhileAlive([&]() -> int {
    if (statistics == nullptr || size < kFirstStatisticsBytes) return eResultInvalid;
    tagKelvikStatistics own = {};
    Kelvik::CollectStatistics(own);
    own.m_Size = static_cast<uint32_t>(std::min<size_t>(size, sizeof(own)));
    std::memcpy(statistics, &own, own.m_Size);
    return eResultSuccess;
  });
}

int KelvikExtra_RegisterStatistics(void) {
  return Kelvik::WhileAlive([]() -> int {
    return Kelvik::CGlobal::Instance()->GetModuleState().Register("Kelvik", "statistics",
                                                                  &Kelvik::ShowStatistics, nullptr);
  });
}

int KelvikExtra_InstallCrashFlush(void) {
  return Kelvik::WhileAlive([]() -> int { return Kelvik::InstallCrashFlush(); });
}

int KelvikExtra_RestrictConsole(unsigned int flags) {
  return Kelvik::WhileAlive(
      [&]() -> int { return Kelvik::CGlobal::Instance()->GetConsole().Restrict(flags); });
}

int KelvikExtra_SetRotationCallback(void (*callback)(const char* path, void* context),
                                    void* context) {
  return Kelvik::WhileAlive([&]() -> int {
    Output().SetRotationCallback(callback, context);
    return eResultSuccess;
  });
}

int KelvikExtra_IsNth(tagKelvikPlace* place, uint32_t n, char* note) {
  uint32_t passedOver;
  if (place == nullptr || note == nullptr || !Kelvik::TakeNth(*place, n, passedOver)) return 0;
  Kelvik::WritePassedOver(note, passedOver);
  return 1;
}

int KelvikExtra_IsDue(tagKelvikPlace* place, uint32_t intervalMs, char* note) {
  uint32_t passedOver;
  if (place == nullptr || note == nullptr ||
      !Kelvik::TakeDue(*place, MonotonicMs, intervalMs, passedOver)) {
    return 0;
  }
  Kelvik::WritePassedOver(note, passedOver);
  return 1;
}
