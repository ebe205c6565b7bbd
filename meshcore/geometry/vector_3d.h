#pragma once
// A plain three-float direction: no flags, no virtual table, packed so that
// arrays of it can be handed out as float triples.

#include <cmath>

namespace meshcore {

class CArchive;
class C3DPoint;
class CQuaternion;

class C3DVector {
public:
  float x = 0.0f;
  float y = 0.0f;
  float z = 0.0f;

  C3DVector() = default;
  C3DVector(float px, float py, float pz) : x(px), y(py), z(pz) {}
  C3DVector(const C3DPoint& p);
  // The direction from a to b.
  C3DVector(const C3DPoint& a, const C3DPoint& b);
  // The quaternion's vector part.
  C3DVector(const CQuaternion& q);

  void Init(float px, float py, float pz) {
    x = px;
    y = py;
    z = pz;
  }
  void InitFromPoint(const C3DPoint& p);
  void InitFromPoints(const C3DPoint& a, const C3DPoint& b);
  // b - a over the (u, v, w) of texture points; a template so that this layer
  // does not depend on the point lists that define them.
  template <class UVWPoint> void InitFromUVWPoints(const UVWPoint& a, const UVWPoint& b) {
    x = b.u - a.u;
    y = b.v - a.v;
    z = b.w - a.w;
  }

  // Cross product.
  C3DVector operator^(const C3DVector& b) const {
    return {y * b.z - z * b.y, z * b.x - x * b.z, x * b.y - y * b.x};
  }
  // Dot product.
  float operator*(const C3DVector& b) const { return x * b.x + y * b.y + z * b.z; }
  C3DVector operator*(float s) const { return {x * s, y * s, z * s}; }
  C3DVector operator/(float s) const { return {x / s, y / s, z / s}; }
  C3DVector& operator/=(float s) {
    x /= s;
    y /= s;
    z /= s;
    return *this;
  }
  C3DVector operator+(const C3DVector& b) const { return {x + b.x, y + b.y, z + b.z}; }
  C3DVector operator-(const C3DVector& b) const { return {x - b.x, y - b.y, z - b.z}; }
  C3DVector& operator+=(const C3DVector& b) {
    x += b.x;
    y += b.y;
    z += b.z;
    return *this;
  }
  C3DVector operator-() const { return {-x, -y, -z}; }

  // Summed in double so that tiny vectors do not underflow to a zero length.
  float Length() const {
    return static_cast<float>(std::sqrt(double(x) * x + double(y) * y + double(z) * z));
  }
  float Length2() const { return x * x + y * y + z * z; }
  // Exact test: -0.0 counts as zero, denormals do not.
  bool IsNull() const { return x == 0.0f && y == 0.0f && z == 0.0f; }
  // No tolerance: only an exactly zero length is left alone.
  void Normalize() {
    float len = Length();
    if (len != 0.0f) {
      x /= len;
      y /= len;
      z /= len;
    }
  }

  float& operator[](int i) { return (&x)[i]; }
  const float& operator[](int i) const { return (&x)[i]; }
  float* ValPtr() { return &x; }
  const float* ValPtr() const { return &x; }

  // x, y, z; no flags.
  void Serialize(CArchive& ar);
};

} // namespace meshcore

// The members taking points are inline and defined with the point class.
#include "meshcore/geometry/point_3d.h"
