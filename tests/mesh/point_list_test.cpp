#include "tests/support/mesh_fixtures.h"

#include "meshcore/containers/custom_data.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_2d.h"
#include "meshcore/mesh/uvw_point_list.h"
#include "meshcore/mesh/vc_point_list.h"
#include "meshcore/mesh/vector_list_3d.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/exceptions.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace meshcore;
using namespace meshcore::test;

namespace {

std::vector<std::uint8_t> Store(CObject& obj) {
  CMemFile file;
  {
    CArchive ar(&file, CArchive::store);
    obj.Serialize(ar);
    ar.Flush();
  }
  return file.Data();
}

void Load(CObject& obj, const std::vector<std::uint8_t>& bytes) {
  CMemFile file(bytes);
  CArchive ar(&file, CArchive::load);
  obj.Serialize(ar);
}

} // namespace

TEST(PointList, CleanAgainstFaces) {
  C3DPointList points;
  C3DFaceList faces;
  points.SetSize(6, -1);
  for (int i = 0; i < 6; ++i)
    points[i].x = static_cast<float>(i);
  AddFace(faces, {0, 2, 4});
  AddFace(faces, {1, 2, 3});
  faces[1].SetFlag(FACE_INVALID, 1); // its points do not count
  AddFace(faces, {5, 4, 2});
  faces[2].SetFlag(FACE_EXCLUDED, 1); // nor do these

  CIndexMap map;
  map.SetAt(99, 99);
  ASSERT_EQ(points.Clean(&faces, &map), 1);
  ASSERT_EQ(points.GetSize(), 3);
  EXPECT_TRUE(points[0].x == 0 && points[1].x == 2 && points[2].x == 4);
  EXPECT_EQ(map.GetCount(), 3);
  EXPECT_EQ(*map.PLookup(2), 1);
  EXPECT_EQ(*map.PLookup(4), 2);
  EXPECT_FALSE(map.Contains(99));

  // Every point used: nothing changes, but the map is emptied.
  C3DFaceList one;
  AddFace(one, {0, 1, 2});
  map.SetAt(7, 7);
  EXPECT_EQ(points.Clean(&one, &map), 0);
  EXPECT_EQ(points.GetSize(), 3);
  EXPECT_TRUE(map.IsEmpty());

  // Without faces only points already flagged invalid go.
  points[1].SetFlag(PT_INVALID, 1);
  EXPECT_EQ(points.Clean(nullptr, &map), 1);
  ASSERT_EQ(points.GetSize(), 2);
  EXPECT_EQ(points[1].x, 4.0f);

  // Faces that are all invalid remove every point.
  one[0].SetFlag(FACE_INVALID, 1);
  EXPECT_EQ(points.Clean(&one, nullptr), 1);
  EXPECT_EQ(points.GetSize(), 0);
}

TEST(PointList, FlagsBoxAndTransform) {
  C3DPointList points;
  C3DPoint min(7, 7, 7), max(8, 8, 8);
  points.GetBoundingBox(min, max);
  EXPECT_EQ(min, C3DPoint(7, 7, 7)); // empty list: untouched

  points.SetSize(3, -1);
  points[0] = C3DPoint(1, -2, 3);
  points[1] = C3DPoint(-1, 5, 0);
  points[2] = C3DPoint(4, 0, -6);
  points[1].SetFlag(PT_SELECTED, 1);
  points.GetBoundingBox(min, max);
  EXPECT_EQ(min, C3DPoint(-1, -2, -6));
  EXPECT_EQ(max, C3DPoint(4, 5, 3));
  points.GetBoundingBox(min, max, PT_SELECTED, 1);
  EXPECT_EQ(min, C3DPoint(-1, 5, 0));
  EXPECT_TRUE(min.IsFlagSet(PT_SELECTED)); // the first point is assigned whole
  points.GetBoundingBox(min, max, PT_HIDDEN, 1);
  EXPECT_EQ(min, C3DPoint(0, 0, 0));
  EXPECT_EQ(max, C3DPoint(0, 0, 0));
  EXPECT_EQ(points.GetCenterOfBoudingBox(), C3DPoint(1.5f, 1.5f, -1.5f));

  points.SetFlag(PT_HIDDEN, 1);
  points.MatrixTransform(C4x4Matrix(1)); // identity: flags stay
  EXPECT_TRUE(points[0].IsFlagSet(PT_HIDDEN));
  C4x4Matrix m(1);
  m.m[0][3] = 10.0f; // translate x
  points.MatrixTransform(m);
  EXPECT_EQ(points[0], C3DPoint(11, -2, 3));
  EXPECT_EQ(points[0].GetFlags(), 0u);

  int v = 0;
  points.SavePointsIndex();
  EXPECT_EQ(points[1].GetCustomData(0)->GetInt(kPointIndexKey, v), 1);
  EXPECT_EQ(v, 1);

  CIndexMap keep;
  keep.SetAt(2, 0);
  points.InvalidatePoints(nullptr, keep);
  EXPECT_EQ(points.GetNumberOfPoints(PT_INVALID, 1), 2);
  EXPECT_FALSE(points[2].IsFlagSet(PT_INVALID));
}

TEST(PointList, SetInvalidPointsAndBorders) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(2, 1, points, faces); // points 0..5, faces (0,3,4,1) and (1,4,5,2)
  points.SetSize(7, -1);         // point 6 unused
  faces[1].SetFlag(FACE_INVALID, 1);
  points.SetInvalidPoints(faces);
  std::vector<int> invalid;
  for (int i = 0; i < points.GetSize(); ++i)
    if (points[i].IsFlagSet(PT_INVALID))
      invalid.push_back(i);
  EXPECT_EQ(invalid, (std::vector<int>{2, 5, 6}));

  faces[1].SetFlag(FACE_INVALID, 0);
  CGeomInfo info(&faces, &points);
  faces.InitEdgeToFaceGraph(&info);
  points.SetFlag(PT_ALL, 0);
  points.SetBorderPointsStatus(faces.GetEdgeGraph());
  // 1 and 4 end the shared edge and also border edges: both flags.
  EXPECT_TRUE(points[1].IsFlagSet(PT_BORDER | PT_INNER_EDGE));
  EXPECT_TRUE(points[0].IsFlagSet(PT_BORDER));
  EXPECT_FALSE(points[0].IsFlagSet(PT_INNER_EDGE));
  EXPECT_EQ(points[6].GetFlags(), 0u);
}

TEST(PointList, MaterialGraph) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(3, 1, points, faces);
  faces[0].SetMaterialID(1);
  faces[1].SetMaterialID(2);
  faces[2].SetMaterialID(2);
  CGeomInfo info(&faces, &points);
  points.InitPointMaterialGraph(&info);
  EXPECT_TRUE(points.IsPointMaterialGraphBuilt());
  EXPECT_EQ(points.GetNumberOfMaterialsConnectedToPoint(1), 2); // between faces 0 and 1
  EXPECT_EQ(points.GetNumberOfMaterialsConnectedToPoint(5), 2);
  EXPECT_EQ(points.GetNumberOfMaterialsConnectedToPoint(2), 1); // materials 2 and 2
  const CHashUInt* set = points.GetMaterialsConnectedToPoint(1);
  ASSERT_NE(set, nullptr);
  EXPECT_TRUE(set->IsFound(1u) && set->IsFound(2u));

  // A marked change rebuilds the graph on the next request.
  faces[2].SetMaterialID(3);
  points.SetFlag(PL_CHANGED, 1);
  points.InitPointMaterialGraph(&info);
  EXPECT_FALSE(points.IsFlagSet(PL_CHANGED));
  EXPECT_EQ(points.GetNumberOfMaterialsConnectedToPoint(2), 2);

  // Assigning other points drops the graph, which described the old ones.
  C3DPointList other;
  other.SetSize(2);
  points = other;
  EXPECT_EQ(points.GetID(), other.GetID());
  EXPECT_FALSE(points.IsPointMaterialGraphBuilt());
  EXPECT_EQ(points.GetMaterialsConnectedToPoint(1), nullptr);
}

TEST(PointList, ArchiveLayoutAndRoundTrip) {
  C3DPointList points;
  points.SetSize(2, -1);
  points[0] = C3DPoint(1, 2, 3);
  points[1] = C3DPoint(4, 5, 6);
  points[1].SetFlag(PT_SELECTED, 1);
  const auto bytes = Store(points);
  ASSERT_EQ(bytes.size(), 2u + 4 + 4 + 2 * 16);
  // Count 2, then the record size of a 3D point.
  EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 3),
            (std::vector<std::uint8_t>{2, 0, 40}));
  std::uint32_t flags = 0;
  std::memcpy(&flags, &bytes[26], 4);
  EXPECT_EQ(flags, 1u);
  C3DPointList back;
  Load(back, bytes);
  ASSERT_EQ(back.GetSize(), 2);
  EXPECT_EQ(back[1], C3DPoint(4, 5, 6));
  EXPECT_TRUE(back[1].IsFlagSet(PT_SELECTED));

  CVCPointList vc;
  vc.SetSize(1, -1);
  vc[0].SetColor(CRGBColor(1, 2, 3));
  vc[0].SetFlag(PT_SELECTED, 1);
  const auto vcBytes = Store(vc);
  EXPECT_EQ(vcBytes.size(), 2u + 8 + 4); // the colour itself is not written
  CVCPointList vcBack;
  Load(vcBack, vcBytes);
  EXPECT_TRUE(vcBack[0].IsFlagSet(PT_SELECTED));
  EXPECT_EQ(vcBack[0].GetColor(), CRGBColor());

  // A count the stream cannot hold is refused before anything is allocated.
  std::vector<std::uint8_t> hostile = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 40, 0, 0, 0, 0, 0, 0, 0};
  C3DPointList bad;
  EXPECT_THROW(Load(bad, hostile), CArchiveException);
}

// Compaction maps mix a direct table with hashing; keys must behave the same
// wherever they are kept, and iterate in insertion order.
TEST(IndexMap, DirectAndHashedKeys) {
  CIndexMap map;
  const std::vector<int> keys = {5, -3, 2000000000, 0, 3000, 7, 1 << 20, 6};
  for (std::size_t i = 0; i < keys.size(); ++i)
    EXPECT_EQ(map.SetAt(keys[i], static_cast<int>(i)), 1);
  EXPECT_EQ(map.SetAt(3000, 42), 0);
  for (int k = 0; k < 5000; ++k) // grows the direct table over hashed keys
    map.FindOrAdd(10000 + k);
  EXPECT_EQ(map.GetCount(), static_cast<int>(keys.size()) + 5000);
  EXPECT_EQ(*map.PLookup(-3), 1);
  EXPECT_EQ(*map.PLookup(2000000000), 2);
  EXPECT_EQ(*map.PLookup(3000), 42);
  EXPECT_EQ(*map.PLookup(1 << 20), 6);
  EXPECT_FALSE(map.Contains(4));
  EXPECT_FALSE(map.Contains(-4));
  int i = 0;
  for (const auto& [key, value] : map) {
    if (i < static_cast<int>(keys.size())) {
      EXPECT_EQ(key, keys[static_cast<std::size_t>(i)]);
    }
    ++i;
  }
  map.RemoveAll();
  EXPECT_FALSE(map.Contains(5));
  EXPECT_EQ(map.PLookup(2000000000), nullptr);
}
