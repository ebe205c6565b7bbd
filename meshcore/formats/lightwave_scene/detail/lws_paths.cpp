#include "meshcore/formats/lightwave_scene/detail/lws_paths.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace meshcore::lws {

namespace {

namespace fs = std::filesystem;

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z')
      c = char(c + 32);
  return out;
}

std::vector<std::string_view> Components(std::string_view name) {
  std::vector<std::string_view> parts;
  while (!name.empty()) {
    const std::size_t slash = name.find('/');
    std::string_view part = name.substr(0, slash);
    if (!part.empty() && part != ".")
      parts.push_back(part);
    if (slash == std::string_view::npos)
      break;
    name.remove_prefix(slash + 1);
  }
  return parts;
}

} // namespace

const CObjectFinder::Listing& CObjectFinder::List(const std::string& folder) {
  auto [it, added] = m_listings.try_emplace(folder);
  if (!added)
    return it->second;
  Listing& listing = it->second;
  std::error_code ec;
  fs::directory_iterator entries(folder.empty() ? fs::path(".") : fs::path(folder), ec);
  if (ec)
    return listing;
  listing.exists = true;
  for (fs::directory_iterator end; !ec && entries != end; entries.increment(ec)) {
    std::string name = entries->path().filename().string();
    listing.entries[Lower(name)].push_back(std::move(name));
  }
  for (auto& [key, names] : listing.entries)
    std::sort(names.begin(), names.end());
  return listing;
}

std::string CObjectFinder::FindCaseInsensitive(const std::string& base, std::string_view relative) {
  const auto parts = Components(relative);
  if (parts.empty())
    return {};
  fs::path path(base);
  for (std::string_view part : parts) {
    if (part == "..") {
      path /= "..";
      continue;
    }
    const Listing& listing = List(path.string());
    auto it = listing.entries.find(Lower(part));
    if (it == listing.entries.end())
      return {};
    const auto& names = it->second;
    auto exact = std::find(names.begin(), names.end(), part);
    path /= exact != names.end() ? *exact : names.front();
  }
  std::error_code ec;
  if (!fs::exists(path, ec) || fs::is_directory(path, ec))
    return {};
  return path.lexically_normal().string();
}

std::string CObjectFinder::Search(const std::string& directory, std::string_view relative) {
  fs::path dir = directory.empty() ? fs::path(".") : fs::path(directory);
  // Up the parent folders: scenes often sit in a folder beside the objects'.
  for (int guard = 0; guard < 4096; ++guard) {
    std::string found = FindCaseInsensitive(dir.string(), relative);
    if (!found.empty())
      return found;
    fs::path parent = dir.parent_path();
    if (parent.empty() || parent == dir)
      break;
    dir = std::move(parent);
  }
  for (const std::string& path : m_searchPaths) {
    if (path.empty())
      continue;
    std::string found = FindCaseInsensitive(path, relative);
    if (!found.empty())
      return found;
  }
  return {};
}

std::string CObjectFinder::FindObjectFile(const std::string& directory, std::string_view name) {
  std::string local(name);
  std::replace(local.begin(), local.end(), '\\', '/');
  if (local.empty())
    return {};
  std::string_view rest = local;
  const std::size_t colon = local.find(':');
  if (colon != std::string::npos) {
    const std::string volume = local.substr(0, colon);
    rest.remove_prefix(colon + 1);
    // A volume is a root folder of that name when this system has one.
    std::error_code ec;
    const fs::path root = fs::path("/") / volume;
    if (!volume.empty() && volume.find('/') == std::string::npos && fs::is_directory(root, ec)) {
      std::string found = FindCaseInsensitive(root.string(), rest);
      if (!found.empty())
        return found;
    }
  } else if (local.front() == '/') {
    std::string found = FindCaseInsensitive("/", rest);
    if (!found.empty())
      return found;
  }
  while (!rest.empty() && rest.front() == '/')
    rest.remove_prefix(1);
  return Search(directory, rest);
}

} // namespace meshcore::lws
