#pragma once
// The library's transform: row-major floats acting on column vectors, with the
// translation in the fourth column.

#include "meshcore/geometry/point_3d.h"
#include "meshcore/geometry/quaternion.h"
#include "meshcore/geometry/vector_3d.h"
#include "meshcore/geometry/vector_4d.h"
#include "meshcore/platform/object.h"

namespace meshcore {

class C4x4Matrix : public CObject {
  MESHCORE_DECLARE_SERIAL(C4x4Matrix)

public:
  float m[4][4];

  // Elements deliberately left unset.
  C4x4Matrix() {}
  // Identity when non-zero, else unset.
  explicit C4x4Matrix(int identity) {
    if (identity)
      Init();
  }
  // Row-major when flag is 0, column-major (transposed on loading) otherwise.
  C4x4Matrix(const float* a, int flag);
  // The opposite sense to the float form: row-major when flag is non-zero,
  // column-major when 0. Callers of both forms rely on this reversal.
  C4x4Matrix(const double* a, int flag);
  explicit C4x4Matrix(const CQuaternion& q) { *this = q; }
  C4x4Matrix(const C4x4Matrix& o) : CObject() { CopyFrom(o); }

  virtual C4x4Matrix& operator=(const C4x4Matrix& o) {
    CopyFrom(o);
    return *this;
  }
  // The textbook rotation matrix of q, without normalising q.
  C4x4Matrix& operator=(const CQuaternion& q);
  C4x4Matrix& operator=(const float* a) {
    LoadMatrix(a);
    return *this;
  }

  void Serialize(CArchive& ar) override;

  float& operator()(int r, int c) { return m[r][c]; }
  const float& operator()(int r, int c) const { return m[r][c]; }
  operator float*() { return &m[0][0]; }
  operator const float*() const { return &m[0][0]; }

  // Sixteen values row-major, no transposition.
  void LoadMatrix(const float* a);
  void LoadMatrix(const double* a);
  void SaveMatrix(float* a) const;
  void SaveMatrix(double* a) const;

  void Init();
  // Sets the translation column and m[3][3]; everything else is kept.
  void InitTranslation(float x, float y, float z);
  // Sets the first three diagonal elements only.
  void InitScale(float x, float y, float z);
  // A rotation about (x, y, z), normalised without a zero test. The sine terms
  // have the transposed signs: column vectors turn by minus the angle.
  void InitRotation(float angle, float x, float y, float z);
  void Translate(float x, float y, float z) {
    m[0][3] += x;
    m[1][3] += y;
    m[2][3] += z;
  }
  // this = this * diag(x, y, z, 1).
  void Scale(float x, float y, float z);
  // this = this * rotation; a zero axis leaves the matrix unchanged.
  void Rotate(float angle, float x, float y, float z);

  void GetTranslation(C3DVector& t) const { t.Init(m[0][3], m[1][3], m[2][3]); }
  C3DVector GetRow(int i) const { return {m[i][0], m[i][1], m[i][2]}; }
  void SetRow(int i, const C3DVector& v) {
    m[i][0] = v.x;
    m[i][1] = v.y;
    m[i][2] = v.z;
  }

  void Transpose();
  // Writes only out[j][i] = m[i][j] for i < 3, j >= i: the elements of out
  // above the diagonal and out[3][3] keep their values. Use the in-place form
  // on a copy for a full transpose.
  void Transpose(C4x4Matrix& out) const;

  C4x4Matrix operator*(const C4x4Matrix& b) const;
  C4x4Matrix& operator*=(const C4x4Matrix& b) { return *this = *this * b; }
  C4x4Matrix& operator+=(const C4x4Matrix& b);
  C4x4Matrix& operator-=(const C4x4Matrix& b);
  // Scales the first three rows only; the projective row is left alone.
  C4x4Matrix& operator*=(float s);

  C4DVector operator*(const C4DVector& v) const {
    C4DVector r;
    r.x = m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z + m[0][3] * v.w;
    r.y = m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z + m[1][3] * v.w;
    r.z = m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z + m[2][3] * v.w;
    r.w = m[3][0] * v.x + m[3][1] * v.y + m[3][2] * v.z + m[3][3] * v.w;
    return r;
  }
  // this * (x, y, z, 1), fourth component included, no division.
  C4DVector Mult(float x, float y, float z) const {
    C4DVector r;
    r.x = m[0][0] * x + m[0][1] * y + m[0][2] * z + m[0][3];
    r.y = m[1][0] * x + m[1][1] * y + m[1][2] * z + m[1][3];
    r.z = m[2][0] * x + m[2][1] * y + m[2][2] * z + m[2][3];
    r.w = m[3][0] * x + m[3][1] * y + m[3][2] * z + m[3][3];
    return r;
  }
  // The homogeneous divide is applied to the input before the transform, not
  // to the result; stored scenes depend on it.
  C3DVector operator*(const C3DVector& v) const {
    float x = v.x, y = v.y, z = v.z;
    float w = m[3][0] * x + m[3][1] * y + m[3][2] * z + m[3][3];
    if (w != 0.0f && w != 1.0f) {
      x /= w;
      y /= w;
      z /= w;
    }
    return {m[0][0] * x + m[0][1] * y + m[0][2] * z + m[0][3],
            m[1][0] * x + m[1][1] * y + m[1][2] * z + m[1][3],
            m[2][0] * x + m[2][1] * y + m[2][2] * z + m[2][3]};
  }

  // Exact; a NaN element makes the matrices unequal.
  bool operator==(const C4x4Matrix& b) const;
  bool operator!=(const C4x4Matrix& b) const { return !(*this == b); }
  // Identity within 0.005 on every element, bounds included.
  bool IsIdentity() const;
  // Affine inverse (the fourth row of out is always (0, 0, 0, 1)). Returns 0
  // and leaves out untouched when the upper 3x3 is singular.
  int Inverse(C4x4Matrix& out) const;

private:
  void CopyFrom(const C4x4Matrix& o);
};

// The upper three rows applied to (x, y, z, 1); no projective divide. The
// result has no flags.
inline C3DPoint operator*(const C3DPoint& p, const C4x4Matrix& mat) {
  const float(*m)[4] = mat.m;
  return {m[0][0] * p.x + m[0][1] * p.y + m[0][2] * p.z + m[0][3],
          m[1][0] * p.x + m[1][1] * p.y + m[1][2] * p.z + m[1][3],
          m[2][0] * p.x + m[2][1] * p.y + m[2][2] * p.z + m[2][3]};
}

} // namespace meshcore
