#pragma once
// RGB to and from hue/saturation/brightness, all in 0..1. The third value is
// the hexcone brightness (the largest channel), not a lightness.

namespace meshcore {

void ConvertRGBToHSL(float r, float g, float b, float& h, float& s, float& l);
void ConvertHSLToRGB(float h, float s, float l, float& r, float& g, float& b);

} // namespace meshcore
