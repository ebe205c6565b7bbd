#include "meshcore/geometry/hsl.h"
#include "meshcore/geometry/rgb_color.h"

#include <gtest/gtest.h>

using namespace meshcore;

TEST(Color, ConstructionTruncatesAndWraps) {
  EXPECT_EQ(CRGBColor(255, 127, 0, 255), CRGBColor(1.0f, 0.5f, 0.0f, 255.0f));
  EXPECT_EQ(44, CRGBColor(300.0f, 0.0f, 0.0f, 1.0f).r); // no clamping
  EXPECT_EQ(0, CRGBColor(1e30f, 0.0f, 0.0f, 1.0f).r);   // and no undefined conversion
  CRGBColor c(0x00332211UL);
  EXPECT_EQ(CRGBColor(0x11, 0x22, 0x33, 255), c);
  c.a = 9;
  EXPECT_EQ(0x332211UL, static_cast<unsigned long>(c)); // alpha not included

  CRGBColor d(1, 2, 3, 77);
  const double v[3] = {0.5, 0.25, 1.0};
  d.SetColor3(v, 100.0);
  EXPECT_EQ(CRGBColor(50, 25, 100, 77), d); // alpha kept
  float out[4];
  d.GetColor4(out, 100.0f);
  EXPECT_FLOAT_EQ(0.77f, out[3]);
}

TEST(Color, ArithmeticAlphaRules) {
  EXPECT_EQ(CRGBColor(44, 44, 44, 255), CRGBColor(200, 100, 50) + CRGBColor(100, 200, 250));
  EXPECT_EQ(CRGBColor(156, 156, 156, 255), CRGBColor(0, 0, 0, 3) - CRGBColor(100, 100, 100));
  CRGBColor c(100, 51, 10, 200);
  EXPECT_EQ(CRGBColor(50, 25, 5, 255), c * 0.5);
  c *= 0.5f;
  EXPECT_EQ(CRGBColor(50, 25, 5, 100), c);
}

TEST(Color, HslRoundTripsAndBrightness) {
  float h, s, l, r, g, b;
  ConvertRGBToHSL(128 / 255.0f, 128 / 255.0f, 128 / 255.0f, h, s, l);
  EXPECT_EQ(0.0f, s);

  const float samples[][3] = {{1, 0, 0}, {0.2f, 0.9f, 0.4f}, {0.3f, 0.1f, 0.8f}, {1, 1, 0}};
  for (auto& c : samples) {
    ConvertRGBToHSL(c[0], c[1], c[2], h, s, l);
    EXPECT_LT(h, 1.0f);
    ConvertHSLToRGB(h, s, l, r, g, b);
    EXPECT_NEAR(c[0], r, 1e-5);
    EXPECT_NEAR(c[1], g, 1e-5);
    EXPECT_NEAR(c[2], b, 1e-5);
  }

  CRGBColor red(255, 0, 0, 10);
  red.Lighten(1);
  EXPECT_EQ(CRGBColor(255, 0, 0, 10), red);
  red.Darken(1);
  EXPECT_EQ(CRGBColor(0, 0, 0, 10), red);
  CRGBColor teal(0, 200, 100);
  teal.Darken(0.5f);
  EXPECT_EQ(0, teal.r);
  EXPECT_GT(teal.g, teal.b);
  EXPECT_LT(teal.g, 200);
}
