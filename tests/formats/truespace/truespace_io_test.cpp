// The trueSpace codec end to end: real files in both encodings, hostile
// bytes, and scenes written and read back.

#include "meshcore/formats/library.h"
#include "meshcore/formats/truespace/truespace_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include "tests/support/byte_builder.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>

using namespace meshcore;
using namespace meshcore::test;

namespace {

const std::string kSamples = MESHCORE_SAMPLES_DIR "/truespace/";

std::vector<std::uint8_t> Bytes(const std::string& s) {
  return {s.begin(), s.end()};
}

// An ascii chunk: its header, then a body that starts with a line end.
std::string Chunk(const char* type, unsigned id, unsigned parent, const std::string& body) {
  char header[96];
  std::snprintf(header, sizeof header, "%s V0.06 Id %u Parent %u Size %08zu", type, id, parent,
                body.size());
  return header + body;
}

std::string Ascii(const std::string& chunks) {
  std::string header = "Caligari V00.01ALH";
  header.resize(31, ' ');
  return header + "\n" + chunks + "END  V1.00 Id 0 Parent 0 Size        0";
}

const char* kFrame = "\ncenter 0 0 0\nx axis 1 0 0\ny axis 0 1 0\nz axis 0 0 1\nTransform\n"
                     "1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1";

// A mesh chunk holding one triangle.
std::string Triangle(unsigned id, unsigned parent, const std::string& name) {
  return Chunk("PolH", id, parent,
               "\nName " + name + kFrame +
                   "\nWorld Vertices 3\n0 0 0\n1 0 0\n0 1 0\nTexture Vertices 0\nFaces 1\n"
                   "Face verts 3 flags 0 mat 0\n<0,0> <1,0> <2,0> \n");
}

std::string Group(unsigned id, unsigned parent, const std::string& name) {
  return Chunk("Grou", id, parent, "\nName " + name + kFrame + "\n");
}

// The scene as text: one line per node with its depth, name, counts and world
// box, so that two scenes compare as a whole.
std::string Describe(C3DScene& scene, int digits = 4) {
  std::ostringstream out;
  out.precision(digits);
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = scene.GetFirstNode(nullptr); cursor;) {
    C3DSceneNode* node = scene.GetNextNode(object, cursor, nullptr);
    if (!node)
      break;
    out << std::string(scene.GetNodeDepth(node), ' ') << node->GetName();
    if (object && object->GetKindOf() != OBJECT_GROUP) {
      C4x4Matrix world;
      node->GetMatrix(NODE_MATRIX_TRANSFORM, world, 0);
      C3DPoint lo(1e30f, 1e30f, 1e30f), hi(-1e30f, -1e30f, -1e30f);
      const C3DPointList& points = *object->GetPointList();
      for (int i = 0; i < points.GetSize(); ++i) {
        const C3DPoint p = points[i] * world;
        lo = C3DPoint(std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z));
        hi = C3DPoint(std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z));
      }
      out << " points " << object->GetPointNbr() << " faces " << object->GetFaceNbr() << " box "
          << lo.x << ' ' << lo.y << ' ' << lo.z << " .. " << hi.x << ' ' << hi.y << ' ' << hi.z;
      // The colours of the first and last faces.
      for (int f : {0, object->GetFaceNbr() - 1}) {
        if (f < 0)
          break;
        const CRGBColor& c =
            scene.GetMaterial((*object->GetFaceList())[f].GetMaterialID())->GetDiffuseColor();
        out << " rgb " << int(c.r) << ',' << int(c.g) << ',' << int(c.b);
      }
    }
    out << '\n';
  }
  return out.str();
}

// A binary file of one triangle mesh (id 7): its vertex count, its face's
// corner count and its chunk size (0: the true one) may lie; more chunks follow.
std::vector<std::uint8_t> BinaryTriangle(std::uint32_t points, std::uint32_t corners,
                                         std::uint32_t size,
                                         const ByteBuilder& more = ByteBuilder(Endian::Little)) {
  ByteBuilder body(Endian::Little);
  body.u2(0).u2(3).id("tri\0");
  body.data.pop_back();
  for (float v : {0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 1.f})
    body.f4(v);
  for (float v : {1.f, 0.f, 0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 0.f, 1.f, 0.f})
    body.f4(v);
  body.u4(points);
  for (int i = 0; i < 3; ++i)
    body.f4(float(i == 1)).f4(float(i == 2)).f4(0);
  body.u4(0).u4(1).u1(0).u2(corners).u2(0);
  for (std::uint32_t k = 0; k < 3; ++k)
    body.u4(k).u4(0);
  ByteBuilder file(Endian::Little);
  std::string header = "Caligari V00.01BLH";
  header.resize(31, ' ');
  for (char c : header + "\n")
    file.u1(std::uint8_t(c));
  file.id("PolH").u2(0).u2(6).u4(7).u4(0).u4(size ? size : std::uint32_t(body.size()));
  file.raw(body).raw(more).id("END ").u2(1).u2(0).u4(0).u4(0).u4(0);
  return file.data;
}

class TruespaceIo : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }

  std::unique_ptr<C3DScene> Read(const std::vector<std::uint8_t>& bytes, int* error = nullptr) {
    C3DIo io("memory.cob", FILE_PARSER_SILENT);
    CTruespaceIo codec(io);
    std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(bytes.data(), bytes.size(), 0));
    if (error)
      *error = io.GetIoError();
    detail_ = io.GetIoErrorDetail();
    return scene;
  }
  std::string Save(C3DScene* scene) {
    C3DIo io("memory.cob", FILE_PARSER_SILENT);
    CTruespaceIo codec(io);
    std::string out;
    EXPECT_EQ(codec.SaveToMemory(scene, 0, out), 1) << io.GetIoErrorTxt();
    return out;
  }
  int ErrorOf(const std::string& text) {
    int error = 0;
    EXPECT_FALSE(Read(Bytes(text), &error)) << text.substr(0, 200);
    return error;
  }

  std::string detail_;
};

} // namespace

TEST_F(TruespaceIo, SamplesLoadAndEncodingsAgree) {
  auto binary = Read(ReadFileBytes(kSamples + "molecule.cob"));
  ASSERT_TRUE(binary) << detail_;
  auto ascii = Read(ReadFileBytes(kSamples + "molecule_ascii.cob"));
  ASSERT_TRUE(ascii) << detail_;
  // The ascii file rounds to six digits: compare at four.
  EXPECT_EQ(Describe(*binary), Describe(*ascii));
  const std::string tree = Describe(*binary, 3);
  // A group of four spheres, each placed by its own position matrix: the
  // central one scaled to 2.71, the others beside it.
  EXPECT_EQ(tree.substr(0, tree.find('\n')), "Nitrogen");
  EXPECT_NE(tree.find(" Sphere points 114 faces 128 box -2.71 -2.71 -2.71 .. 2.71 2.71 2.71 "),
            std::string::npos)
      << tree;
  EXPECT_NE(tree.find(" Sphere,1 points 114 faces 128 box 2.71 -0.541"), std::string::npos) << tree;
  EXPECT_EQ(binary->GetNodeNbr(1), 4);
  EXPECT_EQ(binary->GetMaterialNumber(), 4);

  auto spider = Read(ReadFileBytes(kSamples + "spider_4_3_ascii.cob"));
  ASSERT_TRUE(spider) << detail_;
  EXPECT_EQ(spider->GetFaceNbr(), 1368);
  // Four materials by number; every face takes the one its number names.
  EXPECT_EQ(spider->GetMaterialNumber(), 4);
  std::set<unsigned> used;
  const C3DBaseObject* object = spider->GetFirstNode(nullptr)->GetBaseObject();
  for (int f = 0; f < object->GetFaceNbr(); ++f)
    used.insert((*object->GetFaceList())[f].GetMaterialID());
  EXPECT_EQ(used.size(), 4u);
  EXPECT_EQ(used.count(0), 0u);
  // trueSpace gives an untextured mesh one texture vertex: no channel.
  EXPECT_FALSE(object->GetChannel(object->GetGlobalUVWChannel(), CHANNEL_UVW));
}

TEST_F(TruespaceIo, TruncatedSamplesLoadOrFailCleanly) {
  for (const char* name : {"molecule.cob", "molecule_ascii.cob", "spider_4_3_ascii.cob"}) {
    SCOPED_TRACE(name);
    const auto bytes = ReadFileBytes(kSamples + name);
    const std::size_t step = bytes.size() / 400 + 1;
    for (std::size_t n = 0; n < bytes.size(); n += step) {
      std::vector<std::uint8_t> prefix(bytes.begin(), bytes.begin() + std::ptrdiff_t(n));
      int error = 0;
      if (!Read(prefix, &error)) {
        ASSERT_TRUE(error == IO_FILE_BAD_FORMAT || error == IO_FILE_EMPTY) << n << " " << error;
      }
    }
  }
}

TEST_F(TruespaceIo, HostileFilesAreBadFormatAndTreesStayFinite) {
  ASSERT_TRUE(Read(Bytes(Ascii(Triangle(1, 0, "tri")))));
  EXPECT_EQ(ErrorOf("Caligarx V00.01ALH             \n"), IO_FILE_BAD_FORMAT);
  EXPECT_EQ(ErrorOf("Caligari V00.01QLH             \n"), IO_FILE_BAD_FORMAT);
  // Sizes and counts past the file, corners past the vertices, words for numbers.
  std::string t = Triangle(1, 0, "tri");
  for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
           {"Size 00000", "Size 99999"},
           {"World Vertices 3", "World Vertices 4000000000"},
           {"World Vertices 3", "World Vertices 4"},
           {"Faces 1", "Faces 2"},
           {"<2,0>", "<3,0>"},
           {"<2,0>", "<2;0>"},
           {"1 0 0\n0 1", "1 x 0\n0 1"}}) {
    std::string bad = t;
    bad.replace(bad.find(from), from.size(), to);
    EXPECT_EQ(ErrorOf(Ascii(bad)), IO_FILE_BAD_FORMAT) << to;
    EXPECT_NE(detail_.find("at byte"), std::string::npos) << detail_;
  }
  // A file without meshes is empty; unknown chunks are skipped by their size.
  EXPECT_EQ(ErrorOf(Ascii(Group(1, 0, "g"))), IO_FILE_EMPTY);
  EXPECT_TRUE(Read(Bytes(Ascii(Chunk("Zzzz", 5, 0, "\nPolH V0.06 nonsense\n") + t))));

  // Binary: the same mesh, then counts that run past the chunk.
  ASSERT_TRUE(Read(BinaryTriangle(3, 3, 0))) << detail_;
  int error = 0;
  for (const auto& bytes : {BinaryTriangle(0x7FFFFFFF, 3, 0), BinaryTriangle(3, 60000, 0),
                            BinaryTriangle(3, 3, 1000000), BinaryTriangle(2, 3, 0)}) {
    EXPECT_FALSE(Read(bytes, &error));
    EXPECT_EQ(error, IO_FILE_BAD_FORMAT) << detail_;
  }

  // Parents that loop (a group its own parent, two groups each other's) or
  // that name nothing leave the nodes at the top; every node is kept.
  auto looped = Read(Bytes(Ascii(Group(1, 1, "self") + Group(2, 3, "a") + Group(3, 2, "b") +
                                 Triangle(4, 3, "t1") + Triangle(5, 99, "t2"))));
  ASSERT_TRUE(looped) << detail_;
  const std::string tree = Describe(*looped, 2);
  EXPECT_EQ(looped->GetNodeNbr(0), 5) << tree;
  EXPECT_NE(tree.find("self\n"), std::string::npos) << tree;
  EXPECT_NE(tree.find("\nt2 points"), std::string::npos) << tree;
  EXPECT_NE(tree.find("\n  t1 points"), std::string::npos) << tree;
}

TEST_F(TruespaceIo, FacesHolesAndMaterialsByNumber) {
  // Two faces of materials 1 and 7 (7 has no chunk: the default), a hole that
  // is dropped, a line that is not drawn, and corners that wrap over lines.
  const std::string mesh =
      Chunk("PolH", 10, 0,
            std::string("\nName quad,2") + kFrame +
                "\nWorld Vertices 4\n0 0 0\n1 0 0\n1 1 0\n0 1 0\nTexture Vertices 2\n0 0\n1 0.25\n"
                "Faces 5\nFace verts 4 flags 0 mat 1\n<0,0> <1,1>\n<2,1> <3,0> \n"
                "Hole verts 3 flags 8\n<0,0> <1,0> <2,0> \n"
                "Face verts 3 flags 0 mat 7\n<0,0> <2,1> <3,5> \n"
                "Face verts 2 flags 0 mat 1\n<0,0> <1,0> \n"
                "Face verts 3 flags 0 mat 1\n<0,0> <1,0> <2,0> \nDrawFlags 0\n");
  const std::string material = Chunk(
      "Mat1", 11, 10,
      "\nmat# 1\nshader: phong  facet: auto40\nrgb 1,0.5,0\nalpha 0.25  ka 0.5  ks 0.75  "
      "exp 0  ior 1\ntexture: 1112brick.bmp\noffset 0.5,0  repeats 2,3  flags 2\nbump: 8bump.bmp\n"
      "offset 9,9  repeats 9,9  flags 2  amplitude 1\n");
  auto scene = Read(Bytes(Ascii(mesh + material)));
  ASSERT_TRUE(scene) << detail_;
  C3DSceneNode* node = scene->GetFirstNode(nullptr);
  EXPECT_EQ(node->GetName(), "quad,2");
  C3DBaseObject& object = *node->GetBaseObject();
  ASSERT_EQ(object.GetFaceNbr(), 3);
  const C3DFaceList& faces = *object.GetFaceList();
  EXPECT_EQ(Indices(faces[0]), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(Indices(faces[1]), (std::vector<int>{0, 2, 3}));
  EXPECT_EQ(faces[1].GetMaterialID(), 0u);
  EXPECT_EQ(faces[0].GetMaterialID(), faces[2].GetMaterialID());
  const C3DMaterial* m = scene->GetMaterial(faces[0].GetMaterialID());
  ASSERT_TRUE(m);
  EXPECT_TRUE(m->GetDiffuseColor() == CRGBColor(255, 128, 0, 255));
  EXPECT_FLOAT_EQ(m->GetTransparencyFactor(), 0.75f);
  EXPECT_FLOAT_EQ(m->GetSpecularFactor(), 0.75f);
  ASSERT_TRUE(m->GetDiffuseMaps());
  EXPECT_EQ(m->GetDiffuseMaps()->GetFileName(), "12brick.bmp");
  const C4x4Matrix& place = m->GetDiffuseMaps()->GetMatrix();
  EXPECT_EQ((std::vector<float>{place.m[0][0], place.m[1][1], place.m[0][3]}),
            (std::vector<float>{2, 3, 0.5f}));
  // Texture corners run with the faces; one naming no vertex gets a point at 0.
  auto* uvw =
      static_cast<CUVWChannel*>(object.GetChannel(object.GetGlobalUVWChannel(), CHANNEL_UVW));
  ASSERT_TRUE(uvw);
  EXPECT_EQ(m->GetDiffuseMaps()->GetChannelID(), uvw->GetID());
  EXPECT_EQ(Indices((*uvw->GetUVWFaceList())[1]), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ((*uvw->GetUVWPointList())[1].v, -0.25f);
  EXPECT_EQ((*uvw->GetUVWPointList())[2].u, 0.0f);

  // The binary material: number, shader, facet and angle, colour and factors,
  // then an environment map (file only) and a texture map with its placement.
  ByteBuilder mat(Endian::Little);
  mat.u2(0).u1('p').u1('a').u1(30);
  for (float v : {0.f, 1.f, 0.f, 0.5f, 0.1f, 0.2f, 0.f, 1.f})
    mat.f4(v);
  mat.u1('e').u1(':').u1(0).u2(3).id("sky\0");
  mat.data.pop_back();
  mat.u1('t').u1(':').u1(2).u2(8).id("wood").id(".bmp").f4(0.25f).f4(0).f4(4).f4(1);
  ByteBuilder chunk(Endian::Little);
  chunk.id("Mat1").u2(0).u2(6).u4(8).u4(7).u4(std::uint32_t(mat.size())).raw(mat);
  auto binary = Read(BinaryTriangle(3, 3, 0, chunk));
  ASSERT_TRUE(binary) << detail_;
  const C3DBaseObject* tri = binary->GetFirstNode(nullptr)->GetBaseObject();
  const C3DMaterial* wood = binary->GetMaterial((*tri->GetFaceList())[0].GetMaterialID());
  ASSERT_TRUE(wood && wood->GetDiffuseMaps());
  EXPECT_EQ(wood->GetDiffuseColor().g, 255);
  EXPECT_FLOAT_EQ(wood->GetTransparencyFactor(), 0.5f);
  EXPECT_EQ(wood->GetDiffuseMaps()->GetFileName(), "wood.bmp");
  const C4x4Matrix& woodPlace = wood->GetDiffuseMaps()->GetMatrix();
  EXPECT_EQ(std::pair(woodPlace.m[0][0], woodPlace.m[0][3]), std::pair(4.0f, 0.25f));
}

TEST_F(TruespaceIo, SceneRoundTripKeepsPointsFacesTexturesMaterialsAndTree) {
  auto scene = std::make_unique<C3DScene>();
  C3DMaterial* red = scene->CreateNewMaterial();
  red->SetName("Red");
  red->SetDiffuseColor(CRGBColor(255, 0, 0, 255));
  red->SetTransparencyFactor(0.5f);
  CMaterialMap* map = red->AddMaterialMap("maps/brick 1.png", kNoChannel, MAP_DIFFUSE);
  map->SetUVWOffset(0.25f, 0, 0);
  map->SetUVWRepeat(2, 4, 1);
  C3DMaterial* blue = scene->CreateNewMaterial();
  blue->SetDiffuseColor(CRGBColor(0, 0, 255, 255));
  blue->SetSpecularFactor(0.3f);

  auto mesh = MakeMesh({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0.1f}, {2, 2, 2}},
                       {{0, 1, 2, 3}, {1, 4, 2}});
  (*mesh->GetFaceList())[0].SetMaterialID(red->GetMaterialID());
  (*mesh->GetFaceList())[1].SetMaterialID(blue->GetMaterialID());
  CUVWChannel* uv = MakeUVW({{0, 0}, {1, -0.5f}, {0.3f, 1e-7f}}, {{0, 1, 2, 0}, {1, 2, 0}});
  mesh->AddChannel(uv);
  mesh->SetGlobalUVWChannel(uv->GetID());
  auto* group = new C3DSceneNode(new C3DGroup, 1);
  group->SetName("Group");
  C4x4Matrix place(1);
  place.InitScale(2, 2, 2);
  place.InitTranslation(1, 2, 3);
  group->SetMatrix(NODE_MATRIX_TRANSFORM, place);
  scene->AddNode(nullptr, group);
  auto* node = new C3DSceneNode(mesh.release(), 1);
  node->SetName("Mesh\nwith a line end");
  place.InitTranslation(0, 0, -1);
  node->SetMatrix(NODE_MATRIX_TRANSFORM, place);
  scene->AddNode(group, node);

  const std::string text = Save(scene.get());
  EXPECT_EQ(Save(scene.get()), text); // deterministic
  EXPECT_EQ(text.substr(0, 32), "Caligari V00.01ALH             \n");
  // The group stays at the origin; the mesh carries the group's placement too.
  EXPECT_NE(text.find("Grou V0.01 Id 1 Parent 0 Size 00000106\nName Group\n"
                      "center 0 0 0\nx axis 1 0 0\ny axis 0 1 0\nz axis 0 0 1\nTransform\n"
                      "1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\nPolH V0.06 Id 2 Parent 1 "),
            std::string::npos)
      << text.substr(0, 400);
  EXPECT_NE(text.find("Transform\n4 0 0 1\n0 4 0 2\n0 0 4 1\n"), std::string::npos);
  auto back = Read(Bytes(text));
  ASSERT_TRUE(back) << detail_;
  std::string expected = Describe(*scene, 7);
  expected.replace(expected.find("Mesh\nwith"), 5, "Mesh ");
  EXPECT_EQ(Describe(*back, 7), expected);

  C3DSceneNode* meshNode = back->GetFirstNode(back->GetFirstNode(nullptr));
  ASSERT_TRUE(meshNode);
  const C3DBaseObject& object = *meshNode->GetBaseObject();
  const C3DBaseObject& source = *node->GetBaseObject();
  auto* backUv =
      static_cast<CUVWChannel*>(object.GetChannel(object.GetGlobalUVWChannel(), CHANNEL_UVW));
  ASSERT_TRUE(backUv);
  for (int f = 0; f < 2; ++f) {
    const CFace &a = (*source.GetFaceList())[f], &ta = (*uv->GetUVWFaceList())[f];
    const CFace &b = (*object.GetFaceList())[f], &tb = (*backUv->GetUVWFaceList())[f];
    ASSERT_EQ(Indices(b), Indices(a));
    for (int k = 0; k < a.GetSize(); ++k) {
      EXPECT_EQ(At(object, b[k]), At(source, a[k]));
      EXPECT_TRUE((*uv->GetUVWPointList())[ta[k]] == (*backUv->GetUVWPointList())[tb[k]]);
    }
  }
  const C3DMaterial* backRed = back->GetMaterial((*object.GetFaceList())[0].GetMaterialID());
  ASSERT_TRUE(backRed && backRed->GetDiffuseMaps());
  EXPECT_FLOAT_EQ(backRed->GetTransparencyFactor(), 0.5f);
  EXPECT_EQ(backRed->GetDiffuseMaps()->GetFileName(), "maps/brick 1.png");
  EXPECT_TRUE(backRed->GetDiffuseMaps()->GetMatrix() == map->GetMatrix());
  const C3DMaterial* backBlue = back->GetMaterial((*object.GetFaceList())[1].GetMaterialID());
  EXPECT_EQ(backBlue->GetDiffuseColor().b, 255);
  EXPECT_FLOAT_EQ(backBlue->GetSpecularFactor(), 0.3f);

  // Without texture coordinates every corner names one texture vertex at 0,
  // which reads back as no channel.
  auto plain = Read(Bytes(Ascii(Triangle(1, 0, "tri"))));
  ASSERT_TRUE(plain);
  const std::string plainText = Save(plain.get());
  EXPECT_NE(plainText.find("\nTexture Vertices 1\n0 0\nFaces 1\nFace verts 3 flags 0 mat 0\n"
                           "<0,0> <1,0> <2,0> \n"),
            std::string::npos)
      << plainText;
}

TEST_F(TruespaceIo, CancelledReadsAndSavesLeaveNothing) {
  const auto bytes = Bytes(Ascii(Triangle(1, 0, "tri")));
  auto scene = Read(bytes);
  ASSERT_TRUE(scene);
  const auto dir = ScratchDir("truespace_cancel");
  const std::string path = (dir / "out.cob").string();
  SetCancel(1, 0);
  int error = 0;
  EXPECT_FALSE(Read(bytes, &error));
  EXPECT_EQ(error, IO_FILE_CANCELLED);
  C3DIo io(path, FILE_PARSER_SILENT);
  EXPECT_EQ(io.Save(0, scene.get(), 0), 0);
  EXPECT_EQ(io.GetIoError(), IO_FILE_CANCELLED);
  SetCancel(0, 0);
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(io.Save(0, scene.get(), 0), 1);
  std::filesystem::remove_all(dir);
}
