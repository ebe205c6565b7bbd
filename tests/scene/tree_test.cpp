#include "meshcore/scene/tree.h"

#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene_node.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace meshcore;

namespace {
// A tree of plain nodes (the scene makes its own root; a bare tree needs one).
class TestTree : public CTree {
public:
  TestTree() { SetRoot(new CTreeNode); }
  using CTree::CloneNode;
  using CTree::CopyNode;
  using CTree::MoveNode;
};

// Plain node with a label kept in its tree-node custom data.
CTreeNode* Labelled(const std::string& label) {
  auto* n = new CTreeNode;
  n->GetTreeCustomData().SetString(1, label);
  return n;
}

std::string Label(const CTreeNode* n) {
  std::string s;
  n->GetTreeCustomData().GetString(1, s);
  return s;
}

// Records visits as "label:info"; returns 0 where told to.
class Recorder : public TreeTraversalCallback {
public:
  int Visit(CTreeNode* node, int info) override {
    const std::string v = Label(node) + ":" + std::to_string(info);
    log += (log.empty() ? "" : " ") + v;
    if (v == stopAt && stops-- > 0)
      return 0;
    return ++calls < 1000; // a runaway walk fails instead of hanging
  }
  std::string log;
  std::string stopAt;
  int stops = 1;
  int calls = 0;
};

// root -> A(A1, A2(A2a)), B, C(C1), built with AddRight to keep file order.
struct Fixture {
  TestTree tree;
  CTreeNode *A, *A1, *A2, *A2a, *B, *C, *C1;
  Fixture() {
    A = Labelled("A");
    B = Labelled("B");
    C = Labelled("C");
    tree.AddChild(nullptr, C);
    tree.AddChild(nullptr, B);
    tree.AddChild(nullptr, A);
    A1 = Labelled("A1");
    A2 = Labelled("A2");
    tree.AddChild(A, A2);
    tree.AddChild(A, A1);
    A2a = Labelled("A2a");
    tree.AddChild(A2, A2a);
    C1 = Labelled("C1");
    tree.AddChild(C, C1);
  }
  std::string Walk(CTreeNode* start, TreeTraversalMode mode, const std::string& stopAt = {}) {
    Recorder r;
    r.stopAt = stopAt;
    tree.DoTraversal(start, mode, &r);
    return r.log;
  }
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

// Counts destructions so that ownership can be observed.
class CountedObject : public C3DObject {
public:
  explicit CountedObject(int* deaths) : m_deaths(deaths) {}
  ~CountedObject() override { ++*m_deaths; }

private:
  int* m_deaths;
};
} // namespace

TEST(TreeTest, LinksDepthAndSuccessors) {
  Fixture f;
  EXPECT_EQ(CTree::GetDepth(f.A2a), 3u);

  // Pre-order successors and the stop bound.
  EXPECT_EQ(CTree::GetNextNode(f.A2a, f.A2a), f.B);
  EXPECT_EQ(CTree::GetNextNode(f.A2a, f.A2), nullptr);
  EXPECT_EQ(CTree::GetNextNode(f.A, f.A1), nullptr);

  EXPECT_EQ(f.tree.GetChildNbr(nullptr, 0), 7);
  // The unbounded walk from A runs on past A's subtree.
  EXPECT_EQ(f.tree.GetChildNbr(f.A, 0), 6);

  // Moving a node under its own descendant is refused; elsewhere it goes first.
  EXPECT_EQ(f.tree.MoveNode(f.A, f.A2a), nullptr);
  EXPECT_EQ(f.tree.MoveNode(f.C1, f.A), f.C1);
  EXPECT_EQ(f.tree.GetFirstNode(f.A), f.C1);
  EXPECT_EQ(f.tree.GetChildNbr(f.C, 1), 0);

  // Removing unlinks only; deleting takes the descendants along.
  f.tree.RemoveNode(f.A2);
  EXPECT_EQ(CTree::GetRight(f.A1), nullptr);
  EXPECT_EQ(CTree::GetChild(f.A2), f.A2a);
  f.tree.AddRight(f.A1, f.A2);
  f.A2->GetTreeCustomData(); // still usable
  f.tree.DeleteNode(f.B);
  EXPECT_EQ(CTree::GetRight(f.A), f.C);
  EXPECT_EQ(CTree::GetLeft(f.C), f.A);
}

TEST(TreeTest, TraversalModes) {
  Fixture f;
  EXPECT_EQ(f.Walk(nullptr, TREE_TRAVERSAL_SUBTREE),
            "A:3 A1:1 A2:3 A2a:1 A2:2 A:2 B:1 C:3 C1:1 C:2");
  // Start is neither entered nor left.
  EXPECT_EQ(f.Walk(f.A, TREE_TRAVERSAL_SUBTREE), "A1:1 A2:3 A2a:1 A2:2");
  EXPECT_EQ(f.Walk(nullptr, TREE_TRAVERSAL_CHILDREN), "A:3 B:1 C:3");
  // Circular: from just after start to the end, then round to start, visited last.
  EXPECT_EQ(f.Walk(f.A2, TREE_TRAVERSAL_CIRCULAR), "A2a:1 A2:2 A:2 B:1 C:3 C1:1 C:2 A:3 A1:1 A2:3");

  // A 0 from an enter call ends the walk.
  EXPECT_EQ(f.Walk(nullptr, TREE_TRAVERSAL_SUBTREE, "A2:3"), "A:3 A1:1 A2:3");
  // A 0 from a leave call re-enters that node and walks its children again.
  EXPECT_EQ(f.Walk(nullptr, TREE_TRAVERSAL_SUBTREE, "A2:2"),
            "A:3 A1:1 A2:3 A2a:1 A2:2 A2:3 A2a:1 A2:2 A:2 B:1 C:3 C1:1 C:2");
}

TEST(TreeTest, SceneNodesOwnershipSearchAndMatrices) {
  int deaths = 0;
  {
    auto* owner = new C3DSceneNode(new CountedObject(&deaths), 0);
    EXPECT_FALSE(owner->IsClone());
    std::unique_ptr<CTreeNode> clone(owner->Clone());
    auto* c = static_cast<C3DSceneNode*>(clone.get());
    EXPECT_TRUE(c->IsClone());
    EXPECT_EQ(c->GetBaseObject(), owner->GetBaseObject());
    EXPECT_TRUE(*c == *owner);
    clone.reset();
    EXPECT_EQ(deaths, 0); // a clone never deletes the object
    delete owner;
    EXPECT_EQ(deaths, 1);
  }

  // The copy of a clone holds a fresh object yet stays marked clone.
  C3DSceneNode owner(new C3DObject, 0);
  std::unique_ptr<CTreeNode> clone(owner.Clone());
  std::unique_ptr<C3DSceneNode> copy(static_cast<C3DSceneNode*>(clone->Copy()));
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(copy->IsClone());
  EXPECT_NE(copy->GetBaseObject(), owner.GetBaseObject());
  std::unique_ptr<C3DBaseObject> fresh(copy->GetBaseObject());
  EXPECT_FALSE(*copy == owner);

  // World matrices compose the ancestors' transforms (mode 1) whatever the mode.
  TestTree tree;
  auto* top = new C3DSceneNode(new C3DGroup, 0);
  auto* mid = new C3DSceneNode(new C3DGroup, 0);
  auto* leaf = new C3DSceneNode(new C3DObject, 0);
  tree.AddChild(nullptr, top);
  tree.AddChild(top, mid);
  tree.AddChild(mid, leaf);
  top->SetMatOffset(NODE_MATRIX_TRANSFORM, 10, 0, 0);
  top->SetMatrix(NODE_MATRIX_SECONDARY, C4x4Matrix(1));
  top->GetMatrix(NODE_MATRIX_SECONDARY).Scale(100, 100, 100); // must not be used
  mid->SetMatRepeat(NODE_MATRIX_TRANSFORM, 2, 2, 2);
  leaf->SetMatOffset(NODE_MATRIX_SECONDARY, 1, 0, 0);
  C4x4Matrix world;
  leaf->GetMatrix(NODE_MATRIX_SECONDARY, world, 0);
  // top * mid * leaf2: x = 10 + 2 * 1.
  EXPECT_FLOAT_EQ(world.m[0][3], 12.0f);
  EXPECT_FLOAT_EQ(world.m[0][0], 2.0f);
  leaf->GetMatrix(NODE_MATRIX_SECONDARY, world, 1);
  EXPECT_FLOAT_EQ(world.m[0][3], 1.0f);

  // NodeExist compares nodes by object, the root included.
  C3DSceneNode probe(leaf->GetBaseObject(), 0);
  Recorder callback;
  callback.SetFind(&probe);
  EXPECT_EQ(tree.NodeExist(TREE_TRAVERSAL_SUBTREE, nullptr, &callback), leaf);
  probe.SetObject(nullptr);
  C3DSceneNode other(new C3DObject, 0);
  callback.SetFind(&other);
  EXPECT_EQ(tree.NodeExist(TREE_TRAVERSAL_SUBTREE, nullptr, &callback), nullptr);

  // Deep copies and clones of a subtree land as first children of the target.
  CTreeNode* copied = tree.CopyNode(top, tree.GetRoot(), 1);
  ASSERT_NE(copied, nullptr);
  EXPECT_EQ(tree.GetFirstNode(nullptr), copied);
  EXPECT_EQ(tree.GetChildNbr(copied, 1), 1);
  EXPECT_NE(static_cast<C3DSceneNode*>(copied->GetChild()->GetChild())->GetBaseObject(),
            leaf->GetBaseObject());
  CTreeNode* cloned = tree.CloneNode(top, tree.GetRoot(), 0);
  EXPECT_EQ(tree.GetChildNbr(cloned, 1), 0);
  EXPECT_EQ(tree.CloneNode(top, nullptr, 0), nullptr);
}

TEST(TreeTest, ArchiveStructureAndHostileInput) {
  Fixture f;
  f.B->SetFlag(0x40, 1);
  const auto bytes = Store(f.tree);

  TestTree loaded;
  {
    CMemFile file(bytes);
    CArchive ar(&file, CArchive::load);
    loaded.Serialize(ar);
  }
  std::string order;
  for (CTreeNode* n = loaded.GetFirstNode(nullptr); n; n = CTree::GetNextNode(n, nullptr))
    order += Label(n) + (n->GetFlags() ? "*" : "") + " ";
  EXPECT_EQ(order, "A A1 A2 A2a B* C C1 ");
  EXPECT_EQ(CTree::GetParent(loaded.GetFirstNode(nullptr)), loaded.GetRoot());

  auto expectFailure = [](std::vector<std::uint8_t> data) {
    TestTree t;
    CMemFile file(data);
    CArchive ar(&file, CArchive::load);
    EXPECT_THROW(t.Serialize(ar), CArchiveException);
  };
  // Byte 2 is the tree's schema; 11, 15 and 19 hold the root marker, its
  // has-children word and the first node's marker.
  // Another schema is refused.
  auto badSchema = bytes;
  badSchema[2] = 1;
  expectFailure(badSchema);
  // A root marker inside a chain would make a cycle.
  auto nestedRoot = bytes;
  nestedRoot[19] = 4;
  expectFailure(nestedRoot);
  // An unknown marker and a truncated stream.
  auto badMarker = bytes;
  badMarker[15] = 9;
  expectFailure(badMarker);
  expectFailure(std::vector<std::uint8_t>(bytes.begin(), bytes.end() - 4));
}
