#include "meshcore/vrml_parser/qv_inventor_nodes.h"
#include "meshcore/vrml_parser/qv_state.h"

#include <algorithm>

namespace meshcore {

namespace {

constexpr QvEnumEntry kAxisEnums[] = {
    {"X", QvRotationXYZ::X}, {"Y", QvRotationXYZ::Y}, {"Z", QvRotationXYZ::Z}};
constexpr QvEnumEntry kOriginEnums[] = {
    {"FIRST", QvArray::FIRST}, {"CENTER", QvArray::CENTER}, {"LAST", QvArray::LAST}};
constexpr QvEnumEntry kTextureBindingEnums[] = {
    {"DEFAULT", QV_BINDING_PER_VERTEX_INDEXED},
    {"PER_VERTEX", QV_BINDING_PER_VERTEX},
    {"PER_VERTEX_INDEXED", QV_BINDING_PER_VERTEX_INDEXED},
};

// Copies past this many are not made: the visit budget of the walk would
// stop them anyway, and the loops below must not count to billions first.
constexpr std::int64_t kMaxCopies = 1 << 20;

} // namespace

QvFaceSet::QvFaceSet() : QvFaceSet(QV_NODE_TYPE::FaceSet, "FaceSet") {}

QvFaceSet::QvFaceSet(QV_NODE_TYPE type, const char* className) : QvNode(type, className) {
  numVertices.values = {-1};
  AddField("startIndex", startIndex);
  AddField("numVertices", numVertices);
  AddField("vertexProperty", vertexProperty);
}
void QvFaceSet::Traverse(QvState& state) {
  state.DoShape(*this, vertexProperty.value);
}

QvTriangleStripSet::QvTriangleStripSet()
    : QvFaceSet(QV_NODE_TYPE::TriangleStripSet, "TriangleStripSet") {}

QvIndexedTriangleStripSet::QvIndexedTriangleStripSet()
    : QvIndexedFaceSet(QV_NODE_TYPE::IndexedTriangleStripSet, "IndexedTriangleStripSet") {}

QvQuadMesh::QvQuadMesh() : QvNode(QV_NODE_TYPE::QuadMesh, "QuadMesh") {
  verticesPerColumn.value = 1;
  verticesPerRow.value = 1;
  AddField("startIndex", startIndex);
  AddField("verticesPerColumn", verticesPerColumn);
  AddField("verticesPerRow", verticesPerRow);
  AddField("vertexProperty", vertexProperty);
}
void QvQuadMesh::Traverse(QvState& state) {
  state.DoShape(*this, vertexProperty.value);
}

QvRotationXYZ::QvRotationXYZ() : QvNode(QV_NODE_TYPE::RotationXYZ, "RotationXYZ") {
  axis.names = kAxisEnums;
  axis.value = X;
  AddField("axis", axis);
  AddField("angle", angle);
}
void QvRotationXYZ::Traverse(QvState& state) {
  state.ApplyTransform(*this);
}

QvRotor::QvRotor() {
  speed.value = 1;
  on.value = true;
  AddField("speed", speed);
  AddField("on", on);
}

QvPendulum::QvPendulum() {
  speed.value = 1;
  on.value = true;
  AddField("rotation0", rotation0);
  AddField("rotation1", rotation1);
  AddField("speed", speed);
  AddField("on", on);
}

QvShuttle::QvShuttle() {
  speed.value = 1;
  on.value = true;
  AddField("translation0", translation0);
  AddField("translation1", translation1);
  AddField("speed", speed);
  AddField("on", on);
}

QvBaseColor::QvBaseColor() : QvNode(QV_NODE_TYPE::BaseColor, "BaseColor") {
  rgb.values = {{0.8f, 0.8f, 0.8f}};
  AddField("rgb", rgb);
}
void QvBaseColor::Traverse(QvState& state) {
  material_.diffuseColor.values = rgb.values;
  state.SetMaterial(&material_);
}

QvPackedColor::QvPackedColor() : QvNode(QV_NODE_TYPE::PackedColor, "PackedColor") {
  orderedRGBA.values = {std::int32_t(0xCCCCCCFFu)};
  AddField("orderedRGBA", orderedRGBA);
  AddField("rgba", orderedRGBA); // the name in early Inventor files
}
void QvPackedColor::Traverse(QvState& state) {
  state.SetPackedColor(&orderedRGBA);
}

QvTextureCoordinateBinding::QvTextureCoordinateBinding()
    : QvNode(QV_NODE_TYPE::TextureCoordinateBinding, "TextureCoordinateBinding") {
  value.names = kTextureBindingEnums;
  value.value = QV_BINDING_PER_VERTEX_INDEXED;
  AddField("value", value);
}
void QvTextureCoordinateBinding::Traverse(QvState& state) {
  state.SetTextureCoordinateBinding(this);
}

QvArray::QvArray() : QvGroup(QV_NODE_TYPE::Array, "Array") {
  origin.names = kOriginEnums;
  origin.value = FIRST;
  numElements1.value = numElements2.value = numElements3.value = 1;
  separation1.value[0] = 1;
  separation2.value[1] = 1;
  separation3.value[2] = 1;
  AddField("origin", origin);
  AddField("numElements1", numElements1);
  AddField("numElements2", numElements2);
  AddField("numElements3", numElements3);
  AddField("separation1", separation1);
  AddField("separation2", separation2);
  AddField("separation3", separation3);
}

void QvArray::Traverse(QvState& state) {
  // Every copy visits a child, so the walk's visit budget bounds the loops below.
  if (children.empty())
    return;
  const std::int64_t n[3] = {std::clamp<std::int64_t>(numElements1.value, 0, kMaxCopies),
                             std::clamp<std::int64_t>(numElements2.value, 0, kMaxCopies),
                             std::clamp<std::int64_t>(numElements3.value, 0, kMaxCopies)};
  const float* sep[3] = {separation1.value, separation2.value, separation3.value};
  // The first copy sits at the origin, or the array is centred on it, or ends there.
  double shift[3] = {0, 0, 0};
  for (int a = 0; a < 3; ++a) {
    const double steps = n[a] > 0 ? double(n[a] - 1) : 0.0;
    const double f = origin.value == CENTER ? steps / 2 : origin.value == LAST ? steps : 0.0;
    for (int c = 0; c < 3; ++c)
      shift[c] -= f * sep[a][c];
  }
  for (std::int64_t k = 0; k < n[2]; ++k)
    for (std::int64_t j = 0; j < n[1]; ++j)
      for (std::int64_t i = 0; i < n[0]; ++i) {
        if (state.IsStopped())
          return;
        C4x4Matrix m(1);
        for (int c = 0; c < 3; ++c)
          m.m[c][3] = float(shift[c] + double(i) * sep[0][c] + double(j) * sep[1][c] +
                            double(k) * sep[2][c]);
        const QvState::Elements saved = state.Save();
        state.ApplyMatrix(m);
        state.TraverseChildren(children);
        state.Restore(saved);
      }
}

QvMultipleCopy::QvMultipleCopy() : QvGroup(QV_NODE_TYPE::MultipleCopy, "MultipleCopy") {
  AddField("matrix", matrix);
}

void QvMultipleCopy::Traverse(QvState& state) {
  for (const auto& v : matrix.values) {
    if (state.IsStopped())
      return;
    // The file's matrix applies to row vectors: ours is its transpose.
    C4x4Matrix m(1);
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c)
        m.m[r][c] = v[std::size_t(c * 4 + r)];
    const QvState::Elements saved = state.Save();
    state.ApplyMatrix(m);
    state.TraverseChildren(children);
    state.Restore(saved);
  }
}

QvFile::QvFile() : QvGroup(QV_NODE_TYPE::File, "File") {
  AddField("name", name);
}

} // namespace meshcore
