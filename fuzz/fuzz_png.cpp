// The renderer's PNG reader on arbitrary bytes (texture files come from old
// asset folders), and its deflate pair: whatever inflates must come back the
// same after our compressor.

#include "tools/render/deflater.h"
#include "tools/render/image.h"
#include "tools/render/inflater.h"
#include "tools/render/png_reader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meshcore::render;
  CImage image;
  std::string error;
  if (CPngReader::Decode(data, size, image, error) &&
      (image.GetWidth() <= 0 || image.GetHeight() <= 0 ||
       image.GetWidth() > CPngReader::kMaxSide || image.GetHeight() > CPngReader::kMaxSide))
    std::abort();

  std::vector<std::uint8_t> raw;
  if (CInflater::Decompress(data, size, std::size_t{1} << 22, raw, error)) {
    const std::vector<std::uint8_t> packed = CDeflater::Compress(raw.data(), raw.size());
    std::vector<std::uint8_t> back;
    if (!CInflater::Decompress(packed.data(), packed.size(), raw.size(), back, error) ||
        back != raw)
      std::abort();
  }
  return 0;
}
