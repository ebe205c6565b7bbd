#include "meshcore/platform/archive.h"
#include "meshcore/platform/exceptions.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace meshcore {

// Small serialisable classes; instances are counted to catch leaks on failure.
class CTestPoint : public CObject {
  MESHCORE_DECLARE_SERIAL(CTestPoint)
public:
  CTestPoint() { ++s_live; }
  ~CTestPoint() override { --s_live; }
  void Serialize(CArchive& ar) override {
    if (ar.IsStoring())
      ar << x;
    else
      ar >> x;
  }
  std::int32_t x = 0;
  static inline int s_live = 0;
};
MESHCORE_IMPLEMENT_SERIAL(CTestPoint, CObject, 1)

class CTestMarker : public CObject {
  MESHCORE_DECLARE_SERIAL(CTestMarker)
};
MESHCORE_IMPLEMENT_SERIAL(CTestMarker, CObject, 3)

// Owns a child read through ReadObject, like a list owning its elements.
class CTestNode : public CObject {
  MESHCORE_DECLARE_SERIAL(CTestNode)
public:
  CTestNode() { ++s_live; }
  ~CTestNode() override {
    --s_live;
    delete child;
  }
  void Serialize(CArchive& ar) override {
    if (ar.IsStoring()) {
      ar.WriteObject(child);
      ar << tail;
    } else {
      child = static_cast<CTestPoint*>(ar.ReadObject(MESHCORE_RUNTIME_CLASS(CTestPoint)));
      ar >> tail;
    }
  }
  CTestPoint* child = nullptr;
  std::uint32_t tail = 0;
  static inline int s_live = 0;
};
MESHCORE_IMPLEMENT_SERIAL(CTestNode, CObject, 1)

namespace {

using Bytes = std::vector<std::uint8_t>;

template <class F> Bytes Store(F&& f) {
  CMemFile mem;
  CArchive ar(&mem, CArchive::store);
  f(ar);
  ar.Flush();
  return mem.Data();
}

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const auto& p : parts)
    out.insert(out.end(), p.begin(), p.end());
  return out;
}

Bytes Ascii(const std::string& s) {
  return Bytes(s.begin(), s.end());
}

int ArchiveCause(const Bytes& data, void (*read)(CArchive&)) {
  CMemFile mem(data);
  CArchive ar(&mem, CArchive::load);
  try {
    read(ar);
  } catch (const CArchiveException& e) {
    return e.m_cause;
  }
  return -1;
}

} // namespace

TEST(Archive, ScalarsAreLittleEndianAndRoundTrip) {
  const Bytes bytes = Store([](CArchive& ar) {
    ar << std::int8_t{-2} << std::uint8_t{0xAB} << std::int16_t{-300} << std::uint16_t{0xBEEF}
       << std::int32_t{-70000} << std::uint32_t{0x01020304u} << std::int64_t{-5000000000LL}
       << std::uint64_t{0x0102030405060708ull} << 1.0f << -2.5;
  });
  ASSERT_EQ(bytes.size(), 1u + 1 + 2 + 2 + 4 + 4 + 8 + 8 + 4 + 8);
  EXPECT_EQ(Bytes(bytes.begin() + 10, bytes.begin() + 14), (Bytes{4, 3, 2, 1}));
  EXPECT_EQ(Bytes(bytes.begin() + 22, bytes.begin() + 30), (Bytes{8, 7, 6, 5, 4, 3, 2, 1}));
  EXPECT_EQ(Bytes(bytes.begin() + 30, bytes.begin() + 34), (Bytes{0, 0, 0x80, 0x3F}));

  CMemFile mem(bytes);
  CArchive ar(&mem, CArchive::load);
  std::int8_t a;
  std::uint8_t b;
  std::int16_t c;
  std::uint16_t d;
  std::int32_t e;
  std::uint32_t f;
  std::int64_t g;
  std::uint64_t h;
  float i;
  double j;
  ar >> a >> b >> c >> d >> e >> f >> g >> h >> i >> j;
  EXPECT_TRUE(a == -2 && c == -300 && e == -70000 && g == -5000000000LL && j == -2.5);
  EXPECT_EQ(ar.Remaining(), 0u);
  EXPECT_THROW(ar >> a, CArchiveException);
}

TEST(Archive, CountEncodingAtEveryEscape) {
  struct Case {
    std::uint64_t n;
    Bytes bytes;
  };
  const Case cases[] = {
      {0, {0, 0}},
      {0xFFFE, {0xFE, 0xFF}},
      {0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0}},
      {0x10000, {0xFF, 0xFF, 0, 0, 1, 0}},
      {0xFFFFFFFEull, {0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF}},
      {0xFFFFFFFFull, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}},
      {0x123456789ull, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x89, 0x67, 0x45, 0x23, 1, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    const Bytes bytes = Store([&](CArchive& ar) { ar.WriteCount(c.n); });
    EXPECT_EQ(bytes, c.bytes) << c.n;
    CMemFile mem(bytes);
    CArchive ar(&mem, CArchive::load);
    EXPECT_EQ(ar.ReadCount(0), c.n); // 0: no room check, the elements are not there
  }
}

TEST(Archive, CountsAreCheckedAgainstTheBytesLeft) {
  // 3 elements of 4 bytes need 12 bytes; 11 are there.
  Bytes data = Cat({{3, 0}, Bytes(11, 0)});
  {
    CMemFile mem(data);
    CArchive ar(&mem, CArchive::load);
    EXPECT_EQ(ar.ReadCount(), 3u);
    EXPECT_THROW(ar.CheckAvailable(3, 4), CArchiveException);
    EXPECT_NO_THROW(ar.CheckAvailable(2, 4));
  }
  EXPECT_EQ(ArchiveCause(data, [](CArchive& ar) { ar.ReadCount(4); }),
            CArchiveException::endOfFile);
  // A huge 64-bit count in a tiny stream.
  EXPECT_EQ(ArchiveCause({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0x10},
                         [](CArchive& ar) { ar.ReadCount(); }),
            CArchiveException::endOfFile);
}

TEST(Archive, StringLengthForms) {
  auto stored = [](std::size_t n) {
    return Store([&](CArchive& ar) { ar << std::string(n, 'a'); });
  };
  EXPECT_EQ(Bytes(stored(0)), (Bytes{0}));
  EXPECT_EQ(Bytes(stored(254)), Cat({{0xFE}, Bytes(254, 'a')}));
  EXPECT_EQ(Bytes(stored(255)), Cat({{0xFF, 0xFF, 0x00}, Bytes(255, 'a')}));
  EXPECT_EQ(Bytes(stored(65533)), Cat({{0xFF, 0xFD, 0xFF}, Bytes(65533, 'a')}));
  EXPECT_EQ(Bytes(stored(65534)), Cat({{0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0, 0}, Bytes(65534, 'a')}));

  const std::vector<std::string> texts = {"",
                                          "x",
                                          std::string(254, 'b'),
                                          std::string(255, 'c'),
                                          std::string(65534, 'd'),
                                          "Matière \xE2\x82\xAC"};
  const Bytes bytes = Store([&](CArchive& ar) {
    for (const auto& t : texts)
      ar << t;
  });
  CMemFile mem(bytes);
  CArchive ar(&mem, CArchive::load);
  for (const auto& t : texts) {
    std::string s = "junk";
    ar >> s;
    EXPECT_EQ(s, t);
  }
}

TEST(Archive, ReadsTheSixteenBitStringForm) {
  const Bytes bytes = Store([](CArchive& ar) {
    ar.WriteString16(u"h\u00e9 \u20ac\U0001D11E");
    ar.WriteString16(std::u16string(300, u'z'));
  });
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 4), (Bytes{0xFF, 0xFE, 0xFF, 6}));
  CMemFile mem(bytes);
  CArchive ar(&mem, CArchive::load);
  std::string s;
  ar >> s;
  EXPECT_EQ(s, "h\xC3\xA9 \xE2\x82\xAC\xF0\x9D\x84\x9E");
  ar >> s;
  EXPECT_EQ(s, std::string(300, 'z'));

  // Unpaired surrogates (a high one at the end, a low one alone) become U+FFFD.
  CMemFile bad(Bytes{0xFF, 0xFE, 0xFF, 3, 0x41, 0, 0x00, 0xDC, 0x3D, 0xD8});
  CArchive ar2(&bad, CArchive::load);
  ar2 >> s;
  EXPECT_EQ(s, "A\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Archive, ClassAndObjectReferences) {
  CTestPoint p1, p2;
  p1.x = 7;
  p2.x = 9;
  const Bytes bytes = Store([&](CArchive& ar) {
    ar.WriteObject(&p1);
    ar.WriteObject(&p2);
    ar.WriteObject(&p1);
    ar.WriteObject(nullptr);
  });
  const Bytes expected = Cat({{0xFF, 0xFF, 1, 0, 10, 0},
                              Ascii("CTestPoint"),
                              {7, 0, 0, 0},
                              {0x01, 0x80},
                              {9, 0, 0, 0}, // class 1 again, object 3
                              {0x02, 0x00}, // p1 is object 2
                              {0x00, 0x00}});
  EXPECT_EQ(bytes, expected);

  CMemFile mem(bytes);
  CArchive ar(&mem, CArchive::load);
  std::unique_ptr<CObject> a(ar.ReadObject(MESHCORE_RUNTIME_CLASS(CTestPoint)));
  std::unique_ptr<CObject> b(ar.ReadObject(nullptr));
  CObject* again = ar.ReadObject(MESHCORE_RUNTIME_CLASS(CObject));
  EXPECT_EQ(again, a.get());
  EXPECT_EQ(ar.ReadObject(nullptr), nullptr);
  ASSERT_TRUE(a && b);
  EXPECT_EQ(static_cast<CTestPoint*>(a.get())->x, 7);
  EXPECT_EQ(static_cast<CTestPoint*>(b.get())->x, 9);
  EXPECT_EQ(ar.GetObjectSchema(), 1u);
}

TEST(Archive, IndicesFromSevenFFFUseTheLongForm) {
  // Class index 1, objects 2..0x7FFF, then a second class at 0x8000.
  std::vector<CTestMarker> markers(0x7FFE);
  CTestPoint point;
  const Bytes bytes = Store([&](CArchive& ar) {
    for (const auto& m : markers)
      ar.WriteObject(&m);
    ar.WriteObject(&markers.back());
    ar.WriteObject(&point);
    ar.WriteObject(&point);
    CTestPoint other;
    ar.WriteObject(&other);
  });
  // Skip the first object (full class) and the other one-tag objects.
  const std::size_t classBytes = 6 + 11;
  std::size_t pos = classBytes + (0x7FFE - 1) * 2;
  EXPECT_EQ(Bytes(bytes.begin() + pos - 2, bytes.begin() + pos), (Bytes{0x01, 0x80}));
  EXPECT_EQ(Bytes(bytes.begin() + pos, bytes.begin() + pos + 6),
            (Bytes{0xFF, 0x7F, 0xFF, 0x7F, 0, 0})); // back-reference to object 0x7FFF
  pos += 6 + 6 + 10 + 4;                            // new class CTestPoint, point
  EXPECT_EQ(Bytes(bytes.begin() + pos, bytes.begin() + pos + 6),
            (Bytes{0xFF, 0x7F, 0x01, 0x80, 0, 0})); // point is object 0x8001
  pos += 6;
  EXPECT_EQ(Bytes(bytes.begin() + pos, bytes.begin() + pos + 6),
            (Bytes{0xFF, 0x7F, 0x00, 0x80, 0, 0x80})); // class 0x8000
  EXPECT_EQ(bytes.size(), pos + 6 + 4);

  CMemFile mem(bytes);
  CArchive ar(&mem, CArchive::load);
  std::vector<std::unique_ptr<CObject>> owned;
  for (std::size_t i = 0; i < markers.size(); ++i)
    owned.emplace_back(ar.ReadObject(MESHCORE_RUNTIME_CLASS(CTestMarker)));
  EXPECT_EQ(ar.ReadObject(nullptr), owned.back().get());
  owned.emplace_back(ar.ReadObject(MESHCORE_RUNTIME_CLASS(CTestPoint)));
  EXPECT_EQ(ar.ReadObject(nullptr), owned.back().get());
  owned.emplace_back(ar.ReadObject(MESHCORE_RUNTIME_CLASS(CTestPoint)));
  EXPECT_TRUE(owned.back()->IsKindOf(MESHCORE_RUNTIME_CLASS(CTestPoint)));
  EXPECT_EQ(ar.Remaining(), 0u);
}

TEST(Archive, DamagedArchivesThrow) {
  CTestNode node;
  node.child = new CTestPoint;
  node.child->x = 42;
  node.tail = 5;
  const Bytes good = Store([&](CArchive& ar) {
    ar.WriteObject(&node);
    ar << std::string("tail text");
  });
  // Every truncation throws and leaves nothing behind.
  for (std::size_t n = 0; n < good.size(); ++n) {
    EXPECT_EQ(ArchiveCause(Bytes(good.begin(), good.begin() + n),
                           [](CArchive& ar) {
                             delete ar.ReadObject(nullptr);
                             std::string s;
                             ar >> s;
                           }),
              CArchiveException::endOfFile)
        << n;
  }
  EXPECT_EQ(CTestPoint::s_live, 1);
  EXPECT_EQ(CTestNode::s_live, 1);

  auto readObject = [](CArchive& ar) { delete ar.ReadObject(nullptr); };
  auto readString = [](CArchive& ar) {
    std::string s;
    ar >> s;
  };
  // A string longer than the stream, in both forms.
  EXPECT_EQ(ArchiveCause({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'a'}, readString),
            CArchiveException::endOfFile);
  EXPECT_EQ(ArchiveCause({0xFF, 0xFE, 0xFF, 3, 'a', 0, 'b', 0}, readString),
            CArchiveException::endOfFile);
  // Unknown class name.
  EXPECT_EQ(ArchiveCause(Cat({{0xFF, 0xFF, 1, 0, 5, 0}, Ascii("CNope"), {0, 0, 0, 0}}), readObject),
            CArchiveException::badClass);
  // A class name longer than the stream.
  EXPECT_EQ(ArchiveCause({0xFF, 0xFF, 1, 0, 0xFF, 0xFF, 'C'}, readObject),
            CArchiveException::endOfFile);
  // Indices never seen: object, class, long object, long class.
  EXPECT_EQ(ArchiveCause({5, 0}, readObject), CArchiveException::badIndex);
  EXPECT_EQ(ArchiveCause({5, 0x80}, readObject), CArchiveException::badIndex);
  EXPECT_EQ(ArchiveCause({0xFF, 0x7F, 0x00, 0x90, 0, 0}, readObject), CArchiveException::badIndex);
  EXPECT_EQ(ArchiveCause({0xFF, 0x7F, 0x05, 0, 0, 0x80}, readObject), CArchiveException::badIndex);
  // A class index used as an object, and an object index used as a class.
  const Bytes point = Cat({{0xFF, 0xFF, 1, 0, 10, 0}, Ascii("CTestPoint"), {1, 0, 0, 0}});
  auto pointThenObject = [](CArchive& ar) {
    std::unique_ptr<CObject> keep(ar.ReadObject(nullptr));
    ar.ReadObject(nullptr);
  };
  EXPECT_EQ(ArchiveCause(Cat({point, {1, 0}}), pointThenObject), CArchiveException::badIndex);
  EXPECT_EQ(ArchiveCause(Cat({point, {2, 0x80}}), pointThenObject), CArchiveException::badIndex);
  EXPECT_EQ(ArchiveCause(Cat({point, {2, 0}}),
                         [](CArchive& ar) {
                           std::unique_ptr<CObject> keep(ar.ReadObject(nullptr));
                           ar.ReadClass();
                         }),
            CArchiveException::badIndex);
  // The wrong class, as a new object and as a back-reference.
  EXPECT_EQ(
      ArchiveCause(point, [](CArchive& ar) { ar.ReadObject(MESHCORE_RUNTIME_CLASS(CTestNode)); }),
      CArchiveException::badClass);
  EXPECT_EQ(ArchiveCause(Cat({point, {2, 0}}),
                         [](CArchive& ar) {
                           std::unique_ptr<CObject> keep(ar.ReadObject(nullptr));
                           ar.ReadObject(MESHCORE_RUNTIME_CLASS(CTestMarker));
                         }),
            CArchiveException::badClass);
  // An abstract class cannot be created.
  EXPECT_EQ(ArchiveCause(Cat({{0xFF, 0xFF, 1, 0, 7, 0}, Ascii("CObject")}), readObject),
            CArchiveException::badClass);
  EXPECT_EQ(CTestPoint::s_live, 1);
  EXPECT_EQ(CTestNode::s_live, 1);
}

TEST(Archive, FailedReadObjectForgetsWhatItDestroyed) {
  // A node whose child is read, then the node fails: the child is freed with it,
  // so a later reference to the child's index must be refused, not followed.
  const Bytes bytes = Cat({{0xFF, 0xFF, 1, 0, 9, 0},
                           Ascii("CTestNode"), // class 1
                           {0xFF, 0xFF, 1, 0, 10, 0},
                           Ascii("CTestPoint"),
                           {1, 0, 0, 0},   // 3
                           {0xFF, 0x00}}); // tail cut short
  CMemFile mem(bytes);
  CArchive ar(&mem, CArchive::load);
  EXPECT_THROW(ar.ReadObject(nullptr), CArchiveException);
  EXPECT_EQ(CTestPoint::s_live, 0);
  EXPECT_EQ(CTestNode::s_live, 0);
  // Append references to the node (2) and its child (3) and read on.
  const std::uint64_t end = mem.Data().size();
  mem.Seek(end);
  const std::uint8_t refs[] = {3, 0, 2, 0};
  mem.Write(refs, sizeof refs);
  mem.Seek(end);
  for (int i = 0; i < 2; ++i) {
    try {
      ar.ReadObject(nullptr);
      FAIL() << "a destroyed object was returned";
    } catch (const CArchiveException& e) {
      EXPECT_EQ(e.m_cause, CArchiveException::badIndex);
    }
  }
}

TEST(Archive, DirectionIsEnforced) {
  auto cause = [](auto&& op) {
    try {
      op();
    } catch (const CArchiveException& e) {
      return e.m_cause;
    }
    return -1;
  };
  CMemFile mem;
  std::uint32_t v = 0;
  CArchive store(&mem, CArchive::store);
  EXPECT_EQ(cause([&] { store >> v; }), CArchiveException::writeOnly);
  CArchive load(&mem, CArchive::load);
  EXPECT_EQ(cause([&] { load << v; }), CArchiveException::readOnly);
}

} // namespace meshcore
