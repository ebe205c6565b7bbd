#pragma once
// The failure a reader throws at the first byte it cannot accept. Caught at the
// codec's boundary, where it becomes a bad-file-format result and its detail.

#include <cstddef>
#include <cstdint>
#include <string>

namespace meshcore::codec {

class CFormatError {
public:
  CFormatError(std::size_t offset, std::string what) : m_offset(offset), m_what(std::move(what)) {}

  std::size_t GetOffset() const { return m_offset; }
  const std::string& GetWhat() const { return m_what; }

private:
  std::size_t m_offset;
  std::string m_what;
};

// A readable form of a chunk id: its characters when they are printable, else hex.
std::string IdToString(std::uint32_t id, unsigned bytes = 4);
// "<context> at byte <offset>: <what>", or "at byte <offset>: <what>" without context.
std::string DescribeFailure(const std::string& context, std::size_t offset,
                            const std::string& what);

} // namespace meshcore::codec
