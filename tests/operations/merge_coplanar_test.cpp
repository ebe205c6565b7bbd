#include "meshcore/operations/merge_coplanar.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/patch_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"
#include "tests/support/mesh_fixtures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

namespace meshcore {
namespace {

using test::Faces;
using test::Indices;
using test::MakeMesh;
using test::P3;

// Corner k of cube point i is bit k of i; the sides wind the same way round.
const Faces kCubeSides = {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4},
                          {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}};

// Each side cut along its diagonal; side s uses texture points 4s..4s+3.
std::unique_ptr<C3DObject> TriangulatedCube() {
  std::vector<P3> points;
  for (int i = 0; i < 8; ++i)
    points.push_back({float(i & 1), float((i >> 1) & 1), float((i >> 2) & 1)});
  Faces faces, uvFaces;
  std::vector<std::array<float, 2>> uv;
  for (int s = 0; s < 6; ++s) {
    const auto& q = kCubeSides[static_cast<std::size_t>(s)];
    faces.push_back({q[0], q[1], q[2]});
    faces.push_back({q[0], q[2], q[3]});
    uvFaces.push_back({4 * s, 4 * s + 1, 4 * s + 2});
    uvFaces.push_back({4 * s, 4 * s + 2, 4 * s + 3});
    for (int k = 0; k < 4; ++k)
      uv.push_back({float(s) + float(k & 1), float(k >> 1)});
  }
  auto cube = MakeMesh(points, faces);
  cube->AddChannel(test::MakeUVW(uv, uvFaces));
  return cube;
}

// nx by ny unit cells in the z = 0 plane, each a quad or two triangles, with
// the material that material(x, y) gives.
std::unique_ptr<C3DObject> Grid(int nx, int ny, bool triangles,
                                const std::function<unsigned(int, int)>& material) {
  std::vector<P3> points;
  for (int y = 0; y <= ny; ++y)
    for (int x = 0; x <= nx; ++x)
      points.push_back({float(x), float(y), 0});
  Faces faces;
  std::vector<unsigned> materials;
  for (int y = 0; y < ny; ++y)
    for (int x = 0; x < nx; ++x) {
      const int a = y * (nx + 1) + x, b = a + 1, c = b + nx + 1, d = a + nx + 1;
      if (triangles) {
        faces.push_back({a, b, c});
        faces.push_back({a, c, d});
        materials.push_back(material(x, y));
      } else {
        faces.push_back({a, b, c, d});
      }
      materials.push_back(material(x, y));
    }
  auto grid = MakeMesh(points, faces);
  for (int f = 0; f < grid->GetFaceNbr(); ++f)
    (*grid->GetFaceList())[f].SetMaterialID(materials[static_cast<std::size_t>(f)]);
  return grid;
}

// An open tube of n facets, radius 1, from z = 0 (points 0..n-1) to z = 1
// (points n..2n-1), each facet cut into two triangles.
std::unique_ptr<C3DObject> Tube(int n) {
  std::vector<P3> points;
  for (int z = 0; z < 2; ++z)
    for (int i = 0; i < n; ++i) {
      const double a = 2 * 3.14159265358979 * i / n;
      points.push_back({float(std::cos(a)), float(std::sin(a)), float(z)});
    }
  Faces faces;
  for (int i = 0; i < n; ++i) {
    const int j = (i + 1) % n;
    faces.push_back({i, j, n + j});
    faces.push_back({i, n + j, n + i});
  }
  return MakeMesh(points, faces);
}

// True when face is quad turned round (same cyclic order).
bool SameLoop(std::vector<int> face, const std::vector<int>& quad) {
  for (std::size_t r = 0; r < face.size(); ++r) {
    if (face == quad)
      return true;
    std::rotate(face.begin(), face.begin() + 1, face.end());
  }
  return false;
}

TEST(MergeCoplanar, CubeGivesSixQuadsWithTheTextureAlongside) {
  auto cube = TriangulatedCube();
  CMergeCoplanarStats stats;
  EXPECT_EQ(MergeCoplanarObject(*cube, 1.0f, &stats), 6);
  EXPECT_EQ(stats.regions, 6);
  EXPECT_EQ(stats.faces, 12);
  EXPECT_EQ(stats.removedPoints, 0);
  ASSERT_EQ(cube->GetFaceNbr(), 6);
  EXPECT_EQ(cube->GetPointNbr(), 8);

  CUVWFaceList* uvFaces = nullptr;
  ASSERT_TRUE(cube->GetChannels()->GetUVWChannel(0, &uvFaces));
  ASSERT_EQ(uvFaces->GetSize(), 6);
  std::set<int> sides;
  for (int f = 0; f < 6; ++f) {
    const std::vector<int> face = Indices((*cube->GetFaceList())[f]);
    const std::vector<int> uv = Indices((*uvFaces)[f]);
    ASSERT_EQ(face.size(), 4u);
    ASSERT_EQ(uv.size(), 4u);
    // The texture corner of each mesh corner is the one that side gave it.
    const int side = uv[0] / 4;
    sides.insert(side);
    const std::vector<int>& quad = kCubeSides.at(static_cast<std::size_t>(side));
    EXPECT_TRUE(SameLoop(face, quad)) << "face " << f;
    for (std::size_t k = 0; k < 4; ++k)
      EXPECT_EQ(std::make_pair(uv[k] / 4, quad.at(static_cast<std::size_t>(uv[k] % 4))),
                std::make_pair(side, face[k]));
  }
  EXPECT_EQ(sides.size(), 6u);

  // A texture seam along a side's diagonal keeps that side's triangles apart.
  auto seamed = TriangulatedCube();
  CUVWPointList* uvPoints = nullptr;
  seamed->GetChannels()->GetUVWChannel(0, &uvFaces, &uvPoints);
  uvPoints->SetSize(26);
  (*uvFaces)[1][0] = 24;
  (*uvFaces)[1][1] = 25;
  EXPECT_EQ(MergeCoplanarObject(*seamed, 1.0f), 5);
  EXPECT_EQ(seamed->GetFaceNbr(), 7);
  EXPECT_EQ(uvFaces->GetSize(), 7);
}

TEST(MergeCoplanar, TubeFacetsFollowTheAngle) {
  // Facets 10 degrees apart: 1 degree keeps every facet (its two triangles
  // become one quad).
  auto tube = Tube(36);
  EXPECT_EQ(MergeCoplanarObject(*tube, 1.0f), 36);
  ASSERT_EQ(tube->GetFaceNbr(), 36);
  for (int f = 0; f < 36; ++f)
    EXPECT_EQ((*tube->GetFaceList())[f].GetSize(), 4);

  // 30 degrees merges facets, but none further than 30 degrees from the
  // first facet of its polygon: at most three on either side of it.
  tube = Tube(36);
  MergeCoplanarObject(*tube, 30.0f);
  EXPECT_LT(tube->GetFaceNbr(), 36);
  int facets = 0;
  for (int f = 0; f < tube->GetFaceNbr(); ++f) {
    const std::vector<int> face = Indices((*tube->GetFaceList())[f]);
    const auto bottom = std::count_if(face.begin(), face.end(), [](int p) { return p < 36; });
    EXPECT_EQ(static_cast<std::size_t>(2 * bottom), face.size());
    EXPECT_LE(bottom - 1, 7) << "face " << f;
    facets += static_cast<int>(bottom) - 1;
  }
  EXPECT_EQ(facets, 36);
  EXPECT_EQ(tube->GetPointNbr(), 72);

  // At 180 degrees the whole tube is one region whose outline is two loops:
  // it is left alone.
  tube = Tube(36);
  CMergeCoplanarStats stats;
  EXPECT_EQ(MergeCoplanarObject(*tube, 180.0f, &stats), 0);
  EXPECT_EQ(stats.refused, 1);
  EXPECT_EQ(tube->GetFaceNbr(), 72);
}

TEST(MergeCoplanar, OutlinesKeepSharedCornersAndStaySimple) {
  // Two materials side by side: two polygons, each keeping the corners along
  // the straight runs that the other one (or the outline) still uses.
  auto halves = Grid(4, 4, true, [](int x, int) { return x < 2 ? 1u : 2u; });
  EXPECT_EQ(MergeCoplanarObject(*halves, 0.0f), 30);
  ASSERT_EQ(halves->GetFaceNbr(), 2);
  EXPECT_EQ((*halves->GetFaceList())[0].GetSize(), 12);
  EXPECT_EQ((*halves->GetFaceList())[1].GetSize(), 12);
  EXPECT_EQ((*halves->GetFaceList())[0].GetMaterialID(), 1u);
  EXPECT_EQ(halves->GetPointNbr(), 25 - 6);

  // Material 1 winds round cell (1, 2) and touches itself at point (2, 2):
  // left alone. Material 2 merges, and (1, 2) stays on its own.
  const std::set<std::pair<int, int>> winding = {{1, 1}, {0, 1}, {0, 2}, {0, 3},
                                                 {1, 3}, {2, 3}, {2, 2}};
  auto touching = Grid(4, 4, false, [&](int x, int y) { return winding.count({x, y}) ? 1u : 2u; });
  CMergeCoplanarStats stats;
  EXPECT_EQ(MergeCoplanarObject(*touching, 0.0f, &stats), 7);
  EXPECT_EQ(stats.refused, 1);
  EXPECT_EQ(stats.regions, 1);
  EXPECT_EQ(touching->GetFaceNbr(), 9);
  int material1 = 0;
  for (int f = 0; f < touching->GetFaceNbr(); ++f)
    if ((*touching->GetFaceList())[f].GetMaterialID() == 1u) {
      ++material1;
      EXPECT_EQ((*touching->GetFaceList())[f].GetSize(), 4);
    }
  EXPECT_EQ(material1, 7);

  // A frame round a hole of another material: left alone.
  auto frame = Grid(3, 3, true, [](int x, int y) { return x == 1 && y == 1 ? 2u : 1u; });
  EXPECT_EQ(MergeCoplanarObject(*frame, 0.0f, &stats), 1);
  EXPECT_EQ(stats.refused, 1);
  EXPECT_EQ(frame->GetFaceNbr(), 17);
}

TEST(MergeCoplanar, EdgesThatCannotBeMerged) {
  const std::vector<P3> square = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5f, 0.5f, 1}};
  // Wound against its neighbour: the shared edge runs the same way in both.
  auto flipped = MakeMesh(square, {{0, 1, 2}, {0, 3, 2}});
  EXPECT_EQ(MergeCoplanarObject(*flipped, 180.0f), 0);
  EXPECT_EQ(flipped->GetFaceNbr(), 2);
  // A fin on the diagonal: three faces on one edge.
  auto fin = MakeMesh(square, {{0, 1, 2}, {0, 2, 3}, {2, 0, 4}});
  EXPECT_EQ(MergeCoplanarObject(*fin, 180.0f), 0);
  // A face with a corner outside the point list, or a repeated corner, takes
  // no part; the clean after the merge drops the first.
  auto broken = MakeMesh(square, {{0, 1, 2}, {0, 2, 3}, {2, 1, 9}, {3, 2, 3, 0}});
  EXPECT_EQ(MergeCoplanarObject(*broken, 1.0f), 2);
  EXPECT_EQ(broken->GetFaceNbr(), 2);
  EXPECT_EQ(Indices((*broken->GetFaceList())[0]).size(), 4u);
  // A selected face does not merge with an unselected one.
  auto selected = MakeMesh(square, {{0, 1, 2}, {0, 2, 3}});
  (*selected->GetFaceList())[1].SetFlag(FACE_SELECTED, 1);
  EXPECT_EQ(MergeCoplanarObject(*selected, 1.0f), 0);
  (*selected->GetFaceList())[0].SetFlag(FACE_SELECTED | FACE_BORDER, 1);
  EXPECT_EQ(MergeCoplanarObject(*selected, 1.0f), 1);
  // No angle, or no faces to speak of.
  auto pair = MakeMesh(square, {{0, 1, 2}, {0, 2, 3}});
  EXPECT_EQ(MergeCoplanarObject(*pair, -1.0f), 0);
  EXPECT_EQ(MergeCoplanarObject(*pair, std::nanf("")), 0);
  EXPECT_EQ(pair->GetFaceNbr(), 2);
  C3DObject empty;
  EXPECT_EQ(empty.MergeCoplanarFaces(10.0f, nullptr), 0);
}

TEST(MergeCoplanar, CancelLeavesTheObjectAsItWas) {
  auto grid = Grid(100, 100, true, [](int, int) { return 0u; });
  SetCancel(1, 0);
  CMergeCoplanarStats stats;
  EXPECT_EQ(MergeCoplanarObject(*grid, 1.0f, &stats), 0);
  SetCancel(0, 0);
  EXPECT_TRUE(stats.cancelled);
  EXPECT_EQ(grid->GetFaceNbr(), 20000);
  EXPECT_EQ(Indices((*grid->GetFaceList())[1]), (std::vector<int>{0, 102, 101}));

  EXPECT_EQ(grid->MergeCoplanarFaces(1.0f, nullptr), 19999);
  EXPECT_EQ((*grid->GetFaceList())[0].GetSize(), 400);
  EXPECT_EQ(grid->GetPointNbr(), 400);
}

TEST(MergeCoplanar, SceneMergesEachMeshOnceAndLeavesPatches) {
  C3DScene scene;
  auto* shared = new C3DSceneNode(TriangulatedCube().release(), 0);
  scene.AddNode(nullptr, shared);
  scene.AddNode(nullptr, static_cast<C3DSceneNode*>(shared->Clone()));
  auto* patch = new C3DPatch;
  patch->SetPointList(new C3DPointList);
  patch->SetFaceList(new C3DFaceList);
  patch->Concatenate(TriangulatedCube().get(), 1);
  scene.AddNode(nullptr, new C3DSceneNode(patch, 0));

  CMergeCoplanarReport report;
  EXPECT_EQ(MergeCoplanarScene(scene, 1.0f, report), 1);
  EXPECT_EQ(report.faces, 6);
  EXPECT_EQ(report.regions, 6);
  EXPECT_FALSE(report.cancelled);
  EXPECT_EQ(shared->GetBaseObject()->GetFaceNbr(), 6);
  EXPECT_EQ(patch->GetFaceNbr(), 12);
}

} // namespace
} // namespace meshcore
