#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/geometry/point_2d.h"
#include "meshcore/geometry/point_3d.h"
#include "meshcore/geometry/rgb_color.h"
#include "meshcore/geometry/vector_4d.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace meshcore;

namespace {

template <class T> std::vector<std::uint8_t> Store(T& obj) {
  CMemFile file;
  {
    CArchive ar(&file, CArchive::store);
    obj.Serialize(ar);
    ar.Flush();
  }
  return file.Data();
}

template <class T> void Load(const std::vector<std::uint8_t>& bytes, T& obj) {
  CMemFile file(bytes);
  CArchive ar(&file, CArchive::load);
  obj.Serialize(ar);
}

std::vector<std::uint8_t> Le(std::initializer_list<float> fs, std::uint32_t* flags = nullptr) {
  std::vector<std::uint8_t> out;
  auto put = [&](std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
      out.push_back(std::uint8_t(v >> (8 * i)));
  };
  if (flags)
    put(*flags);
  for (float f : fs) {
    std::uint32_t v;
    std::memcpy(&v, &f, 4);
    put(v);
  }
  return out;
}

} // namespace

TEST(GeometryArchive, PointLayoutsAndRoundTrips) {
  std::uint32_t flags = PT_BORDER | PT_WELDED;
  C3DPoint p(1.5f, -2, 3);
  p.SetFlags(flags);
  auto bytes = Store(p);
  EXPECT_EQ(Le({1.5f, -2, 3}, &flags), bytes);
  C3DPoint q;
  Load(bytes, q);
  EXPECT_EQ(p, q);
  EXPECT_EQ(flags, q.GetFlags());

  C2DPoint p2(0.25f, 8);
  p2.SetFlags(PT_SELECTED);
  std::uint32_t f2 = PT_SELECTED;
  bytes = Store(p2);
  EXPECT_EQ(Le({0.25f, 8}, &f2), bytes);

  C3DVector v(4, 5, 6);
  bytes = Store(v);
  EXPECT_EQ(Le({4, 5, 6}), bytes); // no flags

  C4DVector h(1, 2, 3);
  h.w = -4;
  bytes = Store(h);
  EXPECT_EQ(Le({1, 2, 3, -4}), bytes);
  C4DVector k;
  Load(bytes, k);
  EXPECT_EQ(-4.0f, k.w);

  // A truncated record is the archive's error, not a silent partial read.
  bytes.pop_back();
  EXPECT_THROW(Load(bytes, k), CArchiveException);
}

TEST(GeometryArchive, MatrixAndColorLayouts) {
  C4x4Matrix m;
  for (int i = 0; i < 16; ++i)
    m(i / 4, i % 4) = float(i) + 0.5f;
  auto bytes = Store(m);
  EXPECT_EQ(Le({0.5f, 1.5f, 2.5f, 3.5f, 4.5f, 5.5f, 6.5f, 7.5f, 8.5f, 9.5f, 10.5f, 11.5f, 12.5f,
                13.5f, 14.5f, 15.5f}),
            bytes);
  C4x4Matrix n(1);
  Load(bytes, n);
  EXPECT_EQ(m, n);

  CRGBColor c(10, 20, 30, 40);
  bytes = Store(c);
  EXPECT_EQ((std::vector<std::uint8_t>{10, 20, 30, 40}), bytes);
  CRGBColor d;
  Load(bytes, d);
  EXPECT_EQ(c, d);
}

TEST(GeometryArchive, PolymorphicPointThroughObjectReferences) {
  C3DPoint p(7, 8, 9);
  CMemFile file;
  {
    CArchive ar(&file, CArchive::store);
    ar.WriteObject(&p);
    ar.Flush();
  }
  file.Seek(0);
  CArchive ar(&file, CArchive::load);
  CObject* obj = ar.ReadObject(MESHCORE_RUNTIME_CLASS(CPt));
  ASSERT_NE(nullptr, obj);
  ASSERT_TRUE(obj->IsKindOf(MESHCORE_RUNTIME_CLASS(C3DPoint)));
  EXPECT_EQ(p, *static_cast<C3DPoint*>(obj));
  delete obj;
}
