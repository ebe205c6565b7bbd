#pragma once
// The node classes of the VRML 1.0 standard, with the fields Inventor 2.x ascii files
// add to them, and the Inventor VertexProperty node. Field members carry the names
// used in files; defaults are the standard's.

#include "meshcore/vrml_parser/qv_mfields.h"
#include "meshcore/vrml_parser/qv_node.h"
#include "meshcore/vrml_parser/qv_sfields.h"

#include <string>

namespace meshcore {

// Values of the material and normal binding enumerations.
enum QV_BINDING {
  QV_BINDING_DEFAULT,
  QV_BINDING_OVERALL,
  QV_BINDING_PER_PART,
  QV_BINDING_PER_PART_INDEXED,
  QV_BINDING_PER_FACE,
  QV_BINDING_PER_FACE_INDEXED,
  QV_BINDING_PER_VERTEX,
  QV_BINDING_PER_VERTEX_INDEXED,
};

// Grouping nodes.

class QvSeparator : public QvGroup {
public:
  enum CullEnum { ON, OFF, AUTO };
  QvSeparator();
  QvSFEnum renderCulling;
  // Inventor
  QvSFEnum renderCaching, boundingBoxCaching, pickCulling;
  void Traverse(QvState& state) override;
};

class QvSwitch : public QvGroup {
public:
  static constexpr int kNone = -1;
  static constexpr int kInherit = -2; // Inventor: the choice of the enclosing switch
  static constexpr int kAll = -3;
  QvSwitch();
  QvSFLong whichChild;
  void Traverse(QvState& state) override;
};

class QvTransformSeparator : public QvGroup {
public:
  QvTransformSeparator();
  void Traverse(QvState& state) override;
};

class QvLOD : public QvGroup {
public:
  QvLOD();
  QvMFFloat range;
  QvSFVec3f center;
  void Traverse(QvState& state) override;
};

class QvWWWAnchor : public QvGroup {
public:
  enum MapEnum { NONE, POINT };
  QvWWWAnchor();
  QvSFString name;
  QvSFString description;
  QvSFEnum map;
  void Traverse(QvState& state) override;
};

// A node type the parser does not know. With a "fields" declaration its fields are
// read; without one its body was skipped and it holds nothing.
class QvUnknownNode : public QvGroup {
public:
  static constexpr std::size_t kMaxDeclaredFields = 256;
  explicit QvUnknownNode(std::string_view className);
  std::string_view GetClassName() const override { return className_; }
  // Adds a declared field; false when the type is unknown.
  bool AddDeclaredField(std::string_view type, std::string_view name);
  bool HasDeclaration() const { return declared_; }
  void SetDeclared() { declared_ = true; }
  void Traverse(QvState& state) override;

private:
  std::string className_;
  std::vector<std::unique_ptr<std::string>> fieldNames_; // stable addresses for the table
  std::vector<std::unique_ptr<QvField>> ownedFields_;
  bool declared_ = false;
};

// Properties.

class QvCoordinate3 : public QvNode {
public:
  QvCoordinate3();
  QvMFVec3f point;
  void Traverse(QvState& state) override;
};

class QvNormal : public QvNode {
public:
  QvNormal();
  QvMFVec3f vector;
  void Traverse(QvState& state) override;
};

class QvNormalBinding : public QvNode {
public:
  QvNormalBinding();
  QvSFEnum value;
  void Traverse(QvState& state) override;
};

class QvMaterialBinding : public QvNode {
public:
  QvMaterialBinding();
  QvSFEnum value;
  void Traverse(QvState& state) override;
};

class QvTextureCoordinate2 : public QvNode {
public:
  QvTextureCoordinate2();
  QvMFVec2f point;
  void Traverse(QvState& state) override;
};

class QvTexture2 : public QvNode {
public:
  enum WrapEnum { REPEAT, CLAMP };
  enum ModelEnum { MODULATE, DECAL, BLEND, REPLACE };
  QvTexture2();
  QvSFString filename;
  QvSFImage image;
  QvSFEnum wrapS, wrapT;
  // Inventor
  QvSFEnum model;
  QvSFColor blendColor;
  void Traverse(QvState& state) override;
};

class QvTexture2Transform : public QvNode {
public:
  QvTexture2Transform();
  QvSFVec2f translation;
  QvSFFloat rotation;
  QvSFVec2f scaleFactor;
  QvSFVec2f center;
  void Traverse(QvState& state) override;
};

class QvMaterial : public QvNode {
public:
  QvMaterial();
  QvMFColor ambientColor, diffuseColor, specularColor, emissiveColor;
  QvMFFloat shininess, transparency;
  void Traverse(QvState& state) override;
};

class QvShapeHints : public QvNode {
public:
  enum VertexOrderingEnum { UNKNOWN_ORDERING, CLOCKWISE, COUNTERCLOCKWISE };
  enum ShapeTypeEnum { UNKNOWN_SHAPE_TYPE, SOLID };
  enum FaceTypeEnum { UNKNOWN_FACE_TYPE, CONVEX };
  QvShapeHints();
  QvSFEnum vertexOrdering, shapeType, faceType;
  QvSFFloat creaseAngle;
  void Traverse(QvState& state) override;
};

class QvFontStyle : public QvNode {
public:
  enum FamilyEnum { SERIF, SANS, TYPEWRITER };
  enum StyleBits { NONE = 0, BOLD = 1, ITALIC = 2 };
  QvFontStyle();
  QvSFFloat size;
  QvSFEnum family;
  QvSFBitMask style;
  QvSFString name; // Inventor
};

// Inventor: data that a shape carries itself. Empty lists leave the state's own
// elements in force.
class QvVertexProperty : public QvNode {
public:
  QvVertexProperty();
  QvCoordinate3 vertex;          // field "vertex"
  QvNormal normal;               // field "normal"
  QvTextureCoordinate2 texCoord; // field "texCoord"
  QvMFLong orderedRGBA;          // 0xRRGGBBAA per value
  QvMaterialBinding materialBinding;
  QvNormalBinding normalBinding;
  void Traverse(QvState& state) override;
};

// Transformations.

class QvTransform : public QvNode {
public:
  QvTransform();
  QvSFVec3f translation;
  QvSFRotation rotation;
  QvSFVec3f scaleFactor;
  QvSFRotation scaleOrientation;
  QvSFVec3f center;
  void Traverse(QvState& state) override;
};

class QvMatrixTransform : public QvNode {
public:
  QvMatrixTransform();
  QvSFMatrix matrix;
  void Traverse(QvState& state) override;
};

class QvRotation : public QvNode {
public:
  QvRotation();
  QvSFRotation rotation;
  void Traverse(QvState& state) override;
};

class QvScale : public QvNode {
public:
  QvScale();
  QvSFVec3f scaleFactor;
  void Traverse(QvState& state) override;
};

class QvTranslation : public QvNode {
public:
  QvTranslation();
  QvSFVec3f translation;
  void Traverse(QvState& state) override;
};

// Shapes.

class QvAsciiText : public QvNode {
public:
  enum JustificationEnum { LEFT, CENTER, RIGHT };
  QvAsciiText();
  QvMFString string;
  QvSFFloat spacing;
  QvSFEnum justification;
  QvMFFloat width;
  void Traverse(QvState& state) override;
};

class QvCone : public QvNode {
public:
  enum PartBits { SIDES = 1, BOTTOM = 2, ALL = 3 };
  QvCone();
  QvSFBitMask parts;
  QvSFFloat bottomRadius;
  QvSFFloat height;
  void Traverse(QvState& state) override;
};

class QvCube : public QvNode {
public:
  QvCube();
  QvSFFloat width, height, depth;
  void Traverse(QvState& state) override;
};

class QvCylinder : public QvNode {
public:
  enum PartBits { SIDES = 1, TOP = 2, BOTTOM = 4, ALL = 7 };
  QvCylinder();
  QvSFBitMask parts;
  QvSFFloat radius;
  QvSFFloat height;
  void Traverse(QvState& state) override;
};

class QvIndexedFaceSet : public QvNode {
public:
  QvIndexedFaceSet();
  QvMFLong coordIndex, materialIndex, normalIndex, textureCoordIndex;
  QvSFNode vertexProperty; // Inventor
  void Traverse(QvState& state) override;

protected:
  QvIndexedFaceSet(QV_NODE_TYPE type, const char* className);
};

class QvIndexedLineSet : public QvIndexedFaceSet {
public:
  QvIndexedLineSet();
};

class QvPointSet : public QvNode {
public:
  QvPointSet();
  QvSFLong startIndex, numPoints;
  QvSFNode vertexProperty; // Inventor
  void Traverse(QvState& state) override;
};

class QvSphere : public QvNode {
public:
  QvSphere();
  QvSFFloat radius;
  void Traverse(QvState& state) override;
};

// Cameras and lights (read and kept; they do not change the traversal state).

class QvOrthographicCamera : public QvNode {
public:
  QvOrthographicCamera();
  QvSFVec3f position;
  QvSFRotation orientation;
  QvSFFloat focalDistance, height;
  // Inventor
  QvSFEnum viewportMapping;
  QvSFFloat aspectRatio, nearDistance, farDistance;
};

class QvPerspectiveCamera : public QvNode {
public:
  QvPerspectiveCamera();
  QvSFVec3f position;
  QvSFRotation orientation;
  QvSFFloat focalDistance, heightAngle;
  // Inventor
  QvSFEnum viewportMapping;
  QvSFFloat aspectRatio, nearDistance, farDistance;
};

class QvDirectionalLight : public QvNode {
public:
  QvDirectionalLight();
  QvSFBool on;
  QvSFFloat intensity;
  QvSFColor color;
  QvSFVec3f direction;
};

class QvPointLight : public QvNode {
public:
  QvPointLight();
  QvSFBool on;
  QvSFFloat intensity;
  QvSFColor color;
  QvSFVec3f location;
};

class QvSpotLight : public QvNode {
public:
  QvSpotLight();
  QvSFBool on;
  QvSFFloat intensity;
  QvSFColor color;
  QvSFVec3f location, direction;
  QvSFFloat dropOffRate, cutOffAngle;
};

// Others.

class QvInfo : public QvNode {
public:
  QvInfo();
  QvSFString string;
};

// A reference to another file; the parser does not fetch it.
class QvWWWInline : public QvNode {
public:
  QvWWWInline();
  QvSFString name;
  QvSFVec3f bboxSize, bboxCenter;
};

} // namespace meshcore
