#include "tests/support/mesh_fixtures.h"

#include "meshcore/containers/custom_data.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_normal_channel.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_normal_channel.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/exceptions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

using namespace meshcore;
using namespace meshcore::test;

namespace {

// A texture channel parallel to faces: corner k of face f gets its own texture
// point (f, k) unless shared is set, in which case it reuses the mesh index.
CUVWChannel* MakeUVW(const C3DFaceList& faces, int meshPoints, bool shared) {
  auto* c = new CUVWChannel;
  CUVWPointList& pts = *c->GetUVWPointList();
  CUVWFaceList& uvFaces = *c->GetUVWFaceList();
  if (shared) {
    pts.SetSize(meshPoints, -1);
    for (int i = 0; i < meshPoints; ++i)
      pts[i].SetUV(static_cast<float>(i), 0, 0);
  }
  uvFaces.SetSize(faces.GetSize(), -1);
  for (int f = 0; f < faces.GetSize(); ++f) {
    CUVWFace& uf = uvFaces[f];
    for (int k = 0; k < faces[f].GetSize(); ++k) {
      if (shared) {
        uf.AddIndex(faces[f][k]);
      } else {
        CUVWPoint p(static_cast<float>(f), static_cast<float>(k), 0);
        uf.AddIndex(pts.Add(&p));
      }
    }
  }
  return c;
}

template <class T> std::vector<std::uint8_t> Store(T& obj) {
  CMemFile file;
  CArchive ar(&file, CArchive::store);
  obj.Serialize(ar);
  ar.Flush();
  return file.Data();
}

template <class T> void Load(T& obj, const std::vector<std::uint8_t>& bytes) {
  CMemFile file(bytes);
  CArchive ar(&file, CArchive::load);
  obj.Serialize(ar);
}

} // namespace

TEST(Channels, CollectionLookupsAndCopies) {
  CDependentChannels set;
  set.AddChannel(new CUVWChannel);
  set.AddChannel(new CVCChannel);
  set.AddChannel(new CUVWChannel);
  EXPECT_EQ(set.GetChannelType(1), CHANNEL_VC);
  CChannel* second = set.GetChannel(1, CHANNEL_UVW);
  EXPECT_EQ(second, set.GetChannel(2));
  const unsigned id = second->GetID();
  EXPECT_EQ(set.GetChannel(id), second);
  EXPECT_EQ(set.GetChannel(id, CHANNEL_VC), nullptr);
  CUVWFaceList* uvFaces = nullptr;
  EXPECT_EQ(set.GetUVWChannel(id, &uvFaces), second);
  EXPECT_EQ(uvFaces, second->GetFaceList());

  set.AddChannel(new CFaceNormalChannel);
  set.AddChannel(new CPointNormalChannel);
  EXPECT_EQ(set.GetFaceNormalChannel(), set.GetChannel(3));
  EXPECT_EQ(set.GetPointNormalChannel(), set.GetChannel(4));
  EXPECT_TRUE(set.GetChannel(3)->IsFlagSet(CHANNEL_INVALID)); // normals start invalid
  EXPECT_EQ(set.GetChannelsNumber(CHANNEL_ALL, 1), 3);
  CIntArrayID idx;
  EXPECT_EQ(set.GetChannels(CHANNEL_UVW | CHANNEL_FACE_NORMAL, idx, 0), 3);
  EXPECT_EQ(idx[2], 3);

  // Copies: operator= keeps ids; CopyChannels takes new ones unless asked.
  CDependentChannels same;
  same = set;
  EXPECT_EQ(same.GetSize(), 5);
  EXPECT_EQ(same.GetChannel(2)->GetID(), id);
  CDependentChannels other;
  other.AddChannel(new CVCChannel);
  set.GetChannel(0)->SetFlag(CHANNEL_INVALID, 1);
  // Only the VC and the second UVW channel are valid.
  EXPECT_EQ(other.CopyChannels(set, CHANNEL_ALL, CHANNEL_COPY_SKIP_INVALID), 2);
  EXPECT_EQ(other.GetSize(), 2);
  EXPECT_EQ(other.CopyChannels(set, CHANNEL_UVW | CHANNEL_VC, CHANNEL_COPY_KEEP_EXISTING), 3);
  EXPECT_EQ(other.GetSize(), 5);
  EXPECT_NE(other.GetChannel(4)->GetID(), id);
  EXPECT_EQ(other.CopyChannels(set, CHANNEL_ALL, CHANNEL_COPY_SKIP_NORMALS | CHANNEL_COPY_KEEP_ID),
            5);
  EXPECT_EQ(other.GetSize(), 3);
  EXPECT_EQ(other.GetChannel(2)->GetID(), id);

  // Removal.
  EXPECT_THROW(set.RemoveChannel(9), CInvalidArgException);
  EXPECT_EQ(set.RemoveChannels(CHANNEL_UVW, 1), 1);
  EXPECT_EQ(set.RemoveChannel(set.GetChannel(0)), 1);
  CUVWChannel stranger;
  EXPECT_EQ(set.RemoveChannel(&stranger), 0);
  EXPECT_EQ(set.GetSize(), 3);
}

TEST(Channels, ArchiveRoundTripAndWrongKinds) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(2, 1, points, faces);
  std::unique_ptr<CUVWChannel> uv(MakeUVW(faces, points.GetSize(), false));
  uv->GetCustomData().SetInt(1, 5);

  CDependentChannels set;
  set.AddChannel(uv.release());
  auto* vc = new CVCChannel(1234);
  vc->GetVCPointList()->SetSize(2, -1);
  set.AddChannel(vc);
  auto* pn = new CPointNormalChannel;
  CGeomInfo info(&faces, &points);
  pn->InitNormals(&info, 0.5f);
  set.AddChannel(pn);
  const auto bytes = Store(set);
  CDependentChannels back;
  back.AddChannel(new CVCChannel); // replaced by what is read
  Load(back, bytes);
  ASSERT_EQ(back.GetSize(), 3);
  auto* uvBack = dynamic_cast<CUVWChannel*>(back.GetChannel(0));
  ASSERT_NE(uvBack, nullptr);
  EXPECT_EQ(uvBack->GetID(), set.GetChannel(0)->GetID());
  EXPECT_EQ(uvBack->GetFaceList()->GetSize(), 2);
  EXPECT_TRUE(uvBack->GetCustomData().HasData(1));
  EXPECT_EQ(back.GetChannel(1)->GetID(), 1234u);
  auto* pnBack = dynamic_cast<CPointNormalChannel*>(back.GetChannel(2));
  ASSERT_NE(pnBack, nullptr);
  EXPECT_EQ(pnBack->GetSmoothAngle(), 0.5f);
  EXPECT_FALSE(pnBack->IsFlagSet(CHANNEL_INVALID));
  EXPECT_EQ(Store(back), bytes);

  // A texture channel whose stored type or lists are of another kind is refused.
  CMemFile file;
  {
    CArchive ar(&file, CArchive::store);
    ar.WriteCount(1);
    ar.WriteClass(MESHCORE_RUNTIME_CLASS(CUVWChannel));
    CVCChannel wrong(5);
    std::uint32_t id = 5, type = CHANNEL_UVW, flags = 0;
    ar << id << type << flags;
    ar << std::uint32_t{1};
    ar.WriteClass(MESHCORE_RUNTIME_CLASS(CVCPointList));
    wrong.GetPointList()->Serialize(ar);
  }
  CDependentChannels hostile;
  EXPECT_THROW(Load(hostile, file.Data()), CArchiveException);
  EXPECT_EQ(hostile.GetSize(), 0);
}

TEST(Channels, NormalsAndSeams) {
  // A cube with faces running clockwise seen from outside.
  C3DPointList points;
  C3DFaceList faces;
  points.SetSize(8, -1);
  for (int i = 0; i < 8; ++i)
    points[i] = C3DPoint(i & 1 ? 1.f : -1.f, i & 2 ? 1.f : -1.f, i & 4 ? 1.f : -1.f);
  AddFace(faces, {0, 1, 3, 2});
  AddFace(faces, {4, 6, 7, 5});
  AddFace(faces, {0, 4, 5, 1});
  AddFace(faces, {2, 3, 7, 6});
  AddFace(faces, {0, 2, 6, 4});
  AddFace(faces, {1, 5, 7, 3});
  CGeomInfo info(&faces, &points);
  CFaceNormalChannel fn;
  ASSERT_EQ(fn.InitNormals(&info), 1);
  EXPECT_FALSE(fn.IsFlagSet(CHANNEL_INVALID));
  const C3DVectorList& fnl = *fn.GetNormalList();
  ASSERT_EQ(fnl.GetSize(), 6);
  for (int f = 0; f < 6; ++f) {
    C3DPoint c;
    faces[f].GetCenter(&info, c);
    EXPECT_NEAR(fnl[f] * C3DVector(c), 1.0f, 1e-5) << "face " << f; // outward unit normals
  }
  CPointNormalChannel pn;
  ASSERT_EQ(pn.InitNormals(&info, 0.3f), 1);
  const C3DVectorList& pnl = *pn.GetNormalList();
  const float d = 1.0f / std::sqrt(3.0f);
  EXPECT_NEAR(pnl[7].x, d, 1e-5);
  EXPECT_NEAR(pnl[0].z, -d, 1e-5);

  ASSERT_EQ(pn.PrepareSmoothing(&info, 0.3f), 1);
  C3DVector n;
  ASSERT_EQ(pn.GetSmoothNormal(&info, 1, 2, n), 1); // a hard corner keeps the face normal
  EXPECT_NEAR(n.z, 1.0f, 1e-5);
  pn.PrepareSmoothing(&info, 3.0f);
  pn.GetSmoothNormal(&info, 1, 2, n); // a wide angle blends the three faces
  EXPECT_NEAR(n.x, d, 1e-5);
  EXPECT_EQ(pn.GetSmoothNormal(&info, 1, 9, n), 0);

  // Seams: a texture channel that splits the two quads of a strip.
  C3DPointList gp;
  C3DFaceList gf;
  MakeGrid(2, 1, gp, gf);
  CGeomInfo ginfo(&gf, &gp);
  std::unique_ptr<CUVWChannel> uv(MakeUVW(gf, gp.GetSize(), true));
  EXPECT_EQ(uv->InitShareUVFlag(&ginfo, 0.0f, PT_SELECTED), 0);
  CUVWPoint split(9, 9, 9);
  const int s = uv->GetUVWPointList()->Add(&split);
  (*uv->GetUVWFaceList())[1][0] = s; // face 1 uses its own point at mesh point 1
  uv->Delete3DPointIndexToUVWPointIndexGraph();
  EXPECT_EQ(uv->InitShareUVFlag(&ginfo, 0.0f, PT_SELECTED), 1);
  EXPECT_TRUE(gp[1].IsFlagSet(PT_SELECTED));
  EXPECT_EQ(uv->GetUVWPointIndex(1, 1), s);
  (*uv->GetUVWPointList())[s].SetUV(1, 0, 0); // same coordinates: not a seam
  EXPECT_EQ(uv->InitShareUVFlag(&ginfo, 0.0f, PT_SELECTED), 0);
  EXPECT_FALSE(gp[1].IsFlagSet(PT_SELECTED));

  CVCChannel vc;
  vc.GetVCPointList()->SetSize(2, -1);
  CVCFaceList& vf = *vc.GetVCFaceList();
  vf.SetSize(2, -1);
  for (int k = 0; k < 4; ++k) {
    vf[0].AddIndex(0);
    vf[1].AddIndex(1);
  }
  EXPECT_EQ(vc.InitVCFrontierFlag(&ginfo, PT_HIDDEN, 1), 0); // both points black
  EXPECT_EQ(vc.InitVCFrontierFlag(&ginfo, PT_HIDDEN, 0), 2); // points 1 and 4
  EXPECT_TRUE(gp[4].IsFlagSet(PT_HIDDEN));
}

TEST(Channels, CleanFollowsTheMesh) {
  C3DPointList points;
  C3DFaceList faces;
  MakeGrid(3, 1, points, faces);
  CDependentChannels set;
  set.AddChannel(MakeUVW(faces, points.GetSize(), false));
  CUVWChannel* shorter = MakeUVW(faces, points.GetSize(), false);
  shorter->GetFaceList()->RemoveAt(2, 1);
  set.AddChannel(shorter);
  set.AddChannel(new CFaceNormalChannel);
  set.AddChannel(new CPointNormalChannel);
  CGeomInfo info(&faces, &points);
  info.SetChannels(&set, nullptr);
  faces[0].SetFlag(FACE_INVALID, 1);
  EXPECT_EQ(faces.Clean(&info), 1);
  EXPECT_EQ(faces.GetSize(), 2);
  EXPECT_EQ(points.GetSize(), 6);
  EXPECT_TRUE(set.GetChannel(0)->IsValid());
  EXPECT_EQ(set.GetChannel(0)->GetFaceList()->GetSize(), 2);
  EXPECT_EQ(set.GetChannel(0)->GetPointList()->GetSize(), 8);
  EXPECT_FALSE(set.GetChannel(1)->IsValid());
  EXPECT_FALSE(set.GetChannel(2)->IsValid());
  EXPECT_FALSE(set.GetChannel(3)->IsValid());
  EXPECT_EQ(set.CleanChannels(&info, nullptr, nullptr), 3);
}

// After random edits and the mesh clean, every valid texture and colour channel
// is parallel to the mesh and no face refers to a point outside its list;
// surviving faces keep their corners' positions, texture points and colours.
TEST(Channels, RandomEditsKeepChannelsParallel) {
  constexpr unsigned kOriginKey = 0x4F524947;
  for (unsigned seed = 1; seed <= 40; ++seed) {
    std::mt19937 rng(seed);
    auto pick = [&rng](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    C3DPointList points;
    C3DFaceList faces;
    const int np = 20 + pick(60);
    points.SetSize(np, -1);
    for (int i = 0; i < np; ++i)
      points[i] = C3DPoint(static_cast<float>(i), static_cast<float>(pick(5)), 0);
    const int nf = 1 + pick(50);
    for (int f = 0; f < nf; ++f) {
      C3DFace face;
      const int corners = 3 + pick(3);
      while (face.GetSize() < corners) {
        const int p = pick(np);
        if (face.IsFacePoint(p) < 0)
          face.AddIndex(p);
      }
      face.GetCustomData(1)->SetInt(kOriginKey, f);
      faces.Add(&face);
    }
    CDependentChannels set;
    set.AddChannel(MakeUVW(faces, np, pick(2) == 0));
    auto* vc = new CVCChannel;
    for (int f = 0; f < nf; ++f) {
      CVCFace vf;
      for (int k = 0; k < faces[f].GetSize(); ++k) {
        CVCPoint c(CRGBColor(f, k, 7));
        vf.AddIndex(vc->GetVCPointList()->Add(&c));
      }
      vc->GetVCFaceList()->Add(&vf);
    }
    set.AddChannel(vc);
    const bool broken = pick(4) == 0; // a channel already out of step
    if (broken)
      set.GetChannel(0)->GetFaceList()->SetSize(nf - 1, -1);

    // Expected corner values by original face.
    std::vector<std::vector<C3DPoint>> corners(static_cast<std::size_t>(nf));
    std::vector<std::vector<CUVWPoint>> uvs(static_cast<std::size_t>(nf));
    const auto& uvPts = *static_cast<CUVWChannel*>(set.GetChannel(0))->GetUVWPointList();
    const auto& uvFaces = *set.GetChannel(0)->GetFaceList();
    for (int f = 0; f < nf; ++f)
      for (int k = 0; k < faces[f].GetSize(); ++k) {
        corners[static_cast<std::size_t>(f)].push_back(points[faces[f][k]]);
        if (f < uvFaces.GetSize())
          uvs[static_cast<std::size_t>(f)].push_back(uvPts[uvFaces[f][k]]);
      }

    for (int i = pick(nf / 3 + 1); i > 0; --i)
      faces[pick(nf)].SetFlag(FACE_INVALID, 1);
    for (int i = pick(4); i > 0; --i)
      points[pick(np)].SetFlag(PT_INVALID, 1);

    CGeomInfo info(&faces, &points);
    info.SetChannels(&set, nullptr);
    faces.Clean(&info);

    SCOPED_TRACE(seed);
    for (int f = 0; f < faces.GetSize(); ++f)
      for (int k = 0; k < faces[f].GetSize(); ++k)
        ASSERT_TRUE(faces[f][k] >= 0 && faces[f][k] < points.GetSize());
    for (int c = 0; c < set.GetSize(); ++c) {
      CChannel* ch = set.GetChannel(c);
      // Only the channel that was out of step may be given up (and it stays
      // usable when the mesh lost exactly the face it lacked).
      if (!ch->IsValid()) {
        EXPECT_TRUE(c == 0 && broken);
        continue;
      }
      const CFaceList& cf = *ch->GetFaceList();
      ASSERT_EQ(cf.GetSize(), faces.GetSize());
      for (int f = 0; f < cf.GetSize(); ++f) {
        ASSERT_EQ(cf[f].GetSize(), faces[f].GetSize());
        for (int k = 0; k < cf[f].GetSize(); ++k)
          ASSERT_TRUE(cf[f][k] >= 0 && cf[f][k] < ch->GetPointList()->GetSize());
      }
    }
    for (int f = 0; f < faces.GetSize(); ++f) {
      int origin = -1;
      ASSERT_EQ(faces[f].GetCustomData(0)->GetInt(kOriginKey, origin), 1);
      const auto o = static_cast<std::size_t>(origin);
      for (int k = 0; k < faces[f].GetSize(); ++k) {
        const auto kk = static_cast<std::size_t>(k);
        EXPECT_EQ(points[faces[f][k]], corners[o][kk]);
        const CVCPointList& vcp = *vc->GetVCPointList();
        EXPECT_EQ(vcp[(*vc->GetVCFaceList())[f][k]].GetColor(), CRGBColor(origin, k, 7));
        if (set.GetChannel(0)->IsValid()) {
          const auto* uv = static_cast<CUVWChannel*>(set.GetChannel(0));
          EXPECT_EQ((*uv->GetUVWPointList())[(*uv->GetUVWFaceList())[f][k]], uvs[o][kk]);
        }
      }
    }
  }
}
