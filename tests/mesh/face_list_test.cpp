#include "tests/support/mesh_fixtures.h"

#include "meshcore/containers/custom_data.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_2d.h"
#include "meshcore/mesh/uvw_face_list.h"
#include "meshcore/mesh/uvw_point_list.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/exceptions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace meshcore;
using namespace meshcore::test;

namespace {

std::vector<int> FacesOfPoint(const CFaceList& faces, int p) {
  int n = 0;
  const int* f = faces.GetFacesConnectedToPoint(p, n);
  return std::vector<int>(f, f + n);
}

} // namespace

TEST(Face, IndexEditing) {
  C3DFace f;
  EXPECT_FALSE(f.IsFlagSet(FACE_INVALID)); // new and empty, yet not flagged
  f.AddIndex(5);
  EXPECT_TRUE(f.IsFlagSet(FACE_INVALID));
  f.AddIndex(6);
  EXPECT_EQ(f.AddIndex(7), 2);
  EXPECT_FALSE(f.IsFlagSet(FACE_INVALID));

  EXPECT_EQ(f.ReplaceIndex(5, 7), FACE_DEGENERATE); // 7 is there: it goes, 5 stays
  EXPECT_EQ(Indices(f), (std::vector<int>{5, 6}));
  EXPECT_TRUE(f.IsFlagSet(FACE_INVALID));
  EXPECT_EQ(f.RemoveIndex(9), 0);
  EXPECT_TRUE(f.IsFlagSet(FACE_INVALID)); // unchanged by a failed removal

  f.SetTriangle(5, 6, 8);
  EXPECT_EQ(f.ReplaceIndex(5, 7), FACE_CHANGED);
  EXPECT_EQ(Indices(f), (std::vector<int>{7, 6, 8}));
  EXPECT_EQ(f.ReplaceIndex(1, 2), FACE_UNCHANGED);

  f.AddIndex(6);
  EXPECT_EQ(f.RemoveIndex(6), 1); // the last occurrence
  EXPECT_EQ(Indices(f), (std::vector<int>{7, 6, 8}));
  EXPECT_EQ(f.IsFacePoint(8), 2);
  EXPECT_EQ(f.IsFaceEdge(8, 7, 1), 2); // closing edge
  EXPECT_EQ(f.IsFaceEdge(7, 8, 1), -1);
  EXPECT_EQ(f.IsFaceEdge(7, 8, 0), 2);
  f.InvertOrientation();
  EXPECT_EQ(Indices(f), (std::vector<int>{8, 6, 7}));
  f.ClearIndex();
  EXPECT_TRUE(f.IsFlagSet(FACE_INVALID));
  f.SetSize(3);
  EXPECT_FALSE(f.IsFlagSet(FACE_INVALID));
}

TEST(FaceList, GraphsAndUpdates) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(2, 2, points, faces); // 9 points, 4 quads
  faces[3].SetFlag(FACE_EXCLUDED, 1);
  CGeomInfo info(&faces, &points);
  faces.InitPointToFaceGraph(&info);
  faces.InitEdgeToFaceGraph(&info);
  EXPECT_EQ(FacesOfPoint(faces, 4), (std::vector<int>{0, 1, 2})); // face 3 is excluded
  EXPECT_EQ(FacesOfPoint(faces, 8), (std::vector<int>{}));
  EXPECT_THROW(FacesOfPoint(faces, 9), CInvalidArgException);
  int n = 0;
  const int* e = faces.GetFacesConnectedToEdge(C3DEdge(4, 1), n); // either direction
  EXPECT_EQ(std::vector<int>(e, e + n), (std::vector<int>{0, 1}));
  EXPECT_EQ(faces.GetFacesConnectedToEdge(C3DEdge(4, 8), n), nullptr);
  // Edges in first-met order, smaller index first.
  const CEdgeGraph& graph = faces.GetEdgeGraph();
  EXPECT_EQ(graph.GetCount(), 10);
  EXPECT_EQ(graph.GetAt(0).first, C3DEdge(0, 3));
  EXPECT_EQ(graph.GetAt(1).first, C3DEdge(3, 4));
  EXPECT_EQ(graph.GetAt(3).first, C3DEdge(0, 1));

  faces.SetBorderFacesStatus();
  EXPECT_EQ(faces.GetNumberOfFaces(FACE_BORDER, 1), 3);
  EXPECT_EQ(faces.IsIsolatedFace(0), 0);
  EXPECT_EQ(faces.IsIsolatedFace(3), 0); // excluded, but its neighbours hold its edges
  EXPECT_EQ(faces.IsPointNeighbourg(0, 4), 0);
  EXPECT_EQ(faces.IsPointNeighbourg(3, 4), 1);
  EXPECT_EQ(faces.DoesEdgeBelongToFace(C3DEdge(1, 4), 1), 1);
  EXPECT_EQ(faces.DoesEdgeBelongToFace(C3DEdge(1, 4), 2), 0);

  // Graph edits keep arrays increasing.
  EXPECT_EQ(faces.GraphRemoveFaceReference(0), 1); // point 0 had only face 0
  EXPECT_EQ(FacesOfPoint(faces, 4), (std::vector<int>{1, 2}));
  faces.GraphMergePointConnectivity(4, 1);
  EXPECT_EQ(FacesOfPoint(faces, 4), (std::vector<int>{1, 2}));
  EXPECT_EQ(FacesOfPoint(faces, 1), (std::vector<int>{}));

  // A change mark rebuilds built graphs on the next request, and only those.
  faces.DeleteEdgeToFaceGraph();
  faces[3].SetFlag(FACE_EXCLUDED, 0);
  faces.SetFlag(FL_CHANGED, 1);
  faces.InitPointToFaceGraph(&info);
  EXPECT_FALSE(faces.IsFlagSet(FL_CHANGED));
  EXPECT_FALSE(faces.IsEdgeToFaceGraphBuilt());
  EXPECT_EQ(FacesOfPoint(faces, 4), (std::vector<int>{0, 1, 2, 3}));

  // Scattered indices take the hashed path: same contents, same order.
  C3DFaceList far;
  AddFace(far, {0, 1, 2});
  AddFace(far, {2, 1, 1000000000});
  far.InitEdgeToFaceGraph(nullptr);
  const CEdgeGraph& fg = far.GetEdgeGraph();
  ASSERT_EQ(fg.GetCount(), 5);
  EXPECT_EQ(fg.GetAt(2).first, C3DEdge(0, 2));
  EXPECT_EQ(fg.GetAt(3).first, C3DEdge(1, 1000000000));
  EXPECT_EQ(fg.GetAt(1).second.GetSize(), 2);
  EXPECT_EQ(far.GetFacesConnectedToEdge(C3DEdge(1000000000, 2), n)[0], 1);

  // A face index outside the topology's points cannot enter the graph.
  AddFace(faces, {0, 1, 42});
  faces.SetFlag(FL_CHANGED, 1);
  EXPECT_THROW(faces.InitPointToFaceGraph(&info), CInvalidArgException);
}

TEST(FaceList, FlagsIndicesAndMaterials) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(3, 1, points, faces);
  faces[0].SetMaterialID(7);
  faces[1].SetMaterialID(0xFFFFFFF0u); // compared unsigned
  faces[2].SetMaterialID(2);
  int* order = faces.SortByMaterial();
  ASSERT_NE(order, nullptr);
  EXPECT_EQ(std::vector<int>(order, order + 3), (std::vector<int>{2, 0, 1}));
  delete[] order;
  EXPECT_EQ(C3DFaceList().SortByMaterial(), nullptr);

  CGeomInfo info(&faces, &points);
  CHashUInt* hash = faces.GetMaterialsHash(&info);
  EXPECT_EQ(hash->GetCount(), 3);
  faces[2].SetMaterialID(7);
  faces.SetFlag(FL_CHANGED, 1);
  EXPECT_EQ(faces.GetMaterialsHash(&info)->GetCount(), 2);

  // Assigning other faces drops the hash, which described the old ones.
  C3DFaceList other;
  AddFace(other, {0, 1, 2});
  other.CreateMaterialsHash();
  other = faces;
  EXPECT_FALSE(other.IsMaterialsHashBuilt());
  CGeomInfo otherInfo(&other, &points);
  EXPECT_EQ(other.GetMaterialsHash(&otherInfo)->GetCount(), 2);
  other[1].SetFlag(FACE_SELECTED, 1);
  EXPECT_EQ(faces.InheritFlags(other, FACE_SELECTED, FACE_HIDDEN, 0), 1);
  EXPECT_EQ(faces.GetNumberOfFaces(FACE_HIDDEN, 1), 1);
  other.RemoveAt(0, 1);
  EXPECT_EQ(faces.InheritFlags(other, FACE_SELECTED, FACE_HIDDEN, 0), 0);

  CIndexMap map;
  map.SetAt(0, 100);
  map.SetAt(5, 105);
  faces.UpdateIndex(map);
  EXPECT_EQ(Indices(faces[0]), (std::vector<int>{100, 4, 105, 1}));
  EXPECT_EQ(Indices(faces[1]), (std::vector<int>{1, 105, 6, 2}));
}

TEST(FaceList, CompactionAndIndexCleaning) {
  C3DFaceList faces;
  AddFace(faces, {1, 1, 2, 2});
  AddFace(faces, {1, 2, 1});
  AddFace(faces, {3, 4, 5});
  faces[2].SetFlag(FACE_INVALID, 1);
  AddFace(faces, {6, 6, 7, 8});
  faces[3].SetFlag(FACE_EXCLUDED, 1); // excluded: not index-cleaned, still kept
  CIndexMap map;
  ASSERT_EQ(faces.Clean(nullptr, 1, &map), 1);
  ASSERT_EQ(faces.GetSize(), 2);
  EXPECT_EQ(Indices(faces[0]), (std::vector<int>{1, 2, 1}));
  EXPECT_EQ(Indices(faces[1]), (std::vector<int>{6, 6, 7, 8}));
  EXPECT_EQ(map.GetCount(), 2);
  EXPECT_EQ(*map.PLookup(1), 0);
  EXPECT_EQ(*map.PLookup(3), 1);
  EXPECT_EQ(faces.Clean(nullptr, 1, &map), 0);
  EXPECT_TRUE(map.IsEmpty());

  C3DFaceList single;
  AddFace(single, {1, 1, 2, 2});
  single.Clean(nullptr, 0, nullptr);
  EXPECT_EQ(single.GetSize(), 1); // no index cleaning asked
  single.Clean(nullptr, 1, nullptr);
  EXPECT_EQ(single.GetSize(), 0);

  // The mesh clean returns 1 only when faces and points both went.
  C3DPointList points;
  C3DFaceList grid;
  MakeGrid(2, 1, points, grid);
  CGeomInfo info(&grid, &points);
  grid.SetFlag(FACE_SELECTED, 1);
  grid[1].SetFlag(FACE_INVALID, 1);
  EXPECT_EQ(grid.Clean(&info), 1);
  EXPECT_EQ(points.GetSize(), 4);
  EXPECT_TRUE(points.IsFlagSet(PL_CHANGED));
  AddFace(grid, {0, 1, 3, 2});
  grid[0].SetFlag(FACE_INVALID, 1);
  EXPECT_EQ(grid.Clean(&info), 0); // faces went, every point is still used
  EXPECT_EQ(grid.GetSize(), 1);
  // A face on an invalidated point goes with it.
  points.SetSize(5, -1);
  AddFace(grid, {1, 2, 4});
  points[4].SetFlag(PT_INVALID, 1);
  grid.Clean(&info);
  ASSERT_EQ(grid.GetSize(), 1);
  EXPECT_EQ(points.GetSize(), 4);
}

TEST(FaceList, BorderOfAFaceSet) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(2, 2, points, faces);
  CHashTable<int> set;
  set.Insert(0);
  set.Insert(1);
  CHashTable<C3DEdge> edges;
  edges.Insert(C3DEdge(77, 78));
  faces.GetEdgesOnBorder(nullptr, edges, set);
  EXPECT_EQ(edges.GetCount(), 6); // two quads side by side: 7 edges, 1 shared
  EXPECT_FALSE(edges.IsFound(C3DEdge(1, 4)));
  EXPECT_TRUE(edges.IsFound(C3DEdge(0, 1)));
  EXPECT_FALSE(edges.IsFound(C3DEdge(77, 78)));
}

TEST(FaceList, GeometryQueries) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(1, 1, points, faces); // unit square, clockwise from +z
  CGeomInfo info(&faces, &points);
  const C3DFace& sq = faces[0];
  C3DVector n;
  sq.GetNormal(&info, n);
  EXPECT_FLOAT_EQ(n.z, 1.0f);
  C3DPoint c;
  sq.GetCenter(&info, c);
  EXPECT_EQ(c, C3DPoint(0.5f, 0.5f, 0));
  C4DVector plane;
  ASSERT_EQ(sq.GetPlane(&info, plane), 1);
  EXPECT_FLOAT_EQ(plane.z, 1.0f);
  EXPECT_FLOAT_EQ(plane.w, 0.0f);
  EXPECT_EQ(sq.IsConvex(&info), 1);
  EXPECT_EQ(sq.IsPlane(&info, 1e-6f), 1);
  EXPECT_NEAR(sq.GetCompacityFactor(&info), 3.14159265f / 4, 1e-5);

  C2DPointList flat;
  sq.Get2DCoordinates(&info, flat);
  ASSERT_EQ(flat.GetSize(), 4);
  EXPECT_TRUE(flat[0].x == 0.0f && flat[0].y == 0.0f);
  EXPECT_FLOAT_EQ(flat[1].x, 1.0f); // corner 1 on the positive x axis
  EXPECT_NEAR(flat[1].y, 0.0f, 1e-6);
  EXPECT_NEAR(std::fabs(flat[2].y), 1.0f, 1e-6);

  // A dart (reflex corner at index 3) and a bent quad.
  points.SetSize(8, -1);
  points[4] = C3DPoint(0, 0, 0);
  points[5] = C3DPoint(0, 4, 0);
  points[6] = C3DPoint(4, 0, 0);
  points[7] = C3DPoint(1, 1, 0);
  AddFace(faces, {4, 5, 7, 6});
  EXPECT_EQ(faces[1].IsConvex(&info), 0);
  points[7].z = 0.5f;
  EXPECT_EQ(faces[1].IsPlane(&info, 0.01f), 0);

  AddFace(faces, {4, 4, 4});
  faces[2].GetNormal(&info, n);
  EXPECT_TRUE(n.IsNull());
  EXPECT_EQ(faces[2].GetCompacityFactor(&info), 0.0f);
}

TEST(FaceList, ArchiveForm) {
  C3DFaceList faces;
  AddFace(faces, {0, 1, 2}, 5);
  faces[0].SetFlag(FACE_SELECTED, 1);
  CMemFile file;
  {
    CArchive ar(&file, CArchive::store);
    faces.Serialize(ar);
  }
  const auto& bytes = file.Data();
  ASSERT_EQ(bytes.size(), 2u + 8 + 8); // a face writes its flags and material only
  EXPECT_EQ(bytes[2], 48);
  EXPECT_EQ(bytes[10], 1);
  EXPECT_EQ(bytes[14], 5);
  C3DFaceList back;
  CMemFile in(bytes);
  CArchive ar(&in, CArchive::load);
  back.Serialize(ar);
  ASSERT_EQ(back.GetSize(), 1);
  EXPECT_EQ(back[0].GetMaterialID(), 5u);
  EXPECT_TRUE(back[0].IsFlagSet(FACE_SELECTED));
  EXPECT_EQ(back[0].GetSize(), 0);
}
