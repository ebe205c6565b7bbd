// The Maya ASCII writer: the text of small meshes line by line, edge numbers
// checked against the faces they came from, what is left out, names,
// materials and cancellation.

#include "meshcore/formats/library.h"
#include "meshcore/formats/maya/maya_io.h"
#include "meshcore/io/cancel.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/edge_graph.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/object_creator.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"
#include "tests/support/byte_builder.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <sstream>

using namespace meshcore;
using test::Faces;
using test::P3;

namespace {

C3DSceneNode* AddMesh(C3DScene& scene, const std::string& name, const std::vector<P3>& points,
                      const Faces& faces, C3DSceneNode* parent = nullptr) {
  auto* node = new C3DSceneNode(test::MakeMesh(points, faces).release(), 0);
  node->SetName(name);
  scene.AddNode(parent, node);
  return node;
}

std::string Text(C3DScene* scene, const std::string& name = "scene.ma") {
  C3DIo io(name, FILE_PARSER_SILENT);
  std::string out;
  EXPECT_EQ(CMayaIo(io).SaveToText(name, scene, 0, out), 1);
  return out;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

std::size_t Count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    ++n;
  return n;
}

// The meshes of a written file read back: vertex count, and the faces
// rebuilt from the signed edge numbers.
struct ReadMesh {
  std::string name;
  int vertices = 0;
  std::vector<std::pair<int, int>> edges;
  Faces faces;
};

std::vector<ReadMesh> ParseMeshes(const std::string& text) {
  std::vector<ReadMesh> meshes;
  std::istringstream in(text);
  std::string token;
  while (in >> token) {
    if (token == "createNode") {
      std::string type, flag, name;
      in >> type >> flag >> name;
      if (type == "\"mesh\"")
        meshes.push_back({name.substr(1, name.size() - 3), 0, {}, {}});
    } else if (token == "-s" && !meshes.empty()) {
      std::string attr;
      int count = 0;
      in >> count >> attr;
      if (attr == "\".vt\";")
        meshes.back().vertices = count;
    } else if (token.rfind("\".ed[", 0) == 0) {
      for (std::string a, b, hard; in >> a && a != ";";) {
        in >> b >> hard;
        meshes.back().edges.push_back({std::stoi(a), std::stoi(b)});
        EXPECT_EQ(hard, "0");
      }
    } else if (token == "\"polyFaces\"") {
      for (std::string f; in >> f && f == "f";) {
        int n = 0;
        in >> n;
        std::vector<int> sides(static_cast<std::size_t>(n));
        for (int& s : sides)
          in >> s;
        // Each side starts where the one before it ends.
        std::vector<int> corners, ends;
        for (int side : sides) {
          const auto& e = meshes.back().edges.at(std::size_t(side >= 0 ? side : ~side));
          EXPECT_LT(e.first, e.second);
          corners.push_back(side >= 0 ? e.first : e.second);
          ends.push_back(side >= 0 ? e.second : e.first);
        }
        for (int k = 0; k < n; ++k)
          EXPECT_EQ(ends[std::size_t(k)], corners[std::size_t((k + 1) % n)]);
        meshes.back().faces.push_back(corners);
      }
    }
  }
  return meshes;
}

// The edges as the face list's own edge graph lists them.
std::vector<std::pair<int, int>> GraphEdges(C3DBaseObject& object) {
  CGeomInfo info(object.GetFaceList(), object.GetPointList());
  object.GetFaceList()->InitEdgeToFaceGraph(&info);
  std::vector<std::pair<int, int>> edges;
  for (const auto& entry : object.GetFaceList()->GetEdgeGraph())
    edges.push_back({entry.first.first, entry.first.second});
  return edges;
}

class MayaIo : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
  void SetUp() override {
    m_dir = test::ScratchDir(std::string("maya_") +
                             ::testing::UnitTest::GetInstance()->current_test_info()->name());
  }
  void TearDown() override {
    SetCancel(0, 0);
    std::filesystem::remove_all(m_dir);
  }
  std::string File(const std::string& name) const { return (m_dir / name).string(); }

  std::filesystem::path m_dir;
};

} // namespace

TEST_F(MayaIo, TriangleLineByLine) {
  C3DScene scene;
  AddMesh(scene, "Tri", {{0, 0, 0}, {1, 0, 0}, {0, 1.5f, -2}}, {{0, 1, 2}});
  const std::vector<std::string> expected = {
      "//Maya ASCII 2.0 scene",
      "//Name : tri.ma",
      "//Write by Quillmesh or a Qel Tool.",
      "//Connect https://quillmesh.example",
      "requires maya \"2.0\";",
      "currentUnit -l centimeter -a degree -t film;",
      "createNode \"mesh\" -n \"Tri\";",
      "\tsetAttr -k off \".v\";",
      "\tsetAttr -s 3 \".vt\";",
      "\tsetAttr \".vt[0:2]\" -type \"float3\"",
      "\t\t0.000000 0.000000 0.000000 ",
      "\t\t1.000000 0.000000 0.000000 ",
      "\t\t0.000000 1.500000 -2.000000 ;",
      "\tsetAttr -s 3 \".ed\";",
      "\tsetAttr \".ed[0:2]\"",
      "\t\t0 1 0 1 2 0 0 2 0 ;",
      "\tsetAttr -s 1 \".fc\";",
      "\tsetAttr \".fc[0:0]\" -type \"polyFaces\"",
      "\t\tf 3 0 1 -3 ;",
      "// End of file tri.ma",
  };
  EXPECT_EQ(Lines(Text(&scene, File("tri.ma"))), expected);

  // Numbers as Maya reads them, whatever the locale; it reads no "nan".
  EXPECT_EQ(CMayaIo::FloatString(123456.789f), "123456.789062 ");
  EXPECT_EQ(CMayaIo::FloatString(std::numeric_limits<float>::quiet_NaN()), "0.000000 ");
}

// Faces rebuilt from the edge list give the mesh's faces back; edges that two
// faces share are listed once, ten to a line.
TEST_F(MayaIo, EdgeNumbersRebuildTheFaces) {
  for (const auto& [w, h] : {std::pair{3, 1}, std::pair{4, 2}, std::pair{7, 2}}) {
    C3DScene scene;
    auto* object = new C3DObject(new C3DPointList, new C3DFaceList);
    test::MakeGrid(w, h, *object->GetPointList(), *object->GetFaceList());
    auto* node = new C3DSceneNode(object, 0);
    node->SetName("Grid");
    scene.AddNode(nullptr, node);
    const std::string text = Text(&scene);
    const std::vector<ReadMesh> meshes = ParseMeshes(text);
    ASSERT_EQ(meshes.size(), 1u);
    const int edgeCount = w * (h + 1) + (w + 1) * h;
    EXPECT_EQ(int(meshes[0].edges.size()), edgeCount);
    EXPECT_EQ(meshes[0].edges, GraphEdges(*object));
    EXPECT_EQ(meshes[0].vertices, (w + 1) * (h + 1));
    const C3DFaceList& faces = *object->GetFaceList();
    ASSERT_EQ(int(meshes[0].faces.size()), faces.GetSize());
    for (int f = 0; f < faces.GetSize(); ++f)
      EXPECT_EQ(meshes[0].faces[std::size_t(f)], test::Indices(faces[f])) << f;
    // Ten edges to a line.
    const std::size_t from = text.find("]\"\n", text.find(".ed[0:")) + 3;
    EXPECT_EQ(Count(text.substr(from, text.find(";\n", from) - from), "\n"),
              std::size_t((edgeCount - 1) / 10));
  }
}

// Hidden nodes, groups, empty objects and objects without faces are left
// out; curves are degree-1 curves; a scene without nodes makes an empty file.
TEST_F(MayaIo, WhatIsWrittenAndWhatIsLeftOut) {
  C3DScene scene;
  const Faces tri = {{0, 1, 2}};
  const std::vector<P3> pts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  C3DObjectCreator creator;
  auto* group = new C3DSceneNode(creator.GetNewGroupObject(), 0);
  group->SetName("Group");
  scene.AddNode(nullptr, group);
  AddMesh(scene, "InGroup", pts, tri, group);
  AddMesh(scene, "Hidden", pts, tri)->SetFlag(1, 1);
  AddMesh(scene, "Empty", pts, tri)->GetBaseObject()->SetFlag(OBJECT_EMPTY, 1);
  AddMesh(scene, "NoFaces", pts, {});
  AddMesh(scene, "BadFaces", pts, {{0, 1}, {0, 1, 7}});
  AddMesh(scene, "SomeBad", pts, {{0, 1, 9}, {2, 1, 0}});
  auto addCurve = [&](const std::string& name, int count) {
    C3DBaseObject* curve = creator.GetNewCurveObject();
    curve->GetPointList()->SetSize(count);
    for (int i = 0; i < count; ++i)
      (*curve->GetPointList())[i] = C3DPoint(float(i), 0.25f, 0);
    auto* node = new C3DSceneNode(curve, 0);
    node->SetName(name);
    scene.AddNode(nullptr, node);
  };
  addCurve("Line", 3);
  addCurve("Dot", 1);
  const std::string text = Text(&scene);
  EXPECT_EQ(Count(text, "createNode"), 2u) << text;
  EXPECT_NE(text.find("-n \"InGroup\""), std::string::npos);
  EXPECT_NE(text.find("-n \"SomeBad\""), std::string::npos);
  EXPECT_NE(text.find("\tsetAttr -s 1 \".fc\";\n\tsetAttr \".fc[0:0]\" -type \"polyFaces\"\n"
                      "\t\tf 3 -1 -2 2 ;\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("curve -n \"Line\" -d 1\n\t-p 0.000000 0.250000 0.000000 \n"
                      "\t-p 1.000000 0.250000 0.000000 \n\t-p 2.000000 0.250000 0.000000 ;\n"),
            std::string::npos)
      << text;
  for (const char* left : {"Group", "Hidden", "Empty", "NoFaces", "BadFaces", "Dot"})
    EXPECT_EQ(text.find(std::string("\"") + left + "\""), std::string::npos) << left;
  EXPECT_EQ(text, Text(&scene)); // the same scene, the same bytes

  C3DScene empty;
  C3DIo io(File("empty.ma"), FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  EXPECT_EQ(io.SaveScene(empty), 1);
  EXPECT_EQ(std::filesystem::file_size(File("empty.ma")), 0u);
}

TEST_F(MayaIo, NamesFollowMayasRules) {
  EXPECT_EQ(MakeMayaName("my box.left|top", "mesh"), "my_box_left_top");
  EXPECT_EQ(MakeMayaName("3D", "mesh"), "_3D");
  EXPECT_EQ(MakeMayaName("", "curve"), "curve");

  // Duplicates are numbered; a material never takes a name that its engine or
  // info node would share with another node.
  C3DScene scene;
  const std::vector<P3> pts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  AddMesh(scene, "my box", pts, {{0, 1, 2}});
  AddMesh(scene, "my box", pts, {{0, 1, 2}});
  AddMesh(scene, "SE_Paint", pts, {{0, 1, 2}});
  AddMesh(scene, "", pts, {{0, 1, 2}});
  scene.CreateNewMaterial()->SetName("my box");
  scene.CreateNewMaterial()->SetName("Paint");
  const std::string text = Text(&scene);
  for (const char* name : {"-n \"my_box\"", "-n \"my_box1\"", "-n \"SE_Paint\"", "-n \"mesh\""})
    EXPECT_EQ(Count(text, name), 1u) << name << "\n" << text;

  C3DIo io("x.ma", FILE_PARSER_SILENT);
  CMayaIo codec(io);
  std::string materials;
  codec.SaveMaterials(materials, &scene);
  for (const std::string name : {"my_box2", "Paint1"})
    EXPECT_NE(materials.find("createNode \"lambert\" -n \"" + name + "\";"), std::string::npos)
        << materials;
}

// Materials are written only on request, with their lines as they have always
// been; each mesh is connected to the engine of every material its faces use.
TEST_F(MayaIo, MaterialsAndTheirConnections) {
  C3DScene scene;
  C3DMaterial* red = scene.CreateNewMaterial();
  red->SetName("Red");
  red->SetDiffuseColor(CRGBColor(255, 0, 51));
  C3DMaterial* green = scene.CreateNewMaterial();
  green->SetName("Green");
  const std::vector<P3> pts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  C3DSceneNode* a = AddMesh(scene, "A", pts, {{0, 1, 2}, {1, 3, 2}});
  (*a->GetBaseObject()->GetFaceList())[0].SetMaterialID(red->GetMaterialID());
  (*a->GetBaseObject()->GetFaceList())[1].SetMaterialID(green->GetMaterialID());
  C3DSceneNode* b = AddMesh(scene, "B", pts, {{0, 1, 2}});
  (*b->GetBaseObject()->GetFaceList())[0].SetMaterialID(red->GetMaterialID());

  const std::string plain = Text(&scene);
  EXPECT_EQ(plain.find("lambert"), std::string::npos);
  EXPECT_EQ(plain.find("connectAttr"), std::string::npos);

  C3DIo io("x.ma", FILE_PARSER_SILENT);
  CMayaIo codec(io);
  std::string text;
  codec.SaveMaterials(text, &scene);
  EXPECT_NE(text.find("createNode \"lambert\" -n \"Red\";\n"
                      "\tsetAttr \".c\" - type \"float3\" 1.000000 0.000000 0.200000 ;\n"
                      "createNode \"shadingEngine\" -n \"SE_Red\";\n"
                      "\tsetAttr \".an\" -type \"string\" \"\";\n"
                      "\tsetAttr \".ro\" yes;\n"
                      "createNode \"materialInfo\" -n \"MI_Red\";\n"),
            std::string::npos)
      << text;
  std::string connections;
  codec.ConnectMaterials(connections, &scene);
  EXPECT_EQ(connections, "connectAttr \"SE_Red.msg\" \"MI_Red.sg\";\n"
                         "connectAttr \"Red.oc\" \"SE_Red.ss\";\n"
                         "connectAttr \"B.iog\" \"SE_Red.dsm\";\n"
                         "connectAttr \"A.iog\" \"SE_Red.dsm\";\n"
                         "connectAttr \"SE_Green.msg\" \"MI_Green.sg\";\n"
                         "connectAttr \"Green.oc\" \"SE_Green.ss\";\n"
                         "connectAttr \"A.iog\" \"SE_Green.dsm\";\n");

  // A host adds both to a file the codec saved.
  C3DIo saver(File("shaded.ma"), FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  ASSERT_EQ(saver.SaveScene(scene), 1);
  CMayaIo host(saver);
  ASSERT_EQ(host.AppendMaterials(File("shaded.ma"), &scene), 1);
  const auto bytes = test::ReadFileBytes(File("shaded.ma"));
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()),
            Text(&scene, File("shaded.ma")) + text + connections);
  EXPECT_EQ(host.AppendMaterials(File("missing.ma"), &scene), 0);
  EXPECT_EQ(saver.GetIoError(), IO_FILE_CANT_OPEN);
}

TEST_F(MayaIo, CancelledSaveLeavesTheFileAsItWas) {
  C3DScene scene;
  auto* object = new C3DObject(new C3DPointList, new C3DFaceList);
  test::MakeGrid(100, 100, *object->GetPointList(), *object->GetFaceList());
  scene.AddNode(nullptr, new C3DSceneNode(object, 0));
  test::WriteFileBytes(File("kept.ma"), {'o', 'l', 'd'});
  SetCancel(1, 0);
  C3DIo io(File("kept.ma"), FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  EXPECT_EQ(io.SaveScene(scene), 0);
  SetCancel(0, 0);
  EXPECT_EQ(io.GetIoError(), IO_FILE_CANCELLED);
  EXPECT_EQ(test::ReadFileBytes(File("kept.ma")), (std::vector<std::uint8_t>{'o', 'l', 'd'}));
}
