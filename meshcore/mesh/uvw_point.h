#pragma once
// A texture-coordinate point: the element of a texture channel's point list.

#include "meshcore/geometry/point_4d.h"
#include "meshcore/geometry/pt.h"

namespace meshcore {

class CUVWPoint : public CPt {
  MESHCORE_DECLARE_SERIAL(CUVWPoint)

public:
  float u = 0.0f;
  float v = 0.0f;
  float w = 0.0f;

  CUVWPoint() = default;
  CUVWPoint(float pu, float pv, float pw) : u(pu), v(pv), w(pw) {}
  // Coordinates only, as for 3D points: flags and custom data belong to the original.
  CUVWPoint(const CUVWPoint& p) : CPt(), u(p.u), v(p.v), w(p.w) {}

  virtual CUVWPoint& operator=(const CUVWPoint& p) {
    AssignBase(p);
    u = p.u;
    v = p.v;
    w = p.w;
    return *this;
  }
  CUVWPoint& operator=(const CPt& p) override { return *this = static_cast<const CUVWPoint&>(p); }
  // The first three components whatever the carrier's count.
  CUVWPoint& operator=(const C4DPoint& p) override {
    u = p.v[0];
    v = p.v[1];
    w = p.v[2];
    return *this;
  }
  void To4DPoint(C4DPoint& p) const override {
    p.n = 3;
    p.v[0] = u;
    p.v[1] = v;
    p.v[2] = w;
  }
  // Exact comparison; flags and custom data do not count.
  virtual bool operator==(const CUVWPoint& p) const { return u == p.u && v == p.v && w == p.w; }
  virtual bool operator!=(const CUVWPoint& p) const { return !(*this == p); }

  void Serialize(CArchive& ar) override;

  void SetUV(float pu, float pv, float pw) {
    u = pu;
    v = pv;
    w = pw;
  }
  float& operator[](int i) { return (&u)[i]; }
  const float& operator[](int i) const { return (&u)[i]; }
  float* ValPtr() { return &u; }
  const float* ValPtr() const { return &u; }

  // The key under which texture points are hashed: u + v + w truncated towards zero.
  explicit operator unsigned int() const {
    const float s = u + v + w;
    // Out-of-range sums (and NaN) have no integer value; they all hash to 0.
    if (!(s > -2147483648.0f && s < 2147483648.0f))
      return 0;
    return static_cast<unsigned int>(static_cast<int>(s));
  }

  // The two coordinates of a planar texture point. A zero u is dropped first,
  // then a zero v; the tests are exact.
  void GetUVCoordinate(float& s, float& t) const {
    if (u == 0.0f) {
      s = v;
      t = w;
    } else if (v == 0.0f) {
      s = u;
      t = w;
    } else {
      s = u;
      t = v;
    }
  }
};

} // namespace meshcore
