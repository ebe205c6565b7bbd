#include "meshcore/geometry/quaternion.h"

#include "meshcore/geometry/matrix_4x4.h"

#include <cmath>

namespace meshcore {

CQuaternion::CQuaternion(float a, float b, float c) {
  SetAxisAngle(C3DVector(0.0f, 0.0f, 1.0f), -c);
  *this *= CQuaternion(C3DVector(1.0f, 0.0f, 0.0f), -b);
  *this *= CQuaternion(C3DVector(0.0f, 1.0f, 0.0f), -a);
}

CQuaternion& CQuaternion::operator=(const C4x4Matrix& mat) {
  const float(*m)[4] = mat.m;
  double t = static_cast<double>(m[0][0]) + m[1][1] + m[2][2];
  if (t > 0.0) {
    double s = std::sqrt(t + 1.0);
    w = static_cast<float>(s / 2.0);
    s = 0.5 / s;
    x = static_cast<float>((m[1][2] - m[2][1]) * s);
    y = static_cast<float>((m[2][0] - m[0][2]) * s);
    z = static_cast<float>((m[0][1] - m[1][0]) * s);
    return *this;
  }
  // Start from the largest diagonal element for a well-conditioned root.
  int i = 0;
  if (m[1][1] > m[0][0])
    i = 1;
  if (m[2][2] > m[i][i])
    i = 2;
  const int j = (i + 1) % 3, k = (j + 1) % 3;
  double s = std::sqrt(static_cast<double>(m[i][i]) - (m[j][j] + m[k][k]) + 1.0);
  (*this)[i] = static_cast<float>(s / 2.0);
  if (s != 0.0)
    s = 0.5 / s;
  (*this)[j] = static_cast<float>((m[i][j] + m[j][i]) * s);
  (*this)[k] = static_cast<float>((m[i][k] + m[k][i]) * s);
  w = static_cast<float>((m[j][k] - m[k][j]) * s);
  return *this;
}

void CQuaternion::SetAxisAngle(const C3DVector& axis, float angle) {
  float h = angle / 2.0f;
  float s = std::sin(h);
  x = s * axis.x;
  y = s * axis.y;
  z = s * axis.z;
  w = std::cos(h);
}

void CQuaternion::GetAxisAngle(C3DVector& axis, float& angle) const {
  float a = std::acos(w);
  float s = std::sin(a);
  axis.Init(x / s, y / s, z / s);
  angle = 2.0f * a;
}

CQuaternion CQuaternion::operator*(const CQuaternion& q) const {
  // Eight multiplications instead of sixteen, in double so that chains of
  // rotations drift less.
  const double x1 = x, y1 = y, z1 = z, w1 = w;
  const double x2 = q.x, y2 = q.y, z2 = q.z, w2 = q.w;
  const double a = (w1 + x1) * (w2 + x2);
  const double b = (z1 - y1) * (y2 - z2);
  const double c = (w1 - x1) * (y2 + z2);
  const double d = (y1 + z1) * (w2 - x2);
  const double e = (x1 + z1) * (x2 + y2);
  const double f = (x1 - z1) * (x2 - y2);
  const double g = (w1 + y1) * (w2 - z2);
  const double h = (w1 - y1) * (w2 + z2);
  return {static_cast<float>(a - (e + f + g + h) / 2.0),
          static_cast<float>(c + (e - f + g - h) / 2.0),
          static_cast<float>(d + (e - f - g + h) / 2.0),
          static_cast<float>(b + (-e - f + g + h) / 2.0)};
}

} // namespace meshcore
