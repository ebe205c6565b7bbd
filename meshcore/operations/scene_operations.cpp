#include "meshcore/operations/scene_operations.h"

#include "meshcore/operations/subdivide.h"
#include "meshcore/operations/triangulate.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/patch_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <unordered_set>

namespace meshcore {

namespace {

// Calls f once for every distinct object of the given kinds, in tree order.
template <class F> void ForEachObject(C3DScene& scene, unsigned kinds, F f) {
  std::unordered_set<const C3DBaseObject*> seen; // membership only, never iterated
  C3DSceneNode* cursor = scene.GetFirstNode(nullptr);
  while (cursor) {
    const C3DBaseObject* unused = nullptr;
    C3DSceneNode* node = scene.GetNextNode(unused, cursor, nullptr);
    C3DBaseObject* object = node ? node->GetBaseObject() : nullptr;
    if (!object || !(object->GetKindOf() & kinds) || !seen.insert(object).second)
      continue;
    f(*object);
  }
}

} // namespace

int WeldScene(C3DScene& scene, float tolerance, CWeldReport& report) {
  report = CWeldReport();
  ForEachObject(scene, OBJECT_POLYGONAL | OBJECT_PATCH, [&](C3DBaseObject& object) {
    int points = 0, faces = 0;
    object.Weld3DPoints(tolerance, points, faces);
    if (points || faces)
      ++report.objects;
    report.points += points;
    report.faces += faces;
  });
  return report.objects;
}

int TriangulateScene(C3DScene& scene, CTriangulateReport& report) {
  report = CTriangulateReport();
  ForEachObject(scene, OBJECT_POLYGONAL | OBJECT_PATCH, [&](C3DBaseObject& object) {
    CTriangulateStats stats;
    if (TriangulateObject(object, FACE_NONE, 1, &stats) > 0)
      ++report.objects;
    report.faces += stats.faces;
    report.triangles += stats.triangles;
    report.fans += stats.fans;
  });
  return report.objects;
}

int SubdivideScene(C3DScene& scene, int level, int everyMesh, CSubdivideReport& report) {
  report = CSubdivideReport();
  level = std::clamp(level, 0, kMaxPatchLevel);
  const unsigned kinds = OBJECT_PATCH | (everyMesh ? OBJECT_POLYGONAL : 0u);
  ForEachObject(scene, kinds, [&](C3DBaseObject& object) {
    const int before = object.GetFaceNbr();
    if (object.GetKindOf() == OBJECT_PATCH)
      static_cast<C3DPatch&>(object).SetLevel(level); // keeps the control mesh
    else
      SubdivideObject(object, level);
    const int after = object.GetFaceNbr();
    if (after != before || level > 0) {
      ++report.objects;
      report.facesBefore += before;
      report.facesAfter += after;
    }
  });
  return report.objects;
}

} // namespace meshcore
