#pragma once
// The 3D point of the point family: the vertex record of every mesh.

#include "meshcore/geometry/point_4d.h"
#include "meshcore/geometry/pt.h"
#include "meshcore/geometry/vector_3d.h"

namespace meshcore {

class C4DVector;

// Stored by value in point lists of millions of records: keep it small and
// its hot operations inline.
class C3DPoint : public CPt {
  MESHCORE_DECLARE_SERIAL(C3DPoint)

public:
  float x = 0.0f;
  float y = 0.0f;
  float z = 0.0f;

  C3DPoint() = default;
  C3DPoint(float px, float py, float pz) : x(px), y(py), z(pz) {}
  // Coordinates only: flags and custom data belong to the original.
  C3DPoint(const C3DPoint& p) : CPt(), x(p.x), y(p.y), z(p.z) {}

  C3DPoint& operator=(const C3DPoint& p) {
    AssignBase(p);
    x = p.x;
    y = p.y;
    z = p.z;
    return *this;
  }
  C3DPoint& operator=(const CPt& p) override { return *this = static_cast<const C3DPoint&>(p); }
  // The first three components whatever the carrier's count.
  C3DPoint& operator=(const C4DPoint& p) override {
    x = p.v[0];
    y = p.v[1];
    z = p.v[2];
    return *this;
  }
  void To4DPoint(C4DPoint& p) const override {
    p.n = 3;
    p.v[0] = x;
    p.v[1] = y;
    p.v[2] = z;
  }
  // Coordinates only.
  C3DPoint& operator=(const C3DVector& v) {
    x = v.x;
    y = v.y;
    z = v.z;
    return *this;
  }

  // Exact comparison of the coordinates; flags and custom data do not count.
  bool operator==(const C3DPoint& p) const { return x == p.x && y == p.y && z == p.z; }
  bool operator!=(const C3DPoint& p) const { return !(*this == p); }

  void Serialize(CArchive& ar) override;

  void Init() { x = y = z = 0.0f; }

  C3DPoint operator+(const C3DPoint& p) const { return {x + p.x, y + p.y, z + p.z}; }
  C3DPoint operator-(const C3DPoint& p) const { return {x - p.x, y - p.y, z - p.z}; }
  C3DPoint operator+(const C3DVector& v) const { return {x + v.x, y + v.y, z + v.z}; }
  C3DPoint operator-(const C3DVector& v) const { return {x - v.x, y - v.y, z - v.z}; }
  // Moves by the vector's x, y, z; w is ignored.
  C3DPoint operator+(const C4DVector& h) const;
  C3DPoint operator*(float s) const { return {x * s, y * s, z * s}; }
  C3DPoint operator/(float s) const { return {x / s, y / s, z / s}; }
  C3DPoint& operator+=(const C3DPoint& p) {
    x += p.x;
    y += p.y;
    z += p.z;
    return *this;
  }
  C3DPoint& operator/=(float s) {
    x /= s;
    y /= s;
    z /= s;
    return *this;
  }
  // a*x + b*y + c*z + d: the signed distance to a plane with a unit normal.
  float operator*(const C4DVector& plane) const;
  float Mult(float a, float b, float c) const { return a * x + b * y + c * z; }

  float& operator[](int i) { return (&x)[i]; }
  const float& operator[](int i) const { return (&x)[i]; }
  float* ValPtr() { return &x; }
  const float* ValPtr() const { return &x; }

  // 1 when the point passes the bounding-box test of the triangle and the
  // first negative component of each edge cross product is the same.
  int IsInTriangle(const C3DPoint& a, const C3DPoint& b, const C3DPoint& c) const;
  // Procedural wave: x drives z, y drives x and the displaced z drives y.
  void NoisyWaveFunc(const C3DPoint& centre, const C3DVector& direction, float amplitude,
                     float frequency, float phase);
};

inline C3DVector::C3DVector(const C3DPoint& p) : x(p.x), y(p.y), z(p.z) {}
inline C3DVector::C3DVector(const C3DPoint& a, const C3DPoint& b)
    : x(b.x - a.x), y(b.y - a.y), z(b.z - a.z) {}
inline void C3DVector::InitFromPoint(const C3DPoint& p) {
  Init(p.x, p.y, p.z);
}
inline void C3DVector::InitFromPoints(const C3DPoint& a, const C3DPoint& b) {
  Init(b.x - a.x, b.y - a.y, b.z - a.z);
}

} // namespace meshcore

// The members taking a C4DVector are inline and defined with that class.
#include "meshcore/geometry/vector_4d.h"
