#include "meshcore/formats/common/detail/corner_values.h"

namespace meshcore::codec {

std::int32_t CCornerValues::Get(std::uint32_t point, const Value& value) {
  Key key{point, {}};
  std::memcpy(key.bits, value.v, sizeof key.bits);
  auto [it, inserted] = m_byValue.try_emplace(key, std::int32_t(m_values.size()));
  if (inserted)
    m_values.push_back(value);
  return it->second;
}

std::int32_t CCornerValues::GetDefault(const Value& value) {
  if (m_default < 0)
    m_default = Add(value);
  return m_default;
}

} // namespace meshcore::codec
