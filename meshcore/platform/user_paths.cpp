#include "meshcore/platform/user_paths.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace meshcore {

namespace {

std::string WithSlash(std::string path) {
  if (path.empty() || path.back() != '/')
    path += '/';
  return path;
}

const char* NonEmptyEnv(const char* name) {
  const char* v = std::getenv(name);
  return v && *v ? v : nullptr;
}

} // namespace

std::string GetUserPreferencesPath(int create) {
  std::string path;
  if (const char* home = NonEmptyEnv("MESHCORE_HOME"))
    path = WithSlash(home);
  else if (const char* xdg = NonEmptyEnv("XDG_CONFIG_HOME"))
    path = WithSlash(xdg) + "meshcore/";
  else if (const char* home = NonEmptyEnv("HOME"))
    path = WithSlash(home) + ".config/meshcore/";
  else
    path = "./";
  if (create) {
    std::error_code ec;
    std::filesystem::create_directories(path, ec);
  }
  return path;
}

bool EnsureUserPreferencesPath() {
  const std::string path = GetUserPreferencesPath();
  std::error_code ec;
  std::filesystem::create_directories(path, ec);
  return std::filesystem::is_directory(path, ec);
}

} // namespace meshcore
