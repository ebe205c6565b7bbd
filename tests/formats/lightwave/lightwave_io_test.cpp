// The Lightwave codec end to end: files into scenes, scenes into files.

#include "meshcore/formats/library.h"
#include "meshcore/formats/lightwave/detail/lwo_reader.h"
#include "meshcore/formats/lightwave/lightwave_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include "lwo_test_bytes.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>

using namespace meshcore;
using namespace meshcore::lwtest;

namespace {

constexpr unsigned kSilent = FILE_PARSER_SILENT;

class LightwaveIo : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
  void SetUp() override { dir_ = test::ScratchDir("lw"); }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string Temp(const std::string& name) const { return (dir_ / name).string(); }

  std::unique_ptr<C3DScene> ReadBytes(const Bytes& b, int* error = nullptr,
                                      std::string* detail = nullptr) {
    C3DIo io("memory.lwo", kSilent);
    CLightwaveIo codec(io);
    std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(b.data.data(), b.size(), 0));
    if (error)
      *error = io.GetIoError();
    if (detail)
      *detail = io.GetIoErrorDetail();
    return scene;
  }
  std::vector<std::uint8_t> SaveBytes(C3DScene* scene, int* error = nullptr) {
    C3DIo io("memory.lwo", kSilent);
    CLightwaveIo codec(io);
    std::vector<std::uint8_t> out;
    int ok = codec.SaveToMemory(scene, 0, out);
    if (error)
      *error = ok ? 1 : io.GetIoError();
    return out;
  }

  std::filesystem::path dir_;
};

std::vector<C3DSceneNode*> Nodes(const C3DScene& scene) {
  std::vector<C3DSceneNode*> nodes;
  const C3DBaseObject* object;
  for (C3DSceneNode* cursor = scene.GetFirstNode(nullptr); cursor;)
    nodes.push_back(scene.GetNextNode(object, cursor, nullptr));
  return nodes;
}

int LayerRecord(const C3DSceneNode* node) {
  CCustomData record;
  int n = 0;
  if (!node->GetCustomData().GetCustomData(kCustomLightwave, record))
    return -1;
  record.GetInt(kCustomLayerNumber, n);
  return n;
}

// The tree as text: depth, kind, name and counts of every node in pre-order.
std::string Describe(const C3DScene& scene) {
  std::ostringstream out;
  for (C3DSceneNode* node : Nodes(scene)) {
    const C3DBaseObject* object = node->GetBaseObject();
    out << scene.GetNodeDepth(node) << ' ' << object->GetKindOf() << ' ' << node->GetName() << ' '
        << object->GetPointNbr() << ' ' << object->GetFaceNbr() << ' ' << node->IsFlagSet(1)
        << '\n';
  }
  return out.str();
}

std::string SortedLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  std::string out;
  for (const auto& l : lines)
    out += l + '\n';
  return out;
}

// The object nodes as text, in a fixed order: kind, name and counts. Writing
// gives every object its own layer, so the groups and the order of a file read
// back differ from the scene written; the objects do not.
std::string ObjectSet(const C3DScene& scene) {
  std::ostringstream out;
  for (C3DSceneNode* node : Nodes(scene)) {
    const C3DBaseObject* object = node->GetBaseObject();
    if (object->GetKindOf() != OBJECT_GROUP)
      out << object->GetKindOf() << ' ' << node->GetName() << ' ' << object->GetPointNbr() << ' '
          << object->GetFaceNbr() << '\n';
  }
  return SortedLines(out.str());
}

// Per face corner: position, uv and colour; per face: material name and colour.
std::string Contents(C3DScene& scene) {
  std::ostringstream out;
  out.precision(9);
  for (C3DSceneNode* node : Nodes(scene)) {
    C3DBaseObject* object = node->GetBaseObject();
    C3DPointList* points = object->GetPointList();
    C3DFaceList* faces = object->GetFaceList();
    if (object->GetKindOf() == OBJECT_CURVE) {
      for (int i = 0; i < points->GetSize(); ++i)
        out << (*points)[i].x << ',' << (*points)[i].y << ',' << (*points)[i].z << ' ';
      out << scene.GetMaterial(static_cast<C3DCurve*>(object)->GetMaterialID())->GetName() << '\n';
      continue;
    }
    if (!faces)
      continue;
    CDependentChannels* channels = object->GetChannels();
    CUVWChannel* uv = channels->GetUVWChannel(0);
    CVCChannel* vc = channels->GetVCChannel(0);
    for (int f = 0; f < faces->GetSize(); ++f) {
      const C3DFace& face = (*faces)[f];
      C3DMaterial* m = scene.GetMaterial(face.GetMaterialID());
      out << m->GetName() << ' ' << int(m->GetDiffuseColor().r) << ','
          << int(m->GetDiffuseColor().g) << ',' << int(m->GetDiffuseColor().b) << ':';
      for (int k = 0; k < face.GetSize(); ++k) {
        const C3DPoint& p = (*points)[face[k]];
        out << ' ' << p.x << ',' << p.y << ',' << p.z;
        if (uv) {
          const CUVWPoint& t = (*uv->GetUVWPointList())[(*uv->GetUVWFaceList())[f][k]];
          out << " uv" << t.u << ',' << t.v;
        }
        if (vc) {
          const CRGBColor& c = (*vc->GetVCPointList())[(*vc->GetVCFaceList())[f][k]].GetColor();
          out << " c" << int(c.r) << ',' << int(c.g) << ',' << int(c.b) << ',' << int(c.a);
        }
      }
      out << '\n';
    }
  }
  return out.str();
}

Bytes Square(const char* type = "FACE") {
  Bytes c;
  c.chunk("TAGS", Bytes().s0("Red"));
  c.chunk("PNTS", Points({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}));
  c.chunk("POLS", Bytes().id(type).u2(4).u2(0).u2(1).u2(2).u2(3));
  c.chunk("PTAG", Bytes().id("SURF").vx(0).u2(0));
  return c;
}

} // namespace

TEST_F(LightwaveIo, EverySampleSurvivesSavingAndLoadingAgain) {
  const auto files = SampleFiles();
  ASSERT_GE(files.size(), 15u);
  for (const auto& file : files) {
    SCOPED_TRACE(file);
    C3DIo reader(file, kSilent);
    std::unique_ptr<C3DScene> scene(reader.Read(0, 0));
    ASSERT_TRUE(scene) << reader.GetIoError();
    ASSERT_GT(scene->GetNodeNbr(1), 0);
    for (C3DSceneNode* node : Nodes(*scene))
      EXPECT_GT(LayerRecord(node), 0);

    std::string out = Temp("out.lwo");
    C3DIo writer(out, kSilent);
    ASSERT_EQ(writer.Save(0, scene.get(), 0), 1) << writer.GetIoError();
    C3DIo again(out, kSilent);
    std::unique_ptr<C3DScene> back(again.Read(0, 0));
    ASSERT_TRUE(back) << again.GetIoError();
    EXPECT_EQ(ObjectSet(*back), ObjectSet(*scene));
    EXPECT_EQ(SortedLines(Contents(*back)), SortedLines(Contents(*scene)));
    // Saving is deterministic.
    std::string out2 = Temp("out2.lwo");
    C3DIo writer2(out2, kSilent);
    ASSERT_EQ(writer2.Save(0, scene.get(), 0), 1);
    EXPECT_EQ(ReadFileBytes(out2), ReadFileBytes(out));
  }
}

TEST_F(LightwaveIo, DamagedSamplesFailWithBadFormatOrLoad) {
  for (const auto& file : SampleFiles()) {
    SCOPED_TRACE(file);
    auto bytes = ReadFileBytes(file);
    // With the form size cut to match: loads what is complete, or fails
    // naming where it stopped.
    for (std::size_t n = 12; n < bytes.size(); n += 7) {
      Bytes cut;
      cut.data.assign(bytes.begin(), bytes.begin() + std::ptrdiff_t(n));
      int error = 0;
      std::string detail;
      std::uint32_t formSize = std::uint32_t(n - 8);
      for (int i = 0; i < 4; ++i)
        cut.data[4 + std::size_t(i)] = std::uint8_t(formSize >> (24 - 8 * i));
      auto scene = ReadBytes(cut, &error, &detail);
      if (!scene) {
        EXPECT_TRUE(error == IO_FILE_BAD_FORMAT || error == IO_FILE_EMPTY) << error;
        if (error == IO_FILE_BAD_FORMAT) {
          EXPECT_NE(detail.find("at byte "), std::string::npos) << n << ": " << detail;
        }
      } else {
        SaveBytes(scene.get());
      }
    }
  }
}

TEST_F(LightwaveIo, LayerGroupsFollowTheParentOrder) {
  C3DIo io(MESHCORE_SAMPLES_DIR "/lightwave/hierarchy.lwo", kSilent);
  std::unique_ptr<C3DScene> scene(io.Read(0, 0));
  ASSERT_TRUE(scene);
  // Layers sorted by parent: 4 (none) first, then 2 (parent 3, not yet made:
  // top level), then 3 and 1 under 4. Children list newest first.
  EXPECT_EQ(Describe(*scene), "0 8 GrandChildOfRoot0 0 0 0\n"
                              "1 1 GrandChildOfRoot0 8 6 0\n"
                              "0 8 RootOfHierarchy 0 0 0\n"
                              "1 8 ChildOfRoot1 0 0 0\n"
                              "2 1 ChildOfRoot1 8 6 0\n"
                              "1 8 ChildOfRoot0 0 0 0\n"
                              "2 1 ChildOfRoot0 8 6 0\n"
                              "1 1 RootOfHierarchy 266 288 0\n");
  auto nodes = Nodes(*scene);
  EXPECT_EQ(LayerRecord(nodes[0]), 3);
  EXPECT_EQ(LayerRecord(nodes[1]), 3);
  EXPECT_EQ(LayerRecord(nodes[2]), 5);
  EXPECT_EQ(LayerRecord(nodes[3]), 2);
}

TEST_F(LightwaveIo, RunsCurvesDroppedPolygonsAndHiddenLayers) {
  Bytes c;
  c.chunk("TAGS", Bytes().s0("A").s0("B"));
  c.chunk("LAYR", Bytes().u2(0).u2(1).f4(0).f4(0).f4(0).s0(""));
  c.chunk("PNTS", Points({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 5, 5, 5}));
  c.chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(2).u2(2).u2(0).u2(4));
  c.chunk("POLS", Bytes().id("SUBD").u2(4).u2(0).u2(1).u2(2).u2(3));
  c.chunk("POLS", Bytes().id("FACE").u2(3).u2(1).u2(2).u2(3).u2(1).u2(4));
  c.chunk("PTAG", Bytes().id("SURF").vx(0).u2(1));
  c.chunk("POLS", Bytes().id("CURV").u2(4).u2(4).u2(0).u2(1).u2(2).u2(2).u2(0).u2(1));
  // A layer with only a line and a point gives nothing.
  c.chunk("LAYR", Bytes().u2(1).u2(0).f4(0).f4(0).f4(0).s0("lines"));
  c.chunk("PNTS", Points({0, 0, 0, 1, 0, 0}));
  c.chunk("POLS", Bytes().id("FACE").u2(2).u2(0).u2(1).u2(1).u2(0));
  auto scene = ReadBytes(Form("LWO2", c));
  ASSERT_TRUE(scene);
  EXPECT_EQ(Describe(*scene), "0 8 Layer 0 0 0 1\n"
                              "1 2 Layer 0 4 0 0\n"
                              "1 1 Layer 0 3 1 0\n"
                              "1 4 Layer 0 4 1 0\n"
                              "1 1 Layer 0 3 1 0\n");
  auto nodes = Nodes(*scene);
  // Runs keep only the points their faces use; face order is reversed.
  C3DFaceList& first = *nodes[4]->GetBaseObject()->GetFaceList();
  EXPECT_EQ(first[0][0], 0);
  EXPECT_EQ(first[0][2], 2);
  EXPECT_FLOAT_EQ((*nodes[4]->GetBaseObject()->GetPointList())[0].x, 1.0f); // point 2 of the file
  EXPECT_EQ(scene->GetMaterial(first[0].GetMaterialID())->GetName(), "A");
  EXPECT_EQ(
      scene->GetMaterial((*nodes[2]->GetBaseObject()->GetFaceList())[0].GetMaterialID())->GetName(),
      "B");
  auto* curve = static_cast<C3DCurve*>(nodes[1]->GetBaseObject());
  EXPECT_FLOAT_EQ((*curve->GetPointList())[0].z, 5.0f);

  // Saved: one layer per object node in scene order, numbered from 0; the group
  // is not written, so no layer has a parent.
  auto bytes = SaveBytes(scene.get());
  auto obj = LoadLightwaveObject(bytes.data(), bytes.size());
  ASSERT_TRUE(obj);
  ASSERT_EQ(obj->layers.size(), 4u);
  std::vector<std::uint32_t> types;
  for (std::size_t i = 0; i < obj->layers.size(); ++i) {
    const auto& layer = obj->layers[i];
    EXPECT_EQ(layer.number, i);
    EXPECT_EQ(layer.parent, 0xFFFFu);
    ASSERT_EQ(layer.polygons.size(), 1u);
    types.push_back(layer.polygons[0].type);
  }
  EXPECT_EQ(types, (std::vector<std::uint32_t>{lwid::CURV, lwid::FACE, lwid::PACH, lwid::FACE}));
  int error = 0;
  auto back = ReadBytes(Bytes{bytes}, &error);
  ASSERT_TRUE(back);
  EXPECT_EQ(ObjectSet(*back), ObjectSet(*scene));
  EXPECT_EQ(SortedLines(Contents(*back)), SortedLines(Contents(*scene)));

  // Nothing but lines and points: no node, -7.
  Bytes lines;
  lines.chunk("PNTS", Points({0, 0, 0, 1, 0, 0}))
      .chunk("POLS", Bytes().id("FACE").u2(2).u2(0).u2(1));
  EXPECT_FALSE(ReadBytes(Form("LWO2", lines), &error));
  EXPECT_EQ(error, IO_FILE_EMPTY);
}

TEST_F(LightwaveIo, TriangleOrderAndLargeIndicesOnDisk) {
  C3DScene scene;
  std::vector<test::P3> points;
  for (int i = 0; i < 70000; ++i)
    points.push_back({float(i), 0, 0});
  auto* node =
      new C3DSceneNode(test::MakeMesh(points, {{0, 1, 2}, {65280, 3, 69999}}).release(), 1);
  node->SetName("tri");
  scene.AddNode(nullptr, node);
  auto bytes = SaveBytes(&scene);
  // The first polygon is 3 vertices 2, 1, 0; the second starts with the
  // four-byte form of 69999.
  const char pattern[] = "POLS";
  auto pols = std::search(bytes.begin(), bytes.end(), pattern, pattern + 4);
  ASSERT_NE(pols, bytes.end());
  std::vector<std::uint8_t> head(pols + 12, pols + 12 + 14);
  EXPECT_EQ(head,
            (std::vector<std::uint8_t>{0, 3, 0, 2, 0, 1, 0, 0, 0, 3, 0xFF, 0x01, 0x11, 0x6F}));
  auto back = ReadBytes(Bytes{bytes});
  ASSERT_TRUE(back);
  C3DFaceList& f = *Nodes(*back)[1]->GetBaseObject()->GetFaceList();
  EXPECT_EQ(f[0][2], 2);
  // Faces without a material get a default surface.
  EXPECT_EQ(back->GetMaterial(f[0].GetMaterialID())->GetName(), "Default");
}

TEST_F(LightwaveIo, MaterialsFromSurfaces) {
  Bytes c = Square();
  c.chunk("TAGS", Bytes().s0("Child"));
  c.chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(2));
  c.chunk("PTAG", Bytes().id("SURF").vx(0).u2(1));
  c.chunk("CLIP", Bytes().u4(3).chunk("STIL", Bytes().s0("HQ:maps/wood.png"), true));
  Bytes blok;
  blok.chunk("IMAP", Bytes().s0("\x80").chunk("CHAN", Bytes().id("COLR"), true), true)
      .chunk("PROJ", Bytes().u2(5), true)
      .chunk("IMAG", Bytes().vx(3), true);
  c.chunk("SURF", Bytes()
                      .s0("Red")
                      .s0("")
                      .chunk("COLR", Bytes().f4(1).f4(0.5f).f4(0).vx(0), true)
                      .chunk("LUMI", Bytes().f4(0.25f).vx(0), true)
                      .chunk("DIFF", Bytes().f4(0.75f).vx(0), true)
                      .chunk("SPEC", Bytes().f4(0.5f).vx(0), true)
                      .chunk("TRAN", Bytes().f4(0.125f).vx(0), true)
                      .chunk("SMAN", Bytes().f4(0.5f), true)
                      .chunk("BLOK", blok, true));
  // "Child" starts from a copy of "Red", then takes its own colour.
  c.chunk("SURF",
          Bytes().s0("Child").s0("Red").chunk("COLR", Bytes().f4(0).f4(0).f4(1).vx(0), true));
  auto scene = ReadBytes(Form("LWO2", c));
  ASSERT_TRUE(scene);
  C3DMaterial* red = scene->GetMaterial(scene->GetMaterialID("Red"));
  ASSERT_TRUE(red);
  EXPECT_EQ(red->GetDiffuseColor().g, 128);
  EXPECT_EQ(red->GetAmbientColor().g, 128);
  EXPECT_EQ((std::vector<float>{red->GetAmbientFactor(), red->GetDiffuseFactor(),
                                red->GetSpecularFactor(), red->GetTransparencyFactor()}),
            (std::vector<float>{0.25f, 0.75f, 0.5f, 0.125f}));
  ASSERT_TRUE(red->GetDiffuseMaps());
  EXPECT_EQ(red->GetDiffuseMaps()->GetFileName(), "HQ:/maps/wood.png");
  C3DMaterial* child = scene->GetMaterial(scene->GetMaterialID("Child"));
  ASSERT_TRUE(child);
  EXPECT_EQ(child->GetDiffuseColor().b, 255);
  EXPECT_FLOAT_EQ(child->GetDiffuseFactor(), 1.0f); // the surface's own default
  ASSERT_TRUE(child->GetDiffuseMaps());             // copied from the source

  // Written back: TAGS and SURF in material order, the clip name converted.
  auto bytes = SaveBytes(scene.get());
  auto obj = LoadLightwaveObject(bytes.data(), bytes.size());
  ASSERT_TRUE(obj);
  ASSERT_EQ(obj->tags.size(), obj->surfaces.size());
  for (std::size_t i = 0; i < obj->tags.size(); ++i)
    EXPECT_EQ(obj->tags[i], obj->surfaces[i].name);
  ASSERT_EQ(obj->clips.size(), 1u); // both materials share the image
  EXPECT_EQ(obj->clips[0].fileName, "HQ:maps/wood.png");
  const auto& s = obj->surfaces[obj->FindSurface("Red")];
  EXPECT_FLOAT_EQ(s.luminosity, 0.25f);
  ASSERT_TRUE(s.FindChannel(lwid::COLR));
  EXPECT_EQ(s.FindChannel(lwid::COLR)->blocks[0].clip, 0u);
}

// One per-point texture map: every corner carries its point's value, whether
// all points have one or some fall back to the shared default.
TEST_F(LightwaveIo, PerPointTextureMapFollowsTheCorners) {
  for (bool complete : {true, false}) {
    SCOPED_TRACE(complete);
    Bytes c;
    c.chunk("TAGS", Bytes().s0("Red"));
    c.chunk("PNTS", Points({0, 0, 0, 1, 0, 0, 2, 0, 0, 0, 1, 0, 1, 1, 0, 2, 1, 0}));
    c.chunk("POLS", Bytes().id("FACE").u2(4).u2(0).u2(1).u2(4).u2(3).u2(4).u2(1).u2(2).u2(5).u2(4));
    // Entries in another order than the points, so entry and point numbers differ.
    Bytes vmap = Bytes().id("TXUV").u2(2).s0("uv");
    for (int p = 5; p >= 0; --p)
      if (complete || p != 2)
        vmap.vx(std::uint32_t(p)).f4(float(p % 3) / 10).f4(float(p / 3) / 10);
    c.chunk("VMAP", vmap);
    auto scene = ReadBytes(Form("LWO2", c));
    ASSERT_TRUE(scene);
    C3DBaseObject* object = Nodes(*scene)[1]->GetBaseObject();
    CUVWChannel* uv = object->GetChannels()->GetUVWChannel(0);
    ASSERT_TRUE(uv);
    // Without point 2's value: five values and the default.
    EXPECT_EQ(uv->GetUVWPointList()->GetSize(), 6);
    ASSERT_EQ(uv->GetUVWFaceList()->GetSize(), 2);
    for (int f = 0; f < 2; ++f) {
      const C3DFace& face = (*object->GetFaceList())[f];
      const CUVWFace& tf = (*uv->GetUVWFaceList())[f];
      ASSERT_EQ(tf.GetSize(), 4);
      for (int k = 0; k < 4; ++k) {
        const C3DPoint& p = (*object->GetPointList())[face[k]];
        const CUVWPoint& t = (*uv->GetUVWPointList())[tf[k]];
        bool missing = !complete && p.x == 2 && p.y == 0;
        EXPECT_FLOAT_EQ(t.u, missing ? 0.0f : p.x / 10);
        EXPECT_FLOAT_EQ(t.v, missing ? 0.0f : -p.y / 10);
      }
    }
  }
}

TEST_F(LightwaveIo, TextureAndColourChannels) {
  Bytes c = Square();
  c.chunk("VMAP", Bytes().id("TXUV").u2(2).s0("other").vx(0).f4(7).f4(7));
  Bytes uvmap = Bytes().id("TXUV").u2(2).s0("uv");
  uvmap.vx(0).f4(0).f4(0).vx(1).f4(1).f4(0).vx(2).f4(1).f4(1).vx(3).f4(0).f4(1);
  c.chunk("VMAP", uvmap);
  c.chunk("VMAD", Bytes().id("TXUV").u2(2).s0("uv").vx(2).vx(0).f4(0.5f).f4(0.25f));
  c.chunk("VMAP",
          Bytes().id("RGB ").u2(3).s0("col").vx(0).f4(1).f4(0).f4(0).vx(1).f4(0).f4(1).f4(0));
  c.chunk("CLIP", Bytes().u4(1).chunk("STIL", Bytes().s0("a.png"), true));
  Bytes blok;
  blok.chunk("IMAP", Bytes().s0("\x80").chunk("CHAN", Bytes().id("COLR"), true), true)
      .chunk("PROJ", Bytes().u2(5), true)
      .chunk("IMAG", Bytes().vx(1), true)
      .chunk("VMAP", Bytes().s0("uv"), true);
  c.chunk("SURF", Bytes()
                      .s0("Red")
                      .s0("")
                      .chunk("BLOK", blok, true)
                      .chunk("VCOL", Bytes().f4(0.5f).vx(0).id("RGB ").s0("col"), true));
  auto scene = ReadBytes(Form("LWO2", c));
  ASSERT_TRUE(scene);
  C3DBaseObject* object = Nodes(*scene)[1]->GetBaseObject();
  CUVWChannel* uv = object->GetChannels()->GetUVWChannel(0);
  ASSERT_TRUE(uv);
  EXPECT_EQ(object->GetGlobalUVWChannel(), uv->GetID());
  // The material's own map wins over the layer's first; v is negated; the
  // per-polygon value overrides point 2's.
  const C3DFace& face = (*object->GetFaceList())[0]; // file points 3, 2, 1, 0
  const CUVWFace& tf = (*uv->GetUVWFaceList())[0];
  auto uvOf = [&](int k) { return (*uv->GetUVWPointList())[tf[k]]; };
  EXPECT_FLOAT_EQ(uvOf(0).v, -1.0f);
  EXPECT_FLOAT_EQ(uvOf(1).u, 0.5f);
  EXPECT_FLOAT_EQ(uvOf(1).v, -0.25f);
  EXPECT_EQ(uv->GetUVWPointList()->GetSize(), 4);
  C3DMaterial* red = scene->GetMaterial(face.GetMaterialID());
  EXPECT_EQ(red->GetDiffuseMaps()->GetChannelID(), uv->GetID());
  EXPECT_EQ(red->GetDiffuseMaps()->GetFileName(), "./a.png");

  CVCChannel* vc = object->GetChannels()->GetVCChannel(0);
  ASSERT_TRUE(vc);
  const CVCFace& cf = (*vc->GetVCFaceList())[0];
  EXPECT_EQ((*vc->GetVCPointList())[cf[3]].GetColor(), CRGBColor(255, 0, 0, 255)); // point 0
  EXPECT_EQ((*vc->GetVCPointList())[cf[2]].GetColor(), CRGBColor(0, 255, 0, 255)); // point 1
  float factor = 0;
  EXPECT_EQ(red->GetVertexColor(factor), vc->GetID());
  EXPECT_FLOAT_EQ(factor, 0.5f);

  // Written as per-polygon maps named after the counter, linked from the surface.
  auto bytes = SaveBytes(scene.get());
  auto obj = LoadLightwaveObject(bytes.data(), bytes.size());
  ASSERT_TRUE(obj);
  const auto& maps = obj->layers[0].vmaps;
  ASSERT_EQ(maps.size(), 2u);
  EXPECT_TRUE(maps[0].perPolygon);
  EXPECT_EQ(maps[0].EntryCount(), 4u);
  EXPECT_EQ(maps[1].type, lwid::RGBA);
  const auto& s = obj->surfaces[0];
  EXPECT_EQ(s.FindChannel(lwid::COLR)->blocks[0].vmapName, maps[0].name);
  EXPECT_EQ(s.vcolName, maps[1].name);
  auto back = ReadBytes(Bytes{bytes});
  ASSERT_TRUE(back);
  EXPECT_EQ(Contents(*back), Contents(*scene));
  auto* backUv = Nodes(*back)[1]->GetBaseObject()->GetChannels()->GetUVWChannel(0);
  EXPECT_EQ(backUv->GetUVWPointList()->GetSize(), 4);
}

TEST_F(LightwaveIo, FailuresAndTheirCodes) {
  int error = 0;
  EXPECT_FALSE(ReadBytes(Form("LWO3", Square()), &error));
  EXPECT_EQ(error, IO_FILE_BAD_FORMAT);
  // A damaged file says where and why.
  Bytes c;
  c.chunk("PNTS", Points({0, 0, 0, 1, 0, 0, 0, 1, 0}));
  c.chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(2));
  c.chunk("PTAG", Bytes().id("SURF").vx(5).u2(0));
  WriteFileBytes(Temp("bad.lwo"), Form("LWO2", c).data);
  C3DIo damaged(Temp("bad.lwo"), kSilent);
  EXPECT_FALSE(damaged.Read(0, 0));
  EXPECT_EQ(damaged.GetIoError(), IO_FILE_BAD_FORMAT);
  EXPECT_EQ(damaged.GetIoErrorDetail(), "PTAG at byte 88: polygon 5 of 1");

  C3DIo missing(Temp("none.lwo"), kSilent);
  EXPECT_FALSE(missing.Read(0, 0));
  EXPECT_EQ(missing.GetIoError(), IO_FILE_BAD_FORMAT);

  C3DScene empty;
  C3DIo io(Temp("empty.lwo"), kSilent);
  EXPECT_EQ(io.Save(0, &empty, 0), 0);
  EXPECT_EQ(io.GetIoError(), IO_FILE_EMPTY);

  auto scene = ReadBytes(Form("LWO2", Square()));
  ASSERT_TRUE(scene);
  C3DIo bad(Temp("no/such/dir/x.lwo"), kSilent);
  EXPECT_EQ(bad.Save(0, scene.get(), 0), 0);
  EXPECT_EQ(bad.GetIoError(), IO_FILE_CANT_OPEN);
}

namespace {

// Twice the signed area of a polygon in the xz plane (y is constant).
double Area2(const st_lwLayer& layer, const st_lwPolygon& p) {
  double a = 0;
  const std::uint32_t* v = layer.Vertices(p);
  for (unsigned i = 0; i < p.vertexCount; ++i) {
    const float* u = layer.points[v[i]].pos;
    const float* w = layer.points[v[(i + 1) % p.vertexCount]].pos;
    a += double(u[0]) * w[2] - double(w[0]) * u[2];
  }
  return a;
}

// A 20 x 20 grid of quads with a per-point texture map.
Bytes Grid(int n) {
  const int side = n + 1;
  Bytes pts, pols, ptag, uv;
  pols.id("FACE");
  ptag.id("SURF");
  uv.id("TXUV").u2(2).s0("uv");
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      pts.f4(float(x)).f4(0).f4(float(y));
      uv.vx(std::uint32_t(y * side + x)).f4(float(x) / float(n)).f4(float(y) / float(n));
    }
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      const auto a = std::uint32_t(y * side + x), s = std::uint32_t(side);
      pols.u2(4).vx(a).vx(a + s).vx(a + s + 1).vx(a + 1);
      ptag.vx(std::uint32_t(y * n + x)).u2(std::uint32_t((x + y) % 2));
    }
  Bytes c;
  c.chunk("TAGS", Bytes().s0("Even").s0("Odd"));
  c.chunk("PNTS", pts).chunk("VMAP", uv).chunk("POLS", pols).chunk("PTAG", ptag);
  return Form("LWO2", c);
}

} // namespace

TEST_F(LightwaveIo, LongFacesAndCurvesAreSplitToFit) {
  C3DScene scene;
  constexpr int kFace = 2500, kCurve = 3000;
  std::vector<test::P3> ring;
  test::Faces discFace(1);
  for (int i = 0; i < kFace; ++i) {
    const double t = 2 * 3.14159265358979 * i / kFace;
    ring.push_back({float(std::cos(t)), 0.0f, float(std::sin(t))});
    discFace[0].push_back(i);
  }
  auto* curve = new C3DCurve;
  auto* curvePoints = new C3DPointList;
  curvePoints->SetSize(kCurve);
  for (int i = 0; i < kCurve; ++i)
    (*curvePoints)[i] = C3DPoint(float(i), 1.0f, 0.0f);
  curve->SetPointList(curvePoints);
  scene.AddNode(nullptr, new C3DSceneNode(test::MakeMesh(ring, discFace).release(), 1));
  scene.AddNode(nullptr, new C3DSceneNode(curve, 1));

  int error = 0;
  auto bytes = SaveBytes(&scene, &error);
  ASSERT_EQ(error, 1);
  auto obj = LoadLightwaveObject(bytes.data(), bytes.size());
  ASSERT_TRUE(obj);
  ASSERT_EQ(obj->layers.size(), 2u);
  double area = 0;
  std::size_t fans = 0, chains = 0;
  for (const auto& layer : obj->layers) {
    const st_lwPolygon* previous = nullptr;
    for (const auto& p : layer.polygons) {
      EXPECT_GE(p.vertexCount, 3u);
      EXPECT_LE(p.vertexCount, 1023u);
      if (p.type == lwid::FACE) {
        // A fan: every piece starts at the same hub.
        EXPECT_EQ(layer.Vertices(p)[0], layer.Vertices(layer.polygons[0])[0]);
        area += Area2(layer, p);
        ++fans;
      } else {
        ASSERT_EQ(p.type, lwid::CURV);
        // A chain: each piece starts where the previous one ended.
        if (previous) {
          EXPECT_EQ(layer.Vertices(p)[0], layer.Vertices(*previous)[previous->vertexCount - 1]);
        }
        previous = &p;
        ++chains;
      }
    }
    if (previous) {
      EXPECT_EQ(layer.Vertices(*previous)[previous->vertexCount - 1], std::uint32_t(kCurve - 1));
    }
  }
  EXPECT_EQ(fans, 3u);
  EXPECT_EQ(chains, 3u);
  // The pieces cover the polygon exactly once (Lightwave winds the other way).
  double whole = 0;
  for (int i = 0; i < kFace; ++i) {
    const test::P3 &u = ring[std::size_t(i)], &w = ring[std::size_t((i + 1) % kFace)];
    whole += double(u[0]) * w[2] - double(w[0]) * u[2];
  }
  EXPECT_NEAR(area, -whole, 1e-4);
  auto back = ReadBytes(Bytes{bytes});
  ASSERT_TRUE(back);
  EXPECT_EQ(back->GetNodeNbr(1), 4); // the disc's object and three curves
}

TEST_F(LightwaveIo, LayersPastTheIndexLimitContinueInNewLayers) {
  auto scene = ReadBytes(Grid(20));
  ASSERT_TRUE(scene);
  C3DIo io("memory.lwo", kSilent);
  CLightwaveIo codec(io);
  codec.SetLayerIndexLimit(100);
  std::vector<std::uint8_t> bytes;
  ASSERT_EQ(codec.SaveToMemory(scene.get(), 0, bytes), 1);
  auto obj = LoadLightwaveObject(bytes.data(), bytes.size());
  ASSERT_TRUE(obj);
  ASSERT_GT(obj->layers.size(), 4u);
  std::size_t polygons = 0;
  for (std::size_t i = 0; i < obj->layers.size(); ++i) {
    const auto& layer = obj->layers[i];
    EXPECT_LE(layer.points.size(), 100u);
    EXPECT_LE(layer.polygons.size(), 100u);
    EXPECT_EQ(layer.number, i);
    EXPECT_EQ(layer.name, obj->layers[0].name);
    polygons += layer.polygons.size();
  }
  EXPECT_EQ(polygons, 400u);
  // Faces, materials and texture coordinates read back as they were.
  auto back = ReadBytes(Bytes{bytes});
  ASSERT_TRUE(back);
  EXPECT_EQ(SortedLines(Contents(*back)), SortedLines(Contents(*scene)));
}

TEST_F(LightwaveIo, LayerOrderAndHiddenNodes) {
  // Sorted by parent, 0xFFFF being the number 65535: the layer without a
  // parent field (0) is converted first, so it is listed last.
  Bytes tri;
  tri.chunk("PNTS", Points({0, 0, 0, 1, 0, 0, 0, 1, 0}))
      .chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(2));
  Bytes c;
  c.chunk("LAYR", Bytes().u2(0).u2(0).f4(0).f4(0).f4(0).s0("Orphan").u2(0xFFFF)).raw(tri);
  c.chunk("LAYR", Bytes().u2(1).u2(0).f4(0).f4(0).f4(0).s0("Plain")).raw(tri);
  auto scene = ReadBytes(Form("LWO2", c));
  ASSERT_TRUE(scene);
  auto nodes = Nodes(*scene);
  ASSERT_EQ(nodes.size(), 4u);
  EXPECT_EQ(nodes[0]->GetName(), "Orphan");
  EXPECT_EQ(scene->GetNodeDepth(nodes[0]), 0u);
  EXPECT_EQ(nodes[2]->GetName(), "Plain");

  // A hidden node is not written; the others keep their scene order.
  nodes[1]->SetFlag(1, 1);
  auto bytes = SaveBytes(scene.get());
  auto obj = LoadLightwaveObject(bytes.data(), bytes.size());
  ASSERT_TRUE(obj);
  ASSERT_EQ(obj->layers.size(), 1u);
  EXPECT_EQ(obj->layers[0].name, "Plain");
  EXPECT_EQ(obj->layers[0].number, 0u);
}
