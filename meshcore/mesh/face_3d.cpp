#include "meshcore/mesh/face_3d.h"

#include "meshcore/geometry/point_4d.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_2d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/archive.h"

#include <cmath>
#include <vector>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C3DFace, CFace, 1)

namespace {

// The face's points that exist in info's point list, in corner order.
std::vector<const C3DPoint*> CornerPoints(const C3DFace& face, CGeomInfo* info) {
  std::vector<const C3DPoint*> pts;
  const C3DPointList* list = info ? info->Get3DPointList() : nullptr;
  if (!list)
    return pts;
  pts.reserve(static_cast<std::size_t>(face.GetSize()));
  for (int k = 0; k < face.GetSize(); ++k) {
    const int i = face[k];
    if (i >= 0 && i < list->GetSize())
      pts.push_back(&(*list)[i]);
  }
  return pts;
}

// Newell's sums with the sign reversed, not normalised (length: twice the area).
C3DVector NewellNormal(const std::vector<const C3DPoint*>& pts) {
  C3DVector n;
  const std::size_t count = pts.size();
  if (count < 3)
    return n;
  for (std::size_t k = 0; k < count; ++k) {
    const C3DPoint& a = *pts[k];
    const C3DPoint& b = *pts[k + 1 < count ? k + 1 : 0];
    n.x -= (a.y - b.y) * (a.z + b.z);
    n.y -= (a.z - b.z) * (a.x + b.x);
    n.z -= (a.x - b.x) * (a.y + b.y);
  }
  return n;
}

C3DPoint Center(const std::vector<const C3DPoint*>& pts) {
  C3DPoint c;
  if (pts.empty())
    return c;
  for (const C3DPoint* p : pts) {
    c.x += p->x;
    c.y += p->y;
    c.z += p->z;
  }
  const float n = static_cast<float>(pts.size());
  return C3DPoint(c.x / n, c.y / n, c.z / n);
}

} // namespace

void C3DFace::Serialize(CArchive& ar) {
  CFace::Serialize(ar);
  if (ar.IsStoring())
    ar << m_materialID;
  else
    ar >> m_materialID;
}

CFace& C3DFace::operator=(const CFace& f) {
  CFace::operator=(f);
  if (const auto* f3 = dynamic_cast<const C3DFace*>(&f))
    m_materialID = f3->m_materialID;
  return *this;
}

C3DFace& C3DFace::operator=(const C3DFace& f) {
  CFace::operator=(static_cast<const CFace&>(f));
  m_materialID = f.m_materialID;
  return *this;
}

void C3DFace::InheritFlags(const C3DFace& src) {
  CFace::InheritFlags(src);
  m_materialID = src.m_materialID;
}

void C3DFace::GetCenter(CGeomInfo* info, C3DPoint& center) const {
  const C3DPoint c = Center(CornerPoints(*this, info));
  center.x = c.x;
  center.y = c.y;
  center.z = c.z;
}

void C3DFace::GetCenter(CGeomInfo* info, C4DPoint& center) const {
  C3DPoint c;
  GetCenter(info, c);
  c.To4DPoint(center);
}

void C3DFace::GetNormal(CGeomInfo* info, C3DVector& normal) const {
  normal = NewellNormal(CornerPoints(*this, info));
  normal.Normalize();
}

void C3DFace::Get2DCoordinates(CGeomInfo* info, C2DPointList& out) const {
  const auto pts = CornerPoints(*this, info);
  out.SetSize(static_cast<int>(pts.size()), -1);
  if (pts.empty())
    return;
  C3DVector n = NewellNormal(pts);
  n.Normalize();
  const C3DPoint& p0 = *pts[0];
  C3DVector u = pts.size() > 1 ? C3DVector(p0, *pts[1]) : C3DVector();
  C3DVector v = u ^ n;
  u.Normalize();
  v.Normalize();
  for (std::size_t i = 0; i < pts.size(); ++i) {
    const C3DVector d(p0, *pts[i]);
    out[static_cast<int>(i)].x = d * u;
    out[static_cast<int>(i)].y = d * v;
  }
}

int C3DFace::GetPlane(CGeomInfo* info, C4DVector& plane) const {
  const auto pts = CornerPoints(*this, info);
  C3DVector n = NewellNormal(pts);
  n.Normalize();
  if (n.IsNull())
    return 0;
  const C3DPoint c = Center(pts);
  plane.x = n.x;
  plane.y = n.y;
  plane.z = n.z;
  plane.w = -(n.x * c.x + n.y * c.y + n.z * c.z);
  return 1;
}

int C3DFace::IsConvex(CGeomInfo* info) const {
  C2DPointList p2;
  Get2DCoordinates(info, p2);
  const int n = p2.GetSize();
  if (n < 3)
    return 0;
  int sign = 0;
  for (int i = 0; i < n; ++i) {
    const C2DPoint& a = p2[i];
    const C2DPoint& b = p2[(i + 1) % n];
    const C2DPoint& c = p2[(i + 2) % n];
    const double cross = (static_cast<double>(b.x) - a.x) * (static_cast<double>(c.y) - b.y) -
                         (static_cast<double>(b.y) - a.y) * (static_cast<double>(c.x) - b.x);
    const int s = cross > 0 ? 1 : cross < 0 ? -1 : 0;
    if (s == 0)
      continue;
    if (sign == 0)
      sign = s;
    else if (s != sign)
      return 0;
  }
  return 1;
}

int C3DFace::IsPlane(CGeomInfo* info, float tolerance) const {
  C4DVector plane;
  if (!GetPlane(info, plane))
    return 1; // collinear or empty: the corners lie in some plane

  for (const C3DPoint* p : CornerPoints(*this, info))
    if (std::fabs(plane.x * p->x + plane.y * p->y + plane.z * p->z + plane.w) > tolerance)
      return 0;
  return 1;
}

float C3DFace::GetCompacityFactor(CGeomInfo* info) const {
  const auto pts = CornerPoints(*this, info);
  if (pts.size() < 3)
    return 0.0f;
  const double area = 0.5 * NewellNormal(pts).Length();
  double perimeter = 0.0;
  for (std::size_t k = 0; k < pts.size(); ++k)
    perimeter += C3DVector(*pts[k], *pts[k + 1 < pts.size() ? k + 1 : 0]).Length();
  if (perimeter == 0.0)
    return 0.0f;
  return static_cast<float>(4.0 * 3.14159265358979323846 * area / (perimeter * perimeter));
}

int C3DFace::GetBoundingBox(CGeomInfo* info, C3DPoint& min, C3DPoint& max) const {
  const auto pts = CornerPoints(*this, info);
  if (pts.empty())
    return 0;
  C3DPoint lo = *pts[0], hi = *pts[0];
  for (const C3DPoint* p : pts)
    for (int a = 0; a < 3; ++a) {
      if ((*p)[a] < lo[a])
        lo[a] = (*p)[a];
      if ((*p)[a] > hi[a])
        hi[a] = (*p)[a];
    }
  min.x = lo.x;
  min.y = lo.y;
  min.z = lo.z;
  max.x = hi.x;
  max.y = hi.y;
  max.z = hi.z;
  return 1;
}

} // namespace meshcore
