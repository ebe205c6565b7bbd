#pragma once
// Colour components between the 0..1 floats of the formats and the bytes of
// the model.

#include <cmath>
#include <cstdint>

namespace meshcore::codec {

// Rounded and clamped; NaN reads as 0.
inline std::uint8_t ColorByte(float v) {
  if (!(v > 0.0f))
    return 0;
  if (v >= 1.0f)
    return 255;
  return std::uint8_t(std::lround(v * 255.0f));
}
inline float ColorUnit(std::uint8_t b) {
  return float(b) / 255.0f;
}

} // namespace meshcore::codec
