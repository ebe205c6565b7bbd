#include "meshcore/scene/scene_node.h"

#include "meshcore/mesh/geom_info.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/object_creator.h"
#include "meshcore/scene/tree.h"

#include <atomic>
#include <memory>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C3DSceneNode, CTreeNode, 1)

namespace {
std::atomic<std::uint32_t> g_nextNodeID{0};
} // namespace

C3DSceneNode::C3DSceneNode()
    : m_id(g_nextNodeID.fetch_add(1, std::memory_order_relaxed)),
      m_name(LoadString(IDS_UNNAMED_OBJECT)) {}

C3DSceneNode::C3DSceneNode(C3DBaseObject* object, int) : C3DSceneNode() {
  m_object = object;
  CTreeNode::SetFlag(TREENODE_ADOPTED_OBJECT, 1);
}

C3DSceneNode::~C3DSceneNode() {
  if (!IsClone())
    delete m_object;
}

void C3DSceneNode::SetFlag(std::uint32_t flag, int on) {
  if (on)
    m_nodeFlags |= flag;
  else
    m_nodeFlags &= ~flag;
}

void C3DSceneNode::SetCacheFlag(std::uint32_t bit, int on) {
  if (on)
    m_cache |= bit;
  else
    m_cache &= ~bit;
}

void C3DSceneNode::GetMatrix(int mode, C4x4Matrix& out, int local) const {
  out = GetMatrix(mode);
  if (local)
    return;
  for (const CTreeNode* p = CTree::GetParent(this); p; p = CTree::GetParent(p)) {
    if (const auto* node = dynamic_cast<const C3DSceneNode*>(p))
      out = node->m_matrix1 * out;
  }
}

void C3DSceneNode::SetMatRepeat(int mode, float x, float y, float z) {
  GetMatrix(mode).Scale(x, y, z);
}

void C3DSceneNode::SetMatOffset(int mode, float x, float y, float z) {
  C4x4Matrix& m = GetMatrix(mode);
  m.Init();
  m.InitTranslation(x, y, z);
}

void C3DSceneNode::SetMatAngle(int mode, float a, float b, float c) {
  C4x4Matrix& m = GetMatrix(mode);
  m.Rotate(a, 1.0f, 0.0f, 0.0f);
  m.Rotate(b, 0.0f, 1.0f, 0.0f);
  m.Rotate(c, 0.0f, 0.0f, 1.0f);
}

void C3DSceneNode::GetMatRepeat(int, float&, float&, float&) const {}
void C3DSceneNode::GetMatOffset(int, float&, float&, float&) const {}
void C3DSceneNode::GetMatAngle(int, float&, float&, float&) const {}

void C3DSceneNode::Inherit(const C3DSceneNode* from) {
  if (!from || from == this)
    return;
  m_scene = from->m_scene;
  m_nodeFlags = from->m_nodeFlags;
  m_pivot = from->m_pivot;
  m_matrix1 = from->m_matrix1;
  m_matrix2 = from->m_matrix2;
  m_name = from->m_name;
  m_extra = from->m_extra;
  m_nodeCustomData = from->m_nodeCustomData;
}

C3DSceneNode* C3DSceneNode::Copy(int flags, C3DObjectCreator* creator) {
  if (!m_object)
    return nullptr;
  C3DBaseObject* object = m_object->Copy(flags, creator);
  if (!object)
    return nullptr;
  auto* node = new C3DSceneNode;
  node->Inherit(this);
  node->m_object = object;
  return node;
}

CTreeNode* C3DSceneNode::Clone() {
  auto* node = new C3DSceneNode;
  node->Inherit(this);
  node->m_object = m_object;
  node->m_nodeFlags |= SCENE_NODE_CLONE;
  return node;
}

int C3DSceneNode::operator==(const CTreeNode& other) const {
  const auto* node = dynamic_cast<const C3DSceneNode*>(&other);
  return node && node->m_object == m_object;
}

int C3DSceneNode::GetBoundingBox(C3DPoint& min, C3DPoint& max, int facesOnly) const {
  if (!m_object)
    return 0;
  if (m_object->GetKindOf() == OBJECT_GROUP)
    return GetGroupBoundingBox(min, max, facesOnly);
  return m_object->GetBoundingBox(min, max, facesOnly);
}

int C3DSceneNode::GetCG(C3DPoint& cg) const {
  if (!m_object)
    return 0;
  if (m_object->GetKindOf() == OBJECT_GROUP)
    return GetGroupCG(cg);
  return m_object->GetCG(cg);
}

int C3DSceneNode::GetGroupBoundingBox(C3DPoint& min, C3DPoint& max, int facesOnly) const {
  int found = 0;
  for (const CTreeNode* n = GetChild(); n; n = CTree::GetNextNode(n, this)) {
    const auto* node = dynamic_cast<const C3DSceneNode*>(n);
    if (!node || !node->m_object)
      continue;
    if (facesOnly && node->IsFlagSet(SCENE_NODE_NO_FACE_BOX))
      continue;
    C3DPoint lo, hi;
    if (!node->m_object->GetBoundingBox(lo, hi, facesOnly))
      continue;
    if (!found) {
      min = lo;
      max = hi;
      found = 1;
      continue;
    }
    for (int i = 0; i < 3; ++i) {
      if (lo[i] < min[i])
        min[i] = lo[i];
      if (hi[i] > max[i])
        max[i] = hi[i];
    }
  }
  return found;
}

int C3DSceneNode::GetGroupCG(C3DPoint& cg) const {
  C3DPoint sum;
  int count = 0;
  C3DPoint c;
  if (m_object && m_object->GetCG(c)) {
    sum += c;
    ++count;
  }
  for (const CTreeNode* n = GetChild(); n; n = CTree::GetNextNode(n, this)) {
    const auto* node = dynamic_cast<const C3DSceneNode*>(n);
    if (node && node->m_object && node->m_object->GetCG(c)) {
      sum += c;
      ++count;
    }
  }
  if (!count)
    return 0;
  cg = sum / static_cast<float>(count);
  return 1;
}

void C3DSceneNode::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    m_matrix1.Serialize(ar);
    m_matrix2.Serialize(ar);
    ar << m_nodeFlags << m_name << m_extra;
    m_pivot.Serialize(ar);
    // The second copy of both matrices is part of the fixed layout.
    m_matrix1.Serialize(ar);
    m_matrix2.Serialize(ar);
    // Every node of a scene shows an object; a bare node is written with an
    // empty group so that the record stays readable.
    if (m_object) {
      ar.WriteClass(m_object->GetRuntimeClass());
      m_object->Serialize(ar);
    } else {
      C3DBaseObject* group = C3DObjectCreator().GetNewGroupObject();
      ar.WriteClass(group->GetRuntimeClass());
      group->Serialize(ar);
      delete group;
    }
    return;
  }
  const bool ownsPrevious = !IsClone();
  m_matrix1.Serialize(ar);
  m_matrix2.Serialize(ar);
  ar >> m_nodeFlags >> m_name >> m_extra;
  m_pivot.Serialize(ar);
  m_matrix1.Serialize(ar);
  m_matrix2.Serialize(ar);
  const CRuntimeClass* cls = ar.ReadClass(MESHCORE_RUNTIME_CLASS(C3DBaseObject));
  std::unique_ptr<CObject> obj(cls ? cls->CreateObject() : nullptr);
  if (!obj)
    ThrowArchiveException(CArchiveException::badClass);
  obj->Serialize(ar);
  if (ownsPrevious)
    delete m_object;
  m_object = static_cast<C3DBaseObject*>(obj.release());
}

CGeomInfo::CGeomInfo(C3DSceneNode* node) {
  C3DBaseObject* object = node ? node->GetBaseObject() : nullptr;
  if (object)
    InitSource(object, node, object->GetPointList(), object->GetFaceList(), object->GetChannels());
  else
    InitSource(nullptr, node, nullptr, nullptr, nullptr);
}

} // namespace meshcore
