#include "meshcore/formats/lightwave_scene/detail/lws_paths.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace meshcore::lws {

namespace {

namespace fs = std::filesystem;

bool SameNoCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           auto lower = [](unsigned char c) {
             return c >= 'A' && c <= 'Z' ? char(c + 32) : char(c);
           };
           return lower(static_cast<unsigned char>(x)) == lower(static_cast<unsigned char>(y));
         });
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

// The entry of folder spelt like part, exactly or else ignoring case.
bool FindEntry(fs::path& folder, std::string_view part) {
  std::error_code ec;
  fs::path exact = folder / fs::path(std::string(part));
  if (fs::exists(exact, ec)) {
    folder = std::move(exact);
    return true;
  }
  if (part == "..")
    return false;
  std::string best;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string entry = it->path().filename().string();
    if (SameNoCase(entry, part) && (best.empty() || entry < best))
      best = entry;
  }
  if (best.empty())
    return false;
  folder /= best;
  return true;
}

std::string Search(const std::string& directory, std::string_view relative,
                   const std::vector<std::string>& searchPaths) {
  std::error_code ec;
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
  for (const std::string& path : searchPaths) {
    if (path.empty())
      continue;
    std::string found = FindCaseInsensitive(path, relative);
    if (!found.empty())
      return found;
  }
  return {};
}

} // namespace

std::string FindCaseInsensitive(const std::string& base, std::string_view relative) {
  const auto parts = Components(relative);
  if (parts.empty())
    return {};
  fs::path path(base);
  for (std::string_view part : parts)
    if (!FindEntry(path, part))
      return {};
  std::error_code ec;
  if (fs::is_directory(path, ec) || !fs::exists(path, ec))
    return {};
  return path.lexically_normal().string();
}

std::string FindObjectFile(const std::string& directory, std::string_view name,
                           const std::vector<std::string>& searchPaths) {
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
    if (!volume.empty() && volume.find('/') == std::string::npos) {
      const fs::path root = fs::path("/") / volume;
      if (fs::is_directory(root, ec)) {
        std::string found = FindCaseInsensitive(root.string(), rest);
        if (!found.empty())
          return found;
      }
    }
  } else if (local.front() == '/') {
    std::string found = FindCaseInsensitive("/", rest);
    if (!found.empty())
      return found;
  }
  while (!rest.empty() && rest.front() == '/')
    rest.remove_prefix(1);
  return Search(directory, rest, searchPaths);
}

} // namespace meshcore::lws
