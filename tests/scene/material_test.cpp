#include "meshcore/scene/materials.h"

#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/scene_settings.h"

#include <gtest/gtest.h>

#include <memory>

using namespace meshcore;

namespace {
class MaterialTest : public ::testing::Test {
protected:
  void SetUp() override { SetLanguage("en"); }
};

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

TEST_F(MaterialTest, DiffuseFactorLeavesAlphaAlone) {
  C3DMaterial a;
  float c[4];
  a.SetDiffuseFactor(0.5f);
  a.SetDiffuseColor(CRGBColor(255, 255, 255, 51));
  a.FloatGetDiffuseColor(c);
  EXPECT_FLOAT_EQ(c[1], 0.5f);
  EXPECT_FLOAT_EQ(c[3], 0.2f); // alpha is not scaled by the factor
}

TEST_F(MaterialTest, MapsAddAssignAndMatrix) {
  C3DMaterial m;
  CMaterialMap* first = m.AddMaterialMap("a.png", 0, MAP_DIFFUSE);
  CMaterialMap* again = m.AddMaterialMap("b.png", 3, MAP_DIFFUSE);
  EXPECT_EQ(first, again);
  EXPECT_EQ(first->GetFileName(), "a.png");
  EXPECT_EQ(m.AddMaterialMap("x", 0, static_cast<MapType>(7)), nullptr);

  // A new name resets the status; the same name keeps it.
  first->SetStatus(5);
  first->SetFileName("a.png");
  EXPECT_EQ(first->GetStatus(), 5u);
  first->SetFileName("c.png");
  EXPECT_EQ(first->GetStatus(), 0u);

  // Repeat then offset: the offset replaces the whole matrix.
  first->SetUVWRepeat(2, 2, 1);
  first->SetUVWOffset(0.5f, 0.25f, 0);
  C4x4Matrix expect(1);
  expect.m[0][3] = 0.5f;
  expect.m[1][3] = 0.25f;
  EXPECT_EQ(first->GetMatrix(), expect);

  // Assignment copies file, type and channel; status only when 2; never alpha, flags, matrix.
  CMaterialMap src;
  src.SetFileName("s.png");
  src.SetAlphaFileName("alpha.png");
  src.SetChannelID(4);
  src.SetType(MAP_SPECULAR);
  src.SetFlag(8, 1);
  src.SetStatus(2);
  src.SetUVWRepeat(3, 3, 3);
  CMaterialMap dst;
  dst = src;
  EXPECT_EQ(dst.GetChannelID(), 4u);
  EXPECT_EQ(dst.GetStatus(), 2u);
  EXPECT_TRUE(dst.GetAlphaFileName().empty());
  EXPECT_EQ(dst.GetFlags(), 0u);
  EXPECT_TRUE(dst.GetMatrix().IsIdentity());
  src.SetStatus(1);
  dst = src;
  EXPECT_EQ(dst.GetStatus(), 0u);

  // Material assignment replaces only the roles the source has.
  C3DMaterial from;
  from.SetName("from");
  from.AddMaterialMap("shine.png", 2, MAP_SPECULAR);
  C3DMaterial to;
  CMaterialMap* keptDiffuse = to.AddMaterialMap("keep.png", 1, MAP_DIFFUSE);
  const unsigned toID = to.GetMaterialID();
  to.SetFlag(4, 1);
  to = from;
  EXPECT_EQ(to.GetName(), "from");
  EXPECT_EQ(to.GetMaterialID(), toID);
  EXPECT_TRUE(to.IsFlagSet(4));
  EXPECT_EQ(to.GetDiffuseMaps(), keptDiffuse);
  ASSERT_NE(to.GetSpecularMaps(), nullptr);
  EXPECT_NE(to.GetSpecularMaps(), from.GetSpecularMaps());
  EXPECT_EQ(to.GetSpecularMaps()->GetFileName(), "shine.png");
}

TEST_F(MaterialTest, EqualityFollowsTheMapPointerRule) {
  C3DMaterial a, b;
  a.SetName("same");
  b.SetName("same");
  EXPECT_TRUE(a == b);
  EXPECT_TRUE(a.HasSameParameters(b));
  b.SetName("other");
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(a.HasSameParameters(b));

  // Equal maps in two materials still make them differ.
  a.AddMaterialMap("t.png", 0, MAP_DIFFUSE);
  b.AddMaterialMap("t.png", 0, MAP_DIFFUSE);
  EXPECT_TRUE(*a.GetDiffuseMaps() == *b.GetDiffuseMaps());
  EXPECT_FALSE(a.HasSameParameters(b));
  EXPECT_TRUE(a.HasSameParameters(a));
}

TEST_F(MaterialTest, CollectionDefaultCreateAndLookup) {
  CMaterials mats;
  EXPECT_EQ(mats.GetMaterial(5), nullptr);
  C3DMaterial* def = mats.GetMaterial(0);
  ASSERT_NE(def, nullptr);
  EXPECT_EQ(def->GetName(), "Default material");
  EXPECT_EQ(def->GetMaterialID(), 0u);

  C3DMaterial tmpl;
  tmpl.SetName("template");
  tmpl.SetDiffuseFactor(0.3f);
  mats.SetDefaultMaterial(tmpl);
  EXPECT_EQ(mats.GetMaterial(0), def);
  EXPECT_EQ(def->GetDiffuseFactor(), 0.3f);

  // New materials keep an empty name and get fresh ids in insertion order.
  C3DMaterial* m1 = mats.CreateNewMaterial();
  C3DMaterial* m2 = mats.CreateNewMaterial();
  EXPECT_TRUE(m1->GetName().empty());
  EXPECT_GT(m2->GetMaterialID(), m1->GetMaterialID());
  m1->SetName("red");
  m2->SetName("red");
  EXPECT_EQ(mats.IsMaterialExist(std::string("red")), m1->GetMaterialID());
  unsigned id = 0;
  EXPECT_EQ(mats.IsMaterialExist(*m2, id), 1);
  EXPECT_EQ(id, m1->GetMaterialID()); // m1 equals m2 and comes first

  MaterialPosition pos = mats.GetStartPosition();
  std::vector<C3DMaterial*> order;
  while (pos)
    order.push_back(mats.GetNextMaterial(pos));
  EXPECT_EQ(order, (std::vector<C3DMaterial*>{def, m1, m2}));

  mats.RemoveMaterial(m1->GetMaterialID());
  mats.RemoveMaterial(12345);
  EXPECT_EQ(mats.GetCount(), 2u);
}

TEST_F(MaterialTest, CopyMaterialsFlags) {
  CMaterials src;
  C3DMaterial* a = src.CreateNewMaterial();
  a->SetName("a");
  C3DMaterial* b = src.CreateNewMaterial();
  b->SetName("b");

  CMaterials dst;
  C3DMaterial* mine = dst.CreateNewMaterial();
  mine->SetName("mine");
  const unsigned mineID = mine->GetMaterialID();
  C3DMaterial* target = new C3DMaterial;
  dst.SetAt(a->GetMaterialID(), target);

  // Overwrite: assigned in place, id kept as the source's.
  dst.CopyMaterials(src, MATERIAL_COPY_OVERWRITE, nullptr);
  EXPECT_EQ(dst.Lookup(a->GetMaterialID()), target);
  EXPECT_EQ(target->GetName(), "a");
  EXPECT_EQ(target->GetMaterialID(), a->GetMaterialID());
  ASSERT_NE(dst.Lookup(b->GetMaterialID()), nullptr);
  EXPECT_EQ(dst.Lookup(b->GetMaterialID())->GetMaterialID(), b->GetMaterialID());
  EXPECT_EQ(dst.GetCount(), 3u);

  // Without overwrite a new material replaces the entry; the old one stays valid.
  dst.CopyMaterials(src, 0, nullptr);
  EXPECT_NE(dst.Lookup(a->GetMaterialID()), target);
  EXPECT_EQ(target->GetName(), "a");

  // Filter flag without a filter copies nothing; with one, only its ids.
  CMaterials filtered;
  filtered.CopyMaterials(src, MATERIAL_COPY_FILTER, nullptr);
  EXPECT_EQ(filtered.GetCount(), 0u);
  CHashUInt ids;
  ids.Insert(b->GetMaterialID());
  filtered.CopyMaterials(src, MATERIAL_COPY_FILTER, &ids);
  EXPECT_EQ(filtered.GetCount(), 1u);
  EXPECT_NE(filtered.Lookup(b->GetMaterialID()), nullptr);

  // Clear first.
  dst.CopyMaterials(src, MATERIAL_COPY_CLEAR, nullptr);
  EXPECT_EQ(dst.GetCount(), 2u);
  EXPECT_EQ(dst.Lookup(mineID), nullptr);
}

TEST_F(MaterialTest, ArchiveFormAndIdCounter) {
  CMaterials big;
  auto* m = new C3DMaterial;
  m->SetMaterialID(1000);
  big.SetAt(1000, m);
  m->SetName("M");
  m->SetFlag(0x20, 1);
  m->SetSpecularColor(CRGBColor(1, 2, 3, 4));
  m->SetTransparencyFactor(0.25f);
  m->SetVertexColor(7, 0.5f);
  m->SetSmoothAngle(1.0f);
  CMaterialMap* map = m->AddMaterialMap("tex.png", 2, MAP_TRANSPARENCY);
  map->SetAlphaFileName("alpha.png");
  map->SetStatus(2);
  map->SetUVWRepeat(2, 2, 2);

  const auto bytes = Store(big);
  // Count, then the material as a full object with its class reference; its
  // body starts with the flags, then the name string.
  ASSERT_GE(bytes.size(), 25u);
  EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 4),
            (std::vector<std::uint8_t>{1, 0, 0xFF, 0xFF}));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[8]), 11), "C3DMaterial");
  EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin() + 19, bytes.begin() + 25),
            (std::vector<std::uint8_t>{0x20, 0, 0, 0, 1, 'M'}));

  CMaterials loaded;
  loaded.CreateNewMaterial(); // replaced by the load
  Load(loaded, bytes);
  ASSERT_EQ(loaded.GetCount(), 1u);
  C3DMaterial* r = loaded.Lookup(1000);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->GetSpecularColor(), CRGBColor(1, 2, 3, 4));
  EXPECT_EQ(r->GetTransparencyFactor(), 0.25f);
  float f = 0;
  EXPECT_EQ(r->GetVertexColor(f), 7u);
  ASSERT_NE(r->GetTransparencyMaps(), nullptr);
  const CMaterialMap& rm = *r->GetTransparencyMaps();
  EXPECT_EQ(rm.GetFileName(), "tex.png");
  EXPECT_EQ(rm.GetChannelID(), 2u);
  // Not part of the stored form.
  EXPECT_TRUE(rm.GetAlphaFileName().empty());
  EXPECT_TRUE(rm.GetMatrix().IsIdentity());
  EXPECT_EQ(r->GetDiffuseMaps(), nullptr);

  // Ids handed out after the load never collide with the loaded one.
  C3DMaterial next;
  EXPECT_GT(next.GetMaterialID(), 1000u);
}
