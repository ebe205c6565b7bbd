#include "meshcore/formats/common/detail/binary_cursor.h"
#include "meshcore/formats/common/detail/binary_writer.h"
#include "meshcore/formats/common/detail/chunk_walker.h"
#include "meshcore/formats/common/detail/corner_values.h"
#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/common/detail/text_cursor.h"
#include "meshcore/formats/common/detail/unique_names.h"
#include "meshcore/io/file_io.h"
#include "meshcore/platform/cancel.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace meshcore;
using namespace meshcore::codec;

namespace {

using ByteVec = std::vector<std::uint8_t>;

// Offset of the failure a call throws, or -1 when it does not throw.
template <class Fn> long long FailureOffset(Fn fn) {
  try {
    fn();
  } catch (const CFormatError& e) {
    return static_cast<long long>(e.GetOffset());
  }
  return -1;
}

} // namespace

TEST(BinaryCursor, BothOrdersStringsAndBounds) {
  const ByteVec bytes = {0x12, 0x34, 0x56, 0x78, 'a', 'b', 0, 0, 'c', 0, 'x', 0, 0, 0};
  CBinaryCursor be(bytes.data(), bytes.size(), ByteOrder::Big);
  EXPECT_EQ(be.U16(), 0x1234u);
  EXPECT_EQ(be.Offset(), 2u);
  CBinaryCursor le(bytes.data(), bytes.size(), ByteOrder::Little);
  EXPECT_EQ(le.U32(), 0x78563412u);
  EXPECT_EQ(le.ZString(true), "ab"); // "ab\0" padded to 4 bytes
  EXPECT_EQ(le.ZString(false), "c");
  EXPECT_EQ(le.FixedString(4), "x");
  EXPECT_TRUE(le.AtEnd());
  // Reads past the end fail at the position they started from, with nothing consumed.
  EXPECT_EQ(FailureOffset([&] { le.U8(); }), 14);
  CBinaryCursor sub = CBinaryCursor(bytes.data(), bytes.size(), ByteOrder::Big).Sub(3);
  EXPECT_EQ(FailureOffset([&] { sub.U32(); }), 0);
  // A string without terminator in its range fails rather than running on.
  CBinaryCursor cut(bytes.data(), bytes.data() + 4, bytes.data() + 6, ByteOrder::Big);
  EXPECT_EQ(FailureOffset([&] { cut.ZString(); }), 4);
  // A count of records must fit before anything is allocated for it.
  CBinaryCursor room(bytes.data(), bytes.size(), ByteOrder::Big);
  EXPECT_EQ(FailureOffset([&] { room.NeedRecords(3, 4); }), -1);
  EXPECT_EQ(FailureOffset([&] { room.NeedRecords(4, 4); }), 0);
  EXPECT_EQ(FailureOffset([&] { room.NeedRecords(0xFFFFFFFFFFFFull, 12); }), 0);
}

TEST(ChunkWalker, LayoutsPaddingAndSizesPastTheParent) {
  // IFF: odd body padded, the last pad may be missing.
  const ByteVec iff = {'A', 'B', 'C', 'D', 0,   0, 0, 3, 1, 2, 3,
                       0,   'E', 'F', 'G', 'H', 0, 0, 0, 1, 9};
  CChunkWalker walker(CBinaryCursor(iff.data(), iff.size(), ByteOrder::Big), kIffChunks);
  Chunk chunk;
  ASSERT_TRUE(walker.Next(chunk));
  EXPECT_EQ(chunk.id, MakeId("ABCD"));
  EXPECT_EQ(chunk.body.Remaining(), 3u);
  ASSERT_TRUE(walker.Next(chunk));
  EXPECT_EQ(chunk.offset, 12u);
  EXPECT_EQ(chunk.body.U8(), 9u);
  EXPECT_FALSE(walker.Next(chunk));

  // 3D Studio: little-endian 2-byte ids, sizes that count the 6-byte header.
  const ByteVec tds = {0x4D, 0x4D, 8, 0, 0, 0, 7, 7, 0x02, 0x00, 5, 0, 0, 0};
  CChunkWalker w3(CBinaryCursor(tds.data(), tds.size(), ByteOrder::Little), k3dsChunks);
  ASSERT_TRUE(w3.Next(chunk));
  EXPECT_EQ(chunk.id, 0x4D4Du);
  EXPECT_EQ(chunk.body.U16(), 0x0707u);
  EXPECT_EQ(FailureOffset([&] { w3.Next(chunk); }), 8); // size 5 < header
  const ByteVec past = {'A', 'B', 'C', 'D', 0, 0, 0, 9, 1};
  CChunkWalker wp(CBinaryCursor(past.data(), past.size(), ByteOrder::Big), kIffChunks);
  EXPECT_EQ(FailureOffset([&] { wp.Next(chunk); }), 0);
  const ByteVec cutHeader = {'A', 'B', 'C'};
  CChunkWalker wc(CBinaryCursor(cutHeader.data(), cutHeader.size(), ByteOrder::Big), kIffChunks);
  EXPECT_NE(FailureOffset([&] { wc.Next(chunk); }), -1);

  // A cancelled thread's walk stops before the next chunk.
  CCancelCheck cancel;
  CChunkWalker wx(CBinaryCursor(iff.data(), iff.size(), ByteOrder::Big), kIffChunks, &cancel);
  SetCancel(1, 0);
  EXPECT_FALSE(wx.Next(chunk));
  SetCancel(0, 0);
  EXPECT_TRUE(wx.IsCancelled());
}

TEST(BinaryWriter, ScopesFillTheirSizes) {
  // Lightwave's rule: an odd body is padded and the size counts the pad.
  CBinaryWriter be(ByteOrder::Big);
  CBinaryWriter::SizeField iff{4, false, 0, true, true};
  {
    auto outer = be.Chunk(MakeId("FORM"), 4, iff);
    auto inner = be.Chunk(MakeId("ABCD"), 4, {2, false, 0, true, true});
    be.U8(7);
  }
  EXPECT_EQ(be.GetBuffer(),
            (ByteVec{'F', 'O', 'R', 'M', 0, 0, 0, 8, 'A', 'B', 'C', 'D', 0, 2, 7, 0}));
  // 3D Studio's rule: little-endian 2-byte id, size counting the header, no pad.
  CBinaryWriter le(ByteOrder::Little);
  {
    auto c = le.Chunk(0x4D4D, 2, {4, true, 0, false, false});
    le.U8(1);
  }
  EXPECT_EQ(le.GetBuffer(), (ByteVec{0x4D, 0x4D, 7, 0, 0, 0, 1}));
  EXPECT_TRUE(le.IsValid());
  // A body longer than a 2-byte size can say marks the writer invalid.
  CBinaryWriter big(ByteOrder::Big);
  {
    auto c = big.Chunk(MakeId("BIGG"), 4, {2, false, 0, false, false});
    big.Extend(0x10000);
  }
  EXPECT_FALSE(big.IsValid());
}

// The line bound is checked through the OBJ reader, which splits its text
// with this cursor.
TEST(TextCursor, LineEndsNumbersAndLimits) {
  const std::string text = "\xEF\xBB\xBFv 1 2\r\nf 1\rl +3.5e2\n\nlast";
  CTextCursor cursor(text.data(), text.size());
  std::vector<std::string> lines;
  for (std::string_view line; cursor.NextLine(line);)
    lines.emplace_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"v 1 2", "f 1", "l +3.5e2", "", "last"}));
  EXPECT_EQ(cursor.GetLineNumber(), 5u);

  std::string_view rest = "  v\t1.5  -2 ";
  float f = 0;
  long long i = 0;
  EXPECT_EQ(CTextCursor::NextToken(rest), "v");
  EXPECT_TRUE(CTextCursor::ParseFloat(CTextCursor::NextToken(rest), f) && f == 1.5f);
  EXPECT_TRUE(CTextCursor::ParseInt(CTextCursor::NextToken(rest), i) && i == -2);
  EXPECT_EQ(CTextCursor::NextToken(rest), "");
  EXPECT_TRUE(CTextCursor::ParseFloat("+3.5e2", f) && f == 350.0f);
  EXPECT_FALSE(CTextCursor::ParseFloat("1.5x", f));
  EXPECT_FALSE(CTextCursor::ParseFloat("", f));
  // A comma-decimal locale on the host changes nothing.
  if (std::setlocale(LC_NUMERIC, "fr_FR.UTF-8")) {
    EXPECT_TRUE(CTextCursor::ParseFloat("0.25", f) && f == 0.25f);
    std::setlocale(LC_NUMERIC, "C");
  }
}

TEST(SceneHelpers, CornerValuesAndUniqueNames) {
  CCornerValues values;
  CCornerValues::Value a{{0.5f, 0.25f, 0, 0}}, b{{0.5f, 0.75f, 0, 0}};
  const auto first = values.Get(3, a);
  EXPECT_EQ(values.Get(3, a), first);                    // same point, same value: shared
  EXPECT_NE(values.Get(3, b), first);                    // a seam keeps both values
  EXPECT_NE(values.Get(4, a), first);                    // another point gets its own
  EXPECT_EQ(values.GetDefault(a), values.GetDefault(b)); // one default, made once
  EXPECT_EQ(values.GetSize(), 4u);

  CUniqueNames names;
  EXPECT_EQ(names.Make("Wood"), "Wood");
  EXPECT_EQ(names.Make("Wood"), "Wood1");
  EXPECT_EQ(names.Make("Wood"), "Wood2");
  EXPECT_EQ(names.Make("Wood1", 0), "Wood1"); // no attempts left: the base again
}

TEST(FileInputOutput, WholeFilesAndFailures) {
  namespace fs = std::filesystem;
  const fs::path dir = test::ScratchDir("codec_common");
  const std::string path = (dir / "bytes.bin").string();
  const ByteVec data = {1, 2, 3, 4, 5};
  ASSERT_EQ(WriteWholeFile(path, data.data(), data.size(), true), IO_FILE_OK);
  CFileInput input;
  ASSERT_EQ(input.Open(path), IO_FILE_OK);
  EXPECT_EQ(ByteVec(input.GetData(), input.GetData() + input.GetSize()), data);
  EXPECT_EQ(input.Open((dir / "missing.bin").string()), IO_FILE_CANT_OPEN);
  // A write into a folder that does not exist fails and leaves nothing behind.
  EXPECT_NE(WriteWholeFile((dir / "no" / "such.bin").string(), data.data(), data.size(), true),
            IO_FILE_OK);
  // An empty file is a file of no bytes, not a failure.
  { std::ofstream(dir / "empty.bin"); }
  EXPECT_EQ(input.Open((dir / "empty.bin").string()), IO_FILE_OK);
  EXPECT_EQ(input.GetSize(), 0u);
  fs::remove_all(dir);
}
