#include "meshcore/containers/custom_data.h"
#include "meshcore/geometry/point_2d.h"
#include "meshcore/geometry/point_3d.h"
#include "meshcore/geometry/vector_3d.h"
#include "meshcore/geometry/vector_4d.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <type_traits>

using namespace meshcore;

TEST(Point3D, CopyConstructionDropsFlagsAndCustomDataButAssignmentCarriesThem) {
  C3DPoint src(1, 2, 3);
  src.SetFlag(PT_SELECTED | PT_BORDER, 1);
  src.GetCustomData(1)->SetInt(7, 42);

  C3DPoint copy(src);
  EXPECT_EQ(src, copy);
  EXPECT_EQ(0u, copy.GetFlags());
  EXPECT_EQ(nullptr, copy.GetCustomData(0));

  C3DPoint assigned;
  assigned = src;
  EXPECT_EQ(src, assigned);
  EXPECT_TRUE(assigned.IsFlagSet(PT_SELECTED | PT_BORDER));
  ASSERT_NE(nullptr, assigned.GetCustomData(0));
  EXPECT_NE(src.GetCustomData(0), assigned.GetCustomData(0)); // a copy, not shared
  int v = 0;
  EXPECT_TRUE(assigned.GetCustomData(0)->GetCustom(7, &v, sizeof v));
  EXPECT_EQ(42, v);

  // A source without a record leaves the destination's record in place,
  // while flags and coordinates are overwritten.
  C3DPoint plain(5, 6, 7);
  CPt& base = assigned;
  base = plain; // through the virtual same-kind assignment
  EXPECT_EQ(0u, assigned.GetFlags());
  ASSERT_NE(nullptr, assigned.GetCustomData(0));

  assigned = assigned; // self-assignment keeps everything
  EXPECT_NE(nullptr, assigned.GetCustomData(0));
}

TEST(Point3D, StaysSmallAndRelocatable) {
  // Lists of millions of points move records with memcpy when they grow.
  static_assert(sizeof(C3DPoint) <= 32);
  static_assert(sizeof(C3DVector) == 12);
  static_assert(std::is_trivially_copyable_v<C3DVector>);
  C3DPoint p(1, 2, 3);
  p.SetFlag(PT_WELDED, 1);
  alignas(C3DPoint) unsigned char moved[sizeof(C3DPoint)];
  std::memcpy(moved, static_cast<void*>(&p), sizeof p);
  C3DPoint& q = *reinterpret_cast<C3DPoint*>(moved);
  EXPECT_TRUE(q.IsFlagSet(PT_WELDED));
}

TEST(Point3D, ArithmeticGivesFreshPointsAndExactComparison) {
  C3DPoint p(1, 2, 3), q(0.5f, 0.25f, -1);
  p.SetFlag(PT_SELECTED, 1);
  C3DPoint s = p + q;
  EXPECT_EQ(C3DPoint(1.5f, 2.25f, 2), s);
  EXPECT_EQ(0u, s.GetFlags());
  EXPECT_EQ(C3DPoint(1, 3, 4), p + C4DVector(0, 1, 1)); // w ignored
  C4DVector plane(0, 0, 1);
  plane.w = -1; // z = 1
  EXPECT_EQ(2.0f, p * plane);

  C3DPoint r(1, 2, 3);
  EXPECT_TRUE(r == p); // flags do not take part
  r.z = std::nextafter(3.0f, 4.0f);
  EXPECT_TRUE(r != p);
}

TEST(Point3D, IsInTriangleSignPattern) {
  C3DPoint a(0, 0, 0), b(1, 0, 0), c(0, 1, 0);
  EXPECT_EQ(1, C3DPoint(0.25f, 0.25f, 0).IsInTriangle(a, b, c));
  EXPECT_EQ(0, C3DPoint(0.75f, 0.75f, 0).IsInTriangle(a, b, c));    // inside the box only
  EXPECT_EQ(0, C3DPoint(0.25f, 0.25f, 0.1f).IsInTriangle(a, b, c)); // box on z
  EXPECT_EQ(0, C3DPoint(-0.1f, 0.5f, 0).IsInTriangle(a, b, c));
  // Clockwise order flips every cross product the same way: still inside.
  EXPECT_EQ(1, C3DPoint(0.25f, 0.25f, 0).IsInTriangle(a, c, b));
  // At a corner one cross product is zero (code 0) and the others point
  // away from the viewer in z only (code 0 as well): accepted.
  EXPECT_EQ(1, a.IsInTriangle(a, b, c));
  // Clockwise, the two non-zero cross products are negative in z (code 1)
  // while the zero one has code 0: rejected.
  EXPECT_EQ(0, a.IsInTriangle(a, c, b));
}

TEST(Point3D, NoisyWaveRotatesAxesAndUsesUpdatedZ) {
  const float pi = 3.14159265f;
  C3DPoint centre(0, 0, 0);
  // Only x drives: z moves by h*sin(2*pi*x*f/dx).
  C3DPoint p(0.25f, 0, 0);
  p.NoisyWaveFunc(centre, C3DVector(1, 0, 0), 2, 1, 0);
  EXPECT_NEAR(2.0f, p.z, 1e-5);
  EXPECT_EQ(0.25f, p.x);
  EXPECT_EQ(0.0f, p.y);
  // Only y drives x.
  C3DPoint q(0, 0.25f, 0);
  q.NoisyWaveFunc(centre, C3DVector(0, 1, 0), 1, 1, 0);
  EXPECT_NEAR(1.0f, q.x, 1e-5);
  EXPECT_EQ(0.0f, q.z);
  // x and z: y follows the z that the x step has just produced.
  C3DPoint r(0.25f, 0, 0);
  r.NoisyWaveFunc(centre, C3DVector(1, 0, 1), 1, 1, 0);
  float h = std::sqrt(2.0f);
  float z = h * std::sin(0.25f * 6.2831855f);
  EXPECT_FLOAT_EQ(z, r.z);
  EXPECT_FLOAT_EQ(h * std::sin(z * 2 * pi), r.y);
}

TEST(Vector3D, NormalizeIsNullAndProducts) {
  C3DVector zero;
  zero.Normalize();
  EXPECT_TRUE(zero.IsNull());
  C3DVector tiny(0, 0, 1e-30f);
  tiny.Normalize();
  EXPECT_EQ(C3DVector(0, 0, 1).z, tiny.z); // no tolerance: it divides
  EXPECT_TRUE(C3DVector(0, -0.0f, 0).IsNull());
  EXPECT_FALSE(C3DVector(1e-38f, 0, 0).IsNull());
  EXPECT_EQ(1.0f, (C3DVector(1, 0, 0) ^ C3DVector(0, 1, 0)).z); // right-handed
}

TEST(Vector4D, WAndPlanes) {
  C4DVector v(1, 2, 3);
  C4DVector u;
  u = C3DVector(4, 5, 6);
  EXPECT_EQ(1.0f, u.w);
  u.w = 7;
  u.Normalize();
  EXPECT_EQ(7.0f, u.w);                                                // w takes no part
  EXPECT_EQ(1.0f * 1 + 2 * 2 + 3 * 3 + 1 * 1, v * C4DVector(1, 2, 3)); // w starts at 1

  C4DVector plane;
  plane.GetPlaneVector(C3DPoint(0, 0, 2), C3DPoint(1, 0, 2), C3DPoint(0, 1, 2));
  EXPECT_EQ(1.0f, plane.z); // counter-clockwise seen from +z
  EXPECT_EQ(-2.0f, plane.w);
  EXPECT_EQ(1.0f, C3DPoint(5, 5, 3) * plane);

  C4DVector line; // collinear points: all zero, no NaN
  line.GetPlaneVector(C3DPoint(0, 0, 0), C3DPoint(1, 1, 1), C3DPoint(2, 2, 2));
  EXPECT_TRUE(line.x == 0 && line.y == 0 && line.z == 0 && line.w == 0);
}

TEST(Point4D, CarrierCountsAndAsymmetricOperators) {
  C3DPoint p(1, 2, 3);
  C4DPoint c;
  p.To4DPoint(c);
  EXPECT_EQ(3, c.n);
  C2DPoint q;
  q = c; // first two components whatever the count
  EXPECT_EQ(1.0f, q.x);
  EXPECT_EQ(2.0f, q.y);
  q.To4DPoint(c);
  EXPECT_EQ(2, c.n);

  C4DPoint two(2, 1), three(3, 1);
  two[0] = 1;
  three[0] = 10;
  C4DPoint sum = two + three; // count of the right, loop over the left
  EXPECT_EQ(3, sum.n);
  EXPECT_EQ(11.0f, sum[0]);
  C4DPoint half = three / 2.0f;
  EXPECT_EQ(3, half.n);
  EXPECT_EQ(5.0f, half[0]);
  two += three; // over this tuple's own two components
  EXPECT_EQ(11.0f, two[0]);
  EXPECT_EQ(2, two.n);

  C4DPoint big(1000, 1); // counts beyond the storage never overrun it
  big.Init(-5);
  EXPECT_EQ(-5, big.n);
}
