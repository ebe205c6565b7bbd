#include "meshcore/formats/common/detail/file_output.h"

#include "meshcore/io/file_io.h"
#include "meshcore/io/io_file.h"

#include <algorithm>

namespace meshcore::codec {

int WriteWholeFile(const std::string& path, const void* data, std::size_t size, bool silent) {
  // IoFile writes beside the target and renames over it on a clean close.
  IoFile file(silent ? 1 : 0, 0);
  if (!file.OpenFile(path, 0))
    return IO_FILE_CANT_OPEN;
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  constexpr std::size_t kPiece = std::size_t(1) << 30;
  for (std::size_t done = 0; done < size;) {
    const unsigned n = unsigned(std::min(size - done, kPiece));
    file.FileWrite(bytes + done, n);
    done += n;
  }
  file.CloseFile();
  switch (file.GetWriteError()) {
  case 0:
    return IO_FILE_OK;
  case 13: // disk full
    return IO_FILE_DISK_FULL;
  case 5: // access denied
    return IO_FILE_ACCESS_DENIED;
  default:
    return IO_FILE_CANT_OPEN;
  }
}

} // namespace meshcore::codec
