#include "meshcore/mesh/face_list_3d.h"

#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_3d.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C3DFaceList, CFaceList, 1)

CFaceList& C3DFaceList::operator=(const CFaceList& src) {
  CFaceList::operator=(src);
  DeleteMaterialsHash();
  return *this;
}

int C3DFaceList::UpdateList(CGeomInfo* info) {
  if (IsFlagSet(FL_CHANGED) && m_materialsHashBuilt)
    CreateMaterialsHash();
  return CFaceList::UpdateList(info);
}

void C3DFaceList::CreateMaterialsHash() {
  m_materialsHash.MakeEmpty();
  for (int i = 0; i < GetSize(); ++i)
    m_materialsHash.Insert(ElementAt(i).GetMaterialID());
  m_materialsHashBuilt = 1;
}

CHashUInt* C3DFaceList::GetMaterialsHash(CGeomInfo* info) {
  UpdateList(info);
  if (!m_materialsHashBuilt)
    CreateMaterialsHash();
  return &m_materialsHash;
}

void C3DFaceList::DeleteMaterialsHash() {
  m_materialsHash.MakeEmpty();
  m_materialsHashBuilt = 0;
}

int* C3DFaceList::SortByMaterial() const {
  const int n = GetSize();
  if (n == 0)
    return nullptr;
  std::vector<std::pair<std::uint32_t, int>> keyed(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i)
    keyed[static_cast<std::size_t>(i)] = {ElementAt(i).GetMaterialID(), i};
  std::sort(keyed.begin(), keyed.end());
  int* order = new int[static_cast<std::size_t>(n)];
  for (int i = 0; i < n; ++i)
    order[i] = keyed[static_cast<std::size_t>(i)].second;
  return order;
}

int C3DFaceList::GetBoundingBox(CGeomInfo* info, C3DPoint& min, C3DPoint& max) const {
  const C3DPointList* points = info ? info->Get3DPointList() : nullptr;
  if (!points)
    return 0;
  bool any = false;
  C3DPoint lo, hi;
  for (int f = 0; f < GetSize(); ++f) {
    const C3DFace& face = ElementAt(f);
    if (face.IsFlagSet(FACE_INVALID))
      continue;
    for (int k = 0; k < face.GetSize(); ++k) {
      const int i = face[k];
      if (i < 0 || i >= points->GetSize())
        continue;
      const C3DPoint& p = (*points)[i];
      if (!any) {
        lo = p;
        hi = p;
        any = true;
        continue;
      }
      for (int a = 0; a < 3; ++a) {
        lo[a] = std::min(lo[a], p[a]);
        hi[a] = std::max(hi[a], p[a]);
      }
    }
  }
  if (!any)
    return 0;
  min.x = lo.x;
  min.y = lo.y;
  min.z = lo.z;
  max.x = hi.x;
  max.y = hi.y;
  max.z = hi.z;
  return 1;
}

} // namespace meshcore
