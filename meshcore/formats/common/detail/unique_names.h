#pragma once
// Names made unique among those handed out so far ("Wood", "Wood1", "Wood2"),
// for materials and nodes of formats that allow duplicates.

#include <set>
#include <string>

namespace meshcore::codec {

// base when unused in `used`, else base followed by the first free number
// (1, 2, ...) within maxAttempts; past that, base itself again. The name is
// added to `used`.
std::string MakeUniqueName(std::set<std::string>& used, const std::string& base,
                           int maxAttempts = 100);

class CUniqueNames {
public:
  std::string Make(const std::string& base, int maxAttempts = 100) {
    return MakeUniqueName(m_used, base, maxAttempts);
  }
  void Reserve(const std::string& name) { m_used.insert(name); }
  bool IsUsed(const std::string& name) const { return m_used.count(name) != 0; }
  void Clear() { m_used.clear(); }

private:
  std::set<std::string> m_used;
};

} // namespace meshcore::codec
