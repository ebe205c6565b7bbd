#pragma once
// A general tree of CTreeNode with a content-less root, a callback traversal
// and a serialised form that keeps the structure and the order of siblings.

#include "meshcore/platform/archive.h"
#include "meshcore/platform/object.h"
#include "meshcore/scene/tree_node.h"

#include <cstdint>

namespace meshcore {

enum TreeTraversalMode {
  // Pre-order walk of the start node's subtree (start excluded), with leave calls.
  TREE_TRAVERSAL_SUBTREE = 1,
  // The start node's direct children only.
  TREE_TRAVERSAL_CHILDREN = 2,
  // From just after start in pre-order to the end of the tree, then round from
  // the first top-level node back to start, which is visited last.
  TREE_TRAVERSAL_CIRCULAR = 3,
};

// The info argument of a visit.
enum TreeTraversalInfo {
  TREE_ENTER_LEAF = 1,
  TREE_LEAVE_NODE = 2,
  TREE_ENTER_PARENT = 3,
};

class CTree;

class TreeTraversalCallback {
public:
  explicit TreeTraversalCallback(CTree* tree = nullptr, CTreeNode* find = nullptr)
      : m_tree(tree), m_find(find) {}
  TreeTraversalCallback(const TreeTraversalCallback&) = default;
  TreeTraversalCallback& operator=(const TreeTraversalCallback&) = default;
  virtual ~TreeTraversalCallback() = default;

  // Non-zero continues the walk. A 0 from an enter call ends it; a 0 from a
  // leave call does NOT: the walk re-enters that node and walks its children again.
  virtual int Visit(CTreeNode* node, int info) = 0;

  void SetTree(CTree* tree) { m_tree = tree; }
  CTree* GetTree() const { return m_tree; }
  // The reference node of a search (NodeExist compares nodes against it).
  void SetFind(CTreeNode* node) { m_find = node; }
  CTreeNode* GetFind() const { return m_find; }

private:
  CTree* m_tree;
  CTreeNode* m_find;
};

class CTree : public CObject {
  MESHCORE_DECLARE_SERIAL(CTree)
public:
  CTree() = default;
  // Deletes every node below the root, then the root.
  ~CTree() override;
  CTree(const CTree&) = delete;
  CTree& operator=(const CTree&) = delete;

  CTreeNode* GetRoot() const { return m_root; }
  int IsEmpty() const { return !m_root || !m_root->m_child; }
  void SetSilent(int silent) { m_silent = silent; }
  int IsSilent() const { return m_silent; }

  static CTreeNode* GetParent(const CTreeNode* node) { return node ? node->m_parent : nullptr; }
  static CTreeNode* GetChild(const CTreeNode* node) { return node ? node->m_child : nullptr; }
  static CTreeNode* GetRight(const CTreeNode* node) { return node ? node->m_right : nullptr; }
  static CTreeNode* GetLeft(const CTreeNode* node) { return node ? node->m_left : nullptr; }
  // Number of ancestors: 0 for the root (and for null), 1 for a top-level node.
  static unsigned GetDepth(const CTreeNode* node);

  // Inserts node as the FIRST child of parent (the root when null), so children
  // list in reverse order of insertion; use AddRight to keep an order.
  void AddChild(CTreeNode* parent, CTreeNode* node);
  // Links node after left (the root when null) and nothing else: node's right
  // link and parent are the caller's to set.
  void AddRight(CTreeNode* left, CTreeNode* node);

  // First child of node, or of the root when node is null.
  CTreeNode* GetFirstNode(const CTreeNode* node) const;
  // Pre-order successor of node within the subtree of stop (null: the whole tree).
  static CTreeNode* GetNextNode(const CTreeNode* node, const CTreeNode* stop);
  // direct != 0: number of children. Otherwise the number of nodes that
  // GetFirstNode(node) / GetNextNode(..., null) visit, which for a node other
  // than the root runs on past the node's own subtree to the end of the tree.
  int GetChildNbr(const CTreeNode* node, int direct) const;

  // Start null means the root. Modes and the resumption rule: see TreeTraversalMode
  // and TreeTraversalCallback::Visit.
  void DoTraversal(CTreeNode* start, TreeTraversalMode mode, TreeTraversalCallback* callback);
  // The first node (the root included) that callback's reference node equals, or null.
  CTreeNode* NodeExist(TreeTraversalMode mode, CTreeNode* start, TreeTraversalCallback* callback);

  // Unlinks node; it keeps its children and the caller owns the subtree.
  void RemoveNode(CTreeNode* node);
  // Unlinks node and deletes it with all its descendants.
  void DeleteNode(CTreeNode* node);
  // Deletes every node below the root.
  void DeleteAll();

  // The tree's class reference (schema 2; any other schema fails on reading),
  // then the structure from the root.
  void Serialize(CArchive& ar) override;

protected:
  // Takes ownership of the root; an earlier root and its nodes are deleted.
  void SetRoot(CTreeNode* root);
  // Unlinks node and inserts it as parent's first child. Refuses (returns null)
  // a parent inside node's own subtree.
  CTreeNode* MoveNode(CTreeNode* node, CTreeNode* parent);
  // The node's Copy (or Clone) inserted as parent's first child, with all
  // descendants when recursive is non-zero. Null when node or parent is null or
  // the node cannot be copied.
  CTreeNode* CopyNode(CTreeNode* node, CTreeNode* parent, int recursive);
  CTreeNode* CloneNode(CTreeNode* node, CTreeNode* parent, int recursive);
  void CopyChilds(CTreeNode* first, CTreeNode* parent);
  void CloneChilds(CTreeNode* first, CTreeNode* parent);
  // Deletes the sibling chain from first with all descendants.
  static void DeleteChilds(CTreeNode* first);
  // The class every node read from an archive must derive from.
  virtual const CRuntimeClass* GetNodeClass() const { return MESHCORE_RUNTIME_CLASS(CTreeNode); }
  // Called for each node read from an archive once it is linked.
  virtual void OnNodeLoaded(CTreeNode*) {}

private:
  CTreeNode* DuplicateNode(CTreeNode* node, CTreeNode* parent, int recursive, bool clone);
  void DuplicateChilds(CTreeNode* first, CTreeNode* parent, bool clone);
  void LoadStructure(CArchive& ar);
  void StoreStructure(CArchive& ar) const;

  std::int32_t m_silent = 0;
  CTreeNode* m_root = nullptr;
};

} // namespace meshcore
