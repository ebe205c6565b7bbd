#pragma once
// A scene: a tree of scene nodes under a root, the materials, and scene-level
// custom data (the file name among it). Codecs read into and write from it.

#include "meshcore/containers/custom_data.h"
#include "meshcore/containers/hash_table.h"
#include "meshcore/scene/materials.h"
#include "meshcore/scene/scene_node.h"
#include "meshcore/scene/tree.h"

#include <string>
#include <vector>

namespace meshcore {

class C3DBaseObject;
class C3DObjectCreator;

// Flags of Copy, CopyNode, CopySingleNode, CopyChilds, Clone, Move and Inherit.
enum SCENE_COPY_FLAGS : int {
  SCENE_SKIP_FLAGGED = 0x1, // nodes with node flag 1
  SCENE_SKIP_CURVES = 0x2,
  SCENE_SKIP_PATCHES = 0x4,
  SCENE_SKIP_POLYGONAL = 0x8,
  SCENE_SKIP_GROUPS = 0x10,
  SCENE_TAG_NODES = 0x100,   // each copy records its source node's address ('RFNO')
  SCENE_TAG_OBJECTS = 0x200, // each copied object records its source's address ('RFOB')
  SCENE_NO_GROUP_DESCENT = 0x400,
  SCENE_CLONE_CHILDREN = 0x800,
  SCENE_FLATTEN_GROUPS = 0x1000,
  SCENE_NO_MATERIALS = 0x10000,
  SCENE_NO_CUSTOM_DATA = 0x20000,
};

// InitExport flags.
enum SCENE_EXPORT_FLAGS : int {
  SCENE_EXPORT_CLEAN_GROUPS = 1,
};

// CheckoutImport flags.
enum SCENE_IMPORT_FLAGS : int {
  SCENE_IMPORT_KEEP_POINTS = 1, // do not move points by the node pivots
};

inline constexpr unsigned kCustomSceneFilename = 0x534E464C; // 'SNFL'
inline constexpr unsigned kCustomSourceNode = 0x52464E4F;    // 'RFNO'

class C3DScene : public CTree {
  MESHCORE_DECLARE_SERIAL(C3DScene)
public:
  // An empty scene whose root is a node named "Scene" owning an empty group.
  C3DScene();
  ~C3DScene() override;

  // Tree access; a null node stands for the root where it makes sense.
  C3DSceneNode* GetRoot() const;
  int IsSceneRoot(const C3DSceneNode* node) const { return node && node == GetRoot(); }
  C3DSceneNode* GetParent(const C3DSceneNode* node) const;
  C3DSceneNode* GetChildNode(const C3DSceneNode* node) const;
  C3DSceneNode* GetFirstNode(const C3DSceneNode* node) const;
  // Returns the node at cursor (with its object) and moves cursor on in
  // pre-order within stop. Walk: cursor = GetFirstNode(nullptr); while (cursor)
  // node = GetNextNode(object, cursor, nullptr);
  C3DSceneNode* GetNextNode(const C3DBaseObject*& object, C3DSceneNode*& cursor,
                            const C3DSceneNode* stop) const;
  // The same, moving cursor to the right sibling only.
  C3DSceneNode* GetRightNode(const C3DBaseObject*& object, C3DSceneNode*& cursor) const;
  // Inserts node as parent's (the root's when null) FIRST child; the scene owns it.
  void AddNode(C3DSceneNode* parent, C3DSceneNode* node);
  // 0 for null or the root. del 0 only unlinks (the caller then owns the
  // subtree); otherwise deletes the node and its descendants.
  int RemoveNode(C3DSceneNode* node, int del);
  void RemoveAllNodes() { DeleteAll(); }
  // Whether a node showing the same object as node is in the tree.
  int IsNodeInScene(const C3DSceneNode* node);
  // CONSUMES object: the search deletes it, found or not. Do not use it afterwards.
  int IsObjectInScene(C3DBaseObject* object);
  // 0 for a top-level node; 0xFFFFFFFF for null.
  unsigned GetNodeDepth(const C3DSceneNode* node) const;

  // Nodes below the root, without group nodes when skipGroups is non-zero.
  int GetNodeNbr(int skipGroups) const;
  // Summed over nodes: an object shown by several nodes counts once per node.
  int GetPointNbr() const;
  int GetFaceNbr() const;

  void SetFilename(const std::string& name);
  std::string GetFilename() const;
  // The directory part of the file name, with its trailing separator.
  std::string GetFilepath() const;
  CCustomData& GetCustomData() { return m_customData; }
  const CCustomData& GetCustomData() const { return m_customData; }

  // Materials.
  CMaterials& GetMaterials() { return m_materials; }
  const CMaterials& GetMaterials() const { return m_materials; }
  // A new material with the next id and an EMPTY name: name it yourself.
  C3DMaterial* CreateNewMaterial() { return m_materials.CreateNewMaterial(); }
  // Id of the first material with this name, or 0xFFFFFFFF.
  unsigned GetMaterialID(const std::string& name) const {
    return m_materials.IsMaterialExist(name);
  }
  // Id 0 creates the default material when absent; other absent ids give null.
  C3DMaterial* GetMaterial(unsigned id) { return m_materials.GetMaterial(id); }
  int IsMaterialExist(const C3DMaterial& m, unsigned& id) const {
    return m_materials.IsMaterialExist(m, id);
  }
  void CopyMaterials(const C3DScene& src, unsigned flags, const CHashUInt* filter) {
    m_materials.CopyMaterials(src.m_materials, flags, filter);
  }
  MaterialPosition GetFirstMaterial() const { return m_materials.GetStartPosition(); }
  C3DMaterial* GetNextMaterial(MaterialPosition& pos) const {
    return m_materials.GetNextMaterial(pos);
  }
  int GetMaterialNumber() const { return static_cast<int>(m_materials.GetCount()); }
  // First material equal to m: by name and parameters when byEquality is
  // non-zero, else by parameters only (see C3DMaterial::HasSameParameters).
  C3DMaterial* FindMaterial(const C3DMaterial& m, int byEquality) const;
  // Adds the material ids used by the objects of node (the root when null) and
  // every node below it; returns the hash's count.
  int GetMaterials(C3DSceneNode* node, CHashUInt& ids, int unused) const;
  // The nodes whose objects use material id; returns their number.
  int GetNodesByMaterial(unsigned id, std::vector<C3DSceneNode*>& nodes, int unused) const;

  // Library-wide settings, applied to the scene's objects and written to the
  // host's profile. The angle is in radians: objects that smooth with a
  // different effective angle lose their point normals (rebuilt on demand).
  void SetGlobalSmoothAngle(float radians);
  // Rebuilds every patch at level, then stores it.
  void SetGlobalPatchLevel(unsigned level);

  // Copying, cloning and moving; flags are SCENE_COPY_FLAGS. Copies are made
  // with AddNode, so each level of copies lists in reverse order of the source.
  // A new scene with copies of the nodes below start (the root when null), or
  // null when it would hold nothing but groups.
  C3DScene* Copy(int flags, C3DSceneNode* start, C3DObjectCreator* creator);
  C3DSceneNode* CopyNode(C3DScene* dst, C3DSceneNode* node, C3DSceneNode* parent, int flags,
                         C3DObjectCreator* creator);
  // A copy of node alone under parent in dst (the root when null), or null when
  // skipped. A copied clone owns its new object and is no longer marked clone.
  C3DSceneNode* CopySingleNode(C3DScene* dst, C3DSceneNode* node, C3DSceneNode* parent, int flags,
                               C3DObjectCreator* creator);
  // Copies the children of node (the root when null) under parent; only
  // groups are descended into (children of other nodes are left out).
  void CopyChilds(C3DScene* dst, C3DSceneNode* parent, int flags, C3DSceneNode* node,
                  C3DObjectCreator* creator);
  C3DSceneNode* Clone(C3DScene* dst, C3DSceneNode* parent, C3DSceneNode* node, int flags);
  // A new scene with a clone of node, or null when it would hold only groups.
  C3DScene* Clone(C3DSceneNode* node, int flags);
  C3DSceneNode* Move(C3DScene* dst, C3DSceneNode* parent, C3DSceneNode* node, int flags);
  // Copies ALL of this scene's materials into dst (same ids overwritten), not
  // only those used below node, unless flag 0x10000; and the scene's custom
  // data unless flag 0x20000.
  void Inherit(C3DScene* dst, C3DSceneNode* node, int flags);

  // Sets changed to 0; flag 1 runs CleanGroups. Returns this scene itself.
  C3DScene* InitExport(int flags, int& changed);
  // Deletes scene when del is non-zero; sets the pointer to null either way.
  void ReleaseExport(C3DScene*& scene, int del);
  // Removes every group node with fewer than two children when a pre-order
  // walk meets it, moving a single child up to the group's parent first.
  void CleanGroups();
  // Names unnamed nodes "<type> <n>" per kind, moves points by the node
  // pivots (unless flag 1) and names unnamed materials "<Material> <n>".
  void CheckoutImport(int flags);

  // Version 1, custom data, materials, tree. Another version leaves the scene empty.
  void Serialize(CArchive& ar) override;

protected:
  // The first node showing object. CONSUMES object (see IsObjectInScene).
  C3DSceneNode* FindSceneNode(C3DBaseObject* object);
  void CheckoutNode(int flags);
  const CRuntimeClass* GetNodeClass() const override {
    return MESHCORE_RUNTIME_CLASS(C3DSceneNode);
  }
  void OnNodeLoaded(CTreeNode* node) override;

private:
  bool IsSkipped(const C3DSceneNode* node, int flags) const;
  void AdoptSubtree(C3DSceneNode* node);
  void ClearContent();

  CCustomData m_customData;
  CMaterials m_materials;
};

} // namespace meshcore
