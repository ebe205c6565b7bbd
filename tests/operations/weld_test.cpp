#include "meshcore/mesh/geom_info.h"
#include "meshcore/operations/proximity.h"
#include "meshcore/operations/weld.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "tests/support/mesh_fixtures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace meshcore {
namespace {

using test::MakeMesh;

std::vector<int> Neighbours(const CProximityResult& r, int i) {
  std::vector<int> out;
  if (const CProximityResult::Set* s = r.GetSet(i))
    for (int pos = s->GetFirst(); pos >= 0;) {
      int j = 0;
      s->GetNext(pos, j);
      out.push_back(j);
    }
  std::sort(out.begin(), out.end());
  return out;
}

TEST(Proximity, CellsTruncateTowardZeroAndNeighboursTouch) {
  EXPECT_EQ(ConvertToProximityCoordinate(C3DPoint(-0.4f, 0.4f, -0.6f), 0.5f), (IntCoord{0, 0, -1}));
  EXPECT_EQ(ConvertToProximityCoordinate(C3DPoint(1.4f, -1.4f, 1e30f), 0.5f),
            (IntCoord{2, -2, INT32_MAX}));

  // Tolerance 1 gives cells of 0.5: -0.4 and 0.4 share the wide cell 0; 0.6
  // and 1.4 sit in touching cells 1 and 2; 0.1 and 1.4 (cells 0 and 2) do not touch.
  auto obj = MakeMesh(
      {{-0.4f, 0, 0}, {0.4f, 0, 0}, {0.6f, 5, 0}, {1.4f, 5, 0}, {0.1f, 9, 0}, {1.4f, 9, 0}}, {});
  C3DPointList& pts = *obj->GetPointList();
  CProximityMap* map = InitProximityMap(pts, 1.0f);
  ASSERT_NE(map, nullptr);
  EXPECT_FLOAT_EQ(pts.GetProximityCellSize(), 0.5f);
  std::unique_ptr<CProximityResult> r(Get3DProximityPoints(pts, map));
  DeleteProximityMap(pts, map);
  EXPECT_EQ(Neighbours(*r, 0), std::vector<int>{1});
  EXPECT_EQ(Neighbours(*r, 2), std::vector<int>{3});
  EXPECT_EQ(r->GetSet(4), nullptr);
  EXPECT_EQ(r->GetSet(5), nullptr);

  // An empty list has no map and an empty (but real) result.
  C3DPointList empty;
  EXPECT_EQ(InitProximityMap(empty, 1.0f), nullptr);
  std::unique_ptr<CProximityResult> none(Get3DProximityPoints(empty, nullptr));
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none->GetCount(), 0);
}

TEST(Proximity, LargeSetsMappedInHalvesMatchOnePointAtATime) {
  // Past a quarter million points the later half is mapped on a second thread
  // and appended: cells met in both halves, in one half only, and a cell
  // first met exactly at the split must all come out as one pass gives them.
  constexpr int kCount = 300000;
  std::mt19937 random(7);
  std::uniform_int_distribution<int> lattice(0, 60);
  std::vector<test::P3> at;
  for (int i = 0; i < kCount; ++i) {
    const float far = i >= kCount / 2 && i % 97 == 0 ? 1000.0f + float(i) : 0.0f;
    at.push_back({float(lattice(random)) * 0.5f + far, float(lattice(random)) * 0.5f, 0.25f});
  }
  at[kCount / 2] = {-777, -777, -777};
  auto obj = MakeMesh(at, {});
  C3DPointList& pts = *obj->GetPointList();
  pts[3].SetFlag(PT_INVALID, 1); // in the first half; the later half's flag is seen too below
  bool anyInvalid = false;
  std::unique_ptr<CProximityMap> halves(InitProximityMap(pts, 1.0f, nullptr, true, &anyInvalid));
  ASSERT_TRUE(halves);
  EXPECT_TRUE(anyInvalid);
  CProximityMap single;
  for (int i = 0; i < kCount; ++i)
    single.AddPoint(ConvertToProximityCoordinate(pts[i], pts.GetProximityCellSize()));
  single.Finish(true);
  ASSERT_EQ(halves->GetCount(), single.GetCount());
  EXPECT_EQ(halves->GetCellOfPoints(), single.GetCellOfPoints());
  bool same = true;
  for (int e = 0; e < single.GetCount() && same; ++e)
    same = halves->GetCell(e) == single.GetCell(e) &&
           halves->GetPointCount(e) == single.GetPointCount(e) &&
           halves->Lookup(single.GetCell(e)).GetSize() == single.GetPointCount(e);
  EXPECT_TRUE(same);

  pts[3].SetFlag(PT_INVALID, 0);
  pts[kCount - 1].SetFlag(PT_INVALID, 1);
  anyInvalid = false;
  std::unique_ptr<CProximityMap> again(InitProximityMap(pts, 1.0f, nullptr, false, &anyInvalid));
  EXPECT_TRUE(anyInvalid);
}

TEST(Proximity, MapArchiveRoundTrip) {
  auto obj = MakeMesh({{0, 0, 0}, {5, 5, 5}, {0.1f, 0, 0}, {-5, 0, 0}}, {});
  std::unique_ptr<CProximityMap> map(InitProximityMap(*obj->GetPointList(), 1.0f));
  CMemFile mem;
  {
    CArchive ar(&mem, CArchive::store);
    map->Serialize(ar);
  }
  mem.Seek(0);
  CProximityMap back;
  {
    CArchive ar(&mem, CArchive::load);
    back.Serialize(ar);
  }
  ASSERT_EQ(back.GetCount(), 3);
  const CIndexRun origin = back.Lookup({0, 0, 0});
  ASSERT_EQ(origin.GetSize(), 2);
  EXPECT_EQ(origin[0], 0);
  EXPECT_EQ(origin[1], 2);
  EXPECT_EQ(back.Lookup({-10, 0, 0}).GetSize(), 1);
  EXPECT_EQ(back.Lookup({-11, 0, 0}).GetSize(), 0);
}

TEST(Weld, PointsAcrossZeroMergeWithChannelsKeptParallel) {
  // Two quads stored with separate corners; their shared edge straddles x = 0
  // (tiny offsets of both signs), and each corner has its own texture point.
  const std::vector<test::P3> corners = {{-1, 0, 0}, {-1e-4f, 0, 0}, {-1e-4f, 1, 0},
                                         {-1, 1, 0}, {1e-4f, 0, 0},  {1, 0, 0},
                                         {1, 1, 0},  {1e-4f, 1, 0}};
  auto obj = MakeMesh(corners, {{0, 1, 2, 3}, {4, 5, 6, 7}});
  obj->AddChannel(
      test::MakeUVW({{0, 0}, {0.5f, 0}, {0.5f, 1}, {0, 1}, {0.5f, 0}, {1, 0}, {1, 1}, {0.5f, 1}},
                    {{0, 1, 2, 3}, {4, 5, 6, 7}}));
  int points = -1, faces = -1;
  EXPECT_EQ(Weld3DPoints(*obj, 0.01f, points, faces), 0);
  EXPECT_EQ(points, 2);
  EXPECT_EQ(faces, 0);
  ASSERT_EQ(obj->GetPointNbr(), 6);
  const C3DFaceList& fl = *obj->GetFaceList();
  // The two faces now share both points of the middle edge.
  int shared = 0;
  for (int a : test::Indices(fl[0]))
    for (int b : test::Indices(fl[1]))
      shared += a == b;
  EXPECT_EQ(shared, 2);
  // The texture channel is untouched in shape and still parallel.
  CUVWChannel* uv = obj->GetChannels()->GetUVWChannel(0);
  ASSERT_NE(uv, nullptr);
  EXPECT_TRUE(uv->IsValid());
}

TEST(Weld, ChainCollapsesIntoFirstPointAndDegenerateFacesGo) {
  // Six points 0.4 tolerance apart in a row (cells of half the tolerance, so
  // each touches its neighbours): the chain is one cluster although its ends
  // lie two tolerances apart.
  std::vector<test::P3> pts;
  for (int i = 0; i < 6; ++i)
    pts.push_back({10.0f + 0.4f * i, 0, 0});
  pts.push_back({10, 50, 0});
  pts.push_back({30, 50, 0});
  auto obj = MakeMesh(pts, {{0, 5, 6}, {1, 7, 6}, {2, 4, 6}});
  int points = 0, faces = 0;
  Weld3DPoints(*obj, 1.0f, points, faces);
  // (0,5,6) and (2,4,6) collapse to two points and are dropped; (1,7,6) survives.
  EXPECT_EQ(faces, 2);
  ASSERT_EQ(obj->GetFaceNbr(), 1);
  ASSERT_EQ(obj->GetPointNbr(), 3);
  EXPECT_EQ(points, 5);
  // The survivor of the chain is its first point, with unchanged coordinates.
  const C3DFace& f = (*obj->GetFaceList())[0];
  EXPECT_FLOAT_EQ(test::At(*obj, f[0])[0], 10.0f);
  EXPECT_FLOAT_EQ(test::At(*obj, f[1])[0], 30.0f);
}

TEST(Weld, NothingToWeldChangesNothing) {
  auto obj = MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {5, 5, 5}}, {{0, 1, 2}});
  int points = -1, faces = -1;
  Weld3DPoints(*obj, 0.01f, points, faces);
  EXPECT_EQ(points, 0);
  EXPECT_EQ(faces, 0);
  // No face changed, so not even the unused point 3 is cleaned away.
  EXPECT_EQ(obj->GetPointNbr(), 4);

  // Exact duplicates weld even with a zero tolerance; points 1e-3 apart do not.
  auto dup = MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 0, 0}, {1.001f, 1, 0}, {1, 1, 0}},
                      {{0, 1, 2}, {3, 4, 5}});
  Weld3DPoints(*dup, 0.0f, points, faces);
  EXPECT_EQ(points, 1);
  EXPECT_EQ(faces, 0);
}

// Welding as the proximity result describes it, step by step, to check the
// cell-based welding against.
void ReferenceWeld(C3DBaseObject& obj, float tolerance) {
  C3DPointList& pts = *obj.GetPointList();
  CProximityMap* map = InitProximityMap(pts, tolerance);
  std::unique_ptr<CProximityResult> result(Get3DProximityPoints(pts, map));
  DeleteProximityMap(pts, map);
  CGeomInfo info(&obj);
  std::vector<char> visited(static_cast<std::size_t>(pts.GetSize()), 0);
  int changed = 0;
  for (int pos = result->GetFirst(); pos >= 0;) {
    int p = 0;
    CProximityResult::Set* unused = nullptr;
    result->GetNext(pos, p, unused);
    if (visited[static_cast<std::size_t>(p)])
      continue;
    CHashTable<int> members;
    std::vector<int> stack{p};
    visited[static_cast<std::size_t>(p)] = 1;
    while (!stack.empty()) {
      const int q = stack.back();
      stack.pop_back();
      const CProximityResult::Set* s = result->GetSet(q);
      for (int it = s->GetFirst(); it >= 0;) {
        int j = 0;
        s->GetNext(it, j);
        members.Insert(j);
        if (!visited[static_cast<std::size_t>(j)]) {
          visited[static_cast<std::size_t>(j)] = 1;
          stack.push_back(j);
        }
      }
    }
    members.Remove(p);
    for (int it = members.GetFirst(); it >= 0;) {
      int m = 0;
      members.GetNext(it, m);
      changed |= obj.GetFaceList()->ReplaceIndex(&info, m, p) != 0;
    }
  }
  if (changed)
    obj.Clean();
}

void ExpectSameMesh(const C3DObject& fast, const C3DObject& slow, int round) {
  ASSERT_EQ(fast.GetPointNbr(), slow.GetPointNbr()) << "round " << round;
  ASSERT_EQ(fast.GetFaceNbr(), slow.GetFaceNbr()) << "round " << round;
  for (int i = 0; i < fast.GetPointNbr(); ++i)
    ASSERT_EQ(test::At(fast, i), test::At(slow, i)) << "round " << round << " point " << i;
  for (int f = 0; f < fast.GetFaceNbr(); ++f) {
    const C3DFace& a = (*fast.GetFaceList())[f];
    const C3DFace& b = (*slow.GetFaceList())[f];
    ASSERT_EQ(test::Indices(a), test::Indices(b)) << "round " << round << " face " << f;
    ASSERT_EQ(a.IsFlagSet(FACE_EXCLUDED), b.IsFlagSet(FACE_EXCLUDED)) << "round " << round;
  }
}

TEST(Weld, MatchesTheProximityResultWalkExactly) {
  // Random quads over a small lattice with jitter: clusters of every size,
  // within one cell and across several, and faces that collapse.
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> lattice(-3, 3);
  std::uniform_real_distribution<float> jitter(-0.3f, 0.3f);
  for (int round = 0; round < 20; ++round) {
    std::vector<test::P3> pts;
    test::Faces faces;
    for (int f = 0; f < 60; ++f) {
      std::vector<int> face;
      for (int k = 0; k < 4; ++k) {
        face.push_back(static_cast<int>(pts.size()));
        pts.push_back({lattice(rng) + jitter(rng) * (round % 3), static_cast<float>(lattice(rng)),
                       lattice(rng) * 0.5f});
      }
      faces.push_back(face);
    }
    // Faces over points of other faces: several members of one cluster, the
    // target itself, and an index listed twice in one face.
    std::uniform_int_distribution<int> anyPoint(0, static_cast<int>(pts.size()) - 1);
    for (int f = 0; f < 15; ++f) {
      std::vector<int> face;
      for (int k = 0; k < 3 + f % 3; ++k)
        face.push_back(anyPoint(rng));
      if (f % 4 == 0)
        face.push_back(face[0] == face[1] ? face[2] : face[1]);
      faces.push_back(face);
    }
    pts.push_back({100, 100, 100}); // used by no face
    const float tolerance = 0.2f + 0.1f * static_cast<float>(round % 4);
    auto fast = MakeMesh(pts, faces);
    auto slow = MakeMesh(pts, faces);
    for (C3DObject* obj : {fast.get(), slow.get()}) {
      // Faces kept out of the graphs are kept out of the welding too; points
      // and faces flagged for removal go with the clean that ends the weld.
      (*obj->GetFaceList())[round].SetFlag(FACE_EXCLUDED, 1);
      if (round % 2 == 0)
        (*obj->GetPointList())[round * 7].SetFlag(PT_INVALID, 1);
      if (round % 3 == 0)
        (*obj->GetFaceList())[round + 1].SetFlag(FACE_INVALID, 1);
    }
    int points = 0, removed = 0;
    Weld3DPoints(*fast, tolerance, points, removed);
    ReferenceWeld(*slow, tolerance);
    ExpectSameMesh(*fast, *slow, round);
  }
}

TEST(Weld, FewClustersAmongManyPointsMatchTheWalk) {
  // Far apart points with a few copies late in the list: the proximity
  // result then has few keys, some beyond its slot count.
  std::vector<test::P3> pts;
  test::Faces faces;
  for (int i = 0; i < 3000; ++i)
    pts.push_back({static_cast<float>(i % 60) * 10, static_cast<float>(i / 60) * 10, 0});
  for (int i = 0; i + 2 < 3000; i += 3)
    faces.push_back({i, i + 1, i + 2});
  for (int copy : {2990, 5, 2990, 1234, 5, 2999})
    pts.push_back(pts[static_cast<std::size_t>(copy)]);
  faces.push_back({3000, 3001, 3003});
  faces.push_back({2990, 3002, 3004, 7}); // two copies of one point and the point itself
  auto fast = MakeMesh(pts, faces);
  auto slow = MakeMesh(pts, faces);
  int points = 0, removed = 0;
  Weld3DPoints(*fast, 0.5f, points, removed);
  ReferenceWeld(*slow, 0.5f);
  EXPECT_EQ(points, 3006 - slow->GetPointNbr());
  EXPECT_GE(points, 4);
  ExpectSameMesh(*fast, *slow, 0);
}

} // namespace
} // namespace meshcore
