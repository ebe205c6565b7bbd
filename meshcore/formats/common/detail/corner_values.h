#pragma once
// Per-corner attribute values (texture coordinates, colours) turned into the
// shared points of a channel: corners of the same mesh point with the same
// value share one channel point, so a seam keeps its two values and nothing
// else is split.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <unordered_map>
#include <vector>

namespace meshcore::codec {

class CCornerValues {
public:
  struct Value {
    float v[4] = {0, 0, 0, 0};
  };

  // The channel point of a corner on mesh point `point` with this value.
  std::int32_t Get(std::uint32_t point, const Value& value);
  // The channel point that stands for corners without a value (created once).
  std::int32_t GetDefault(const Value& value);
  // A channel point of its own, not shared by value.
  std::int32_t Add(const Value& value) {
    m_values.push_back(value);
    return std::int32_t(m_values.size() - 1);
  }

  const std::vector<Value>& GetValues() const { return m_values; }
  std::size_t GetSize() const { return m_values.size(); }
  void Reserve(std::size_t n) { m_values.reserve(n); }

private:
  struct Key {
    std::uint32_t point;
    std::uint32_t bits[4];
    bool operator==(const Key& o) const {
      return point == o.point && std::memcmp(bits, o.bits, sizeof bits) == 0;
    }
  };
  struct KeyHash {
    std::size_t operator()(const Key& k) const {
      std::uint64_t h = k.point * 0x9E3779B97F4A7C15ull;
      for (auto b : k.bits)
        h = (h ^ b) * 0x100000001B3ull;
      return std::size_t(h ^ (h >> 29));
    }
  };

  std::vector<Value> m_values;
  std::unordered_map<Key, std::int32_t, KeyHash> m_byValue;
  std::int32_t m_default = -1;
};

} // namespace meshcore::codec
