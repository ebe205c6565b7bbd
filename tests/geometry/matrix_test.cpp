#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/geometry/quaternion.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace meshcore;

namespace {

C4x4Matrix Numbered() {
  C4x4Matrix m;
  for (int i = 0; i < 16; ++i)
    m(i / 4, i % 4) = float(i + 1);
  return m;
}

void ExpectNear(const C4x4Matrix& a, const C4x4Matrix& b, float tol) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      EXPECT_NEAR(a(r, c), b(r, c), tol) << r << "," << c;
}

} // namespace

TEST(Matrix, FloatAndDoubleLoadersHaveOppositeFlags) {
  float f[16];
  double d[16];
  for (int i = 0; i < 16; ++i)
    f[i] = float(d[i] = i + 1);
  EXPECT_EQ(C4x4Matrix(f, 0), C4x4Matrix(d, 1));
  EXPECT_EQ(C4x4Matrix(f, 1), C4x4Matrix(d, 0));
  EXPECT_EQ(2.0f, C4x4Matrix(f, 0)(0, 1));
  EXPECT_EQ(5.0f, C4x4Matrix(f, 1)(0, 1));
  C4x4Matrix loaded(1);
  loaded.LoadMatrix(d); // never transposes
  EXPECT_EQ(Numbered(), loaded);
}

TEST(Matrix, TransposeForms) {
  C4x4Matrix full = Numbered();
  full.Transpose();
  EXPECT_EQ(5.0f, full(0, 1));
  EXPECT_EQ(2.0f, full(1, 0));

  C4x4Matrix out;
  for (int i = 0; i < 16; ++i)
    out(i / 4, i % 4) = -1;
  Numbered().Transpose(out);
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) {
      bool written = c <= r && c < 3;
      EXPECT_EQ(written ? full(r, c) : -1.0f, out(r, c)) << r << "," << c;
    }
}

TEST(Matrix, IsIdentityBounds) {
  C4x4Matrix m(1);
  m(0, 0) = 1.005f;
  m(2, 2) = 0.995f;
  m(1, 3) = -0.005f;
  m(3, 0) = 0.005f;
  EXPECT_TRUE(m.IsIdentity());
  m(0, 0) = 1.0051f;
  EXPECT_FALSE(m.IsIdentity());
  m(0, 0) = 1;
  m(3, 0) = std::nanf("");
  EXPECT_FALSE(m.IsIdentity());
  EXPECT_NE(m, m); // NaN is never equal
}

TEST(Matrix, AffineInverse) {
  C4x4Matrix m(1);
  m.Rotate(0.7f, 1, 2, 3);
  m.Scale(2, 3, 4);
  m.Translate(5, -6, 7);
  C4x4Matrix inv;
  ASSERT_EQ(1, m.Inverse(inv));
  ExpectNear(C4x4Matrix(1), m * inv, 1e-5f);

  C4x4Matrix tiny(1);
  tiny.InitScale(1e-6f, 1e-6f, 1e-6f); // the singularity test is relative
  ASSERT_EQ(1, tiny.Inverse(inv));
  EXPECT_NEAR(1e6f, inv(1, 1), 1.0f);

  C4x4Matrix proj = m;
  proj(3, 0) = 0.5f;
  proj(3, 3) = 3;
  ASSERT_EQ(1, proj.Inverse(inv));
  EXPECT_EQ(0.0f, inv(3, 0));
  EXPECT_EQ(1.0f, inv(3, 3));
  C4x4Matrix affine;
  m.Inverse(affine);
  EXPECT_EQ(affine, inv); // the projective row is ignored

  C4x4Matrix singular = Numbered();
  for (int c = 0; c < 4; ++c)
    singular(1, c) = singular(0, c);
  C4x4Matrix untouched(1);
  EXPECT_EQ(0, singular.Inverse(untouched));
  EXPECT_EQ(C4x4Matrix(1), untouched);
}

TEST(Matrix, TransformsAndScalar) {
  C4x4Matrix m(1);
  m.InitTranslation(1, 2, 3);
  m(3, 3) = 2; // input is halved before the transform
  C3DVector v = m * C3DVector(2, 4, 6);
  EXPECT_EQ(6.0f, v.z);
  C3DPoint p = C3DPoint(2, 4, 6) * m; // no divide for points
  EXPECT_EQ(C3DPoint(3, 6, 9), p);
  EXPECT_EQ(2.0f, m.Mult(0, 0, 0).w);

  m *= 2;
  EXPECT_EQ(2.0f, m(0, 3));
  EXPECT_EQ(2.0f, m(3, 3)); // fourth row untouched

  C4x4Matrix r(1);
  r.Rotate(0.3f, 0, 0, 0); // zero axis: no change
  EXPECT_EQ(C4x4Matrix(1), r);
  r.InitRotation(float(M_PI / 2), 0, 0, 1);
  C3DPoint x = C3DPoint(1, 0, 0) * r; // column vectors turn by minus the angle
  EXPECT_NEAR(0.0f, x.x, 1e-6);
  EXPECT_NEAR(-1.0f, x.y, 1e-6);
}

TEST(Quaternion, MatrixConversionsGiveTheConjugate) {
  CQuaternion q(C3DVector(1, 2, 2) / 3, 0.8f);
  C4x4Matrix m(q);
  CQuaternion back;
  back = m;
  EXPECT_NEAR(-q.x, back.x, 1e-6);
  EXPECT_NEAR(-q.y, back.y, 1e-6);
  EXPECT_NEAR(-q.z, back.z, 1e-6);
  EXPECT_NEAR(q.w, back.w, 1e-6);

  // InitRotation shares the matrix-to-quaternion convention.
  C4x4Matrix r;
  r.InitRotation(0.8f, 1, 2, 2);
  CQuaternion fromRot;
  fromRot = r;
  EXPECT_NEAR(q.x, fromRot.x, 1e-6);
  EXPECT_NEAR(q.w, fromRot.w, 1e-6);

  // A half turn takes the non-positive-trace branch.
  CQuaternion flip(C3DVector(0, 1, 0), float(M_PI));
  C4x4Matrix fm(flip);
  CQuaternion fb;
  fb = fm;
  EXPECT_NEAR(1.0f, std::fabs(fb.y), 1e-6);
  EXPECT_NEAR(0.0f, fb.w, 1e-6);
}

TEST(Quaternion, ProductAxisAngleAndEuler) {
  CQuaternion a(0.1f, -0.2f, 0.3f, 0.9f), b(-0.5f, 0.4f, 0.2f, 0.7f);
  CQuaternion p = a * b;
  // Textbook Hamilton product for comparison.
  EXPECT_NEAR(a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z, p.w, 1e-6);
  EXPECT_NEAR(a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, p.x, 1e-6);
  EXPECT_NEAR(a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x, p.y, 1e-6);
  EXPECT_NEAR(a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, p.z, 1e-6);
  CQuaternion r = b;
  r.Rotate(a); // applied after: a * b
  EXPECT_NEAR(p.x, r.x, 1e-7);

  CQuaternion big(C3DVector(0, 0, 2), 1.0f); // axis not normalised
  EXPECT_NEAR(2 * std::sin(0.5f), big.z, 1e-6);
  C3DVector axis;
  float angle;
  CQuaternion(C3DVector(0, 0.6f, 0.8f), 1.2f).GetAxisAngle(axis, angle);
  EXPECT_NEAR(1.2f, angle, 1e-5);
  EXPECT_NEAR(0.8f, axis.z, 1e-5);

  CQuaternion e(0.4f, 0.5f, 0.6f);
  CQuaternion expected(C3DVector(0, 0, 1), -0.6f);
  expected *= CQuaternion(C3DVector(1, 0, 0), -0.5f);
  expected *= CQuaternion(C3DVector(0, 1, 0), -0.4f);
  EXPECT_EQ(expected.x, e.x);
  EXPECT_EQ(expected.w, e.w);
}
