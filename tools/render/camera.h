#pragma once
// An orthographic camera that looks at a box from one of the standard views
// and scales it to fill the picture.

#include "meshcore/geometry/point_3d.h"
#include "meshcore/geometry/vector_3d.h"

#include <string_view>

namespace meshcore::render {

enum class ViewDirection { Iso, Front, Back, Left, Right, Top, Bottom };

// Which scene axis points up in the picture. Lightwave, Wavefront and Maya
// files are y-up; 3D Studio, DXF, trueSpace and what the VRML reader converts
// are z-up.
enum class UpAxis { Y, Z };

// False for an unknown name.
bool ParseViewDirection(std::string_view name, ViewDirection& view);
bool ParseUpAxis(std::string_view name, UpAxis& up);
// The usual up axis of files with this name's extension (any case).
UpAxis UpAxisOfFile(std::string_view path);

class CCamera {
public:
  // Fraction of the picture left free on each side.
  static constexpr float kMargin = 0.05f;

  CCamera(ViewDirection view, UpAxis up, const C3DPoint& boxMin, const C3DPoint& boxMax,
          int width, int height);

  // Picture position (x to the right, y down, in pixels) and depth (larger is
  // farther from the viewer).
  void Project(const C3DPoint& p, float& x, float& y, float& depth) const {
    const float px = p.x * m_right.x + p.y * m_right.y + p.z * m_right.z;
    const float py = p.x * m_up.x + p.y * m_up.y + p.z * m_up.z;
    depth = -(p.x * m_toViewer.x + p.y * m_toViewer.y + p.z * m_toViewer.z);
    x = m_offsetX + px * m_scale;
    y = m_offsetY - py * m_scale;
  }
  // Unit vectors of the view in scene space.
  const C3DVector& ToViewer() const { return m_toViewer; }
  const C3DVector& Right() const { return m_right; }
  const C3DVector& Up() const { return m_up; }
  // Depth covered by the box: a scale for depth offsets.
  float GetDepthRange() const { return m_depthRange; }

private:
  C3DVector m_toViewer, m_right, m_up;
  float m_scale = 1.0f;
  float m_offsetX = 0.0f, m_offsetY = 0.0f;
  float m_depthRange = 1.0f;
};

} // namespace meshcore::render
