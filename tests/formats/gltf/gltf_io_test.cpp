// glTF export: the container, the mesh data read back from the buffer, and
// what the writer does with shapes, materials and failures.

#include "meshcore/formats/gltf/gltf_io.h"
#include "meshcore/formats/library.h"
#include "meshcore/io/cancel.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"
#include "tests/support/byte_builder.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <cstdlib>

using namespace meshcore;
using namespace meshcore::test;
namespace fs = std::filesystem;

namespace {

constexpr unsigned kSilent = FILE_PARSER_SILENT;

// The numbers that follow every `"key":` in the JSON text, in order.
std::vector<long long> Numbers(const std::string& json, const std::string& key) {
  std::vector<long long> out;
  const std::string quoted = "\"" + key + "\":";
  for (std::size_t at = json.find(quoted); at != std::string::npos;
       at = json.find(quoted, at + 1)) {
    const char* p = json.c_str() + at + quoted.size();
    char* end = nullptr;
    const long long v = std::strtoll(p, &end, 10);
    if (end != p)
      out.push_back(v);
  }
  return out;
}

// The triangles of the first primitive, as positions, decoded from the buffer
// the way a reader does: the vertex view (interleaved, stride from the JSON)
// and the index view.
std::vector<std::array<float, 3>> Triangles(const std::string& json,
                                            const std::vector<std::uint8_t>& buffer) {
  const auto offsets = Numbers(json, "byteOffset");
  const auto strides = Numbers(json, "byteStride");
  const auto types = Numbers(json, "componentType");
  const auto counts = Numbers(json, "count");
  // Accessors: POSITION, NORMAL, then the indices of the first primitive.
  const std::size_t stride = std::size_t(strides.at(0));
  const std::size_t indexCount = std::size_t(counts.at(2));
  const bool wide = types.at(2) == 5125;
  // The index view is the second view; its offset is the first byteOffset
  // written for a view (views follow the accessors in the text).
  const std::size_t indexStart = std::size_t(offsets.back());
  std::vector<std::array<float, 3>> corners;
  for (std::size_t i = 0; i < indexCount; ++i) {
    std::uint32_t v = 0;
    std::memcpy(&v, buffer.data() + indexStart + i * (wide ? 4 : 2), wide ? 4 : 2);
    std::array<float, 3> p;
    std::memcpy(p.data(), buffer.data() + v * stride, 12);
    corners.push_back(p);
  }
  return corners;
}

class Gltf : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
  void SetUp() override { dir_ = ScratchDir("gltf"); }
  std::string Temp(const std::string& name) const { return (dir_ / name).string(); }

  // Saves through the codec in memory: the JSON and the buffer (the text form).
  bool SaveText(C3DScene& scene, std::string& json, std::vector<std::uint8_t>& buffer,
                std::vector<std::string>* missing = nullptr) {
    C3DIo io(Temp("out.gltf"), kSilent);
    CGltfIo codec(io);
    const bool ok = codec.SaveToMemory(&scene, 0, false, Temp("out.gltf"), json, buffer) == 1;
    if (missing)
      *missing = codec.GetMissingImages();
    return ok;
  }

  fs::path dir_;
};

// A scene with one mesh node of the given object.
std::unique_ptr<C3DScene> SceneOf(C3DBaseObject* object, const std::string& name = "Mesh") {
  auto scene = std::make_unique<C3DScene>();
  auto* node = new C3DSceneNode(object, 1);
  node->SetName(name);
  scene->AddNode(nullptr, node);
  return scene;
}

std::unique_ptr<C3DObject> Cube() {
  return MakeMesh(
      {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}},
      {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}});
}

} // namespace

TEST_F(Gltf, FilesFromASampleAreWholeAndRepeatable) {
  C3DIo reader(MESHCORE_SAMPLES_DIR "/lightwave/boxuv.lwo", kSilent);
  std::unique_ptr<C3DScene> scene(reader.Read(0, 0));
  ASSERT_TRUE(scene);
  const int faces = scene->GetNodeNbr(1);

  C3DIo glb(Temp("box.glb"), kSilent);
  ASSERT_EQ(glb.Save(0, scene.get(), 0), 1) << glb.GetIoError();
  const auto bytes = ReadFileBytes(Temp("box.glb"));
  ASSERT_GT(bytes.size(), 28u);
  EXPECT_EQ(std::memcmp(bytes.data(), "glTF", 4), 0);
  std::uint32_t version = 0, length = 0, jsonLength = 0;
  std::memcpy(&version, bytes.data() + 4, 4);
  std::memcpy(&length, bytes.data() + 8, 4);
  std::memcpy(&jsonLength, bytes.data() + 12, 4);
  EXPECT_EQ(version, 2u);
  EXPECT_EQ(length, bytes.size());
  EXPECT_EQ(jsonLength % 4, 0u);
  EXPECT_EQ(std::memcmp(bytes.data() + 16, "JSON", 4), 0);
  EXPECT_EQ(std::memcmp(bytes.data() + 20 + jsonLength + 4, "BIN", 4), 0);
  // The sample's image sits beside it: embedded, with its type.
  const std::string json(reinterpret_cast<const char*>(bytes.data()) + 20, jsonLength);
  EXPECT_NE(json.find("\"mimeType\":\"image/png\""), std::string::npos);

  // The text form: the buffer beside it, the image by relative URI. (Images
  // are looked for beside the file the scene was read from or last saved to:
  // read it afresh.)
  C3DIo reread(MESHCORE_SAMPLES_DIR "/lightwave/boxuv.lwo", kSilent);
  scene.reset(reread.Read(0, 0));
  ASSERT_TRUE(scene);
  C3DIo gltf(Temp("box.gltf"), kSilent);
  ASSERT_EQ(gltf.Save(0, scene.get(), 0), 1);
  EXPECT_TRUE(fs::exists(Temp("box.bin")));
  const auto text = ReadFileBytes(Temp("box.gltf"));
  const std::string doc(text.begin(), text.end());
  EXPECT_NE(doc.find("\"uri\":\"box.bin\""), std::string::npos);
  EXPECT_NE(doc.find("boxuv.png\""), std::string::npos);

  // Saving again gives the same bytes, and the scene is as it was.
  C3DIo third(MESHCORE_SAMPLES_DIR "/lightwave/boxuv.lwo", kSilent);
  scene.reset(third.Read(0, 0));
  ASSERT_TRUE(scene);
  C3DIo again(Temp("again.glb"), kSilent);
  ASSERT_EQ(again.Save(0, scene.get(), 0), 1);
  EXPECT_EQ(ReadFileBytes(Temp("again.glb")), bytes);
  EXPECT_EQ(scene->GetNodeNbr(1), faces);

  // A map named as a system that ignores case wrote it ("TEST.PNG") is found.
  C3DIo upper(MESHCORE_SAMPLES_DIR "/3ds/cube_with_diffuse_texture.3DS", kSilent);
  scene.reset(upper.Read(0, 0));
  ASSERT_TRUE(scene);
  std::string json2;
  std::vector<std::uint8_t> glb2;
  C3DIo io(Temp("cube.glb"), kSilent);
  CGltfIo codec(io);
  ASSERT_EQ(codec.SaveToMemory(scene.get(), 0, true, Temp("cube.glb"), json2, glb2), 1);
  EXPECT_TRUE(codec.GetMissingImages().empty());
}

TEST_F(Gltf, NormalsSplitAtSharpEdgesOnly) {
  std::string json;
  std::vector<std::uint8_t> buffer;
  // Flat: every face has its own four corners; 12 triangles.
  auto flat = Cube();
  flat->SetSmoothAngle(0.5f);
  auto a = SceneOf(flat.release());
  ASSERT_TRUE(SaveText(*a, json, buffer));
  auto counts = Numbers(json, "count");
  EXPECT_EQ(counts.at(0), 24); // positions
  EXPECT_EQ(counts.at(2), 36); // indices
  EXPECT_NE(json.find("\"min\":[0,0,0],\"max\":[1,1,1]"), std::string::npos);
  EXPECT_NE(json.find("\"componentType\":5123"), std::string::npos); // 16-bit indices
  // Smoothed over every edge: one vertex per corner of the cube.
  auto round = Cube();
  round->SetSmoothAngle(3.1f);
  auto b = SceneOf(round.release());
  ASSERT_TRUE(SaveText(*b, json, buffer));
  EXPECT_EQ(Numbers(json, "count").at(0), 8);

  // The triangles keep the cube's outward faces: their normals point away
  // from its centre once glTF's winding (counter-clockwise) is applied.
  auto corners = Triangles(json, buffer);
  ASSERT_EQ(corners.size(), 36u);
  for (std::size_t t = 0; t < corners.size(); t += 3) {
    const auto &p = corners[t], &q = corners[t + 1], &r = corners[t + 2];
    const float u[3] = {q[0] - p[0], q[1] - p[1], q[2] - p[2]};
    const float v[3] = {r[0] - p[0], r[1] - p[1], r[2] - p[2]};
    const float n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                        u[0] * v[1] - u[1] * v[0]};
    const float c[3] = {(p[0] + q[0] + r[0]) / 3 - 0.5f, (p[1] + q[1] + r[1]) / 3 - 0.5f,
                        (p[2] + q[2] + r[2]) / 3 - 0.5f};
    EXPECT_GT(n[0] * c[0] + n[1] * c[1] + n[2] * c[2], 0.0f) << "triangle " << t / 3;
  }
}

TEST_F(Gltf, EveryCornerNormalFollowsTheSmoothingRule) {
  // A strip that curves gently, then folds by 40 degrees: smoothing angles
  // below the bends, between them and above both. Every corner's normal must
  // be the area-weighted sum of the triangles around its point that lie
  // within the angle of its own triangle (quads cut as the writer cuts them).
  std::vector<P3> points;
  Faces quads;
  constexpr int kW = 20, kH = 4;
  for (int y = 0; y <= kH; ++y)
    for (int x = 0; x <= kW; ++x)
      points.push_back({float(x), float(y),
                        x <= 10 ? 0.002f * float(x * x) : 0.2f + std::tan(0.698f) * float(x - 10)});
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const int a = y * (kW + 1) + x;
      quads.push_back({a, a + 1, a + kW + 2, a + kW + 1});
    }
  struct Tri {
    int p[3];
    std::array<double, 3> raw, unit;
  };
  std::vector<Tri> tris;
  for (const auto& q : quads)
    for (int i = 1; i <= 2; ++i) {
      Tri t{{q[0], q[std::size_t(i)], q[std::size_t(i) + 1]}, {}, {}};
      const P3 &a = points[std::size_t(t.p[0])], &b = points[std::size_t(t.p[1])],
               &c = points[std::size_t(t.p[2])];
      double u[3], v[3];
      for (int k = 0; k < 3; ++k) {
        u[k] = double(c[std::size_t(k)]) - a[std::size_t(k)];
        v[k] = double(b[std::size_t(k)]) - a[std::size_t(k)];
      }
      t.raw = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
      const double l = std::sqrt(t.raw[0] * t.raw[0] + t.raw[1] * t.raw[1] + t.raw[2] * t.raw[2]);
      t.unit = {t.raw[0] / l, t.raw[1] / l, t.raw[2] / l};
      tris.push_back(t);
    }
  for (float angle : {0.0005f, 0.3f, 1.0f}) {
    SCOPED_TRACE(angle);
    auto object = MakeMesh(points, quads);
    object->SetSmoothAngle(angle);
    auto scene = SceneOf(object.release());
    std::string json;
    std::vector<std::uint8_t> buffer;
    ASSERT_TRUE(SaveText(*scene, json, buffer));
    const std::size_t stride = std::size_t(Numbers(json, "byteStride").at(0));
    const std::size_t indexStart = std::size_t(Numbers(json, "byteOffset").back());
    const bool wide = Numbers(json, "componentType").at(2) == 5125;
    const auto counts = Numbers(json, "count");
    ASSERT_EQ(counts.at(2), std::int64_t(tris.size() * 3));
    for (std::size_t t = 0; t < tris.size(); ++t)
      for (int c = 0; c < 3; ++c) {
        std::uint32_t v = 0;
        std::memcpy(&v, buffer.data() + indexStart + (t * 3 + std::size_t(c)) * (wide ? 4 : 2),
                    wide ? 4 : 2);
        float got[3];
        std::memcpy(got, buffer.data() + v * stride + 12, sizeof got);
        double sum[3] = {0, 0, 0};
        for (const Tri& o : tris) {
          const bool around = std::find(o.p, o.p + 3, tris[t].p[c]) != o.p + 3;
          const double dot = o.unit[0] * tris[t].unit[0] + o.unit[1] * tris[t].unit[1] +
                             o.unit[2] * tris[t].unit[2];
          if (around && dot >= std::cos(double(angle)))
            for (int k = 0; k < 3; ++k)
              sum[k] += o.raw[std::size_t(k)];
        }
        const double l = std::sqrt(sum[0] * sum[0] + sum[1] * sum[1] + sum[2] * sum[2]);
        for (int k = 0; k < 3; ++k)
          ASSERT_NEAR(got[k], sum[k] / l, 1e-5) << "triangle " << t << " corner " << c;
      }
  }
}

TEST_F(Gltf, ConcaveFacesAndLargeMeshes) {
  // An L-shaped face: a fan from its first corner would cover the notch.
  auto ell = MakeMesh({{0, 0, 0}, {0, 2, 0}, {1, 2, 0}, {1, 1, 0}, {2, 1, 0}, {2, 0, 0}},
                      {{0, 1, 2, 3, 4, 5}});
  auto scene = SceneOf(ell.release());
  std::string json;
  std::vector<std::uint8_t> buffer;
  ASSERT_TRUE(SaveText(*scene, json, buffer));
  auto corners = Triangles(json, buffer);
  ASSERT_EQ(corners.size(), 12u);
  double area = 0;
  for (std::size_t t = 0; t < corners.size(); t += 3) {
    const auto &p = corners[t], &q = corners[t + 1], &r = corners[t + 2];
    area += std::abs((q[0] - p[0]) * (r[1] - p[1]) - (r[0] - p[0]) * (q[1] - p[1])) / 2;
  }
  EXPECT_NEAR(area, 3.0, 1e-6);

  // Past 65534 vertices the indices are 32-bit.
  auto big = std::make_unique<C3DObject>(new C3DPointList, new C3DFaceList);
  MakeGrid(300, 300, *big->GetPointList(), *big->GetFaceList());
  big->SetSmoothAngle(3.1f);
  auto large = SceneOf(big.release());
  ASSERT_TRUE(SaveText(*large, json, buffer));
  EXPECT_EQ(Numbers(json, "count").at(0), 301 * 301);
  EXPECT_NE(json.find("\"componentType\":5125"), std::string::npos);
}

TEST_F(Gltf, NodesMaterialsCurvesAndFailures) {
  auto scene = std::make_unique<C3DScene>();
  C3DMaterial* red = scene->CreateNewMaterial();
  red->SetName("Red \"glass\"");
  red->SetDiffuseColor(CRGBColor(255, 0, 0, 255));
  red->SetTransparencyFactor(0.25f);
  red->AddMaterialMap("images/nowhere.png", kNoChannel, MAP_DIFFUSE);
  auto* group = new C3DSceneNode(new C3DGroup, 1);
  group->SetName("Group");
  scene->AddNode(nullptr, group);
  auto cube = Cube();
  for (int f = 0; f < cube->GetFaceList()->GetSize(); ++f)
    (*cube->GetFaceList())[f].SetMaterialID(red->GetMaterialID());
  auto* mesh = new C3DSceneNode(cube.release(), 1);
  mesh->SetName("Box");
  scene->AddNode(group, mesh);
  auto* hidden = new C3DSceneNode(Cube().release(), 1);
  hidden->SetName("Hidden");
  hidden->SetFlag(1, 1);
  scene->AddNode(group, hidden);
  auto* curve = new C3DCurve;
  curve->SetPointList(new C3DPointList);
  curve->GetPointList()->SetSize(3);
  (*curve->GetPointList())[2].x = 1;
  auto* line = new C3DSceneNode(curve, 1);
  line->SetName("Line");
  scene->AddNode(nullptr, line);

  std::string json;
  std::vector<std::uint8_t> buffer;
  std::vector<std::string> missing;
  ASSERT_TRUE(SaveText(*scene, json, buffer, &missing));
  // The image is missing: a warning, no texture, and the file is written.
  EXPECT_EQ(missing, std::vector<std::string>{"images/nowhere.png"});
  EXPECT_EQ(json.find("\"textures\""), std::string::npos);
  // The axis root, the group and its two children, the curve; the hidden
  // node keeps its place without a mesh.
  EXPECT_NE(json.find("\"name\":\"Z-up to Y-up\""), std::string::npos);
  EXPECT_NE(json.find("{\"name\":\"Hidden\"}"), std::string::npos);
  EXPECT_EQ(Numbers(json, "mesh").size(), 2u);
  EXPECT_NE(json.find("\"mode\":3"), std::string::npos);
  EXPECT_NE(json.find("\"name\":\"Red \\\"glass\\\"\""), std::string::npos);
  EXPECT_NE(json.find("\"baseColorFactor\":[1,0,0,0.75]"), std::string::npos);
  EXPECT_NE(json.find("\"alphaMode\":\"BLEND\""), std::string::npos);

  // Cancelled: -9 and no file; an empty scene: -7.
  SetCancel(1, 0);
  C3DIo cancelled(Temp("cancelled.glb"), kSilent);
  EXPECT_EQ(cancelled.Save(0, scene.get(), 0), 0);
  SetCancel(0, 0);
  EXPECT_EQ(cancelled.GetIoError(), IO_FILE_CANCELLED);
  EXPECT_FALSE(fs::exists(Temp("cancelled.glb")));
  C3DScene empty;
  C3DIo none(Temp("none.glb"), kSilent);
  EXPECT_EQ(none.Save(0, &empty, 0), 0);
  EXPECT_EQ(none.GetIoError(), IO_FILE_EMPTY);
}
