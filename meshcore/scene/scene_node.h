#pragma once
// The node of a scene: places one geometric object in the scene with two
// matrices, a pivot and a name. Several nodes may show one object; the node
// that is not a clone owns it.

#include "meshcore/containers/custom_data.h"
#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/geometry/point_3d.h"
#include "meshcore/geometry/vector_3d.h"
#include "meshcore/scene/tree_node.h"

#include <cstdint>
#include <string>

namespace meshcore {

class C3DBaseObject;
class C3DObjectCreator;
class C3DScene;

enum _SCENE_NODE_FLAGS : std::uint32_t {
  SCENE_NODE_NO_FACE_BOX = 1, // left out of face-based group boxes
  SCENE_NODE_CLONE = 0x100,   // shows an object that another node owns
};

// Cache bits of a node; kept for hosts that cache derived node data.
enum _SCENE_NODE_CACHE_PROPERTIES : std::uint32_t {
  SCENE_NODE_CACHE_NONE = 0,
};

enum _NODE_MATRIX_MODE : int {
  NODE_MATRIX_TRANSFORM = 1, // relative to the parent; the one world matrices compose
  NODE_MATRIX_SECONDARY = 2, // any other mode selects this one
};

class C3DSceneNode : public CTreeNode {
  MESHCORE_DECLARE_SERIAL(C3DSceneNode)
public:
  C3DSceneNode();
  // A node that owns object. Also sets tree-node flag 0x100 (not the clone
  // bit). The int is not used.
  C3DSceneNode(C3DBaseObject* object, int unused);
  // Deletes the object unless the node is a clone.
  ~C3DSceneNode() override;

  // Stores the pointer; the previous object is not deleted.
  void SetObject(C3DBaseObject* object) { m_object = object; }
  C3DBaseObject* GetBaseObject() const { return m_object; }
  void SetScene(C3DScene* scene) { m_scene = scene; }
  C3DScene* GetScene() const { return m_scene; }
  unsigned GetID() const { return m_id; }
  int IsClone() const { return (m_nodeFlags & SCENE_NODE_CLONE) != 0; }
  void SetFlag(std::uint32_t flag, int on);
  int IsFlagSet(std::uint32_t flag) const { return (m_nodeFlags & flag) == flag; }
  std::uint32_t GetNodeFlags() const { return m_nodeFlags; }
  // The node's own records (not the tree-node record).
  CCustomData& GetCustomData() { return m_nodeCustomData; }
  const CCustomData& GetCustomData() const { return m_nodeCustomData; }

  void SetName(const std::string& name) { m_name = name; }
  const std::string& GetName() const { return m_name; }
  std::string GetDisplayName() const override { return m_name; }
  void SetPivot(const C3DVector& pivot) { m_pivot = pivot; }
  const C3DVector& GetPivot() const { return m_pivot; }
  void SetExtra(float value) { m_extra = value; }
  float GetExtra() const { return m_extra; }

  // Mode 1: the transform relative to the parent; any other mode: the second matrix.
  C4x4Matrix& GetMatrix(int mode) { return mode == NODE_MATRIX_TRANSFORM ? m_matrix1 : m_matrix2; }
  const C4x4Matrix& GetMatrix(int mode) const {
    return mode == NODE_MATRIX_TRANSFORM ? m_matrix1 : m_matrix2;
  }
  void SetMatrix(int mode, const C4x4Matrix& m) { GetMatrix(mode) = m; }
  void InitMatrix(int mode) { GetMatrix(mode).Init(); }
  // out = the node's matrix of mode; unless local, premultiplied by the
  // ancestors' transform matrices (mode 1) up to the root, whatever the mode.
  void GetMatrix(int mode, C4x4Matrix& out, int local) const;
  void SetMatRepeat(int mode, float x, float y, float z);
  // Replaces the matrix by a translation.
  void SetMatOffset(int mode, float x, float y, float z);
  void SetMatAngle(int mode, float a, float b, float c);
  // The matrix is not decomposed: these leave their outputs untouched.
  void GetMatRepeat(int mode, float& x, float& y, float& z) const;
  void GetMatOffset(int mode, float& x, float& y, float& z) const;
  void GetMatAngle(int mode, float& a, float& b, float& c) const;

  // Takes scene, node flags (the clone bit too), pivot, matrices, name, extra and
  // custom data; not the id, the object or the links.
  void Inherit(const C3DSceneNode* from);
  // A new node with a deep copy of the object, or null. The copy of a clone
  // is still marked clone although it owns a fresh object: clear the bit.
  C3DSceneNode* Copy(int flags, C3DObjectCreator* creator);
  CTreeNode* Copy() override { return Copy(0, nullptr); }
  // A new node showing the same object, marked clone.
  CTreeNode* Clone() override;
  // True when other is a scene node showing the same object.
  int operator==(const CTreeNode& other) const override;

  // Box and centre in object coordinates (no matrix applied); groups answer
  // for the nodes below them.
  int GetBoundingBox(C3DPoint& min, C3DPoint& max, int facesOnly) const;
  int GetCG(C3DPoint& cg) const;
  int GetGroupBoundingBox(C3DPoint& min, C3DPoint& max, int facesOnly) const;
  int GetGroupCG(C3DPoint& cg) const;

  // Matrices, flags, name, extra, pivot, the matrices again, then the object.
  // Neither the tree-node fields nor the custom data are part of it. Reading
  // keeps the stored clone bit although the node then holds the object it read:
  // the reader clears it (the scene does for the nodes it loads).
  void Serialize(CArchive& ar) override;

protected:
  void SetCacheFlag(std::uint32_t bit, int on);
  int IsCacheValid(std::uint32_t bit) const { return (m_cache & bit) == bit; }

private:
  C3DScene* m_scene = nullptr;
  C3DBaseObject* m_object = nullptr;
  CCustomData m_nodeCustomData;
  std::uint32_t m_id;
  std::uint32_t m_nodeFlags = 0;
  std::uint32_t m_cache = 0;
  C3DVector m_pivot;
  C4x4Matrix m_matrix1{1};
  C4x4Matrix m_matrix2{1};
  std::string m_name;
  float m_extra = 0.0f;
};

} // namespace meshcore
