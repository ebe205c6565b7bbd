#pragma once
// Rotations for animation and scene import.

#include "meshcore/geometry/vector_3d.h"

namespace meshcore {

class C4x4Matrix;

class CQuaternion {
public:
  float x, y, z, w;

  // Components deliberately left unset.
  CQuaternion() {}
  explicit CQuaternion(const float* q) : x(q[0]), y(q[1]), z(q[2]), w(q[3]) {}
  CQuaternion(float px, float py, float pz, float pw) : x(px), y(py), z(pz), w(pw) {}
  CQuaternion(const C3DVector& axis, float angle) { SetAxisAngle(axis, angle); }
  // Euler angles: turns by -c about z, then -b about x, then -a about y, in
  // the product order that scene files written by our peers expect.
  CQuaternion(float a, float b, float c);

  CQuaternion& operator=(const CQuaternion& q) = default;
  CQuaternion(const CQuaternion& q) = default;
  // The vector part only; w is kept.
  CQuaternion& operator=(const C3DVector& v) {
    x = v.x;
    y = v.y;
    z = v.z;
    return *this;
  }
  // The rotation part of m, read with the transposed convention of
  // C4x4Matrix::InitRotation (so a matrix made from q gives back q's conjugate).
  CQuaternion& operator=(const C4x4Matrix& m);

  // The axis is used as given: a non-unit axis makes a non-unit quaternion.
  void SetAxisAngle(const C3DVector& axis, float angle);
  // Undefined for w = 1 or -1 (sin of the half angle is 0).
  void GetAxisAngle(C3DVector& axis, float& angle) const;

  // Hamilton product this * q.
  CQuaternion operator*(const CQuaternion& q) const;
  CQuaternion& operator*=(const CQuaternion& q) { return *this = *this * q; }
  CQuaternion operator*(float s) const { return {x * s, y * s, z * s, w * s}; }
  CQuaternion operator/(float s) const { return {x / s, y / s, z / s, w / s}; }

  // Applies r after the rotation already held: this = r * this.
  void Rotate(const CQuaternion& r) { *this = r * *this; }
  void Rotate(const C3DVector& axis, float angle) { Rotate(CQuaternion(axis, angle)); }

  float& operator[](int i) { return (&x)[i]; }
  const float& operator[](int i) const { return (&x)[i]; }
};

inline C3DVector::C3DVector(const CQuaternion& q) : x(q.x), y(q.y), z(q.z) {}

} // namespace meshcore
