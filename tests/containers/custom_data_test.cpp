#include "meshcore/containers/custom_data.h"

#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"

#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

using namespace meshcore;
namespace fs = std::filesystem;

namespace {

constexpr unsigned Code(const char (&s)[5]) {
  return (unsigned(std::uint8_t(s[0])) << 24) | (unsigned(std::uint8_t(s[1])) << 16) |
         (unsigned(std::uint8_t(s[2])) << 8) | unsigned(std::uint8_t(s[3]));
}

std::vector<std::uint8_t> Store(CCustomData& cd) {
  CMemFile mem;
  CArchive ar(&mem, CArchive::store);
  cd.Serialize(ar);
  return mem.Data();
}

void Load(CCustomData& cd, std::vector<std::uint8_t> bytes) {
  CMemFile mem(std::move(bytes));
  CArchive ar(&mem, CArchive::load);
  cd.Serialize(ar);
}

std::uint32_t U32(const std::uint8_t* p) {
  std::uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}
std::uint64_t U64(const std::uint8_t* p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

// Ids of the entries in block order.
std::vector<unsigned> Ids(const CCustomData& cd) {
  unsigned size = 0;
  const auto* b = static_cast<const std::uint8_t*>(cd.GetData(size));
  std::vector<unsigned> ids;
  for (unsigned pos = 0; pos < size; pos += U32(b + pos + 4) + 23)
    ids.push_back(U32(b + pos));
  return ids;
}

} // namespace

TEST(CustomData, BlockLayoutIsPackedWithoutAlignment) {
  CCustomData cd;
  EXPECT_EQ(Store(cd), (std::vector<std::uint8_t>{0x54, 0x53, 0x55, 0x43, 0, 0, 0, 0}));

  cd.SetInt(Code("AAAA"), 0x11223344);
  unsigned size = 0;
  const auto* b = static_cast<const std::uint8_t*>(cd.GetData(size));
  ASSERT_EQ(size, 27u);
  EXPECT_EQ(U32(b), Code("AAAA"));
  EXPECT_EQ(U32(b + 4), 4u);
  EXPECT_EQ(U64(b + 8), 0u);
  EXPECT_EQ(U32(b + 16), 0x11223344u);
  for (int i = 20; i < 27; ++i)
    EXPECT_EQ(b[i], 0) << i;

  // The second entry starts at an odd offset; its data is 8 bytes.
  cd.SetDouble(Code("BBBB"), 1.5);
  b = static_cast<const std::uint8_t*>(cd.GetData(size));
  ASSERT_EQ(size, 27u + 31u);
  EXPECT_EQ(U64(b + 8), 1u); // first links on
  EXPECT_EQ(U32(b + 27), Code("BBBB"));
  EXPECT_EQ(U64(b + 27 + 8), 0u); // last ends the chain

  const std::vector<std::uint8_t> bytes = Store(cd);
  ASSERT_EQ(bytes.size(), 8u + size);
  EXPECT_EQ(U32(bytes.data() + 4), size);
  EXPECT_EQ(std::memcmp(bytes.data() + 8, b, size), 0);
}

TEST(CustomData, TypedValuesAreCheckedOnlyBySize) {
  CCustomData cd;
  const unsigned id = Code("IOCL");
  cd.SetInt(id, 5);
  float f = 0;
  EXPECT_EQ(cd.GetFloat(id, f, 1.0f), 1);
  int bits = 0;
  std::memcpy(&bits, &f, 4);
  EXPECT_EQ(bits, 5);
  double d = 0;
  EXPECT_EQ(cd.GetDouble(id, d, 2.0), 0);
  EXPECT_EQ(d, 2.0);
  int missing = 0;
  EXPECT_EQ(cd.GetInt(Code("NONE"), missing, 42), 0);
  EXPECT_EQ(missing, 42);

  std::string s = "x";
  cd.SetString(Code("STR "), "");
  EXPECT_EQ(cd.GetDataSize(Code("STR ")), 1u);
  EXPECT_EQ(cd.GetString(Code("STR "), s, "default"), 1);
  EXPECT_EQ(s, "");
  EXPECT_EQ(cd.GetString(Code("NONE"), s, "default"), 0);
  EXPECT_EQ(s, "default");

  const std::vector<std::string> names{"a", "", "bcd"};
  cd.SetStringArray(Code("ARR "), names);
  EXPECT_EQ(cd.GetDataSize(Code("ARR ")), 7u);
  std::list<std::string> asList;
  EXPECT_EQ(cd.GetStringList(Code("ARR "), asList), 1);
  EXPECT_EQ(std::vector<std::string>(asList.begin(), asList.end()), names);
  cd.SetStringArray(Code("ARR "), {});
  EXPECT_EQ(cd.HasData(Code("ARR ")), 0);
}

TEST(CustomData, ResizedValuesMoveToTheEndAndEqualityIgnoresOrder) {
  const unsigned a = Code("AAAA"), b = Code("BBBB"), c = Code("CCCC");
  CCustomData one;
  one.SetInt(a, 1);
  one.SetInt(b, 2);
  one.SetInt(c, 3);
  one.SetInt(a, 7); // same size: stays first
  EXPECT_EQ(Ids(one), (std::vector<unsigned>{a, b, c}));
  one.SetDouble(a, 3.0); // new size: moves last
  EXPECT_EQ(Ids(one), (std::vector<unsigned>{b, c, a}));
  one.RemoveCustom(c);
  EXPECT_EQ(Ids(one), (std::vector<unsigned>{b, a}));

  CCustomData two;
  two.SetDouble(a, 3.0);
  two.SetInt(b, 2);
  EXPECT_EQ(one.IsEqual(two), 1);
  two.SetInt(c, 0);
  EXPECT_EQ(one.IsEqual(two), 0); // a subset is not equal, either way round
  EXPECT_EQ(two.IsEqual(one), 0);

  // A value taken from the record itself survives the move of the block.
  one.SetCustom(c, one.GetCustomPtr(a), one.GetDataSize(a));
  double d = 0;
  EXPECT_EQ(one.GetDouble(c, d), 1);
  EXPECT_EQ(d, 3.0);

  one.SetCustom(a, nullptr, 0); // an empty value only removes
  EXPECT_EQ(one.HasData(a), 0);
}

TEST(CustomData, CopyModesNestingAndAssignment) {
  const unsigned a = Code("AAAA"), b = Code("BBBB"), n = Code("NEST");
  CCustomData mine, theirs;
  mine.SetInt(a, 1);
  theirs.SetInt(a, 10);
  theirs.SetInt(b, 20);
  int v = 0;

  CCustomData keep(mine);
  keep.Copy(&theirs, 3);
  keep.GetInt(a, v);
  EXPECT_EQ(v, 1);
  keep.GetInt(b, v);
  EXPECT_EQ(v, 20);

  CCustomData overwrite(mine);
  overwrite.Copy(&theirs, 2);
  overwrite.GetInt(a, v);
  EXPECT_EQ(v, 10);

  CCustomData assigned(mine);
  assigned.SetInt(Code("GONE"), 3);
  assigned.Copy(&theirs, 0);
  EXPECT_EQ(assigned.IsEqual(theirs), 1);

  CCustomData picked;
  picked.CopyID(&theirs, b, Code("NONE"), 0u);
  EXPECT_EQ(Ids(picked), (std::vector<unsigned>{b}));

  CCustomData outer;
  outer.SetCustomData(n, mine);
  outer.AddToCustomData(n, theirs, 1);
  CCustomData inner;
  inner.SetInt(Code("JUNK"), 1);
  EXPECT_EQ(outer.GetCustomData(n, inner), 1);
  EXPECT_EQ(inner.IsEqual(keep), 1);

  // Copies are deep; assignment from a null pointer empties.
  CCustomData copy;
  copy = outer;
  outer.RemoveAll();
  EXPECT_EQ(copy.GetCustomData(n, inner), 1);
  copy = static_cast<const CCustomData*>(nullptr);
  EXPECT_EQ(copy.HasData(), 0);
}

TEST(CustomData, ArchiveRoundTripAndDamagedInput) {
  CCustomData cd;
  cd.SetInt(Code("AAAA"), 1);
  cd.SetString(Code("BBBB"), "text");
  const std::vector<std::uint8_t> good = Store(cd);

  CCustomData back;
  back.SetInt(Code("OLD "), 9);
  Load(back, good);
  EXPECT_EQ(back.IsEqual(cd), 1);
  EXPECT_EQ(back.HasData(Code("OLD ")), 0);
  EXPECT_EQ(Store(back), good);
  back.SetInt(Code("CCCC"), 3); // links are usable after loading
  EXPECT_EQ(back.GetCount(), 3);

  auto bad = good;
  bad[0] = 'X';
  EXPECT_THROW(Load(back, bad), CFileException);

  bad = good;
  bad.pop_back();
  EXPECT_THROW(Load(back, bad), CException);

  bad = good; // first entry's size runs past the block
  bad[8 + 4] = 0xFF;
  EXPECT_THROW(Load(back, bad), CFileException);

  bad = good; // the last entry claims a successor
  bad[8 + 27 + 8] = 1;
  EXPECT_THROW(Load(back, bad), CFileException);

  bad = good; // the chain ends before the block does
  bad[8 + 8] = 0;
  EXPECT_THROW(Load(back, bad), CFileException);

  bad = {0x54, 0x53, 0x55, 0x43, 0xFF, 0xFF, 0xFF, 0x7F, 1, 2, 3};
  EXPECT_THROW(Load(back, bad), CException);
  EXPECT_EQ(back.HasData(), 0);

  // Raw blocks given by callers go through the same checks.
  EXPECT_EQ(back.SetData(good.data() + 8, static_cast<unsigned>(good.size() - 8)), 1);
  EXPECT_EQ(back.IsEqual(cd), 1);
  EXPECT_EQ(back.SetData(good.data() + 8, 20), 0);
  EXPECT_EQ(back.HasData(), 0);
}

TEST(CustomData, PreferencesFileKeepsOneRecordPerClassAndDirection) {
  const fs::path dir = test::ScratchDir("custom_data_prefs");
  const std::string file = (dir / "testio.prefs").string();
  const unsigned ligt = Code("LIGT"), vrml = Code("VRML");

  CCustomData probe;
  EXPECT_EQ(probe.LoadFromPrefs(file, ligt, 1), 0);

  CCustomData load1, save1, vrmlLoad;
  load1.SetInt(Code("IOCL"), 1);
  save1.SetString(Code("NAME"), "saving");
  vrmlLoad.SetDouble(Code("SCAL"), 2.5);
  ASSERT_EQ(load1.SaveToPrefs(file, ligt, 1), 1);
  ASSERT_EQ(save1.SaveToPrefs(file, ligt, 0), 1);
  ASSERT_EQ(vrmlLoad.SaveToPrefs(file, vrml, 1), 1);
  load1.SetInt(Code("IOCL"), 2);
  ASSERT_EQ(load1.SaveToPrefs(file, ligt, 1), 1); // replaces, moves last
  EXPECT_FALSE(fs::exists(file + ".tmp"));

  std::ifstream in(file, std::ios::binary);
  const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
  ASSERT_GE(bytes.size(), 4u);
  EXPECT_EQ(U32(bytes.data()), 3u);
  EXPECT_EQ(U32(bytes.data() + 4), ligt); // the saving record now comes first
  EXPECT_EQ(U32(bytes.data() + 8), 0u);
  EXPECT_EQ(U32(bytes.data() + 12), CCustomData::kMagic);

  CCustomData got;
  ASSERT_EQ(got.LoadFromPrefs(file, ligt, 1), 1);
  EXPECT_EQ(got.IsEqual(load1), 1);
  ASSERT_EQ(got.LoadFromPrefs(file, ligt, 0), 1);
  EXPECT_EQ(got.IsEqual(save1), 1);
  ASSERT_EQ(got.LoadFromPrefs(file, vrml, 1), 1);
  EXPECT_EQ(got.IsEqual(vrmlLoad), 1);
  EXPECT_EQ(got.LoadFromPrefs(file, vrml, 0), 0);

  // A damaged tail costs only the damaged records; saving repairs the file.
  fs::resize_file(file, bytes.size() - 3);
  EXPECT_EQ(got.LoadFromPrefs(file, ligt, 0), 1);
  EXPECT_EQ(got.LoadFromPrefs(file, ligt, 1), 0);
  ASSERT_EQ(load1.SaveToPrefs(file, ligt, 1), 1);
  EXPECT_EQ(got.LoadFromPrefs(file, vrml, 1), 1);
  EXPECT_EQ(got.LoadFromPrefs(file, ligt, 1), 1);

  // A folder that cannot be written to leaves the file as it was.
  EXPECT_EQ(load1.SaveToPrefs((dir / "missing" / "io.prefs").string(), ligt, 1), 0);
}
