#include "meshcore/formats/common/detail/file_output.h"

#include "meshcore/io/file_io.h"
#include "meshcore/io/file_parser.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/exceptions.h"

#include <algorithm>

namespace meshcore::codec {

namespace {

int CodeOfCause(int cause) {
  switch (cause) {
  case CFileException::none:
    return IO_FILE_OK;
  case CFileException::diskFull:
    return IO_FILE_DISK_FULL;
  case CFileException::accessDenied:
    return IO_FILE_ACCESS_DENIED;
  default:
    return IO_FILE_CANT_OPEN;
  }
}

} // namespace

int WriteWholeFile(const std::string& path, const void* data, std::size_t size, bool silent) {
  return WriteWholeFile(path, {FilePiece{data, size}}, silent);
}

int WriteWholeFile(const std::string& path, const std::vector<FilePiece>& pieces, bool /*silent*/) {
  // The stream writes beside the target and renames over it on a clean close.
  CStdioFile file;
  int cause = CFileException::none;
  if (!file.Open(path, CStdioFile::modeWrite, &cause))
    return IO_FILE_CANT_OPEN;
  std::size_t total = 0;
  for (const FilePiece& piece : pieces)
    total += piece.size;
  // Pieces small enough that a cancel is answered between two of them.
  constexpr std::size_t kStep = std::size_t(4) << 20;
  CCancelCheck cancel(total, 1);
  std::size_t written = 0;
  try {
    for (const FilePiece& piece : pieces) {
      const auto* bytes = static_cast<const std::uint8_t*>(piece.data);
      for (std::size_t done = 0; done < piece.size;) {
        if (cancel.At(written)) {
          file.Abort();
          return IO_FILE_CANCELLED;
        }
        const std::size_t n = std::min(piece.size - done, kStep);
        file.Write(bytes + done, n);
        done += n;
        written += n;
      }
    }
    if (int failed = file.GetWriteError()) {
      file.Abort();
      return CodeOfCause(failed);
    }
    file.Close();
  } catch (const CFileException& e) {
    file.Abort();
    return CodeOfCause(e.m_cause);
  }
  return IO_FILE_OK;
}

int SaveWholeFile(const CFileParser& codec, const std::string& path, const void* data,
                  std::size_t size) {
  const int result = WriteWholeFile(path, data, size, codec.IsSilentMode());
  if (result != IO_FILE_OK) {
    codec.SetIoError(result);
    return 0;
  }
  return 1;
}

} // namespace meshcore::codec
