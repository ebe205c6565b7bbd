#pragma once
// A whole input file in memory: mapped read-only where the system offers it,
// else read in one go. Sizes past 32 bits are handled.

#include "meshcore/io/file_io.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace meshcore::codec {

class CFileInput {
public:
  CFileInput();
  CFileInput(const CFileInput&) = delete;
  CFileInput& operator=(const CFileInput&) = delete;
  ~CFileInput();

  // The library's I/O code: 1 (ok), -1 (cannot open), -4 (no memory), -3 (a read failed).
  int Open(const std::string& path);
  // The failure detail of an Open result: "cannot open the file" or "cannot read the file".
  static const char* FailureText(int result) {
    return result == IO_FILE_CANT_OPEN ? "cannot open the file" : "cannot read the file";
  }

  // Gives the bytes back early (keeps the peak down once they are decoded).
  void Close();

  const std::uint8_t* GetData() const { return m_data; }
  std::size_t GetSize() const { return m_size; }

private:
  struct Mapping;
  std::unique_ptr<Mapping> m_mapping;
  std::unique_ptr<std::uint8_t[]> m_copy;
  const std::uint8_t* m_data = nullptr;
  std::size_t m_size = 0;
};

} // namespace meshcore::codec
