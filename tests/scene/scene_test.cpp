#include "tests/support/mesh_fixtures.h"

#include "meshcore/mesh/point_normal_channel.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/platform/host.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/global_settings.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/patch_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>

using namespace meshcore;
using namespace meshcore::test;

namespace {
class SceneTest : public ::testing::Test {
protected:
  void SetUp() override { SetLanguage("en"); }
};

C3DObjectCreator g_creator;

C3DSceneNode* AddMesh(C3DScene& scene, C3DSceneNode* parent, const std::string& name = {}) {
  C3DBaseObject* mesh = g_creator.GetNewPolygonalObject();
  FillMesh(*mesh, 3, {{0, 1, 2}});
  auto* node = new C3DSceneNode(mesh, 0);
  node->SetName(name);
  scene.AddNode(parent, node);
  return node;
}

C3DSceneNode* AddObject(C3DScene& scene, C3DSceneNode* parent, C3DBaseObject* object,
                        const std::string& name = {}) {
  auto* node = new C3DSceneNode(object, 0);
  node->SetName(name);
  scene.AddNode(parent, node);
  return node;
}

C3DSceneNode* AddGroup(C3DScene& scene, C3DSceneNode* parent, const std::string& name) {
  return AddObject(scene, parent, g_creator.GetNewGroupObject(), name);
}

// Node names in pre-order, with depth marks.
std::string Outline(const C3DScene& scene) {
  std::string out;
  C3DSceneNode* cursor = scene.GetFirstNode(nullptr);
  const C3DBaseObject* object = nullptr;
  while (cursor) {
    C3DSceneNode* node = scene.GetNextNode(object, cursor, nullptr);
    out += std::string(scene.GetNodeDepth(node), '.') + node->GetName() + " ";
  }
  return out;
}

template <class T> std::vector<std::uint8_t> Store(T& obj) {
  CMemFile file;
  {
    CArchive ar(&file, CArchive::store);
    obj.Serialize(ar);
    ar.Flush();
  }
  return file.Data();
}

template <class T> void Load(T& obj, const std::vector<std::uint8_t>& bytes) {
  CMemFile file(bytes);
  CArchive ar(&file, CArchive::load);
  obj.Serialize(ar);
}

class CountedObject : public C3DObject {
public:
  explicit CountedObject(int* deaths) : m_deaths(deaths) {}
  ~CountedObject() override { ++*m_deaths; }

private:
  int* m_deaths;
};

// A scene with everything the archive carries: nested groups, meshes with
// texture and colour channels, a curve, a patch, materials with maps and
// custom data at every level.
std::unique_ptr<C3DScene> BuildRichScene() {
  auto scene = std::make_unique<C3DScene>();
  scene->SetFilename("/models/rich.lwo");
  scene->GetCustomData().SetInt(0x41424344, 99);

  C3DMaterial* red = scene->CreateNewMaterial();
  red->SetName("red");
  red->SetDiffuseColor(CRGBColor(255, 0, 0));
  red->AddMaterialMap("wood.png", 1, MAP_DIFFUSE);
  red->AddMaterialMap("bump.png", 2, MAP_SPECULAR);
  C3DMaterial* glass = scene->CreateNewMaterial();
  glass->SetName("glass");
  glass->SetTransparencyFactor(0.75f);
  scene->GetMaterial(0);

  C3DSceneNode* outer = AddGroup(*scene, nullptr, "outer");
  outer->SetMatOffset(NODE_MATRIX_TRANSFORM, 1, 2, 3);
  C3DSceneNode* inner = AddGroup(*scene, outer, "inner");
  inner->SetMatRepeat(NODE_MATRIX_SECONDARY, 2, 2, 2);

  C3DBaseObject* mesh = g_creator.GetNewPolygonalObject();
  FillMesh(*mesh, 4, {{0, 1, 2}, {0, 2, 3}}, red->GetMaterialID());
  (*mesh->GetPointList())[1].SetFlag(PT_SELECTED, 1);
  (*mesh->GetFaceList())[0].SetFlag(FACE_HIDDEN, 1);
  mesh->AddChannel(MakeUVW(7001, 4, {{0, 1, 2}, {0, 2, 3}}));
  mesh->AddChannel(MakeVC(7002, 2, {{0, 1, 1}, {1, 1, 0}}));
  mesh->SetSmoothAngle(0.5f);
  mesh->SetGlobalUVWChannel(7001);
  mesh->GetCustomData().SetString(0x4F424A31, "mesh data");
  C3DSceneNode* meshNode = AddObject(*scene, inner, mesh, "mesh");
  meshNode->SetPivot(C3DVector(0.5f, 0, 0));
  meshNode->SetExtra(2.5f);
  meshNode->SetFlag(SCENE_NODE_NO_FACE_BOX, 1);
  meshNode->GetCustomData().SetInt(0x4E4F4431, 5);

  auto* curve = new C3DCurve;
  curve->SetPointList(new C3DPointList);
  curve->GetPointList()->SetSize(3);
  (*curve->GetPointList())[2] = C3DPoint(1, 1, 1);
  curve->SetMaterialID(glass->GetMaterialID());
  AddObject(*scene, inner, curve, "curve");

  C3DBaseObject* patch = g_creator.GetNewPatchObject();
  FillMesh(*patch, 4, {{0, 1, 2, 3}});
  patch->GetCustomData().SetDouble(0x50415431, 1.5);
  AddObject(*scene, outer, patch, "patch");
  AddMesh(*scene, nullptr, "top");
  return scene;
}

void ExpectSameObject(const C3DBaseObject& a, const C3DBaseObject& b) {
  EXPECT_EQ(a.GetRuntimeClass(), b.GetRuntimeClass());
  EXPECT_EQ(a.GetFlags(), b.GetFlags());
  EXPECT_EQ(a.GetSmoothAngle(), b.GetSmoothAngle());
  EXPECT_EQ(a.GetFaceMode(), b.GetFaceMode());
  EXPECT_EQ(a.GetGlobalUVWChannel(), b.GetGlobalUVWChannel());
  EXPECT_TRUE(a.GetCustomData().IsEqual(b.GetCustomData()));
  ASSERT_EQ(a.GetPointNbr(), b.GetPointNbr());
  for (int i = 0; i < a.GetPointNbr(); ++i) {
    EXPECT_EQ((*a.GetPointList())[i], (*b.GetPointList())[i]);
    EXPECT_EQ((*a.GetPointList())[i].GetFlags(), (*b.GetPointList())[i].GetFlags());
  }
  ASSERT_EQ(a.GetFaceNbr(), b.GetFaceNbr());
  for (int i = 0; i < a.GetFaceNbr(); ++i) {
    // Faces keep flags and material ids; their indices are not part of the stored form.
    EXPECT_EQ((*a.GetFaceList())[i].GetFlags(), (*b.GetFaceList())[i].GetFlags());
    EXPECT_EQ((*a.GetFaceList())[i].GetMaterialID(), (*b.GetFaceList())[i].GetMaterialID());
  }
  const CDependentChannels& ca = *a.GetChannels();
  const CDependentChannels& cb = *b.GetChannels();
  ASSERT_EQ(ca.GetSize(), cb.GetSize());
  for (int c = 0; c < ca.GetSize(); ++c) {
    EXPECT_EQ(ca.GetChannel(c)->GetID(), cb.GetChannel(c)->GetID());
    EXPECT_EQ(ca.GetChannel(c)->GetType(), cb.GetChannel(c)->GetType());
    EXPECT_EQ(ca.GetChannel(c)->GetPointList()->GetSize(),
              cb.GetChannel(c)->GetPointList()->GetSize());
    EXPECT_EQ(ca.GetChannel(c)->GetFaceList()->GetSize(),
              cb.GetChannel(c)->GetFaceList()->GetSize());
  }
  if (a.GetKindOf() == OBJECT_CURVE) {
    EXPECT_EQ(static_cast<const C3DCurve&>(a).GetMaterialID(),
              static_cast<const C3DCurve&>(b).GetMaterialID());
  }
}

void ExpectSameMaterial(const C3DMaterial& a, const C3DMaterial& b) {
  EXPECT_EQ(a.GetMaterialID(), b.GetMaterialID());
  EXPECT_EQ(a.GetFlags(), b.GetFlags());
  EXPECT_EQ(a.GetName(), b.GetName());
  EXPECT_EQ(a.GetDiffuseColor(), b.GetDiffuseColor());
  EXPECT_EQ(a.GetTransparencyFactor(), b.GetTransparencyFactor());
  for (MapType t : {MAP_DIFFUSE, MAP_AMBIENT, MAP_SPECULAR, MAP_TRANSPARENCY}) {
    const CMaterialMap* ma = a.GetMaterialMap(t);
    const CMaterialMap* mb = b.GetMaterialMap(t);
    ASSERT_EQ(ma == nullptr, mb == nullptr);
    if (ma) {
      EXPECT_TRUE(*ma == *mb);
    }
  }
}
} // namespace

TEST_F(SceneTest, RootNodesAndStatistics) {
  C3DScene scene;
  C3DSceneNode* root = scene.GetRoot();
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->GetName(), "Scene");
  EXPECT_EQ(scene.RemoveNode(root, 1), 0);
  EXPECT_EQ(scene.RemoveNode(nullptr, 1), 0);
  EXPECT_EQ(scene.GetNodeDepth(nullptr), 0xFFFFFFFFu);

  C3DSceneNode* a = AddMesh(scene, nullptr, "a");
  C3DSceneNode* b = AddMesh(scene, nullptr, "b");
  EXPECT_EQ(b->GetScene(), &scene);
  C3DSceneNode* g = AddGroup(scene, a, "g");
  AddMesh(scene, g, "c");
  EXPECT_EQ(Outline(scene), "b a .g ..c ");
  EXPECT_EQ(scene.GetParent(a), root);

  EXPECT_EQ(scene.GetNodeNbr(0), 4);
  EXPECT_EQ(scene.GetNodeNbr(1), 3);
  // A clone counts its object once more.
  scene.AddNode(nullptr, static_cast<C3DSceneNode*>(a->Clone()));
  EXPECT_EQ(scene.GetPointNbr(), 12);
  EXPECT_EQ(scene.GetFaceNbr(), 4);

  // Unlinking hands the subtree to the caller.
  EXPECT_EQ(scene.RemoveNode(g, 0), 1);
  std::unique_ptr<C3DSceneNode> owned(g);
  std::unique_ptr<C3DSceneNode> ownedChild(static_cast<C3DSceneNode*>(g->GetChild()));
  EXPECT_EQ(scene.GetNodeNbr(0), 3);

  scene.SetFilename("C:\\old\\cube.lwo");
  EXPECT_EQ(scene.GetFilepath(), "C:\\old\\");
}

TEST_F(SceneTest, ObjectSearchConsumesTheObject) {
  C3DScene scene;
  int deaths = 0;
  auto* shown = new CountedObject(&deaths);
  C3DSceneNode* node = AddObject(scene, nullptr, shown, "n");
  // Found or not, the object given to the search is deleted.
  EXPECT_EQ(scene.IsObjectInScene(shown), 1);
  EXPECT_EQ(deaths, 1);
  node->SetObject(nullptr); // the node's pointer now dangles: drop it
  EXPECT_EQ(scene.IsObjectInScene(new CountedObject(&deaths)), 0);
  EXPECT_EQ(deaths, 2);
}

TEST_F(SceneTest, CheckoutImportNamesAndMovesPivots) {
  C3DScene scene;
  C3DSceneNode* g = AddGroup(scene, nullptr, "");
  AddMesh(scene, g);
  AddMesh(scene, g, "named");
  C3DSceneNode* m1 = AddMesh(scene, g);
  C3DSceneNode* m0 = AddMesh(scene, nullptr);
  auto* curve = new C3DCurve;
  curve->SetPointList(new C3DPointList);
  AddObject(scene, nullptr, curve);
  m1->SetPivot(C3DVector(1, 0, 0));
  m1->SetMatRepeat(NODE_MATRIX_TRANSFORM, 2, 2, 2);
  C3DPoint lo, hi;
  m1->GetBoundingBox(lo, hi, 0);
  C3DMaterial* unnamed1 = scene.CreateNewMaterial();
  C3DMaterial* named = scene.CreateNewMaterial();
  named->SetName("kept");
  C3DMaterial* unnamed3 = scene.CreateNewMaterial();

  scene.CheckoutImport(0);
  // Numbered in pre-order; the named mesh keeps its name but is still counted.
  EXPECT_EQ(Outline(scene), "Curve 1 Polygonal object 1 Object group 1 .Polygonal object 2 "
                            ".named .Polygonal object 4 ");
  EXPECT_EQ(unnamed1->GetName(), "Material 1");
  EXPECT_EQ(named->GetName(), "kept");
  EXPECT_EQ(unnamed3->GetName(), "Material 3");

  // The pivot, oriented by the node's world transform, is taken off the points.
  const C3DPointList& pts = *m1->GetBaseObject()->GetPointList();
  EXPECT_EQ(pts[1], C3DPoint(-1, 10, 100));
  EXPECT_EQ((*m0->GetBaseObject()->GetPointList())[1], C3DPoint(1, 10, 100));
  m1->GetBoundingBox(lo, hi, 0); // the cached box was dropped
  EXPECT_EQ(hi.x, 0.0f);

  C3DScene keep;
  C3DSceneNode* k = AddMesh(keep, nullptr);
  k->SetPivot(C3DVector(5, 5, 5));
  keep.CheckoutImport(SCENE_IMPORT_KEEP_POINTS);
  EXPECT_EQ((*k->GetBaseObject()->GetPointList())[1], C3DPoint(1, 10, 100));
}

TEST_F(SceneTest, CleanGroupsAndExport) {
  C3DScene scene;
  C3DSceneNode* g1 = AddGroup(scene, nullptr, "G1");
  C3DSceneNode* g2 = AddGroup(scene, g1, "G2");
  AddMesh(scene, g2, "obj");
  C3DSceneNode* pair = AddGroup(scene, nullptr, "pair");
  AddMesh(scene, pair, "p1");
  AddMesh(scene, pair, "p2");
  AddGroup(scene, pair, "empty");
  EXPECT_EQ(Outline(scene), "pair .empty .p2 .p1 G1 .G2 ..obj ");

  int changed = 7;
  EXPECT_EQ(scene.InitExport(SCENE_EXPORT_CLEAN_GROUPS, changed), &scene);
  EXPECT_EQ(changed, 0);
  EXPECT_EQ(Outline(scene), "obj pair .p2 .p1 ");

  // Groups are judged in pre-order: G1 still has two children when it is seen.
  C3DScene outer;
  C3DSceneNode* outerG1 = AddGroup(outer, nullptr, "G1");
  AddMesh(outer, outerG1, "A");
  AddGroup(outer, outerG1, "G2");
  outer.CleanGroups();
  EXPECT_EQ(Outline(outer), "G1 .A ");
}

TEST_F(SceneTest, CopyCloneMoveAndTheirFlags) {
  C3DScene scene;
  scene.GetCustomData().SetInt(1, 1);
  C3DMaterial* used = scene.CreateNewMaterial();
  used->SetName("used");
  C3DMaterial* unused = scene.CreateNewMaterial();
  unused->SetName("unused");
  C3DSceneNode* g = AddGroup(scene, nullptr, "g");
  auto* curve = new C3DCurve;
  curve->SetPointList(new C3DPointList);
  AddObject(scene, g, curve, "curve");
  C3DSceneNode* inner = AddMesh(scene, g, "inner");
  AddMesh(scene, inner, "child of mesh");
  C3DSceneNode* sub = AddGroup(scene, g, "sub");
  AddMesh(scene, sub, "deep");
  C3DBaseObject* patch = g_creator.GetNewPatchObject();
  C3DSceneNode* patchNode = AddObject(scene, nullptr, patch, "patch");
  patchNode->SetFlag(SCENE_NODE_NO_FACE_BOX, 1);
  EXPECT_EQ(Outline(scene), "patch g .sub ..deep .inner ..child of mesh .curve ");

  // A full copy: children of meshes are left out and each level is reversed.
  std::unique_ptr<C3DScene> copy(scene.Copy(0, nullptr, nullptr));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(Outline(*copy), "g .curve .inner .sub ..deep patch ");
  EXPECT_EQ(copy->GetMaterialNumber(), 2);
  EXPECT_EQ(copy->GetCustomData().IsEqual(scene.GetCustomData()), 1);
  EXPECT_NE(copy->GetFirstNode(nullptr)->GetBaseObject(), g->GetBaseObject());
  EXPECT_EQ(copy->GetFirstNode(nullptr)->GetScene(), copy.get());

  // Skips by kind and by node flag.
  copy.reset(scene.Copy(SCENE_SKIP_CURVES | SCENE_SKIP_FLAGGED, nullptr, nullptr));
  EXPECT_EQ(Outline(*copy), "g .inner .sub ..deep ");
  copy.reset(scene.Copy(SCENE_NO_GROUP_DESCENT, nullptr, nullptr));
  EXPECT_EQ(Outline(*copy), "g patch ");
  // Flattening (with groups skipped) brings every member to the top.
  copy.reset(scene.Copy(SCENE_FLATTEN_GROUPS | SCENE_SKIP_GROUPS, nullptr, nullptr));
  EXPECT_EQ(Outline(*copy), "curve inner deep patch ");
  // Without flag 0x10 the outer group is still copied, empty.
  copy.reset(scene.Copy(SCENE_FLATTEN_GROUPS, nullptr, nullptr));
  EXPECT_EQ(Outline(*copy), "curve inner deep g patch ");

  // Source tags, and what Inherit leaves out.
  copy.reset(scene.Copy(
      SCENE_TAG_NODES | SCENE_TAG_OBJECTS | SCENE_NO_MATERIALS | SCENE_NO_CUSTOM_DATA, g, nullptr));
  ASSERT_NE(copy, nullptr);
  C3DSceneNode* first = copy->GetFirstNode(nullptr);
  EXPECT_EQ(first->GetName(), "curve");
  void* src = nullptr;
  EXPECT_EQ(first->GetCustomData().GetPtr(kCustomSourceNode, src), 1);
  EXPECT_EQ(src, scene.GetFirstNode(g)->GetRight()->GetRight());
  EXPECT_EQ(first->GetBaseObject()->GetCustomData().GetPtr(kCustomSourceObject, src), 1);
  EXPECT_EQ(src, curve);
  EXPECT_EQ(copy->GetMaterialNumber(), 0);
  EXPECT_EQ(copy->GetCustomData().HasData(), 0);

  // CopyNode takes the node with its children.
  C3DScene dst;
  C3DSceneNode* copied = scene.CopyNode(&dst, sub, nullptr, 0, nullptr);
  ASSERT_NE(copied, nullptr);
  EXPECT_EQ(Outline(dst), "sub .deep ");
  EXPECT_EQ(dst.GetMaterialNumber(), 2); // every material, used or not

  // A copied clone owns its new object, and so does a loaded one: each node
  // wrote the object it shows.
  C3DScene withClone;
  C3DSceneNode* original = AddMesh(withClone, nullptr, "o");
  withClone.AddNode(nullptr, static_cast<C3DSceneNode*>(original->Clone()));
  copy.reset(withClone.Copy(0, nullptr, nullptr));
  ASSERT_NE(copy, nullptr);
  C3DScene loaded;
  Load(loaded, Store(withClone));
  for (C3DScene* s : {copy.get(), &loaded}) {
    C3DSceneNode* first = s->GetFirstNode(nullptr);
    ASSERT_NE(first, nullptr);
    C3DSceneNode* second = static_cast<C3DSceneNode*>(first->GetRight());
    ASSERT_NE(second, nullptr);
    EXPECT_FALSE(first->IsClone());
    EXPECT_FALSE(second->IsClone());
    EXPECT_NE(first->GetBaseObject(), second->GetBaseObject());
  }

  // Clones share objects; with 0x800 the children come along.
  std::unique_ptr<C3DScene> cloned(scene.Clone(g, 0));
  ASSERT_EQ(cloned, nullptr); // a lone group
  cloned.reset(scene.Clone(g, SCENE_CLONE_CHILDREN));
  ASSERT_NE(cloned, nullptr);
  EXPECT_EQ(cloned->GetNodeNbr(0), 6);
  C3DSceneNode* cg = cloned->GetFirstNode(nullptr);
  EXPECT_TRUE(cg->IsClone());
  EXPECT_EQ(cg->GetBaseObject(), g->GetBaseObject());
  EXPECT_EQ(cg->GetScene(), cloned.get());
  cloned.reset(); // must not delete the shared objects
  EXPECT_EQ(g->GetBaseObject()->GetKindOf(), OBJECT_GROUP);

  // Moving hands the subtree over to the other scene.
  C3DScene target;
  EXPECT_EQ(scene.Move(&target, nullptr, sub, SCENE_NO_MATERIALS), sub);
  EXPECT_EQ(Outline(target), "sub .deep ");
  EXPECT_EQ(sub->GetScene(), &target);
  EXPECT_EQ(static_cast<C3DSceneNode*>(sub->GetChild())->GetScene(), &target);
  EXPECT_EQ(target.GetMaterialNumber(), 0);
  EXPECT_EQ(scene.Move(&target, nullptr, scene.GetRoot(), 0), nullptr);
}

TEST_F(SceneTest, ArchiveLayoutOfAMinimalScene) {
  C3DScene scene;
  C3DSceneNode* node = AddGroup(scene, nullptr, "G");
  node->SetMatOffset(NODE_MATRIX_TRANSFORM, 1, 2, 3);
  const auto bytes = Store(scene);
  auto u32 = [&](std::size_t at) {
    std::uint32_t v;
    std::memcpy(&v, &bytes[at], 4);
    return v;
  };
  std::size_t at = 0;
  EXPECT_EQ(u32(at), 1u);              // version
  EXPECT_EQ(u32(at + 4), 0x43555354u); // empty custom data
  EXPECT_EQ(u32(at + 8), 0u);
  at += 12;
  EXPECT_EQ(bytes[at], 0); // no materials (16-bit count)
  EXPECT_EQ(bytes[at + 1], 0);
  at += 2;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[at + 6]), 5), "CTree");
  EXPECT_EQ(bytes[at + 2], 2); // the tree's schema
  at += 11;
  EXPECT_EQ(u32(at), 4u);     // the root
  EXPECT_EQ(u32(at + 4), 1u); // has children
  EXPECT_EQ(u32(at + 8), 3u); // a node
  at += 12;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[at + 6]), 12), "C3DSceneNode");
  at += 18;
  // matrix1, matrix2, flags, name, extra, pivot, then both matrices again.
  const std::size_t first = at;
  float m03;
  std::memcpy(&m03, &bytes[first + 12], 4);
  EXPECT_EQ(m03, 1.0f);
  at += 128;
  EXPECT_EQ(u32(at), 0u);      // node flags
  EXPECT_EQ(bytes[at + 4], 1); // name length
  EXPECT_EQ(bytes[at + 5], 'G');
  at += 4 + 2 + 4 + 12;
  EXPECT_EQ(std::memcmp(&bytes[first], &bytes[at], 128), 0);
  at += 128;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[at + 6]), 8), "C3DGroup");
  // The stream ends: no children (2), end of the top chain (0), end of the root's chain (0).
  EXPECT_EQ(u32(bytes.size() - 12), 2u);
  EXPECT_EQ(u32(bytes.size() - 8), 0u);
  EXPECT_EQ(u32(bytes.size() - 4), 0u);
}

TEST_F(SceneTest, WholeSceneRoundTrip) {
  auto scene = BuildRichScene();
  const auto bytes = Store(*scene);
  C3DScene loaded;
  AddMesh(loaded, nullptr, "replaced by the load");
  Load(loaded, bytes);

  EXPECT_TRUE(loaded.GetCustomData().IsEqual(scene->GetCustomData()));
  EXPECT_EQ(loaded.GetFilename(), "/models/rich.lwo");
  ASSERT_EQ(loaded.GetMaterialNumber(), scene->GetMaterialNumber());
  MaterialPosition pa = scene->GetFirstMaterial(), pb = loaded.GetFirstMaterial();
  while (pa && pb)
    ExpectSameMaterial(*scene->GetNextMaterial(pa), *loaded.GetNextMaterial(pb));

  EXPECT_EQ(Outline(loaded), Outline(*scene));
  C3DSceneNode* a = scene->GetFirstNode(nullptr);
  C3DSceneNode* b = loaded.GetFirstNode(nullptr);
  const C3DBaseObject* oa = nullptr;
  const C3DBaseObject* ob = nullptr;
  int nodes = 0;
  while (a && b) {
    C3DSceneNode* na = scene->GetNextNode(oa, a, nullptr);
    C3DSceneNode* nb = loaded.GetNextNode(ob, b, nullptr);
    SCOPED_TRACE(na->GetName());
    ++nodes;
    EXPECT_EQ(nb->GetScene(), &loaded);
    EXPECT_EQ(na->GetName(), nb->GetName());
    EXPECT_EQ(na->GetNodeFlags(), nb->GetNodeFlags());
    EXPECT_EQ(na->GetMatrix(1), nb->GetMatrix(1));
    EXPECT_EQ(na->GetMatrix(2), nb->GetMatrix(2));
    EXPECT_EQ(na->GetPivot().x, nb->GetPivot().x);
    EXPECT_EQ(na->GetExtra(), nb->GetExtra());
    ASSERT_NE(ob, nullptr);
    ExpectSameObject(*oa, *ob);
  }
  EXPECT_EQ(a, nullptr);
  EXPECT_EQ(b, nullptr);
  EXPECT_EQ(nodes, 6);

  // Written again, the loaded scene gives the same bytes.
  EXPECT_EQ(Store(loaded), bytes);

  // Another version leaves the scene empty.
  auto other = bytes;
  other[0] = 2;
  Load(loaded, other);
  EXPECT_EQ(loaded.GetNodeNbr(0), 0);
  EXPECT_EQ(loaded.GetMaterialNumber(), 0);
  EXPECT_EQ(loaded.GetCustomData().HasData(), 0);
}

TEST_F(SceneTest, DamagedArchivesFailCleanly) {
  auto scene = BuildRichScene();
  const auto bytes = Store(*scene);
  auto tryLoad = [](const std::vector<std::uint8_t>& data) {
    C3DScene s;
    try {
      Load(s, data);
    } catch (const CArchiveException&) {
      return 1;
    } catch (const CFileException&) {
      return 1;
    }
    // Whatever loaded must be usable.
    s.GetNodeNbr(0);
    s.GetPointNbr();
    std::unique_ptr<C3DScene> copy(s.Copy(0, nullptr, nullptr));
    return 0;
  };
  // Every truncation fails with an archive or file exception.
  int failures = 0;
  for (std::size_t n = 0; n < bytes.size(); n += 3)
    failures += tryLoad(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + n));
  EXPECT_EQ(failures, static_cast<int>((bytes.size() + 2) / 3));
  // Corrupted bytes either load or fail with those exceptions (nothing else escapes).
  for (std::size_t i = 0; i < bytes.size(); i += 5) {
    auto bad = bytes;
    bad[i] ^= 0xA5;
    tryLoad(bad);
    bad[i] = 0xFF;
    tryLoad(bad);
  }
}

namespace {
// Keeps profile writes in memory and puts the library-wide values back.
class MemoryProfileHost : public CMeshcoreHost {
public:
  MemoryProfileHost() { SetMeshcoreHost(this); }
  ~MemoryProfileHost() override {
    SetMeshcoreHost(nullptr);
    SetGlobalSmoothAngleValue(SmoothDegreesToRadians(kDefaultSmoothDegrees));
    SetGlobalPatchLevelValue(kDefaultPatchLevel);
  }
  bool WriteProfileInt(const std::string& section, const std::string& key, int value) override {
    values[section + "/" + key] = value;
    return true;
  }
  std::map<std::string, int> values;
};
} // namespace

TEST_F(SceneTest, GlobalSettingsReachObjectsAndTheProfile) {
  MemoryProfileHost host;
  const float quarter = 0.7853982f;
  C3DScene scene;
  C3DBaseObject* global = AddMesh(scene, nullptr, "global")->GetBaseObject();
  C3DBaseObject* own = AddMesh(scene, nullptr, "own")->GetBaseObject();
  own->SetSmoothAngle(quarter);
  CPointNormalChannel* globalNormals = global->GetPointNormalChannel();
  CPointNormalChannel* ownNormals = own->GetPointNormalChannel();
  ASSERT_TRUE(globalNormals && ownNormals);
  ASSERT_TRUE(globalNormals->IsValid() && ownNormals->IsValid());

  // Only objects whose effective angle differs lose their normals.
  scene.SetGlobalSmoothAngle(quarter);
  EXPECT_FALSE(globalNormals->IsValid());
  EXPECT_TRUE(ownNormals->IsValid());

  C3DBaseObject* patchObject = g_creator.GetNewPatchObject();
  FillMesh(*patchObject, 4, {{0, 1, 2, 3}});
  AddObject(scene, nullptr, patchObject, "patch");
  auto& patch = static_cast<C3DPatch&>(*patchObject);
  scene.SetGlobalPatchLevel(2);
  EXPECT_EQ(patch.GetLevel(), 2);
  EXPECT_EQ(patch.GetFaceNbr(), 16);
  EXPECT_EQ(own->GetFaceNbr(), 1); // meshes are left alone
  scene.SetGlobalPatchLevel(0);
  EXPECT_EQ(patch.GetFaceNbr(), 1);
}

TEST_F(SceneTest, SubdividedPatchStoresAndCopiesItsResult) {
  C3DPatch patch;
  patch.SetPointList(new C3DPointList);
  patch.SetFaceList(new C3DFaceList);
  FillMesh(patch, 4, {{0, 1, 2, 3}});
  patch.AddChannel(MakeUVW(7001, 4, {{0, 1, 2, 3}}));
  patch.SetLevel(1);
  ASSERT_EQ(patch.GetFaceNbr(), 4);

  // The archive holds what the base lists hold: the four quads.
  const auto bytes = Store(patch);
  C3DPatch loaded;
  Load(loaded, bytes);
  EXPECT_EQ(loaded.GetLevel(), -1);
  ExpectSameObject(patch, loaded);

  // Copies too, as patches that take the result as their control mesh.
  std::unique_ptr<C3DBaseObject> copy(patch.Copy(0, nullptr));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetKindOf(), static_cast<unsigned>(OBJECT_PATCH));
  EXPECT_EQ(static_cast<C3DPatch&>(*copy).GetLevel(), -1);
  ExpectSameObject(patch, *copy);
  std::unique_ptr<C3DObject> source(patch.GetSourceObject());
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->GetFaceNbr(), 1);

  // Loading into the subdivided patch itself lets its control mesh go.
  Load(patch, bytes);
  EXPECT_EQ(patch.GetLevel(), -1);
  EXPECT_EQ(patch.GetFaceNbr(), 4);
  patch.SetLevel(0);
  EXPECT_EQ(patch.GetFaceNbr(), 4);
}
