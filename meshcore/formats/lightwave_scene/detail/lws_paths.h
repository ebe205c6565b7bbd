#pragma once
// Finds the object files that a Lightwave scene names. Scene files come from
// systems with backslash paths, volume prefixes and case-blind file systems,
// and the scene reader lower-cases every name, so the lookup here is lenient.

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace meshcore::lws {

// Folder listings are read once per finder: a scene names the same folders
// for thousands of items.
class CObjectFinder {
public:
  explicit CObjectFinder(std::vector<std::string> searchPaths)
      : m_searchPaths(std::move(searchPaths)) {}

  // base joined with the relative name (separated by '/'), every component
  // spelt exactly when such an entry exists, else matched ignoring case (the
  // smallest such name); empty when no such file exists.
  std::string FindCaseInsensitive(const std::string& base, std::string_view relative);

  // The file that name refers to, or empty. A relative name is searched in
  // directory and then in each of its parent folders, then in each of the
  // search paths in order. Backslashes count as separators; a volume prefix
  // ("c:", "Objects:") is a root folder of that name when one exists,
  // otherwise it is dropped and the rest searched as a relative name.
  std::string FindObjectFile(const std::string& directory, std::string_view name);

private:
  struct Listing {
    bool exists = false;
    // Lower-cased entry name -> the entries spelt so, smallest first.
    std::map<std::string, std::vector<std::string>> entries;
  };
  const Listing& List(const std::string& folder);
  std::string Search(const std::string& directory, std::string_view relative);

  std::vector<std::string> m_searchPaths;
  std::map<std::string, Listing> m_listings;
};

} // namespace meshcore::lws
