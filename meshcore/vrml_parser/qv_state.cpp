#include "meshcore/vrml_parser/qv_state.h"
#include "meshcore/vrml_parser/qv_inventor_nodes.h"
#include "meshcore/vrml_parser/qv_nodes.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>

namespace meshcore {

namespace {

C4x4Matrix Translation(float x, float y, float z) {
  C4x4Matrix m(1);
  m.m[0][3] = x;
  m.m[1][3] = y;
  m.m[2][3] = z;
  return m;
}

C4x4Matrix Scaling(const float* s) {
  C4x4Matrix m(1);
  m.m[0][0] = s[0];
  m.m[1][1] = s[1];
  m.m[2][2] = s[2];
  return m;
}

// Right-handed rotation for column vectors; a zero axis gives the identity.
C4x4Matrix Rotation(const float* axis, float angle) {
  C4x4Matrix m(1);
  const double len =
      std::sqrt(double(axis[0]) * axis[0] + double(axis[1]) * axis[1] + double(axis[2]) * axis[2]);
  if (!(len > 0) || !std::isfinite(len))
    return m;
  const double x = axis[0] / len, y = axis[1] / len, z = axis[2] / len;
  const double c = std::cos(angle), s = std::sin(angle), t = 1 - c;
  m.m[0][0] = float(t * x * x + c);
  m.m[0][1] = float(t * x * y - s * z);
  m.m[0][2] = float(t * x * z + s * y);
  m.m[1][0] = float(t * x * y + s * z);
  m.m[1][1] = float(t * y * y + c);
  m.m[1][2] = float(t * y * z - s * x);
  m.m[2][0] = float(t * x * z - s * y);
  m.m[2][1] = float(t * y * z + s * x);
  m.m[2][2] = float(t * z * z + c);
  return m;
}

C4x4Matrix Rotation(const QvSFRotation& r) {
  return Rotation(r.axis, r.angle);
}

C4x4Matrix TransformMatrix(const QvTransform& t) {
  // translation * center * rotation * scaleOrientation * scale * -scaleOrientation * -center
  const float* c = t.center.value;
  const float* tr = t.translation.value;
  C4x4Matrix so = Rotation(t.scaleOrientation);
  C4x4Matrix soInv = so;
  soInv.Transpose();
  return Translation(tr[0] + c[0], tr[1] + c[1], tr[2] + c[2]) * Rotation(t.rotation) * so *
         Scaling(t.scaleFactor.value) * soInv * Translation(-c[0], -c[1], -c[2]);
}

} // namespace

QvState::QvState() : sink_(&QvTextSource::WriteToStandardError) {}

void QvState::SetCallback(QV_NODE_TYPE type, ShapeCallback cb) {
  callbacks_[static_cast<std::size_t>(type)] = std::move(cb);
}

void QvState::SetErrorSink(QvErrorSink sink) {
  sink_ = sink ? std::move(sink) : QvErrorSink(&QvTextSource::WriteToStandardError);
}

void QvState::PostError(const char* fmt, ...) {
  char msg[256];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(msg, sizeof msg, fmt, ap);
  va_end(ap);
  ++errorCount_;
  sink_(QvFormat("VRML error in %s(): %s\n", "QvState::Traverse", msg));
}

int QvState::GetMaterialBindingValue() const {
  return cur_.materialBinding ? cur_.materialBinding->value.value : QV_BINDING_OVERALL;
}

int QvState::GetNormalBindingValue() const {
  return cur_.normalBinding ? cur_.normalBinding->value.value : QV_BINDING_DEFAULT;
}

bool QvState::Traverse(QvNode& root) {
  cur_ = Elements();
  transforms_.clear();
  depth_ = 0;
  shapeVisits_ = 0;
  visits_ = 0;
  stopped_ = false;
  const int errorsBefore = errorCount_;
  TraverseNode(root);
  return errorCount_ == errorsBefore;
}

void QvState::TraverseNode(QvNode& node) {
  if (stopped_)
    return;
  if (++visits_ > visitBudget_) {
    PostError("More than %llu node visits; the graph is too large to walk",
              static_cast<unsigned long long>(visitBudget_));
    stopped_ = true;
    return;
  }
  if (depth_ >= maxDepth_) {
    PostError("Scene graph nested deeper than %d levels", maxDepth_);
    stopped_ = true;
    return;
  }
  ++depth_;
  node.Traverse(*this);
  --depth_;
}

void QvState::TraverseChildren(const std::vector<QvNode*>& children) {
  for (QvNode* child : children) {
    if (stopped_)
      return;
    TraverseNode(*child);
  }
}

void QvState::RestoreTransform(const Elements& saved) {
  cur_.matrix = saved.matrix;
  cur_.numTransforms = saved.numTransforms;
}

void QvState::ApplyVertexProperty(const QvVertexProperty& vp) {
  if (!vp.vertex.point.values.empty())
    cur_.coordinate3 = &vp.vertex;
  if (!vp.normal.vector.values.empty()) {
    cur_.normal = &vp.normal;
    cur_.normalBinding = &vp.normalBinding;
  }
  if (!vp.texCoord.point.values.empty())
    cur_.textureCoordinate2 = &vp.texCoord;
  if (!vp.orderedRGBA.values.empty()) {
    cur_.materialBinding = &vp.materialBinding;
    cur_.packedColor = &vp.orderedRGBA;
  }
}

void QvState::ApplyTransform(const QvNode& node) {
  C4x4Matrix m(1);
  switch (node.GetType()) {
  case QV_NODE_TYPE::Transform:
    m = TransformMatrix(static_cast<const QvTransform&>(node));
    break;
  case QV_NODE_TYPE::MatrixTransform: {
    // The file's matrix applies to row vectors: ours is its transpose.
    const auto& v = static_cast<const QvMatrixTransform&>(node).matrix.value;
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c)
        m.m[r][c] = v[c][r];
    break;
  }
  case QV_NODE_TYPE::Rotation:
    m = Rotation(static_cast<const QvRotation&>(node).rotation);
    break;
  case QV_NODE_TYPE::RotationXYZ: {
    const auto& r = static_cast<const QvRotationXYZ&>(node);
    float axis[3] = {0, 0, 0};
    axis[std::clamp(r.axis.value, 0, 2)] = 1;
    m = Rotation(axis, r.angle.value);
    break;
  }
  case QV_NODE_TYPE::Scale:
    m = Scaling(static_cast<const QvScale&>(node).scaleFactor.value);
    break;
  case QV_NODE_TYPE::Translation: {
    const float* t = static_cast<const QvTranslation&>(node).translation.value;
    m = Translation(t[0], t[1], t[2]);
    break;
  }
  default:
    return;
  }
  // Later transformations act first on the shapes that follow them.
  cur_.matrix = cur_.matrix * m;
  transforms_.resize(cur_.numTransforms);
  transforms_.push_back(&node);
  cur_.numTransforms = transforms_.size();
}

void QvState::DoShape(QvNode& shape, const QvNode* vertexProperty) {
  if (stopped_)
    return;
  if (++shapeVisits_ > shapeBudget_) {
    PostError("More than %llu shapes; the graph is too large to walk",
              static_cast<unsigned long long>(shapeBudget_));
    stopped_ = true;
    return;
  }
  const ShapeCallback& own = callbacks_[static_cast<std::size_t>(shape.GetType())];
  const ShapeCallback& cb = own ? own : anyShape_;
  if (!cb)
    return;
  if (vertexProperty && vertexProperty->GetType() == QV_NODE_TYPE::VertexProperty) {
    const Elements saved = cur_;
    ApplyVertexProperty(static_cast<const QvVertexProperty&>(*vertexProperty));
    cb(shape, *this);
    cur_ = saved;
  } else {
    cb(shape, *this);
  }
}

} // namespace meshcore
