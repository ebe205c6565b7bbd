#pragma once
// Finds the object files that a Lightwave scene names. Scene files come from
// systems with backslash paths, volume prefixes and case-blind file systems,
// and the scene reader lower-cases every name, so the lookup here is lenient.

#include <string>
#include <string_view>
#include <vector>

namespace meshcore::lws {

// base joined with the relative name (separated by '/'), every component
// matched case-insensitively where the exact spelling does not exist; empty
// when no such file exists. Among several matches the smallest name wins.
std::string FindCaseInsensitive(const std::string& base, std::string_view relative);

// The file that name refers to, or empty. A relative name is searched in
// directory and then in each of its parent folders, then in each of the search
// paths in order. Backslashes count as separators; a volume prefix ("c:",
// "Objects:") is a root folder of that name when one exists, otherwise it is
// dropped and the rest searched as a relative name.
std::string FindObjectFile(const std::string& directory, std::string_view name,
                           const std::vector<std::string>& searchPaths);

} // namespace meshcore::lws
