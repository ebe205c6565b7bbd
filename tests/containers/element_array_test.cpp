#include "meshcore/containers/element_array.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <vector>

namespace {

using namespace meshcore;

// A tiny element kind that owns heap memory, so leaks and double frees show up
// in the live counter and under the sanitizers.
struct Rec {
  std::int32_t value;
  std::int16_t* extra;
};
int g_live = 0;

class CRecArray : public CElementArray {
public:
  CRecArray() : CElementArray(sizeof(Rec)) {}
  ~CRecArray() override { RemoveAll(); }
  using CElementArray::operator=;

  void ConstructElement(void* p) override {
    new (p) Rec{0, new std::int16_t(0)};
    ++g_live;
  }
  void DestructElement(void* p) override {
    delete static_cast<Rec*>(p)->extra;
    --g_live;
  }
  void CopyElement(void* dst, void* src) override {
    auto* d = static_cast<Rec*>(dst);
    auto* s = static_cast<Rec*>(src);
    d->value = s->value;
    *d->extra = *s->extra;
  }
  void SerializeElement(CArchive& ar, void* p) override {
    auto* r = static_cast<Rec*>(p);
    if (ar.IsStoring())
      ar << r->value << *r->extra;
    else
      ar >> r->value >> *r->extra;
  }
  std::uint32_t GetMinArchivedElementSize() const override { return 6; }

  void Push(int v) {
    std::int16_t e = static_cast<std::int16_t>(-v);
    Rec r{v, &e};
    Add(&r);
  }
  int At(int i) { return static_cast<Rec*>((*this)[i])->value; }
  std::vector<int> Values() {
    std::vector<int> out;
    for (int i = 0; i < GetSize(); ++i)
      out.push_back(At(i));
    return out;
  }
};

class ElementArray : public ::testing::Test {
protected:
  void SetUp() override { g_live = 0; }
  void TearDown() override { EXPECT_EQ(g_live, 0); }
};

TEST_F(ElementArray, GrowthKeepsEveryRecord) {
  CRecArray a;
  for (int i = 0; i < 20000; ++i)
    a.Push(i);
  EXPECT_EQ(a.GetSize(), 20000);
  EXPECT_EQ(a.At(19999), 19999);
  EXPECT_EQ(g_live, 20000);
  a.SetSize(5);
  EXPECT_EQ(g_live, 5); // records cut off are destroyed
  EXPECT_EQ(a.Values(), (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(ElementArray, IdentityAndCopy) {
  CRecArray a, b;
  EXPECT_GT(b.GetID(), a.GetID());
  a.Push(1);
  a.Push(2);
  b.Push(9);
  b.Push(8);
  b.Push(7);
  b = a;
  EXPECT_EQ(b.GetID(), a.GetID());
  EXPECT_EQ(b.Values(), (std::vector<int>{1, 2}));
  *static_cast<Rec*>(b[0])->extra = 42; // deep copies, not shared
  EXPECT_EQ(*static_cast<Rec*>(a[0])->extra, -1);
  EXPECT_EQ(g_live, 4);
}

TEST_F(ElementArray, InsertRemoveAppend) {
  CRecArray a;
  for (int v : {0, 1, 2, 3})
    a.Push(v);
  std::int16_t e = 0;
  Rec r{7, &e};
  a.InsertAt(1, &r, 2);
  EXPECT_EQ(a.Values(), (std::vector<int>{0, 7, 7, 1, 2, 3}));
  a.InsertAt(8, &r); // beyond the end: fresh records fill the gap
  EXPECT_EQ(a.Values(), (std::vector<int>{0, 7, 7, 1, 2, 3, 0, 0, 7}));
  a.RemoveAt(1, 5);
  EXPECT_EQ(a.Values(), (std::vector<int>{0, 0, 0, 7}));
  EXPECT_EQ(g_live, 4);

  CRecArray b;
  b.Push(5);
  b.Push(6);
  a.InsertAt(1, &b);
  EXPECT_EQ(a.Values(), (std::vector<int>{0, 5, 6, 0, 0, 7}));
  EXPECT_EQ(a.Append(b), 6);
  EXPECT_EQ(a.Append(a), 8);
  EXPECT_EQ(a.Values(), (std::vector<int>{0, 5, 6, 0, 0, 7, 5, 6, 0, 5, 6, 0, 0, 7, 5, 6}));

  // An element of the array itself stays valid across the reallocation.
  CRecArray c;
  c.Push(11);
  c.Add(c[0]); // capacity 1: Add reallocates
  c.InsertAt(0, c[1], 3);
  EXPECT_EQ(c.Values(), (std::vector<int>{11, 11, 11, 11, 11}));
  EXPECT_EQ(g_live, 16 + 2 + 5);
}

std::vector<std::uint8_t> Store(CElementArray& a) {
  CMemFile f;
  {
    CArchive ar(&f, CArchive::store);
    a.Serialize(ar);
    ar.Flush();
  }
  return f.Data();
}

void Load(CElementArray& a, std::vector<std::uint8_t> bytes) {
  CMemFile f(std::move(bytes));
  CArchive ar(&f, CArchive::load);
  a.Serialize(ar);
}

TEST_F(ElementArray, ArchiveLayoutAndRoundTrip) {
  CRecArray a;
  a.SetSize(0, 3);
  a.Push(1);
  a.Push(-2);
  const std::vector<std::uint8_t> expected = {
      0x02, 0x00,                         // count
      0x10, 0x00, 0x00, 0x00,             // record size
      0x03, 0x00, 0x00, 0x00,             // grow-by
      0x01, 0x00, 0x00, 0x00, 0xFF, 0xFF, // 1, extra -1
      0xFE, 0xFF, 0xFF, 0xFF, 0x02, 0x00, // -2, extra 2
  };
  EXPECT_EQ(Store(a), expected);

  CRecArray b;
  b.Push(99);
  Load(b, expected);
  EXPECT_EQ(b.Values(), (std::vector<int>{1, -2}));
  EXPECT_EQ(*static_cast<Rec*>(b[1])->extra, 2);
  EXPECT_EQ(b.GetGrowBy(), 3);
  EXPECT_EQ(g_live, 4); // the scratch record was released

  // 0xFFFF elements and more: the escaped count form.
  CRecArray big;
  big.SetSize(70000);
  const auto bytes = Store(big);
  ASSERT_EQ(bytes.size(), 2 + 4 + 8 + 70000u * 6);
  EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 6),
            (std::vector<std::uint8_t>{0xFF, 0xFF, 0x70, 0x11, 0x01, 0x00}));
  CRecArray back;
  Load(back, bytes);
  EXPECT_EQ(back.GetSize(), 70000);
}

TEST_F(ElementArray, HostileArchives) {
  CRecArray a;
  for (int v = 0; v < 5; ++v)
    a.Push(v);
  const auto good = Store(a);

  // Every truncation throws and leaves nothing behind.
  for (std::size_t n = 0; n < good.size(); ++n) {
    CRecArray b;
    EXPECT_THROW(Load(b, std::vector<std::uint8_t>(good.begin(), good.begin() + n)),
                 CArchiveException)
        << n;
  }
  EXPECT_EQ(g_live, 5);

  // Counts the stream cannot hold are refused before anything is allocated.
  for (std::vector<std::uint8_t> head : {
           std::vector<std::uint8_t>{0xFE, 0xFF},                         // 65534
           std::vector<std::uint8_t>{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}, // 2^31 - 1
           std::vector<std::uint8_t>{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0, 1, 0, 0, 0},
       }) {
    head.insert(head.end(), {0x10, 0, 0, 0, 0, 0, 0, 0});
    head.resize(head.size() + 600, 0); // room for 100 elements only
    CRecArray b;
    EXPECT_THROW(Load(b, head), CArchiveException);
    EXPECT_EQ(b.GetCapacity(), 0);
  }
  // The record size must fit the whole count at 6 bytes each, not 1.
  {
    std::vector<std::uint8_t> head = {101, 0, 0x10, 0, 0, 0, 0, 0, 0, 0};
    head.resize(head.size() + 600, 0);
    CRecArray b;
    EXPECT_THROW(Load(b, head), CArchiveException);
    EXPECT_EQ(b.GetCapacity(), 0);
  }

  // A foreign record size does not change the storage layout; an absurd grow-by
  // falls back to automatic growth.
  auto odd = good;
  odd[2] = 0xF0;
  odd[3] = 0xFF;
  odd[6] = odd[7] = odd[8] = odd[9] = 0xFF;
  CRecArray c;
  Load(c, odd);
  EXPECT_EQ(c.GetRecordSize(), sizeof(Rec));
  EXPECT_EQ(c.Values(), (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_EQ(c.GetGrowBy(), 0);
  c.Push(5);
  EXPECT_EQ(c.Values(), (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

} // namespace
