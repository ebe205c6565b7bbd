#pragma once
// Where the generated benchmark inputs live: one file per name in the temp
// folder, written once per process. Our benchmarks and the peers' run as
// separate programs (and several may run at once), so each writes under a
// private name and renames it into place: a reader never sees half a file.

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <unistd.h>

namespace meshcore::bench {

inline std::string TempBenchPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() / name).string();
}

inline std::map<std::string, std::string>& GeneratedFiles() {
  static std::map<std::string, std::string> files;
  return files;
}

// Returns the path of the file called name, calling write(path) on the first
// request of this process to make it.
template <typename Write> const std::string& GeneratedFile(const std::string& name, Write&& write) {
  auto& path = GeneratedFiles()[name];
  if (path.empty()) {
    const std::string final_path = TempBenchPath(name);
    const std::string partial = final_path + ".part" + std::to_string(getpid());
    write(partial);
    std::error_code ec;
    std::filesystem::rename(partial, final_path, ec);
    if (ec)
      std::filesystem::remove(partial, ec);
    path = final_path;
  }
  return path;
}

} // namespace meshcore::bench
