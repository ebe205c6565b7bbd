#include "meshcore/vrml_parser/qv_graph.h"
#include "meshcore/vrml_parser/qv_nodes.h"

#include <string>

namespace meshcore {

namespace {

// Keeps the input pointing at the reader only while a graph is being read.
class ReaderScope {
public:
  ReaderScope(QvTextSource& in, QvReader* r) : in_(in), old_(in.GetReader()) { in.SetReader(r); }
  ~ReaderScope() { in_.SetReader(old_); }

private:
  QvTextSource& in_;
  QvReader* old_;
};

} // namespace

QvNode* QvGraph::Adopt(std::unique_ptr<QvNode> node) {
  nodes_.push_back(std::move(node));
  return nodes_.back().get();
}

std::unique_ptr<QvGraph> QvGraph::Read(QvTextSource& in) {
  auto graph = std::make_unique<QvGraph>();
  QvReader reader(in, *graph);
  ReaderScope scope(in, &reader);
  in.GetDict().Clear();

  std::vector<QvNode*> roots;
  for (;;) {
    QvNode* node = nullptr;
    const QvReader::Result r = reader.ReadNode(node);
    if (r == QvReader::kError) {
      roots.clear();
      break;
    }
    if (r == QvReader::kNone) {
      char c;
      if (in.Peek(c))
        in.PostError("Extra characters ('%c') found in input", c);
      break;
    }
    roots.push_back(node);
  }
  // The names point into this graph, which the caller may free.
  in.GetDict().Clear();
  if (roots.empty())
    return nullptr;
  if (roots.size() == 1) {
    graph->root_ = roots.front();
  } else {
    auto group = std::make_unique<QvGroup>();
    group->children = std::move(roots);
    graph->root_ = graph->Adopt(std::move(group));
  }
  return graph;
}

QvReader::Result QvReader::ReadNode(QvNode*& out) {
  if (depth_ >= kMaxDepth) {
    in_.PostError("Nodes nested deeper than %d levels", kMaxDepth);
    return kError;
  }
  ++depth_;
  const Result r = ReadNodeAt(out);
  --depth_;
  return r;
}

bool QvReader::IsValidDefName(std::string_view name) const {
  if (name.empty() || (name[0] >= '0' && name[0] <= '9'))
    return false;
  for (char c : name) {
    switch (c) {
    case '"':
    case '\'':
    case '\\':
    case '.':
      return false;
    case '+':
      // Inventor writes "+0", "+1", ... for shared nodes without a name.
      if (!in_.IsInventor())
        return false;
      break;
    default:
      break;
    }
  }
  return true;
}

QvReader::Result QvReader::ReadNodeAt(QvNode*& out) {
  char c;
  if (!in_.Peek(c) || !QvTextSource::IsWordChar(c))
    return kNone;
  const std::string_view word = in_.ReadWord();

  if (word == "USE") {
    if (in_.AtEnd()) {
      in_.PostError("Premature end of file after USE");
      return kError;
    }
    const std::string name(in_.ReadName());
    QvNode* node = in_.GetDict().Find(name);
    if (!node) {
      in_.PostError("Unknown reference \"%s\"", name.c_str());
      return kError;
    }
    out = node;
    return kNode;
  }

  if (word != "DEF")
    return ReadNodeBody(word, out);

  if (in_.AtEnd()) {
    in_.PostError("Premature end of file after DEF");
    return kError;
  }
  const std::string name(in_.ReadName());
  if (name.empty()) {
    in_.PostError("No name given after");
    return kError;
  }
  if (!IsValidDefName(name)) {
    in_.PostError("Invalid definition of %s", name.c_str());
    return kError;
  }
  if (in_.AtEnd()) {
    in_.PostError("Premature end of file after DEF");
    return kError;
  }
  const std::string_view className = in_.ReadWord();
  if (className.empty()) {
    in_.PostError("Invalid definition of %s", name.c_str());
    return kError;
  }
  QvNode* node = nullptr;
  const Result r = ReadNodeBody(className, node);
  if (r != kNode)
    return r == kNone ? kError : r;
  node->SetName(name);
  // Entered only now, so a node can never USE itself.
  in_.GetDict().Enter(name, node);
  out = node;
  return kNode;
}

QvReader::Result QvReader::ReadNodeBody(std::string_view className, QvNode*& out) {
  char c;
  if (!in_.Read(c)) {
    in_.PostError("Expected '%c'; got EOF", '{');
    return kError;
  }
  if (c != '{') {
    in_.PostError("Expected '%c'; got '%c'", '{', c);
    return kError;
  }
  // A VertexProperty holds five nodes of its own.
  if (graph_.GetNodeCount() + 6 * vertexProperties_ >= kMaxNodes) {
    in_.PostError("More than %zu nodes in file", kMaxNodes);
    return kError;
  }
  std::unique_ptr<QvNode> created = QvNode::Create(className);
  if (created && created->GetType() == QV_NODE_TYPE::VertexProperty)
    ++vertexProperties_;
  if (!created) {
    auto unknown = std::make_unique<QvUnknownNode>(className);
    const QvTextSource::Mark mark = in_.GetMark();
    if (in_.ReadWord() == "fields") {
      if (!ReadFieldDeclarations(unknown.get())) {
        in_.PostError("Bad field specifications for node");
        return kError;
      }
      unknown->SetDeclared();
      created = std::move(unknown);
    } else {
      // A type we cannot describe: note it and read on past its body.
      in_.Reset(mark);
      const std::string name(className);
      in_.PostError("Unknown class \"%s\"", name.c_str());
      if (!in_.SkipBody())
        return kError;
      out = graph_.Adopt(std::move(unknown));
      return kNode;
    }
  }
  QvNode* node = graph_.Adopt(std::move(created));
  if (!ReadFieldsAndChildren(*node))
    return kError;
  out = node;
  return kNode;
}

bool QvReader::ReadFieldDeclarations(QvUnknownNode* node) {
  char c;
  if (!in_.Read(c) || c != '[')
    return false;
  if (in_.Peek(c) && c == ']') {
    in_.Get(c);
    return true;
  }
  for (;;) {
    const std::string_view type = in_.ReadWord();
    const std::string_view name = in_.ReadWord();
    if (type.empty() || name.empty())
      return false;
    if (node && !node->AddDeclaredField(type, name))
      return false;
    if (!in_.Read(c))
      return false;
    if (c == ']')
      return true;
    if (c != ',')
      return false;
  }
}

bool QvReader::ReadFieldsAndChildren(QvNode& node) {
  const bool isUnknown = node.GetType() == QV_NODE_TYPE::Unknown;
  bool inChildren = false;
  for (;;) {
    char c;
    if (!in_.Peek(c)) {
      in_.PostError("Expected '%c'; got EOF", '}');
      return false;
    }
    if (c == '}') {
      in_.Get(c);
      return true;
    }
    if (!inChildren && QvTextSource::IsWordChar(c)) {
      const QvTextSource::Mark mark = in_.GetMark();
      const std::string_view word = in_.ReadWord();
      if (word == "fields" && !isUnknown) {
        // A declaration on a built-in node is redundant and ignored.
        if (!ReadFieldDeclarations(nullptr)) {
          in_.PostError("Bad field specifications for node");
          return false;
        }
        continue;
      }
      if (QvField* field = node.GetField(word)) {
        // Inventor marks ignored fields with '~', after the value or in its place.
        if (in_.Peek(c) && c == '~') {
          in_.Get(c);
          continue;
        }
        if (!field->Read(in_)) {
          const std::string name(word);
          in_.PostError("Couldn't read value for field \"%s\"", name.c_str());
          return false;
        }
        if (in_.Peek(c) && c == '~')
          in_.Get(c);
        continue;
      }
      // In a node with children, the word starts the first child only when it
      // is DEF or USE or a body follows it; anything else is a misspelt field.
      bool startsChild = false;
      if (node.CanHaveChildren()) {
        startsChild = word == "DEF" || word == "USE";
        if (!startsChild) {
          const QvTextSource::Mark afterWord = in_.GetMark();
          startsChild = in_.Peek(c) && c == '{';
          in_.Reset(afterWord);
        }
      }
      if (!startsChild) {
        const std::string name(word);
        in_.PostError("Unknown field \"%s\"", name.c_str());
        return false;
      }
      // Not a field: the children start here.
      in_.Reset(mark);
      inChildren = true;
    }
    if (!node.CanHaveChildren()) {
      in_.PostError("Expected '%c'; got '%c'", '}', c);
      return false;
    }
    QvNode* child = nullptr;
    const Result r = ReadNode(child);
    if (r == kError)
      return false;
    if (r == kNone) {
      in_.PostError("Expected '%c'; got '%c'", '}', c);
      return false;
    }
    static_cast<QvGroup&>(node).children.push_back(child);
  }
}

bool QvSFNode::ReadValue(QvTextSource& in) {
  QvReader* reader = in.GetReader();
  if (!reader || in.AtEnd())
    return false;
  const QvTextSource::Mark mark = in.GetMark();
  if (in.ReadWord() == "NULL") {
    value = nullptr;
    return true;
  }
  in.Reset(mark);
  QvNode* node = nullptr;
  if (reader->ReadNode(node) != QvReader::kNode)
    return false;
  value = node;
  return true;
}

bool QvMFNode::Read1Value(QvTextSource& in, int index) {
  QvSFNode one;
  if (!one.Read(in))
    return false;
  values[static_cast<std::size_t>(index)] = one.value;
  return true;
}

} // namespace meshcore
