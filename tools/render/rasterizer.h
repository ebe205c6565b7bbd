#pragma once
// Draws depth-tested triangles and lines into a colour and depth buffer, and
// resolves the buffer into a picture with a box filter (the buffer is drawn
// at a multiple of the picture's size for antialiased edges).

#include "tools/render/image.h"

#include <cstdint>
#include <vector>

namespace meshcore::render {

// A corner in buffer coordinates. Untextured, r, g, b is the colour; with a
// texture, the light that multiplies the texel.
struct RasterVertex {
  float x = 0, y = 0, depth = 0;
  float r = 0, g = 0, b = 0;
  float u = 0, v = 0;
};

class CRasterizer {
public:
  // background is 0xRRGGBB.
  CRasterizer(int width, int height, std::uint32_t background);

  int GetWidth() const { return m_width; }
  int GetHeight() const { return m_height; }
  // Corners in either winding. Texture coordinates wrap; v = 0 is the bottom
  // row of the texture.
  void DrawTriangle(const RasterVertex& a, const RasterVertex& b, const RasterVertex& c,
                    const CImage* texture = nullptr);
  // A line thickness samples wide, drawn depthBias nearer than its corners so
  // that it shows on the faces it borders.
  void DrawLine(const RasterVertex& a, const RasterVertex& b, int thickness, float depthBias);
  // Samples covered by anything so far.
  std::uint64_t GetCoveredCount() const { return m_covered; }
  // The picture at 1 / factor of the buffer's size, each pixel the mean of
  // factor x factor samples.
  CImage Resolve(int factor) const;

private:
  void Plot(int x, int y, float depth, std::uint32_t colour) {
    const std::size_t i = static_cast<std::size_t>(y) * m_width + x;
    if (depth < m_depth[i]) {
      if (m_depth[i] == kFar)
        ++m_covered;
      m_depth[i] = depth;
      m_colour[i] = colour;
    }
  }

  static constexpr float kFar = 3.0e38f;
  int m_width, m_height;
  std::vector<float> m_depth;
  std::vector<std::uint32_t> m_colour; // 0xRRGGBB
  std::uint64_t m_covered = 0;
};

} // namespace meshcore::render
