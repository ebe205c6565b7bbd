#pragma once
// Gamma and degamma lookup tables for 8-bit colours.

#include "meshcore/geometry/rgb_color.h"

#include <cstdint>

namespace meshcore {

class CGamma {
public:
  // Starts as the identity (gamma 1).
  CGamma() { Init(1.0f); }
  explicit CGamma(float gamma) { Init(gamma); }
  CGamma(const CGamma&) = default;
  CGamma& operator=(const CGamma&) = default;
  virtual ~CGamma() = default;

  void Init(float gamma);
  // A new opaque colour with r, g, b looked up in the gamma or degamma table.
  CRGBColor GetGammaColor(const CRGBColor& c) const;
  CRGBColor GetDegammaColor(const CRGBColor& c) const;

  std::uint8_t GetGamma(int i) const { return m_gamma[i]; }
  std::uint8_t GetDegamma(int i) const { return m_degamma[i]; }

private:
  std::uint8_t m_gamma[256];
  std::uint8_t m_degamma[256];
};

} // namespace meshcore
