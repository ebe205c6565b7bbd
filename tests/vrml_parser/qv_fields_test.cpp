#include "qv_test_util.h"

#include "meshcore/vrml_parser/qv_mfields.h"
#include "meshcore/vrml_parser/qv_sfields.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

using namespace meshcore;
using namespace meshcore::test;

namespace {

// Reading text into field fails, posting message once at line.
void ExpectRefused(QvField& field, const std::string& text, const std::string& message,
                   int line = 2) {
  FieldRead r(field, text);
  EXPECT_FALSE(r.ok) << text;
  EXPECT_EQ(ReadError(message, line), r.errors()) << text;
}

} // namespace

TEST(QvMField, BracketsCommasAndSingleValues) {
  using V = std::array<float, 3>;
  const std::pair<const char*, std::vector<V>> cases[] = {
      {"1 2 3", {{1, 2, 3}}},
      {"[ ]", {}},
      {"[1 2 3,4 5 6\n, 7 8 9]", {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}},
  };
  for (const auto& [text, want] : cases) {
    QvMFVec3f f;
    f.values = {{9, 9, 9}}; // a default value is replaced, even by the empty list
    EXPECT_TRUE(FieldRead(f, text).ok) << text;
    EXPECT_EQ(want, f.values) << text;
    EXPECT_FALSE(f.IsDefault()) << text;
  }
  {
    // A second read cuts the field down to what it read.
    QvMFFloat f;
    EXPECT_TRUE(FieldRead(f, "[1, 2, 3]").ok);
    EXPECT_TRUE(FieldRead(f, "[4]").ok);
    EXPECT_EQ(std::vector<float>({4}), f.values);
  }
  EXPECT_EQ("", FieldRead(*std::make_unique<QvMFLong>(), "[0, 1, -1,]").errors());
}

TEST(QvMField, MessagesForMissingCommasBadValuesAndEndOfFile) {
  QvMFVec3f vec;
  ExpectRefused(vec, "[ 0 0 0 1 1 1 ]", "Expected ',' or ']' but got '1' while reading value 1");
  QvMFFloat floats;
  ExpectRefused(floats, "[ 1, 2,\n x ]", "Couldn't read value 3 of field", 3);
  QvMFLong longs;
  ExpectRefused(longs, "[ 1, 2", "Expected ',' or ']' but got EOF while reading value 2");
  EXPECT_FALSE(FieldRead(floats, "").ok);
}

TEST(QvSFBool, NamesAndIntegers) {
  QvSFBool f;
  EXPECT_TRUE(FieldRead(f, "TRUE").ok);
  EXPECT_TRUE(f.value);
  EXPECT_TRUE(FieldRead(f, "0").ok);
  EXPECT_FALSE(f.value);

  ExpectRefused(f, "2", "Illegal value for QvSFBool: 2 (must be 0 or 1)");
  ExpectRefused(f, "yes", "Unknown value (\"yes\") for QvSFBool (must be TRUE or FALSE)");
}

TEST(QvSFEnumAndBitMask, NamesAndMessages) {
  constexpr QvEnumEntry kParts[] = {{"SIDES", 1}, {"TOP", 2}, {"BOTTOM", 4}, {"ALL", 7}};
  QvSFEnum e;
  e.names = kParts;
  EXPECT_TRUE(FieldRead(e, "BOTTOM").ok);
  EXPECT_EQ(4, e.value);
  ExpectRefused(e, "MIDDLE", "Unknown QvSFEnum enumeration value \"MIDDLE\"");

  QvSFBitMask m;
  m.names = kParts;
  EXPECT_TRUE(FieldRead(m, "TOP").ok);
  EXPECT_EQ(2, m.value);
  EXPECT_TRUE(FieldRead(m, "( SIDES | BOTTOM )").ok);
  EXPECT_EQ(5, m.value);

  ExpectRefused(m, "(SIDES TOP)", "Expected '|' or ')', got 'T' in QvSFBitMask value");
  ExpectRefused(m, "(SIDES |", "EOF reached before ')' in QvSFBitMask value");
  ExpectRefused(m, "(SIDES | LID)", "Unknown QvSFBitMask bit mask value \"LID\"");
}

TEST(QvFieldNumbers, IntegersFollowCRulesAndFloatsIgnoreTheLocale) {
  QvMFLong l;
  ASSERT_TRUE(
      FieldRead(l, "[ 0xff0000ff, 010, -0x10, +5, 2147483647, -2147483648, 99999999999 ]").ok);
  EXPECT_EQ(std::vector<std::int32_t>({static_cast<std::int32_t>(0xff0000ffu), 8, -16, 5,
                                       2147483647, -2147483647 - 1, 2147483647}),
            l.values);
  // An octal literal stops at the first digit that is not octal.
  EXPECT_FALSE(FieldRead(l, "[ 09 ]").ok);

  QvMFFloat f;
  ASSERT_TRUE(FieldRead(f, "[ 1e3, .5, -2., +1.25, 7, 1e-60, -1e60 ]").ok);
  ASSERT_EQ(7, f.GetNum());
  EXPECT_EQ(std::vector<float>({1000, 0.5f, -2, 1.25f, 7, 0}),
            std::vector<float>(f.values.begin(), f.values.begin() + 6));
  EXPECT_TRUE(std::isinf(f.values[6]) && f.values[6] < 0);
  // A decimal comma is a value separator, never part of a number.
  ASSERT_TRUE(FieldRead(f, "[1,5]").ok);
  EXPECT_EQ(std::vector<float>({1, 5}), f.values);
  EXPECT_FALSE(FieldRead(f, "[+-1]").ok);
}

TEST(QvSFImage, PixelsAndSizeChecks) {
  QvSFImage img;
  ASSERT_TRUE(FieldRead(img, "2 1 3 0xff0000 0x00ff80").ok);
  EXPECT_EQ(2, img.size[0]);
  EXPECT_EQ(1, img.size[1]);
  EXPECT_EQ(3, img.numComponents);
  EXPECT_EQ(std::vector<std::uint8_t>({0xff, 0, 0, 0, 0xff, 0x80}), img.bytes);
  ASSERT_TRUE(FieldRead(img, "0 0 0").ok);
  EXPECT_TRUE(img.bytes.empty());

  // A huge count is refused before anything is allocated.
  FieldRead huge(img, "100000 100000 4 0 0 0");
  EXPECT_FALSE(huge.ok);
  EXPECT_NE(std::string::npos, huge.errors().find("larger than the file"));
  EXPECT_FALSE(FieldRead(img, "1 1 5 0").ok);
  EXPECT_FALSE(FieldRead(img, "-1 1 1 0").ok);
  EXPECT_FALSE(FieldRead(img, "2 2 1 0 1 2").ok); // one pixel short
}

TEST(QvSFString, QuotedUnquotedAndUnterminated) {
  QvSFString s;
  ASSERT_TRUE(FieldRead(s, "\"say \\\"hi\\\" \\\\ {}\"").ok);
  EXPECT_EQ("say \"hi\" \\ {}", s.value);
  ASSERT_TRUE(FieldRead(s, "door.rgb }").ok);
  EXPECT_EQ("door.rgb", s.value);

  ExpectRefused(s, "\"never closed\n\n", "EOF reached before end of string starting at line 2", 4);

  QvMFString m;
  ASSERT_TRUE(FieldRead(m, "[ \"a b\", c, \"\" ]").ok);
  EXPECT_EQ(std::vector<std::string>({"a b", "c", ""}), m.values);
}

TEST(QvSField, FixedSizeValues) {
  QvSFMatrix m;
  ASSERT_TRUE(FieldRead(m, "1 0 0 0  0 2 0 0  0 0 3 0  4 5 6 1").ok);
  EXPECT_EQ(2.0f, m.value[1][1]);
  EXPECT_EQ(4.0f, m.value[3][0]);
  EXPECT_FALSE(FieldRead(m, "1 0 0 0 0 1 0 0 0 0 1 0 0 0 0").ok); // fifteen values
}
