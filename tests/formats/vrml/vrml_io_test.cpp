// The VRML codec end to end: the text the writer produces, what the reader
// builds from VRML and Inventor files, round trips and the failure codes.

#include "meshcore/formats/library.h"
#include "meshcore/formats/vrml/vrml_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"
#include "tests/support/mesh_fixtures.h"
#include "vrml_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

using namespace meshcore;
using namespace meshcore::vrmltest;

namespace {

class VrmlIo : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
  void SetUp() override { SetLanguage("en"); }
  void TearDown() override { SetLanguage(""); }

  // Reads text through the codec; error holds the owner's code afterwards.
  std::unique_ptr<C3DScene> Read(const std::string& text, int* error = nullptr,
                                 std::string* detail = nullptr) {
    C3DIo io("memory.wrl", FILE_PARSER_LOADING | kSilent);
    CVrmlIo codec(io);
    std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(text.data(), text.size(), 0));
    if (error)
      *error = io.GetIoError();
    if (detail)
      *detail = io.GetIoErrorDetail();
    return scene;
  }
  std::string Write(C3DScene& scene) {
    C3DIo io("memory.wrl", kSilent);
    CVrmlIo codec(io);
    std::string out;
    EXPECT_EQ(codec.SaveToMemory(&scene, 0, out), 1);
    return out;
  }
};

// A mesh of quads in a row; face i gets materials[i].
C3DObject* Strip(int quads, const std::vector<unsigned>& materials) {
  std::vector<test::P3> points;
  test::Faces faces;
  for (int i = 0; i <= quads; ++i) {
    points.push_back({float(i), 0, 0.5f * float(i)});
    points.push_back({float(i), 1, -0.25f});
  }
  for (int i = 0; i < quads; ++i)
    faces.push_back({2 * i, 2 * i + 2, 2 * i + 3, 2 * i + 1});
  auto object = test::MakeMesh(points, faces);
  for (int i = 0; i < quads; ++i)
    (*object->GetFaceList())[i].SetMaterialID(materials[std::size_t(i)]);
  return object.release();
}

// Texture coordinates equal to the points' x/4 and y, one per mesh point.
void AddUV(C3DObject* object) {
  auto* channel = new CUVWChannel;
  const C3DPointList& pts = *object->GetPointList();
  channel->GetUVWPointList()->SetSize(pts.GetSize());
  for (int i = 0; i < pts.GetSize(); ++i)
    (*channel->GetUVWPointList())[i].SetUV(pts[i].x / 4, pts[i].y, 0);
  const C3DFaceList& faces = *object->GetFaceList();
  channel->GetUVWFaceList()->SetSize(faces.GetSize());
  for (int f = 0; f < faces.GetSize(); ++f)
    (*channel->GetUVWFaceList())[f] = static_cast<const CIntArrayID&>(faces[f]);
  const unsigned id = channel->GetID();
  object->AddChannel(channel);
  object->SetGlobalUVWChannel(id);
}

C3DMaterial* AddMaterial(C3DScene& scene, int r, int g, int b, float shine,
                         const std::string& texture = {}) {
  C3DMaterial* m = scene.CreateNewMaterial();
  m->SetDiffuseColor(CRGBColor(r, g, b, 255));
  m->SetAmbientColor(CRGBColor(b, g, r, 255));
  m->SetSpecularColor(CRGBColor(255, 255, 255, 255));
  m->SetSpecularFactor(shine);
  m->SetTransparencyFactor(0.25f);
  if (!texture.empty())
    m->AddMaterialMap(texture, kNoChannel, MAP_DIFFUSE);
  return m;
}

} // namespace

// The file layout, line for line: labels, anchors, coordinates, materials in
// table order and material indices four to a line.
TEST_F(VrmlIo, WritesTheDocumentedLayout) {
  C3DScene scene;
  const unsigned a = AddMaterial(scene, 255, 0, 0, 0.5f)->GetMaterialID();
  const unsigned b = AddMaterial(scene, 0, 255, 0, 0.2f)->GetMaterialID();
  const unsigned c = AddMaterial(scene, 0, 0, 255, 0.2f)->GetMaterialID();
  auto* node = new C3DSceneNode(Strip(5, {a, b, c, a, b}), 1);
  node->SetName("3D-box_2");
  scene.AddNode(nullptr, node);
  auto* digits = new C3DSceneNode(Strip(1, {a}), 1);
  digits->SetName("123");
  scene.AddNode(nullptr, digits);
  const std::string text = Write(scene);

  EXPECT_EQ(
      text.rfind("#VRML V1.0 ascii\nSeparator { # Scene beginning\n\tWWWAnchor {\n"
                 "\t\tname \"Scene\"\n\t}\n\tInfo {\n\t\tstring \"Scene created by Quillmesh (",
                 0),
      0u)
      << text;
  for (const char* part :
       {"\tDEF Dbox Separator { # Dbox beginning\n\t\tWWWAnchor {\n\t\t\tname \"Dbox\"\n\t\t}\n"
        "\t\tShapeHints {\n\t\t\tcreaseAngle 0.52\n\t\t\tvertexOrdering UNKNOWN_ORDERING\n\t\t}\n"
        "\t\tCoordinate3 {\n\t\t\tpoint [\n\t\t\t0.0000 0.0000 0.0000,\n"
        "\t\t\t0.0000 1.0000 -0.2500,\n",
        "\t\tMaterialBinding {\n\t\t\tvalue PER_FACE_INDEXED\n\t\t}\n",
        "\t\tMaterial {\n\t\t\tdiffuseColor [\n", "\t\t\ttransparency [\n\t\t\t0.25,\n",
        "\t\t\tcoordIndex [\n\t\t\t0, 2, 3, 1, -1,\n\t\t\t2, 4, 5, 3, -1,\n",
        "\t\t\tmaterialIndex [\n\t\t\t",
        // A name without letters is labelled "Object"; one material binds OVERALL.
        "\tDEF Object Separator { # Object beginning\n", "\t\t\tvalue OVERALL\n"})
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nin\n" << text;
  // Five faces: four indices on the first line, the fifth on the next.
  const std::size_t mi = text.find("materialIndex [\n");
  const std::string indices = text.substr(mi, text.find(']', mi) - mi);
  EXPECT_EQ(std::count(indices.begin(), indices.end(), '\n'), 3) << indices;
  EXPECT_EQ(std::count(indices.begin(), indices.end(), ','), 5) << indices;
  EXPECT_EQ(text.substr(text.size() - 32), "\t} # 3D-box_2 end\n} # scene end\n");
  // Deterministic: a second save gives the same bytes.
  EXPECT_EQ(Write(scene), text);
}

// A textured mesh is written in groups of one material, each closed by the
// face where the material changes; a group opened on the last face is lost.
TEST_F(VrmlIo, TexturedMeshesAreWrittenByMaterialGroups) {
  C3DScene scene;
  const unsigned a = AddMaterial(scene, 255, 0, 0, 0.2f, "wood.png")->GetMaterialID();
  const unsigned b = AddMaterial(scene, 0, 255, 0, 0.2f)->GetMaterialID();
  C3DObject* object = Strip(4, {a, a, b, b});
  AddUV(object);
  scene.AddNode(nullptr, new C3DSceneNode(object, 1));
  const std::string text = Write(scene);
  EXPECT_NE(text.find("TextureCoordinate2 {\n\t\t\tpoint [\n\t\t\t0.0000 1.0000,\n"
                      "\t\t\t0.0000 0.0000,\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\t\tTexture2 {\n\t\t\tfilename \"wood.png\"\n\t\t}\n"), std::string::npos);
  EXPECT_EQ(std::count(text.begin(), text.end(), '{') - std::count(text.begin(), text.end(), '}'),
            0);
  const std::size_t first = text.find("IndexedFaceSet");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(text.find("IndexedFaceSet", first + 1), std::string::npos);
  const std::size_t ci = text.find("coordIndex [\n", first);
  const std::string faces = text.substr(ci, text.find(']', ci) - ci);
  EXPECT_EQ(std::count(faces.begin(), faces.end(), '\n'), 4) << faces; // three faces
  EXPECT_NE(text.find("textureCoordIndex [\n"), std::string::npos);
  EXPECT_EQ(text.find("materialIndex"), std::string::npos);
}

TEST_F(VrmlIo, ReadsFacesBindingsAndTextures) {
  int error = 0;
  auto scene = Read("#VRML V1.0 ascii\n"
                    "Separator {\n"
                    "  Material { diffuseColor [ 1 0 0, 0 1 0, 0 0 1 ] shininess 0.6 }\n"
                    "  Coordinate3 { point [ 0 0 0, 1 0 0, 1 1 0, 0 1 0 ] }\n"
                    "  DEF overall IndexedFaceSet { coordIndex [ 0, 1, 2, -1, 2, 3, 0 ] }\n"
                    "  MaterialBinding { value PER_FACE }\n"
                    "  DEF perFace IndexedFaceSet { coordIndex [ 0, 1, 2, -1, 0, 2, 3, -1,"
                    " 0, 1, 3, -1, 1, 2, 3, -1 ] }\n"
                    "  MaterialBinding { value PER_FACE_INDEXED }\n"
                    "  DEF indexed IndexedFaceSet { coordIndex [ 0, 1, 2, -1, 0, 2, 3, -1,"
                    " 0, 1, 99, -1, 0, 1, 3 ] materialIndex [ 2, 7, 0 ] }\n"
                    "  Texture2 { filename \"grid.png\" }\n"
                    "  TextureCoordinate2 { point [ 0 0, 1 0, 1 1, 0 1 ] }\n"
                    "  MaterialBinding { value OVERALL }\n"
                    "  Translation { translation 5 0 0 }\n"
                    "  DEF textured IndexedFaceSet { coordIndex [ 0, 1, 2, 3, -1 ]"
                    " textureCoordIndex [ 3, 2, 1, 0, -1 ] }\n"
                    "}\n",
                    &error);
  ASSERT_TRUE(scene) << error;
  auto faceMaterials = [&](const char* name) {
    std::vector<C3DMaterial*> out;
    C3DSceneNode* node = Named(*scene, name);
    EXPECT_TRUE(node) << name;
    if (!node)
      return out;
    const C3DFaceList& faces = *node->GetBaseObject()->GetFaceList();
    for (int f = 0; f < faces.GetSize(); ++f)
      out.push_back(scene->GetMaterial(faces[f].GetMaterialID()));
    return out;
  };
  // No final -1 still closes the last face; OVERALL takes the first material.
  auto overall = faceMaterials("overall");
  ASSERT_EQ(overall.size(), 2u);
  EXPECT_EQ(overall[0]->GetDiffuseColor().r, 255);
  EXPECT_EQ(overall[1], overall[0]);
  EXPECT_FLOAT_EQ(overall[0]->GetSpecularFactor(), 0.6f);
  // PER_FACE: a face past the materials keeps the default material.
  auto perFace = faceMaterials("perFace");
  ASSERT_EQ(perFace.size(), 4u);
  EXPECT_EQ(perFace[0], overall[0]); // equal materials are shared
  EXPECT_EQ(perFace[1]->GetDiffuseColor().g, 255);
  EXPECT_EQ(perFace[2]->GetDiffuseColor().b, 255);
  EXPECT_EQ(perFace[3]->GetMaterialID(), 0u);
  // PER_FACE_INDEXED: out-of-range entries give the default; a face naming
  // point 99 is dropped.
  auto indexed = faceMaterials("indexed");
  ASSERT_EQ(indexed.size(), 3u);
  EXPECT_EQ(indexed[0], perFace[2]);
  EXPECT_EQ(indexed[1]->GetMaterialID(), 0u);
  EXPECT_EQ(indexed[2]->GetMaterialID(), 0u); // the fourth face had no index

  C3DSceneNode* textured = Named(*scene, "textured");
  ASSERT_TRUE(textured);
  C3DBaseObject* object = textured->GetBaseObject();
  auto* uvw =
      static_cast<CUVWChannel*>(object->GetChannel(object->GetGlobalUVWChannel(), CHANNEL_UVW));
  ASSERT_TRUE(uvw);
  const CUVWFace& tf = (*uvw->GetUVWFaceList())[0];
  ASSERT_EQ(tf.GetSize(), 4);
  EXPECT_EQ(tf[0], 3);
  EXPECT_FLOAT_EQ((*uvw->GetUVWPointList())[2].v, 0.0f); // t = 1 becomes v = 0
  C3DMaterial* tm = scene->GetMaterial((*object->GetFaceList())[0].GetMaterialID());
  ASSERT_TRUE(tm && tm->GetDiffuseMaps());
  std::string file;
  tm->GetDiffuseMaps()->GetFileName(file);
  EXPECT_EQ(file, "grid.png");
  EXPECT_EQ(tm->GetDiffuseMaps()->GetChannelID(), uvw->GetID());
  EXPECT_FLOAT_EQ(textured->GetMatrix(NODE_MATRIX_TRANSFORM).m[0][3], 5.0f);

  // y up becomes z up, x mirrored.
  const C4x4Matrix& root = scene->GetRoot()->GetMatrix(NODE_MATRIX_TRANSFORM);
  EXPECT_EQ(root.m[0][0], -1.0f);
  EXPECT_EQ(root.m[1][2], 1.0f);
  EXPECT_EQ(root.m[2][1], -1.0f);
}

TEST_F(VrmlIo, RoundTripKeepsGeometryMaterialsAndTextures) {
  C3DScene scene;
  const unsigned red = AddMaterial(scene, 255, 0, 0, 0.5f)->GetMaterialID();
  const unsigned green = AddMaterial(scene, 0, 128, 0, 0.25f)->GetMaterialID();
  const unsigned wood = AddMaterial(scene, 200, 100, 50, 0.2f, "wood.png")->GetMaterialID();
  auto* plain = new C3DSceneNode(Strip(3, {red, green, red}), 1);
  plain->SetName("plain");
  scene.AddNode(nullptr, plain);
  C3DObject* texturedObject = Strip(3, {wood, wood, wood});
  AddUV(texturedObject);
  auto* textured = new C3DSceneNode(texturedObject, 1);
  textured->SetName("textured");
  scene.AddNode(nullptr, textured);
  auto* curve = new C3DCurve;
  curve->SetPointList(new C3DPointList);
  curve->GetPointList()->SetSize(3);
  (*curve->GetPointList())[1] = C3DPoint(1, 2, 3);
  (*curve->GetPointList())[2] = C3DPoint(-1, 0.5f, 2);
  curve->SetMaterialID(green);
  auto* curveNode = new C3DSceneNode(curve, 1);
  curveNode->SetName("path");
  scene.AddNode(nullptr, curveNode);

  int error = 0;
  auto back = Read(Write(scene), &error);
  ASSERT_TRUE(back) << error;
  // Nodes come back in the order they were written.
  auto names = [](const C3DScene& s) {
    std::vector<std::string> out;
    for (C3DSceneNode* n : Nodes(s))
      out.push_back(n->GetName());
    return out;
  };
  EXPECT_EQ(names(*back), names(scene));
  for (const char* name : {"plain", "textured", "path"}) {
    SCOPED_TRACE(name);
    C3DSceneNode* from = Named(scene, name);
    C3DSceneNode* to = Named(*back, name);
    ASSERT_TRUE(to);
    C3DBaseObject* a = from->GetBaseObject();
    C3DBaseObject* b = to->GetBaseObject();
    ASSERT_EQ(a->GetKindOf(), b->GetKindOf());
    ASSERT_EQ(a->GetPointList()->GetSize(), b->GetPointList()->GetSize());
    for (int i = 0; i < a->GetPointList()->GetSize(); ++i) {
      EXPECT_NEAR((*a->GetPointList())[i].x, (*b->GetPointList())[i].x, 1e-4);
      EXPECT_NEAR((*a->GetPointList())[i].z, (*b->GetPointList())[i].z, 1e-4);
    }
    // A line set is written without a material of its own.
    if (a->GetKindOf() == OBJECT_CURVE)
      continue;
    const C3DFaceList& fa = *a->GetFaceList();
    const C3DFaceList& fb = *b->GetFaceList();
    ASSERT_EQ(fa.GetSize(), fb.GetSize());
    for (int f = 0; f < fa.GetSize(); ++f) {
      EXPECT_EQ(test::Indices(fa[f]), test::Indices(fb[f]));
      C3DMaterial* ma = scene.GetMaterial(fa[f].GetMaterialID());
      C3DMaterial* mb = back->GetMaterial(fb[f].GetMaterialID());
      ASSERT_TRUE(mb);
      // Colours are written with two decimals.
      for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(ma->GetDiffuseColor()[i], mb->GetDiffuseColor()[i], 1.5);
        EXPECT_NEAR(ma->GetAmbientColor()[i], mb->GetAmbientColor()[i], 1.5);
      }
      EXPECT_NEAR(ma->GetSpecularFactor(), mb->GetSpecularFactor(), 0.005);
      EXPECT_NEAR(ma->GetTransparencyFactor(), mb->GetTransparencyFactor(), 0.005);
      EXPECT_EQ(ma->GetDiffuseMaps() != nullptr, mb->GetDiffuseMaps() != nullptr);
    }
    if (a->GetGlobalUVWChannel() != kNoChannel) {
      auto* ua = static_cast<CUVWChannel*>(a->GetChannel(a->GetGlobalUVWChannel(), CHANNEL_UVW));
      auto* ub = static_cast<CUVWChannel*>(b->GetChannel(b->GetGlobalUVWChannel(), CHANNEL_UVW));
      ASSERT_TRUE(ub);
      for (int f = 0; f < fa.GetSize(); ++f)
        for (int k = 0; k < fa[f].GetSize(); ++k) {
          const CUVWPoint& pa = (*ua->GetUVWPointList())[(*ua->GetUVWFaceList())[f][k]];
          const CUVWPoint& pb = (*ub->GetUVWPointList())[(*ub->GetUVWFaceList())[f][k]];
          EXPECT_NEAR(pa.u, pb.u, 1e-4);
          EXPECT_NEAR(pa.v, pb.v, 1e-4);
        }
    }
  }
}

TEST_F(VrmlIo, PrimitivesVertexColoursAndPoints) {
  int error = 0;
  auto scene = Read("#Inventor V2.1 ascii\n"
                    "Separator {\n"
                    "  DEF ball Sphere { radius 2 }\n"
                    "  DEF box Cube { width 4 }\n"
                    "  DEF tube Cylinder { parts SIDES }\n"
                    "  DEF cap Cone { parts BOTTOM }\n"
                    "  Coordinate3 { point [ 0 0 0, 1 0 0, 1 1 0, 0 1 0 ] }\n"
                    "  Material { diffuseColor [ 1 0 0, 0 1 0, 0 0 1, 1 1 1 ] }\n"
                    "  MaterialBinding { value PER_VERTEX_INDEXED }\n"
                    "  DEF painted IndexedFaceSet { coordIndex [ 0, 1, 2, 3, -1 ] }\n"
                    "  DEF cloud PointSet { startIndex 1 numPoints 2 }\n"
                    "}\n",
                    &error);
  ASSERT_TRUE(scene) << error;
  auto box = [&](const char* name, C3DPoint& lo, C3DPoint& hi) {
    C3DSceneNode* node = Named(*scene, name);
    ASSERT_TRUE(node) << name;
    node->GetBaseObject()->GetBoundingBox(lo, hi, 0);
  };
  C3DPoint lo, hi;
  box("ball", lo, hi);
  EXPECT_NEAR(hi.y, 2, 1e-5);
  EXPECT_NEAR(lo.x, -2, 0.01);
  box("box", lo, hi);
  EXPECT_NEAR(hi.x - lo.x, 4, 1e-5);
  EXPECT_NEAR(hi.z - lo.z, 2, 1e-5);
  EXPECT_EQ(Named(*scene, "box")->GetBaseObject()->GetFaceList()->GetSize(), 6);
  EXPECT_EQ(Named(*scene, "tube")->GetBaseObject()->GetFaceList()->GetSize(), 24);
  EXPECT_EQ(Named(*scene, "cap")->GetBaseObject()->GetFaceList()->GetSize(), 1);
  C3DBaseObject* ball = Named(*scene, "ball")->GetBaseObject();
  EXPECT_NE(ball->GetGlobalUVWChannel(), kNoChannel);
  // A round shape has its faces turned outwards.
  for (int f = 0; f < ball->GetFaceList()->GetSize(); ++f) {
    const C3DFace& face = (*ball->GetFaceList())[f];
    const C3DPointList& p = *ball->GetPointList();
    const C3DPoint &a = p[face[0]], &b = p[face[1]], &c = p[face[2]];
    const float nx = (b.y - a.y) * (c.z - a.z) - (b.z - a.z) * (c.y - a.y);
    const float ny = (b.z - a.z) * (c.x - a.x) - (b.x - a.x) * (c.z - a.z);
    const float nz = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    EXPECT_GT(nx * (a.x + b.x + c.x) + ny * (a.y + b.y + c.y) + nz * (a.z + b.z + c.z), 0) << f;
  }

  C3DBaseObject* painted = Named(*scene, "painted")->GetBaseObject();
  CVCChannel* vc = painted->GetChannels()->GetVCChannel(0);
  ASSERT_TRUE(vc);
  const CVCFace& cf = (*vc->GetVCFaceList())[0];
  EXPECT_EQ((*vc->GetVCPointList())[cf[1]].GetColor(), CRGBColor(0, 255, 0, 255));
  EXPECT_EQ((*vc->GetVCPointList())[cf[3]].GetColor(), CRGBColor(255, 255, 255, 255));

  C3DBaseObject* cloud = Named(*scene, "cloud")->GetBaseObject();
  EXPECT_EQ(cloud->GetPointList()->GetSize(), 2);
  EXPECT_EQ(cloud->GetFaceList()->GetSize(), 0);
}

TEST_F(VrmlIo, FailuresAndTheirCodes) {
  int error = 0;
  std::string detail;
  EXPECT_FALSE(Read("#VRML V2.0 utf8\nShape { }\n", &error, &detail));
  EXPECT_EQ(error, IO_FILE_BAD_FORMAT);
  EXPECT_NE(detail.find("valid header"), std::string::npos) << detail;
  EXPECT_FALSE(
      Read("#VRML V1.0 ascii\nSeparator { Coordinate3 { point [ 0 0 0 1 ] } }\n", &error, &detail));
  EXPECT_EQ(error, IO_FILE_BAD_FORMAT);
  EXPECT_EQ(detail.rfind("line 2: ", 0), 0u) << detail;
  // Nothing to build: a face set without faces, one without coordinates.
  EXPECT_FALSE(Read("#VRML V1.0 ascii\nSeparator { IndexedFaceSet { coordIndex [ 0, 1, 2 ] }"
                    " Coordinate3 { point [ 0 0 0 ] } IndexedFaceSet { coordIndex [ ] } }\n",
                    &error));
  EXPECT_EQ(error, IO_FILE_EMPTY);
  // Huge indices never reach memory: only the valid face is built.
  auto scene = Read("#VRML V1.0 ascii\nSeparator { Coordinate3 { point [ 0 0 0, 1 0 0, 0 1 0 ] }\n"
                    "IndexedFaceSet { coordIndex [ 0, 1, 2, -1, 2147483647, 0, 1, -1,"
                    " 0, -5, 1, -1, 0, 1 ] } }\n",
                    &error);
  ASSERT_TRUE(scene);
  EXPECT_EQ(scene->GetFaceNbr(), 1);
  // A file that multiplies a big shape through USE stops at a bound, whether
  // or not its faces are valid.
  for (const char* indices : {"0, 1, 2", "0, 1, 99999"}) {
    std::string bomb = "#VRML V1.0 ascii\nSeparator { Coordinate3 { point [";
    for (int i = 0; i < 3000; ++i)
      bomb += " 0 0 0,";
    bomb += "] } DEF a IndexedFaceSet { coordIndex [";
    for (int i = 0; i < 200; ++i)
      bomb += std::string(indices) + ", -1, ";
    bomb += "] }\n";
    for (int level = 0; level < 20; ++level) {
      const std::string used = level ? "g" + std::to_string(level - 1) : std::string("a");
      bomb += "DEF g" + std::to_string(level) + " Group { USE " + used + " USE " + used + " }\n";
    }
    bomb += "}\n";
    EXPECT_FALSE(Read(bomb, &error)) << indices;
    EXPECT_EQ(error, IO_FILE_BAD_FORMAT) << indices;
  }

  // Copies past all measure end at a bound too, with or without children.
  EXPECT_FALSE(Read("#Inventor V2.1 ascii\nSeparator { Array { numElements1 1000000"
                    " numElements2 1000000 numElements3 1000000 } Array { numElements1 1000000"
                    " numElements2 1000000 Cube { } } }\n",
                    &error));
  EXPECT_EQ(error, IO_FILE_BAD_FORMAT);

  // A cancelled save gives nothing; an empty scene saves as a file without shapes.
  C3DScene empty;
  {
    C3DIo out("memory.wrl", kSilent);
    CVrmlIo writer(out);
    std::string text;
    SetCancel(1, 0);
    C3DScene big;
    big.AddNode(nullptr, new C3DSceneNode(Strip(20000, std::vector<unsigned>(20000, 0)), 1));
    EXPECT_EQ(writer.SaveToMemory(&big, 0, text), 0);
    SetCancel(0, 0);
    EXPECT_EQ(out.GetIoError(), IO_FILE_CANCELLED);
    EXPECT_EQ(writer.SaveToMemory(&empty, 0, text), 1);
    EXPECT_EQ(text.find("Coordinate3"), std::string::npos);
  }

  // A missing file leaves the code as it was.
  C3DIo io("/nonexistent/dir/x.wrl", FILE_PARSER_LOADING | kSilent);
  CVrmlIo codec(io);
  io.SetIoError(IO_FILE_OK);
  EXPECT_EQ(codec.Read("/nonexistent/dir/x.wrl", 0), nullptr);
  EXPECT_EQ(io.GetIoError(), IO_FILE_OK);
}
