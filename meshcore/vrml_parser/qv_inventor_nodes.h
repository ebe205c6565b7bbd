#pragma once
// Inventor 2.x nodes that sample files use beyond VRML 1.0: more shapes made of
// coordinates, colour properties, a single-axis rotation, groups that copy
// their children, and the File node that pulls in another file.

#include "meshcore/vrml_parser/qv_nodes.h"

#include <string>

namespace meshcore {

// Faces of consecutive coordinates: numVertices[i] corners each, from startIndex.
class QvFaceSet : public QvNode {
public:
  QvFaceSet();
  QvSFLong startIndex;
  QvMFLong numVertices; // -1: all remaining coordinates
  QvSFNode vertexProperty;
  void Traverse(QvState& state) override;

protected:
  QvFaceSet(QV_NODE_TYPE type, const char* className);
};

// Strips of numVertices[i] consecutive coordinates, each a run of triangles.
class QvTriangleStripSet : public QvFaceSet {
public:
  QvTriangleStripSet();
};

// Strips of coordinate indices separated by -1.
class QvIndexedTriangleStripSet : public QvIndexedFaceSet {
public:
  QvIndexedTriangleStripSet();
};

// verticesPerColumn rows of verticesPerRow consecutive coordinates.
class QvQuadMesh : public QvNode {
public:
  QvQuadMesh();
  QvSFLong startIndex, verticesPerColumn, verticesPerRow;
  QvSFNode vertexProperty;
  void Traverse(QvState& state) override;
};

class QvRotationXYZ : public QvNode {
public:
  enum AxisEnum { X, Y, Z };
  QvRotationXYZ();
  QvSFEnum axis;
  QvSFFloat angle;
  void Traverse(QvState& state) override;
};

// Animated transformations, read at their rest position.
class QvRotor : public QvRotation {
public:
  QvRotor();
  std::string_view GetClassName() const override { return "Rotor"; }
  QvSFFloat speed;
  QvSFBool on;
};

class QvPendulum : public QvRotation {
public:
  QvPendulum();
  std::string_view GetClassName() const override { return "Pendulum"; }
  QvSFRotation rotation0, rotation1;
  QvSFFloat speed;
  QvSFBool on;
};

class QvShuttle : public QvTranslation {
public:
  QvShuttle();
  std::string_view GetClassName() const override { return "Shuttle"; }
  QvSFVec3f translation0, translation1;
  QvSFFloat speed;
  QvSFBool on;
};

// Replaces the diffuse colours; the other material values become the defaults.
class QvBaseColor : public QvNode {
public:
  QvBaseColor();
  QvMFColor rgb;
  void Traverse(QvState& state) override;

private:
  QvMaterial material_;
};

class QvPackedColor : public QvNode {
public:
  QvPackedColor();
  QvMFLong orderedRGBA; // 0xRRGGBBAA per value
  void Traverse(QvState& state) override;
};

class QvTextureCoordinateBinding : public QvNode {
public:
  QvTextureCoordinateBinding();
  QvSFEnum value; // QV_BINDING_PER_VERTEX or QV_BINDING_PER_VERTEX_INDEXED
  void Traverse(QvState& state) override;
};

class QvArray : public QvGroup {
public:
  enum OriginEnum { FIRST, CENTER, LAST };
  QvArray();
  QvSFEnum origin;
  QvSFLong numElements1, numElements2, numElements3;
  QvSFVec3f separation1, separation2, separation3;
  void Traverse(QvState& state) override;
};

class QvMultipleCopy : public QvGroup {
public:
  QvMultipleCopy();
  QvMFMatrix matrix;
  void Traverse(QvState& state) override;
};

// The named file's nodes become the children once a reader has loaded them;
// the parser itself never opens the file.
class QvFile : public QvGroup {
public:
  QvFile();
  QvSFString name;
  // The file's body holds only its name, never children.
  bool CanHaveChildren() const override { return false; }
};

} // namespace meshcore
