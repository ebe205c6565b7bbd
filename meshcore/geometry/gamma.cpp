#include "meshcore/geometry/gamma.h"

#include <cmath>

namespace meshcore {

void CGamma::Init(float gamma) {
  for (int i = 0; i < 256; ++i) {
    float v = static_cast<float>(i) / 255.0f;
    m_gamma[i] = CRGBColor::ToByte(255.0f * std::pow(v, gamma));
    m_degamma[i] = CRGBColor::ToByte(255.0f * std::pow(v, 1.0f / gamma));
  }
}

CRGBColor CGamma::GetGammaColor(const CRGBColor& c) const {
  return CRGBColor(m_gamma[c.r], m_gamma[c.g], m_gamma[c.b]);
}

CRGBColor CGamma::GetDegammaColor(const CRGBColor& c) const {
  return CRGBColor(m_degamma[c.r], m_degamma[c.g], m_degamma[c.b]);
}

} // namespace meshcore
