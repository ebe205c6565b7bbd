// The AMAPI reader on files built chunk by chunk: the objects it makes, how
// chunks move the reader, and damaged or hostile files.

#include "meshcore/formats/amapi/amapi_io.h"
#include "meshcore/formats/library.h"
#include "meshcore/io/cancel.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/curve_3d.h"
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

// Nodes below the root in pre-order, by name.
std::vector<C3DSceneNode*> Nodes(C3DScene& scene) {
  std::vector<C3DSceneNode*> out;
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = scene.GetFirstNode(nullptr); cursor;)
    if (C3DSceneNode* node = scene.GetNextNode(object, cursor, nullptr))
      out.push_back(node);
  return out;
}

C3DSceneNode* Find(C3DScene& scene, const std::string& name) {
  for (C3DSceneNode* n : Nodes(scene))
    if (n->GetName() == name)
      return n;
  return nullptr;
}

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

// Meshes, curves and groups with their names, colours and node flags.
TEST_F(AmapiIo, ReadsMeshesCurvesAndGroups) {
  ByteBuilder mesh;
  Name(mesh, "Box");
  Colour(mesh, 0x00, 0x80, 0xFF);
  Geom(mesh, {}, kSquare, {{0, 1, 2, 3}, {0, 2, 1}});
  End(mesh);

  Info closed;
  closed.curve = 1;
  ByteBuilder loop = Object("Loop", kSquare, {}, closed);
  Info open = closed;
  open.flags = 1;   // open
  open.visible = 0; // node flag
  ByteBuilder line = Object("Line", kSquare, {}, open);
  Info forced;
  forced.flags = 8;
  ByteBuilder hidden = Object("Hidden", kSquare, {{0, 1, 2}}, forced);

  ByteBuilder group;
  Name(group, "Set");
  ByteBuilder count;
  count.u4(2);
  Block(group, "grup", count);
  group.raw(line).raw(hidden);
  End(group);

  Read r = ReadBytes(File({mesh, loop, group}));
  ASSERT_TRUE(r.scene) << r.error << " " << r.detail;
  C3DScene& scene = *r.scene;
  EXPECT_EQ(scene.GetNodeNbr(0), 5);

  C3DSceneNode* box = Find(scene, "Box");
  ASSERT_TRUE(box);
  C3DBaseObject* object = box->GetBaseObject();
  EXPECT_EQ(object->GetKindOf(), OBJECT_POLYGONAL);
  EXPECT_EQ(object->GetPointNbr(), 4);
  ASSERT_EQ(object->GetFaceNbr(), 2);
  EXPECT_EQ((*object->GetFaceList())[0].GetSize(), 4);
  EXPECT_EQ((*object->GetPointList())[2].x, 1.0f);
  EXPECT_EQ((*object->GetPointList())[2].y, 1.0f);
  const unsigned id = (*object->GetFaceList())[1].GetMaterialID();
  C3DMaterial* material = scene.GetMaterial(id);
  ASSERT_TRUE(material);
  EXPECT_EQ(material->GetDiffuseColor().r, 255);
  EXPECT_EQ(material->GetDiffuseColor().g, 128);
  EXPECT_EQ(material->GetDiffuseColor().b, 0);
  EXPECT_FALSE(box->IsFlagSet(1));

  // Closed curves repeat their first point; open ones do not.
  C3DSceneNode* loopNode = Find(scene, "Loop");
  ASSERT_TRUE(loopNode);
  EXPECT_EQ(loopNode->GetBaseObject()->GetKindOf(), OBJECT_CURVE);
  const C3DPointList& lp = *loopNode->GetBaseObject()->GetPointList();
  ASSERT_EQ(lp.GetSize(), 5);
  EXPECT_EQ(lp[4].x, lp[0].x);
  EXPECT_EQ(lp[4].y, lp[0].y);
  C3DSceneNode* lineNode = Find(scene, "Line");
  ASSERT_TRUE(lineNode);
  EXPECT_EQ(lineNode->GetBaseObject()->GetPointNbr(), 4);
  EXPECT_TRUE(lineNode->IsFlagSet(1));
  C3DSceneNode* hiddenNode = Find(scene, "Hidden");
  ASSERT_TRUE(hiddenNode);
  EXPECT_TRUE(hiddenNode->IsFlagSet(1));

  // The group's node takes its object's name and holds the children.
  C3DSceneNode* set = Find(scene, "Set");
  ASSERT_TRUE(set);
  EXPECT_EQ(set->GetBaseObject()->GetKindOf(), OBJECT_GROUP);
  EXPECT_EQ(scene.GetParent(lineNode), set);
  EXPECT_EQ(scene.GetParent(hiddenNode), set);
  EXPECT_TRUE(scene.IsSceneRoot(scene.GetParent(box)));
}

// Unnamed objects, names without terminator, objects that give no node and a
// file with nothing in it.
TEST_F(AmapiIo, NamesAndObjectsWithoutNodes) {
  // Two nodes are added before the third object's name chunk is read.
  ByteBuilder third;
  Name(third, "");
  Geom(third, {}, kSquare, {{0, 1, 2}});
  End(third);
  ByteBuilder longName = Object("ABCDEFGHIJKLMNOPQRSTUVWXYZ", kSquare, {{0, 1, 2}});
  Read r = ReadBytes(File(
      {Object("a", kSquare, {{0, 1, 2}}), Object("b", kSquare, {{0, 1, 2}}), third, longName}));
  ASSERT_TRUE(r.scene);
  EXPECT_TRUE(Find(*r.scene, "Object 2"));
  EXPECT_TRUE(Find(*r.scene, "ABCDEFGHIJKLMNOPQRST"));

  // Points without faces make no node unless the object is a curve; an
  // object with only faces makes none either.
  Read none = ReadBytes(File({Object("dots", kSquare, {}), Object("faces", {}, {{0, 1, 2}})}));
  EXPECT_FALSE(none.scene);
  EXPECT_EQ(none.error, IO_FILE_EMPTY);

  Read empty = ReadBytes(File({}));
  EXPECT_FALSE(empty.scene);
  EXPECT_EQ(empty.error, IO_FILE_EMPTY);
  ByteBuilder onlyMagic;
  onlyMagic.id("AMAP");
  EXPECT_EQ(ReadBytes(onlyMagic).error, IO_FILE_EMPTY);
}

// Other programs' ".a3d" files: no scene, the error code as it was.
TEST_F(AmapiIo, OtherFilesAreNotRead) {
  for (const std::string& text : {std::string(), std::string("AMA"), std::string("amap...."),
                                  std::string("3D Studio ascii\n")}) {
    ByteBuilder b;
    for (char c : text)
      b.u1(std::uint8_t(c));
    C3DIo io("memory.a3d", FILE_PARSER_SILENT);
    io.SetIoError(IO_FILE_DISK_FULL);
    CAmapiIo codec(io);
    EXPECT_EQ(codec.ReadFromMemory(b.data.data(), b.size(), 0), nullptr);
    EXPECT_EQ(io.GetIoError(), IO_FILE_DISK_FULL);
    EXPECT_NE(io.GetIoErrorDetail().find("AMAP"), std::string::npos);
  }
  // Through the front end, from files, including one that cannot be opened.
  const auto dir = test::ScratchDir("amapi_other");
  test::WriteFileBytes((dir / "other.a3d").string(), {'x', 'y', 'z', 'w', 0, 0});
  C3DIo io((dir / "other.a3d").string(), FILE_PARSER_LOADING | FILE_PARSER_SILENT);
  EXPECT_FALSE(io.ReadScene());
  C3DIo missing((dir / "missing.a3d").string(), FILE_PARSER_LOADING | FILE_PARSER_SILENT);
  EXPECT_FALSE(missing.ReadScene());
  EXPECT_EQ(missing.GetIoError(), IO_FILE_CANT_OPEN);
  test::WriteFileBytes((dir / "box.a3d").string(),
                       File({Object("box", kSquare, {{0, 1, 2, 3}})}).data);
  C3DIo good((dir / "box.a3d").string(), FILE_PARSER_LOADING | FILE_PARSER_SILENT);
  auto scene = good.ReadScene();
  ASSERT_TRUE(scene);
  EXPECT_EQ(scene->GetFaceNbr(), 1);
  // Nothing is written as AMAPI.
  C3DIo save((dir / "copy.a3d").string(), FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  EXPECT_EQ(save.SaveScene(*scene), 0);
  EXPECT_EQ(save.GetIoError(), IO_FILE_UNKNOWN_TYPE);
  EXPECT_FALSE(std::filesystem::exists(dir / "copy.a3d"));
  std::filesystem::remove_all(dir);
}

// Where chunk sizes put the reader: skipped ids, sizes longer or shorter than
// the body, end markers and control chunks.
TEST_F(AmapiIo, ChunksRepositionTheReader) {
  // An unknown top-level block and an unknown object chunk are skipped by size.
  ByteBuilder withJunk;
  ByteBuilder junk;
  junk.u4(0x11111111).u4(0x22222222);
  Block(withJunk, "xtra", junk);
  Name(withJunk, "kept");
  // A geom chunk that says it is longer than its body: the reader goes on after it.
  ByteBuilder padded = GeomBody({}, kSquare, {{0, 1, 2}});
  padded.u4(0xFFFFFFFF).u4(0xFFFFFFFF);
  Block(withJunk, "geom", padded);
  End(withJunk);
  ByteBuilder file;
  file.id("AMAP").u4(1).id("BLOK").id("TEXT").u4(8).u4(0).u4(0);
  file.id("BLOK").id("SHAP").u4(std::uint32_t(withJunk.size())).raw(withJunk).id("EOF ");
  Read r = ReadBytes(file);
  ASSERT_TRUE(r.scene);
  EXPECT_TRUE(Find(*r.scene, "kept"));

  // A chunk of size 0 ends the object, and the "SHAP" block is then finished
  // by its own size, so that what follows the end marker inside it is passed over.
  ByteBuilder ended;
  Name(ended, "ended");
  Geom(ended, {}, kSquare, {{0, 1, 2}});
  ended.id("blok").id("stop").u4(0);
  ended.id("garbage!");
  Read e = ReadBytes(File({ended, Object("next", kSquare, {{0, 1, 2}})}));
  ASSERT_TRUE(e.scene);
  EXPECT_TRUE(Find(*e.scene, "ended"));
  EXPECT_TRUE(Find(*e.scene, "next"));

  // A control chunk holds one more object, added beside its owner, and ends
  // the owner at the next "eof " whatever lies between.
  ByteBuilder owner;
  Name(owner, "owner");
  Geom(owner, {}, kSquare, {{0, 1, 2}});
  ByteBuilder controlled = Object("controlled", kSquare, {{1, 2, 3}});
  Block(owner, "ctrl", controlled);
  owner.id("junkjunkjunk");
  End(owner);
  Read c = ReadBytes(File({owner, Object("after", kSquare, {{0, 1, 2}})}));
  ASSERT_TRUE(c.scene);
  for (const char* name : {"owner", "controlled", "after"}) {
    C3DSceneNode* n = Find(*c.scene, name);
    ASSERT_TRUE(n) << name;
    EXPECT_TRUE(c.scene->IsSceneRoot(c.scene->GetParent(n))) << name;
  }
}

// Counts past the chunk or the file, bad indices, deep nesting and chunks
// that never end: the reader drops what it cannot use and stops.
TEST_F(AmapiIo, HostileCountsAndNesting) {
  const std::vector<std::vector<std::uint32_t>> tri = {{0, 1, 2}};
  auto readOne = [](const ByteBuilder& object) { return ReadBytes(File({object})); };

  Info points;
  points.pointCount = 0x10000000;
  EXPECT_EQ(readOne(Object("p", kSquare, tri, points)).error, IO_FILE_EMPTY);
  Info words;
  words.faceWords = 0x40000000;
  EXPECT_EQ(readOne(Object("w", kSquare, tri, words)).error, IO_FILE_EMPTY);
  Info faces;
  faces.faceCount = 1000; // more faces than words
  EXPECT_EQ(readOne(Object("f", kSquare, tri, faces)).error, IO_FILE_EMPTY);
  Info skip;
  skip.skip = 0;
  ByteBuilder skipping;
  ByteBuilder body = GeomBody(skip, kSquare, tri);
  body.data[7] = 0xFF; // skip count 0xFF000000: past the file
  Block(skipping, "geom", body);
  End(skipping);
  EXPECT_EQ(readOne(skipping).error, IO_FILE_EMPTY);

  // A vertex count past the face block, and indices outside the point list:
  // only the faces that can be drawn stay.
  Read bad = readOne(Object("bad", kSquare, {{0, 1, 2}, {0, 1, 99}, {0, 1}, {2, 3, 0}}));
  ASSERT_TRUE(bad.scene);
  EXPECT_EQ(bad.scene->GetFaceNbr(), 2);
  Info runaway;
  runaway.faceWords = 4;
  ByteBuilder corners = Object("corners", kSquare, {{0, 1, 2}, {0, 1, 2, 3}}, runaway);
  EXPECT_FALSE(readOne(corners).scene);

  // Sizes past the end of the file, a control chunk with no "eof " after it.
  ByteBuilder past;
  Name(past, "past");
  Geom(past, {}, kSquare, tri, 0x7FFFFFF0);
  EXPECT_TRUE(readOne(past).scene);
  ByteBuilder noEnd;
  Name(noEnd, "noEnd");
  Geom(noEnd, {}, kSquare, tri);
  Block(noEnd, "ctrl", ByteBuilder().id("blok"));
  Read n = ReadBytes(File({noEnd}, false));
  ASSERT_TRUE(n.scene);
  EXPECT_TRUE(Find(*n.scene, "noEnd"));

  // Groups nested thousands deep: the tree stops growing at the reader's limit.
  ByteBuilder deep;
  ByteBuilder one;
  one.u4(1);
  for (int i = 0; i < 5000; ++i)
    Block(deep, "grup", one);
  Name(deep, "bottom");
  Geom(deep, {}, kSquare, tri);
  for (int i = 0; i < 5001; ++i)
    End(deep);
  Read d = readOne(deep);
  ASSERT_TRUE(d.scene);
  C3DSceneNode* bottom = Find(*d.scene, "bottom");
  ASSERT_TRUE(bottom);
  EXPECT_LE(d.scene->GetNodeDepth(bottom), unsigned(CAmapiIo::kMaxDepth) + 1);

  // A group whose count is far beyond what the file holds ends with the file.
  ByteBuilder huge;
  ByteBuilder many;
  many.u4(0xFFFFFFFF);
  Block(huge, "grup", many);
  huge.raw(Object("child", kSquare, tri));
  const auto start = std::chrono::steady_clock::now();
  Read h = ReadBytes(File({huge}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  ASSERT_TRUE(h.scene);
  EXPECT_TRUE(Find(*h.scene, "child"));
  // The same with a few bytes left over at the end, too few for a tag.
  ByteBuilder tail = File({huge}, false);
  tail.u1(0).u1(0);
  const auto again = std::chrono::steady_clock::now();
  EXPECT_TRUE(ReadBytes(tail).scene);
  EXPECT_LT(std::chrono::steady_clock::now() - again, std::chrono::seconds(2));
}

// Chunks whose sizes send the reader back over the same bytes again and
// again: refused as a damaged file instead of running on.
TEST_F(AmapiIo, LoopingChunksAreRefused) {
  // Each unit is a control chunk whose object reads a point block running to
  // the end of the file; the control chunk's own size then sends the reader
  // back to an "eof " just after the block's header, and the next child of
  // the group starts over on the bytes after it. Unchecked, the work grows
  // with the square of the file.
  constexpr int kUnits = 300;
  constexpr std::size_t kUnitHead = 12 + 12 + 39; // ctrl header, geom header, info record
  std::vector<std::uint8_t> tail;
  for (int u = 0; u < kUnits; ++u) {
    const std::uint32_t points = std::uint32_t((tail.size() + 4) / 16);
    ByteBuilder unit;
    unit.id("blok").id("ctrl").u4(12 + 39);
    unit.id("blok").id("geom").u4(39 + points * 16);
    unit.u1(0).u1(0).u1(1).u4(points).u4(0).u4(0).u4(0);
    for (int i = 0; i < 5; ++i)
      unit.u4(0);
    ASSERT_EQ(unit.size(), kUnitHead);
    unit.id("eof ");
    unit.data.insert(unit.data.end(), tail.begin(), tail.end());
    tail = std::move(unit.data);
  }
  ByteBuilder object;
  ByteBuilder count;
  count.u4(0x7FFFFFFF);
  Block(object, "grup", count);
  object.data.insert(object.data.end(), tail.begin(), tail.end());
  Read r = ReadBytes(File({object}));
  EXPECT_FALSE(r.scene);
  EXPECT_EQ(r.error, IO_FILE_BAD_FORMAT);
  EXPECT_NE(r.detail.find("at byte"), std::string::npos) << r.detail;
}

TEST_F(AmapiIo, CancelledReadGivesNothing) {
  ByteBuilder b = File({Object("a", kSquare, {{0, 1, 2}})});
  SetCancel(1, 0);
  Read r = ReadBytes(b);
  SetCancel(0, 0);
  EXPECT_FALSE(r.scene);
  EXPECT_EQ(r.error, IO_FILE_CANCELLED);
}

// Every prefix of a file either loads or fails with a code, never past its end.
TEST_F(AmapiIo, TruncatedFilesFailCleanly) {
  ByteBuilder group;
  ByteBuilder two;
  two.u4(2);
  Name(group, "g");
  Block(group, "grup", two);
  group.raw(Object("a", kSquare, {{0, 1, 2, 3}})).raw(Object("b", kSquare, {{0, 2, 3}}));
  End(group);
  Info curve;
  curve.curve = 1;
  ByteBuilder owner;
  Colour(owner, 1, 2, 3);
  Geom(owner, curve, kSquare);
  Block(owner, "ctrl", Object("c", kSquare, {{0, 1, 2}}));
  End(owner);
  const ByteBuilder whole = File({group, owner});
  ASSERT_TRUE(ReadBytes(whole).scene);
  for (std::size_t n = 0; n < whole.size(); ++n) {
    ByteBuilder cut(std::vector<std::uint8_t>(whole.data.begin(), whole.data.begin() + long(n)));
    Read r = ReadBytes(cut);
    if (!r.scene && n >= 4) {
      EXPECT_NE(r.error, IO_FILE_OK) << n;
    }
  }
}

// What an AMAPI file holds survives a trip through a Lightwave object.
TEST_F(AmapiIo, RoundTripThroughLightwave) {
  ByteBuilder box;
  Name(box, "Box");
  Colour(box, 0x10, 0x20, 0x30);
  Geom(box, {}, {{0, 0, 0}, {2, 0, 0}, {2, 3, 0}, {0, 3, 0}, {1, 1, 5}},
       {{0, 1, 2, 3}, {0, 1, 4}, {1, 2, 4}});
  End(box);
  Info curve;
  curve.curve = 1;
  const auto dir = test::ScratchDir("amapi_round_trip");
  const std::string a3d = (dir / "in.a3d").string(), lwo = (dir / "out.lwo").string();
  test::WriteFileBytes(a3d, File({box, Object("Ring", kSquare, {}, curve)}).data);

  C3DIo in(a3d, FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  std::unique_ptr<C3DScene> scene = in.ReadScene();
  ASSERT_TRUE(scene);
  C3DIo out(lwo, FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  ASSERT_EQ(out.SaveScene(*scene), 1) << out.GetIoErrorTxt();
  C3DIo back(lwo, FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  std::unique_ptr<C3DScene> again = back.ReadScene();
  ASSERT_TRUE(again);
  EXPECT_EQ(again->GetFaceNbr(), 3);
  EXPECT_EQ(again->GetPointNbr(), scene->GetPointNbr());
  int curves = 0;
  bool colour = false;
  for (C3DSceneNode* node : Nodes(*again)) {
    C3DBaseObject* o = node->GetBaseObject();
    if (o && o->GetKindOf() == OBJECT_CURVE) {
      ++curves;
      EXPECT_EQ(o->GetPointNbr(), 5);
    }
  }
  for (MaterialPosition pos = again->GetFirstMaterial(); pos;) {
    const CRGBColor& c = again->GetNextMaterial(pos)->GetDiffuseColor();
    colour = colour || (c.r == 0x30 && c.g == 0x20 && c.b == 0x10);
  }
  EXPECT_EQ(curves, 1);
  EXPECT_TRUE(colour);
  std::filesystem::remove_all(dir);
}
