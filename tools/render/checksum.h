#pragma once
// The two checksums of PNG files: CRC-32 over each chunk and Adler-32 over the
// compressed image data.

#include <cstddef>
#include <cstdint>

namespace meshcore::render {

// Continues crc (0 to start) over size bytes.
std::uint32_t Crc32(const std::uint8_t* data, std::size_t size, std::uint32_t crc = 0);
// Continues adler (1 to start) over size bytes.
std::uint32_t Adler32(const std::uint8_t* data, std::size_t size, std::uint32_t adler = 1);

} // namespace meshcore::render
