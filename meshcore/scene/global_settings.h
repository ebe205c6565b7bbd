#pragma once
// The library-wide smoothing angle and patch level as the host's profile keeps
// them ("Render" / "smooth" in whole degrees, "Render" / "patchlevel"). The
// values themselves live in scene_settings.h; this adds the profile side.

namespace meshcore {

inline constexpr int kDefaultSmoothDegrees = 30;
inline constexpr unsigned kDefaultPatchLevel = 1;

// Reads both values from the host's profile (defaults 30 degrees and 1) into
// the library-wide settings. Called by InitMeshcore.
void LoadGlobalSettingsFromProfile();
// Sets the library-wide angle (radians) and writes it to the profile in
// degrees, truncated. Objects are not touched (C3DScene::SetGlobalSmoothAngle does that).
void StoreGlobalSmoothAngle(float radians);
// Sets the library-wide patch level and writes it to the profile.
void StoreGlobalPatchLevel(unsigned level);

// Degrees to the library's radians and back, with the library's value of pi.
float SmoothDegreesToRadians(int degrees);
int SmoothRadiansToDegrees(float radians);

} // namespace meshcore
