#include "meshcore/mesh/geom_info.h"
#include "meshcore/operations/triangulate.h"
#include "tests/support/mesh_fixtures.h"

#include <gtest/gtest.h>

#include <cmath>

namespace meshcore {
namespace {

using test::MakeMesh;
using test::P3;

// Twice the signed area of triangle (a, b, c) in the xy plane.
double Cross(const P3& a, const P3& b, const P3& c) {
  return (static_cast<double>(b[0]) - a[0]) * (c[1] - a[1]) -
         (static_cast<double>(b[1]) - a[1]) * (c[0] - a[0]);
}

// Checks the triangles appended from first on against a planar polygon in the
// xy plane wound counter-clockwise: same winding, areas adding up to the
// polygon's, and no polygon corner strictly inside any triangle.
void ExpectCleanCut(const C3DBaseObject& obj, int first, const std::vector<P3>& polygon) {
  const C3DFaceList& fl = *obj.GetFaceList();
  double polygonArea = 0, sum = 0;
  for (std::size_t k = 0; k < polygon.size(); ++k)
    polygonArea += Cross({0, 0, 0}, polygon[k], polygon[(k + 1) % polygon.size()]);
  for (int f = first; f < fl.GetSize(); ++f) {
    ASSERT_EQ(fl[f].GetSize(), 3);
    const P3 a = test::At(obj, fl[f][0]), b = test::At(obj, fl[f][1]), c = test::At(obj, fl[f][2]);
    const double area = Cross(a, b, c);
    EXPECT_GE(area, 0.0) << "triangle " << f << " is flipped";
    sum += area;
    for (const P3& w : polygon) {
      const bool inside = Cross(a, b, w) > 1e-9 && Cross(b, c, w) > 1e-9 && Cross(c, a, w) > 1e-9;
      EXPECT_FALSE(inside) << "corner (" << w[0] << ", " << w[1] << ") inside triangle " << f;
    }
  }
  EXPECT_NEAR(sum, polygonArea, 1e-4);
}

std::vector<int> Range(int n) {
  std::vector<int> v;
  for (int i = 0; i < n; ++i)
    v.push_back(i);
  return v;
}

TEST(FaceTriangulate, TriangleAndConvexPolygons) {
  auto tri = MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
  (*tri->GetFaceList())[0].SetMaterialID(7);
  CGeomInfo info(tri.get());
  EXPECT_EQ((*tri->GetFaceList())[0].Triangulate(&info, 0), 1);
  ASSERT_EQ(tri->GetFaceNbr(), 2);
  EXPECT_EQ(test::Indices((*tri->GetFaceList())[1]), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ((*tri->GetFaceList())[1].GetMaterialID(), 7u);

  // A regular octagon, counter-clockwise, tilted out of every axis plane.
  std::vector<P3> flat, tilted;
  for (int k = 0; k < 8; ++k) {
    const float a = static_cast<float>(k) * 0.785398f;
    flat.push_back({std::cos(a), std::sin(a), 0});
    tilted.push_back({std::cos(a), std::sin(a) * 0.6f, std::sin(a) * 0.8f});
  }
  auto oct = MakeMesh(flat, {Range(8)});
  CGeomInfo oi(oct.get());
  EXPECT_EQ((*oct->GetFaceList())[0].Triangulate(&oi, 0), 6);
  EXPECT_EQ(oct->GetFaceNbr(), 7);
  ExpectCleanCut(*oct, 1, flat);

  auto tilt = MakeMesh(tilted, {Range(8)});
  CGeomInfo ti(tilt.get());
  EXPECT_EQ((*tilt->GetFaceList())[0].Triangulate(&ti, 0), 6);
}

TEST(FaceTriangulate, ConcaveFacesNeverCoverAReflexCorner) {
  // A comb: reflex corners sit deep between its teeth, and the best ear by
  // angle alone would swallow them.
  std::vector<P3> comb = {{0, 0, 0}, {5, 0, 0}, {5, 3, 0}, {4, 3, 0}, {4, 1, 0}, {3, 1, 0},
                          {3, 3, 0}, {2, 3, 0}, {2, 1, 0}, {1, 1, 0}, {1, 3, 0}, {0, 3, 0}};
  // A star with sharp points and reflex corners all round.
  std::vector<P3> star;
  for (int k = 0; k < 10; ++k) {
    const float r = k % 2 ? 0.4f : 1.0f, a = static_cast<float>(k) * 0.6283185f;
    star.push_back({r * std::cos(a), r * std::sin(a), 0});
  }
  for (const auto& polygon : {comb, star}) {
    const int n = static_cast<int>(polygon.size());
    auto obj = MakeMesh(polygon, {Range(n)});
    CGeomInfo info(obj.get());
    EXPECT_EQ((*obj->GetFaceList())[0].Triangulate(&info, 0), n - 2);
    EXPECT_EQ(obj->GetFaceNbr(), 1 + n - 2);
    ExpectCleanCut(*obj, 1, polygon);
  }
}

TEST(FaceTriangulate, DegenerateFaceStopsShortAndShrinksTheLists) {
  // A self-intersecting pentagon: once two ears are cut, every candidate
  // left is blocked.
  auto obj = MakeMesh({{1, 0, 0}, {0, 2, 0}, {0, 0, 0}, {2, 3, 0}, {0, 3, 0}}, {Range(5)});
  obj->AddChannel(test::MakeUVW({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}}, {Range(5)}));
  CGeomInfo info(obj.get());
  const int made = (*obj->GetFaceList())[0].Triangulate(&info, 0);
  EXPECT_LT(made, 3);
  EXPECT_EQ(obj->GetFaceNbr(), 1 + made);
  EXPECT_EQ(obj->GetChannels()->GetChannel(0)->GetFaceList()->GetSize(), 1 + made);
}

TEST(FaceTriangulate, ChannelFacesFollowCornerByCorner) {
  // A concave pentagon whose texture points are numbered 10 above the mesh
  // points, and a colour channel whose face is flagged excluded.
  std::vector<P3> poly = {{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {2, 1, 0}, {0, 4, 0}};
  auto obj = MakeMesh(poly, {Range(5)});
  std::vector<std::array<float, 2>> uv(15, {0, 0});
  obj->AddChannel(test::MakeUVW(uv, {{10, 11, 12, 13, 14}}));
  auto* vc = new CVCChannel;
  vc->GetVCPointList()->SetSize(5);
  test::FillFaces(*vc->GetVCFaceList(), {Range(5)});
  (*vc->GetVCFaceList())[0].SetFlag(static_cast<_FACE_PROPERTIES>(FACE_EXCLUDED | FACE_SELECTED),
                                    1);
  obj->AddChannel(vc);
  (*obj->GetFaceList())[0].SetFlag(FACE_SELECTED, 1);

  CGeomInfo info(obj.get());
  ASSERT_EQ((*obj->GetFaceList())[0].Triangulate(&info, 0), 3);
  const C3DFaceList& fl = *obj->GetFaceList();
  const CFaceList& uvf = *obj->GetChannels()->GetChannel(0)->GetFaceList();
  const CFaceList& vcf = *obj->GetChannels()->GetChannel(1)->GetFaceList();
  ASSERT_EQ(uvf.GetSize(), 4);
  ASSERT_EQ(vcf.GetSize(), 4);
  for (int f = 1; f < 4; ++f) {
    EXPECT_TRUE(fl[f].IsFlagSet(FACE_SELECTED));
    ASSERT_EQ(uvf[f].GetSize(), 3);
    for (int k = 0; k < 3; ++k)
      EXPECT_EQ(uvf[f][k], fl[f][k] + 10);
    // The excluded colour face passes its flags on and no indices.
    EXPECT_TRUE(vcf[f].IsFlagSet(FACE_EXCLUDED));
    EXPECT_EQ(vcf[f].GetSize(), 0);
  }
  ExpectCleanCut(*obj, 1, poly);
}

TEST(ObjectTriangulate, ReplacesFacesKeepsChannelsAndNeverLosesArea) {
  // A quad, a concave pentagon, a triangle and a self-intersecting pentagon
  // that the ear clipper cannot finish (it becomes a fan instead).
  const std::vector<P3> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0},
                                  {6, 0, 0}, {6, 4, 0}, {4, 1, 0}, {2, 4, 0}, {1, 0, 1},
                                  {0, 2, 1}, {0, 0, 1}, {2, 3, 1}, {0, 3, 1}};
  auto obj = MakeMesh(points, {{0, 1, 2, 3}, {4, 5, 6, 7, 8}, {0, 1, 3}, {9, 10, 11, 12, 13}});
  obj->AddChannel(test::MakeUVW(std::vector<std::array<float, 2>>(17, {0, 0}),
                                {{0, 1, 2, 3}, {4, 5, 6, 7, 8}, {0, 1, 3}, {12, 13, 14, 15, 16}}));
  for (int f = 0; f < 4; ++f)
    (*obj->GetFaceList())[f].SetMaterialID(static_cast<unsigned>(f + 1));

  // The filter picks only flagged faces.
  (*obj->GetFaceList())[1].SetFlag(FACE_SELECTED, 1);
  CTriangulateStats stats;
  EXPECT_EQ(TriangulateObject(*obj, FACE_SELECTED, 1, &stats), 1);
  EXPECT_EQ(stats.triangles, 3);
  EXPECT_EQ(obj->GetFaceNbr(), 3 + 3);

  EXPECT_EQ(TriangulateObject(*obj, FACE_NONE, 1, &stats), 2);
  EXPECT_EQ(stats.triangles, 5);
  EXPECT_EQ(stats.fans, 1);
  const C3DFaceList& fl = *obj->GetFaceList();
  ASSERT_EQ(fl.GetSize(), 1 + 3 + 2 + 3);
  std::vector<unsigned> materialCount(5, 0);
  for (int f = 0; f < fl.GetSize(); ++f) {
    EXPECT_EQ(fl[f].GetSize(), 3);
    ++materialCount[fl[f].GetMaterialID()];
  }
  EXPECT_EQ(materialCount, (std::vector<unsigned>{0, 2, 3, 1, 3}));
  // The texture faces stayed parallel corner by corner. The texture points
  // that no face used were compacted away, so texture and mesh indices now agree.
  CChannel* uv = obj->GetChannels()->GetChannel(0);
  ASSERT_TRUE(uv->IsValid());
  ASSERT_EQ(uv->GetFaceList()->GetSize(), fl.GetSize());
  for (int f = 0; f < fl.GetSize(); ++f)
    EXPECT_EQ(test::Indices((*uv->GetFaceList())[f]), test::Indices(fl[f])) << "face " << f;
  // The fan starts from the face's first corner.
  for (int f = 0; f < fl.GetSize(); ++f)
    if (fl[f].GetMaterialID() == 4) {
      EXPECT_EQ(test::At(*obj, fl[f][0]), (P3{1, 0, 1}));
    }
  // Nothing left to do.
  EXPECT_EQ(TriangulateObject(*obj, FACE_NONE, 1), 0);
}

} // namespace
} // namespace meshcore
