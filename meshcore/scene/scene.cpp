#include "meshcore/scene/scene.h"

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/global_settings.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/object_creator.h"

#include <map>
#include <memory>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C3DScene, CTree, 1)

namespace {
// NodeExist reads only the reference node of its callback.
class ReferenceCallback : public TreeTraversalCallback {
public:
  ReferenceCallback(CTree* tree, CTreeNode* reference) : TreeTraversalCallback(tree, reference) {}
  int Visit(CTreeNode*, int) override { return 1; }
};

C3DSceneNode* AsSceneNode(CTreeNode* node) {
  return static_cast<C3DSceneNode*>(node);
}

std::string NumberedName(const std::string& prefix, int n) {
  return prefix + " " + std::to_string(n);
}
} // namespace

C3DScene::C3DScene() {
  auto* root = new C3DSceneNode;
  root->SetName("Scene");
  root->SetScene(this);
  root->SetObject(C3DObjectCreator().GetNewGroupObject());
  SetRoot(root);
}

C3DScene::~C3DScene() = default;

C3DSceneNode* C3DScene::GetRoot() const {
  return AsSceneNode(CTree::GetRoot());
}

C3DSceneNode* C3DScene::GetParent(const C3DSceneNode* node) const {
  return AsSceneNode(CTree::GetParent(node));
}

C3DSceneNode* C3DScene::GetChildNode(const C3DSceneNode* node) const {
  return AsSceneNode(CTree::GetChild(node ? node : GetRoot()));
}

C3DSceneNode* C3DScene::GetFirstNode(const C3DSceneNode* node) const {
  return AsSceneNode(CTree::GetFirstNode(node));
}

C3DSceneNode* C3DScene::GetNextNode(const C3DBaseObject*& object, C3DSceneNode*& cursor,
                                    const C3DSceneNode* stop) const {
  C3DSceneNode* node = cursor;
  if (!node)
    return nullptr;
  object = node->GetBaseObject();
  cursor = AsSceneNode(CTree::GetNextNode(node, stop));
  return node;
}

C3DSceneNode* C3DScene::GetRightNode(const C3DBaseObject*& object, C3DSceneNode*& cursor) const {
  C3DSceneNode* node = cursor;
  if (!node)
    return nullptr;
  object = node->GetBaseObject();
  cursor = AsSceneNode(CTree::GetRight(node));
  return node;
}

void C3DScene::AddNode(C3DSceneNode* parent, C3DSceneNode* node) {
  if (!node)
    return;
  node->SetScene(this);
  AddChild(parent, node);
}

int C3DScene::RemoveNode(C3DSceneNode* node, int del) {
  if (!node || node == GetRoot())
    return 0;
  if (del)
    DeleteNode(node);
  else
    CTree::RemoveNode(node);
  return 1;
}

int C3DScene::IsNodeInScene(const C3DSceneNode* node) {
  if (!node)
    return 0;
  ReferenceCallback callback(this, const_cast<C3DSceneNode*>(node));
  return NodeExist(TREE_TRAVERSAL_SUBTREE, nullptr, &callback) != nullptr;
}

int C3DScene::IsObjectInScene(C3DBaseObject* object) {
  return FindSceneNode(object) != nullptr;
}

C3DSceneNode* C3DScene::FindSceneNode(C3DBaseObject* object) {
  // The probe owns object, so object dies with it: hosts have always relied on
  // this call taking the object.
  C3DSceneNode probe(object, 1);
  ReferenceCallback callback(this, &probe);
  return AsSceneNode(NodeExist(TREE_TRAVERSAL_SUBTREE, nullptr, &callback));
}

unsigned C3DScene::GetNodeDepth(const C3DSceneNode* node) const {
  return node ? GetDepth(node) - 1 : 0xFFFFFFFFu;
}

int C3DScene::GetNodeNbr(int skipGroups) const {
  int count = 0;
  for (CTreeNode* n = CTree::GetFirstNode(nullptr); n; n = CTree::GetNextNode(n, nullptr)) {
    const C3DBaseObject* object = AsSceneNode(n)->GetBaseObject();
    if (skipGroups && object && object->IsKindOf(MESHCORE_RUNTIME_CLASS(C3DGroup)))
      continue;
    ++count;
  }
  return count;
}

int C3DScene::GetPointNbr() const {
  int count = 0;
  for (CTreeNode* n = CTree::GetFirstNode(nullptr); n; n = CTree::GetNextNode(n, nullptr))
    if (const C3DBaseObject* object = AsSceneNode(n)->GetBaseObject())
      count += object->GetPointNbr();
  return count;
}

int C3DScene::GetFaceNbr() const {
  int count = 0;
  for (CTreeNode* n = CTree::GetFirstNode(nullptr); n; n = CTree::GetNextNode(n, nullptr))
    if (const C3DBaseObject* object = AsSceneNode(n)->GetBaseObject())
      count += object->GetFaceNbr();
  return count;
}

void C3DScene::SetFilename(const std::string& name) {
  m_customData.SetString(kCustomSceneFilename, name);
}

std::string C3DScene::GetFilename() const {
  std::string name;
  m_customData.GetString(kCustomSceneFilename, name, std::string());
  return name;
}

std::string C3DScene::GetFilepath() const {
  const std::string name = GetFilename();
  const std::size_t cut = name.find_last_of("/\\");
  return cut == std::string::npos ? std::string() : name.substr(0, cut + 1);
}

void C3DScene::SetGlobalSmoothAngle(float radians) {
  C3DSceneNode* cursor = GetFirstNode(nullptr);
  while (cursor) {
    const C3DBaseObject* unused = nullptr;
    C3DBaseObject* object = GetNextNode(unused, cursor, nullptr)->GetBaseObject();
    // The effective angle, before the new value is stored. An object with an
    // angle of its own is invalidated too when that angle differs, harmlessly.
    if (object && object->GetChannels() && object->GetSmoothAngle() != radians)
      object->GetChannels()->Invalidate(CHANNEL_POINT_NORMAL);
  }
  StoreGlobalSmoothAngle(radians);
}

C3DMaterial* C3DScene::FindMaterial(const C3DMaterial& m, int byEquality) const {
  MaterialPosition pos = m_materials.GetStartPosition();
  while (pos) {
    C3DMaterial* candidate = m_materials.GetNextMaterial(pos);
    if (byEquality ? *candidate == m : candidate->HasSameParameters(m))
      return candidate;
  }
  return nullptr;
}

int C3DScene::GetMaterials(C3DSceneNode* node, CHashUInt& ids, int) const {
  if (!node)
    node = GetRoot();
  for (CTreeNode* n = node; n; n = CTree::GetNextNode(n, node)) {
    if (C3DBaseObject* object = AsSceneNode(n)->GetBaseObject())
      if (CHashUInt* used = object->GetMaterialsHash())
        ids.Merge(*used);
  }
  return ids.GetCount();
}

int C3DScene::GetNodesByMaterial(unsigned id, std::vector<C3DSceneNode*>& nodes, int) const {
  const std::size_t before = nodes.size();
  for (CTreeNode* n = CTree::GetFirstNode(nullptr); n; n = CTree::GetNextNode(n, nullptr)) {
    C3DBaseObject* object = AsSceneNode(n)->GetBaseObject();
    CHashUInt* used = object ? object->GetMaterialsHash() : nullptr;
    if (used && used->IsFound(id))
      nodes.push_back(AsSceneNode(n));
  }
  return static_cast<int>(nodes.size() - before);
}

bool C3DScene::IsSkipped(const C3DSceneNode* node, int flags) const {
  if ((flags & SCENE_SKIP_FLAGGED) && node->IsFlagSet(SCENE_NODE_NO_FACE_BOX))
    return true;
  const C3DBaseObject* object = node->GetBaseObject();
  const std::uint32_t kind = object ? object->GetKindOf() : 0;
  return ((flags & SCENE_SKIP_CURVES) && kind == OBJECT_CURVE) ||
         ((flags & SCENE_SKIP_PATCHES) && kind == OBJECT_PATCH) ||
         ((flags & SCENE_SKIP_POLYGONAL) && kind == OBJECT_POLYGONAL) ||
         ((flags & SCENE_SKIP_GROUPS) && kind == OBJECT_GROUP);
}

void C3DScene::AdoptSubtree(C3DSceneNode* node) {
  if (!node)
    return;
  node->SetScene(this);
  for (CTreeNode* n = node->GetChild(); n; n = CTree::GetNextNode(n, node))
    AsSceneNode(n)->SetScene(this);
}

C3DScene* C3DScene::Copy(int flags, C3DSceneNode* start, C3DObjectCreator* creator) {
  auto dst = std::make_unique<C3DScene>();
  CopyChilds(dst.get(), nullptr, flags, start, creator);
  Inherit(dst.get(), start, flags);
  if (dst->GetNodeNbr(1) == 0)
    return nullptr;
  return dst.release();
}

C3DSceneNode* C3DScene::CopyNode(C3DScene* dst, C3DSceneNode* node, C3DSceneNode* parent, int flags,
                                 C3DObjectCreator* creator) {
  if (!dst)
    return nullptr;
  C3DSceneNode* copy = CopySingleNode(dst, node, parent, flags | 0x30000, creator);
  if (copy)
    CopyChilds(dst, copy, flags | 0x30000, node, creator);
  Inherit(dst, node, flags);
  return copy;
}

C3DSceneNode* C3DScene::CopySingleNode(C3DScene* dst, C3DSceneNode* node, C3DSceneNode* parent,
                                       int flags, C3DObjectCreator* creator) {
  if (!dst || !node)
    return nullptr;
  C3DObjectCreator defaultCreator;
  C3DObjectCreator* allow = creator ? creator : &defaultCreator;
  if (!allow->IsCopyAllowed(node->GetBaseObject()) || IsSkipped(node, flags))
    return nullptr;
  C3DSceneNode* copy =
      node->Copy((flags & SCENE_TAG_OBJECTS) ? OBJECT_COPY_TAG_SOURCE : 0, creator);
  if (!copy)
    return nullptr;
  // The copy owns the fresh object it got, even when the source was a clone.
  copy->SetFlag(SCENE_NODE_CLONE, 0);
  dst->AddNode(parent, copy);
  if (flags & SCENE_TAG_NODES)
    copy->GetCustomData().SetPtr(kCustomSourceNode, node);
  Inherit(dst, node, flags);
  return copy;
}

void C3DScene::CopyChilds(C3DScene* dst, C3DSceneNode* parent, int flags, C3DSceneNode* node,
                          C3DObjectCreator* creator) {
  if (!dst)
    return;
  if (!node)
    node = GetRoot();
  for (C3DSceneNode* child = GetChildNode(node); child; child = AsSceneNode(child->GetRight())) {
    C3DSceneNode* copy = CopySingleNode(dst, child, parent, flags, creator);
    const C3DBaseObject* object = child->GetBaseObject();
    if (!object || object->GetKindOf() != OBJECT_GROUP || (flags & SCENE_NO_GROUP_DESCENT))
      continue;
    if (flags & SCENE_FLATTEN_GROUPS)
      CopyChilds(dst, parent, flags | 0x30010, child, creator);
    else
      CopyChilds(dst, copy ? copy : parent, flags | 0x30000, child, creator);
  }
  Inherit(dst, node, flags);
}

C3DSceneNode* C3DScene::Clone(C3DScene* dst, C3DSceneNode* parent, C3DSceneNode* node, int flags) {
  if (!dst || !node || node == GetRoot())
    return nullptr;
  auto* clone =
      AsSceneNode(CloneNode(node, parent ? parent : dst->GetRoot(), flags & SCENE_CLONE_CHILDREN));
  dst->AdoptSubtree(clone);
  Inherit(dst, node, flags);
  return clone;
}

C3DScene* C3DScene::Clone(C3DSceneNode* node, int flags) {
  auto dst = std::make_unique<C3DScene>();
  Clone(dst.get(), nullptr, node, flags);
  if (dst->GetNodeNbr(1) == 0)
    return nullptr;
  return dst.release();
}

C3DSceneNode* C3DScene::Move(C3DScene* dst, C3DSceneNode* parent, C3DSceneNode* node, int flags) {
  if (!dst || !node)
    return nullptr;
  auto* moved = AsSceneNode(MoveNode(node, parent ? parent : dst->GetRoot()));
  dst->AdoptSubtree(moved);
  Inherit(dst, node, flags);
  return moved;
}

void C3DScene::Inherit(C3DScene* dst, C3DSceneNode*, int flags) {
  if (!dst || dst == this)
    return;
  // The ids used below the node would only matter as a filter, and the filter
  // flag is not passed: every material is copied.
  if (!(flags & SCENE_NO_MATERIALS))
    dst->m_materials.CopyMaterials(m_materials, MATERIAL_COPY_OVERWRITE, nullptr);
  if (!(flags & SCENE_NO_CUSTOM_DATA))
    dst->m_customData = m_customData;
}

C3DScene* C3DScene::InitExport(int flags, int& changed) {
  changed = 0;
  if (flags & SCENE_EXPORT_CLEAN_GROUPS)
    CleanGroups();
  return this;
}

void C3DScene::ReleaseExport(C3DScene*& scene, int del) {
  if (del)
    delete scene;
  scene = nullptr;
}

void C3DScene::CleanGroups() {
  std::vector<C3DSceneNode*> groups;
  for (CTreeNode* n = CTree::GetFirstNode(nullptr); n; n = CTree::GetNextNode(n, nullptr)) {
    const C3DBaseObject* object = AsSceneNode(n)->GetBaseObject();
    if (object && object->GetKindOf() == OBJECT_GROUP)
      groups.push_back(AsSceneNode(n));
  }
  // In pre-order: a group is judged by the children it has when the walk meets
  // it. A group deleted here has nothing left below it, so no later entry goes.
  for (C3DSceneNode* group : groups) {
    CTreeNode* child = group->GetChild();
    if (child && child->GetRight())
      continue;
    if (child)
      MoveNode(child, group->GetParent());
    DeleteNode(group);
  }
}

void C3DScene::CheckoutNode(int flags) {
  std::map<std::uint32_t, int> perKind;
  for (CTreeNode* n = CTree::GetFirstNode(nullptr); n; n = CTree::GetNextNode(n, nullptr)) {
    C3DSceneNode* node = AsSceneNode(n);
    C3DBaseObject* object = node->GetBaseObject();
    if (!object)
      continue;
    const int count = ++perKind[object->GetKindOf()];
    if (node->GetName().empty())
      node->SetName(NumberedName(object->GetTypeString(), count));
    // A clone shares its owner's points, which its owner's node moves.
    if ((flags & SCENE_IMPORT_KEEP_POINTS) || object->GetKindOf() == OBJECT_GROUP ||
        !object->GetPointList() || node->IsClone())
      continue;
    // The object's points are moved so that its pivot, as the node's world
    // transform orients it, lands on the node's origin.
    C4x4Matrix world;
    node->GetMatrix(NODE_MATRIX_TRANSFORM, world, 0);
    const C3DVector& p = node->GetPivot();
    C4x4Matrix shift(1);
    for (int r = 0; r < 3; ++r)
      shift.m[r][3] = -(world.m[r][0] * p.x + world.m[r][1] * p.y + world.m[r][2] * p.z);
    if (shift.m[0][3] == 0.0f && shift.m[1][3] == 0.0f && shift.m[2][3] == 0.0f)
      continue;
    object->GetPointList()->MatrixTransform(shift);
    object->InvalidateBoundingBoxes();
  }
}

void C3DScene::CheckoutImport(int flags) {
  CheckoutNode(flags);
  const std::string prefix = LoadString(IDS_MATERIAL);
  int n = 0;
  MaterialPosition pos = m_materials.GetStartPosition();
  while (pos) {
    C3DMaterial* material = m_materials.GetNextMaterial(pos);
    ++n;
    if (material->GetName().empty())
      material->SetName(NumberedName(prefix, n));
  }
}

void C3DScene::OnNodeLoaded(CTreeNode* node) {
  C3DSceneNode* loaded = AsSceneNode(node);
  loaded->SetScene(this);
  // Every node wrote the object it shows, so a loaded clone owns what it read.
  loaded->SetFlag(SCENE_NODE_CLONE, 0);
}

void C3DScene::ClearContent() {
  DeleteAll();
  m_materials.RemoveAll();
  m_customData.RemoveAll();
}

void C3DScene::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << static_cast<std::uint32_t>(1);
    m_customData.Serialize(ar);
    m_materials.Serialize(ar);
    CTree::Serialize(ar);
    return;
  }
  std::uint32_t version = 0;
  ar >> version;
  ClearContent();
  if (version != 1)
    return;
  m_customData.Serialize(ar);
  m_materials.Serialize(ar);
  CTree::Serialize(ar);
}

} // namespace meshcore
