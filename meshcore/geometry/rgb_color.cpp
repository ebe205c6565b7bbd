#include "meshcore/geometry/rgb_color.h"

#include "meshcore/geometry/hsl.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"

#include <algorithm>
#include <cstdio>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CRGBColor, CObject, 1)

namespace {

// Truncation through a 32-bit integer keeps the low byte, like the historical
// conversion; values no integer can hold (and NaN) give 0 instead of
// undefined behaviour.
template <class T> std::uint8_t TruncateToByte(T v) {
  if (!(v > T(-2147483648.0) && v < T(2147483648.0)))
    return 0;
  return static_cast<std::uint8_t>(static_cast<std::int32_t>(v));
}

} // namespace

std::uint8_t CRGBColor::ToByte(float v) {
  return TruncateToByte(v);
}
std::uint8_t CRGBColor::ToByte(double v) {
  return TruncateToByte(v);
}

CRGBColor::CRGBColor(const std::uint8_t* p, int n) {
  SetColor(p[0], p[1], p[2], n == 3 ? 255 : p[3]);
}

void CRGBColor::Serialize(CArchive& ar) {
  if (ar.IsStoring())
    ar << r << g << b << a;
  else
    ar >> r >> g >> b >> a;
}

void CRGBColor::SetColor(unsigned long rgb) {
  SetColor(int(rgb & 0xFF), int((rgb >> 8) & 0xFF), int((rgb >> 16) & 0xFF), 255);
}

void CRGBColor::SetColor(float pr, float pg, float pb, float scale) {
  SetColor(ToByte(pr * scale), ToByte(pg * scale), ToByte(pb * scale), 255);
}

void CRGBColor::SetColor(float pr, float pg, float pb, float pa, float scale) {
  SetColor(ToByte(pr * scale), ToByte(pg * scale), ToByte(pb * scale), ToByte(pa * scale));
}

void CRGBColor::SetColor3(const float* v, float scale) {
  SetColor(ToByte(v[0] * scale), ToByte(v[1] * scale), ToByte(v[2] * scale), a);
}

void CRGBColor::SetColor3(const double* v, double scale) {
  SetColor(ToByte(v[0] * scale), ToByte(v[1] * scale), ToByte(v[2] * scale), a);
}

void CRGBColor::SetColor4(const float* v, float scale) {
  SetColor(ToByte(v[0] * scale), ToByte(v[1] * scale), ToByte(v[2] * scale), ToByte(v[3] * scale));
}

void CRGBColor::SetColor4(const double* v, double scale) {
  SetColor(ToByte(v[0] * scale), ToByte(v[1] * scale), ToByte(v[2] * scale), ToByte(v[3] * scale));
}

void CRGBColor::SetColor4(const std::uint8_t* v) {
  SetColor(v[0], v[1], v[2], v[3]);
}

void CRGBColor::GetColor4(float* out, float scale) const {
  for (int i = 0; i < 4; ++i)
    out[i] = (*this)[i] / scale;
}

void CRGBColor::GetColor4(int* out) const {
  for (int i = 0; i < 4; ++i)
    out[i] = (*this)[i];
}

void CRGBColor::GetColor4(std::uint8_t* out) const {
  for (int i = 0; i < 4; ++i)
    out[i] = (*this)[i];
}

void CRGBColor::Normalize(float& pr, float& pg, float& pb) const {
  pr = r / 255.0f;
  pg = g / 255.0f;
  pb = b / 255.0f;
}

void CRGBColor::Normalize(float& pr, float& pg, float& pb, float& pa) const {
  Normalize(pr, pg, pb);
  pa = a / 255.0f;
}

void CRGBColor::GetString(std::string& out) const {
  std::string format = LoadString(IDS_RGB_FORMAT);
  char buf[128];
  int n = std::snprintf(buf, sizeof buf, format.c_str(), int(r), int(g), int(b));
  out.assign(buf, n < 0 ? 0 : std::min<std::size_t>(std::size_t(n), sizeof buf - 1));
}

CRGBColor& CRGBColor::operator*=(float s) {
  SetColor(ToByte(r * s), ToByte(g * s), ToByte(b * s), ToByte(a * s));
  return *this;
}

CRGBColor CRGBColor::operator*(float s) const {
  return CRGBColor(ToByte(r * s), ToByte(g * s), ToByte(b * s));
}

CRGBColor CRGBColor::operator*(double s) const {
  return CRGBColor(ToByte(r * s), ToByte(g * s), ToByte(b * s));
}

void CRGBColor::SetBrightness(float delta) {
  float h, s, l, fr, fg, fb;
  Normalize(fr, fg, fb);
  ConvertRGBToHSL(fr, fg, fb, h, s, l);
  l = std::clamp(l + delta, 0.0f, 1.0f);
  // Outputs the conversion leaves unset keep the current channels.
  ConvertHSLToRGB(h, s, l, fr, fg, fb);
  SetColor(ToByte(fr * 255.0f), ToByte(fg * 255.0f), ToByte(fb * 255.0f), a);
}

void CRGBColor::Darken(float amount) {
  SetBrightness(-amount);
}
void CRGBColor::Lighten(float amount) {
  SetBrightness(amount);
}

} // namespace meshcore
