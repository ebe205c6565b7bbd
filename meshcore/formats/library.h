#pragma once
// Start and end of the library's use by a host, and the table of the codecs
// built into it.

namespace meshcore {

// Once per process (later calls do nothing): registers the built-in file types
// and codecs, reads the smoothing angle and patch level from the host's profile
// and loads the preferences. Install the host (SetMeshcoreHost) before calling.
void InitMeshcore();
// Saves the preferences if InitMeshcore ran; nothing else is torn down.
void CloseMeshcore();
int IsMeshcoreInitialized();

// Makes every codec of the library known to C3DIo by its class code.
void RegisterBuiltinCodecs();

} // namespace meshcore
