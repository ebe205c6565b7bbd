#include "meshcore/geometry/hsl.h"

#include <algorithm>

namespace meshcore {

void ConvertRGBToHSL(float r, float g, float b, float& h, float& s, float& l) {
  float mx = std::max({r, g, b});
  float mn = std::min({r, g, b});
  l = mx;
  if (mx == 0.0f || !(mx > mn)) {
    h = s = 0.0f;
    return;
  }
  s = 1.0f - mn / mx;
  float d = mx - mn;
  float dr = (mx - r) / d, dg = (mx - g) / d, db = (mx - b) / d;
  if (r == mx)
    h = g == mn ? 5.0f + db : 1.0f - dg;
  else if (g != mx)
    h = r == mn ? 3.0f + dg : 5.0f - dr;
  else
    h = b == mn ? 1.0f + dr : 3.0f - db;
  h /= 6.0f;
  if (h >= 1.0f)
    h -= 1.0f;
}

void ConvertHSLToRGB(float h, float s, float l, float& r, float& g, float& b) {
  if (l <= 0.0f) {
    r = g = b = 0.0f;
    return;
  }
  float h6 = h * 6.0f;
  // Guard the integer conversion: a hue no int can hold selects no sector.
  if (!(h6 > -2147483648.0f && h6 < 2147483648.0f))
    return;
  int i = static_cast<int>(h6);
  float f = h6 - static_cast<float>(i);
  float m = (1.0f - s) * l;
  float rise = (l - m) * f + m;
  float fall = l - (l - m) * f;
  switch (i) {
  case 0:
  case 6:
    r = l, g = rise, b = m;
    break;
  case 1:
    r = fall, g = l, b = m;
    break;
  case 2:
    r = m, g = l, b = rise;
    break;
  case 3:
    r = m, g = fall, b = l;
    break;
  case 4:
    r = rise, g = m, b = l;
    break;
  case 5:
    r = l, g = m, b = fall;
    break;
  default:
    break;
  }
}

} // namespace meshcore
