// `meshcore render`: pictures checked pixel by pixel, the PNG reader and
// writer, and a render of every sample file.
#include "tools/render/checksum.h"
#include "tools/render/deflater.h"
#include "tools/render/inflater.h"
#include "tools/render/png_reader.h"
#include "tools/render/png_writer.h"
#include "tools/render/scene_renderer.h"

#include "meshcore/formats/library.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/scene.h"
#include "tests/support/byte_builder.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"
#include "tests/tools/run_in_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

namespace fs = std::filesystem;
using namespace meshcore;
using namespace meshcore::render;

namespace {

constexpr std::uint32_t kBackground = 0x102030;

class RenderTest : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
};

C3DObject* AddMesh(C3DScene& scene, const std::vector<test::P3>& points, const test::Faces& faces,
                   unsigned material) {
  C3DObject* mesh = test::MakeMesh(points, faces).release();
  for (int f = 0; f < mesh->GetFaceNbr(); ++f)
    (*mesh->GetFaceList())[f].SetMaterialID(material);
  scene.AddNode(nullptr, new C3DSceneNode(mesh, 0));
  return mesh;
}

unsigned AddMaterial(C3DScene& scene, int r, int g, int b) {
  C3DMaterial* material = scene.CreateNewMaterial();
  material->SetDiffuseColor(CRGBColor(r, g, b, 255));
  return material->GetMaterialID();
}

// A quad facing +z (the front viewer) spanning x0..x1 by y0..y1 at depth z.
C3DObject* AddQuad(C3DScene& scene, float x0, float x1, float y0, float y1, float z,
                   unsigned material) {
  return AddMesh(scene, {{x0, y0, z}, {x1, y0, z}, {x1, y1, z}, {x0, y1, z}}, {{0, 1, 2, 3}},
                 material);
}

CImage Render(C3DScene& scene, RenderOptions options,
              std::vector<std::string>* warnings = nullptr) {
  options.background = kBackground;
  CSceneRenderer renderer(options);
  CImage image;
  std::string error;
  EXPECT_TRUE(renderer.Render(scene, image, error)) << error;
  if (warnings)
    *warnings = renderer.GetWarnings();
  return image;
}

RenderOptions Front(int width, int height) {
  RenderOptions options;
  options.width = width;
  options.height = height;
  options.view = ViewDirection::Front;
  return options;
}

std::uint32_t Rgb(const CImage& image, int x, int y) {
  const std::uint8_t* p = image.Pixel(x, y);
  return (std::uint32_t{p[0]} << 16) | (p[1] << 8) | p[2];
}

bool IsBackground(const CImage& image, int x, int y) {
  return Rgb(image, x, y) == kBackground;
}

int Brightness(const CImage& image, int x, int y) {
  const std::uint8_t* p = image.Pixel(x, y);
  return p[0] + p[1] + p[2];
}

std::vector<std::uint8_t> ReadBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A PNG around raw scanlines (filter bytes included), compressed as one
// stored block, so that the reader meets data our writer never produces.
std::vector<std::uint8_t> HandMadePng(int width, int height, int depth, int colour,
                                      const std::vector<std::uint8_t>& scanlines,
                                      const std::vector<std::uint8_t>& palette = {}) {
  test::ByteBuilder out({0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'});
  auto chunk = [&](const char* type, const test::ByteBuilder& body) {
    test::ByteBuilder typed;
    typed.id(type).raw(body);
    out.u4(std::uint32_t(body.size())).raw(typed).u4(Crc32(typed.data.data(), typed.size()));
  };
  chunk("IHDR", test::ByteBuilder()
                    .u4(std::uint32_t(width))
                    .u4(std::uint32_t(height))
                    .u1(depth)
                    .u1(colour)
                    .u1(0)
                    .u1(0)
                    .u1(0));
  if (!palette.empty())
    chunk("PLTE", test::ByteBuilder(palette));
  // One stored block: its length and the length's complement are little-endian.
  const auto size = static_cast<std::uint16_t>(scanlines.size());
  test::ByteBuilder block({0x78, 0x01, 0x01}, test::Endian::Little);
  block.u2(size).u2(static_cast<std::uint16_t>(~size)).raw(test::ByteBuilder(scanlines));
  chunk("IDAT", test::ByteBuilder(block.data).u4(Adler32(scanlines.data(), scanlines.size())));
  chunk("IEND", test::ByteBuilder());
  return out.data;
}

} // namespace

TEST_F(RenderTest, CubeFromTheFrontFillsTheExpectedSquareInItsMaterialColour) {
  C3DScene scene;
  const unsigned red = AddMaterial(scene, 255, 0, 0);
  const float s = 0.5f;
  std::vector<test::P3> corners; // corner k of point i is bit k of i
  for (int i = 0; i < 8; ++i)
    corners.push_back({i & 1 ? s : -s, i & 2 ? s : -s, i & 4 ? s : -s});
  AddMesh(scene, corners,
          {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}},
          red);
  // 200 pixels with a 5% margin each side: the cube spans pixels 10 to 189.
  const CImage image = Render(scene, Front(200, 200));
  ASSERT_EQ(image.GetWidth(), 200);
  ASSERT_EQ(image.GetHeight(), 200);
  for (int y = 0; y < 200; ++y)
    for (int x = 0; x < 200; ++x) {
      const bool inside = x >= 10 && x < 190 && y >= 10 && y < 190;
      ASSERT_EQ(!IsBackground(image, x, y), inside) << x << ", " << y;
      if (inside) {
        const std::uint8_t* p = image.Pixel(x, y);
        ASSERT_GT(p[0], 60);
        ASSERT_EQ(p[1], 0);
        ASSERT_EQ(p[2], 0);
      }
    }

  // The same cube in a wide picture keeps its aspect and sits in the middle.
  const CImage wide = Render(scene, Front(400, 200));
  EXPECT_TRUE(IsBackground(wide, 100, 100));
  EXPECT_FALSE(IsBackground(wide, 111, 100));
  EXPECT_FALSE(IsBackground(wide, 288, 100));
  EXPECT_TRUE(IsBackground(wide, 291, 100));
}

TEST_F(RenderTest, NearerFacesHideFartherOnesWhateverTheDrawingOrder) {
  for (const bool nearFirst : {false, true}) {
    C3DScene scene;
    const unsigned red = AddMaterial(scene, 255, 0, 0);
    const unsigned green = AddMaterial(scene, 0, 255, 0);
    if (nearFirst)
      AddQuad(scene, -0.5f, 1.0f, -1.0f, 1.0f, 0.5f, green);
    AddQuad(scene, -1.0f, 0.5f, -1.0f, 1.0f, 0.0f, red);
    if (!nearFirst)
      AddQuad(scene, -0.5f, 1.0f, -1.0f, 1.0f, 0.5f, green);
    const CImage image = Render(scene, Front(200, 200));
    auto isRed = [&](int x) { return (Rgb(image, x, 100) & 0x00FFFF) == 0 && Rgb(image, x, 100); };
    auto isGreen = [&](int x) {
      return (Rgb(image, x, 100) & 0xFF00FF) == 0 && Rgb(image, x, 100);
    };
    EXPECT_TRUE(isRed(30)) << nearFirst;
    EXPECT_TRUE(isGreen(100)) << nearFirst; // the overlap
    EXPECT_TRUE(isGreen(170)) << nearFirst;
  }
}

TEST_F(RenderTest, UpAxisFollowsTheFileKindUnlessGiven) {
  EXPECT_EQ(UpAxisOfFile("a/Model.LWO"), UpAxis::Y);
  EXPECT_EQ(UpAxisOfFile("spider.obj"), UpAxis::Y);
  EXPECT_EQ(UpAxisOfFile("scene.3ds"), UpAxis::Z);
  EXPECT_EQ(UpAxisOfFile("dir.obj/cube.wrl"), UpAxis::Z);
  EXPECT_EQ(UpAxisOfFile("noextension"), UpAxis::Z);

  // A red quad standing in the xz plane, twice as tall (z) as wide (x), and a
  // green one lying in the xy plane behind it (+y): z-up, the front view sees
  // the red one upright and hides the green; y-up, it sees the green one.
  C3DScene scene;
  AddMesh(scene, {{0, 0, 0}, {1, 0, 0}, {1, 0, 2}, {0, 0, 2}}, {{0, 1, 2, 3}},
          AddMaterial(scene, 255, 0, 0));
  AddMesh(scene, {{0, 0.5f, 0}, {1, 0.5f, 0}, {1, 2.5f, 0}, {0, 2.5f, 0}}, {{0, 1, 2, 3}},
          AddMaterial(scene, 0, 255, 0));
  RenderOptions options = Front(100, 100);
  options.up = UpAxis::Z;
  const CImage upright = Render(scene, options);
  EXPECT_GT(upright.Pixel(50, 20)[0], 60);
  EXPECT_EQ(upright.Pixel(50, 20)[1], 0);
  EXPECT_TRUE(IsBackground(upright, 20, 50)); // narrower than tall
  options.up = UpAxis::Y;
  const CImage lying = Render(scene, options);
  EXPECT_EQ(lying.Pixel(50, 50)[0], 0);
  EXPECT_GT(lying.Pixel(50, 50)[1], 60);
}

TEST_F(RenderTest, ConcaveFacesKeepTheirNotches) {
  // An L (a unit square without its top right quarter), starting at a corner
  // from which a fan would cover part of the notch; and the same outline
  // wound the other way.
  for (const bool reversed : {false, true}) {
    C3DScene scene;
    std::vector<int> corners = {0, 1, 2, 3, 4, 5};
    if (reversed)
      std::reverse(corners.begin(), corners.end());
    AddMesh(scene, {{1, 0, 0}, {1, 0.5f, 0}, {0.5f, 0.5f, 0}, {0.5f, 1, 0}, {0, 1, 0}, {0, 0, 0}},
            {corners}, AddMaterial(scene, 255, 0, 0));
    const CImage image = Render(scene, Front(100, 100));
    EXPECT_TRUE(IsBackground(image, 75, 25)) << reversed; // the notch, top right
    EXPECT_TRUE(IsBackground(image, 55, 32)) << reversed; // where that fan would reach
    EXPECT_FALSE(IsBackground(image, 25, 25)) << reversed;
    EXPECT_FALSE(IsBackground(image, 75, 75)) << reversed;
  }
}

TEST_F(RenderTest, ShadingIsSmoothWithinTheSmoothingAngleAndFlatBeyondIt) {
  // A roof seen from the front: two faces meeting at x = 0 at about 53 degrees.
  auto roofRender = [&](float smoothDegrees) {
    C3DScene scene;
    const unsigned white = AddMaterial(scene, 255, 255, 255);
    C3DObject* roof = AddMesh(
        scene,
        {{-1, -1, -0.5f}, {0, -1, 0}, {1, -1, -0.5f}, {-1, 1, -0.5f}, {0, 1, 0}, {1, 1, -0.5f}},
        {{0, 1, 4, 3}, {1, 2, 5, 4}}, white);
    roof->SetSmoothAngle(smoothDegrees * 3.1415927f / 180.0f);
    return Render(scene, Front(200, 200));
  };
  const CImage flat = roofRender(0.0f);
  EXPECT_LE(std::abs(Brightness(flat, 40, 100) - Brightness(flat, 95, 100)), 3); // one per face
  EXPECT_GT(std::abs(Brightness(flat, 97, 100) - Brightness(flat, 103, 100)), 30);
  const CImage narrow = roofRender(30.0f); // the faces are further apart than that
  EXPECT_GT(std::abs(Brightness(narrow, 97, 100) - Brightness(narrow, 103, 100)), 30);
  const CImage smooth = roofRender(80.0f);
  EXPECT_LT(std::abs(Brightness(smooth, 98, 100) - Brightness(smooth, 102, 100)), 12);
  EXPECT_NE(Rgb(smooth, 40, 100), Rgb(smooth, 95, 100));
}

TEST_F(RenderTest, VertexColoursAndTexturesReplaceTheDiffuseColour) {
  const fs::path dir = test::ScratchDir("render_texture");
  // Quadrants: red top left, green top right, blue bottom left, white bottom right.
  CImage texture(2, 2);
  const std::uint32_t colours[4] = {0xFF0000, 0x00FF00, 0x0000FF, 0xFFFFFF};
  for (int i = 0; i < 4; ++i) {
    std::uint8_t* p = texture.Pixel(i % 2, i / 2);
    p[0] = colours[i] >> 16, p[1] = (colours[i] >> 8) & 0xFF, p[2] = colours[i] & 0xFF;
    p[3] = 255;
  }
  std::string error;
  ASSERT_TRUE(CPngWriter::WriteFile(texture, (dir / "quadrants.png").string(), error)) << error;
  {
    std::ofstream damaged(dir / "damaged.png", std::ios::binary);
    const std::vector<std::uint8_t> bytes = CPngWriter::Encode(texture);
    damaged.write(reinterpret_cast<const char*>(bytes.data()), 40); // cut short
  }

  auto texturedScene = [&](C3DScene& scene, const std::string& file) {
    scene.SetFilename((dir / "scene.lwo").string());
    C3DMaterial* material = scene.CreateNewMaterial();
    material->SetDiffuseColor(CRGBColor(200, 200, 0, 255));
    C3DObject* quad = AddQuad(scene, -1, 1, -1, 1, 0, material->GetMaterialID());
    auto* uv = new CUVWChannel(CChannel::CreateID());
    uv->GetUVWPointList()->SetSize(4);
    for (int k = 0; k < 4; ++k) // the quad's corners: (0, 0), (1, 0), (1, 1), (0, 1)
      (*uv->GetUVWPointList())[k].SetUV(k == 1 || k == 2 ? 1.0f : 0.0f, k >= 2 ? 1.0f : 0.0f, 0);
    test::FillFaces(*uv->GetUVWFaceList(), {{0, 1, 2, 3}});
    quad->AddChannel(uv);
    material->AddMaterialMap(file, uv->GetID(), MAP_DIFFUSE);
  };
  auto hue = [](const CImage& image, int x, int y) {
    const std::uint8_t* p = image.Pixel(x, y);
    const int top = std::max({p[0], p[1], p[2]});
    return (p[0] * 2 > top ? 0x4 : 0) | (p[1] * 2 > top ? 0x2 : 0) | (p[2] * 2 > top ? 0x1 : 0);
  };
  // Unreadable maps are reported once each and leave the diffuse colour; a
  // Windows path with other case still finds the file beside the scene.
  const std::vector<int> mapped = {0x4, 0x2, 0x1, 0x7}, diffuse = {0x6, 0x6, 0x6, 0x6};
  const std::vector<std::pair<const char*, std::vector<int>>> cases = {
      {"quadrants.png", mapped}, // texture row 0 is the top
      {"C:\\textures\\QUADRANTS.PNG", mapped},
      {"damaged.png", diffuse},
      {"missing.png", diffuse},
      {"C:\\old\\path\\QUADRANTS.JPG", diffuse}};
  for (const auto& [file, hues] : cases) {
    SCOPED_TRACE(file);
    C3DScene scene;
    texturedScene(scene, file);
    std::vector<std::string> warnings;
    const CImage image = Render(scene, Front(100, 100), &warnings);
    EXPECT_EQ((std::vector<int>{hue(image, 25, 25), hue(image, 75, 25), hue(image, 25, 75),
                                hue(image, 75, 75)}),
              hues);
    ASSERT_EQ(warnings.size(), hues == mapped ? 0u : 1u);
    if (!warnings.empty()) {
      EXPECT_NE(warnings[0].find("diffuse colour"), std::string::npos);
    }
  }

  // A colour channel colours the faces whatever the material says.
  C3DScene scene;
  C3DObject* quad = AddQuad(scene, -1, 1, -1, 1, 0, AddMaterial(scene, 255, 255, 255));
  auto* vc = new CVCChannel(CChannel::CreateID());
  vc->GetVCPointList()->SetSize(2);
  (*vc->GetVCPointList())[0].SetColor(CRGBColor(0, 0, 255, 255));
  (*vc->GetVCPointList())[1].SetColor(CRGBColor(255, 0, 0, 255));
  test::FillFaces(*vc->GetVCFaceList(), {{0, 0, 1, 1}}); // blue below, red above
  quad->AddChannel(vc);
  const CImage image = Render(scene, Front(100, 100));
  EXPECT_EQ(hue(image, 50, 85), 0x1);
  EXPECT_EQ(hue(image, 50, 15), 0x4);
}

TEST_F(RenderTest, CurvesWireEdgesAndDegenerateScenes) {
  // A curve alone is drawn as a line one pixel wide.
  {
    C3DScene scene;
    C3DBaseObject* curve = C3DObjectCreator().GetNewCurveObject();
    curve->GetPointList()->SetSize(2);
    (*curve->GetPointList())[0] = C3DPoint(-1, 0, 0);
    (*curve->GetPointList())[1] = C3DPoint(1, 0, 0);
    static_cast<C3DCurve*>(*curve)->SetMaterialID(AddMaterial(scene, 255, 255, 255));
    scene.AddNode(nullptr, new C3DSceneNode(curve, 0));
    const CImage image = Render(scene, Front(100, 100));
    int drawn = 0;
    for (int y = 0; y < 100; ++y)
      drawn += !IsBackground(image, 50, y);
    EXPECT_GE(drawn, 1);
    EXPECT_LE(drawn, 2); // one pixel, or two half-covered ones
    EXPECT_FALSE(IsBackground(image, 10, 50));
    EXPECT_TRUE(IsBackground(image, 50, 10));
  }
  // --wire marks the border of a quad and leaves its middle alone.
  {
    C3DScene scene;
    AddQuad(scene, -1, 1, -1, 1, 0, AddMaterial(scene, 255, 0, 0));
    const CImage plain = Render(scene, Front(100, 100));
    RenderOptions options = Front(100, 100);
    options.wire = true;
    const CImage wired = Render(scene, options);
    EXPECT_NE(Rgb(plain, 50, 5), Rgb(wired, 50, 5));
    EXPECT_EQ(Rgb(plain, 50, 50), Rgb(wired, 50, 50));
  }
  // Boxes that are a point or a plane seen edge on, in every view.
  for (const ViewDirection view : {ViewDirection::Iso, ViewDirection::Front, ViewDirection::Top,
                                   ViewDirection::Left, ViewDirection::Bottom}) {
    C3DScene point, plane;
    AddMesh(point, {{1, 2, 3}, {1, 2, 3}, {1, 2, 3}}, {{0, 1, 2}}, 0);
    AddMesh(plane, {{-1, 0, -1}, {1, 0, -1}, {1, 0, 1}, {-1, 0, 1}}, {{0, 1, 2, 3}}, 0);
    RenderOptions options = Front(40, 30);
    options.view = view;
    EXPECT_EQ(Render(point, options).GetWidth(), 40);
    EXPECT_EQ(Render(plane, options).GetHeight(), 30);
  }
  // Faces that point past the list, and an empty scene, draw nothing.
  C3DScene broken;
  AddMesh(broken, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 7}, {0, -1, 2}}, 0);
  EXPECT_TRUE(IsBackground(Render(broken, Front(20, 20)), 10, 10));
  C3DScene empty;
  CSceneRenderer renderer{RenderOptions()};
  CImage image;
  std::string error;
  EXPECT_FALSE(renderer.Render(empty, image, error));
  EXPECT_NE(error.find("nothing to draw"), std::string::npos);
  EXPECT_TRUE(image.IsEmpty());
}

TEST_F(RenderTest, PngWriterOutputDecodesToTheSamePixelsAndDamageIsRefused) {
  CImage image(97, 61);
  std::uint32_t seed = 12345;
  for (int y = 0; y < image.GetHeight(); ++y)
    for (int x = 0; x < image.GetWidth(); ++x) {
      seed = seed * 1103515245u + 12345u;
      std::uint8_t* p = image.Pixel(x, y);
      // Runs, gradients and noise, so that every row filter gets chosen.
      p[0] = static_cast<std::uint8_t>(x < 40 ? 200 : x * 3 + y);
      p[1] = static_cast<std::uint8_t>(y < 20 ? (seed >> 24) : y * 4);
      p[2] = static_cast<std::uint8_t>((x / 8 + y / 8) % 2 ? 255 : 0);
      p[3] = 255;
    }
  const std::vector<std::uint8_t> png = CPngWriter::Encode(image);
  EXPECT_EQ(png, CPngWriter::Encode(image));
  CImage back;
  std::string error;
  ASSERT_TRUE(CPngReader::Decode(png.data(), png.size(), back, error)) << error;
  EXPECT_EQ(back.GetPixels(), image.GetPixels());

  // Any damaged byte is caught by a checksum or a check, never a crash.
  for (std::size_t i = 8; i < png.size(); i += 3) {
    std::vector<std::uint8_t> bad = png;
    bad[i] ^= 0x5A;
    CImage out;
    EXPECT_FALSE(CPngReader::Decode(bad.data(), bad.size(), out, error)) << i;
  }
  for (std::size_t cut : {std::size_t{7}, std::size_t{30}, png.size() / 2, png.size() - 1})
    EXPECT_FALSE(CPngReader::Decode(png.data(), cut, back, error)) << cut;

  // The decompressor alone, fed damage that no checksum hides: it must stop
  // within its output cap.
  std::vector<std::uint8_t> raw(20000);
  for (std::size_t i = 0; i < raw.size(); ++i)
    raw[i] = static_cast<std::uint8_t>((i % 300) < 150 ? i : i * 7);
  const std::vector<std::uint8_t> z = CDeflater::Compress(raw.data(), raw.size());
  std::vector<std::uint8_t> out;
  ASSERT_TRUE(CInflater::Decompress(z.data(), z.size(), raw.size(), out, error)) << error;
  EXPECT_EQ(out, raw);
  EXPECT_FALSE(CInflater::Decompress(z.data(), z.size(), raw.size() - 1, out, error));
  for (std::size_t i = 2; i < z.size() - 4; ++i) {
    std::vector<std::uint8_t> bad = z;
    bad[i] ^= static_cast<std::uint8_t>(1u << (i % 8));
    CInflater::Decompress(bad.data(), bad.size(), raw.size(), out, error);
    EXPECT_LE(out.size(), raw.size());
  }
}

TEST_F(RenderTest, PngReaderTakesOldTextureKinds) {
  std::string error;
  CImage image;
  // 2-bit palette, 3 x 2, no filter and then Up (0x18 + 0xE4: indices 3, 3, 3).
  const std::vector<std::uint8_t> palette = {255, 0, 0, 0, 255, 0, 0, 0, 255, 9, 9, 9};
  const std::vector<std::uint8_t> paletted =
      HandMadePng(3, 2, 2, 3, {0, 0b00011000, 2, 0xE4}, palette);
  ASSERT_TRUE(CPngReader::Decode(paletted.data(), paletted.size(), image, error)) << error;
  EXPECT_EQ((std::vector<std::uint32_t>{Rgb(image, 0, 0), Rgb(image, 1, 0), Rgb(image, 2, 0),
                                        Rgb(image, 2, 1)}),
            (std::vector<std::uint32_t>{0xFF0000, 0x00FF00, 0x0000FF, 0x090909}));
  // 16-bit grey with alpha, 1 x 2, the second row filtered Up: high bytes count.
  const std::vector<std::uint8_t> grey16 =
      HandMadePng(1, 2, 16, 4, {0, 0x80, 0xFF, 0x40, 0x00, 2, 0x10, 0x00, 0x10, 0x00});
  ASSERT_TRUE(CPngReader::Decode(grey16.data(), grey16.size(), image, error)) << error;
  EXPECT_EQ((std::vector<int>{image.Pixel(0, 0)[0], image.Pixel(0, 0)[3], image.Pixel(0, 1)[1],
                              image.Pixel(0, 1)[3]}),
            (std::vector<int>{0x80, 0x40, 0x90, 0x50}));
  // Interlaced images and headers claiming huge pictures are refused.
  std::vector<std::uint8_t> interlaced = HandMadePng(1, 1, 8, 0, {0, 7});
  interlaced[28] = 1;
  const std::uint32_t crc = Crc32(interlaced.data() + 12, 17);
  for (int i = 0; i < 4; ++i)
    interlaced[29 + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
  EXPECT_FALSE(CPngReader::Decode(interlaced.data(), interlaced.size(), image, error));
  EXPECT_NE(error.find("interlaced"), std::string::npos);
  const std::vector<std::uint8_t> huge = HandMadePng(60000, 60000, 8, 0, {0, 7});
  EXPECT_FALSE(CPngReader::Decode(huge.data(), huge.size(), image, error));
  EXPECT_NE(error.find("too large"), std::string::npos);

  // Textures written by other tools (dynamic Huffman codes).
  const fs::path samples = MESHCORE_SAMPLES_DIR;
  ASSERT_TRUE(CPngReader::ReadFile((samples / "lightwave/boxuv.png").string(), image, error))
      << error;
  EXPECT_EQ(image.GetWidth(), 512);
  EXPECT_EQ(Rgb(image, 10, 10), 0u);
  ASSERT_TRUE(CPngReader::ReadFile((samples / "3ds/test.png").string(), image, error)) << error;
}

TEST_F(RenderTest, CommandRendersEverySampleAndFailsCleanly) {
  const fs::path dir = test::ScratchDir("render_samples");
  std::vector<fs::path> files;
  for (const auto& entry : fs::recursive_directory_iterator(MESHCORE_SAMPLES_DIR)) {
    std::string ext = entry.path().extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    if (ext == ".lwo" || ext == ".lws" || ext == ".iv" || ext == ".obj" || ext == ".3ds" ||
        ext == ".dxf" || ext == ".cob")
      files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  ASSERT_GT(files.size(), 40u);
  for (const fs::path& file : files) {
    const fs::path out = dir / (file.filename().string() + ".png");
    const test::Captured run = test::RunInProcess(
        {"render", file.string(), out.string(), "--size", "160x120", "--silent"});
    ASSERT_EQ(run.status, 0) << file << ": " << run.err;
    const std::vector<std::uint8_t> bytes = ReadBytes(out);
    CImage image;
    std::string error;
    ASSERT_TRUE(CPngReader::Decode(bytes.data(), bytes.size(), image, error)) << file << error;
    ASSERT_EQ(image.GetWidth(), 160);
    ASSERT_EQ(image.GetHeight(), 120);
    const std::uint8_t* first = image.Pixel(0, 0);
    bool drawn = false;
    for (int y = 0; y < 120 && !drawn; ++y)
      for (int x = 0; x < 160 && !drawn; ++x)
        drawn = std::memcmp(image.Pixel(x, y), first, 3) != 0;
    EXPECT_TRUE(drawn) << file;
  }

  // Same input, same bytes; options in either spelling.
  const std::string sample = (fs::path(MESHCORE_SAMPLES_DIR) / "obj/spider.obj").string();
  const fs::path a = dir / "a.png", b = dir / "b.png";
  EXPECT_EQ(test::RunInProcess({"render", sample, a.string(), "--wire", "--view", "left"}).status,
            0);
  EXPECT_EQ(test::RunInProcess({"render", "--view=left", sample, b.string(), "--wire"}).status, 0);
  EXPECT_EQ(ReadBytes(a), ReadBytes(b));
  EXPECT_EQ(
      test::RunInProcess({"render", sample, a.string(), "--background", "#ff8000", "--size=64x48"})
          .status,
      0);
  const std::vector<std::uint8_t> bytes = ReadBytes(a);
  CImage image;
  std::string error;
  ASSERT_TRUE(CPngReader::Decode(bytes.data(), bytes.size(), image, error));
  EXPECT_EQ(image.GetWidth(), 64);
  EXPECT_EQ(Rgb(image, 0, 0), 0xFF8000u);

  // Usage errors name the problem and write nothing.
  const fs::path none = dir / "none.png";
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"render", sample, none.string(), "--size", "0x10"},
        {"render", sample, none.string(), "--size", "5000x10"},
        {"render", sample, none.string(), "--view", "sideways"},
        {"render", sample, none.string(), "--background", "red"},
        {"render", sample, none.string(), "--shiny"},
        {"render", sample, (dir / "picture.jpg").string()},
        {"render", sample}}) {
    const test::Captured run = test::RunInProcess(args);
    EXPECT_EQ(run.status, tool::kExitUsage) << args.back();
    EXPECT_NE(run.err.find("meshcore: "), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(none));

  // A file without anything drawable (points only): a clean error and no picture.
  std::ofstream(dir / "points.obj") << "v 0 0 0\nv 1 0 0\np 1 2\n";
  const test::Captured run =
      test::RunInProcess({"render", (dir / "points.obj").string(), none.string()});
  EXPECT_EQ(run.status, tool::kExitFailure);
  EXPECT_NE(run.err.find("nothing to draw"), std::string::npos) << run.err;
  EXPECT_FALSE(fs::exists(none));
}
