#include "meshcore/geometry/point_3d.h"

#include "meshcore/platform/archive.h"

#include <algorithm>
#include <cmath>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C3DPoint, CPt, 1)

void C3DPoint::Serialize(CArchive& ar) {
  CPt::Serialize(ar);
  if (ar.IsStoring())
    ar << x << y << z;
  else
    ar >> x >> y >> z;
}

namespace {

// Which component of an edge cross product is negative first: a coarse
// orientation code that callers compare edge by edge.
int SignCode(const C3DPoint& c) {
  if (c.x < 0.0f)
    return 4;
  if (c.y < 0.0f)
    return 2;
  if (c.z < 0.0f)
    return 1;
  return 0;
}

int EdgeCode(const C3DPoint& from, const C3DPoint& to, const C3DPoint& p) {
  C3DPoint cross;
  cross = C3DVector(from, to) ^ C3DVector(from, p);
  return SignCode(cross);
}

} // namespace

int C3DPoint::IsInTriangle(const C3DPoint& a, const C3DPoint& b, const C3DPoint& c) const {
  for (int i = 0; i < 3; ++i) {
    float v = (*this)[i];
    if (v > std::max({a[i], b[i], c[i]}) || v < std::min({a[i], b[i], c[i]}))
      return 0;
  }
  int ab = EdgeCode(a, b, *this);
  int bc = EdgeCode(b, c, *this);
  int ca = EdgeCode(c, a, *this);
  return ab == bc && bc == ca ? 1 : 0;
}

void C3DPoint::NoisyWaveFunc(const C3DPoint& centre, const C3DVector& direction, float amplitude,
                             float frequency, float phase) {
  const float kTwoPi = 6.2831855f;
  float h = direction.Length() * amplitude;
  if (direction.x != 0.0f)
    z += h * std::sin(((x - centre.x) * frequency / direction.x + phase) * kTwoPi);
  if (direction.y != 0.0f)
    x += h * std::sin(((y - centre.y) * frequency / direction.y + phase) * kTwoPi);
  if (direction.z != 0.0f)
    y += h * std::sin(((z - centre.z) * frequency / direction.z + phase) * kTwoPi);
}

} // namespace meshcore
