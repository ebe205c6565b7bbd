#include "tools/render/png_reader.h"

#include "tools/render/png_filter.h"

#include "tools/render/checksum.h"
#include "tools/render/inflater.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace meshcore::render {

namespace {

constexpr std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

std::uint32_t GetU32(const std::uint8_t* p) {
  return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
         p[3];
}

struct Header {
  std::uint32_t width = 0, height = 0;
  int depth = 0, colour = 0, interlace = 0;
  int Channels() const {
    switch (colour) {
    case 0:
      return 1;
    case 2:
      return 3;
    case 3:
      return 1;
    case 4:
      return 2;
    default:
      return 4;
    }
  }
};

bool CheckHeader(const Header& h, std::string& error) {
  if (h.width == 0 || h.height == 0) {
    error = "the image has no pixels";
    return false;
  }
  if (h.width > std::uint32_t(CPngReader::kMaxSide) ||
      h.height > std::uint32_t(CPngReader::kMaxSide) ||
      std::size_t{h.width} * h.height > CPngReader::kMaxPixels) {
    error = "the image is too large (" + std::to_string(h.width) + " x " +
            std::to_string(h.height) + ")";
    return false;
  }
  const int d = h.depth;
  bool valid = false;
  switch (h.colour) {
  case 0:
    valid = d == 1 || d == 2 || d == 4 || d == 8 || d == 16;
    break;
  case 3:
    valid = d == 1 || d == 2 || d == 4 || d == 8;
    break;
  case 2:
  case 4:
  case 6:
    valid = d == 8 || d == 16;
    break;
  default:
    break;
  }
  if (!valid) {
    error = "an invalid colour type and bit depth";
    return false;
  }
  if (h.interlace == 1) {
    error = "interlaced images are not supported";
    return false;
  }
  if (h.interlace != 0) {
    error = "an unknown interlace method";
    return false;
  }
  return true;
}

// Undoes the row filters in place; raw holds rows of 1 + rowSize bytes.
bool Unfilter(std::vector<std::uint8_t>& raw, std::size_t rowSize, std::size_t rows, int bpp,
              std::string& error) {
  for (std::size_t y = 0; y < rows; ++y) {
    std::uint8_t* row = raw.data() + y * (rowSize + 1);
    const int filter = row[0];
    ++row;
    const std::uint8_t* above = y ? row - (rowSize + 1) : nullptr;
    if (filter > 4) {
      error = "an unknown row filter";
      return false;
    }
    for (std::size_t i = 0; i < rowSize; ++i) {
      const int a = i >= std::size_t(bpp) ? row[i - bpp] : 0;
      const int b = above ? above[i] : 0;
      const int c = above && i >= std::size_t(bpp) ? above[i - bpp] : 0;
      row[i] = static_cast<std::uint8_t>(row[i] + PngPredict(filter, a, b, c));
    }
  }
  return true;
}

} // namespace

bool CPngReader::HasSignature(const std::uint8_t* data, std::size_t size) {
  return size >= 8 && std::memcmp(data, kSignature, 8) == 0;
}

bool CPngReader::Decode(const std::uint8_t* data, std::size_t size, CImage& image,
                        std::string& error) {
  if (!HasSignature(data, size)) {
    error = "not a PNG file";
    return false;
  }
  Header h;
  bool haveHeader = false, ended = false;
  std::vector<std::uint8_t> compressed;
  std::uint8_t palette[256][4];
  int paletteSize = 0;
  for (auto& entry : palette)
    entry[0] = entry[1] = entry[2] = 0, entry[3] = 255;

  std::size_t pos = 8;
  while (!ended) {
    if (pos + 12 > size) {
      error = "the file ends before its last chunk";
      return false;
    }
    const std::uint32_t length = GetU32(data + pos);
    if (length > size - pos - 12) {
      error = "a chunk runs past the end of the file";
      return false;
    }
    const std::uint8_t* type = data + pos + 4;
    const std::uint8_t* body = type + 4;
    if (Crc32(type, length + 4) != GetU32(body + length)) {
      error = "a chunk fails its checksum";
      return false;
    }
    pos += 12 + length;
    const bool critical = (type[0] & 0x20) == 0;
    if (!haveHeader && std::memcmp(type, "IHDR", 4) != 0) {
      error = "the first chunk is not the header";
      return false;
    }
    if (std::memcmp(type, "IHDR", 4) == 0) {
      if (haveHeader || length != 13) {
        error = "a bad header chunk";
        return false;
      }
      h.width = GetU32(body);
      h.height = GetU32(body + 4);
      h.depth = body[8];
      h.colour = body[9];
      h.interlace = body[12];
      if (body[10] != 0 || body[11] != 0) {
        error = "an unknown compression or filter method";
        return false;
      }
      if (!CheckHeader(h, error))
        return false;
      haveHeader = true;
    } else if (std::memcmp(type, "PLTE", 4) == 0) {
      if (length % 3 != 0 || length / 3 > 256 || length == 0) {
        error = "a bad palette";
        return false;
      }
      paletteSize = static_cast<int>(length / 3);
      for (int i = 0; i < paletteSize; ++i)
        std::memcpy(palette[i], body + i * 3, 3);
    } else if (std::memcmp(type, "tRNS", 4) == 0) {
      // Only palette transparency matters for a texture's colour.
      if (h.colour == 3)
        for (std::uint32_t i = 0; i < length && i < 256; ++i)
          palette[i][3] = body[i];
    } else if (std::memcmp(type, "IDAT", 4) == 0) {
      compressed.insert(compressed.end(), body, body + length);
    } else if (std::memcmp(type, "IEND", 4) == 0) {
      ended = true;
    } else if (critical) {
      error = "an unknown critical chunk";
      return false;
    }
  }
  if (h.colour == 3 && paletteSize == 0) {
    error = "a palette image without a palette";
    return false;
  }

  const int channels = h.Channels();
  const int bitsPerPixel = channels * h.depth;
  const std::size_t rowSize = (std::size_t{h.width} * bitsPerPixel + 7) / 8;
  const int bpp = bitsPerPixel >= 8 ? bitsPerPixel / 8 : 1;
  const std::size_t expected = (rowSize + 1) * h.height;
  std::vector<std::uint8_t> raw;
  if (!CInflater::Decompress(compressed.data(), compressed.size(), expected, raw, error))
    return false;
  if (raw.size() != expected) {
    error = "the image data is shorter than the image";
    return false;
  }
  if (!Unfilter(raw, rowSize, h.height, bpp, error))
    return false;

  CImage result(static_cast<int>(h.width), static_cast<int>(h.height));
  const int bytesPerSample = h.depth == 16 ? 2 : 1;
  for (std::uint32_t y = 0; y < h.height; ++y) {
    const std::uint8_t* row = raw.data() + y * (rowSize + 1) + 1;
    for (std::uint32_t x = 0; x < h.width; ++x) {
      std::uint8_t* out = result.Pixel(static_cast<int>(x), static_cast<int>(y));
      if (h.depth < 8) {
        const std::size_t bit = std::size_t{x} * h.depth;
        const int shift = 8 - h.depth - static_cast<int>(bit % 8);
        const int value = (row[bit / 8] >> shift) & ((1 << h.depth) - 1);
        if (h.colour == 3) {
          std::memcpy(out, palette[value], 4); // entries past the palette read as black
        } else {
          const auto grey = static_cast<std::uint8_t>(value * 255 / ((1 << h.depth) - 1));
          out[0] = out[1] = out[2] = grey;
          out[3] = 255;
        }
        continue;
      }
      // The first byte of a 16-bit sample is its high byte.
      const std::uint8_t* s = row + std::size_t{x} * channels * bytesPerSample;
      auto sample = [&](int i) { return s[i * bytesPerSample]; };
      switch (h.colour) {
      case 0:
        out[0] = out[1] = out[2] = sample(0);
        out[3] = 255;
        break;
      case 3:
        std::memcpy(out, palette[sample(0)], 4);
        break;
      case 4:
        out[0] = out[1] = out[2] = sample(0);
        out[3] = sample(1);
        break;
      case 2:
        out[0] = sample(0), out[1] = sample(1), out[2] = sample(2);
        out[3] = 255;
        break;
      default:
        out[0] = sample(0), out[1] = sample(1), out[2] = sample(2);
        out[3] = sample(3);
        break;
      }
    }
  }
  image = std::move(result);
  return true;
}

bool CPngReader::ReadFile(const std::string& path, CImage& image, std::string& error) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) {
    error = "cannot open the file";
    return false;
  }
  std::vector<std::uint8_t> bytes;
  std::uint8_t buffer[65536];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) {
    bytes.insert(bytes.end(), buffer, buffer + n);
    // The compressed data of the largest accepted image stays well below this.
    if (bytes.size() > (std::size_t{1} << 30)) {
      std::fclose(f);
      error = "the file is too large";
      return false;
    }
  }
  std::fclose(f);
  return Decode(bytes.data(), bytes.size(), image, error);
}

} // namespace meshcore::render
