#include "meshcore/scene/global_settings.h"

#include "meshcore/platform/host.h"
#include "meshcore/scene/scene_settings.h"

#include <cmath>

namespace meshcore {

namespace {
constexpr float kPi = 3.1415927f;
const char kSection[] = "Render";
const char kSmoothKey[] = "smooth";
const char kPatchKey[] = "patchlevel";
} // namespace

float SmoothDegreesToRadians(int degrees) {
  return static_cast<float>(degrees) * kPi / 180.0f;
}

int SmoothRadiansToDegrees(float radians) {
  // Truncated; the small bias keeps a whole number of degrees that went through
  // float radians (23 degrees comes back as 22.999998) from losing one.
  const double degrees = static_cast<double>(radians) * 180.0 / static_cast<double>(kPi);
  return static_cast<int>(std::trunc(degrees + (degrees >= 0 ? 1e-4 : -1e-4)));
}

void LoadGlobalSettingsFromProfile() {
  CMeshcoreHost& host = GetMeshcoreHost();
  SetGlobalSmoothAngleValue(
      SmoothDegreesToRadians(host.GetProfileInt(kSection, kSmoothKey, kDefaultSmoothDegrees)));
  const int level = host.GetProfileInt(kSection, kPatchKey, static_cast<int>(kDefaultPatchLevel));
  SetGlobalPatchLevelValue(static_cast<unsigned>(level));
}

void StoreGlobalSmoothAngle(float radians) {
  SetGlobalSmoothAngleValue(radians);
  GetMeshcoreHost().WriteProfileInt(kSection, kSmoothKey, SmoothRadiansToDegrees(radians));
}

void StoreGlobalPatchLevel(unsigned level) {
  SetGlobalPatchLevelValue(level);
  GetMeshcoreHost().WriteProfileInt(kSection, kPatchKey, static_cast<int>(level));
}

} // namespace meshcore
