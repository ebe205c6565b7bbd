// Scenes into OBJ and MTL text, and the sample files through the codec and back.

#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/io/cancel.h"
#include "meshcore/mesh/point_list_3d.h"

#include "obj_test_util.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

using namespace meshcore;
using namespace meshcore::objtest;

namespace {

class WavefrontWrite : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
};

struct Written {
  std::string obj, mtl;
  int ok = 0;
  int error = 1;
};

Written Write(C3DScene& scene) {
  C3DIo io("memory.obj", FILE_PARSER_SILENT);
  CWavefrontIo codec(io);
  Written w;
  w.ok = codec.SaveToMemory(&scene, 0, "memory.mtl", w.obj, w.mtl);
  w.error = io.GetIoError();
  return w;
}

// Reads OBJ text whose library is the given MTL text.
ReadResult ReadWithLibrary(const Written& w, const std::string& tag) {
  auto dir = test::ScratchDir("obj_lib_" + tag);
  std::ofstream(dir / "memory.mtl", std::ios::binary) << w.mtl;
  return ReadObjText(w.obj, dir.string());
}

std::vector<std::string> SampleFiles() {
  std::vector<std::string> files;
  for (const auto& e : std::filesystem::directory_iterator(MESHCORE_SAMPLES_DIR "/obj"))
    if (e.path().extension() == ".obj")
      files.push_back(e.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

std::unique_ptr<C3DScene> ReadFile(const std::string& name, int* error = nullptr) {
  C3DIo io(name, FILE_PARSER_SILENT);
  std::unique_ptr<C3DScene> scene(io.Read());
  if (error)
    *error = io.GetIoError();
  return scene;
}

} // namespace

TEST_F(WavefrontWrite, SamplesLoadAndRoundTrip) {
  auto files = SampleFiles();
  ASSERT_GE(files.size(), 8u);
  auto dir = test::ScratchDir("obj_samples");
  for (const auto& file : files) {
    SCOPED_TRACE(file);
    auto first = ReadFile(file);
    ASSERT_TRUE(first);
    EXPECT_GT(first->GetPointNbr(), 0);
    // OBJ -> scene -> OBJ -> scene keeps everything the format carries.
    C3DIo out((dir / "copy.obj").string(), FILE_PARSER_SILENT);
    ASSERT_EQ(out.Save(0, first.get()), 1);
    ASSERT_TRUE(std::filesystem::exists(dir / "copy.mtl"));
    auto second = ReadFile((dir / "copy.obj").string());
    ASSERT_TRUE(second);
    ExpectSameScene(*first, *second);
  }
  // What the samples say, checked on a few.
  auto spider = ReadFile(MESHCORE_SAMPLES_DIR "/obj/spider.obj");
  ASSERT_TRUE(spider);
  EXPECT_EQ(spider->GetFaceNbr(), 1368);
  const unsigned skin = spider->GetMaterialID("Skin");
  ASSERT_NE(skin, 0xFFFFFFFFu);
  EXPECT_EQ(spider->GetMaterial(skin)->GetDiffuseMaps()->GetFileName(), "./wal67ar_small.jpg");
  for (C3DSceneNode* node : GeometryNodes(*spider))
    EXPECT_TRUE(FirstChannel<CUVWChannel>(node->GetBaseObject(), CHANNEL_UVW));
  auto cube = ReadFile(MESHCORE_SAMPLES_DIR "/obj/cube_usemtl.obj");
  ASSERT_TRUE(cube);
  EXPECT_EQ(cube->GetMaterialNumber(), 3); // mtl, mtl2 and the default one for mtl3
  auto concave = ReadFile(MESHCORE_SAMPLES_DIR "/obj/concave_polygon.obj");
  ASSERT_TRUE(concave);
  C3DBaseObject* polygon = GeometryNodes(*concave)[0]->GetBaseObject();
  ASSERT_EQ(polygon->GetFaceNbr(), 1);
  EXPECT_EQ((*polygon->GetFaceList())[0].GetSize(), 66); // two corners repeat a point
  EXPECT_EQ(polygon->GetPointNbr(), 64);
  const C3DMaterial* test = concave->GetMaterial((*polygon->GetFaceList())[0].GetMaterialID());
  EXPECT_EQ(test->GetName(), "test");
  EXPECT_TRUE(test->GetDiffuseColor() == CRGBColor(36, 47, 105, 255));
}

TEST_F(WavefrontWrite, FloatsReadBackBitExactAndBytesAreDeterministic) {
  std::mt19937 rng(7);
  const int n = 3000;
  std::vector<test::P3> coordinates(n);
  test::Faces triangles;
  for (int i = 0; i < n; ++i) {
    for (float& f : coordinates[std::size_t(i)]) {
      std::uint32_t bits = rng();
      std::memcpy(&f, &bits, 4);
      if (!std::isfinite(f))
        f = -0.0f;
    }
    if (i % 3 == 0)
      triangles.push_back({i, i + 1, i + 2});
  }
  C3DScene scene;
  C3DObject* object = test::MakeMesh(coordinates, triangles).release();
  C3DPointList* points = object->GetPointList();
  C3DFaceList* faces = object->GetFaceList();
  // A texture channel with a seam value and a w, and a material with a map.
  auto* uvw = new CUVWChannel;
  uvw->GetUVWPointList()->SetSize(2);
  (*uvw->GetUVWPointList())[0].SetUV(0.1f, 0.7f, 0.0f);
  (*uvw->GetUVWPointList())[1].SetUV(1e-30f, -3.5f, 0.25f);
  uvw->GetUVWFaceList()->SetSize(n / 3);
  for (int f = 0; f < n / 3; ++f)
    (*uvw->GetUVWFaceList())[f].SetTriangle(0, 1, f % 2);
  object->AddChannel(uvw);
  C3DMaterial* m = scene.CreateNewMaterial();
  m->SetName("line\nbreak");
  m->SetAmbientFactor(1.0f); // the form OBJ colours take
  m->SetSpecularFactor(1.0f);
  m->SetTransparencyFactor(0.3f);
  m->SetDiffuseColor(CRGBColor(10, 20, 30, 255));
  m->AddMaterialMap("maps/a b.png", kNoChannel, MAP_DIFFUSE);
  for (int f = 0; f < n / 3; ++f)
    (*faces)[f].SetMaterialID(m->GetMaterialID());
  scene.AddNode(nullptr, new C3DSceneNode(object, 1));

  Written a = Write(scene), b = Write(scene);
  ASSERT_EQ(a.ok, 1);
  EXPECT_EQ(a.obj, b.obj);
  EXPECT_EQ(a.mtl, b.mtl);
  EXPECT_NE(a.obj.find("usemtl line break\n"), std::string::npos);
  m->SetName("line break");
  auto r = ReadWithLibrary(a, "exact");
  ASSERT_TRUE(r.scene) << r.detail;
  ExpectSameScene(scene, *r.scene);
  const C3DMaterial* back = r.scene->GetMaterial(
      (*GeometryNodes(*r.scene)[0]->GetBaseObject()->GetFaceList())[0].GetMaterialID());
  EXPECT_EQ(back->GetTransparencyFactor(), 0.3f);

  // Points are written in world space.
  C4x4Matrix shift(1);
  shift.InitTranslation(10, 0, 0);
  GeometryNodes(scene)[0]->SetMatrix(NODE_MATRIX_TRANSFORM, shift);
  Written moved = Write(scene);
  auto rm = ReadObjText(moved.obj);
  ASSERT_TRUE(rm.scene) << rm.detail;
  const C3DPoint& p0 = (*GeometryNodes(*rm.scene)[0]->GetBaseObject()->GetPointList())[0];
  const C3DPoint& p1 = (*GeometryNodes(*rm.scene)[0]->GetBaseObject()->GetPointList())[1];
  EXPECT_EQ(p0.x, 10.0f); // 3e-27 + 10
  EXPECT_EQ(p1.x, (*points)[1].x + 10.0f);
  EXPECT_EQ(p1.y, (*points)[1].y);
}

TEST_F(WavefrontWrite, SaveWritesBothFilesOrNothing) {
  auto dir = test::ScratchDir("obj_save");
  auto scene = ReadFile(MESHCORE_SAMPLES_DIR "/obj/cube_usemtl.obj");
  ASSERT_TRUE(scene);
  const auto target = dir / "my model.obj";
  C3DIo io(target.string(), FILE_PARSER_SILENT);
  ASSERT_EQ(io.Save(0, scene.get()), 1);
  std::stringstream text;
  text << std::ifstream(target).rdbuf();
  EXPECT_NE(text.str().find("mtllib my model.mtl\n"), std::string::npos);

  // A cancelled save leaves the files as they were.
  const auto before = std::filesystem::last_write_time(target);
  SetCancel(1, 0);
  C3DIo again(target.string(), FILE_PARSER_SILENT);
  EXPECT_EQ(again.Save(0, scene.get()), 0);
  SetCancel(0, 0);
  EXPECT_EQ(again.GetIoError(), IO_FILE_CANCELLED);
  EXPECT_EQ(std::filesystem::last_write_time(target), before);
  // A cancelled read returns nothing, whether the request comes while the
  // text is parsed (a long file) or while the scene is built.
  std::string big;
  for (int i = 0; i < 10000; ++i)
    big += "v 0 0 0\n";
  big += "f 1 2 3\n";
  SetCancel(1, 0);
  int error = 0;
  EXPECT_FALSE(ReadFile(target.string(), &error));
  EXPECT_EQ(error, IO_FILE_CANCELLED);
  EXPECT_EQ(ReadObjText(big).error, IO_FILE_CANCELLED);
  SetCancel(0, 0);

  // A scene without geometry is not written.
  C3DScene empty;
  Written w = Write(empty);
  EXPECT_EQ(w.ok, 0);
  EXPECT_EQ(w.error, IO_FILE_EMPTY);
}
