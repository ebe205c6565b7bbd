#include "meshcore/mesh/geom_info.h"
#include "meshcore/operations/subdivide.h"
#include "meshcore/scene/patch_3d.h"
#include "tests/support/mesh_fixtures.h"

#include <gtest/gtest.h>

#include <map>

namespace meshcore {
namespace {

using test::MakeMesh;
using test::P3;

void ExpectNear(const P3& a, const P3& b) {
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(a[i], b[i], 1e-5) << "component " << i;
}

P3 Lerp(const std::vector<std::pair<float, P3>>& terms) {
  P3 r{0, 0, 0};
  for (const auto& [w, p] : terms)
    for (int i = 0; i < 3; ++i)
      r[i] += w * p[i];
  return r;
}

// How many times each point of obj is used by its faces.
std::map<P3, int> Uses(const C3DBaseObject& obj) {
  std::map<P3, int> uses;
  const C3DFaceList& fl = *obj.GetFaceList();
  for (int f = 0; f < fl.GetSize(); ++f)
    for (int k = 0; k < fl[f].GetSize(); ++k)
      ++uses[test::At(obj, fl[f][k])];
  return uses;
}

TEST(Subdivide, FlatQuadSplitsAtMidpointsWithChannelsAveraged) {
  auto obj = MakeMesh({{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}}, {{0, 1, 2, 3}});
  (*obj->GetFaceList())[0].SetMaterialID(5);
  obj->AddChannel(test::MakeUVW({{0, 0}, {1, 0}, {1, 1}, {0, 1}}, {{0, 1, 2, 3}}));
  auto* vc = new CVCChannel;
  vc->GetVCPointList()->SetSize(4);
  for (int i = 0; i < 4; ++i)
    (*vc->GetVCPointList())[i].SetColor(CRGBColor(i * 51, 255, 0, 255));
  test::FillFaces(*vc->GetVCFaceList(), {{0, 1, 2, 3}});
  obj->AddChannel(vc);
  const unsigned uvId = obj->GetChannels()->GetChannel(0)->GetID();

  Subdivide4(*obj, 1);
  const C3DFaceList& fl = *obj->GetFaceList();
  ASSERT_EQ(fl.GetSize(), 4);
  ASSERT_EQ(obj->GetPointNbr(), 9);
  // Every corner stays (all points are on the border), edges split at their
  // midpoints and the centre is shared by all four.
  const auto uses = Uses(*obj);
  for (const P3& corner : {P3{0, 0, 0}, P3{2, 0, 0}, P3{2, 2, 0}, P3{0, 2, 0}})
    EXPECT_EQ(uses.at(corner), 1);
  for (const P3& mid : {P3{1, 0, 0}, P3{2, 1, 0}, P3{1, 2, 0}, P3{0, 1, 0}})
    EXPECT_EQ(uses.at(mid), 2);
  EXPECT_EQ(uses.at(P3{1, 1, 0}), 4);
  for (int f = 0; f < 4; ++f) {
    EXPECT_EQ(fl[f].GetMaterialID(), 5u);
    // The winding is kept: counter-clockwise seen from +z like the original.
    const P3 a = test::At(*obj, fl[f][0]), b = test::At(*obj, fl[f][1]),
             c = test::At(*obj, fl[f][2]);
    EXPECT_GT((b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]), 0.0f);
  }

  // The channels kept their ids and follow corner by corner: texture
  // coordinates equal position / 2, colours average (and truncate).
  CDependentChannels& channels = *obj->GetChannels();
  ASSERT_EQ(channels.GetSize(), 2);
  CUVWChannel* uv = channels.GetUVWChannel(0);
  ASSERT_NE(uv, nullptr);
  EXPECT_EQ(uv->GetID(), uvId);
  CVCChannel* col = channels.GetVCChannel(0);
  ASSERT_NE(col, nullptr);
  for (int f = 0; f < 4; ++f)
    for (int k = 0; k < 4; ++k) {
      const P3 p = test::At(*obj, fl[f][k]);
      const CUVWPoint& t = (*uv->GetUVWPointList())[(*uv->GetUVWFaceList())[f][k]];
      EXPECT_FLOAT_EQ(t.u, p[0] / 2);
      EXPECT_FLOAT_EQ(t.v, p[1] / 2);
      const CVCPoint& c = (*col->GetVCPointList())[(*col->GetVCFaceList())[f][k]];
      if (p == P3{1, 0, 0}) {
        EXPECT_EQ(c.GetColor().r, 25); // (0 + 51) / 2, truncated
      }
      if (p == P3{1, 1, 0}) {
        EXPECT_EQ(c.GetColor().r, 76); // (0 + 51 + 102 + 153) / 4, truncated
      }
    }
}

TEST(Subdivide, ClosedTetrahedronFollowsLoopRules) {
  const std::vector<P3> v = {{0, 0, 0}, {3, 0, 0}, {0, 3, 0}, {0, 0, 3}};
  auto obj = MakeMesh(v, {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {0, 3, 2}});
  Subdivide3(*obj, 1);
  ASSERT_EQ(obj->GetFaceNbr(), 16);
  ASSERT_EQ(obj->GetPointNbr(), 10);
  // The first face's first corner is old point 0, valence 3.
  const C3DFaceList& fl = *obj->GetFaceList();
  ExpectNear(test::At(*obj, fl[0][0]),
             Lerp({{0.4375f, v[0]}, {0.1875f, v[1]}, {0.1875f, v[2]}, {0.1875f, v[3]}}));
  // Its edge point towards old point 2: interior edge 0-2 with opposite points 1 and 3.
  ExpectNear(test::At(*obj, fl[0][1]),
             Lerp({{0.375f, v[0]}, {0.375f, v[2]}, {0.125f, v[1]}, {0.125f, v[3]}}));
  // Children come as (c0, e0, e2), (c1, e1, e0), (c2, e2, e1), (e0, e1, e2).
  EXPECT_EQ(fl[0][1], fl[1][2]);
  EXPECT_EQ(fl[3][0], fl[0][1]);
  EXPECT_EQ(fl[3][2], fl[0][2]);
  // Closed, so no border: each old point ends in three faces, each edge point in six.
  int valence3 = 0, valence6 = 0;
  for (const auto& [p, n] : Uses(*obj)) {
    valence3 += n == 3;
    valence6 += n == 6;
  }
  EXPECT_EQ(valence3, 4);
  EXPECT_EQ(valence6, 6);
}

std::unique_ptr<C3DObject> Cube() {
  const std::vector<P3> corners = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                                   {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
  return MakeMesh(
      corners,
      {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}});
}

TEST(Subdivide, CubeFollowsCatmullClarkRules) {
  auto obj = Cube();
  Subdivide4(*obj, 1);
  ASSERT_EQ(obj->GetFaceNbr(), 24);
  ASSERT_EQ(obj->GetPointNbr(), 8 + 12 + 6);
  const auto uses = Uses(*obj);
  // Corners (valence 3): (1 - 1.75 / 3) v + 1.5 / 9 E + 0.25 / 9 D = 5/9 v.
  const float c = 5.0f / 9.0f;
  int corners = 0, edges = 0, centres = 0;
  for (const auto& [p, n] : uses) {
    if (std::fabs(std::fabs(p[0]) - c) < 1e-5 && std::fabs(std::fabs(p[1]) - c) < 1e-5 &&
        std::fabs(std::fabs(p[2]) - c) < 1e-5 && n == 3)
      ++corners;
    // Edge points: 0.25 (a + b + f1 + f2), e.g. (0.75, 0.75, 0).
    int zeros = 0, threeQuarters = 0, ones = 0;
    for (float x : p) {
      zeros += x == 0.0f;
      threeQuarters += std::fabs(std::fabs(x) - 0.75f) < 1e-6;
      ones += std::fabs(x) == 1.0f;
    }
    edges += zeros == 1 && threeQuarters == 2 && n == 4;
    centres += zeros == 2 && ones == 1 && n == 4;
  }
  EXPECT_EQ(corners, 8);
  EXPECT_EQ(edges, 12);
  EXPECT_EQ(centres, 6);

  // Two more passes keep a closed surface of genus 0 (Euler characteristic 2),
  // every edge shared by exactly two faces.
  Subdivide4(*obj, 2);
  const C3DFaceList& fl = *obj->GetFaceList();
  ASSERT_EQ(fl.GetSize(), 24 * 16);
  std::map<std::pair<int, int>, int> edgeUse;
  for (int f = 0; f < fl.GetSize(); ++f)
    for (int k = 0; k < 4; ++k) {
      const int a = fl[f][k], b = fl[f][(k + 1) % 4];
      ++edgeUse[{std::min(a, b), std::max(a, b)}];
    }
  for (const auto& [edge, n] : edgeUse)
    EXPECT_EQ(n, 2);
  EXPECT_EQ(obj->GetPointNbr() - static_cast<int>(edgeUse.size()) + fl.GetSize(), 2);
}

TEST(Subdivide, MixedMeshCarriesLargerFacesAndEstimates) {
  // A triangle, a quad and a pentagon side by side (not sharing points).
  const std::vector<P3> points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0},    {2, 0, 0},
                                  {3, 0, 0}, {3, 1, 0}, {2, 1, 0},    {5, 0, 0},
                                  {6, 0, 0}, {6, 1, 0}, {5.5f, 2, 0}, {5, 1, 0}};
  auto obj = MakeMesh(points, {{0, 1, 2}, {3, 4, 5, 6}, {7, 8, 9, 10, 11}});
  (*obj->GetFaceList())[2].SetMaterialID(9);
  EXPECT_EQ(EstimateLevel(obj.get(), 0), 3u);
  EXPECT_EQ(EstimateLevel(obj.get(), 2), 32u);
  EXPECT_EQ(SubdivideObject(*obj, 2), 1);
  ASSERT_EQ(obj->GetFaceNbr(), 16 + 16 + 1);
  // Triangles first, then quadrilaterals, then the carried pentagon, intact.
  const C3DFaceList& fl = *obj->GetFaceList();
  EXPECT_EQ(fl[0].GetSize(), 3);
  EXPECT_EQ(fl[16].GetSize(), 4);
  const C3DFace& pentagon = fl[32];
  ASSERT_EQ(pentagon.GetSize(), 5);
  EXPECT_EQ(pentagon.GetMaterialID(), 9u);
  EXPECT_EQ(test::At(*obj, pentagon[3]), (P3{5.5f, 2, 0}));
}

TEST(Subdivide, ExcludedFacesAndPerPointChannels) {
  auto obj = MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
  obj->AddChannel(test::MakeUVW({{0, 0}, {1, 0}, {0, 1}}, {{0, 1, 2}}));
  CFaceList& uvf = *obj->GetChannels()->GetChannel(0)->GetFaceList();
  uvf[0].SetFlag(FACE_EXCLUDED, 1);
  // One value per mesh point and no faces: nothing to split along.
  CUVWChannel* perPoint = test::MakeUVW({{0, 0}, {1, 0}, {0, 1}}, {});
  perPoint->GetCustomData().SetInt(1, 7);
  obj->AddChannel(perPoint);
  const unsigned perPointId = perPoint->GetID();

  Subdivide3(*obj, 1);
  const CDependentChannels& channels = *obj->GetChannels();
  ASSERT_EQ(channels.GetSize(), 2);
  const CFaceList& out = *channels.GetChannel(0)->GetFaceList();
  ASSERT_EQ(out.GetSize(), 4);
  for (int f = 0; f < 4; ++f) {
    EXPECT_TRUE(out[f].IsFlagSet(FACE_EXCLUDED));
    EXPECT_EQ(out[f].GetSize(), 0);
  }
  // The per-point channel comes through as an empty clone.
  const CChannel* clone = channels.GetChannel(1);
  EXPECT_EQ(clone->GetID(), perPointId);
  EXPECT_EQ(clone->GetType(), CHANNEL_UVW);
  EXPECT_EQ(clone->GetPointList()->GetSize(), 0);
  EXPECT_EQ(clone->GetFaceList()->GetSize(), 0);
  int tag = 0;
  EXPECT_TRUE(clone->GetCustomData().GetInt(1, tag));
  EXPECT_EQ(tag, 7);
}

// Several passes in one call build each pass's edges from the pass before
// instead of searching them again, and large results get their records made
// ahead on a second thread; they must give exactly what calls of one pass
// give, for meshes that allow it and for those that do not (duplicated faces,
// a face repeating a corner, an edge of three faces).
TEST(Subdivide, PassesInOneCallEqualOneCallPerPass) {
  auto bumpyGrid = [](int n, bool triangles, bool dirty) {
    std::vector<P3> pts;
    for (int j = 0; j <= n; ++j)
      for (int i = 0; i <= n; ++i)
        pts.push_back({static_cast<float>(i), static_cast<float>(j),
                       static_cast<float>((i * 7 + j * 3) % 5) * 0.1f});
    pts.push_back({2, 2, 3});
    test::Faces faces;
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) {
        if (i == 2 && j == 1)
          continue; // a hole: inner border points
        const int a = j * (n + 1) + i, b = a + 1, c = a + n + 2, d = a + n + 1;
        if (triangles) {
          faces.push_back({a, b, c});
          faces.push_back({a, c, d});
        } else {
          faces.push_back({a, b, c, d});
        }
      }
    if (dirty) {
      const int apex = (n + 1) * (n + 1);
      if (triangles) {
        faces.push_back({0, 6, 1});    // the first face again, reversed
        faces.push_back({6, 7, apex}); // a third face on edge 6-7
        faces.push_back({12, 12, 13});
      } else {
        faces.push_back({0, 5, 6, 6});
        faces.push_back({6, 7, apex, 11});
      }
    }
    auto obj = MakeMesh(pts, faces);
    C3DPointList& pl = *obj->GetPointList();
    pl[7].SetFlag(PT_SELECTED, 1);
    pl[12].GetCustomData(1)->SetInt(1, 12);
    C3DFaceList& fl = *obj->GetFaceList();
    fl[3].SetMaterialID(4);
    fl[3].SetFlag(FACE_SELECTED, 1);
    fl[5].GetCustomData(1)->SetInt(2, 5);
    std::vector<std::array<float, 2>> uv;
    for (const P3& p : pts)
      uv.push_back({p[0] / 4, p[1] / 4});
    obj->AddChannel(test::MakeUVW(uv, faces));
    return obj;
  };
  struct Case {
    int n, level;
    bool triangles, dirty;
  };
  // The 32 x 32 grids at level 4 make results of tens of megabytes.
  const Case cases[] = {{4, 2, true, false}, {4, 2, true, true},   {4, 2, false, false},
                        {4, 2, false, true}, {32, 4, true, false}, {32, 4, false, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "n " << c.n << ", level " << c.level << ", triangles "
                                    << c.triangles << ", dirty " << c.dirty);
    const bool triangles = c.triangles;
    auto once = bumpyGrid(c.n, triangles, c.dirty), twice = bumpyGrid(c.n, triangles, c.dirty);
    for (int pass = 0; pass < c.level; ++pass)
      (triangles ? Subdivide3 : Subdivide4)(*twice, 1);
    (triangles ? Subdivide3 : Subdivide4)(*once, c.level);
    const C3DPointList& p1 = *once->GetPointList();
    const C3DPointList& p2 = *twice->GetPointList();
    ASSERT_EQ(p1.GetSize(), p2.GetSize());
    for (int i = 0; i < p1.GetSize(); ++i) {
      ASSERT_EQ(test::At(*once, i), test::At(*twice, i)) << "point " << i;
      ASSERT_EQ(p1[i].GetFlags(), p2[i].GetFlags()) << "point " << i;
      ASSERT_EQ(p1[i].GetCustomData() != nullptr, p2[i].GetCustomData() != nullptr) << i;
    }
    const C3DFaceList& f1 = *once->GetFaceList();
    const C3DFaceList& f2 = *twice->GetFaceList();
    ASSERT_EQ(f1.GetSize(), f2.GetSize());
    for (int f = 0; f < f1.GetSize(); ++f) {
      ASSERT_EQ(test::Indices(f1[f]), test::Indices(f2[f])) << "face " << f;
      ASSERT_EQ(f1[f].GetFlags(), f2[f].GetFlags()) << "face " << f;
      ASSERT_EQ(f1[f].GetMaterialID(), f2[f].GetMaterialID()) << "face " << f;
      ASSERT_EQ(f1[f].GetCustomData() != nullptr, f2[f].GetCustomData() != nullptr) << f;
    }
    const CChannel& uv1 = *once->GetChannels()->GetChannel(0);
    const CChannel& uv2 = *twice->GetChannels()->GetChannel(0);
    ASSERT_EQ(uv1.GetFaceList()->GetSize(), f1.GetSize());
    ASSERT_EQ(uv1.GetPointList()->GetSize(), uv2.GetPointList()->GetSize());
    for (int f = 0; f < f1.GetSize(); ++f)
      ASSERT_EQ(test::Indices((*uv1.GetFaceList())[f]), test::Indices((*uv2.GetFaceList())[f]));
  }
}

TEST(PatchLevel, SetLevelKeepsTheControlMeshAndGoesBack) {
  // Single quads keep even level 8 cheap.
  auto quad = MakeMesh({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, {{0, 1, 2, 3}});
  C3DPatch patch, small;
  for (C3DPatch* p : {&patch, &small}) {
    p->SetPointList(new C3DPointList);
    p->SetFaceList(new C3DFaceList);
    p->Concatenate(quad.get(), 1);
  }
  C3DPointList* controlPoints = patch.GetPointList();
  C3DFaceList* controlFaces = patch.GetFaceList();
  CPatchControl control;

  EXPECT_EQ(SetPatchLevel(patch, control, 2), 1);
  EXPECT_EQ(control.level, 2);
  EXPECT_EQ(control.sourcePoints, controlPoints);
  EXPECT_EQ(control.sourceFaces, controlFaces);
  EXPECT_EQ(patch.GetFaceNbr(), 16);
  EXPECT_EQ(controlFaces->GetSize(), 1);

  // The same level again rebuilds nothing.
  C3DFaceList* result = patch.GetFaceList();
  EXPECT_EQ(SetPatchLevel(patch, control, 2), 0);
  EXPECT_EQ(patch.GetFaceList(), result);

  // The control mesh comes out as a plain mesh, and the result stays in place.
  std::unique_ptr<C3DObject> source(GetPatchSourceObject(patch, control));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->GetKindOf(), static_cast<unsigned>(OBJECT_POLYGONAL));
  EXPECT_EQ(source->GetFaceNbr(), 1);
  EXPECT_EQ(patch.GetFaceList(), result);

  // Level 0: the base lists are the control mesh itself.
  EXPECT_EQ(SetPatchLevel(patch, control, 0), 1);
  EXPECT_EQ(patch.GetPointList(), controlPoints);
  EXPECT_EQ(patch.GetFaceList(), controlFaces);
  EXPECT_EQ(patch.GetFaceNbr(), 1);

  // Levels clamp to 8.
  CPatchControl smallControl;
  SetPatchLevel(small, smallControl, 12);
  EXPECT_EQ(smallControl.level, 8);
  EXPECT_EQ(small.GetFaceNbr(), 65536);

  // Releasing at a level above 0 drops the control mesh and keeps the result.
  ReleasePatch(smallControl);
  EXPECT_EQ(smallControl.level, -1);
  EXPECT_EQ(small.GetFaceNbr(), 65536);
  // At level 0 the control mesh is the patch's own: releasing keeps it.
  ReleasePatch(control);
  EXPECT_EQ(patch.GetFaceList(), controlFaces);
}

} // namespace
} // namespace meshcore
