#include "meshcore/mesh/point_list_3d.h"

#include "meshcore/containers/int_array_id.h"
#include "meshcore/containers/next_prime.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/geom_info.h"

#include <vector>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C3DPointList, CPointList, 1)

C3DPointList::~C3DPointList() {
  DeletePointMaterialGraph();
}

CPointList& C3DPointList::operator=(const CPointList& src) {
  CPointList::operator=(src);
  DeletePointMaterialGraph();
  return *this;
}

int C3DPointList::UpdateList(CGeomInfo* info) {
  const int changed = CPointList::UpdateList(info);
  if (changed && m_materialGraphBuilt)
    CreatePointMaterialGraph(info);
  return changed;
}

void C3DPointList::GetBoundingBox(C3DPoint& min, C3DPoint& max, _POINT_PROPERTIES flag,
                                  int set) const {
  if (GetSize() == 0)
    return;
  min = C3DPoint();
  max = C3DPoint();
  bool first = true;
  for (int i = 0; i < GetSize(); ++i) {
    const C3DPoint& p = ElementAt(i);
    if (p.IsFlagSet(flag) != (set != 0))
      continue;
    if (first) {
      min = p;
      max = p;
      first = false;
      continue;
    }
    for (int a = 0; a < 3; ++a) {
      if (p[a] < min[a])
        min[a] = p[a];
      if (p[a] > max[a])
        max[a] = p[a];
    }
  }
}

C3DPoint C3DPointList::GetCenterOfBoudingBox() const {
  C3DPoint min, max;
  GetBoundingBox(min, max, PT_NONE, 1);
  return (min + max) / 2.0f;
}

void C3DPointList::MatrixTransform(const C4x4Matrix& m) {
  if (m.IsIdentity())
    return;
  for (int i = 0; i < GetSize(); ++i) {
    C3DPoint& p = ElementAt(i);
    p = p * m;
  }
}

void C3DPointList::NoisyWaveFunc(const C3DPoint& centre, const C3DVector& direction,
                                 float amplitude, float frequency, float phase,
                                 _POINT_PROPERTIES flag, int set) {
  for (int i = 0; i < GetSize(); ++i) {
    C3DPoint& p = ElementAt(i);
    if (p.IsFlagSet(flag) == (set == 1) && (set == 0 || set == 1))
      p.NoisyWaveFunc(centre, direction, amplitude, frequency, phase);
  }
}

void C3DPointList::SetInvalidPoints(C3DFaceList& faces) {
  CGeomInfo info(&faces, this);
  faces.InitPointToFaceGraph(&info);
  const int graphSize = faces.GetPointToFaceGraphSize();
  for (int i = 0; i < GetSize(); ++i) {
    bool alive = false;
    if (i < graphSize) {
      int count = 0;
      const int* f = faces.GetFacesConnectedToPoint(i, count);
      for (int k = 0; k < count && !alive; ++k)
        alive = !faces[f[k]].IsFlagSet(FACE_INVALID);
    }
    if (!alive)
      ElementAt(i).SetFlag(PT_INVALID, 1);
  }
}

void C3DPointList::InitPointMaterialGraph(CGeomInfo* info) {
  UpdateList(info);
  if (!m_materialGraphBuilt)
    CreatePointMaterialGraph(info);
}

void C3DPointList::DeletePointMaterialGraph() {
  m_pointMaterials.RemoveAll();
  m_materialGraphBuilt = 0;
}

int C3DPointList::GetNumberOfMaterialsConnectedToPoint(int i) const {
  const CHashUInt* set = GetMaterialsConnectedToPoint(i);
  return set ? set->GetCount() : 1;
}

const CHashUInt* C3DPointList::GetMaterialsConnectedToPoint(int i) const {
  const auto* p = m_pointMaterials.PLookup(i);
  return p ? p->get() : nullptr;
}

void C3DPointList::CreatePointMaterialGraph(CGeomInfo* info) {
  DeletePointMaterialGraph();
  m_materialGraphBuilt = 1;
  C3DFaceList* faces = info ? info->Get3DFaceList() : nullptr;
  if (!faces || faces->GetSize() == 0)
    return;
  // Most points see one material: remember the first id per point and give a
  // set only to the points where a second one shows up. Points enter the graph
  // in the order their second material is met.
  const int n = GetSize();
  std::vector<std::uint32_t> firstID(static_cast<std::size_t>(n));
  std::vector<unsigned char> seen(static_cast<std::size_t>(n), 0);
  for (int f = 0; f < faces->GetSize(); ++f) {
    const C3DFace& face = (*faces)[f];
    const std::uint32_t id = face.GetMaterialID();
    for (int k = 0; k < face.GetSize(); ++k) {
      const int p = face[k];
      if (p < 0 || p >= n)
        continue;
      const auto pi = static_cast<std::size_t>(p);
      if (!seen[pi]) {
        seen[pi] = 1;
        firstID[pi] = id;
      } else if (id != firstID[pi] || seen[pi] == 2) {
        auto& set = m_pointMaterials[p];
        if (!set) {
          set = std::make_unique<CHashUInt>();
          set->Insert(firstID[pi]);
          seen[pi] = 2;
        }
        set->Insert(id);
      }
    }
  }
}

} // namespace meshcore
