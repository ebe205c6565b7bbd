#include "meshcore/geometry/matrix_4x4.h"

#include "meshcore/platform/archive.h"

#include <cmath>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C4x4Matrix, CObject, 1)

namespace {

template <class T> void LoadRows(float (&m)[4][4], const T* a) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      m[r][c] = static_cast<float>(a[r * 4 + c]);
}

template <class T> void LoadColumns(float (&m)[4][4], const T* a) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      m[r][c] = static_cast<float>(a[c * 4 + r]);
}

} // namespace

C4x4Matrix::C4x4Matrix(const float* a, int flag) {
  if (flag)
    LoadColumns(m, a);
  else
    LoadRows(m, a);
}

C4x4Matrix::C4x4Matrix(const double* a, int flag) {
  if (flag)
    LoadRows(m, a);
  else
    LoadColumns(m, a);
}

void C4x4Matrix::CopyFrom(const C4x4Matrix& o) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      m[r][c] = o.m[r][c];
}

C4x4Matrix& C4x4Matrix::operator=(const CQuaternion& q) {
  const float x = q.x, y = q.y, z = q.z, w = q.w;
  m[0][0] = 1.0f - 2.0f * (y * y + z * z);
  m[0][1] = 2.0f * (x * y - w * z);
  m[0][2] = 2.0f * (x * z + w * y);
  m[1][0] = 2.0f * (x * y + w * z);
  m[1][1] = 1.0f - 2.0f * (x * x + z * z);
  m[1][2] = 2.0f * (y * z - w * x);
  m[2][0] = 2.0f * (x * z - w * y);
  m[2][1] = 2.0f * (y * z + w * x);
  m[2][2] = 1.0f - 2.0f * (x * x + y * y);
  m[0][3] = m[1][3] = m[2][3] = 0.0f;
  m[3][0] = m[3][1] = m[3][2] = 0.0f;
  m[3][3] = 1.0f;
  return *this;
}

void C4x4Matrix::Serialize(CArchive& ar) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) {
      if (ar.IsStoring())
        ar << m[r][c];
      else
        ar >> m[r][c];
    }
}

void C4x4Matrix::LoadMatrix(const float* a) {
  LoadRows(m, a);
}
void C4x4Matrix::LoadMatrix(const double* a) {
  LoadRows(m, a);
}

void C4x4Matrix::SaveMatrix(float* a) const {
  for (int i = 0; i < 16; ++i)
    a[i] = m[i / 4][i % 4];
}

void C4x4Matrix::SaveMatrix(double* a) const {
  for (int i = 0; i < 16; ++i)
    a[i] = m[i / 4][i % 4];
}

void C4x4Matrix::Init() {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      m[r][c] = r == c ? 1.0f : 0.0f;
}

void C4x4Matrix::InitTranslation(float x, float y, float z) {
  m[0][3] = x;
  m[1][3] = y;
  m[2][3] = z;
  m[3][3] = 1.0f;
}

void C4x4Matrix::InitScale(float x, float y, float z) {
  m[0][0] = x;
  m[1][1] = y;
  m[2][2] = z;
}

void C4x4Matrix::InitRotation(float angle, float x, float y, float z) {
  float len = std::sqrt(x * x + y * y + z * z);
  float a = x / len, b = y / len, c = z / len;
  float c1 = std::cos(angle), s = std::sin(angle);
  float t = 1.0f - c1;
  m[0][0] = a * a + (1.0f - a * a) * c1;
  m[0][1] = a * b * t + c * s;
  m[0][2] = a * c * t - b * s;
  m[1][0] = a * b * t - c * s;
  m[1][1] = b * b + (1.0f - b * b) * c1;
  m[1][2] = b * c * t + a * s;
  m[2][0] = a * c * t + b * s;
  m[2][1] = b * c * t - a * s;
  m[2][2] = c * c + (1.0f - c * c) * c1;
  m[0][3] = m[1][3] = m[2][3] = 0.0f;
  m[3][0] = m[3][1] = m[3][2] = 0.0f;
  m[3][3] = 1.0f;
}

void C4x4Matrix::Scale(float x, float y, float z) {
  for (int r = 0; r < 4; ++r) {
    m[r][0] *= x;
    m[r][1] *= y;
    m[r][2] *= z;
  }
}

void C4x4Matrix::Rotate(float angle, float x, float y, float z) {
  if (x == 0.0f && y == 0.0f && z == 0.0f)
    return;
  C4x4Matrix r;
  r.InitRotation(angle, x, y, z);
  *this = *this * r;
}

void C4x4Matrix::Transpose() {
  for (int i = 0; i < 4; ++i)
    for (int j = i + 1; j < 4; ++j) {
      float t = m[i][j];
      m[i][j] = m[j][i];
      m[j][i] = t;
    }
}

void C4x4Matrix::Transpose(C4x4Matrix& out) const {
  for (int i = 0; i < 3; ++i)
    for (int j = i; j < 4; ++j)
      out.m[j][i] = m[i][j];
}

C4x4Matrix C4x4Matrix::operator*(const C4x4Matrix& b) const {
  C4x4Matrix p;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      p.m[r][c] =
          m[r][0] * b.m[0][c] + m[r][1] * b.m[1][c] + m[r][2] * b.m[2][c] + m[r][3] * b.m[3][c];
  return p;
}

C4x4Matrix& C4x4Matrix::operator+=(const C4x4Matrix& b) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      m[r][c] += b.m[r][c];
  return *this;
}

C4x4Matrix& C4x4Matrix::operator-=(const C4x4Matrix& b) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      m[r][c] -= b.m[r][c];
  return *this;
}

C4x4Matrix& C4x4Matrix::operator*=(float s) {
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 4; ++c)
      m[r][c] *= s;
  return *this;
}

bool C4x4Matrix::operator==(const C4x4Matrix& b) const {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      if (!(m[r][c] == b.m[r][c]))
        return false;
  return true;
}

bool C4x4Matrix::IsIdentity() const {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) {
      float v = m[r][c];
      bool ok = r == c ? (v >= 0.995f && v <= 1.005f) : (v >= -0.005f && v <= 0.005f);
      if (!ok)
        return false;
    }
  return true;
}

int C4x4Matrix::Inverse(C4x4Matrix& out) const {
  // Positive and negative terms of the determinant are summed apart so that
  // the singularity test is relative to the matrix's own scale.
  double pos = 0.0, neg = 0.0;
  auto add = [&](float t) {
    if (t >= 0.0f)
      pos += t;
    else
      neg += t;
  };
  add(m[0][0] * m[1][1] * m[2][2]);
  add(m[0][1] * m[1][2] * m[2][0]);
  add(m[0][2] * m[1][0] * m[2][1]);
  add(-m[0][2] * m[1][1] * m[2][0]);
  add(-m[0][1] * m[1][0] * m[2][2]);
  add(-m[0][0] * m[1][2] * m[2][1]);
  double det = pos + neg;
  const double kPrecisionLimit = static_cast<double>(1.0e-15f);
  if (det == 0.0 || std::fabs(det / (pos - neg)) < kPrecisionLimit)
    return 0;

  float d = 1.0f / static_cast<float>(det);
  float r[3][3];
  r[0][0] = (m[1][1] * m[2][2] - m[1][2] * m[2][1]) * d;
  r[0][1] = -(m[0][1] * m[2][2] - m[0][2] * m[2][1]) * d;
  r[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) * d;
  r[1][0] = -(m[1][0] * m[2][2] - m[1][2] * m[2][0]) * d;
  r[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) * d;
  r[1][2] = -(m[0][0] * m[1][2] - m[0][2] * m[1][0]) * d;
  r[2][0] = (m[1][0] * m[2][1] - m[1][1] * m[2][0]) * d;
  r[2][1] = -(m[0][0] * m[2][1] - m[0][1] * m[2][0]) * d;
  r[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) * d;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j)
      out.m[i][j] = r[i][j];
    out.m[i][3] = -(r[i][0] * m[0][3] + r[i][1] * m[1][3] + r[i][2] * m[2][3]);
  }
  out.m[3][0] = out.m[3][1] = out.m[3][2] = 0.0f;
  out.m[3][3] = 1.0f;
  return 1;
}

} // namespace meshcore
