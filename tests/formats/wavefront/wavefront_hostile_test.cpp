// Damaged and hostile OBJ input: every failure is a clean "bad file format"
// with the line at fault, never a crash, a hang or a read out of bounds.

#include "obj_test_util.h"

#include "tests/support/test_env.h"

#include <fstream>

using namespace meshcore;
using namespace meshcore::objtest;

namespace {

class WavefrontHostile : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
};

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

} // namespace

TEST_F(WavefrontHostile, BadIndicesAreRefusedWithTheirLine) {
  const std::string tri = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";
  for (const char* face :
       {"f 1 2 0\n", "f 1 2 4\n", "f 1 2 -4\n", "f 1/1 2 3\n", "f 1//2 2 3\n",
        "f 1 2 99999999999999999999\n", "f 1 2 3x\n", "f 1/ /2 3\n", "l 1 5\n", "p 0\n"}) {
    SCOPED_TRACE(face);
    auto r = ReadObjText(tri + face);
    EXPECT_FALSE(r.scene);
    EXPECT_EQ(r.error, IO_FILE_BAD_FORMAT);
    EXPECT_NE(r.detail.find("line 4"), std::string::npos) << r.detail;
  }
  // Faces of one or two corners are dropped; the rest of the file loads.
  auto r = ReadObjText(tri + "f 1\nf 1 2\nf 1 2 3\n");
  ASSERT_TRUE(r.scene);
  EXPECT_EQ(r.scene->GetFaceNbr(), 1);
  // Nothing but degenerate faces: no geometry.
  r = ReadObjText(tri + "f 1 2\n");
  EXPECT_FALSE(r.scene);
  EXPECT_EQ(r.error, IO_FILE_EMPTY);
}

TEST_F(WavefrontHostile, HugeFacesLongLinesAndBinaryFiles) {
  // A face of a million corners and a vertex line of megabytes of blanks.
  std::string text = "v 0 0 0\nv 1 0 0\nv" + std::string(3 << 20, ' ') + "0 1 0\nf";
  text.reserve(text.size() + 8'000'000);
  for (int i = 0; i < 1'000'000; ++i)
    text += i % 3 == 0 ? " 1" : i % 3 == 1 ? " 2" : " 3";
  auto r = ReadObjText(text);
  ASSERT_TRUE(r.scene) << r.detail;
  EXPECT_EQ((*GeometryNodes(*r.scene)[0]->GetBaseObject()->GetFaceList())[0].GetSize(), 1'000'000);
  // A line past the bound is refused, not read into memory without end.
  r = ReadObjText("# " + std::string(20 << 20, 'x') + "\n");
  EXPECT_EQ(r.error, IO_FILE_BAD_FORMAT);

  // Binary bytes under the OBJ class (a Cinema 4D file is one) are not text.
  auto dir = test::ScratchDir("obj_binary");
  const std::string binary("QC4DC4D6\0\0\0\x12\x01", 13);
  std::ofstream(dir / "scene.c4d", std::ios::binary) << binary;
  C3DIo io((dir / "scene.c4d").string(), FILE_PARSER_SILENT);
  EXPECT_FALSE(io.Read());
  EXPECT_EQ(io.GetIoError(), IO_FILE_BAD_FORMAT);
  // An OBJ text file named .c4d reads.
  std::ofstream(dir / "text.c4d", std::ios::binary) << "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
  C3DIo text4d((dir / "text.c4d").string(), FILE_PARSER_SILENT);
  std::unique_ptr<C3DScene> scene(text4d.Read());
  EXPECT_TRUE(scene);
}

TEST_F(WavefrontHostile, EveryPrefixOfTheSamplesLoadsOrFailsCleanly) {
  for (const char* name :
       {"spider.obj", "cube_usemtl.obj", "testmixed.obj", "number_formats.obj"}) {
    SCOPED_TRACE(name);
    const std::string bytes = ReadAll(std::string(MESHCORE_SAMPLES_DIR "/obj/") + name);
    ASSERT_FALSE(bytes.empty());
    // Every byte of the small files; a spread of cuts through the large one.
    const std::size_t step = bytes.size() > 20000 ? 397 : 1;
    for (std::size_t n = 0; n <= bytes.size(); n += step) {
      auto r = ReadObjText(bytes.substr(0, n), MESHCORE_SAMPLES_DIR "/obj");
      if (!r.scene) {
        ASSERT_TRUE(r.error == IO_FILE_BAD_FORMAT || r.error == IO_FILE_EMPTY) << n;
      }
    }
  }
}
