#pragma once
// Writes a file's bytes through a temporary file beside the target, renamed
// over it only when every byte was written: a failed save leaves the previous
// file as it was.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace meshcore {
class CFileParser;
}

namespace meshcore::codec {

// The library's I/O code: 1 (ok), -1 (cannot open), -5 (disk full), -6 (access denied),
// -9 (the thread was asked to stop; nothing is written).
int WriteWholeFile(const std::string& path, const void* data, std::size_t size, bool silent);

// The same for a file made of several pieces written one after the other
// (a header built last and a large body, say), without joining them first.
struct FilePiece {
  const void* data;
  std::size_t size;
};
int WriteWholeFile(const std::string& path, const std::vector<FilePiece>& pieces, bool silent);

// The usual end of a codec's Save: the whole file written as above, 1 on
// success, else 0 with the codec's error set to the failure.
int SaveWholeFile(const CFileParser& codec, const std::string& path, const void* data,
                  std::size_t size);

} // namespace meshcore::codec
