#pragma once
// An 8-bit RGBA picture, rows from top to bottom.

#include <cstdint>
#include <vector>

namespace meshcore::render {

class CImage {
public:
  CImage() = default;
  CImage(int width, int height)
      : m_width(width), m_height(height),
        m_pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4, 0) {}

  int GetWidth() const { return m_width; }
  int GetHeight() const { return m_height; }
  bool IsEmpty() const { return m_width <= 0 || m_height <= 0; }
  // Four bytes: red, green, blue, alpha. No bounds check.
  std::uint8_t* Pixel(int x, int y) {
    return m_pixels.data() + (static_cast<std::size_t>(y) * m_width + x) * 4;
  }
  const std::uint8_t* Pixel(int x, int y) const {
    return m_pixels.data() + (static_cast<std::size_t>(y) * m_width + x) * 4;
  }
  std::vector<std::uint8_t>& GetPixels() { return m_pixels; }
  const std::vector<std::uint8_t>& GetPixels() const { return m_pixels; }

private:
  int m_width = 0;
  int m_height = 0;
  std::vector<std::uint8_t> m_pixels;
};

} // namespace meshcore::render
