#pragma once
// An RGBA colour of four bytes, with conversions from and to scaled floats.

#include "meshcore/platform/object.h"

#include <cstdint>
#include <string>

namespace meshcore {

class CRGBColor : public CObject {
  MESHCORE_DECLARE_SERIAL(CRGBColor)

public:
  // Float values are turned into bytes by truncation without clamping: a value
  // out of 0..255 wraps as the integer conversion does (300 gives 44).
  static std::uint8_t ToByte(float v);
  static std::uint8_t ToByte(double v);

  std::uint8_t r = 0;
  std::uint8_t g = 0;
  std::uint8_t b = 0;
  std::uint8_t a = 255;

  CRGBColor() = default;
  // Byte channels, taken as int so that integer arguments never compete with
  // the float forms (which need float arguments); each keeps its low byte.
  CRGBColor(int pr, int pg, int pb) { SetColor(pr, pg, pb); }
  CRGBColor(int pr, int pg, int pb, int pa) { SetColor(pr, pg, pb, pa); }
  // n = 3 gives an opaque colour, anything else takes p[3] as alpha.
  CRGBColor(const std::uint8_t* p, int n);
  // 0x00BBGGRR, alpha 255.
  explicit CRGBColor(unsigned long rgb) { SetColor(rgb); }
  CRGBColor(float pr, float pg, float pb, float scale) { SetColor(pr, pg, pb, scale); }
  CRGBColor(float pr, float pg, float pb, float pa, float scale) {
    SetColor(pr, pg, pb, pa, scale);
  }
  CRGBColor(const CRGBColor& c) : CObject(), r(c.r), g(c.g), b(c.b), a(c.a) {}
  CRGBColor& operator=(const CRGBColor& c) {
    SetColor(c.r, c.g, c.b, c.a);
    return *this;
  }

  void Serialize(CArchive& ar) override;

  void SetColor(int pr, int pg, int pb) { SetColor(pr, pg, pb, 255); }
  void SetColor(int pr, int pg, int pb, int pa) {
    r = static_cast<std::uint8_t>(pr);
    g = static_cast<std::uint8_t>(pg);
    b = static_cast<std::uint8_t>(pb);
    a = static_cast<std::uint8_t>(pa);
  }
  void SetColor(unsigned long rgb);
  void SetColor(float pr, float pg, float pb, float scale);
  void SetColor(float pr, float pg, float pb, float pa, float scale);
  // r, g, b scaled; alpha kept.
  void SetColor3(const float* v, float scale);
  void SetColor3(const double* v, double scale);
  void SetColor4(const float* v, float scale);
  void SetColor4(const double* v, double scale);
  void SetColor4(const std::uint8_t* v);

  // out[i] = channel / scale, alpha included.
  void GetColor4(float* out, float scale) const;
  void GetColor4(int* out) const;
  void GetColor4(std::uint8_t* out) const;
  // 0x00BBGGRR; alpha is not included.
  operator unsigned long() const {
    return static_cast<unsigned long>(r) + (static_cast<unsigned long>(g) << 8) +
           (static_cast<unsigned long>(b) << 16);
  }
  // Channels as floats in 0..1.
  void Normalize(float& pr, float& pg, float& pb) const;
  void Normalize(float& pr, float& pg, float& pb, float& pa) const;
  // "R : 12  G : 34  B : 56" in the active language.
  void GetString(std::string& out) const;

  // All four channels, alpha included.
  CRGBColor& operator*=(float s);
  // The three colour channels scaled into an opaque colour.
  CRGBColor operator*(float s) const;
  CRGBColor operator*(double s) const;
  // Byte-wise modulo 256 (no saturation); the result is opaque.
  CRGBColor operator+(const CRGBColor& c) const { return CRGBColor(r + c.r, g + c.g, b + c.b); }
  CRGBColor operator-(const CRGBColor& c) const { return CRGBColor(r - c.r, g - c.g, b - c.b); }
  bool operator==(const CRGBColor& c) const { return r == c.r && g == c.g && b == c.b && a == c.a; }
  bool operator!=(const CRGBColor& c) const { return !(*this == c); }

  // Lower or raise the brightness by amount (0..1), keeping hue, saturation
  // and alpha.
  void Darken(float amount);
  void Lighten(float amount);

  std::uint8_t& operator[](int i) { return (&r)[i]; }
  const std::uint8_t& operator[](int i) const { return (&r)[i]; }
  std::uint8_t* ValPtr() { return &r; }
  const std::uint8_t* ValPtr() const { return &r; }

private:
  void SetBrightness(float delta);
};

} // namespace meshcore
