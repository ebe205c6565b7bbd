#include "tools/render/rasterizer.h"

#include <algorithm>
#include <cmath>

namespace meshcore::render {

namespace {

std::uint32_t Pack(float r, float g, float b) {
  auto byte = [](float v) {
    const float scaled = v * 255.0f + 0.5f;
    return static_cast<std::uint32_t>(scaled <= 0.0f ? 0.0f : scaled >= 255.0f ? 255.0f : scaled);
  };
  return (byte(r) << 16) | (byte(g) << 8) | byte(b);
}

bool IsFinite(const RasterVertex& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.depth);
}

} // namespace

CRasterizer::CRasterizer(int width, int height, std::uint32_t background)
    : m_width(width), m_height(height), m_depth(static_cast<std::size_t>(width) * height, kFar),
      m_colour(static_cast<std::size_t>(width) * height, background & 0xFFFFFF) {}

void CRasterizer::DrawTriangle(const RasterVertex& a, const RasterVertex& b0,
                               const RasterVertex& c0, const CImage* texture) {
  if (!IsFinite(a) || !IsFinite(b0) || !IsFinite(c0))
    return;
  // Counter-clockwise on screen (y down), so that inside means all edge
  // functions are positive.
  float area = (b0.x - a.x) * (c0.y - a.y) - (c0.x - a.x) * (b0.y - a.y);
  const bool swap = area < 0.0f;
  const RasterVertex& b = swap ? c0 : b0;
  const RasterVertex& c = swap ? b0 : c0;
  area = std::fabs(area);
  if (!(area > 1e-12f))
    return;

  const float minX = std::min({a.x, b.x, c.x}), maxX = std::max({a.x, b.x, c.x});
  const float minY = std::min({a.y, b.y, c.y}), maxY = std::max({a.y, b.y, c.y});
  // Sample centres lie at half-pixel positions.
  const int x0 = std::max(0, static_cast<int>(std::ceil(std::max(minX - 0.5f, -1.0f))));
  const int x1 = std::min(m_width - 1, static_cast<int>(std::floor(std::min(maxX - 0.5f, 1e9f))));
  const int y0 = std::max(0, static_cast<int>(std::ceil(std::max(minY - 0.5f, -1.0f))));
  const int y1 = std::min(m_height - 1, static_cast<int>(std::floor(std::min(maxY - 0.5f, 1e9f))));
  if (x0 > x1 || y0 > y1)
    return;

  // Edge function of the edge from p to q at s: positive on the inside.
  struct Edge {
    float dx, dy, c;
    bool owns; // top or left edges own the samples that lie exactly on them
    float At(float x, float y) const { return dy * x - dx * y + c; }
  };
  auto makeEdge = [](const RasterVertex& p, const RasterVertex& q) {
    Edge e;
    e.dx = q.x - p.x;
    e.dy = q.y - p.y;
    e.c = p.y * e.dx - p.x * e.dy;
    // With y down and counter-clockwise corners, left edges go down (dy > 0)
    // and top edges go right along a horizontal line.
    e.owns = e.dy > 0.0f || (e.dy == 0.0f && e.dx < 0.0f);
    return e;
  };
  // Edge k lies opposite corner k: its function is that corner's weight.
  const Edge e0 = makeEdge(b, c), e1 = makeEdge(c, a), e2 = makeEdge(a, b);
  const float inverse = 1.0f / area;
  const float sign = e0.At(a.x, a.y) >= 0.0f ? 1.0f : -1.0f; // guards the orientation math

  const bool textured = texture && !texture->IsEmpty();
  const int tw = textured ? texture->GetWidth() : 0, th = textured ? texture->GetHeight() : 0;

  for (int y = y0; y <= y1; ++y) {
    const float sy = y + 0.5f;
    const float sx0 = x0 + 0.5f;
    float w0 = sign * e0.At(sx0, sy), w1 = sign * e1.At(sx0, sy), w2 = sign * e2.At(sx0, sy);
    const float step0 = sign * e0.dy, step1 = sign * e1.dy, step2 = sign * e2.dy;
    std::size_t index = static_cast<std::size_t>(y) * m_width + x0;
    for (int x = x0; x <= x1; ++x, ++index, w0 += step0, w1 += step1, w2 += step2) {
      if (w0 < 0.0f || w1 < 0.0f || w2 < 0.0f)
        continue;
      if ((w0 == 0.0f && !e0.owns) || (w1 == 0.0f && !e1.owns) || (w2 == 0.0f && !e2.owns))
        continue;
      const float l0 = w0 * inverse, l1 = w1 * inverse, l2 = w2 * inverse;
      const float depth = l0 * a.depth + l1 * b.depth + l2 * c.depth;
      if (!(depth < m_depth[index]))
        continue;
      float r = l0 * a.r + l1 * b.r + l2 * c.r;
      float g = l0 * a.g + l1 * b.g + l2 * c.g;
      float bl = l0 * a.b + l1 * b.b + l2 * c.b;
      if (textured) {
        const float u = l0 * a.u + l1 * b.u + l2 * c.u;
        const float v = l0 * a.v + l1 * b.v + l2 * c.v;
        const float fu = u - std::floor(u), fv = v - std::floor(v);
        int tx = static_cast<int>(fu * tw), ty = static_cast<int>((1.0f - fv) * th);
        tx = std::clamp(tx, 0, tw - 1);
        ty = std::clamp(ty, 0, th - 1);
        const std::uint8_t* texel = texture->Pixel(tx, ty);
        r *= texel[0] * (1.0f / 255.0f);
        g *= texel[1] * (1.0f / 255.0f);
        bl *= texel[2] * (1.0f / 255.0f);
      }
      if (m_depth[index] == kFar)
        ++m_covered;
      m_depth[index] = depth;
      m_colour[index] = Pack(r, g, bl);
    }
  }
}

void CRasterizer::DrawLine(const RasterVertex& a, const RasterVertex& b, int thickness,
                           float depthBias) {
  if (!IsFinite(a) || !IsFinite(b))
    return;
  const float dx = b.x - a.x, dy = b.y - a.y;
  const float length = std::max(std::fabs(dx), std::fabs(dy));
  // Lines far outside the buffer are clipped to it before stepping along them.
  float t0 = 0.0f, t1 = 1.0f;
  const float margin = static_cast<float>(thickness);
  auto clip = [&](float p, float q) { // keeps t where p * t <= q
    if (p == 0.0f)
      return q >= 0.0f;
    const float t = q / p;
    if (p < 0.0f)
      t0 = std::max(t0, t);
    else
      t1 = std::min(t1, t);
    return t0 <= t1;
  };
  if (!clip(-dx, a.x + margin) || !clip(dx, m_width + margin - a.x) || !clip(-dy, a.y + margin) ||
      !clip(dy, m_height + margin - a.y))
    return;
  const int steps = std::max(1, static_cast<int>(std::ceil(length * (t1 - t0))));
  const std::uint32_t colour = Pack(a.r, a.g, a.b);
  const int half = thickness / 2;
  for (int i = 0; i <= steps; ++i) {
    const float t = t0 + (t1 - t0) * i / steps;
    const float x = a.x + dx * t, y = a.y + dy * t;
    const float depth = a.depth + (b.depth - a.depth) * t - depthBias;
    const int cx = static_cast<int>(std::floor(x)) - half;
    const int cy = static_cast<int>(std::floor(y)) - half;
    for (int oy = 0; oy < thickness; ++oy)
      for (int ox = 0; ox < thickness; ++ox) {
        const int px = cx + ox, py = cy + oy;
        if (px >= 0 && py >= 0 && px < m_width && py < m_height)
          Plot(px, py, depth, colour);
      }
  }
}

CImage CRasterizer::Resolve(int factor) const {
  const int width = m_width / factor, height = m_height / factor;
  CImage image(width, height);
  const int count = factor * factor;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      int r = 0, g = 0, b = 0;
      for (int sy = 0; sy < factor; ++sy) {
        const std::uint32_t* row =
            m_colour.data() + static_cast<std::size_t>(y * factor + sy) * m_width + x * factor;
        for (int sx = 0; sx < factor; ++sx) {
          r += (row[sx] >> 16) & 0xFF;
          g += (row[sx] >> 8) & 0xFF;
          b += row[sx] & 0xFF;
        }
      }
      std::uint8_t* out = image.Pixel(x, y);
      out[0] = static_cast<std::uint8_t>((r + count / 2) / count);
      out[1] = static_cast<std::uint8_t>((g + count / 2) / count);
      out[2] = static_cast<std::uint8_t>((b + count / 2) / count);
      out[3] = 255;
    }
  return image;
}

} // namespace meshcore::render
