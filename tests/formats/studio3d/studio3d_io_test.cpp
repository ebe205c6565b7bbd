// The 3D Studio codec end to end: real files, hostile bytes, and scenes
// written and read back.

#include "meshcore/formats/common/detail/binary_writer.h"
#include "meshcore/formats/library.h"
#include "meshcore/formats/studio3d/detail/tds_file.h"
#include "meshcore/formats/studio3d/studio3d_io.h"
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
#include <array>
#include <filesystem>
#include <set>

using namespace meshcore;
using namespace meshcore::test;

namespace {

using Bytes = ByteBuilder;

struct Box {
  P3 lo{1e30f, 1e30f, 1e30f}, hi{-1e30f, -1e30f, -1e30f};
  void Add(float x, float y, float z) {
    const float v[3] = {x, y, z};
    for (int i = 0; i < 3; ++i) {
      lo[i] = std::min(lo[i], v[i]);
      hi[i] = std::max(hi[i], v[i]);
    }
  }
};

void ExpectNear(const Box& a, const Box& b, float tolerance) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(a.lo[i], b.lo[i], tolerance);
    EXPECT_NEAR(a.hi[i], b.hi[i], tolerance);
  }
}

// Every mesh point of the scene as the node matrices place it.
Box WorldBox(const C3DScene& scene, int* triangles = nullptr) {
  Box box;
  int count = 0;
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = scene.GetFirstNode(nullptr); cursor;) {
    C3DSceneNode* node = scene.GetNextNode(object, cursor, nullptr);
    if (!node || !object || object->GetKindOf() == OBJECT_GROUP)
      continue;
    C4x4Matrix world(1);
    node->GetMatrix(NODE_MATRIX_TRANSFORM, world, 0);
    const C3DPointList& points = *object->GetPointList();
    for (int i = 0; i < points.GetSize(); ++i) {
      C3DPoint p = points[i] * world;
      box.Add(p.x, p.y, p.z);
    }
    count += object->GetFaceNbr();
  }
  if (triangles)
    *triangles = count;
  return box;
}

Bytes Chunk(unsigned id, const Bytes& body = Bytes(Endian::Little)) {
  Bytes b(Endian::Little);
  return b.chunk16(id, body);
}

Bytes L() {
  return Bytes(Endian::Little);
}

// A mesh chunk: the named object with the given world points and triangles.
Bytes MeshObject(const std::string& name, const std::vector<P3>& points,
                 const std::vector<std::array<int, 3>>& faces, const Bytes& faceExtra = L(),
                 const float* matrix = nullptr) {
  Bytes pts = L();
  pts.u2(unsigned(points.size()));
  for (const P3& p : points)
    pts.f4(p[0]).f4(p[1]).f4(p[2]);
  Bytes fcs = L();
  fcs.u2(unsigned(faces.size()));
  for (const auto& f : faces)
    fcs.u2(unsigned(f[0])).u2(unsigned(f[1])).u2(unsigned(f[2])).u2(7);
  fcs.raw(faceExtra);
  Bytes tri = L();
  tri.raw(Chunk(tds::kPoints, pts)).raw(Chunk(tds::kFaces, fcs));
  if (matrix) {
    Bytes m = L();
    for (int i = 0; i < 12; ++i)
      m.f4(matrix[i]);
    tri.raw(Chunk(tds::kMeshMatrix, m));
  }
  Bytes obj = L();
  obj.cstr(name).raw(Chunk(tds::kTriMesh, tri));
  return Chunk(tds::kObject, obj);
}

Bytes File3ds(const Bytes& editor, const Bytes& keyframer = L()) {
  Bytes main = L();
  main.raw(Chunk(tds::kEditor, editor));
  if (keyframer.size())
    main.raw(Chunk(tds::kKeyframer, keyframer));
  return Chunk(tds::kMain, main);
}

const std::vector<P3> kTriangle = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};

class Studio3dIo : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }

  std::unique_ptr<C3DScene> Read(const std::vector<std::uint8_t>& bytes, int* error = nullptr) {
    C3DIo io("memory.3ds", FILE_PARSER_SILENT);
    C3DStudioIo codec(io);
    std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(bytes.data(), bytes.size(), 0));
    if (error)
      *error = io.GetIoError();
    detail_ = io.GetIoErrorDetail();
    return scene;
  }
  std::vector<std::uint8_t> Save(C3DScene* scene, std::uint32_t limit = 0xFFFF) {
    C3DIo io("memory.3ds", FILE_PARSER_SILENT);
    C3DStudioIo codec(io);
    codec.SetMeshLimit(limit);
    std::vector<std::uint8_t> out;
    EXPECT_EQ(codec.SaveToMemory(scene, 0, out), 1) << io.GetIoErrorTxt();
    return out;
  }
  int ErrorOf(const Bytes& b) {
    int error = 0;
    EXPECT_FALSE(Read(b.data, &error));
    return error;
  }

  std::string detail_;
};

std::vector<std::string> Samples() {
  std::vector<std::string> files;
  for (const auto& e : std::filesystem::directory_iterator(MESHCORE_SAMPLES_DIR "/3ds")) {
    std::string ext = e.path().extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
    if (ext == ".3ds")
      files.push_back(e.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

} // namespace

TEST_F(Studio3dIo, SamplesLoadPlacedAsTheirPointsSay) {
  const auto files = Samples();
  ASSERT_GE(files.size(), 3u);
  for (const auto& path : files) {
    SCOPED_TRACE(path);
    const auto bytes = ReadFileBytes(path);
    tds::File raw;
    std::string detail;
    ASSERT_EQ(tds::ReadFile(bytes.data(), bytes.size(), raw, nullptr, detail), tds::ReadResult::Ok);
    Box expected;
    std::size_t faces = 0;
    for (const auto& mesh : raw.meshes) {
      for (std::size_t i = 0; i < mesh.PointCount(); ++i)
        expected.Add(mesh.Point(i, 0), mesh.Point(i, 1), mesh.Point(i, 2));
      faces += mesh.FaceCount();
    }

    C3DIo io(path, FILE_PARSER_SILENT);
    std::unique_ptr<C3DScene> scene(io.Read(0, 0));
    ASSERT_TRUE(scene) << io.GetIoErrorTxt();
    EXPECT_EQ(scene->GetNodeNbr(1), int(raw.meshes.size()));
    int triangles = 0;
    // The keyframer's placement gives back the points the file holds.
    ExpectNear(WorldBox(*scene, &triangles), expected, 1e-3f);
    EXPECT_EQ(triangles, int(faces));
    EXPECT_GE(scene->GetMaterialNumber(), int(raw.materials.size()));
    // Textured materials keep their image and are placed by a texture channel.
    for (MaterialPosition c = scene->GetFirstMaterial(); c;) {
      const C3DMaterial* m = scene->GetNextMaterial(c);
      if (const CMaterialMap* map = m->GetDiffuseMaps()) {
        EXPECT_FALSE(map->GetFileName().empty());
        EXPECT_NE(map->GetChannelID(), kNoChannel);
      }
    }
  }
}

TEST_F(Studio3dIo, TruncatedSamplesFailCleanly) {
  for (const auto& path : Samples()) {
    SCOPED_TRACE(path);
    const auto bytes = ReadFileBytes(path);
    const std::size_t step = bytes.size() > 4000 ? 5 : 1;
    for (std::size_t n = 0; n < bytes.size(); n += step) {
      std::vector<std::uint8_t> prefix(bytes.begin(), bytes.begin() + std::ptrdiff_t(n));
      int error = 0;
      auto scene = Read(prefix, &error);
      // The main chunk says how long the file is, so every prefix is short.
      ASSERT_FALSE(scene) << n;
      ASSERT_EQ(error, IO_FILE_BAD_FORMAT) << n;
    }
  }
}

TEST_F(Studio3dIo, HostileChunksAreBadFormatNeverReadsPastTheirParent) {
  const Bytes good = MeshObject("tri", kTriangle, {{0, 1, 2}});
  ASSERT_TRUE(Read(File3ds(good).data));

  // A header alone, or an editor block without meshes, holds nothing.
  EXPECT_EQ(ErrorOf(Chunk(tds::kMain)), IO_FILE_EMPTY);
  EXPECT_EQ(ErrorOf(File3ds(Chunk(tds::kMasterScale, L().f4(1)))), IO_FILE_EMPTY);
  // Shorter than a header, or not a 3D Studio file at all.
  EXPECT_EQ(ErrorOf(L().u2(tds::kMain).u2(6)), IO_FILE_BAD_FORMAT);
  EXPECT_EQ(ErrorOf(Chunk(0x1234)), IO_FILE_BAD_FORMAT);

  // An unknown chunk of length 6 is skipped; one of length 0 cannot be.
  Bytes empty = L();
  empty.raw(Chunk(0x7777)).raw(good);
  EXPECT_TRUE(Read(File3ds(empty).data));
  Bytes zero = L();
  zero.u2(0x7777).u4(0).raw(good);
  EXPECT_EQ(ErrorOf(File3ds(zero)), IO_FILE_BAD_FORMAT);
  EXPECT_NE(detail_.find("chunk 0x3D3D at byte"), std::string::npos) << detail_;

  // A child longer than its parent.
  Bytes pts = L();
  pts.u2(3);
  for (int i = 0; i < 9; ++i)
    pts.f4(0);
  Bytes past = L();
  past.u2(tds::kPoints).u4(std::uint32_t(pts.size() + 6 + 40)).raw(pts);
  Bytes obj = L();
  obj.cstr("x").raw(Chunk(tds::kTriMesh, past));
  EXPECT_EQ(ErrorOf(File3ds(Chunk(tds::kObject, obj))), IO_FILE_BAD_FORMAT);
  EXPECT_NE(detail_.find("past its parent"), std::string::npos) << detail_;

  // Indices past the points, face numbers past the faces, counts past the bytes.
  EXPECT_EQ(ErrorOf(File3ds(MeshObject("tri", kTriangle, {{0, 1, 3}}))), IO_FILE_BAD_FORMAT);
  EXPECT_NE(detail_.find("chunk 0x4120"), std::string::npos) << detail_;
  Bytes group = L();
  group.cstr("m").u2(1).u2(1);
  EXPECT_EQ(
      ErrorOf(File3ds(MeshObject("tri", kTriangle, {{0, 1, 2}}, Chunk(tds::kFaceMaterial, group)))),
      IO_FILE_BAD_FORMAT);
  Bytes many = L();
  many.u2(0xFFFF).f4(0).f4(0).f4(0);
  Bytes tri = L();
  tri.raw(Chunk(tds::kPoints, many));
  Bytes huge = L();
  huge.cstr("x").raw(Chunk(tds::kTriMesh, tri));
  EXPECT_EQ(ErrorOf(File3ds(Chunk(tds::kObject, huge))), IO_FILE_BAD_FORMAT);
  Bytes keys = L();
  keys.u2(0).u4(0).u4(0).u4(0x10000).u4(0).u2(0).f4(0).f4(0).f4(0);
  Bytes node = L();
  node.raw(Chunk(tds::kPositionTrack, keys));
  EXPECT_EQ(ErrorOf(File3ds(good, Chunk(tds::kObjectNode, node))), IO_FILE_BAD_FORMAT);
}

TEST_F(Studio3dIo, KeyframerPlacesAndParentsObjects) {
  // A dummy at x = 10 holds a mesh at x = 2 from it: the mesh lies at x = 12,
  // with its pivot at (1, 0, 0) of its own frame.
  const float matrix[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 12, 0, 0};
  const std::vector<P3> points = {{12, 0, 0}, {13, 0, 0}, {12, 1, 0}};
  auto track = [](unsigned id, std::vector<float> v) {
    Bytes b = L();
    b.u2(0).u4(0).u4(0).u4(1).u4(0).u2(1).f4(0.5f); // one key with a tension value
    for (float f : v)
      b.f4(f);
    return Chunk(id, b);
  };
  Bytes kf = L();
  Bytes dummy = L();
  dummy.raw(Chunk(tds::kNodeId, L().u2(0)))
      .raw(Chunk(tds::kNodeHeader, L().cstr(tds::kDummyName).u2(0).u2(0).u2(0xFFFF)))
      .raw(Chunk(tds::kInstanceName, L().cstr("Holder")))
      .raw(track(tds::kPositionTrack, {10, 0, 0}));
  Bytes mesh = L();
  mesh.raw(Chunk(tds::kNodeId, L().u2(1)))
      .raw(Chunk(tds::kNodeHeader, L().cstr("tri").u2(0).u2(0).u2(0)))
      .raw(Chunk(tds::kPivot, L().f4(1).f4(0).f4(0)))
      .raw(track(tds::kPositionTrack, {3, 0, 0}))
      .raw(track(tds::kRotationTrack, {0, 0, 0, 1}))
      .raw(track(tds::kScaleTrack, {1, 1, 1}));
  kf.raw(Chunk(tds::kObjectNode, dummy)).raw(Chunk(tds::kObjectNode, mesh));
  auto scene = Read(File3ds(MeshObject("tri", points, {{0, 1, 2}}, L(), matrix), kf).data);
  ASSERT_TRUE(scene) << detail_;
  C3DSceneNode* holder = scene->GetFirstNode(nullptr);
  ASSERT_TRUE(holder);
  EXPECT_EQ(holder->GetName(), "Holder");
  EXPECT_EQ(holder->GetBaseObject()->GetKindOf(), unsigned(OBJECT_GROUP));
  C3DSceneNode* child = scene->GetChildNode(holder);
  ASSERT_TRUE(child);
  EXPECT_EQ(child->GetName(), "tri");
  Box expected;
  for (const P3& p : points)
    expected.Add(p[0], p[1], p[2]);
  ExpectNear(WorldBox(*scene), expected, 1e-5f);
}

namespace {

// Two materials (one textured), a group holding a moved quad mesh with a
// texture seam, and a triangle with a face of no known material.
std::unique_ptr<C3DScene> MakeScene() {
  auto scene = std::make_unique<C3DScene>();
  C3DMaterial* red = scene->CreateNewMaterial();
  red->SetName("A rather long material name");
  red->SetDiffuseColor(CRGBColor(255, 0, 0, 255));
  red->SetTransparencyFactor(0.5f);
  red->AddMaterialMap("maps/brick.png", kNoChannel, MAP_DIFFUSE);
  C3DMaterial* blue = scene->CreateNewMaterial();
  blue->SetName("Blue");
  blue->SetDiffuseColor(CRGBColor(0, 0, 255, 255));

  auto quads = MakeMesh({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}, {2, 1, 0}},
                        {{0, 1, 2, 3}, {1, 4, 5, 2}});
  (*quads->GetFaceList())[0].SetMaterialID(red->GetMaterialID());
  (*quads->GetFaceList())[1].SetMaterialID(blue->GetMaterialID());
  CUVWChannel* uv =
      MakeUVW({{0, 0}, {0.5f, 0}, {0.5f, 0.5f}, {0, 0.5f}, {0.9f, 0}, {1, 1}, {0.8f, 0.8f}},
              {{0, 1, 2, 3}, {4, 5, 6, 2}});
  const unsigned uvId = uv->GetID();
  quads->AddChannel(uv);
  quads->SetGlobalUVWChannel(uvId);
  auto* group = new C3DSceneNode(new C3DGroup, 1);
  group->SetName("Group");
  scene->AddNode(nullptr, group);
  auto* node = new C3DSceneNode(quads.release(), 1);
  node->SetName("Quads with a long name");
  C4x4Matrix move(1);
  move.InitTranslation(0, 0, 5);
  node->SetMatrix(NODE_MATRIX_TRANSFORM, move);
  scene->AddNode(group, node);

  auto tri = MakeMesh(kTriangle, {{0, 1, 2}});
  (*tri->GetFaceList())[0].SetMaterialID(9999);
  auto* triNode = new C3DSceneNode(tri.release(), 1);
  triNode->SetName("Quads with a long name");
  triNode->SetFlag(SCENE_NODE_NO_FACE_BOX, 1); // hidden
  scene->AddNode(nullptr, triNode);
  return scene;
}

// Each corner of each face as (x, y, z, u, v), in world coordinates.
std::multiset<std::array<float, 5>> Corners(const C3DScene& scene) {
  std::multiset<std::array<float, 5>> corners;
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = scene.GetFirstNode(nullptr); cursor;) {
    C3DSceneNode* node = scene.GetNextNode(object, cursor, nullptr);
    if (!node || !object || object->GetKindOf() == OBJECT_GROUP)
      continue;
    C4x4Matrix world;
    node->GetMatrix(NODE_MATRIX_TRANSFORM, world, 0);
    const CUVWChannel* uv = object->GetChannels()->GetUVWChannel(object->GetGlobalUVWChannel());
    const C3DFaceList& faces = *object->GetFaceList();
    for (int f = 0; f < faces.GetSize(); ++f)
      for (int k = 0; k < faces[f].GetSize(); ++k) {
        C3DPoint p = (*object->GetPointList())[faces[f][k]] * world;
        float u = 0, v = 0;
        if (uv) {
          const CUVWPoint& t = (*uv->GetUVWPointList())[(*uv->GetUVWFaceList())[f][k]];
          u = t.u;
          v = t.v;
        }
        corners.insert({p.x, p.y, p.z, u, v});
      }
  }
  return corners;
}

} // namespace

TEST_F(Studio3dIo, SceneRoundTripKeepsGeometryMaterialsTexturesAndGroups) {
  auto scene = MakeScene();
  const auto bytes = Save(scene.get());
  // The source keeps its quads; the bytes do not depend on the run.
  EXPECT_EQ(scene->GetFaceNbr(), 3);
  EXPECT_EQ(Save(scene.get()), bytes);

  auto back = Read(bytes);
  ASSERT_TRUE(back) << detail_;
  int triangles = 0;
  ExpectNear(WorldBox(*back, &triangles), WorldBox(*scene), 0);
  EXPECT_EQ(triangles, 5);
  // Quads were cut along a diagonal, so every corner of the result is one of the source's.
  const auto source = Corners(*scene);
  for (const auto& c : Corners(*back))
    EXPECT_EQ(source.count(c) > 0, true) << c[0] << " " << c[1] << " " << c[2] << " " << c[3];

  // Names fit the format and stay unique; the group survives with its child.
  std::vector<std::pair<std::string, unsigned>> nodes;
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = back->GetFirstNode(nullptr); cursor;)
    if (C3DSceneNode* node = back->GetNextNode(object, cursor, nullptr))
      nodes.emplace_back(node->GetName() + (node->IsFlagSet(SCENE_NODE_NO_FACE_BOX) ? "*" : ""),
                         back->GetNodeDepth(node));
  const std::vector<std::pair<std::string, unsigned>> expected = {
      {"Quads with*", 0}, {"Group", 0}, {"Quads wit1", 1}};
  EXPECT_EQ(nodes, expected);

  const C3DMaterial* red = back->GetMaterial(back->GetMaterialID("A rather long ma"));
  ASSERT_TRUE(red);
  EXPECT_EQ(std::vector<int>({red->GetDiffuseColor().r, red->GetDiffuseColor().b}),
            std::vector<int>({255, 0}));
  EXPECT_NEAR(red->GetTransparencyFactor(), 0.5f, 0.01f);
  ASSERT_TRUE(red->GetDiffuseMaps());
  EXPECT_EQ(red->GetDiffuseMaps()->GetFileName(), "brick.png"); // looked up beside the file
  EXPECT_NE(back->GetMaterialID("Blue"), kNoChannel);
}

TEST_F(Studio3dIo, LargeMeshesAreSplitWithinTheLimit) {
  auto scene = std::make_unique<C3DScene>();
  auto grid = std::make_unique<C3DObject>(new C3DPointList, new C3DFaceList);
  MakeGrid(6, 5, *grid->GetPointList(), *grid->GetFaceList());
  auto* node = new C3DSceneNode(grid.release(), 1);
  node->SetName("Grid");
  scene->AddNode(nullptr, node);
  const auto bytes = Save(scene.get(), 16);

  tds::File file;
  std::string detail;
  ASSERT_EQ(tds::ReadFile(bytes.data(), bytes.size(), file, nullptr, detail), tds::ReadResult::Ok);
  ASSERT_GT(file.meshes.size(), 4u);
  std::set<std::string> names;
  std::size_t faces = 0;
  for (const auto& mesh : file.meshes) {
    EXPECT_LE(mesh.PointCount(), 16u);
    EXPECT_LE(mesh.FaceCount(), 16u);
    EXPECT_LE(mesh.name.size(), tds::kObjectNameMax);
    EXPECT_TRUE(names.insert(mesh.name).second) << mesh.name;
    faces += mesh.FaceCount();
  }
  EXPECT_EQ(faces, 60u);
  auto back = Read(bytes);
  ASSERT_TRUE(back);
  int triangles = 0;
  ExpectNear(WorldBox(*back, &triangles), WorldBox(*scene), 0);
  EXPECT_EQ(triangles, 60);
}

TEST_F(Studio3dIo, LargeFilesFillEveryMeshAsTheFileSays) {
  // Enough faces that two threads share the meshes: materials by group (the
  // first group naming a face wins; no group or an unknown material gives the
  // default), texture coordinates full, short or absent, a mesh without faces.
  constexpr int kSide = 100, kN = kSide + 1;
  tds::File file;
  file.materials.emplace_back().name = "First"; // material 0, the default
  file.materials.emplace_back().name = "Grey";
  for (int k = 0; k < 4; ++k) {
    tds::Mesh& mesh = file.meshes.emplace_back();
    mesh.name = "M" + std::to_string(k);
    for (int i = 0; i < kN * kN; ++i) {
      mesh.points.insert(mesh.points.end(), {float(i % kN), float(i / kN), float(k + i % 7)});
      if (k == 0 || (k == 2 && i < kN * kN / 2))
        mesh.uvs.insert(mesh.uvs.end(), {float(i % 5), float(i % 3)});
    }
    if (k == 3)
      continue; // points only
    for (int y = 0; y < kSide; ++y)
      for (int x = 0; x < kSide; ++x) {
        const int a = y * kN + x;
        for (int v : {a, a + 1, a + kN + 1, 0, a, a + kN + 1, a + kN, 0})
          mesh.faces.push_back(std::uint16_t(v));
      }
    const auto faceCount = std::uint16_t(mesh.FaceCount());
    if (k == 2) {
      tds::FaceGroup& unknown = mesh.groups.emplace_back();
      unknown.material = "Nope";
      for (std::uint16_t f = 0; f < 100; ++f)
        unknown.faces.push_back(f);
    }
    tds::FaceGroup& grey = mesh.groups.emplace_back();
    grey.material = "Grey";
    for (std::uint16_t f = 0; f < (k == 1 ? faceCount / 2 : faceCount); ++f)
      grey.faces.push_back(f);
  }
  codec::CBinaryWriter writer(codec::ByteOrder::Little);
  ASSERT_TRUE(tds::WriteFile(file, writer, nullptr));
  auto scene = Read(writer.GetBuffer());
  ASSERT_TRUE(scene) << detail_;
  const unsigned greyId = scene->GetMaterialID("Grey");
  const unsigned defaultId = scene->GetMaterial(0)->GetMaterialID();
  ASSERT_NE(greyId, defaultId);

  std::vector<const C3DBaseObject*> objects;
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = scene->GetFirstNode(nullptr); cursor;)
    if (scene->GetNextNode(object, cursor, nullptr) && object &&
        object->GetKindOf() == OBJECT_POLYGONAL)
      objects.push_back(object);
  ASSERT_EQ(objects.size(), 3u);
  for (std::size_t k = 0; k < objects.size(); ++k) {
    SCOPED_TRACE(k);
    const tds::Mesh& mesh = file.meshes[k];
    const C3DPointList& points = *objects[k]->GetPointList();
    const C3DFaceList& faces = *objects[k]->GetFaceList();
    ASSERT_EQ(points.GetSize(), kN * kN);
    ASSERT_EQ(faces.GetSize(), 2 * kSide * kSide);
    bool same = true;
    for (int i = 0; i < points.GetSize(); ++i)
      same = same && points[i].x == mesh.points[std::size_t(i) * 3] &&
             points[i].z == mesh.points[std::size_t(i) * 3 + 2];
    for (int f = 0; f < faces.GetSize(); ++f) {
      const bool grey = (k == 0) || (k == 1 && f < faces.GetSize() / 2) || (k == 2 && f >= 100);
      same = same && faces[f].GetSize() == 3 && faces[f][2] == mesh.faces[std::size_t(f) * 4 + 2] &&
             faces[f].GetMaterialID() == (grey ? greyId : defaultId);
    }
    EXPECT_TRUE(same);
    CUVWChannel* uv = objects[k]->GetChannels() ? objects[k]->GetChannels()->GetUVWChannel(0)
                                                : nullptr;
    ASSERT_EQ(uv != nullptr, k != 1);
    if (!uv)
      continue;
    const CUVWPointList& uvs = *uv->GetUVWPointList();
    const CUVWFaceList& uvFaces = *uv->GetUVWFaceList();
    ASSERT_EQ(uvs.GetSize(), kN * kN);
    ASSERT_EQ(uvFaces.GetSize(), faces.GetSize());
    const int given = int(mesh.uvs.size() / 2);
    for (int i = 0; i < uvs.GetSize(); ++i)
      same = same && uvs[i].u == (i < given ? mesh.uvs[std::size_t(i) * 2] : 0.0f) &&
             uvs[i].v == (i < given ? -mesh.uvs[std::size_t(i) * 2 + 1] : 0.0f);
    for (int f = 0; f < faces.GetSize(); ++f)
      same = same && std::equal(faces[f].GetData(), faces[f].GetData() + 3, uvFaces[f].GetData());
    EXPECT_TRUE(same);
  }
}

TEST_F(Studio3dIo, CancelledReadsAndSavesLeaveNothing) {
  const auto bytes = File3ds(MeshObject("tri", kTriangle, {{0, 1, 2}})).data;
  auto scene = Read(bytes);
  ASSERT_TRUE(scene);
  const auto dir = ScratchDir("studio3d_cancel");
  const std::string path = (dir / "out.3ds").string();
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
