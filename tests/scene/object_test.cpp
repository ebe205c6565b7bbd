#include "tests/support/mesh_fixtures.h"

#include "meshcore/mesh/face_normal_channel.h"
#include "meshcore/mesh/point_normal_channel.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/patch_3d.h"
#include "meshcore/scene/scene_settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

using namespace meshcore;
using namespace meshcore::test;

namespace {
class ObjectTest : public ::testing::Test {
protected:
  void SetUp() override { SetLanguage("en"); }
  C3DObjectCreator creator;

  std::unique_ptr<C3DBaseObject> NewMesh() {
    return std::unique_ptr<C3DBaseObject>(creator.GetNewPolygonalObject());
  }
};

using Pts = std::vector<std::vector<int>>;
} // namespace

TEST_F(ObjectTest, ReservedFlagsAndEmptyMark) {
  C3DObject mesh;
  // The reserved range is ignored, so handing over lists records nothing.
  mesh.SetFlag(0x100, 1);
  mesh.SetFlag(0x101, 1);
  EXPECT_EQ(mesh.GetFlags(), 0u);
  mesh.SetPointList(new C3DPointList);
  mesh.SetFaceList(new C3DFaceList);
  EXPECT_EQ(mesh.GetFlags(), 0u);
  FillMesh(mesh, 3, {{0, 1, 2}});
  mesh.SetFlag(OBJECT_EMPTY, 1);
  C3DPoint lo(9, 9, 9), hi(9, 9, 9);
  EXPECT_EQ(mesh.GetBoundingBox(lo, hi, 0), 0);
  EXPECT_EQ(lo.x, 9.0f);
  mesh.SetFlag(OBJECT_EMPTY, 0);
  EXPECT_EQ(mesh.GetBoundingBox(lo, hi, 0), 1);
  EXPECT_EQ(hi, C3DPoint(2, 20, 200));
}

TEST_F(ObjectTest, BoundingBoxCaching) {
  // Faces only, without a face list: the point box, cached as the point box.
  C3DCurve curve;
  curve.SetPointList(new C3DPointList);
  curve.GetPointList()->SetSize(2);
  (*curve.GetPointList())[1] = C3DPoint(4, 5, 6);
  C3DPoint lo, hi;
  EXPECT_EQ(curve.GetBoundingBox(lo, hi, 1), 1);
  EXPECT_EQ(hi, C3DPoint(4, 5, 6));
  // The cache answers until something invalidates it.
  (*curve.GetPointList())[1] = C3DPoint(40, 5, 6);
  curve.GetBoundingBox(lo, hi, 0);
  EXPECT_EQ(hi.x, 4.0f);
  curve.InvalidateBoundingBoxes();
  curve.GetBoundingBox(lo, hi, 0);
  EXPECT_EQ(hi.x, 40.0f);

  // The face box covers only the points that faces use.
  auto mesh = NewMesh();
  FillMesh(*mesh, 5, {{0, 1, 2}});
  EXPECT_EQ(mesh->GetBoundingBox(lo, hi, 1), 1);
  EXPECT_EQ(hi, C3DPoint(2, 20, 200));
  mesh->GetBoundingBox(lo, hi, 0);
  EXPECT_EQ(hi, C3DPoint(4, 40, 400));

  // Geometry changes through the object drop the cached boxes.
  auto more = NewMesh();
  FillMesh(*more, 8, {{5, 6, 7}});
  mesh->Concatenate(more.get(), 0);
  mesh->GetBoundingBox(lo, hi, 1);
  EXPECT_EQ(hi, C3DPoint(7, 70, 700));
  mesh->GetBoundingBox(lo, hi, 0);
  EXPECT_EQ(hi, C3DPoint(7, 70, 700));
}

TEST_F(ObjectTest, NormalChannelsAreMadeOnDemand) {
  auto mesh = NewMesh();
  FillMesh(*mesh, 3, {{0, 1, 2}});
  CPointNormalChannel* pn = mesh->GetPointNormalChannel();
  ASSERT_NE(pn, nullptr);
  EXPECT_TRUE(pn->IsValid());
  // Asked again, the same channel is recomputed rather than added.
  EXPECT_EQ(mesh->GetPointNormalChannel(), pn);
  CFaceNormalChannel* fn = mesh->GetFaceNormalChannel();
  ASSERT_NE(fn, nullptr);
  EXPECT_EQ(fn->GetPointList()->GetSize(), 1);
  EXPECT_EQ(mesh->GetChannels()->GetSize(), 2);
  // Normals are not carried by geometry copies between objects.
  auto other = NewMesh();
  other->Concatenate(mesh.get(), 0);
  EXPECT_EQ(other->GetChannels()->GetSize(), 0);
  EXPECT_EQ(C3DCurve().GetPointNormalChannel(), nullptr);
}

TEST_F(ObjectTest, CopyCarriesGeometryChannelsAndHints) {
  auto mesh = NewMesh();
  FillMesh(*mesh, 4, {{0, 1, 2}, {0, 2, 3}}, 5);
  (*mesh->GetPointList())[2].SetFlag(PT_SELECTED, 1);
  (*mesh->GetFaceList())[1].GetCustomData(1)->SetInt(2, 43);
  const unsigned uvID = 9001, vcID = 9002;
  mesh->AddChannel(MakeUVW(uvID, 4, {{0, 1, 2}, {0, 2, 3}}));
  mesh->AddChannel(MakeVC(vcID, 2, {{0, 0, 1}, {1, 1, 1}}));
  mesh->SetSmoothAngle(0.5f);
  mesh->SetGlobalUVWChannel(uvID);
  mesh->GetCustomData().SetString(3, "mesh");

  std::unique_ptr<C3DBaseObject> copy(mesh->Copy(OBJECT_COPY_TAG_SOURCE, nullptr));
  ASSERT_NE(copy, nullptr);
  ASSERT_EQ(copy->GetPointNbr(), 4);
  ASSERT_EQ(copy->GetFaceNbr(), 2);
  EXPECT_TRUE((*copy->GetPointList())[2].IsFlagSet(PT_SELECTED));
  EXPECT_EQ(Indices((*copy->GetFaceList())[1]), (std::vector<int>{0, 2, 3}));
  EXPECT_EQ((*copy->GetFaceList())[1].GetMaterialID(), 6u);
  ASSERT_NE((*copy->GetFaceList())[1].GetCustomData(), nullptr);
  EXPECT_EQ(copy->GetSmoothAngle(), 0.5f);
  EXPECT_EQ(copy->GetGlobalUVWChannel(), uvID);
  void* src = nullptr;
  EXPECT_EQ(copy->GetCustomData().GetPtr(kCustomSourceObject, src), 1);
  EXPECT_EQ(src, mesh.get());
  EXPECT_EQ(mesh->GetCustomData().HasData(kCustomSourceObject), 0);
  // Channels are deep copies that keep their ids.
  ASSERT_EQ(copy->GetChannels()->GetSize(), 2);
  CChannel* uv = copy->GetChannel(uvID, CHANNEL_UVW);
  ASSERT_NE(uv, nullptr);
  EXPECT_NE(uv, mesh->GetChannel(uvID, CHANNEL_UVW));
  EXPECT_NE(copy->GetChannel(vcID, CHANNEL_VC), nullptr);

  // Without flag 16 there is no source tag.
  std::unique_ptr<C3DBaseObject> plain(mesh->Copy(0, nullptr));
  EXPECT_EQ(plain->GetCustomData().HasData(kCustomSourceObject), 0);

  // Kind rules: meshes and patches mix, curves and groups only with themselves.
  C3DCurve curve;
  C3DBaseObject* into = plain.get();
  EXPECT_EQ(curve.Copy(into, 0, nullptr), 0);
  C3DPatch patch;
  patch.SetPointList(new C3DPointList);
  patch.SetFaceList(new C3DFaceList);
  FillMesh(patch, 3, {{0, 1, 2}});
  EXPECT_EQ(patch.Copy(into, 0, nullptr), 1);
  EXPECT_EQ(plain->GetFaceNbr(), 1);
  EXPECT_EQ(plain->GetChannels()->GetSize(), 0);

  // The mesh creator turns every copy into a plain mesh, so a curve cannot pass.
  C3DMeshObjectCreator meshCreator;
  std::unique_ptr<C3DBaseObject> fromPatch(patch.Copy(0, &meshCreator));
  ASSERT_NE(fromPatch, nullptr);
  EXPECT_EQ(fromPatch->GetKindOf(), OBJECT_POLYGONAL);
  EXPECT_EQ(curve.Copy(0, &meshCreator), nullptr);
}

TEST_F(ObjectTest, ConcatenateOffsetsIndicesAndDropsPartialChannels) {
  auto a = NewMesh();
  FillMesh(*a, 4, {{0, 1, 2}, {0, 2, 3}});
  const unsigned uvID = 9101, vcID = 9102;
  a->AddChannel(MakeUVW(uvID, 4, {{0, 1, 2}, {0, 2, 3}}));
  auto b = NewMesh();
  FillMesh(*b, 4, {{0, 1, 2, 3}}, 7);
  b->AddChannel(MakeUVW(uvID, 5, {{1, 2, 3, 4}}));
  b->AddChannel(MakeVC(vcID, 1, {{0, 0, 0, 0}}));

  EXPECT_EQ(a->Concatenate(b.get(), 0), 1);
  ASSERT_EQ(a->GetPointNbr(), 8);
  ASSERT_EQ(a->GetFaceNbr(), 3);
  EXPECT_EQ(Indices((*a->GetFaceList())[2]), (std::vector<int>{4, 5, 6, 7}));
  EXPECT_EQ((*a->GetFaceList())[2].GetMaterialID(), 7u);
  EXPECT_EQ((*a->GetPointList())[5], C3DPoint(1, 10, 100));
  auto* uv = static_cast<CUVWChannel*>(a->GetChannel(uvID, CHANNEL_UVW));
  ASSERT_NE(uv, nullptr);
  EXPECT_EQ(uv->GetUVWPointList()->GetSize(), 9);
  EXPECT_EQ(Indices((*uv->GetUVWFaceList())[2]), (std::vector<int>{5, 6, 7, 8}));
  // The colour channel would cover one face of three: not kept.
  EXPECT_EQ(a->GetChannel(vcID, CHANNEL_VC), nullptr);
  EXPECT_EQ(a->GetChannels()->GetSize(), 1);
  // A colour channel that covers every face is created with the source's id.
  auto c = NewMesh();
  EXPECT_EQ(c->Concatenate(b.get(), 1), 1);
  EXPECT_NE(c->GetChannel(vcID, CHANNEL_VC), nullptr);
  EXPECT_EQ(c->GetChannels()->GetSize(), 2);
  // reset empties first.
  EXPECT_EQ(c->Concatenate(b.get(), 1), 1);
  EXPECT_EQ(c->GetPointNbr(), 4);

  // Curves do not mix with meshes; a missing source fails.
  C3DCurve curve;
  curve.SetPointList(new C3DPointList);
  curve.GetPointList()->SetSize(3);
  EXPECT_EQ(curve.Concatenate(a.get(), 0), 1);
  EXPECT_EQ(curve.GetPointNbr(), 3);
  EXPECT_EQ(a->Concatenate(&curve, 0), 1);
  EXPECT_EQ(a->GetPointNbr(), 8);
  EXPECT_EQ(a->Concatenate(nullptr, 0), 0);
}

TEST_F(ObjectTest, SubObjectSelectsAndRenumbers) {
  auto mesh = NewMesh();
  // Quad, triangle, quad, triangle, over points 0..7.
  FillMesh(*mesh, 8, {{0, 1, 2, 3}, {6, 2, 5}, {4, 5, 6, 7}, {5, 7, 2}}, 10);
  const unsigned uvID = 9201, vcID = 9202;
  mesh->AddChannel(MakeUVW(uvID, 9, {{0, 1, 2, 3}, {8, 7, 6}, {4, 5, 6, 7}, {6, 7, 8}}));
  // A colour channel whose faces use no shared points with the selection is still rebuilt.
  mesh->AddChannel(MakeVC(vcID, 4, {{0, 0, 0, 0}, {1, 2, 3}, {0, 0, 0, 0}, {3, 3, 1}}));
  mesh->GetCustomData().SetInt(1, 1);
  mesh->SetSmoothAngle(0.25f);

  std::unique_ptr<C3DObject> tris(mesh->SubObject(3, SUBOBJECT_VERTEX_COUNT));
  ASSERT_NE(tris, nullptr);
  ASSERT_EQ(tris->GetFaceNbr(), 2);
  // Points renumbered in first-use order: 6 -> 0, 2 -> 1, 5 -> 2, 7 -> 3.
  EXPECT_EQ(Indices((*tris->GetFaceList())[0]), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(Indices((*tris->GetFaceList())[1]), (std::vector<int>{2, 3, 1}));
  ASSERT_EQ(tris->GetPointNbr(), 4);
  EXPECT_EQ((*tris->GetPointList())[0], C3DPoint(6, 60, 600));
  EXPECT_EQ((*tris->GetPointList())[3], C3DPoint(7, 70, 700));
  EXPECT_EQ((*tris->GetFaceList())[1].GetMaterialID(), 13u);
  // The texture channel is compacted through its own map: 8 -> 0, 7 -> 1, 6 -> 2.
  auto* uv = static_cast<CUVWChannel*>(tris->GetChannel(uvID, CHANNEL_UVW));
  ASSERT_NE(uv, nullptr);
  EXPECT_EQ(uv->GetUVWPointList()->GetSize(), 3);
  EXPECT_EQ(Indices((*uv->GetUVWFaceList())[1]), (std::vector<int>{2, 1, 0}));
  EXPECT_FLOAT_EQ((*uv->GetUVWPointList())[0].u, 0.8f);
  auto* vc = static_cast<CVCChannel*>(tris->GetChannel(vcID, CHANNEL_VC));
  ASSERT_NE(vc, nullptr);
  EXPECT_EQ(vc->GetVCPointList()->GetSize(), 3);
  EXPECT_EQ((*vc->GetVCPointList())[2].GetColor().r, 3);
  // Nothing of the source's hints or custom data.
  EXPECT_EQ(tris->GetCustomData().HasData(), 0);
  EXPECT_EQ(tris->GetSmoothAngle(), GetGlobalSmoothAngle());

  std::unique_ptr<C3DObject> quads(mesh->SubObject(3, SUBOBJECT_MORE_VERTICES));
  ASSERT_NE(quads, nullptr);
  EXPECT_EQ(quads->GetFaceNbr(), 2);
  EXPECT_EQ(quads->GetPointNbr(), 8);
  EXPECT_EQ(mesh->SubObject(3, static_cast<_SUBOBJECT_MODE>(2)), nullptr);
  EXPECT_EQ(mesh->SubObject(5, SUBOBJECT_VERTEX_COUNT), nullptr);
}

TEST_F(ObjectTest, CleanInitAndArchiveForm) {
  // Cleaning away every face and point marks the object empty.
  auto mesh = NewMesh();
  FillMesh(*mesh, 3, {{0, 1, 2}});
  (*mesh->GetFaceList())[0].SetFlag(FACE_INVALID, 1);
  C3DPoint lo, hi;
  mesh->GetBoundingBox(lo, hi, 0);
  EXPECT_EQ(mesh->Clean(), 1);
  EXPECT_TRUE(mesh->IsFlagSet(OBJECT_EMPTY));
  EXPECT_EQ(mesh->GetBoundingBox(lo, hi, 0), 0);

  // A curve: the object's form, then its material id.
  C3DCurve curve;
  curve.SetPointList(new C3DPointList);
  curve.GetPointList()->SetSize(2);
  (*curve.GetPointList())[1] = C3DPoint(1, 2, 3);
  curve.SetMaterialID(77);
  curve.SetSmoothAngle(1.0f);
  curve.SetFlag(0x20, 1);
  curve.GetCustomData().SetInt(5, 6);
  CMemFile file;
  {
    CArchive ar(&file, CArchive::store);
    curve.Serialize(ar);
    ar.Flush();
  }
  const auto& bytes = file.Data();
  auto u32 = [&](std::size_t at) {
    std::uint32_t v;
    std::memcpy(&v, &bytes[at], 4);
    return v;
  };
  EXPECT_EQ(u32(0), 0x20u);              // properties
  EXPECT_EQ(u32(8), 0u);                 // face mode
  EXPECT_EQ(u32(12), 0u);                // no face list
  EXPECT_EQ(u32(16), 1u);                // a point list follows with its class
  EXPECT_EQ(u32(bytes.size() - 4), 77u); // material id last
  C3DCurve back;
  {
    CMemFile in(bytes);
    CArchive ar(&in, CArchive::load);
    back.Serialize(ar);
  }
  EXPECT_EQ(back.GetMaterialID(), 77u);
  EXPECT_EQ(back.GetFaceList(), nullptr);
  ASSERT_EQ(back.GetPointNbr(), 2);
}
