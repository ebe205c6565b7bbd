// Lightwave scenes: finding the object files, numbering and parenting items,
// placing them, and surviving damaged or hostile scene text.

#include "meshcore/formats/lightwave_scene/lightwave_scene_io.h"

#include "meshcore/formats/library.h"
#include "meshcore/io/cancel.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/preferences.h"
#include "meshcore/scene/scene.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

using namespace meshcore;
namespace fs = std::filesystem;

namespace {

constexpr unsigned kSilent = FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS;
const std::string kSamples = MESHCORE_SAMPLES_DIR "/lightwave/";

struct ReadResult {
  std::unique_ptr<C3DScene> scene;
  int error = IO_FILE_OK;
};

ReadResult ReadFile(const fs::path& file) {
  C3DIo io(file.string(), kSilent);
  ReadResult r;
  r.scene = io.ReadScene();
  r.error = io.GetIoError();
  return r;
}

// The item nodes (directly under the root) by item number.
std::map<int, C3DSceneNode*> Items(const C3DScene& scene) {
  std::map<int, C3DSceneNode*> items;
  for (CTreeNode* n = CTree::GetChild(scene.GetRoot()); n; n = CTree::GetRight(n)) {
    auto* node = static_cast<C3DSceneNode*>(n);
    CCustomData record;
    int number = -1;
    if (node->GetCustomData().GetCustomData(kCustomLightwaveScene, record) &&
        record.GetInt(kCustomItemNumber, number))
      items[number] = node;
  }
  return items;
}

// World positions of the points of every mesh below node.
std::vector<C3DPoint> WorldPoints(const C3DSceneNode* node) {
  std::vector<C3DPoint> out;
  for (const CTreeNode* n = node; n; n = CTree::GetNextNode(n, node)) {
    auto* sn = static_cast<const C3DSceneNode*>(n);
    const C3DBaseObject* object = sn->GetBaseObject();
    if (!object || object->GetKindOf() == OBJECT_GROUP || !object->GetPointList())
      continue;
    C4x4Matrix world;
    sn->GetMatrix(NODE_MATRIX_TRANSFORM, world, 0);
    const C3DPointList& points = *object->GetPointList();
    for (int i = 0; i < points.GetSize(); ++i)
      out.push_back(points[i] * world);
  }
  return out;
}

bool Near(const C3DPoint& p, float x, float y, float z) {
  return std::fabs(p.x - x) < 1e-4f && std::fabs(p.y - y) < 1e-4f && std::fabs(p.z - z) < 1e-4f;
}

bool HasPoint(const std::vector<C3DPoint>& points, float x, float y, float z) {
  for (const C3DPoint& p : points)
    if (Near(p, x, y, z))
      return true;
  return false;
}

class LightwaveScene : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
  void SetUp() override {
    m_dir = test::ScratchDir(std::string("lws_") +
                             ::testing::UnitTest::GetInstance()->current_test_info()->name());
    C3DPreferences::Get3DPreferences().SetLWPaths({});
  }
  void TearDown() override {
    C3DPreferences::Get3DPreferences().SetLWPaths({});
    std::error_code ec;
    fs::remove_all(m_dir, ec);
  }

  // A one-layer object file holding the triangle (0,0,0) (1,0,0) (0,1,0).
  void WriteTriangle(const fs::path& file) {
    fs::create_directories(file.parent_path());
    C3DScene scene;
    auto mesh = test::MakeMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
    scene.AddNode(nullptr, new C3DSceneNode(mesh.release(), 0));
    C3DIo io(file.string(), FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
    ASSERT_EQ(io.SaveScene(scene), 1);
  }
  fs::path WriteScene(const std::string& text, const std::string& name = "scene.lws") {
    fs::path file = m_dir / name;
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }
  ReadResult ReadText(const std::string& text) { return ReadFile(WriteScene(text)); }

  fs::path m_dir;
};

} // namespace

// Both sample scenes, the item-id form and the old one, load the cube beside
// them, scaled and moved by the first keys of the channels.
TEST_F(LightwaveScene, SamplesLoadPlaced) {
  std::vector<C3DPoint> reference;
  for (const char* name : {"move_x.lws", "move_x_oldformat_6.lws"}) {
    SCOPED_TRACE(name);
    ReadResult r = ReadFile(kSamples + name);
    ASSERT_TRUE(r.scene) << r.error;
    auto items = Items(*r.scene);
    ASSERT_EQ(items.size(), 1u);
    ASSERT_EQ(items.begin()->first, 0);
    std::vector<C3DPoint> points = WorldPoints(items.begin()->second);
    ASSERT_EQ(points.size(), 8u);
    // The cube spans x -1.45..1.25, y 0..1.9: scaled by channels 6-8, moved by channel 1.
    EXPECT_TRUE(HasPoint(points, -1.45f * 0.979758f, -0.04f, -1.2f * 0.954916f));
    EXPECT_TRUE(HasPoint(points, 1.25f * 0.979758f, 1.9f * 0.885873f - 0.04f, 0.9f * 0.954916f));
    if (reference.empty())
      reference = points;
    else
      for (std::size_t i = 0; i < points.size(); ++i)
        EXPECT_TRUE(Near(points[i], reference[i].x, reference[i].y, reference[i].z));
  }
}

// Object names are looked up up the parent folders, ignoring case, with
// backslashes and volume prefixes, through the preferences' search paths,
// with blanks in them and after an item id; a file found nowhere is skipped
// and uses up no item number.
TEST_F(LightwaveScene, FindsObjectFiles) {
  WriteTriangle(m_dir / "content" / "Objects" / "Tri.LWO");
  WriteTriangle(m_dir / "content" / "with blank.lwo");
  WriteTriangle(m_dir / "elsewhere" / "far.lwo");
  WriteTriangle(m_dir / "content" / "10000000 odd.lwo");
  C3DPreferences::Get3DPreferences().SetLWPaths(
      {(m_dir / "nowhere").string(), (m_dir / "elsewhere").string()});
  const std::string text = "LWSC\n3\n"
                           "LoadObjectLayer 1 Objects/Tri.lwo\n"      // 0: up one folder, case
                           "LoadObjectLayer 1 C:\\Objects\\tri.lwo\n" // 1: volume and backslashes
                           "LoadObjectLayer 1 missing.lwo\n"          // skipped, no number
                           "LoadObjectLayer 1 With Blank.lwo\n"       // 2
                           "LoadObjectLayer 1 far.lwo\n"              // 3: search path
                           "LoadObjectLayer 1 10000000 objects/tri.lwo\n" // 4: item id
                           "LoadObjectLayer 1 10000000 odd.lwo\n" // 5: a file named so whole
                           "LoadObjectLayer 2 objects/tri.lwo\n"; // no such layer
  ReadResult r = ReadFile(WriteScene(text, "content/scenes/scene.lws"));
  ASSERT_TRUE(r.scene) << r.error;
  auto items = Items(*r.scene);
  ASSERT_EQ(items.size(), 6u);
  for (int i = 0; i < 6; ++i) {
    ASSERT_TRUE(items.count(i)) << i;
    EXPECT_EQ(WorldPoints(items[i]).size(), 3u) << i;
  }
}

// Lights, cameras and bones use up item numbers and end the current item;
// parents, pivots and first keys place the objects; plugin blocks, parents
// that are not objects and later keys change nothing.
TEST_F(LightwaveScene, NumbersParentsAndPlacesItems) {
  WriteTriangle(m_dir / "tri.lwo");
  const std::string text = "LWSC\n3\n"
                           "LoadObjectLayer 1 tri.lwo\n" // item 0: at (10,0,0), heading 90 deg
                           "Channel 0\n{ Envelope\n  2\n  Key 10 0 0 0 0 0 0 0 0\n"
                           "  Key 99 1 0 0 0 0 0 0 0\n}\n"
                           "Channel 3\n{ Envelope\n 1\n Key 1.5707963 0 0 0 0 0 0 0 0\n}\n"
                           "Plugin ItemMotionHandler 1 Noise\n Channel 1\n"
                           "{ Envelope\n 1\n Key 50 0 0 0 0 0 0 0 0\n}\n ParentItem 10000002\n"
                           "EndPlugin\n"
                           "AddLight 20000000\n"
                           "Channel 2\n{ Envelope\n 1\n Key 7 0 0 0 0 0 0 0 0\n}\n"
                           "LoadObjectLayer 1 tri.lwo\n" // item 2: child of 0 at (0,0,1)
                           "ParentItem 10000000\n"
                           "Channel 2\n{ Envelope\n 1\n Key 1 0 0 0 0 0 0 0 0\n}\n"
                           "AddCamera 30000000\n"
                           "LoadObjectLayer 1 tri.lwo\n" // item 4: pivot, light parent ignored
                           "ParentItem 20000000\n"
                           "PivotPosition 1 0 0\n"
                           "Channel 0\n{ Envelope\n 1\n Key 5 0 0 0 0 0 0 0 0\n}\n"
                           "AddBone\n"
                           "LoadObject other.lwo\n"
                           "PivotPosition 3 3 3\n" // no current item: nothing changes
                           "AddNullObject 10000006 Null Thing\n"; // item 6
  ReadResult r = ReadText(text);
  ASSERT_TRUE(r.scene) << r.error;
  auto items = Items(*r.scene);
  ASSERT_EQ(items.size(), 4u);
  ASSERT_TRUE(items.count(0) && items.count(2) && items.count(4) && items.count(6));

  // Heading 90 degrees turns +x to -z and +z to +x; the first key of channel 0 counts.
  auto p0 = WorldPoints(items[0]);
  EXPECT_TRUE(HasPoint(p0, 10, 0, 0) && HasPoint(p0, 10, 0, -1) && HasPoint(p0, 10, 1, 0));
  // The child turns with its parent and sits at parent rotation x (0,0,1) + (10,0,0).
  auto p2 = WorldPoints(items[2]);
  EXPECT_TRUE(HasPoint(p2, 11, 0, 0) && HasPoint(p2, 11, 0, -1) && HasPoint(p2, 11, 1, 0));
  // The pivot (1,0,0) lands on the position (5,0,0).
  auto p4 = WorldPoints(items[4]);
  EXPECT_TRUE(HasPoint(p4, 4, 0, 0) && HasPoint(p4, 5, 0, 0) && HasPoint(p4, 4, 1, 0));
  EXPECT_EQ(items[6]->GetName(), "null thing");
  EXPECT_EQ(items[6]->GetBaseObject()->GetKindOf(), unsigned(OBJECT_GROUP));
}

// "ShowObject 0" hides everything below the item; other values leave it shown.
TEST_F(LightwaveScene, ShowObjectHidesLayer) {
  WriteTriangle(m_dir / "tri.lwo");
  ReadResult r = ReadText("LWSC\n3\nLoadObjectLayer 1 tri.lwo\nShowObject 0 -1\n"
                          "LoadObjectLayer 1 tri.lwo\nShowObject 7 -1 0.3 0.8 0.9\n");
  ASSERT_TRUE(r.scene);
  auto items = Items(*r.scene);
  ASSERT_EQ(items.size(), 2u);
  for (auto [number, item] : items) {
    int below = 0;
    for (CTreeNode* n = CTree::GetNextNode(item, item); n; n = CTree::GetNextNode(n, item)) {
      ++below;
      EXPECT_EQ(static_cast<C3DSceneNode*>(n)->IsFlagSet(1), number == 0 ? 1 : 0);
    }
    EXPECT_GT(below, 0);
  }
}

// Parent loops, scenes that name themselves, damaged numbers, unclosed blocks,
// megabyte lines and thousands of items each end in a scene or a clean error.
TEST_F(LightwaveScene, HostileScenesEndCleanly) {
  WriteTriangle(m_dir / "tri.lwo");
  {
    ReadResult r = ReadText("LoadObjectLayer 1 tri.lwo\nParentItem 10000001\n"
                            "LoadObjectLayer 1 tri.lwo\nParentItem 10000000\n"
                            "LoadObjectLayer 1 tri.lwo\nParentItem 10000002\n"
                            "Channel 0\n{ Key 1 0 0 0 0 0 0 0 0 }\n");
    ASSERT_TRUE(r.scene);
    EXPECT_EQ(Items(*r.scene).size(), 3u);
  }
  {
    WriteScene("LoadObjectLayer 1 tri.lwo\nLoadObjectLayer 1 self.lws\n"
               "LoadObjectLayer 1 self.lws\nLoadObjectLayer 1 other.lws\n",
               "self.lws");
    WriteScene("LoadObjectLayer 1 self.lws\nLoadObjectLayer 1 other.lws\n", "other.lws");
    ReadResult r = ReadFile(m_dir / "self.lws");
    ASSERT_TRUE(r.scene) << r.error;
    EXPECT_GE(Items(*r.scene).size(), 1u);
  }
  {
    ReadResult r = ReadText("LoadObjectLayer x tri.lwo\nLoadObjectLayer 1\n"
                            "LoadObjectLayer 1 tri.lwo\nChannel q\nParentItem zz\n"
                            "PivotPosition 1 nope 3\nShowObject\nChannel 0\n{ Key 1 2 x\n"
                            "Channel 1 { Key 5");
    ASSERT_TRUE(r.scene);
    EXPECT_EQ(Items(*r.scene).size(), 1u);
  }
  {
    std::string text = "LoadObjectLayer 1 tri.lwo\nAddNullObject " + std::string(3 << 20, 'n') +
                       "\nChannel 0 { Key " + std::string(1 << 20, '7') + " }\n" +
                       std::string(1 << 20, ' ') + "\n";
    for (int i = 0; i < 3000; ++i)
      text += "LoadObjectLayer 1 tri.lwo\nParentItem " + std::to_string(10000000 + i) +
              "\nChannel 0\n{ Key 0.5 0 0 0 0 0 0 0 0 }\n";
    const auto start = std::chrono::steady_clock::now();
    ReadResult r = ReadText(text);
    ASSERT_TRUE(r.scene);
    EXPECT_EQ(Items(*r.scene).size(), 3002u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  }
  EXPECT_EQ(ReadText("LWSC\n3\nLoadObjectLayer 1 missing.lwo\n").error, IO_FILE_EMPTY);
  EXPECT_EQ(ReadText("").error, IO_FILE_EMPTY);
  EXPECT_EQ(ReadFile(m_dir / "absent.lws").error, IO_FILE_CANT_OPEN);
  SetCancel(1, 0);
  ReadResult cancelled = ReadText("LoadObjectLayer 1 tri.lwo\n");
  SetCancel(0, 0);
  EXPECT_FALSE(cancelled.scene);
  EXPECT_EQ(cancelled.error, IO_FILE_CANCELLED);
}

// Every prefix of the sample scenes reads into a scene or a clean "empty".
TEST_F(LightwaveScene, TruncatedSamples) {
  for (const char* name : {"move_x.lws", "move_x_oldformat_6.lws"}) {
    std::ifstream in(kSamples + name, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(bytes.empty());
    C3DIo io(kSamples + name, kSilent);
    for (std::size_t n = 0; n <= bytes.size(); n += 1 + n / 40) {
      CLightwaveSceneIo codec(io);
      std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(bytes.data(), n, 0, kSamples));
      EXPECT_TRUE(scene || io.GetIoError() == IO_FILE_EMPTY) << name << " " << n;
    }
  }
}
