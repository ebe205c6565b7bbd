#pragma once

namespace meshcore {

// "major.minor.patch" of this build of the library.
const char* GetVersionString();

} // namespace meshcore
