#include "meshcore/formats/common/detail/file_input.h"

#include "meshcore/io/file_io.h"
#include "meshcore/platform/mapped_file.h"

#include <algorithm>
#include <cstdio>
#include <new>

namespace meshcore::codec {

struct CFileInput::Mapping {
  CMappedFile file;
};

CFileInput::CFileInput() = default;
CFileInput::~CFileInput() = default;

void CFileInput::Close() {
  m_mapping.reset();
  m_copy.reset();
  m_data = nullptr;
  m_size = 0;
}

int CFileInput::Open(const std::string& path) {
  Close();
  auto mapping = std::make_unique<Mapping>();
  if (mapping->file.Open(path)) {
    m_mapping = std::move(mapping);
    m_data = m_mapping->file.GetData();
    m_size = m_mapping->file.GetSize();
    return IO_FILE_OK;
  }
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f)
    return IO_FILE_CANT_OPEN;
  // Sizes past 32 bits: seek and tell in 64 bits.
  int result = IO_FILE_OK;
  std::uint64_t length = 0;
  if (fseeko(f, 0, SEEK_END) != 0 || (length = std::uint64_t(ftello(f))) == std::uint64_t(-1) ||
      fseeko(f, 0, SEEK_SET) != 0)
    result = IO_FILE_CANT_OPEN;
  if (result == IO_FILE_OK && length > 0) {
    m_copy.reset(new (std::nothrow) std::uint8_t[std::size_t(length)]);
    if (!m_copy)
      result = IO_FILE_NO_MEMORY;
    else if (std::fread(m_copy.get(), 1, std::size_t(length), f) != std::size_t(length))
      result = IO_FILE_BAD_FORMAT;
  }
  std::fclose(f);
  if (result != IO_FILE_OK) {
    Close();
    return result;
  }
  m_data = m_copy.get();
  m_size = std::size_t(length);
  return IO_FILE_OK;
}

} // namespace meshcore::codec
