#pragma once
// The per-user folder that holds the preferences and the profile.

#include <string>

namespace meshcore {

// With a trailing '/': $MESHCORE_HOME/ when set, else $XDG_CONFIG_HOME/meshcore/,
// else $HOME/.config/meshcore/ (the current folder when none is set). A non-zero
// create makes sure that the folder exists first.
std::string GetUserPreferencesPath(int create = 0);
// Creates the folder (and its parents) when missing; false when that fails.
bool EnsureUserPreferencesPath();

} // namespace meshcore
