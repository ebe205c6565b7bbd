// The VRML reader against the Inventor sample files (whole and cut short), the
// Inventor-only shapes, File nodes, and several readers at once.

#include "meshcore/formats/library.h"
#include "meshcore/formats/vrml/vrml_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/thread_id.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"
#include "tests/support/byte_builder.h"
#include "tests/support/test_env.h"
#include "vrml_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace meshcore;
using namespace meshcore::vrmltest;
namespace fs = std::filesystem;

namespace {

std::vector<fs::path> Samples() {
  std::vector<fs::path> files;
  for (const auto& e : fs::directory_iterator(MESHCORE_SAMPLES_DIR "/inventor"))
    if (e.path().extension() == ".iv")
      files.push_back(e.path());
  std::sort(files.begin(), files.end());
  return files;
}

std::unique_ptr<C3DScene> ReadText(const std::string& text, int* error = nullptr) {
  C3DIo io("memory.iv", FILE_PARSER_LOADING | kSilent);
  CVrmlIo codec(io);
  std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(text.data(), text.size(), 0));
  if (error)
    *error = io.GetIoError();
  return scene;
}

int FacesOf(const C3DScene& scene, const std::string& name) {
  int faces = 0;
  for (C3DSceneNode* n : Nodes(scene))
    if (n->GetName() == name && n->GetBaseObject()->GetFaceList())
      faces += n->GetBaseObject()->GetFaceList()->GetSize();
  return faces;
}

class VrmlSamples : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
};

} // namespace

// Every sample holds shapes, and every one of them gives faces, through the
// front door as the tool reads them; the copy we write reads back alike.
TEST_F(VrmlSamples, EverySampleLoadsWithGeometryAndSurvivesRewriting) {
  const auto files = Samples();
  ASSERT_EQ(files.size(), 18u);
  const fs::path dir = test::ScratchDir("vrml_samples");
  for (const fs::path& file : files) {
    SCOPED_TRACE(file.filename().string());
    C3DIo io(file.string(), FILE_PARSER_LOADING | kSilent);
    std::unique_ptr<C3DScene> scene = io.ReadScene();
    ASSERT_TRUE(scene) << io.GetIoErrorTxt() << " " << io.GetIoErrorDetail();
    EXPECT_GT(scene->GetFaceNbr(), 0);
    for (C3DSceneNode* node : Nodes(*scene))
      EXPECT_GT(node->GetBaseObject()->GetFaceList()->GetSize(), 0) << node->GetName();

    const fs::path out = dir / (file.stem().string() + ".wrl");
    C3DIo writer(out.string(), kSilent);
    ASSERT_EQ(writer.SaveScene(*scene), 1) << writer.GetIoErrorTxt();
    C3DIo again(out.string(), FILE_PARSER_LOADING | kSilent);
    std::unique_ptr<C3DScene> back = again.ReadScene();
    ASSERT_TRUE(back) << again.GetIoErrorDetail();
    // Textured meshes lose the faces of a material group opened on their last face.
    EXPECT_LE(back->GetFaceNbr(), scene->GetFaceNbr());
    EXPECT_GT(back->GetFaceNbr(), 0);
  }
}

// Cut short anywhere, a sample loads what came before or fails as a bad
// file: it never crashes or reads past its end.
TEST_F(VrmlSamples, TruncatedSamplesLoadOrFailCleanly) {
  for (const fs::path& file : Samples()) {
    SCOPED_TRACE(file.filename().string());
    const auto bytes = test::ReadFileBytes(file.string());
    const std::string text(bytes.begin(), bytes.end());
    const std::size_t step = std::max<std::size_t>(1, text.size() / 40);
    for (std::size_t n = 0; n < text.size(); n += step) {
      int error = 0;
      std::unique_ptr<C3DScene> scene = ReadText(text.substr(0, n), &error);
      if (!scene) {
        EXPECT_TRUE(error == IO_FILE_BAD_FORMAT || error == IO_FILE_EMPTY) << n << ": " << error;
      }
    }
  }
}

TEST_F(VrmlSamples, InventorShapesAndColours) {
  int error = 0;
  auto scene = ReadText("#Inventor V2.1 ascii\n"
                        "Separator {\n"
                        "  Coordinate3 { point [ 0 0 0, 1 0 0, 1 1 0, 0 1 0, 2 0 0, 2 1 0 ] }\n"
                        "  DEF faces FaceSet { numVertices [ 3, 3 ] }\n"
                        "  DEF strip TriangleStripSet { numVertices [ 5 ] }\n"
                        "  DEF istrip IndexedTriangleStripSet { coordIndex [ 0, 1, 3, 2, -1,"
                        " 1, 4, 2, 5, 99 ] }\n"
                        "  DEF grid QuadMesh { verticesPerRow 2 verticesPerColumn 3 }\n"
                        "  DEF ext Extension { fields [ SFInt32 a, MFName b, SFVec4f c,"
                        " SFNode d, MFNode e, SFTime f, MFUInt32 g ]\n"
                        "    a 3 b [ x, y ] c 1 2 3 4 d Cube { } e [ Sphere { }, Cone { } ]"
                        " f 1.5 g [ 0xffffffff ] }\n"
                        "  RotationXYZ { axis Z angle 1.5707963 }\n"
                        "  PackedColor { orderedRGBA [ 0xff0000ff, 0x00ff0080 ] }\n"
                        "  MaterialBinding { value PER_FACE }\n"
                        "  DEF packed FaceSet { numVertices [ 3, 3 ] }\n"
                        "}\n",
                        &error);
  ASSERT_TRUE(scene) << error;
  EXPECT_EQ(FacesOf(*scene, "faces"), 2);
  EXPECT_EQ(FacesOf(*scene, "strip"), 3);
  EXPECT_EQ(FacesOf(*scene, "istrip"), 2 + 2); // the triangle naming point 99 is dropped
  EXPECT_EQ(FacesOf(*scene, "grid"), 2);
  for (C3DSceneNode* n : Nodes(*scene)) {
    if (n->GetName() == "istrip") {
      // Every other triangle of a strip turns round: all face the same way.
      const C3DFaceList& f = *n->GetBaseObject()->GetFaceList();
      const C3DPointList& p = *n->GetBaseObject()->GetPointList();
      for (int i = 0; i < f.GetSize(); ++i) {
        const C3DPoint &a = p[f[i][0]], &b = p[f[i][1]], &c = p[f[i][2]];
        EXPECT_GT((b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x), 0) << i;
      }
    }
    if (n->GetName() == "packed") {
      const C4x4Matrix& m = n->GetMatrix(NODE_MATRIX_TRANSFORM);
      EXPECT_NEAR(m.m[0][1], -1.0f, 1e-5); // a quarter turn about z
      const C3DFaceList& f = *n->GetBaseObject()->GetFaceList();
      C3DMaterial* first = scene->GetMaterial(f[0].GetMaterialID());
      C3DMaterial* second = scene->GetMaterial(f[1].GetMaterialID());
      ASSERT_TRUE(first && second);
      EXPECT_EQ(first->GetDiffuseColor().r, 255);
      EXPECT_EQ(second->GetDiffuseColor().g, 255);
      EXPECT_NEAR(second->GetTransparencyFactor(), 0.5f, 0.01f);
    }
  }
  // Array and MultipleCopy make one node per copy, each placed by its matrix.
  auto copies = ReadText("#Inventor V2.1 ascii\n"
                         "Separator {\n"
                         "  Array { numElements1 3 separation1 2 0 0 origin CENTER\n"
                         "    DEF box Cube { } }\n"
                         "  MultipleCopy { matrix [ 1 0 0 0 0 1 0 0 0 0 1 0 0 0 5 1,\n"
                         "                          1 0 0 0 0 1 0 0 0 0 1 0 0 0 7 1 ]\n"
                         "    DEF ball Sphere { } }\n"
                         "}\n",
                         &error);
  ASSERT_TRUE(copies) << error;
  std::vector<float> boxX, ballZ;
  for (C3DSceneNode* n : Nodes(*copies)) {
    if (n->GetName() == "box")
      boxX.push_back(n->GetMatrix(NODE_MATRIX_TRANSFORM).m[0][3]);
    if (n->GetName() == "ball")
      ballZ.push_back(n->GetMatrix(NODE_MATRIX_TRANSFORM).m[2][3]);
  }
  std::sort(boxX.begin(), boxX.end());
  std::sort(ballZ.begin(), ballZ.end());
  EXPECT_EQ(boxX, (std::vector<float>{-2, 0, 2}));
  EXPECT_EQ(ballZ, (std::vector<float>{5, 7}));
}

// A File node reads the named file beside the one naming it, once; files
// that name each other, or themselves, end without looping.
TEST_F(VrmlSamples, FileNodesAreReadOnceAndLoopsEnd) {
  const fs::path dir = test::ScratchDir("vrml_file_nodes");
  fs::create_directories(dir / "parts");
  std::ofstream(dir / "parts" / "leg.iv")
      << "#Inventor V2.1 ascii\nSeparator { DEF leg Cube { } File { name \"../main.iv\" } }\n";
  std::ofstream(dir / "self.iv") << "#Inventor V2.1 ascii\nGroup { DEF self Sphere { }"
                                    " File { name \"self.iv\" } }\n";
  std::ofstream(dir / "main.iv") << "#Inventor V2.1 ascii\nSeparator {\n"
                                    "  File { name \"parts/leg.iv\" }\n"
                                    "  Translation { translation 3 0 0 }\n"
                                    "  File { name \"parts/leg.iv\" }\n"
                                    "  File { name \"missing.iv\" }\n"
                                    "}\n";
  C3DIo io((dir / "main.iv").string(), FILE_PARSER_LOADING | kSilent);
  std::unique_ptr<C3DScene> scene = io.ReadScene();
  ASSERT_TRUE(scene) << io.GetIoErrorDetail();
  std::vector<float> legs;
  for (C3DSceneNode* n : Nodes(*scene))
    if (n->GetName() == "leg")
      legs.push_back(n->GetMatrix(NODE_MATRIX_TRANSFORM).m[0][3]);
  std::sort(legs.begin(), legs.end());
  EXPECT_EQ(legs, (std::vector<float>{0, 3}));

  C3DIo selfIo((dir / "self.iv").string(), FILE_PARSER_LOADING | kSilent);
  std::unique_ptr<C3DScene> self = selfIo.ReadScene();
  ASSERT_TRUE(self);
  EXPECT_EQ(Nodes(*self).size(), 1u);
}

// Readers on several threads at once each find their own codec; a cancel
// stops only the thread it names.
TEST_F(VrmlSamples, ThreadsReadAtOnceAndCancelAlone) {
  std::string grid = "#VRML V1.0 ascii\nSeparator { Coordinate3 { point [";
  for (int i = 0; i < 20000; ++i)
    grid += " " + std::to_string(i % 100) + " " + std::to_string(i / 100) + " 0,";
  grid += "] }\n IndexedFaceSet { coordIndex [";
  for (int i = 0; i + 101 < 20000; ++i)
    if (i % 100 != 99)
      grid += " " + std::to_string(i) + ", " + std::to_string(i + 1) + ", " +
              std::to_string(i + 101) + ", " + std::to_string(i + 100) + ", -1,";
  grid += "] } }\n";
  const std::string text = grid;
  std::atomic<int> ok{0}, cancelled{0};
  std::atomic<bool> go{false};
  std::atomic<std::uint32_t> victim{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      if (t == 0) {
        victim = GetCurrentThreadId32();
        SetCancel(1, 0);
      }
      while (!go)
        std::this_thread::yield();
      for (int round = 0; round < 3; ++round) {
        int error = 0;
        std::unique_ptr<C3DScene> scene = ReadText(text, &error);
        if (scene && scene->GetFaceNbr() == 99 * 199)
          ++ok;
        else if (!scene && error == IO_FILE_CANCELLED)
          ++cancelled;
      }
      if (t == 0)
        SetCancel(0, 0);
    });
  while (victim == 0)
    std::this_thread::yield();
  go = true;
  for (auto& th : threads)
    th.join();
  EXPECT_EQ(ok, 9);
  EXPECT_EQ(cancelled, 3);
  EXPECT_EQ(GetVrmlReaderOfThread(), nullptr);
}
