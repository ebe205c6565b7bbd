#pragma once
// A 2D point of the point family (work points of planar algorithms).

#include "meshcore/geometry/point_4d.h"
#include "meshcore/geometry/pt.h"

namespace meshcore {

class C2DPoint : public CPt {
  MESHCORE_DECLARE_SERIAL(C2DPoint)

public:
  float x = 0.0f;
  float y = 0.0f;

  C2DPoint() = default;
  C2DPoint(float px, float py) : x(px), y(py) {}
  // Coordinates only: flags and custom data belong to the original.
  C2DPoint(const C2DPoint& p) : CPt(), x(p.x), y(p.y) {}

  C2DPoint& operator=(const C2DPoint& p) {
    AssignBase(p);
    x = p.x;
    y = p.y;
    return *this;
  }
  C2DPoint& operator=(const CPt& p) override { return *this = static_cast<const C2DPoint&>(p); }
  C2DPoint& operator=(const C4DPoint& p) override {
    x = p.v[0];
    y = p.v[1];
    return *this;
  }
  void To4DPoint(C4DPoint& p) const override {
    p.n = 2;
    p.v[0] = x;
    p.v[1] = y;
  }

  void Serialize(CArchive& ar) override;

  float& operator[](int i) { return (&x)[i]; }
  const float& operator[](int i) const { return (&x)[i]; }
  float* ValPtr() { return &x; }
  const float* ValPtr() const { return &x; }
};

} // namespace meshcore
