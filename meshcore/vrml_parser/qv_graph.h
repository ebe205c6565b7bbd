#pragma once
// A scene graph read from a VRML 1.0 (or Inventor 2.x ascii) file. The graph owns
// all its nodes; the root is the file's node, or a Group holding the file's nodes
// when it has several.

#include "meshcore/vrml_parser/qv_node.h"
#include "meshcore/vrml_parser/qv_text_source.h"

#include <memory>
#include <vector>

namespace meshcore {

class QvGraph {
public:
  // Reads the whole input. Null when nothing could be read; errors are posted to the
  // input's sink. Unknown node types without a field declaration are skipped.
  static std::unique_ptr<QvGraph> Read(QvTextSource& in);

  QvNode* GetRoot() const { return root_; }
  std::size_t GetNodeCount() const { return nodes_.size(); }
  QvNode* Adopt(std::unique_ptr<QvNode> node);

private:
  std::vector<std::unique_ptr<QvNode>> nodes_;
  QvNode* root_ = nullptr;
};

// Reads nodes from an input into a graph, with a bound on nesting.
class QvUnknownNode;

class QvReader {
public:
  static constexpr int kMaxDepth = 1000;
  // A node costs some hundred bytes for a few bytes of text: the count is bounded so
  // that memory stays bounded too.
  static constexpr std::size_t kMaxNodes = 1u << 20;
  enum Result { kNode, kNone, kError };

  QvReader(QvTextSource& in, QvGraph& graph) : in_(in), graph_(graph) {}

  // kNone at the end of the input or before a character that cannot start a node.
  Result ReadNode(QvNode*& out);

private:
  Result ReadNodeAt(QvNode*& out);
  Result ReadNodeBody(std::string_view className, QvNode*& out);
  bool ReadFieldsAndChildren(QvNode& node);
  bool ReadFieldDeclarations(QvUnknownNode* node);
  bool IsValidDefName(std::string_view name) const;

  QvTextSource& in_;
  QvGraph& graph_;
  int depth_ = 0;
  std::size_t vertexProperties_ = 0;
};

} // namespace meshcore
