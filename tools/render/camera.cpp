// Right-handed views with x to the right: y-up scenes are seen from +z in the
// front view, z-up scenes from -y.
#include "tools/render/camera.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <cmath>
#include <limits>

namespace meshcore::render {

namespace {

const C3DVector kToRight(1.0f, 0.0f, 0.0f);

C3DVector Cross(const C3DVector& a, const C3DVector& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

C3DVector Normalized(const C3DVector& v) {
  const float length = std::sqrt(v * v);
  return length > 0.0f ? v * (1.0f / length) : v;
}

} // namespace

bool ParseUpAxis(std::string_view name, UpAxis& up) {
  if (name == "y" || name == "Y")
    up = UpAxis::Y;
  else if (name == "z" || name == "Z")
    up = UpAxis::Z;
  else
    return false;
  return true;
}

UpAxis UpAxisOfFile(std::string_view path) {
  const std::size_t dot = path.find_last_of('.');
  std::string ext;
  if (dot != std::string_view::npos && path.find_first_of("/\\", dot) == std::string_view::npos)
    for (char c : path.substr(dot + 1))
      ext += char(std::tolower(static_cast<unsigned char>(c)));
  for (const char* yUp : {"lwo", "lw", "lws", "obj", "ma"})
    if (ext == yUp)
      return UpAxis::Y;
  return UpAxis::Z;
}

bool ParseViewDirection(std::string_view name, ViewDirection& view) {
  static constexpr std::pair<std::string_view, ViewDirection> kNames[] = {
      {"iso", ViewDirection::Iso},      {"front", ViewDirection::Front},
      {"back", ViewDirection::Back},    {"left", ViewDirection::Left},
      {"right", ViewDirection::Right},  {"top", ViewDirection::Top},
      {"bottom", ViewDirection::Bottom}};
  for (const auto& [text, value] : kNames)
    if (text == name) {
      view = value;
      return true;
    }
  return false;
}

CCamera::CCamera(ViewDirection view, UpAxis up, const C3DPoint& boxMin, const C3DPoint& boxMax,
                 int width, int height) {
  const C3DVector kUp = up == UpAxis::Y ? C3DVector(0.0f, 1.0f, 0.0f) : C3DVector(0.0f, 0.0f, 1.0f);
  // From the scene towards a front viewer.
  const C3DVector kToFront =
      up == UpAxis::Y ? C3DVector(0.0f, 0.0f, 1.0f) : C3DVector(0.0f, -1.0f, 0.0f);
  switch (view) {
  case ViewDirection::Front:
    m_toViewer = kToFront;
    break;
  case ViewDirection::Back:
    m_toViewer = kToFront * -1.0f;
    break;
  case ViewDirection::Right:
    m_toViewer = kToRight;
    break;
  case ViewDirection::Left:
    m_toViewer = kToRight * -1.0f;
    break;
  case ViewDirection::Top:
    m_toViewer = kUp;
    break;
  case ViewDirection::Bottom:
    m_toViewer = kUp * -1.0f;
    break;
  case ViewDirection::Iso:
    m_toViewer = Normalized(kToFront + kToRight + kUp);
    break;
  }
  // Looking straight up or down, the picture keeps x to the right.
  m_right = (view == ViewDirection::Top || view == ViewDirection::Bottom)
                ? kToRight
                : Normalized(Cross(kUp, m_toViewer));
  m_up = Cross(m_toViewer, m_right);

  float minX = std::numeric_limits<float>::max(), maxX = -minX;
  float minY = minX, maxY = -minX, minD = minX, maxD = -minX;
  for (int corner = 0; corner < 8; ++corner) {
    const C3DPoint p((corner & 1) ? boxMax.x : boxMin.x, (corner & 2) ? boxMax.y : boxMin.y,
                     (corner & 4) ? boxMax.z : boxMin.z);
    const float px = p.x * m_right.x + p.y * m_right.y + p.z * m_right.z;
    const float py = p.x * m_up.x + p.y * m_up.y + p.z * m_up.z;
    const float d = p.x * m_toViewer.x + p.y * m_toViewer.y + p.z * m_toViewer.z;
    minX = std::min(minX, px), maxX = std::max(maxX, px);
    minY = std::min(minY, py), maxY = std::max(maxY, py);
    minD = std::min(minD, d), maxD = std::max(maxD, d);
  }
  const float extentX = maxX - minX, extentY = maxY - minY;
  const float usableX = width * (1.0f - 2.0f * kMargin);
  const float usableY = height * (1.0f - 2.0f * kMargin);
  // A box seen as a line or a point still gets a finite scale.
  constexpr float kTiny = 1e-20f;
  const float scaleX = extentX > kTiny ? usableX / extentX : 0.0f;
  const float scaleY = extentY > kTiny ? usableY / extentY : 0.0f;
  if (scaleX > 0.0f && scaleY > 0.0f)
    m_scale = std::min(scaleX, scaleY);
  else if (scaleX > 0.0f || scaleY > 0.0f)
    m_scale = std::max(scaleX, scaleY);
  else
    m_scale = 1.0f;
  if (!std::isfinite(m_scale))
    m_scale = 1.0f;
  m_offsetX = width * 0.5f - (minX + maxX) * 0.5f * m_scale;
  m_offsetY = height * 0.5f + (minY + maxY) * 0.5f * m_scale;
  m_depthRange = maxD - minD > kTiny ? maxD - minD : 1.0f;
}

} // namespace meshcore::render
