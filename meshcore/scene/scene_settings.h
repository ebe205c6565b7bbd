#pragma once
// The library-wide rendering values that objects and materials fall back on
// when their own value is "use the library's". Start-up code fills them from
// the host's profile; until then they hold the documented defaults.

namespace meshcore {

// Smoothing angle in radians; 30 degrees until set.
float GetGlobalSmoothAngle();
// Stores the value only: objects see it at their next GetSmoothAngle call.
void SetGlobalSmoothAngleValue(float radians);

// Subdivision level of patches; 1 until set.
unsigned GetGlobalPatchLevel();
void SetGlobalPatchLevelValue(unsigned level);

} // namespace meshcore
