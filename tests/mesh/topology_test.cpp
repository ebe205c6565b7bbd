#include "tests/support/mesh_fixtures.h"

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/platform/exceptions.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace meshcore;
using namespace meshcore::test;

namespace {

std::vector<int> Indices(const CIntArrayID& a) {
  return std::vector<int>(a.GetData(), a.GetData() + a.GetSize());
}

} // namespace

TEST(GeomInfo, ChannelPairsNeedMatchingValidIds) {
  C3DPointList points;
  C3DFaceList faces;
  CGeomInfo info(&faces, &points);
  // SetChannels takes a destination only when each of its ids is a source id.
  CDependentChannels a, b, c;
  CChannel* uv = new CUVWChannel;
  a.AddChannel(uv);
  b.AddChannel(uv->Copy(CHANNEL_COPY_KEEP_ID));
  c.AddChannel(new CUVWChannel);
  EXPECT_EQ(info.SetChannels(&a, &b), 0); // no source channels yet
  EXPECT_EQ(info.SetChannels(&a, nullptr), 1);
  EXPECT_EQ(info.SetChannels(&a, &c), 0);
  EXPECT_EQ(info.GetDstChannels(), nullptr);
  EXPECT_EQ(info.SetChannels(&a, &b), 1);
  EXPECT_EQ(info.GetDstChannels(), &b);
  EXPECT_EQ(info.GetChannelsSize(), 1);
  uv->SetFlag(CHANNEL_INVALID, 1);
  EXPECT_EQ(info.GetChannelsSize(), 0);
}

TEST(Topology, NeighbourhoodQueries) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(3, 3, points, faces); // 16 points, 9 quads; point 5 is interior
  CGeomInfo info(&faces, &points);
  CIntArrayID out;
  EXPECT_EQ(faces.GetPointsNeighbourg(&info, 5, out, CONNECTION_EDGE), 4);
  EXPECT_EQ(Indices(out), (std::vector<int>{1, 4, 6, 9}));
  EXPECT_EQ(faces.GetPointsNeighbourg(&info, 5, out, CONNECTION_POINT), 8);
  EXPECT_EQ(Indices(out), (std::vector<int>{0, 1, 2, 4, 6, 8, 9, 10}));

  EXPECT_EQ(faces.GetFacesNeighbourg(&info, 4, out, CONNECTION_EDGE), 4);
  EXPECT_EQ(Indices(out), (std::vector<int>{1, 3, 5, 7}));
  EXPECT_EQ(faces.GetFacesNeighbourg(&info, 0, out, CONNECTION_POINT), 3);
  EXPECT_EQ(Indices(out), (std::vector<int>{1, 3, 4}));

  CIntArrayID pts;
  pts.Add(5);
  pts.Add(6);
  EXPECT_EQ(faces.GetFacesConnectedToPoints(&info, pts, out, CONNECTION_EDGE), 2);
  EXPECT_EQ(Indices(out), (std::vector<int>{1, 4})); // the faces on edge 5-6
  EXPECT_EQ(faces.GetPointsConnectedToPoints(&info, pts, out, CONNECTION_EDGE), 6);
  EXPECT_EQ(Indices(out), (std::vector<int>{1, 2, 4, 7, 9, 10}));

  EXPECT_EQ(faces.GetPointsConnectedToEdge(&info, C3DEdge(6, 5), out, CONNECTION_EDGE), 4);
  EXPECT_EQ(Indices(out), (std::vector<int>{1, 2, 9, 10}));
  EXPECT_EQ(faces.AreFacesConnected(0, 4, CONNECTION_POINT), 1);
  EXPECT_EQ(faces.AreFacesConnected(0, 4, CONNECTION_EDGE), 0);

  // Triangles: the points across an edge are the opposite corners.
  C3DFaceList tris;
  AddFace(tris, {0, 1, 2});
  AddFace(tris, {2, 1, 3});
  CGeomInfo triInfo(&tris, &points);
  EXPECT_EQ(tris.GetPointsConnectedToEdge(&triInfo, C3DEdge(1, 2), out, CONNECTION_EDGE), 2);
  EXPECT_EQ(Indices(out), (std::vector<int>{0, 3}));

  // Groups stop at invalid faces.
  faces[1].SetFlag(FACE_INVALID, 1);
  faces[4].SetFlag(FACE_INVALID, 1);
  faces[7].SetFlag(FACE_INVALID, 1);
  EXPECT_EQ(faces.CreateFaceGroup(&info, 0, out, CONNECTION_EDGE), 3);
  EXPECT_EQ(Indices(out), (std::vector<int>{0, 3, 6}));
  EXPECT_EQ(faces.CreateFaceGroup(&info, 0, out, CONNECTION_POINT), 3);
  EXPECT_EQ(faces.CreateFaceGroup(&info, 1, out, CONNECTION_EDGE), 0);
}

TEST(Topology, OppositeEdgeStrips) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(4, 2, points, faces); // 5 x 3 points; row 0 is faces 0..3
  CGeomInfo info(&faces, &points);
  CIntArrayID out;
  // Edge 6-11 lies between faces 4 and 5 of row 1.
  EXPECT_EQ(faces.GetFacesByOppositeEdges(&info, C3DEdge(6, 11), out), 4);
  EXPECT_EQ(Indices(out), (std::vector<int>{7, 6, 5, 4}));
  // A horizontal edge crosses the rows.
  EXPECT_EQ(faces.GetFacesByOppositeEdges(&info, C3DEdge(7, 6), out), 2);
  EXPECT_EQ(Indices(out), (std::vector<int>{5, 1}));
  // A triangle ends the strip and belongs to it.
  AddFace(faces, {4, 9, 10});
  faces.SetFlag(FL_CHANGED, 1);
  EXPECT_EQ(faces.GetFacesByOppositeEdges(&info, C3DEdge(1, 6), out), 5);
  EXPECT_EQ(Indices(out), (std::vector<int>{8, 3, 2, 1, 0}));

  // A closed ring of quads comes back to its start.
  C3DPointList ringPoints;
  C3DFaceList ring;
  ringPoints.SetSize(8, -1);
  for (int i = 0; i < 4; ++i)
    AddFace(ring, {i, i + 4, (i + 1) % 4 + 4, (i + 1) % 4});
  CGeomInfo ringInfo(&ring, &ringPoints);
  EXPECT_EQ(ring.GetFacesByOppositeEdges(&ringInfo, C3DEdge(1, 5), out), 4);
  EXPECT_EQ(ring.DeleteFacesByOppositeEdges(&ringInfo, C3DEdge(1, 5)), 4);
  EXPECT_EQ(ring.GetSize(), 0);
  EXPECT_EQ(ringPoints.GetSize(), 0);
}

// The list form of ReplaceIndex keeps the point-to-face graph equal to a fresh build.
TEST(Topology, ReplaceIndexKeepsGraphExact) {
  std::mt19937 rng(7);
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(6, 6, points, faces);
  CGeomInfo info(&faces, &points);
  faces.InitPointToFaceGraph(&info);
  faces.InitEdgeToFaceGraph(&info);
  int changed = 0;
  for (int round = 0; round < 40; ++round) {
    const int a = static_cast<int>(rng() % 49);
    const int b = static_cast<int>(rng() % 49);
    changed += faces.ReplaceIndex(&info, a, b);
  }
  EXPECT_GT(changed, 0);
  EXPECT_FALSE(faces.IsEdgeToFaceGraphBuilt());
  C3DFaceList fresh;
  fresh = faces;
  fresh.InitPointToFaceGraph(&info);
  for (int p = 0; p < 49; ++p) {
    int n1 = 0, n2 = 0;
    const int* f1 = faces.GetFacesConnectedToPoint(p, n1);
    const int* f2 = fresh.GetFacesConnectedToPoint(p, n2);
    ASSERT_EQ(std::vector<int>(f1, f1 + n1), std::vector<int>(f2, f2 + n2)) << "point " << p;
  }
  EXPECT_EQ(faces.ReplaceIndex(&info, 3, 3), 0);
  EXPECT_EQ(faces.ReplaceIndex(&info, 3, 49), 0); // outside the graph
}
