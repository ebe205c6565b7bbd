#pragma once
// A node of a general tree: first-child / next-sibling links, flags and custom data.

#include "meshcore/containers/custom_data.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/object.h"

#include <cstdint>
#include <string>

namespace meshcore {

class CTree;

// Tree-node flags.
enum TreeNodeFlag : std::uint32_t {
  // Set by the scene-node constructor that adopts an object; kept for hosts.
  TREENODE_ADOPTED_OBJECT = 0x100,
};

class CTreeNode : public CObject {
  MESHCORE_DECLARE_SERIAL(CTreeNode)
public:
  CTreeNode() = default;
  // Does not delete the children: CTree::DeleteNode does.
  ~CTreeNode() override = default;
  CTreeNode(const CTreeNode&) = delete;
  CTreeNode& operator=(const CTreeNode&) = delete;

  void SetFlag(std::uint32_t flag, int on);
  std::uint32_t GetFlags() const { return m_flags; }
  CCustomData& GetTreeCustomData() { return m_customData; }
  const CCustomData& GetTreeCustomData() const { return m_customData; }

  CTreeNode* GetChild() const { return m_child; }
  CTreeNode* GetParent() const { return m_parent; }
  CTreeNode* GetLeft() const { return m_left; }
  CTreeNode* GetRight() const { return m_right; }

  virtual std::string GetDisplayName() const { return {}; }
  // A new unlinked node with this node's content; null here.
  virtual CTreeNode* Copy() { return nullptr; }
  // A new unlinked node sharing this node's content; null here.
  virtual CTreeNode* Clone() { return nullptr; }
  // Whether other shows the same content; always 1 here.
  virtual int operator==(const CTreeNode& other) const;

  void Serialize(CArchive& ar) override;

private:
  friend class CTree;
  CCustomData m_customData;
  CTreeNode* m_child = nullptr;
  CTreeNode* m_parent = nullptr;
  CTreeNode* m_left = nullptr;
  CTreeNode* m_right = nullptr;
  std::uint32_t m_flags = 0;
};

} // namespace meshcore
