#pragma once
// Traversal of a node graph. The state keeps the current property elements and the
// accumulated transformation; each shape node reached calls back with the state.
// The walk is bounded in depth, in node visits and in shape visits, because a small
// file that USEs a group repeatedly can describe an exponential number of visits.

#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/vrml_parser/qv_node.h"
#include "meshcore/vrml_parser/qv_text_source.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace meshcore {

class QvCoordinate3;
class QvMaterial;
class QvMaterialBinding;
class QvNormal;
class QvNormalBinding;
class QvShapeHints;
class QvTexture2;
class QvTexture2Transform;
class QvTextureCoordinate2;
class QvTextureCoordinateBinding;
class QvMFLong;
class QvVertexProperty;

class QvState {
public:
  using ShapeCallback = std::function<void(QvNode& shape, QvState& state)>;

  static constexpr int kDefaultMaxDepth = 1000;
  static constexpr std::uint64_t kDefaultShapeBudget = 1u << 20;
  static constexpr std::uint64_t kDefaultVisitBudget = 1u << 24;

  // What a Separator saves and restores.
  struct Elements {
    const QvCoordinate3* coordinate3 = nullptr;
    const QvNormal* normal = nullptr;
    const QvNormalBinding* normalBinding = nullptr;
    const QvTextureCoordinate2* textureCoordinate2 = nullptr;
    const QvTexture2* texture2 = nullptr;
    const QvTexture2Transform* texture2Transform = nullptr;
    const QvMaterial* material = nullptr;
    const QvMaterialBinding* materialBinding = nullptr;
    const QvShapeHints* shapeHints = nullptr;
    const QvMFLong* packedColor = nullptr; // Inventor colours that replace the diffuse ones
    const QvTextureCoordinateBinding* textureCoordinateBinding = nullptr;
    int inheritedSwitch = -1;
    C4x4Matrix matrix{1};
    std::size_t numTransforms = 0;
  };

  QvState();

  // Callbacks by shape type; the general one serves shapes without their own.
  void SetCallback(QV_NODE_TYPE type, ShapeCallback cb);
  void SetShapeCallback(ShapeCallback cb) { anyShape_ = std::move(cb); }
  void SetErrorSink(QvErrorSink sink);
  void SetMaxDepth(int depth) { maxDepth_ = depth; }
  void SetShapeBudget(std::uint64_t n) { shapeBudget_ = n; }
  void SetVisitBudget(std::uint64_t n) { visitBudget_ = n; }

  // Walks the graph from root with a fresh state. False when a limit stopped it.
  bool Traverse(QvNode& root);
  // Ends the walk early (for cancellation from a callback).
  void Stop() { stopped_ = true; }
  bool IsStopped() const { return stopped_; }
  std::uint64_t GetShapeCount() const { return shapeVisits_; }
  std::uint64_t GetVisitCount() const { return visits_; }
  int GetErrorCount() const { return errorCount_; }

  // Current elements (null when no such node has been met).
  const QvCoordinate3* GetCoordinate3() const { return cur_.coordinate3; }
  const QvNormal* GetNormal() const { return cur_.normal; }
  const QvNormalBinding* GetNormalBinding() const { return cur_.normalBinding; }
  const QvTextureCoordinate2* GetTextureCoordinate2() const { return cur_.textureCoordinate2; }
  const QvTexture2* GetTexture2() const { return cur_.texture2; }
  const QvTexture2Transform* GetTexture2Transform() const { return cur_.texture2Transform; }
  const QvMaterial* GetMaterial() const { return cur_.material; }
  const QvMaterialBinding* GetMaterialBinding() const { return cur_.materialBinding; }
  const QvShapeHints* GetShapeHints() const { return cur_.shapeHints; }
  const QvMFLong* GetPackedColor() const { return cur_.packedColor; }
  const QvTextureCoordinateBinding* GetTextureCoordinateBinding() const {
    return cur_.textureCoordinateBinding;
  }
  // Binding values with the standard's defaults when no binding node is current.
  int GetMaterialBindingValue() const;
  int GetNormalBindingValue() const;
  // Object-to-world transformation (column vectors, translation in the fourth column).
  const C4x4Matrix& GetMatrix() const { return cur_.matrix; }
  // The transformation nodes in force, outermost first.
  std::span<const QvNode* const> GetTransformNodes() const {
    return {transforms_.data(), cur_.numTransforms};
  }
  int GetDepth() const { return depth_; }

  // Used by the nodes' traversal.
  void TraverseNode(QvNode& node);
  void TraverseChildren(const std::vector<QvNode*>& children);
  const Elements& Save() const { return cur_; }
  void Restore(const Elements& saved) { cur_ = saved; }
  void RestoreTransform(const Elements& saved);
  int GetInheritedSwitch() const { return cur_.inheritedSwitch; }
  void SetInheritedSwitch(int which) { cur_.inheritedSwitch = which; }
  void SetCoordinate3(const QvCoordinate3* n) { cur_.coordinate3 = n; }
  void SetNormal(const QvNormal* n) { cur_.normal = n; }
  void SetNormalBinding(const QvNormalBinding* n) { cur_.normalBinding = n; }
  void SetTextureCoordinate2(const QvTextureCoordinate2* n) { cur_.textureCoordinate2 = n; }
  void SetTexture2(const QvTexture2* n) { cur_.texture2 = n; }
  void SetTexture2Transform(const QvTexture2Transform* n) { cur_.texture2Transform = n; }
  void SetMaterial(const QvMaterial* n) {
    cur_.material = n;
    cur_.packedColor = nullptr;
  }
  void SetPackedColor(const QvMFLong* colours) { cur_.packedColor = colours; }
  void SetTextureCoordinateBinding(const QvTextureCoordinateBinding* n) {
    cur_.textureCoordinateBinding = n;
  }
  void SetMaterialBinding(const QvMaterialBinding* n) { cur_.materialBinding = n; }
  void SetShapeHints(const QvShapeHints* n) { cur_.shapeHints = n; }
  void ApplyVertexProperty(const QvVertexProperty& vp);
  // Transform, MatrixTransform, Rotation, RotationXYZ, Scale or Translation.
  void ApplyTransform(const QvNode& node);
  // A transformation without a node of its own (the copies of Array and MultipleCopy).
  void ApplyMatrix(const C4x4Matrix& m) { cur_.matrix = cur_.matrix * m; }
  // A shape; vertexProperty (Inventor) overrides the elements for this shape only.
  void DoShape(QvNode& shape, const QvNode* vertexProperty = nullptr);

private:
  [[gnu::format(printf, 2, 3)]] void PostError(const char* fmt, ...);

  Elements cur_;
  std::vector<const QvNode*> transforms_;
  std::array<ShapeCallback, static_cast<std::size_t>(QV_NODE_TYPE::WWWInline) + 1> callbacks_;
  ShapeCallback anyShape_;
  QvErrorSink sink_;
  int maxDepth_ = kDefaultMaxDepth;
  std::uint64_t shapeBudget_ = kDefaultShapeBudget;
  std::uint64_t visitBudget_ = kDefaultVisitBudget;
  int depth_ = 0;
  std::uint64_t shapeVisits_ = 0;
  std::uint64_t visits_ = 0;
  int errorCount_ = 0;
  bool stopped_ = false;
};

} // namespace meshcore
