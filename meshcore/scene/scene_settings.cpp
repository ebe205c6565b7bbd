#include "meshcore/scene/scene_settings.h"

#include <atomic>

namespace meshcore {

namespace {
// Filled before worker threads start; atomics keep readers on other threads well-defined.
std::atomic<float> g_smoothAngle{30.0f * 3.1415927f / 180.0f};
std::atomic<unsigned> g_patchLevel{1};
} // namespace

float GetGlobalSmoothAngle() {
  return g_smoothAngle.load(std::memory_order_relaxed);
}
void SetGlobalSmoothAngleValue(float radians) {
  g_smoothAngle.store(radians, std::memory_order_relaxed);
}
unsigned GetGlobalPatchLevel() {
  return g_patchLevel.load(std::memory_order_relaxed);
}
void SetGlobalPatchLevelValue(unsigned level) {
  g_patchLevel.store(level, std::memory_order_relaxed);
}

} // namespace meshcore
