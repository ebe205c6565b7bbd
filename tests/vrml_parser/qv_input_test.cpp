#include "qv_test_util.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace meshcore;
using namespace meshcore::test;

TEST(QvTextSource, HeaderTableAcceptsVrmlAndBothInventorVersionsAsOnePointZero) {
  for (const char* header :
       {"#VRML V1.0 ascii\n", "#Inventor V2.1 ascii\n", "#Inventor V2.0 ascii\n",
        "#Inventor V2.0 ascii\r\n", "#VRML V1.0 ascii   made by hand\n"}) {
    Parsed p(std::string(header) + "Cube {}\n");
    ASSERT_TRUE(p.graph) << header;
    EXPECT_EQ("", p.errors()) << header;
    EXPECT_EQ(1.0f, p.input.in.GetVersion());
    EXPECT_TRUE(p.input.in.IsOk());
    EXPECT_EQ(std::string(header).find("Inventor") != std::string::npos, p.input.in.IsInventor());
  }
}

TEST(QvTextSource, RefusedHeadersPostOnceAndReadNothing) {
  const std::string expected = ReadError("File does not have a valid header string", 1);
  for (const char* text : {"#VRML V2.0 utf8\nShape {}\n", "Separator { Cube {} }\n", "",
                           "#VRML V1.0 asciiX\nCube {}\n", "# VRML V1.0 ascii\nCube {}\n"}) {
    Parsed p(text);
    EXPECT_FALSE(p.graph) << text;
    EXPECT_EQ(expected, p.errors()) << text;
    EXPECT_FALSE(p.input.in.IsOk()) << text;
    // Later reads see an empty input and post nothing more.
    char c;
    EXPECT_FALSE(p.input.in.Read(c));
    EXPECT_EQ(expected, p.errors());
  }
}

TEST(QvTextSource, LinesAreCountedThroughCommentsAndStrings) {
  // The unknown class starts on line 7: the header, a comment line, the separator, a
  // string with an embedded newline and a blank line come before it.
  Parsed p(std::string(kVrmlHeader) + "# a comment with \"quotes\" and { braces\n"
                                      "Separator {\n"
                                      "  Info { string \"two\nlines # not a comment\" }\n"
                                      "\n"
                                      "  Mystery { }\n"
                                      "}\n");
  ASSERT_TRUE(p.graph);
  EXPECT_EQ(ReadError("Unknown class \"Mystery\"", 7), p.errors());
  auto* info = static_cast<QvInfo*>(p.group()->children[0]);
  EXPECT_EQ("two\nlines # not a comment", info->string.value);

  // Line numbers past 999 are not cut to three digits.
  Parsed far(std::string(kVrmlHeader) + std::string(1200, '\n') + "Cube { bogus 1 }\n");
  EXPECT_EQ(ReadError("Unknown field \"bogus\"", 1202), far.errors());
}

TEST(QvTextSource, UnterminatedCommentPostsItsOwnMessage) {
  Parsed p(std::string(kVrmlHeader) + "Cube {}\n# trailing comment without newline");
  ASSERT_TRUE(p.graph); // the node before the comment is complete
  EXPECT_EQ(ReadError("EOF reached before end of comment", 3), p.errors());

  Parsed q(std::string(kVrmlHeader) + "Cube { # open");
  EXPECT_FALSE(q.graph);
  EXPECT_NE(std::string::npos, q.errors().find("EOF reached before end of comment"));
}

TEST(QvTextSource, ErrorFormatsAndSinks) {
  const std::string missing =
      (std::filesystem::temp_directory_path() / "meshcore_no_such_dir" / "none.wrl").string();
  Input files("");
  EXPECT_FALSE(files.in.SetFile(missing));
  EXPECT_EQ(ReadError("could not open file", 1), files.errors);
}
