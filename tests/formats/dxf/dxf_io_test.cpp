// The DXF codec end to end: the sample drawings, entities and their
// coordinate systems, block insertions, hostile bytes, and scenes written and
// read back.

#include "meshcore/formats/dxf/dxf_io.h"
#include "meshcore/formats/library.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include "tests/support/byte_builder.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

using namespace meshcore;
using namespace meshcore::test;

namespace {

const std::string kSamples = MESHCORE_SAMPLES_DIR "/dxf/";

// Pairs written as "code value code value ...", one token each, as DXF lines.
std::string Pairs(const std::string& tokens, const char* eol = "\n") {
  std::istringstream in(tokens);
  std::string token, out;
  while (in >> token)
    out += token + eol;
  return out;
}

std::string Entities(const std::string& body, const std::string& blocks = "") {
  return Pairs("0 SECTION 2 BLOCKS " + blocks + " 0 ENDSEC 0 SECTION 2 ENTITIES " + body +
               " 0 ENDSEC 0 EOF");
}

struct Node {
  std::string name;
  const C3DBaseObject* object;
  const C3DSceneNode* node;
};

std::vector<Node> Nodes(const C3DScene& scene) {
  std::vector<Node> nodes;
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = scene.GetFirstNode(nullptr); cursor;) {
    C3DSceneNode* node = scene.GetNextNode(object, cursor, nullptr);
    if (node)
      nodes.push_back({node->GetName(), object, node});
  }
  return nodes;
}

// Every point of every object as one sorted list, for comparing geometry
// whatever the point order.
std::vector<P3> AllPoints(const C3DScene& scene, int* faces = nullptr) {
  std::vector<P3> all;
  int count = 0;
  for (const Node& n : Nodes(scene)) {
    if (!n.object || !n.object->GetPointList())
      continue;
    for (int i = 0; i < n.object->GetPointNbr(); ++i)
      all.push_back(At(*n.object, i));
    count += n.object->GetFaceNbr();
  }
  std::sort(all.begin(), all.end());
  if (faces)
    *faces = count;
  return all;
}

std::vector<int> FaceSizes(const C3DBaseObject& object) {
  std::vector<int> sizes;
  for (int f = 0; f < object.GetFaceNbr(); ++f)
    sizes.push_back((*object.GetFaceList())[f].GetSize());
  return sizes;
}

void ExpectPoint(const P3& p, float x, float y, float z) {
  EXPECT_NEAR(p[0], x, 1e-5f);
  EXPECT_NEAR(p[1], y, 1e-5f);
  EXPECT_NEAR(p[2], z, 1e-5f);
}

class DxfIo : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }

  std::unique_ptr<C3DScene> Read(const std::string& text, int* error = nullptr) {
    C3DIo io("memory.dxf", FILE_PARSER_SILENT);
    CDxfIo codec(io);
    std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(text.data(), text.size(), 0));
    if (error)
      *error = io.GetIoError();
    detail_ = io.GetIoErrorDetail();
    return scene;
  }
  std::string Save(C3DScene* scene) {
    C3DIo io("memory.dxf", FILE_PARSER_SILENT);
    CDxfIo codec(io);
    std::string out;
    EXPECT_EQ(codec.SaveToMemory(scene, 0, out), 1) << io.GetIoErrorTxt();
    return out;
  }
  int ErrorOf(const std::string& text) {
    int error = 0;
    EXPECT_FALSE(Read(text, &error)) << text;
    return error;
  }

  std::string detail_;
};

std::string FileText(const std::string& path) {
  const auto bytes = ReadFileBytes(path);
  return std::string(bytes.begin(), bytes.end());
}

} // namespace

TEST_F(DxfIo, SamplesLoadWithLayersFacesAndLines) {
  auto line = Read(FileText(kSamples + "lineTest.dxf"));
  ASSERT_TRUE(line) << detail_;
  auto nodes = Nodes(*line);
  // Layer "1": its two faces (a quad and a triangle sharing an edge) and its line below.
  ASSERT_EQ(nodes.size(), 2u);
  EXPECT_EQ(nodes[0].name + "," + nodes[1].name, "1,1");
  EXPECT_EQ(line->GetParent(nodes[1].node), nodes[0].node);
  EXPECT_EQ(FaceSizes(*nodes[0].object), (std::vector<int>{4, 3}));
  EXPECT_EQ(nodes[0].object->GetPointNbr(), 5);
  ASSERT_EQ(nodes[1].object->GetKindOf(), OBJECT_CURVE);
  ExpectPoint(At(*nodes[1].object, 1), 0, 0.5f, -0.5f);
  // Colour 1 is red.
  const C3DMaterial* red = line->GetMaterial((*nodes[0].object->GetFaceList())[0].GetMaterialID());
  EXPECT_EQ(red->GetName(), "Color 1");
  EXPECT_EQ(std::pair(int(red->GetDiffuseColor().r), int(red->GetDiffuseColor().g)),
            std::pair(255, 0));

  auto egg = Read(FileText(kSamples + "PinkEggFromLW.dxf"));
  ASSERT_TRUE(egg) << detail_;
  int faces = 0;
  EXPECT_EQ(AllPoints(*egg, &faces).size(), 266u); // corners shared exactly are welded
  EXPECT_EQ(faces, 288);
  // The faces round the poles repeat a corner: they are triangles.
  const auto eggNodes = Nodes(*egg);
  ASSERT_EQ(eggNodes.size(), 1u);
  const auto sizes = FaceSizes(*eggNodes[0].object);
  EXPECT_EQ(std::count(sizes.begin(), sizes.end(), 3), 48);
}

TEST_F(DxfIo, EntitiesTheirCoordinateSystemsAndMeshes) {
  // SOLID corners cross over (1 2 4 3); an extrusion of -Z mirrors x.
  auto solid = Read(Entities(
      "0 SOLID 8 A 10 0 20 0 30 0 11 1 21 0 31 0 12 0 22 1 32 0 13 1 23 1 33 0 210 0 220 0 230 -1"
      " 0 LWPOLYLINE 8 B 90 3 70 1 38 2 10 1 20 0 10 2 20 0 10 2 20 3 210 0 220 0 230 -1"));
  ASSERT_TRUE(solid) << detail_;
  auto nodes = Nodes(*solid);
  ASSERT_EQ(nodes.size(), 3u); // A's mesh, B's group and its curve
  const C3DFace& quad = (*nodes[0].object->GetFaceList())[0];
  ASSERT_EQ(quad.GetSize(), 4);
  // Read back in file order (the model runs the other way): 0,0 1,0 1,1 0,1 mirrored.
  ExpectPoint(At(*nodes[0].object, quad[3]), 0, 0, 0);
  ExpectPoint(At(*nodes[0].object, quad[2]), -1, 0, 0);
  ExpectPoint(At(*nodes[0].object, quad[1]), -1, 1, 0);
  ExpectPoint(At(*nodes[0].object, quad[0]), 0, 1, 0);
  EXPECT_EQ(nodes[1].name, "B");
  ASSERT_EQ(nodes[2].object->GetPointNbr(), 4); // closed: the first point again
  ExpectPoint(At(*nodes[2].object, 0), -1, 0, -2);
  ExpectPoint(At(*nodes[2].object, 2), -2, 3, -2);
  ExpectPoint(At(*nodes[2].object, 3), -1, 0, -2);

  // A 3 x 2 polygon mesh closed in N, and a polyface of a quad and a triangle.
  std::string mesh = "0 POLYLINE 8 M 66 1 70 48 71 3 72 2";
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 2; ++j)
      mesh += " 0 VERTEX 8 M 10 " + std::to_string(i) + " 20 " + std::to_string(j) + " 30 0 70 64";
  mesh += " 0 SEQEND";
  mesh += " 0 POLYLINE 8 F 66 1 70 64 71 5 72 2";
  for (const char* p : {"0 0", "1 0", "1 1", "0 1", "2 0"})
    mesh += std::string(" 0 VERTEX 8 F 10 ") + p[0] + " 20 " + p[2] + " 30 0 70 192";
  mesh += " 0 VERTEX 8 F 70 128 71 1 72 2 73 3 74 4 0 VERTEX 8 F 70 128 71 2 72 5 73 -3"
          " 0 VERTEX 8 F 70 128 71 1 72 9 73 3 0 SEQEND";
  // Two triangles joined by a hidden edge are one quad.
  mesh += " 0 POLYLINE 8 H 66 1 70 64 71 4 72 2";
  for (const char* p : {"0 0", "1 0", "1 1", "0 1"})
    mesh += std::string(" 0 VERTEX 8 H 10 ") + p[0] + " 20 " + p[2] + " 30 0 70 192";
  mesh += " 0 VERTEX 8 H 70 128 71 1 72 2 73 -3 0 VERTEX 8 H 70 128 71 -1 72 3 73 4 0 SEQEND";
  auto meshes = Read(Entities(mesh));
  ASSERT_TRUE(meshes) << detail_;
  nodes = Nodes(*meshes);
  ASSERT_EQ(nodes.size(), 3u);
  // (3 - 1) x 2 quads; the index 9 record is dropped; the hidden edge joins.
  EXPECT_EQ(FaceSizes(*nodes[0].object), (std::vector<int>{4, 4, 4, 4}));
  EXPECT_EQ(FaceSizes(*nodes[1].object), (std::vector<int>{4, 3}));
  EXPECT_EQ(FaceSizes(*nodes[2].object), (std::vector<int>{4}));
}

TEST_F(DxfIo, InsertsPlaceArrayAndNestBlocksWithoutLooping) {
  const std::string blocks =
      "0 BLOCK 2 TRI 10 1 20 0 30 0 0 3DFACE 8 0 62 0 10 1 20 0 30 0 11 2 21 0 31 0 12 1 22 1 32 0"
      " 13 1 23 1 33 0 0 ENDBLK"
      " 0 BLOCK 2 SELF 0 INSERT 8 0 2 SELF 0 INSERT 8 0 2 TRI 0 ENDBLK";
  // TRI moved to (10, 0), turned 90 degrees, doubled, in two columns 5 apart.
  auto scene =
      Read(Entities("0 INSERT 8 L 62 3 2 TRI 10 10 20 0 30 0 41 2 42 2 43 2 50 90 70 2 44 5"
                    " 0 INSERT 8 S 2 SELF",
                    blocks));
  ASSERT_TRUE(scene) << detail_;
  auto nodes = Nodes(*scene);
  ASSERT_EQ(nodes.size(), 2u);
  EXPECT_EQ(nodes[0].name, "L"); // layer 0 in a block takes the insert's layer
  ASSERT_EQ(nodes[0].object->GetFaceNbr(), 2);
  const auto points = AllPoints(*scene);
  // The block's corner (2, 0) is 1 from its base: 2 after scaling, then turned to +y.
  auto has = [&](float x, float y) {
    return std::any_of(points.begin(), points.end(), [&](const P3& p) {
      return std::fabs(p[0] - x) < 1e-5f && std::fabs(p[1] - y) < 1e-5f;
    });
  };
  EXPECT_TRUE(has(10, 2));
  EXPECT_TRUE(has(10, 7)); // the column step turns with the block
  // "By block" colour takes the insert's green.
  EXPECT_EQ(scene->GetMaterial((*nodes[0].object->GetFaceList())[0].GetMaterialID())->GetName(),
            "Color 3");
  // The block inserting itself is drawn once, with its triangle.
  EXPECT_EQ(nodes[1].name, "S");
  EXPECT_EQ(nodes[1].object->GetFaceNbr(), 1);

  // Arrays too large to expand are refused rather than filling memory.
  EXPECT_EQ(ErrorOf(Entities("0 INSERT 8 L 2 TRI 70 30000 71 30000", blocks)), IO_FILE_BAD_FORMAT);
  EXPECT_NE(detail_.find("block insertions"), std::string::npos);
}

TEST_F(DxfIo, DamagedFilesFailCleanlyAndOddLineEndsRead) {
  const std::string face = "0 3DFACE 8 A 10 0 20 0 30 0 11 1 21 0 31 0 12 1 22 1 32 0";
  EXPECT_EQ(ErrorOf(Entities("0 3DFACE 8 A 10 zero 20 0 30 0")), IO_FILE_BAD_FORMAT);
  EXPECT_NE(detail_.find("line"), std::string::npos) << detail_;
  EXPECT_EQ(ErrorOf(Pairs("0 SECTION 2 ENTITIES " + face)), IO_FILE_BAD_FORMAT);
  EXPECT_NE(detail_.find("never closed"), std::string::npos) << detail_;
  EXPECT_EQ(ErrorOf(Pairs("0 SECTION 2 ENTITIES " + face + " 0 ENDSEC 0")), IO_FILE_BAD_FORMAT);
  EXPECT_EQ(ErrorOf(Pairs("x SECTION")), IO_FILE_BAD_FORMAT);
  EXPECT_EQ(ErrorOf(Entities("0 CIRCLE 8 A 10 0 20 0 40 1")), IO_FILE_EMPTY);
  EXPECT_EQ(ErrorOf(Entities("0 CIRCLE 8 A 10 0 20 0 40 big")), IO_FILE_BAD_FORMAT);
  // Huge mesh counts that the vertices do not fill are skipped, not allocated.
  EXPECT_EQ(
      ErrorOf(Entities("0 POLYLINE 70 16 71 32767 72 32767 0 VERTEX 10 0 20 0 30 0 0 SEQEND")),
      IO_FILE_EMPTY);

  // Unknown codes and sections are skipped; CRLF and CR alone read the same.
  const std::string text = Pairs("0 SECTION 2 THUMBNAILIMAGE 90 3 310 ABC 0 ENDSEC") +
                           Entities(face + " 1234 whatever 1001 APP");
  for (const char* eol : {"\n", "\r\n", "\r"}) {
    std::string converted;
    for (char c : text)
      converted += c == '\n' ? std::string(eol) : std::string(1, c);
    auto scene = Read(converted);
    ASSERT_TRUE(scene) << detail_;
    EXPECT_EQ(AllPoints(*scene).size(), 3u);
  }

  // Every line-prefix of the samples loads or fails with a format error.
  for (const char* name : {"lineTest.dxf", "PinkEggFromLW.dxf"}) {
    const std::string whole = FileText(kSamples + name);
    std::vector<std::size_t> ends;
    for (std::size_t i = 0; i < whole.size(); ++i)
      if (whole[i] == '\n')
        ends.push_back(i + 1);
    const std::size_t step = std::max<std::size_t>(1, ends.size() / 400);
    for (std::size_t k = 0; k < ends.size(); k += step) {
      int error = 0;
      auto scene = Read(whole.substr(0, ends[k]), &error);
      if (!scene) {
        EXPECT_TRUE(error == IO_FILE_BAD_FORMAT || error == IO_FILE_EMPTY) << ends[k];
      }
    }
  }
}

TEST_F(DxfIo, BinaryDrawingsReadInBothCodeWidths) {
  for (bool wide : {false, true}) {
    SCOPED_TRACE(wide);
    ByteBuilder b(Endian::Little);
    for (char c : std::string("AutoCAD Binary DXF\r\n\x1a"))
      b.u1(std::uint8_t(c));
    b.u1(0);
    auto code = [&](unsigned c) -> ByteBuilder& { return wide ? b.u2(c) : b.u1(c); };
    auto dbl = [&](unsigned c, double v) {
      code(c);
      std::uint64_t bits;
      std::memcpy(&bits, &v, 8);
      b.u4(std::uint32_t(bits)).u4(std::uint32_t(bits >> 32));
    };
    code(0).cstr("SECTION");
    code(2).cstr("ENTITIES");
    code(0).cstr("3DFACE");
    code(8).cstr("BIN");
    code(62).u2(5);
    for (unsigned corner = 0; corner < 3; ++corner) {
      dbl(10 + corner, corner == 1 ? 4.0 : 0.0);
      dbl(20 + corner, corner == 2 ? 4.0 : 0.0);
      dbl(30 + corner, 1.5);
    }
    code(0).cstr("ENDSEC");
    code(0).cstr("EOF");
    auto scene = Read(std::string(b.data.begin(), b.data.end()));
    ASSERT_TRUE(scene) << detail_;
    const auto points = AllPoints(*scene);
    ASSERT_EQ(points.size(), 3u);
    ExpectPoint(points[2], 4, 0, 1.5f);
    // Cut inside the last value.
    EXPECT_EQ(ErrorOf(std::string(b.data.begin(), b.data.end() - 30)), IO_FILE_BAD_FORMAT);
  }
}

TEST_F(DxfIo, ScenesWriteAsR12AndReadBack) {
  C3DScene scene;
  // A cube of quads, a pentagon and a curve, on names DXF cannot hold as they are.
  const float h = 1.1f;
  auto cube = MakeMesh(
      {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, h}, {1, 0, h}, {1, 1, h}, {0, 1, h}},
      {{0, 1, 2, 3}, {4, 7, 6, 5}, {0, 4, 5, 1}, {1, 5, 6, 2}, {2, 6, 7, 3}, {3, 7, 4, 0}});
  C3DMaterial* blue = scene.CreateNewMaterial();
  blue->SetDiffuseColor(CRGBColor(10, 20, 250, 255));
  for (int f = 0; f < 6; ++f)
    (*cube->GetFaceList())[f].SetMaterialID(blue->GetMaterialID());
  auto cubeNode = new C3DSceneNode(cube.release(), 1);
  cubeNode->SetName("my cube!");
  auto penta =
      MakeMesh({{0, 0, 0}, {0.3f, 0, 0}, {0.4f, 0.2f, 0}, {0.15f, 0.35f, 0}, {-0.1f, 0.2f, 0}},
               {{0, 1, 2, 3, 4}});
  auto pentaNode = new C3DSceneNode(penta.release(), 1);
  pentaNode->SetName("Penta");
  scene.AddNode(nullptr, pentaNode);
  auto curve = new C3DCurve;
  curve->SetPointList(new C3DPointList);
  curve->GetPointList()->SetSize(3);
  (*curve->GetPointList())[0] = C3DPoint(0.1f, 0.2f, 0.3f);
  (*curve->GetPointList())[1] = C3DPoint(1.0f / 3.0f, 2, 3);
  (*curve->GetPointList())[2] = C3DPoint(-4, 5, 6e-7f);
  auto curveNode = new C3DSceneNode(curve, 1);
  curveNode->SetName("Penta");
  scene.AddNode(pentaNode, curveNode);
  scene.AddNode(nullptr, cubeNode); // a new node goes first
  scene.GetCustomData().SetInt(kCustomDxfUnits, 4);

  const std::string text = Save(&scene);
  EXPECT_EQ(Save(&scene), text); // deterministic
  EXPECT_NE(text.find("AC1009"), std::string::npos);
  EXPECT_NE(text.find("\nmy_cube_\n"), std::string::npos);
  EXPECT_NE(text.find("\n 62\n5\n"), std::string::npos); // the nearest palette blue
  auto back = Read(text);
  ASSERT_TRUE(back) << detail_;
  auto nodes = Nodes(*back);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(nodes[0].name + "," + nodes[1].name + "," + nodes[2].name, "my_cube_,Penta,Penta");
  EXPECT_EQ(back->GetParent(nodes[2].node), nodes[1].node);
  EXPECT_EQ(FaceSizes(*nodes[0].object), std::vector<int>(6, 4));
  EXPECT_EQ(FaceSizes(*nodes[1].object), (std::vector<int>{5})); // the pentagon comes back whole
  EXPECT_EQ(AllPoints(*back), AllPoints(scene));                 // written with every digit needed
  // The faces keep their winding.
  EXPECT_EQ(At(*nodes[0].object, (*nodes[0].object->GetFaceList())[0][1]), (P3{1, 0, 0}));
  int units = 0;
  EXPECT_TRUE(back->GetCustomData().GetInt(kCustomDxfUnits, units, 0));
  EXPECT_EQ(units, 4);
}

TEST_F(DxfIo, CancelledReadsAndSavesLeaveNothing) {
  const std::string egg = FileText(kSamples + "PinkEggFromLW.dxf");
  auto scene = Read(egg);
  ASSERT_TRUE(scene);
  const auto path = (ScratchDir("dxf_cancel") / "egg.dxf").string();
  SetCancel(1, 0);
  int error = 0;
  EXPECT_FALSE(Read(egg, &error));
  C3DIo out(path, FILE_PARSER_SILENT);
  const int saved = out.SaveScene(*scene);
  SetCancel(0, 0);
  EXPECT_EQ(error, IO_FILE_CANCELLED);
  EXPECT_EQ(saved, 0);
  EXPECT_EQ(out.GetIoError(), IO_FILE_CANCELLED);
  EXPECT_FALSE(std::filesystem::exists(path));
}
