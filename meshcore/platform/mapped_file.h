#pragma once
// A whole file mapped read-only into memory, where the system can: a large
// file is then read from the page cache without a copy or freshly zeroed pages.

#include <cstddef>
#include <cstdint>
#include <string>

namespace meshcore {

class CMappedFile {
public:
  CMappedFile() = default;
  CMappedFile(const CMappedFile&) = delete;
  CMappedFile& operator=(const CMappedFile&) = delete;
  ~CMappedFile() { Close(); }

  // False when the file cannot be mapped (missing, empty, not a regular file,
  // or no mapping on this system): the caller reads it the ordinary way.
  bool Open(const std::string& path);
  void Close();

  const std::uint8_t* GetData() const { return m_data; }
  std::size_t GetSize() const { return m_size; }

private:
  const std::uint8_t* m_data = nullptr;
  std::size_t m_size = 0;
};

} // namespace meshcore
