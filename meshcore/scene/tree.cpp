#include "meshcore/scene/tree.h"

#include "meshcore/platform/exceptions.h"

#include <memory>
#include <utility>
#include <vector>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CTree, CObject, 2)

namespace {
// Structure markers of the serialised form.
constexpr std::uint32_t kEndOfChain = 0;
constexpr std::uint32_t kHasChildren = 1;
constexpr std::uint32_t kNoChildren = 2;
constexpr std::uint32_t kNode = 3;
constexpr std::uint32_t kRoot = 4;

// Stops at the first entered node that the reference node equals.
class SearchCallback : public TreeTraversalCallback {
public:
  explicit SearchCallback(const CTreeNode* reference) : m_reference(reference) {}
  int Visit(CTreeNode* node, int info) override {
    if (info == TREE_LEAVE_NODE || !(*m_reference == *node))
      return 1;
    m_found = node;
    return 0;
  }
  CTreeNode* Found() const { return m_found; }

private:
  const CTreeNode* m_reference;
  CTreeNode* m_found = nullptr;
};
} // namespace

CTree::~CTree() {
  if (m_root) {
    DeleteChilds(m_root->m_child);
    delete m_root;
  }
}

void CTree::SetRoot(CTreeNode* root) {
  if (m_root == root)
    return;
  if (m_root) {
    DeleteChilds(m_root->m_child);
    delete m_root;
  }
  m_root = root;
}

unsigned CTree::GetDepth(const CTreeNode* node) {
  unsigned depth = 0;
  for (const CTreeNode* p = node ? node->m_parent : nullptr; p; p = p->m_parent)
    ++depth;
  return depth;
}

void CTree::AddChild(CTreeNode* parent, CTreeNode* node) {
  if (!node)
    return;
  if (!parent)
    parent = m_root;
  if (!parent)
    return;
  node->m_parent = parent;
  node->m_left = nullptr;
  node->m_right = parent->m_child;
  if (parent->m_child)
    parent->m_child->m_left = node;
  parent->m_child = node;
}

void CTree::AddRight(CTreeNode* left, CTreeNode* node) {
  if (!left)
    left = m_root;
  if (!left || !node)
    return;
  left->m_right = node;
  node->m_left = left;
}

CTreeNode* CTree::GetFirstNode(const CTreeNode* node) const {
  if (!node)
    node = m_root;
  return node ? node->m_child : nullptr;
}

CTreeNode* CTree::GetNextNode(const CTreeNode* node, const CTreeNode* stop) {
  if (!node)
    return nullptr;
  if (CTreeNode* child = node->m_child)
    return child == stop ? nullptr : child;
  const CTreeNode* n = node;
  for (;;) {
    if (CTreeNode* right = n->m_right)
      return right == stop ? nullptr : right;
    n = n->m_parent;
    if (!n || n == stop || !n->m_parent)
      return nullptr;
  }
}

int CTree::GetChildNbr(const CTreeNode* node, int direct) const {
  if (!node)
    node = m_root;
  if (!node)
    return 0;
  int count = 0;
  if (direct) {
    for (const CTreeNode* c = node->m_child; c; c = c->m_right)
      ++count;
    return count;
  }
  for (const CTreeNode* n = GetFirstNode(node); n; n = GetNextNode(n, nullptr))
    ++count;
  return count;
}

void CTree::DoTraversal(CTreeNode* start, TreeTraversalMode mode, TreeTraversalCallback* callback) {
  if (!start)
    start = m_root;
  if (!start || !callback)
    return;
  if (mode != TREE_TRAVERSAL_SUBTREE && mode != TREE_TRAVERSAL_CHILDREN &&
      mode != TREE_TRAVERSAL_CIRCULAR)
    return;
  const bool circular = mode == TREE_TRAVERSAL_CIRCULAR;
  const bool descend = mode != TREE_TRAVERSAL_CHILDREN;
  int depth = 1;
  CTreeNode* cur;
  bool enter;
  if (circular) {
    cur = start;
    enter = false; // start is skipped on the first step
  } else {
    cur = start->m_child;
    if (!cur)
      return;
    enter = true;
  }
  for (;;) {
    // Enter the current node (the root is never entered).
    if (enter && cur != m_root) {
      if (!callback->Visit(cur, cur->m_child ? TREE_ENTER_PARENT : TREE_ENTER_LEAF))
        return;
      if (circular && cur == start)
        return;
    }
    enter = true;
    if (descend && cur->m_child) {
      cur = cur->m_child;
      ++depth;
      continue;
    }
    // Move right, climbing while there is no right sibling.
    bool resumed = false;
    while (!cur->m_right) {
      CTreeNode* parent = cur->m_parent;
      if (!parent)
        return; // a detached subtree: nothing above to climb to
      if (parent == m_root) {
        // A circular walk started at the root has come full circle.
        if (!circular || start == m_root)
          return;
        cur = parent;
        resumed = true; // not entered; continues from the root's first child
        break;
      }
      --depth;
      if (!circular && depth == 0)
        return;
      cur = parent;
      if (!callback->Visit(parent, TREE_LEAVE_NODE)) {
        resumed = true; // re-enter the parent and walk its children anew
        break;
      }
    }
    if (resumed)
      continue;
    cur = cur->m_right;
  }
}

CTreeNode* CTree::NodeExist(TreeTraversalMode mode, CTreeNode* start,
                            TreeTraversalCallback* callback) {
  if (!callback || !callback->GetFind())
    return nullptr;
  const CTreeNode* reference = callback->GetFind();
  if (m_root && *reference == *m_root)
    return m_root;
  SearchCallback search(reference);
  search.SetTree(this);
  DoTraversal(start, mode, &search);
  return search.Found();
}

void CTree::RemoveNode(CTreeNode* node) {
  if (!node)
    return;
  if (node->m_parent && node->m_parent->m_child == node)
    node->m_parent->m_child = node->m_right;
  if (node->m_left)
    node->m_left->m_right = node->m_right;
  if (node->m_right)
    node->m_right->m_left = node->m_left;
  node->m_parent = node->m_left = node->m_right = nullptr;
}

void CTree::DeleteNode(CTreeNode* node) {
  if (!node)
    return;
  if (node == m_root) {
    DeleteAll();
    return;
  }
  RemoveNode(node);
  DeleteChilds(node->m_child);
  delete node;
}

void CTree::DeleteAll() {
  if (!m_root)
    return;
  DeleteChilds(m_root->m_child);
  m_root->m_child = nullptr;
}

void CTree::DeleteChilds(CTreeNode* first) {
  // Iterative, so that the depth of a tree read from a file cannot exhaust the stack.
  std::vector<CTreeNode*> pending;
  if (first)
    pending.push_back(first);
  while (!pending.empty()) {
    CTreeNode* n = pending.back();
    pending.pop_back();
    for (; n;) {
      CTreeNode* right = n->m_right;
      if (n->m_child)
        pending.push_back(n->m_child);
      delete n;
      n = right;
    }
  }
}

CTreeNode* CTree::MoveNode(CTreeNode* node, CTreeNode* parent) {
  if (!parent)
    parent = m_root;
  if (!node || !parent || node == m_root)
    return nullptr;
  for (const CTreeNode* p = parent; p; p = p->m_parent)
    if (p == node)
      return nullptr; // would detach the subtree into itself
  RemoveNode(node);
  AddChild(parent, node);
  return node;
}

CTreeNode* CTree::DuplicateNode(CTreeNode* node, CTreeNode* parent, int recursive, bool clone) {
  if (!node || !parent)
    return nullptr;
  CTreeNode* copy = clone ? node->Clone() : node->Copy();
  if (!copy)
    return nullptr;
  AddChild(parent, copy);
  if (recursive)
    DuplicateChilds(node->m_child, copy, clone);
  return copy;
}

void CTree::DuplicateChilds(CTreeNode* first, CTreeNode* parent, bool clone) {
  std::vector<std::pair<CTreeNode*, CTreeNode*>> pending; // source chain, new parent
  if (first && parent)
    pending.emplace_back(first, parent);
  while (!pending.empty()) {
    auto [n, newParent] = pending.back();
    pending.pop_back();
    for (; n; n = n->m_right) {
      CTreeNode* copy = clone ? n->Clone() : n->Copy();
      if (!copy)
        continue;
      AddChild(newParent, copy);
      if (n->m_child)
        pending.emplace_back(n->m_child, copy);
    }
  }
}

CTreeNode* CTree::CopyNode(CTreeNode* node, CTreeNode* parent, int recursive) {
  return DuplicateNode(node, parent, recursive, false);
}

CTreeNode* CTree::CloneNode(CTreeNode* node, CTreeNode* parent, int recursive) {
  return DuplicateNode(node, parent, recursive, true);
}

void CTree::CopyChilds(CTreeNode* first, CTreeNode* parent) {
  DuplicateChilds(first, parent, false);
}

void CTree::CloneChilds(CTreeNode* first, CTreeNode* parent) {
  DuplicateChilds(first, parent, true);
}

void CTree::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar.WriteClass(MESHCORE_RUNTIME_CLASS(CTree));
    StoreStructure(ar);
    return;
  }
  std::uint32_t schema = 0;
  ar.ReadClass(MESHCORE_RUNTIME_CLASS(CTree), &schema);
  if (schema != 2)
    ThrowArchiveException(CArchiveException::badSchema);
  LoadStructure(ar);
}

void CTree::StoreStructure(CArchive& ar) const {
  if (!m_root) {
    ar << kEndOfChain;
    return;
  }
  // Each entry is the next node to write in a sibling chain; the root's chain
  // holds the root alone.
  std::vector<const CTreeNode*> chains{m_root};
  while (!chains.empty()) {
    const CTreeNode* n = chains.back();
    if (!n) {
      ar << kEndOfChain;
      chains.pop_back();
      continue;
    }
    chains.back() = n == m_root ? nullptr : n->m_right;
    if (n == m_root) {
      ar << kRoot;
    } else {
      ar << kNode;
      ar.WriteClass(n->GetRuntimeClass());
      const_cast<CTreeNode*>(n)->Serialize(ar);
    }
    if (n->m_child) {
      ar << kHasChildren;
      chains.push_back(n->m_child);
    } else {
      ar << kNoChildren;
    }
  }
}

void CTree::LoadStructure(CArchive& ar) {
  if (!m_root)
    m_root = new CTreeNode;
  DeleteAll();
  struct Chain {
    CTreeNode* parent; // null for the chain that holds the root
    CTreeNode* last;   // last node linked into this chain
  };
  std::vector<Chain> chains{{nullptr, nullptr}};
  bool rootSeen = false;
  while (!chains.empty()) {
    std::uint32_t marker = 0;
    ar >> marker;
    if (marker == kEndOfChain) {
      chains.pop_back();
      continue;
    }
    Chain& chain = chains.back();
    CTreeNode* node = nullptr;
    if (marker == kRoot) {
      // The root stands alone at the top; anywhere else it would make a cycle.
      if (chain.parent || rootSeen)
        ThrowArchiveException(CArchiveException::badIndex);
      rootSeen = true;
      node = m_root;
    } else if (marker == kNode) {
      if (!chain.parent)
        ThrowArchiveException(CArchiveException::badIndex);
      const CRuntimeClass* cls = ar.ReadClass(GetNodeClass());
      std::unique_ptr<CObject> obj(cls ? cls->CreateObject() : nullptr);
      if (!obj)
        ThrowArchiveException(CArchiveException::badClass);
      obj->Serialize(ar);
      node = static_cast<CTreeNode*>(obj.release());
      node->m_parent = chain.parent;
      if (chain.last) {
        chain.last->m_right = node;
        node->m_left = chain.last;
      } else {
        chain.parent->m_child = node;
      }
      chain.last = node;
      OnNodeLoaded(node);
    } else {
      ThrowArchiveException(CArchiveException::badIndex);
    }
    std::uint32_t children = 0;
    ar >> children;
    if (children == kHasChildren)
      chains.push_back({node, nullptr});
    else if (children != kNoChildren)
      ThrowArchiveException(CArchiveException::badIndex);
  }
}

} // namespace meshcore
