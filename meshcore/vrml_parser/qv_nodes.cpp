#include "meshcore/vrml_parser/qv_nodes.h"
#include "meshcore/vrml_parser/qv_inventor_nodes.h"
#include "meshcore/vrml_parser/qv_state.h"

#include <algorithm>

namespace meshcore {

namespace {

constexpr QvEnumEntry kCullEnums[] = {
    {"ON", QvSeparator::ON}, {"OFF", QvSeparator::OFF}, {"AUTO", QvSeparator::AUTO}};
constexpr QvEnumEntry kBindingEnums[] = {
    {"DEFAULT", QV_BINDING_DEFAULT},       {"OVERALL", QV_BINDING_OVERALL},
    {"PER_PART", QV_BINDING_PER_PART},     {"PER_PART_INDEXED", QV_BINDING_PER_PART_INDEXED},
    {"PER_FACE", QV_BINDING_PER_FACE},     {"PER_FACE_INDEXED", QV_BINDING_PER_FACE_INDEXED},
    {"PER_VERTEX", QV_BINDING_PER_VERTEX}, {"PER_VERTEX_INDEXED", QV_BINDING_PER_VERTEX_INDEXED},
    {"NONE", QV_BINDING_OVERALL}, // old Inventor name
};
constexpr QvEnumEntry kMapEnums[] = {{"NONE", QvWWWAnchor::NONE}, {"POINT", QvWWWAnchor::POINT}};
constexpr QvEnumEntry kWrapEnums[] = {{"REPEAT", QvTexture2::REPEAT}, {"CLAMP", QvTexture2::CLAMP}};
constexpr QvEnumEntry kModelEnums[] = {{"MODULATE", QvTexture2::MODULATE},
                                       {"DECAL", QvTexture2::DECAL},
                                       {"BLEND", QvTexture2::BLEND},
                                       {"REPLACE", QvTexture2::REPLACE}};
constexpr QvEnumEntry kVertexOrderingEnums[] = {
    {"UNKNOWN_ORDERING", QvShapeHints::UNKNOWN_ORDERING},
    {"CLOCKWISE", QvShapeHints::CLOCKWISE},
    {"COUNTERCLOCKWISE", QvShapeHints::COUNTERCLOCKWISE}};
constexpr QvEnumEntry kShapeTypeEnums[] = {{"UNKNOWN_SHAPE_TYPE", QvShapeHints::UNKNOWN_SHAPE_TYPE},
                                           {"SOLID", QvShapeHints::SOLID}};
constexpr QvEnumEntry kFaceTypeEnums[] = {{"UNKNOWN_FACE_TYPE", QvShapeHints::UNKNOWN_FACE_TYPE},
                                          {"CONVEX", QvShapeHints::CONVEX}};
constexpr QvEnumEntry kFamilyEnums[] = {{"SERIF", QvFontStyle::SERIF},
                                        {"SANS", QvFontStyle::SANS},
                                        {"TYPEWRITER", QvFontStyle::TYPEWRITER}};
constexpr QvEnumEntry kStyleBits[] = {
    {"NONE", QvFontStyle::NONE}, {"BOLD", QvFontStyle::BOLD}, {"ITALIC", QvFontStyle::ITALIC}};
constexpr QvEnumEntry kJustificationEnums[] = {
    {"LEFT", QvAsciiText::LEFT}, {"CENTER", QvAsciiText::CENTER}, {"RIGHT", QvAsciiText::RIGHT}};
constexpr QvEnumEntry kConePartBits[] = {
    {"SIDES", QvCone::SIDES}, {"BOTTOM", QvCone::BOTTOM}, {"ALL", QvCone::ALL}};
constexpr QvEnumEntry kCylinderPartBits[] = {{"SIDES", QvCylinder::SIDES},
                                             {"TOP", QvCylinder::TOP},
                                             {"BOTTOM", QvCylinder::BOTTOM},
                                             {"ALL", QvCylinder::ALL}};
constexpr QvEnumEntry kViewportMappingEnums[] = {{"CROP_VIEWPORT_FILL_FRAME", 0},
                                                 {"CROP_VIEWPORT_LINE_FRAME", 1},
                                                 {"CROP_VIEWPORT_NO_FRAME", 2},
                                                 {"ADJUST_CAMERA", 3},
                                                 {"LEAVE_ALONE", 4}};

void InitEnum(QvSFEnum& f, QvEnumTable names, int value) {
  f.names = names;
  f.value = value;
}

void InitBitMask(QvSFBitMask& f, QvEnumTable names, int value) {
  f.names = names;
  f.value = value;
}

void InitVec(float* v, std::initializer_list<float> values) {
  std::copy(values.begin(), values.end(), v);
}

using Factory = std::unique_ptr<QvNode> (*)();
template <class T> std::unique_ptr<QvNode> Make() {
  return std::make_unique<T>();
}

struct Registration {
  std::string_view name;
  Factory make;
};

// Sorted by name for the binary search in QvNode::Create.
constexpr Registration kRegistry[] = {
    {"Array", &Make<QvArray>},
    {"AsciiText", &Make<QvAsciiText>},
    {"BaseColor", &Make<QvBaseColor>},
    {"Cone", &Make<QvCone>},
    {"Coordinate3", &Make<QvCoordinate3>},
    {"Cube", &Make<QvCube>},
    {"Cylinder", &Make<QvCylinder>},
    {"DirectionalLight", &Make<QvDirectionalLight>},
    {"FaceSet", &Make<QvFaceSet>},
    {"File", &Make<QvFile>},
    {"FontStyle", &Make<QvFontStyle>},
    {"Group", &Make<QvGroup>},
    {"IndexedFaceSet", &Make<QvIndexedFaceSet>},
    {"IndexedLineSet", &Make<QvIndexedLineSet>},
    {"IndexedTriangleStripSet", &Make<QvIndexedTriangleStripSet>},
    {"Info", &Make<QvInfo>},
    {"LOD", &Make<QvLOD>},
    {"Material", &Make<QvMaterial>},
    {"MaterialBinding", &Make<QvMaterialBinding>},
    {"MatrixTransform", &Make<QvMatrixTransform>},
    {"MultipleCopy", &Make<QvMultipleCopy>},
    {"Normal", &Make<QvNormal>},
    {"NormalBinding", &Make<QvNormalBinding>},
    {"OrthographicCamera", &Make<QvOrthographicCamera>},
    {"PackedColor", &Make<QvPackedColor>},
    {"Pendulum", &Make<QvPendulum>},
    {"PerspectiveCamera", &Make<QvPerspectiveCamera>},
    {"PointLight", &Make<QvPointLight>},
    {"PointSet", &Make<QvPointSet>},
    {"QuadMesh", &Make<QvQuadMesh>},
    {"Rotation", &Make<QvRotation>},
    {"RotationXYZ", &Make<QvRotationXYZ>},
    {"Rotor", &Make<QvRotor>},
    {"Scale", &Make<QvScale>},
    {"Separator", &Make<QvSeparator>},
    {"ShapeHints", &Make<QvShapeHints>},
    {"Shuttle", &Make<QvShuttle>},
    {"Sphere", &Make<QvSphere>},
    {"SpotLight", &Make<QvSpotLight>},
    {"Switch", &Make<QvSwitch>},
    {"Texture2", &Make<QvTexture2>},
    {"Texture2Transform", &Make<QvTexture2Transform>},
    {"TextureCoordinate2", &Make<QvTextureCoordinate2>},
    {"TextureCoordinateBinding", &Make<QvTextureCoordinateBinding>},
    {"Transform", &Make<QvTransform>},
    {"TransformSeparator", &Make<QvTransformSeparator>},
    {"Translation", &Make<QvTranslation>},
    {"TriangleStripSet", &Make<QvTriangleStripSet>},
    {"VertexProperty", &Make<QvVertexProperty>},
    {"WWWAnchor", &Make<QvWWWAnchor>},
    {"WWWInline", &Make<QvWWWInline>},
};

} // namespace

std::unique_ptr<QvNode> QvNode::Create(std::string_view className) {
  auto it = std::lower_bound(std::begin(kRegistry), std::end(kRegistry), className,
                             [](const Registration& r, std::string_view n) { return r.name < n; });
  if (it == std::end(kRegistry) || it->name != className)
    return nullptr;
  return it->make();
}

QvField* QvNode::GetField(std::string_view name) const {
  for (const auto& e : fields_)
    if (e.name == name)
      return e.field;
  return nullptr;
}

void QvNode::Traverse(QvState&) {}

void QvGroup::Traverse(QvState& state) {
  state.TraverseChildren(children);
}

// Grouping nodes.

QvSeparator::QvSeparator() : QvGroup(QV_NODE_TYPE::Separator, "Separator") {
  InitEnum(renderCulling, kCullEnums, AUTO);
  InitEnum(renderCaching, kCullEnums, AUTO);
  InitEnum(boundingBoxCaching, kCullEnums, AUTO);
  InitEnum(pickCulling, kCullEnums, AUTO);
  AddField("renderCulling", renderCulling);
  AddField("renderCaching", renderCaching);
  AddField("boundingBoxCaching", boundingBoxCaching);
  AddField("pickCulling", pickCulling);
}

void QvSeparator::Traverse(QvState& state) {
  const QvState::Elements saved = state.Save();
  state.TraverseChildren(children);
  state.Restore(saved);
}

QvSwitch::QvSwitch() : QvGroup(QV_NODE_TYPE::Switch, "Switch") {
  whichChild.value = kNone;
  AddField("whichChild", whichChild);
}

void QvSwitch::Traverse(QvState& state) {
  int which = whichChild.value;
  if (which == kInherit)
    which = state.GetInheritedSwitch();
  state.SetInheritedSwitch(which);
  if (which == kAll) {
    state.TraverseChildren(children);
  } else if (which >= 0 && static_cast<std::size_t>(which) < children.size()) {
    state.TraverseNode(*children[static_cast<std::size_t>(which)]);
  }
}

QvTransformSeparator::QvTransformSeparator()
    : QvGroup(QV_NODE_TYPE::TransformSeparator, "TransformSeparator") {}

void QvTransformSeparator::Traverse(QvState& state) {
  const QvState::Elements saved = state.Save();
  state.TraverseChildren(children);
  state.RestoreTransform(saved);
}

QvLOD::QvLOD() : QvGroup(QV_NODE_TYPE::LOD, "LOD") {
  AddField("range", range);
  AddField("ranges", range); // the name in early drafts of the standard
  AddField("center", center);
}

void QvLOD::Traverse(QvState& state) {
  // Without a viewer the most detailed child stands for the object.
  if (!children.empty())
    state.TraverseNode(*children.front());
}

QvWWWAnchor::QvWWWAnchor() : QvGroup(QV_NODE_TYPE::WWWAnchor, "WWWAnchor") {
  InitEnum(map, kMapEnums, NONE);
  AddField("name", name);
  AddField("description", description);
  AddField("map", map);
}

void QvWWWAnchor::Traverse(QvState& state) {
  // An anchor isolates its children like a separator.
  const QvState::Elements saved = state.Save();
  state.TraverseChildren(children);
  state.Restore(saved);
}

QvUnknownNode::QvUnknownNode(std::string_view className)
    : QvGroup(QV_NODE_TYPE::Unknown, ""), className_(className) {}

bool QvUnknownNode::AddDeclaredField(std::string_view type, std::string_view name) {
  // Fields are looked up by a linear search, so their number is kept sensible.
  if (ownedFields_.size() >= kMaxDeclaredFields)
    return false;
  std::unique_ptr<QvField> f = QvCreateField(type);
  if (!f)
    return false;
  fieldNames_.push_back(std::make_unique<std::string>(name));
  AddField(*fieldNames_.back(), *f);
  ownedFields_.push_back(std::move(f));
  return true;
}

void QvUnknownNode::Traverse(QvState& state) {
  // Children of an extension node are kept from leaking state into their siblings.
  if (children.empty())
    return;
  const QvState::Elements saved = state.Save();
  state.TraverseChildren(children);
  state.Restore(saved);
}

// Properties.

QvCoordinate3::QvCoordinate3() : QvNode(QV_NODE_TYPE::Coordinate3, "Coordinate3") {
  point.values = {{0, 0, 0}};
  AddField("point", point);
}
void QvCoordinate3::Traverse(QvState& state) {
  state.SetCoordinate3(this);
}

QvNormal::QvNormal() : QvNode(QV_NODE_TYPE::Normal, "Normal") {
  AddField("vector", vector);
}
void QvNormal::Traverse(QvState& state) {
  state.SetNormal(this);
}

QvNormalBinding::QvNormalBinding() : QvNode(QV_NODE_TYPE::NormalBinding, "NormalBinding") {
  InitEnum(value, kBindingEnums, QV_BINDING_DEFAULT);
  AddField("value", value);
}
void QvNormalBinding::Traverse(QvState& state) {
  state.SetNormalBinding(this);
}

QvMaterialBinding::QvMaterialBinding() : QvNode(QV_NODE_TYPE::MaterialBinding, "MaterialBinding") {
  InitEnum(value, kBindingEnums, QV_BINDING_OVERALL);
  AddField("value", value);
}
void QvMaterialBinding::Traverse(QvState& state) {
  state.SetMaterialBinding(this);
}

QvTextureCoordinate2::QvTextureCoordinate2()
    : QvNode(QV_NODE_TYPE::TextureCoordinate2, "TextureCoordinate2") {
  point.values = {{0, 0}};
  AddField("point", point);
}
void QvTextureCoordinate2::Traverse(QvState& state) {
  state.SetTextureCoordinate2(this);
}

QvTexture2::QvTexture2() : QvNode(QV_NODE_TYPE::Texture2, "Texture2") {
  InitEnum(wrapS, kWrapEnums, REPEAT);
  InitEnum(wrapT, kWrapEnums, REPEAT);
  InitEnum(model, kModelEnums, MODULATE);
  AddField("filename", filename);
  AddField("image", image);
  AddField("wrapS", wrapS);
  AddField("wrapT", wrapT);
  AddField("model", model);
  AddField("blendColor", blendColor);
}
void QvTexture2::Traverse(QvState& state) {
  state.SetTexture2(this);
}

QvTexture2Transform::QvTexture2Transform()
    : QvNode(QV_NODE_TYPE::Texture2Transform, "Texture2Transform") {
  InitVec(scaleFactor.value, {1, 1});
  AddField("translation", translation);
  AddField("rotation", rotation);
  AddField("scaleFactor", scaleFactor);
  AddField("center", center);
}
void QvTexture2Transform::Traverse(QvState& state) {
  state.SetTexture2Transform(this);
}

QvMaterial::QvMaterial() : QvNode(QV_NODE_TYPE::Material, "Material") {
  ambientColor.values = {{0.2f, 0.2f, 0.2f}};
  diffuseColor.values = {{0.8f, 0.8f, 0.8f}};
  specularColor.values = {{0, 0, 0}};
  emissiveColor.values = {{0, 0, 0}};
  shininess.values = {0.2f};
  transparency.values = {0};
  AddField("ambientColor", ambientColor);
  AddField("diffuseColor", diffuseColor);
  AddField("specularColor", specularColor);
  AddField("emissiveColor", emissiveColor);
  AddField("shininess", shininess);
  AddField("transparency", transparency);
}
void QvMaterial::Traverse(QvState& state) {
  state.SetMaterial(this);
}

QvShapeHints::QvShapeHints() : QvNode(QV_NODE_TYPE::ShapeHints, "ShapeHints") {
  InitEnum(vertexOrdering, kVertexOrderingEnums, UNKNOWN_ORDERING);
  InitEnum(shapeType, kShapeTypeEnums, UNKNOWN_SHAPE_TYPE);
  InitEnum(faceType, kFaceTypeEnums, CONVEX);
  creaseAngle.value = 0.5f;
  AddField("vertexOrdering", vertexOrdering);
  AddField("shapeType", shapeType);
  AddField("faceType", faceType);
  AddField("creaseAngle", creaseAngle);
}
void QvShapeHints::Traverse(QvState& state) {
  state.SetShapeHints(this);
}

QvFontStyle::QvFontStyle() : QvNode(QV_NODE_TYPE::FontStyle, "FontStyle") {
  size.value = 10;
  InitEnum(family, kFamilyEnums, SERIF);
  InitBitMask(style, kStyleBits, NONE);
  AddField("size", size);
  AddField("family", family);
  AddField("style", style);
  AddField("name", name);
}

QvVertexProperty::QvVertexProperty() : QvNode(QV_NODE_TYPE::VertexProperty, "VertexProperty") {
  vertex.point.values.clear();
  texCoord.point.values.clear();
  materialBinding.value.value = QV_BINDING_OVERALL;
  normalBinding.value.value = QV_BINDING_PER_VERTEX_INDEXED;
  AddField("vertex", vertex.point);
  AddField("normal", normal.vector);
  AddField("texCoord", texCoord.point);
  AddField("orderedRGBA", orderedRGBA);
  AddField("materialBinding", materialBinding.value);
  AddField("normalBinding", normalBinding.value);
}
void QvVertexProperty::Traverse(QvState& state) {
  state.ApplyVertexProperty(*this);
}

// Transformations.

QvTransform::QvTransform() : QvNode(QV_NODE_TYPE::Transform, "Transform") {
  InitVec(scaleFactor.value, {1, 1, 1});
  AddField("translation", translation);
  AddField("rotation", rotation);
  AddField("scaleFactor", scaleFactor);
  AddField("scaleOrientation", scaleOrientation);
  AddField("center", center);
}
void QvTransform::Traverse(QvState& state) {
  state.ApplyTransform(*this);
}

QvMatrixTransform::QvMatrixTransform() : QvNode(QV_NODE_TYPE::MatrixTransform, "MatrixTransform") {
  AddField("matrix", matrix);
}
void QvMatrixTransform::Traverse(QvState& state) {
  state.ApplyTransform(*this);
}

QvRotation::QvRotation() : QvNode(QV_NODE_TYPE::Rotation, "Rotation") {
  AddField("rotation", rotation);
}
void QvRotation::Traverse(QvState& state) {
  state.ApplyTransform(*this);
}

QvScale::QvScale() : QvNode(QV_NODE_TYPE::Scale, "Scale") {
  InitVec(scaleFactor.value, {1, 1, 1});
  AddField("scaleFactor", scaleFactor);
}
void QvScale::Traverse(QvState& state) {
  state.ApplyTransform(*this);
}

QvTranslation::QvTranslation() : QvNode(QV_NODE_TYPE::Translation, "Translation") {
  AddField("translation", translation);
}
void QvTranslation::Traverse(QvState& state) {
  state.ApplyTransform(*this);
}

// Shapes.

QvAsciiText::QvAsciiText() : QvNode(QV_NODE_TYPE::AsciiText, "AsciiText") {
  string.values = {""};
  spacing.value = 1;
  InitEnum(justification, kJustificationEnums, LEFT);
  width.values = {0};
  AddField("string", string);
  AddField("spacing", spacing);
  AddField("justification", justification);
  AddField("width", width);
}
void QvAsciiText::Traverse(QvState& state) {
  state.DoShape(*this);
}

QvCone::QvCone() : QvNode(QV_NODE_TYPE::Cone, "Cone") {
  InitBitMask(parts, kConePartBits, ALL);
  bottomRadius.value = 1;
  height.value = 2;
  AddField("parts", parts);
  AddField("bottomRadius", bottomRadius);
  AddField("height", height);
}
void QvCone::Traverse(QvState& state) {
  state.DoShape(*this);
}

QvCube::QvCube() : QvNode(QV_NODE_TYPE::Cube, "Cube") {
  width.value = height.value = depth.value = 2;
  AddField("width", width);
  AddField("height", height);
  AddField("depth", depth);
}
void QvCube::Traverse(QvState& state) {
  state.DoShape(*this);
}

QvCylinder::QvCylinder() : QvNode(QV_NODE_TYPE::Cylinder, "Cylinder") {
  InitBitMask(parts, kCylinderPartBits, ALL);
  radius.value = 1;
  height.value = 2;
  AddField("parts", parts);
  AddField("radius", radius);
  AddField("height", height);
}
void QvCylinder::Traverse(QvState& state) {
  state.DoShape(*this);
}

QvIndexedFaceSet::QvIndexedFaceSet()
    : QvIndexedFaceSet(QV_NODE_TYPE::IndexedFaceSet, "IndexedFaceSet") {}

QvIndexedFaceSet::QvIndexedFaceSet(QV_NODE_TYPE type, const char* className)
    : QvNode(type, className) {
  coordIndex.values = {0};
  materialIndex.values = {-1};
  normalIndex.values = {-1};
  textureCoordIndex.values = {-1};
  AddField("coordIndex", coordIndex);
  AddField("materialIndex", materialIndex);
  AddField("normalIndex", normalIndex);
  AddField("textureCoordIndex", textureCoordIndex);
  AddField("vertexProperty", vertexProperty);
}
void QvIndexedFaceSet::Traverse(QvState& state) {
  state.DoShape(*this, vertexProperty.value);
}

QvIndexedLineSet::QvIndexedLineSet()
    : QvIndexedFaceSet(QV_NODE_TYPE::IndexedLineSet, "IndexedLineSet") {}

QvPointSet::QvPointSet() : QvNode(QV_NODE_TYPE::PointSet, "PointSet") {
  numPoints.value = -1;
  AddField("startIndex", startIndex);
  AddField("numPoints", numPoints);
  AddField("vertexProperty", vertexProperty);
}
void QvPointSet::Traverse(QvState& state) {
  state.DoShape(*this, vertexProperty.value);
}

QvSphere::QvSphere() : QvNode(QV_NODE_TYPE::Sphere, "Sphere") {
  radius.value = 1;
  AddField("radius", radius);
}
void QvSphere::Traverse(QvState& state) {
  state.DoShape(*this);
}

// Cameras and lights.

QvOrthographicCamera::QvOrthographicCamera()
    : QvNode(QV_NODE_TYPE::OrthographicCamera, "OrthographicCamera") {
  InitVec(position.value, {0, 0, 1});
  focalDistance.value = 5;
  height.value = 2;
  InitEnum(viewportMapping, kViewportMappingEnums, 3);
  aspectRatio.value = 1;
  nearDistance.value = 1;
  farDistance.value = 10;
  AddField("position", position);
  AddField("orientation", orientation);
  AddField("focalDistance", focalDistance);
  AddField("height", height);
  AddField("viewportMapping", viewportMapping);
  AddField("aspectRatio", aspectRatio);
  AddField("nearDistance", nearDistance);
  AddField("farDistance", farDistance);
}

QvPerspectiveCamera::QvPerspectiveCamera()
    : QvNode(QV_NODE_TYPE::PerspectiveCamera, "PerspectiveCamera") {
  InitVec(position.value, {0, 0, 1});
  focalDistance.value = 5;
  heightAngle.value = 0.785398f;
  InitEnum(viewportMapping, kViewportMappingEnums, 3);
  aspectRatio.value = 1;
  nearDistance.value = 1;
  farDistance.value = 10;
  AddField("position", position);
  AddField("orientation", orientation);
  AddField("focalDistance", focalDistance);
  AddField("heightAngle", heightAngle);
  AddField("viewportMapping", viewportMapping);
  AddField("aspectRatio", aspectRatio);
  AddField("nearDistance", nearDistance);
  AddField("farDistance", farDistance);
}

QvDirectionalLight::QvDirectionalLight()
    : QvNode(QV_NODE_TYPE::DirectionalLight, "DirectionalLight") {
  on.value = true;
  intensity.value = 1;
  InitVec(color.value, {1, 1, 1});
  InitVec(direction.value, {0, 0, -1});
  AddField("on", on);
  AddField("intensity", intensity);
  AddField("color", color);
  AddField("direction", direction);
}

QvPointLight::QvPointLight() : QvNode(QV_NODE_TYPE::PointLight, "PointLight") {
  on.value = true;
  intensity.value = 1;
  InitVec(color.value, {1, 1, 1});
  InitVec(location.value, {0, 0, 1});
  AddField("on", on);
  AddField("intensity", intensity);
  AddField("color", color);
  AddField("location", location);
}

QvSpotLight::QvSpotLight() : QvNode(QV_NODE_TYPE::SpotLight, "SpotLight") {
  on.value = true;
  intensity.value = 1;
  InitVec(color.value, {1, 1, 1});
  InitVec(location.value, {0, 0, 1});
  InitVec(direction.value, {0, 0, -1});
  dropOffRate.value = 0;
  cutOffAngle.value = 0.785398f;
  AddField("on", on);
  AddField("intensity", intensity);
  AddField("color", color);
  AddField("location", location);
  AddField("direction", direction);
  AddField("dropOffRate", dropOffRate);
  AddField("cutOffAngle", cutOffAngle);
}

// Others.

QvInfo::QvInfo() : QvNode(QV_NODE_TYPE::Info, "Info") {
  string.value = "<Undefined info>";
  AddField("string", string);
}

QvWWWInline::QvWWWInline() : QvNode(QV_NODE_TYPE::WWWInline, "WWWInline") {
  AddField("name", name);
  AddField("bboxSize", bboxSize);
  AddField("bboxCenter", bboxCenter);
}

} // namespace meshcore
