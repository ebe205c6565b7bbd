#include "meshcore/containers/int_array_id.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using namespace meshcore;

std::vector<int> Values(const CIntArrayID& a) {
  return std::vector<int>(a.GetData(), a.GetData() + a.GetSize());
}

TEST(IntArrayID, GrowthAndSetSizeAcrossTheInlineRoom) {
  CIntArrayID g;
  for (int v = 1; v <= 14; ++v)
    g.Add(v * 10);
  EXPECT_EQ(g[0], 10);
  EXPECT_EQ(g[13], 140);

  CIntArrayID z(3, 1);
  EXPECT_EQ(Values(z), (std::vector<int>{0, 0, 0}));

  // Shrinking keeps the block; growing again zeroes what comes back into view.
  CIntArrayID s;
  for (int v = 1; v <= 8; ++v)
    s.Add(v);
  s.SetSize(2);
  s.SetSize(4);
  EXPECT_EQ(Values(s), (std::vector<int>{1, 2, 0, 0}));
  // Back into the inline room and out again, values intact.
  s.FreeExtra();
  EXPECT_EQ(Values(s), (std::vector<int>{1, 2, 0, 0}));
  s.Add(5);
  EXPECT_EQ(Values(s), (std::vector<int>{1, 2, 0, 0, 5}));
  s.RemoveAll();
  EXPECT_EQ(s.GetData(), nullptr);

  // A first size that fits inline takes exactly that room, zeroed.
  CIntArrayID a;
  a.SetSize(3);
  EXPECT_EQ(Values(a), (std::vector<int>{0, 0, 0}));
  a[0] = 7, a[1] = 8, a[2] = 9;
  // Shrinking and regrowing inside the room zeroes only what comes back.
  a.SetSize(1);
  a.SetSize(3);
  EXPECT_EQ(Values(a), (std::vector<int>{7, 0, 0}));
  // One past the room grows by the usual step, onto the heap, values kept.
  a.SetSize(4);
  EXPECT_EQ(Values(a), (std::vector<int>{7, 0, 0, 0}));
  // A heap block is reused for small sizes rather than given back.
  a.SetSize(2);
  a.SetSize(0);
  a.SetSize(-1);
  EXPECT_EQ(a.GetSize(), 0);
  EXPECT_EQ(a.GetData(), nullptr);
}

TEST(IntArrayID, SurvivesRawByteMoves) {
  // Element records holding arrays are moved with memcpy; no pointer may refer
  // back into the object.
  for (int n : {3, 4, 7}) {
    alignas(CIntArrayID) unsigned char from[sizeof(CIntArrayID)];
    alignas(CIntArrayID) unsigned char to[sizeof(CIntArrayID)];
    auto* a = new (from) CIntArrayID;
    for (int v = 0; v < n; ++v)
      a->Add(v + 1);
    std::memcpy(to, from, sizeof to);
    std::memset(from, 0xAB, sizeof from);
    auto* b = reinterpret_cast<CIntArrayID*>(to);
    ASSERT_EQ(b->GetSize(), n);
    for (int v = 0; v < n; ++v)
      EXPECT_EQ((*b)[v], v + 1);
    b->Add(99);
    EXPECT_EQ((*b)[n], 99);
    b->~CIntArrayID();
  }
}

TEST(IntArrayID, InsertRemoveAppendCopy) {
  CIntArrayID a;
  for (int v : {1, 2, 3})
    a.Add(v);
  a.InsertAt(1, 7, 2);
  EXPECT_EQ(Values(a), (std::vector<int>{1, 7, 7, 2, 3}));
  a.InsertAt(7, 9);
  EXPECT_EQ(Values(a), (std::vector<int>{1, 7, 7, 2, 3, 0, 0, 9}));
  a.RemoveAt(0, 3);
  EXPECT_EQ(Values(a), (std::vector<int>{2, 3, 0, 0, 9}));
  a.InsertAt(1, &a);
  EXPECT_EQ(Values(a), (std::vector<int>{2, 2, 3, 0, 0, 9, 3, 0, 0, 9}));
  CIntArrayID b;
  b.Add(4);
  EXPECT_EQ(b.Append(b), 1);
  EXPECT_EQ(b.Append(a), 2);
  EXPECT_EQ(b.GetSize(), 12);
  CIntArrayID d(std::move(b));
  EXPECT_EQ(b.GetSize(), 0);
  b = a;
  b.SetAtGrow(11, 5);
  EXPECT_EQ(b.GetSize(), 12);
  EXPECT_EQ(b[10], 0);
}

} // namespace
