#include "meshcore/formats/common/detail/unique_names.h"

namespace meshcore::codec {

std::string MakeUniqueName(std::set<std::string>& used, const std::string& base, int maxAttempts) {
  std::string name = base;
  for (int attempt = 1; attempt <= maxAttempts && used.count(name); ++attempt)
    name = base + std::to_string(attempt);
  used.insert(name);
  return name;
}

} // namespace meshcore::codec
