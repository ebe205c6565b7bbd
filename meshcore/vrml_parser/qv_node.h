#pragma once
// Base of the scene-graph nodes: a type, an optional DEF name, a table of named fields
// and, for grouping nodes, the children. Nodes are owned by their QvGraph; a node
// that is USEd several times appears several times among the children of others.

#include "meshcore/vrml_parser/qv_field.h"
#include "meshcore/vrml_parser/qv_new.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace meshcore {

class QvState;

enum class QV_NODE_TYPE {
  Unknown,
  // grouping
  Group,
  Separator,
  Switch,
  TransformSeparator,
  LOD,
  WWWAnchor,
  Array,        // Inventor: translated copies of the children
  MultipleCopy, // Inventor: copies of the children under several matrices
  File,         // Inventor: the nodes of another file
  // properties
  Coordinate3,
  Normal,
  NormalBinding,
  TextureCoordinate2,
  Texture2,
  Texture2Transform,
  Material,
  MaterialBinding,
  ShapeHints,
  FontStyle,
  VertexProperty, // Inventor: per-shape coordinates, normals and texture coordinates
  BaseColor,      // Inventor: diffuse colours only
  PackedColor,    // Inventor: colours as 0xRRGGBBAA
  TextureCoordinateBinding,
  // transformations
  Transform,
  MatrixTransform,
  Rotation,
  Scale,
  Translation,
  RotationXYZ, // Inventor: a rotation about one axis
  // shapes
  AsciiText,
  Cone,
  Cube,
  Cylinder,
  IndexedFaceSet,
  IndexedLineSet,
  PointSet,
  FaceSet,                 // Inventor: faces of consecutive coordinates
  TriangleStripSet,        // Inventor
  IndexedTriangleStripSet, // Inventor
  QuadMesh,                // Inventor: a grid of quadrilaterals
  Sphere,
  // cameras and lights
  OrthographicCamera,
  PerspectiveCamera,
  DirectionalLight,
  PointLight,
  SpotLight,
  // others
  Info,
  WWWInline,
};

class QvNode : public QvNew {
public:
  struct FieldEntry {
    std::string_view name;
    QvField* field;
  };

  QvNode(QV_NODE_TYPE type, const char* className) : type_(type), className_(className) {}
  QvNode(const QvNode&) = delete;
  QvNode& operator=(const QvNode&) = delete;

  // A new node of a built-in class, or null when the class is not known.
  static std::unique_ptr<QvNode> Create(std::string_view className);

  QV_NODE_TYPE GetType() const { return type_; }
  virtual std::string_view GetClassName() const { return className_; }
  bool IsShape() const { return type_ >= QV_NODE_TYPE::AsciiText && type_ <= QV_NODE_TYPE::Sphere; }

  // The DEF name, empty when none was given.
  const std::string& GetName() const { return name_; }
  void SetName(std::string_view name) { name_ = name; }

  QvField* GetField(std::string_view name) const;
  const std::vector<FieldEntry>& GetFields() const { return fields_; }

  virtual bool CanHaveChildren() const { return false; }
  // Applies the node to the traversal state.
  virtual void Traverse(QvState& state);

protected:
  void AddField(std::string_view name, QvField& field) { fields_.push_back({name, &field}); }

private:
  QV_NODE_TYPE type_;
  const char* className_;
  std::string name_;
  std::vector<FieldEntry> fields_;
};

class QvGroup : public QvNode {
public:
  QvGroup() : QvNode(QV_NODE_TYPE::Group, "Group") {}
  std::vector<QvNode*> children;

  bool CanHaveChildren() const override { return true; }
  void Traverse(QvState& state) override;

protected:
  QvGroup(QV_NODE_TYPE type, const char* className) : QvNode(type, className) {}
};

// A field holding a node (Inventor's vertexProperty); "NULL" means none.
class QvSFNode : public QvSField {
public:
  QvNode* value = nullptr;
  const char* GetTypeName() const override { return "SFNode"; }

protected:
  bool ReadValue(QvTextSource& in) override;
};

} // namespace meshcore
