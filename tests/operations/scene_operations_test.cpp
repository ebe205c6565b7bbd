#include "meshcore/operations/scene_operations.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/patch_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"
#include "tests/support/mesh_fixtures.h"

#include <gtest/gtest.h>

namespace meshcore {
namespace {

// Two quads stored with separate corners, sharing an edge.
std::unique_ptr<C3DObject> LooseQuads() {
  return test::MakeMesh(
      {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {1, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1, 1, 0}},
      {{0, 1, 2, 3}, {4, 5, 6, 7}});
}

TEST(SceneOperations, EachObjectOnceAndCountsReported) {
  C3DScene scene;
  auto* shared = new C3DSceneNode(LooseQuads().release(), 0);
  scene.AddNode(nullptr, shared);
  // A clone shows the same object: it must not be welded twice.
  scene.AddNode(nullptr, static_cast<C3DSceneNode*>(shared->Clone()));
  auto* patch = new C3DPatch;
  {
    auto quads = LooseQuads();
    patch->SetPointList(new C3DPointList);
    patch->SetFaceList(new C3DFaceList);
    patch->Concatenate(quads.get(), 1);
  }
  scene.AddNode(nullptr, new C3DSceneNode(patch, 0));
  scene.AddNode(nullptr, new C3DSceneNode(new C3DGroup, 0));

  CWeldReport weld;
  EXPECT_EQ(WeldScene(scene, 0.001f, weld), 2);
  EXPECT_EQ(weld.points, 4);
  EXPECT_EQ(weld.faces, 0);
  EXPECT_EQ(shared->GetBaseObject()->GetPointNbr(), 6);

  CTriangulateReport tri;
  EXPECT_EQ(TriangulateScene(scene, tri), 2);
  EXPECT_EQ(tri.faces, 4);
  EXPECT_EQ(tri.triangles, 8);
  EXPECT_EQ(tri.fans, 0);
  EXPECT_EQ(shared->GetBaseObject()->GetFaceNbr(), 4);

  // Only the patch is subdivided unless every mesh is asked for.
  CSubdivideReport sub;
  EXPECT_EQ(SubdivideScene(scene, 1, 0, sub), 1);
  EXPECT_EQ(sub.facesBefore, 4);
  EXPECT_EQ(sub.facesAfter, 16);
  EXPECT_EQ(shared->GetBaseObject()->GetFaceNbr(), 4);
  EXPECT_EQ(SubdivideScene(scene, 2, 1, sub), 2);
  EXPECT_EQ(shared->GetBaseObject()->GetFaceNbr(), 64);
}

} // namespace
} // namespace meshcore
