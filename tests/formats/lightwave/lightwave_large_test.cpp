// Large Lightwave objects: faces and texture faces filled block by block come
// out as on the general path, and a large scene is freed quickly.

#include "meshcore/formats/library.h"
#include "meshcore/formats/lightwave/detail/lwo_writer.h"
#include "meshcore/formats/lightwave/lightwave_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/scene.h"
#include "tests/support/lwo_grid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <vector>

using namespace meshcore;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kSide = 150; // instrumented builds run several times slower
#else
constexpr int kSide = 500;
#endif

std::vector<std::uint8_t> Encode(const st_lwObject& object) {
  CLwoWriter writer;
  EXPECT_EQ(WriteLightwaveObject(object, writer), LwWriteResult::Ok);
  return std::move(writer.GetBuffer());
}

std::unique_ptr<C3DScene> Read(const std::vector<std::uint8_t>& bytes,
                               std::size_t parallelFaces = 65536) {
  C3DIo io("memory.lwo", FILE_PARSER_SILENT);
  CLightwaveIo codec(io);
  codec.SetParallelFaces(parallelFaces);
  return std::unique_ptr<C3DScene>(codec.ReadFromMemory(bytes.data(), bytes.size(), 0));
}

C3DBaseObject* OnlyMesh(C3DScene& scene) {
  C3DBaseObject* found = nullptr;
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = scene.GetFirstNode(nullptr); cursor;) {
    scene.GetNextNode(object, cursor, nullptr);
    if (object && object->GetKindOf() == OBJECT_POLYGONAL) {
      EXPECT_EQ(found, nullptr);
      found = const_cast<C3DBaseObject*>(object);
    }
  }
  return found;
}

// Every face, point and texture corner of the scene's one mesh, as numbers.
std::vector<float> Flatten(C3DScene& scene) {
  std::vector<float> out;
  C3DBaseObject* mesh = OnlyMesh(scene);
  if (!mesh)
    return out;
  const C3DFaceList& faces = *mesh->GetFaceList();
  const C3DPointList& points = *mesh->GetPointList();
  CUVWChannel* uv = mesh->GetChannels()->GetUVWChannel(0);
  EXPECT_NE(uv, nullptr);
  if (!uv)
    return out;
  const CUVWFaceList& uvFaces = *uv->GetUVWFaceList();
  const CUVWPointList& uvPoints = *uv->GetUVWPointList();
  EXPECT_EQ(uvFaces.GetSize(), faces.GetSize());
  for (int f = 0; f < faces.GetSize() && f < uvFaces.GetSize(); ++f) {
    const C3DFace& face = faces[f];
    EXPECT_EQ(uvFaces[f].GetSize(), face.GetSize());
    // Material ids count on across scenes: relative to the first face's.
    out.push_back(float(face.GetMaterialID() - faces[0].GetMaterialID()));
    for (int k = 0; k < face.GetSize(); ++k) {
      const C3DPoint& p = points[face[k]];
      const CUVWPoint& t = uvPoints[uvFaces[f][k]];
      out.insert(out.end(), {p.x, p.y, p.z, t.u, t.v, t.w});
    }
  }
  return out;
}

// Lines from point a to point b put among the layer's polygons at the given
// places (each counted in the list as it grows).
void InsertLines(st_lwLayer& layer, std::initializer_list<std::size_t> places, std::uint32_t a,
                 std::uint32_t b) {
  for (std::size_t at : places) {
    st_lwPolygon line;
    line.tag = 0;
    line.firstVertex = std::uint32_t(layer.polygonVertices.size());
    line.vertexCount = 2;
    layer.polygonVertices.insert(layer.polygonVertices.end(), {a, b});
    layer.polygons.insert(layer.polygons.begin() + std::ptrdiff_t(at), line);
  }
}

struct LightwaveLarge : ::testing::Test {
  static void SetUpTestSuite() { InitMeshcore(); }
};

TEST_F(LightwaveLarge, BlockFilledMeshMatchesGeneralPath) {
  // Lines among the quads leave face and polygon numbers apart across blocks.
  st_lwObject object = test::LwoGrid(kSide, true);
  st_lwLayer& layer = object.layers[0];
  InsertLines(layer, {5, 2047, layer.polygons.size() / 2}, 0, 1);
  auto fast = Read(Encode(object));
  ASSERT_NE(fast, nullptr);
  C3DBaseObject* mesh = OnlyMesh(*fast);
  ASSERT_NE(mesh, nullptr);
  EXPECT_EQ(mesh->GetFaceList()->GetSize(), kSide * kSide);
  EXPECT_EQ(mesh->GetPointList()->GetSize(), (kSide + 1) * (kSide + 1));
  // Room for exactly the records, and the automatic growth step back.
  EXPECT_EQ(mesh->GetFaceList()->GetCapacity(), kSide * kSide);
  EXPECT_EQ(mesh->GetFaceList()->GetGrowBy(), 0);

  // A point the faces never use and the map does not cover sends the read
  // down the general path; the result must not change.
  layer.points.push_back({{9.0f, 9.0f, 9.0f}});
  auto general = Read(Encode(object));
  ASSERT_NE(general, nullptr);
  const std::vector<float> a = Flatten(*fast), b = Flatten(*general);
  ASSERT_FALSE(a.empty());
  EXPECT_TRUE(a == b);
}

TEST_F(LightwaveLarge, LargeSceneIsFreedQuickly) {
  using Clock = std::chrono::steady_clock;
  const std::vector<std::uint8_t> bytes = Encode(test::LwoGrid(kSide));
  // Freeing is compared with reading the same scene, so that a loaded machine
  // slows both; a slow run is tried once more.
  double read = 0, freed = 0;
  for (int attempt = 0; attempt < 2; ++attempt) {
    const auto start = Clock::now();
    auto scene = Read(bytes);
    const auto loaded = Clock::now();
    ASSERT_NE(scene, nullptr);
    scene.reset();
    read = std::chrono::duration<double>(loaded - start).count();
    freed = std::chrono::duration<double>(Clock::now() - loaded).count();
    if (freed < read / 2)
      break;
  }
  EXPECT_LT(freed, read / 2) << "read " << read << " s, freed " << freed << " s";
}

TEST_F(LightwaveLarge, TwoThreadFillMatchesOneThread) {
  // The usual map; the same with lines among the quads and a point no face
  // uses (the general texture path); and no texture map at all.
  st_lwObject object = test::LwoGrid(kSide / 2, true);
  st_lwLayer& layer = object.layers[0];
  std::vector<std::vector<std::uint8_t>> files = {Encode(object)};
  InsertLines(layer, {0, 3000, layer.polygons.size() - 1}, 7, 3);
  layer.points.push_back({{9.0f, 9.0f, 9.0f}});
  files.push_back(Encode(object));
  layer.vmaps.clear();
  files.push_back(Encode(object));

  for (std::size_t i = 0; i < files.size(); ++i) {
    SCOPED_TRACE(i);
    auto one = Read(files[i], std::size_t(-1));
    auto two = Read(files[i], 1);
    ASSERT_TRUE(one && two);
    C3DBaseObject* a = OnlyMesh(*one);
    C3DBaseObject* b = OnlyMesh(*two);
    ASSERT_TRUE(a && b);
    const C3DPointList& pa = *a->GetPointList();
    const C3DPointList& pb = *b->GetPointList();
    ASSERT_EQ(pa.GetSize(), pb.GetSize());
    EXPECT_EQ(
        std::memcmp(pa.GetFirst(), pb.GetFirst(), sizeof(C3DPoint) * std::size_t(pa.GetSize())), 0);
    const C3DFaceList& fa = *a->GetFaceList();
    const C3DFaceList& fb = *b->GetFaceList();
    ASSERT_EQ(fa.GetSize(), fb.GetSize());
    bool same = true;
    for (int f = 0; f < fa.GetSize() && same; ++f)
      same = fa[f].GetSize() == fb[f].GetSize() &&
             std::equal(fa[f].GetData(), fa[f].GetData() + fa[f].GetSize(), fb[f].GetData());
    EXPECT_TRUE(same);
    if (i < 2)
      EXPECT_TRUE(Flatten(*one) == Flatten(*two));
    else
      EXPECT_EQ(b->GetChannels()->GetUVWChannel(0), nullptr);
  }
}

} // namespace
