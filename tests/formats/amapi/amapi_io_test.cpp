// The AMAPI reader on files built chunk by chunk: the objects it makes, how
// chunks move the reader, and damaged or hostile files.

#include "meshcore/formats/amapi/amapi_io.h"
#include "meshcore/formats/library.h"
#include "meshcore/io/cancel.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"
#include "tests/support/test_env.h"

#include "amapi_test_bytes.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

using namespace meshcore;
using namespace meshcore::amapitest;

namespace {

struct Read {
  std::unique_ptr<C3DScene> scene;
  int error = 0;
  std::string detail;
};

Read ReadBytes(const ByteBuilder& b) {
  C3DIo io("memory.a3d", FILE_PARSER_SILENT);
  CAmapiIo codec(io);
  Read r;
  r.scene.reset(codec.ReadFromMemory(b.data.data(), b.size(), 0));
  r.error = io.GetIoError();
  r.detail = io.GetIoErrorDetail();
  return r;
}

// The tree in pre-order, a node a line: "<indent>name kind points/faces [hidden]".
std::string Tree(const Read& r) {
  if (!r.scene)
    return "error " + std::to_string(r.error);
  std::string out;
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = r.scene->GetFirstNode(nullptr); cursor;) {
    C3DSceneNode* node = r.scene->GetNextNode(object, cursor, nullptr);
    const C3DBaseObject* o = node->GetBaseObject();
    const unsigned kind = o->GetKindOf();
    out += std::string(2 * r.scene->GetNodeDepth(node), ' ') + node->GetName() + " " +
           (kind == OBJECT_GROUP   ? "group"
            : kind == OBJECT_CURVE ? "curve"
                                   : "mesh") +
           " " + std::to_string(o->GetPointNbr()) + "/" + std::to_string(o->GetFaceNbr()) +
           (node->IsFlagSet(1) ? " hidden" : "") + "\n";
  }
  return out;
}

const std::vector<std::vector<std::uint32_t>> kTri = {{0, 1, 2}};

class AmapiIo : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
  void SetUp() override { SetLanguage("en"); }
  void TearDown() override {
    SetLanguage("");
    SetCancel(0, 0);
  }
};

} // namespace

// Meshes, curves and groups with their names, colours and node flags;
// unnamed objects and objects that give no node.
TEST_F(AmapiIo, ReadsMeshesCurvesAndGroups) {
  ByteBuilder mesh;
  Name(mesh, "Box");
  Colour(mesh, 0x00, 0x80, 0xFF);
  Geom(mesh, {}, kSquare, {{0, 1, 2, 3}, {0, 2, 1}});
  End(mesh);
  Info closed, open, forced;
  closed.curve = open.curve = 1;
  open.flags = 1;   // not closed
  open.visible = 0; // the node flag
  forced.flags = 8;
  ByteBuilder group, count;
  Name(group, "Set");
  Block(group, "grup", count.u4(2));
  group.raw(Object("Line", kSquare, {}, open)).raw(Object("Hidden", kSquare, kTri, forced));
  End(group);
  ByteBuilder unnamed;
  Name(unnamed, "");
  Geom(unnamed, {}, kSquare, kTri);
  End(unnamed);
  Read r = ReadBytes(File({mesh, Object("Loop", kSquare, {}, closed), unnamed, group,
                           Object("ABCDEFGHIJKLMNOPQRSTUVWXYZ", kSquare, kTri),
                           Object("dots", kSquare, {}), Object("faces", {}, kTri)}));
  EXPECT_EQ(Tree(r), "ABCDEFGHIJKLMNOPQRST mesh 4/1\n"
                     "Set group 0/0\n"
                     "  Hidden mesh 4/1 hidden\n"
                     "  Line curve 4/0 hidden\n"
                     "Object 2 mesh 4/1\n"
                     "Loop curve 5/0\n"
                     "Box mesh 4/2\n");
  const C3DBaseObject* found = nullptr;
  for (C3DSceneNode* cursor = r.scene->GetFirstNode(nullptr); cursor;) {
    C3DSceneNode* node = r.scene->GetNextNode(found, cursor, nullptr);
    const C3DBaseObject* o = node->GetBaseObject();
    if (node->GetName() == "Box") {
      const CRGBColor& c =
          r.scene->GetMaterial((*o->GetFaceList())[1].GetMaterialID())->GetDiffuseColor();
      EXPECT_EQ(std::vector<int>({c.r, c.g, c.b}), std::vector<int>({255, 128, 0}));
      EXPECT_EQ((*o->GetPointList())[2].y, 1.0f);
    } else if (node->GetName() == "Loop") {
      EXPECT_TRUE((*o->GetPointList())[4] == (*o->GetPointList())[0]); // closed
    }
  }
  EXPECT_EQ(Tree(ReadBytes(File({}))), "error -7");
  EXPECT_EQ(Tree(ReadBytes(ByteBuilder().id("AMAP"))), "error -7");
}

// Other programs' ".a3d" files: no scene, the error code as it was. And the
// codec through the front end, which writes nothing as AMAPI.
TEST_F(AmapiIo, OtherFilesAndTheFrontEnd) {
  for (const std::string& text : {std::string(), std::string("AMA"), std::string("amap....")}) {
    ByteBuilder b;
    for (char c : text)
      b.u1(std::uint8_t(c));
    C3DIo io("memory.a3d", FILE_PARSER_SILENT);
    io.SetIoError(IO_FILE_DISK_FULL);
    EXPECT_EQ(CAmapiIo(io).ReadFromMemory(b.data.data(), b.size(), 0), nullptr);
    EXPECT_EQ(io.GetIoError(), IO_FILE_DISK_FULL);
    EXPECT_NE(io.GetIoErrorDetail().find("AMAP"), std::string::npos);
  }
  const auto dir = test::ScratchDir("amapi_front_end");
  auto file = [&](const char* name) { return (dir / name).string(); };
  test::WriteFileBytes(file("box.a3d"), File({Object("box", kSquare, {{0, 1, 2, 3}})}).data);
  auto scene = C3DIo(file("box.a3d"), FILE_PARSER_LOADING | FILE_PARSER_SILENT).ReadScene();
  ASSERT_TRUE(scene);
  EXPECT_EQ(scene->GetFaceNbr(), 1);
  C3DIo save(file("copy.a3d"), FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  EXPECT_EQ(save.SaveScene(*scene), 0);
  EXPECT_EQ(save.GetIoError(), IO_FILE_UNKNOWN_TYPE);
  std::filesystem::remove_all(dir);
}

// Where chunk sizes put the reader: skipped ids, sizes longer than the body,
// end markers and control chunks.
TEST_F(AmapiIo, ChunksRepositionTheReader) {
  ByteBuilder kept, junk;
  Block(kept, "xtra", junk.u4(1).u4(2));
  Name(kept, "kept");
  ByteBuilder padded = GeomBody({}, kSquare, kTri);
  Block(kept, "geom", padded.u4(0xFFFFFFFF).u4(0xFFFFFFFF));
  End(kept);
  // A chunk of size 0 ends the object, and its "SHAP" block is finished by
  // its own size, passing over what follows the marker.
  ByteBuilder ended;
  Name(ended, "ended");
  Geom(ended, {}, kSquare, kTri);
  ended.id("blok").id("stop").u4(0).id("garbage!");
  // A control chunk holds one more object, added beside its owner, and ends
  // the owner at the next "eof " whatever lies between.
  ByteBuilder owner;
  Name(owner, "owner");
  Geom(owner, {}, kSquare, kTri);
  Block(owner, "ctrl", Object("controlled", kSquare, {{1, 2, 3}}));
  End(owner.id("junkjunkjunk"));
  ByteBuilder file;
  file.id("AMAP").u4(1).id("BLOK").id("TEXT").u4(8).u4(0).u4(0);
  file.raw(File({kept, ended, owner, Object("after", kSquare, kTri)}));
  file.data.erase(file.data.begin() + 28, file.data.begin() + 36); // the second magic
  EXPECT_EQ(Tree(ReadBytes(file)), "after mesh 4/1\n"
                                   "owner mesh 4/1\n"
                                   "controlled mesh 4/1\n"
                                   "ended mesh 4/1\n"
                                   "kept mesh 4/1\n");
}

// Counts past the chunk or the file, bad indices, deep nesting and chunks
// that never end: the reader drops what it cannot use and stops.
TEST_F(AmapiIo, HostileCountsAndNesting) {
  auto tree = [](const ByteBuilder& object, bool end = true) {
    return Tree(ReadBytes(File({object}, end)));
  };
  Info points, words, faces;
  points.pointCount = 0x10000000;
  words.faceWords = 0x40000000;
  faces.faceCount = 1000; // more faces than words
  for (const Info& info : {points, words, faces}) {
    ByteBuilder b;
    EXPECT_EQ(tree(End(Geom(b, info, kSquare, kTri))), "error -7");
  }
  ByteBuilder skipping, body = GeomBody({}, kSquare, kTri);
  body.data[7] = 0x10; // 0x10000000 records to skip
  EXPECT_EQ(tree(End(Block(skipping, "geom", body))), "error -7");
  // Only faces that can be drawn stay; a vertex count past the face block
  // drops the chunk's geometry.
  EXPECT_EQ(tree(Object("bad", kSquare, {{0, 1, 2}, {0, 1, 99}, {0, 1}, {2, 3, 0}})),
            "bad mesh 4/2\n");
  Info runaway;
  runaway.faceWords = 4;
  EXPECT_EQ(tree(Object("corners", kSquare, {{0, 1, 2}, {0, 1, 2, 3}}, runaway)), "error -7");
  // Sizes past the end of the file, a control chunk with no "eof " after it.
  ByteBuilder past, noEnd, blok;
  Name(past, "past");
  EXPECT_EQ(tree(Geom(past, {}, kSquare, kTri, 0x7FFFFFF0)), "past mesh 4/1\n");
  Name(noEnd, "noEnd");
  Geom(noEnd, {}, kSquare, kTri);
  EXPECT_EQ(tree(Block(noEnd, "ctrl", blok.id("blok")), false), "noEnd mesh 4/1\n");

  // Groups nested thousands deep stop at the reader's limit.
  ByteBuilder deep, one;
  one.u4(1);
  for (int i = 0; i < 5000; ++i)
    Block(deep, "grup", one);
  Name(deep, "bottom");
  Geom(deep, {}, kSquare, kTri);
  for (int i = 0; i < 5001; ++i)
    End(deep);
  const std::string nested = tree(deep);
  EXPECT_NE(nested.find(std::string(2 * CAmapiIo::kMaxDepth, ' ') + "bottom mesh"),
            std::string::npos);
  // A group counting far more children than the file holds ends with the
  // file, also when a few bytes too short for a tag are left.
  ByteBuilder huge, many;
  Block(huge, "grup", many.u4(0xFFFFFFFF));
  huge.raw(Object("child", kSquare, kTri));
  ByteBuilder tail = File({huge}, false);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_NE(Tree(ReadBytes(tail.u1(0).u1(0))).find(" group 0/0\n  child mesh 4/1\n"),
            std::string::npos);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

// Control chunks whose objects read to the end of the file, then send the
// reader back: unchecked, the work grows with the square of the file.
TEST_F(AmapiIo, LoopingChunksAreRefused) {
  std::vector<std::uint8_t> tail;
  for (int u = 0; u < 300; ++u) {
    const std::uint32_t points = std::uint32_t((tail.size() + 4) / 16);
    ByteBuilder unit;
    unit.id("blok").id("ctrl").u4(12 + 39);
    unit.id("blok").id("geom").u4(39 + points * 16);
    unit.u1(0).u1(0).u1(1).u4(points).u4(0).u4(0).u4(0).u4(0).u4(0).u4(0).u4(0).u4(0);
    unit.id("eof ");
    unit.data.insert(unit.data.end(), tail.begin(), tail.end());
    tail = std::move(unit.data);
  }
  ByteBuilder object, count;
  Block(object, "grup", count.u4(0x7FFFFFFF));
  object.data.insert(object.data.end(), tail.begin(), tail.end());
  Read r = ReadBytes(File({object}));
  EXPECT_EQ(Tree(r), "error -3");
  EXPECT_NE(r.detail.find("at byte"), std::string::npos) << r.detail;
}

// Every prefix of a file either loads or fails with a code; a cancelled read
// gives nothing.
TEST_F(AmapiIo, TruncatedAndCancelledReads) {
  ByteBuilder group, two;
  Name(group, "g");
  Block(group, "grup", two.u4(2));
  End(group.raw(Object("a", kSquare, {{0, 1, 2, 3}})).raw(Object("b", kSquare, {{0, 2, 3}})));
  Info curve;
  curve.curve = 1;
  ByteBuilder owner;
  Colour(owner, 1, 2, 3);
  Geom(owner, curve, kSquare);
  End(Block(owner, "ctrl", Object("c", kSquare, kTri)));
  const ByteBuilder whole = File({group, owner});
  for (std::size_t n = 4; n < whole.size(); ++n) {
    Read r = ReadBytes(ByteBuilder({whole.data.begin(), whole.data.begin() + long(n)}));
    EXPECT_TRUE(r.scene || r.error != IO_FILE_OK) << n;
  }
  SetCancel(1, 0);
  EXPECT_EQ(Tree(ReadBytes(whole)), "error -9");
}
