#include "tools/render/png_writer.h"

#include "tools/render/png_filter.h"

#include "tools/render/checksum.h"
#include "tools/render/deflater.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace meshcore::render {

namespace {

void PutU32(std::vector<std::uint8_t>& out, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8)
    out.push_back(static_cast<std::uint8_t>(v >> shift));
}

void PutChunk(std::vector<std::uint8_t>& out, const char* type, const std::uint8_t* data,
              std::size_t size) {
  PutU32(out, static_cast<std::uint32_t>(size));
  const std::size_t start = out.size();
  out.insert(out.end(), type, type + 4);
  if (size)
    out.insert(out.end(), data, data + size);
  PutU32(out, Crc32(out.data() + start, size + 4));
}

// Filters row with each of the five filters and keeps the one whose bytes,
// read as signed, sum smallest: the usual cheap guess at what compresses best.
void FilterRow(const std::uint8_t* row, const std::uint8_t* above, std::size_t size, int bpp,
               std::vector<std::uint8_t>& out) {
  std::vector<std::uint8_t> best, trial(size);
  long bestScore = -1;
  for (int filter = 0; filter < 5; ++filter) {
    long score = 0;
    for (std::size_t i = 0; i < size; ++i) {
      const int a = i >= std::size_t(bpp) ? row[i - bpp] : 0;
      const int b = above ? above[i] : 0;
      const int c = above && i >= std::size_t(bpp) ? above[i - bpp] : 0;
      trial[i] = static_cast<std::uint8_t>(row[i] - PngPredict(filter, a, b, c));
      score += std::abs(static_cast<int>(static_cast<std::int8_t>(trial[i])));
    }
    if (bestScore < 0 || score < bestScore) {
      bestScore = score;
      best = trial;
      best.insert(best.begin(), static_cast<std::uint8_t>(filter));
    }
  }
  out.insert(out.end(), best.begin(), best.end());
}

} // namespace

std::vector<std::uint8_t> CPngWriter::Encode(const CImage& image) {
  const int width = image.GetWidth(), height = image.GetHeight();
  const std::size_t rowSize = static_cast<std::size_t>(width) * 3;
  std::vector<std::uint8_t> raw;
  raw.reserve((rowSize + 1) * height);
  std::vector<std::uint8_t> row(rowSize), above(rowSize);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x)
      std::memcpy(&row[x * 3], image.Pixel(x, y), 3);
    FilterRow(row.data(), y ? above.data() : nullptr, rowSize, 3, raw);
    row.swap(above);
  }

  std::vector<std::uint8_t> out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  std::vector<std::uint8_t> header;
  PutU32(header, static_cast<std::uint32_t>(width));
  PutU32(header, static_cast<std::uint32_t>(height));
  header.insert(header.end(),
                {8, 2, 0, 0, 0}); // 8 bits, RGB, deflate, adaptive filters, no interlace
  PutChunk(out, "IHDR", header.data(), header.size());
  const std::vector<std::uint8_t> compressed = CDeflater::Compress(raw.data(), raw.size());
  PutChunk(out, "IDAT", compressed.data(), compressed.size());
  PutChunk(out, "IEND", nullptr, 0);
  return out;
}

bool CPngWriter::WriteFile(const CImage& image, const std::string& path, std::string& error) {
  const std::vector<std::uint8_t> bytes = Encode(image);
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) {
    error = std::strerror(errno);
    return false;
  }
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  const bool closed = std::fclose(f) == 0;
  if (!written || !closed) {
    error = "cannot write the whole file";
    std::remove(path.c_str());
    return false;
  }
  return true;
}

} // namespace meshcore::render
