#pragma once
// A vertex-colour point: the element of a colour channel's point list.

#include "meshcore/geometry/point_4d.h"
#include "meshcore/geometry/pt.h"
#include "meshcore/geometry/rgb_color.h"

#include <cstdint>

namespace meshcore {

class CVCPoint : public CPt {
  MESHCORE_DECLARE_SERIAL(CVCPoint)

public:
  CVCPoint() = default;
  explicit CVCPoint(const CRGBColor& c) : m_color(c) {}
  // The colour only: flags and custom data belong to the original.
  CVCPoint(const CVCPoint& p) : CPt(), m_color(p.m_color) {}

  virtual CVCPoint& operator=(const CVCPoint& p) {
    AssignBase(p);
    m_color = p.m_color;
    return *this;
  }
  CVCPoint& operator=(const CPt& p) override { return *this = static_cast<const CVCPoint&>(p); }
  // Components 1 to 4 of the carrier (the bytes as floats), truncated to bytes.
  CVCPoint& operator=(const C4DPoint& p) override {
    for (int i = 0; i < 4; ++i)
      m_color[i] = CRGBColor::ToByte(p.v[i]);
    return *this;
  }
  void To4DPoint(C4DPoint& p) const override {
    p.n = 4;
    for (int i = 0; i < 4; ++i)
      p.v[i] = static_cast<float>(m_color[i]);
  }
  virtual bool operator==(const CVCPoint& p) const { return m_color == p.m_color; }
  bool operator!=(const CVCPoint& p) const { return !(*this == p); }

  // Serialize stays CPt's: a colour point writes its flags only, never the colour.

  CRGBColor& GetColor() { return m_color; }
  const CRGBColor& GetColor() const { return m_color; }
  operator CRGBColor() const { return m_color; }
  void SetColor(const CRGBColor& c) { m_color = c; }
  std::uint8_t& operator[](int i) { return m_color[i]; }
  const std::uint8_t& operator[](int i) const { return m_color[i]; }
  std::uint8_t* ValPtr() { return m_color.ValPtr(); }
  const std::uint8_t* ValPtr() const { return m_color.ValPtr(); }

private:
  CRGBColor m_color;
};

} // namespace meshcore
