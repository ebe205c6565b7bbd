#include "meshcore/operations/weld.h"

#include "meshcore/containers/hash_table.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/proximity.h"
#include "meshcore/scene/base_object.h"

#include <memory>
#include <vector>

namespace meshcore {

int Weld3DPoints(C3DBaseObject& object, float tolerance, int& removedPoints, int& removedFaces) {
  removedPoints = 0;
  removedFaces = 0;
  C3DPointList* points = object.GetPointList();
  C3DFaceList* faces = object.GetFaceList();
  if (!points || !faces || points->GetSize() == 0)
    return 0;
  const int p0 = object.GetPointNbr();
  const int f0 = object.GetFaceNbr();

  std::unique_ptr<CProximityResult> result;
  {
    CProximityMap* map = InitProximityMap(*points, tolerance);
    result.reset(Get3DProximityPoints(*points, map));
    DeleteProximityMap(*points, map);
  }

  CGeomInfo info(&object);
  faces->InitPointToFaceGraph(&info);
  const int n = points->GetSize();
  std::vector<char> visited(static_cast<std::size_t>(n), 0);
  std::vector<int> stack;
  int changed = 0;

  for (int pos = result->GetFirst(); pos >= 0;) {
    int p = 0;
    CProximityResult::Set* unused = nullptr;
    result->GetNext(pos, p, unused);
    if (p < 0 || p >= n || visited[static_cast<std::size_t>(p)])
      continue;
    // The cluster is p's connected component; p represents it.
    CHashTable<int> members;
    visited[static_cast<std::size_t>(p)] = 1;
    stack.push_back(p);
    while (!stack.empty()) {
      const int q = stack.back();
      stack.pop_back();
      const CProximityResult::Set* around = result->GetSet(q);
      if (!around)
        continue;
      for (int it = around->GetFirst(); it >= 0;) {
        int j = 0;
        around->GetNext(it, j);
        members.Insert(j);
        if (j >= 0 && j < n && !visited[static_cast<std::size_t>(j)]) {
          visited[static_cast<std::size_t>(j)] = 1;
          stack.push_back(j);
        }
      }
    }
    members.Remove(p);
    for (int it = members.GetFirst(); it >= 0;) {
      int m = 0;
      members.GetNext(it, m);
      if (faces->ReplaceIndex(&info, m, p))
        changed = 1;
    }
  }

  if (changed)
    object.Clean();
  removedPoints = p0 - object.GetPointNbr();
  removedFaces = f0 - object.GetFaceNbr();
  return 0;
}

} // namespace meshcore
