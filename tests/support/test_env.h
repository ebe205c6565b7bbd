#pragma once
// Helpers for tests that change environment variables or need a scratch folder.

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include <unistd.h>

namespace meshcore::test {

// Sets (or, with nullopt, unsets) a variable and restores it on destruction.
class ScopedEnv {
public:
  ScopedEnv(const char* name, std::optional<std::string> value) : m_name(name) {
    if (const char* old = std::getenv(name))
      m_old = old;
    if (value)
      ::setenv(name, value->c_str(), 1);
    else
      ::unsetenv(name);
  }
  ~ScopedEnv() {
    if (m_old)
      ::setenv(m_name.c_str(), m_old->c_str(), 1);
    else
      ::unsetenv(m_name.c_str());
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
  std::string m_name;
  std::optional<std::string> m_old;
};

// A fresh empty folder under $MESHCORE_HOME (or the system temporary folder).
inline std::filesystem::path ScratchDir(const std::string& name) {
  const char* home = std::getenv("MESHCORE_HOME");
  std::filesystem::path base =
      home && *home ? std::filesystem::path(home) : std::filesystem::temp_directory_path();
  // ctest runs tests as separate processes at the same time: a folder per process.
  std::filesystem::path dir = base / ("scratch_" + name + "_" + std::to_string(::getpid()));
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir;
}

} // namespace meshcore::test
