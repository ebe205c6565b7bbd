#pragma once
// A homogeneous vector, also used as a plane (a, b, c, d): a*x + b*y + c*z + d = 0.

#include "meshcore/geometry/point_3d.h"
#include "meshcore/geometry/vector_3d.h"
#include "meshcore/platform/object.h"

#include <cmath>

namespace meshcore {

class C4DVector : public CObject {
  MESHCORE_DECLARE_SERIAL(C4DVector)

public:
  float x, y, z, w;

  // Deliberately leaves the components unset; every other initialiser sets w = 1.
  C4DVector() {}
  C4DVector(float px, float py, float pz) : x(px), y(py), z(pz), w(1.0f) {}
  C4DVector(const C3DPoint& a, const C3DPoint& b)
      : x(b.x - a.x), y(b.y - a.y), z(b.z - a.z), w(1.0f) {}
  C4DVector(const C4DVector& v) : CObject(), x(v.x), y(v.y), z(v.z), w(v.w) {}

  C4DVector& operator=(const C4DVector& v) {
    x = v.x;
    y = v.y;
    z = v.z;
    w = v.w;
    return *this;
  }
  C4DVector& operator=(const C3DVector& v) {
    Init(v.x, v.y, v.z);
    return *this;
  }

  void Init(float px, float py, float pz) {
    x = px;
    y = py;
    z = pz;
    w = 1.0f;
  }
  void InitFromPoint(const C3DPoint& p) { Init(p.x, p.y, p.z); }
  void InitFromPoints(const C3DPoint& a, const C3DPoint& b) {
    Init(b.x - a.x, b.y - a.y, b.z - a.z);
  }

  // Of (x, y, z); w takes no part.
  // Summed in double so that tiny vectors do not underflow to a zero length.
  float Length() const {
    return static_cast<float>(std::sqrt(double(x) * x + double(y) * y + double(z) * z));
  }
  void Normalize() {
    float len = Length();
    if (len != 0.0f) {
      x /= len;
      y /= len;
      z /= len;
    }
  }
  // (x, y, z) = a x b on the first three components; w is kept.
  void Normal(const C4DVector& a, const C4DVector& b) {
    float nx = a.y * b.z - a.z * b.y;
    float ny = a.z * b.x - a.x * b.z;
    float nz = a.x * b.y - a.y * b.x;
    x = nx;
    y = ny;
    z = nz;
  }
  // Four-component dot product.
  float operator*(const C4DVector& b) const { return x * b.x + y * b.y + z * b.z + w * b.w; }

  // The plane through three points, its normal facing the side from which
  // they run counter-clockwise; a degenerate triangle gives a zero normal.
  void GetPlaneVector(const C3DPoint& p1, const C3DPoint& p2, const C3DPoint& p3);

  float& operator[](int i) { return (&x)[i]; }
  const float& operator[](int i) const { return (&x)[i]; }
  float* ValPtr() { return &x; }
  const float* ValPtr() const { return &x; }

  void Serialize(CArchive& ar) override;
};

inline C3DPoint C3DPoint::operator+(const C4DVector& h) const {
  return {x + h.x, y + h.y, z + h.z};
}
inline float C3DPoint::operator*(const C4DVector& plane) const {
  return plane.x * x + plane.y * y + plane.z * z + plane.w;
}

} // namespace meshcore
