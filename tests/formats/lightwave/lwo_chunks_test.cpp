#include "meshcore/formats/lightwave/detail/lwo_reader.h"
#include "meshcore/formats/lightwave/detail/lwo_writer.h"
#include "meshcore/platform/cancel.h"

#include "lwo_test_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>

using namespace meshcore;
using namespace meshcore::lwtest;

namespace {

std::unique_ptr<st_lwObject> Load(const Bytes& b, LwLoadStatus* status = nullptr) {
  return LoadLightwaveObject(b.data.data(), b.size(), {}, status);
}

std::vector<std::uint32_t> PolygonVertices(const st_lwLayer& layer, std::size_t i) {
  const auto& p = layer.polygons[i];
  return {layer.Vertices(p), layer.Vertices(p) + p.vertexCount};
}

// A square in one layer: 4 points, one FACE tagged with tag 0.
Bytes SquareChunks() {
  Bytes c;
  c.chunk("TAGS", Bytes().s0("Red"));
  c.chunk("PNTS", Points({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}));
  c.chunk("POLS", Bytes().id("FACE").u2(4).u2(0).u2(1).u2(2).u2(3));
  c.chunk("PTAG", Bytes().id("SURF").vx(0).u2(0));
  return c;
}

} // namespace

TEST(LwoChunks, Lwo2WithoutLayerAndDefaults) {
  LwLoadStatus status;
  auto obj = Load(Form("LWO2", SquareChunks()), &status);
  ASSERT_TRUE(obj);
  ASSERT_EQ(obj->GetLayerNbr(), 1u);
  const auto& layer = obj->layers[0];
  EXPECT_EQ(layer.GetPointCount(), 4u);
  ASSERT_EQ(layer.GetPolygonCount(), 1u);
  EXPECT_EQ(PolygonVertices(layer, 0), (std::vector<std::uint32_t>{0, 1, 2, 3}));
  // A tag without a SURF record gets a default surface of that name.
  ASSERT_EQ(obj->surfaces.size(), 1u);
  EXPECT_EQ(obj->surfaces[0].name, "Red");
  EXPECT_EQ(layer.polygons[0].surface, 0u);
  EXPECT_NEAR(obj->surfaces[0].color[0], 200.0f / 255.0f, 1e-6);
  // Normals and point polygons built.
  ASSERT_EQ(layer.pointPolygonStart.size(), 5u);
  EXPECT_EQ(layer.pointPolygonStart[4], 4u);
  ASSERT_EQ(layer.vertexNormals.size(), 12u);
  EXPECT_FLOAT_EQ(std::fabs(layer.vertexNormals[2]), 1.0f);
}

TEST(LwoChunks, LayersPointBasesOddChunksAndLargeIndices) {
  Bytes c;
  c.chunk("TAGS", Bytes().s0("A").s0("B"));
  c.chunk("LAYR", Bytes().u2(3).u2(1).f4(1).f4(2).f4(3).s0("first"));
  c.chunk("PNTS", Points({0, 0, 0, 1, 0, 0}));
  // A second PNTS: the next POLS counts from its first point.
  c.chunk("PNTS", Points({0, 1, 0, 5, 5, 5}));
  c.chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(0));
  c.chunk("ODD!", Bytes().u1(7)); // odd size, skipped as the next even size
  c.chunk("PTAG", Bytes().id("SURF").vx(0).u2(1));
  c.chunk("LAYR", Bytes().u2(7).u2(0).f4(0).f4(0).f4(0).s0("").u2(3));
  // 65281 points so that indices need the four-byte form.
  Bytes pts;
  for (int i = 0; i < 65281; ++i)
    pts.f4(float(i)).f4(0).f4(0);
  c.chunk("PNTS", pts);
  c.chunk("POLS", Bytes().id("CURV").u2(3 | (2 << 10)).vx(65280).vx(0).vx(65279));
  c.chunk("POLS", Bytes().id("PTCH").u2(3).vx(1).vx(2).vx(3));
  // PTAG indices count from the last POLS.
  c.chunk("PTAG", Bytes().id("SURF").vx(0).u2(0));
  c.chunk("PTAG", Bytes().id("SMGP").vx(0).u2(9));
  auto obj = Load(Form("LWO2", c));
  ASSERT_TRUE(obj);
  ASSERT_EQ(obj->GetLayerNbr(), 2u);
  const auto& a = obj->layers[0];
  EXPECT_EQ(a.number, 3u);
  EXPECT_FALSE(a.hasParent);
  EXPECT_FLOAT_EQ(a.pivot[2], 3.0f);
  EXPECT_EQ(PolygonVertices(a, 0), (std::vector<std::uint32_t>{2, 3, 2}));
  EXPECT_EQ(obj->surfaces[a.polygons[0].surface].name, "B");

  const auto& b = obj->layers[1];
  EXPECT_TRUE(b.hasParent);
  EXPECT_EQ(b.parent, 3u);
  ASSERT_EQ(b.GetPolygonCount(), 2u);
  EXPECT_EQ(b.polygons[0].type, lwid::CURV);
  EXPECT_EQ(b.polygons[0].flags, 2u);
  EXPECT_EQ(PolygonVertices(b, 0), (std::vector<std::uint32_t>{65280, 0, 65279}));
  EXPECT_EQ(b.polygons[1].type, lwid::PTCH);
  // Untagged polygons take the first tag; the tagged one is polygon 1.
  EXPECT_EQ(obj->surfaces[b.polygons[0].surface].name, "A");
  EXPECT_EQ(obj->surfaces[b.polygons[1].surface].name, "A");
  ASSERT_EQ(b.smoothingGroups.size(), 2u);
  EXPECT_EQ(b.smoothingGroups[1], 9u);
  EXPECT_FLOAT_EQ(b.bbox[3], 65280.0f);
}

TEST(LwoChunks, BoundingBoxOverEveryPointChunkUnlessTheFileGivesOne) {
  Bytes c;
  c.chunk("LAYR", Bytes().u2(0).u2(0).f4(0).f4(0).f4(0).s0(""));
  c.chunk("PNTS", Points({1, -2, 3, 4, 5, -6}));
  c.chunk("PNTS", Points({-7, 8, 0}));
  c.chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(0).u2(0));
  c.chunk("LAYR", Bytes().u2(1).u2(0).f4(0).f4(0).f4(0).s0(""));
  c.chunk("BBOX", Bytes().f4(-1).f4(-1).f4(-1).f4(1).f4(1).f4(1));
  c.chunk("PNTS", Points({9, 9, 9}));
  c.chunk("LAYR", Bytes().u2(2).u2(0).f4(0).f4(0).f4(0).s0(""));
  c.chunk("PNTS", Points({2, 2, 2}));
  c.chunk("BBOX", Bytes().f4(0).f4(0).f4(0).f4(3).f4(3).f4(3));
  c.chunk("PNTS", Points({5, 5, 5}));
  c.chunk("LAYR", Bytes().u2(3).u2(0).f4(0).f4(0).f4(0).s0(""));
  auto obj = Load(Form("LWO2", c));
  ASSERT_TRUE(obj);
  ASSERT_EQ(obj->GetLayerNbr(), 4u);
  auto box = [&](std::size_t i) {
    return std::vector<float>(obj->layers[i].bbox, obj->layers[i].bbox + 6);
  };
  EXPECT_EQ(box(0), (std::vector<float>{-7, -2, -6, 4, 8, 3}));
  // A BBOX chunk wins whether it comes before or after the points.
  EXPECT_EQ(box(1), (std::vector<float>{-1, -1, -1, 1, 1, 1}));
  EXPECT_EQ(box(2), (std::vector<float>{0, 0, 0, 3, 3, 3}));
  EXPECT_EQ(box(3), (std::vector<float>(6, 0.0f)));
}

TEST(LwoChunks, VertexMapsPerPointAndPerPolygon) {
  Bytes c = SquareChunks();
  c.chunk("VMAP", Bytes().id("TXUV").u2(2).s0("uv").vx(1).f4(0.5f).f4(0.25f).vx(3).f4(1).f4(1));
  // Per-polygon value for point 1 of polygon 0, and an entry whose point is
  // not in its polygon (ignored).
  c.chunk("VMAD", Bytes().id("TXUV").u2(2).s0("uv").vx(1).vx(0).f4(9).f4(8));
  c.chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(2));
  Bytes rgba = Bytes().id("RGBA").u2(4).s0("col");
  rgba.vx(3).vx(0).f4(1).f4(1).f4(1).f4(1).vx(2).vx(0).f4(0.5f).f4(0).f4(0).f4(1);
  c.chunk("VMAD", rgba);
  auto obj = Load(Form("LWO2", c));
  ASSERT_TRUE(obj);
  const auto& layer = obj->layers[0];
  ASSERT_EQ(layer.vmaps.size(), 3u);
  const auto& vmap = layer.vmaps[0];
  EXPECT_FALSE(vmap.perPolygon);
  EXPECT_EQ(vmap.dimension, 2u);
  EXPECT_EQ(vmap.attached, (std::vector<std::int32_t>{-1, 0, -1, 1}));
  EXPECT_FLOAT_EQ(vmap.Value(0)[1], 0.25f);
  const auto& vmad = layer.vmaps[1];
  EXPECT_TRUE(vmad.perPolygon);
  ASSERT_EQ(vmad.attached.size(), 7u); // one slot per polygon vertex
  EXPECT_EQ(vmad.attached[1], 0);      // polygon 0, vertex 1
  // The second VMAD counts polygons from the triangle (polygon 1, vertices 4..6).
  const auto& col = layer.vmaps[2];
  EXPECT_EQ(col.polygons, (std::vector<std::uint32_t>{1, 1}));
  EXPECT_EQ(col.attached, (std::vector<std::int32_t>{-1, -1, -1, -1, -1, -1, 1}));
}

TEST(LwoChunks, SurfacesBlocksClipsAndEnvelopes) {
  Bytes c = SquareChunks();
  c.chunk("CLIP", Bytes()
                      .u4(5)
                      .chunk("STIL", Bytes().s0("maps/wood.png"), true)
                      .chunk("FLAG", Bytes().u4(0), true));
  c.chunk("CLIP",
          Bytes().u4(6).chunk(
              "ISEQ", Bytes().u1(3).u1(0).u2(0).u2(0).u2(0).u2(9).s0("seq").s0(".png"), true));
  c.chunk("ENVL", Bytes()
                      .vx(1)
                      .chunk("TYPE", Bytes().u2(0x0400), true)
                      .chunk("KEY ", Bytes().f4(0).f4(1), true)
                      .chunk("KEY ", Bytes().f4(1).f4(2), true));
  Bytes header;
  header.s0("\x80")
      .chunk("CHAN", Bytes().id("COLR"), true)
      .chunk("ENAB", Bytes().u2(1), true)
      .chunk("OPAC", Bytes().u2(0).f4(0.5f).vx(0), true);
  Bytes tmap;
  tmap.chunk("CNTR", Bytes().f4(0).f4(0).f4(0).vx(0), true).chunk("OREF", Bytes().s0("x"), true);
  Bytes blok;
  blok.chunk("IMAP", header, true)
      .chunk("TMAP", tmap, true)
      .chunk("PROJ", Bytes().u2(5), true)
      .chunk("AXIS", Bytes().u2(1), true)
      .chunk("IMAG", Bytes().vx(5), true)
      .chunk("VMAP", Bytes().s0("uv"), true)
      .chunk("WRAP", Bytes().u2(1).u2(1), true);
  Bytes proc;
  proc.chunk("PROC", Bytes().s0("\x80").chunk("CHAN", Bytes().id("DIFF"), true), true)
      .chunk("FUNC", Bytes().s0("Turbulence").u4(0), true);
  Bytes surf;
  surf.s0("Red")
      .s0("Base")
      .chunk("COLR", Bytes().f4(1).f4(0.5f).f4(0.25f).vx(0), true)
      .chunk("SIDE", Bytes().u2(3), true)
      .chunk("NODS", Bytes().u1(1).u1(2).u1(3), true) // unknown, odd size
      .chunk("BLOK", blok, true)
      .chunk("BLOK", proc, true)
      .chunk("VCOL", Bytes().f4(0.75f).vx(0).id("RGBA").s0("col"), true);
  c.chunk("SURF", surf);
  auto obj = Load(Form("LWO2", c));
  ASSERT_TRUE(obj);
  ASSERT_EQ(obj->clips.size(), 2u);
  EXPECT_EQ(obj->clips[0].fileName, "maps/wood.png");
  EXPECT_EQ(obj->clips[1].type, LwId("ISEQ"));
  ASSERT_EQ(obj->envelopes.size(), 1u);
  EXPECT_EQ(obj->envelopes[0].keyCount, 2u);

  ASSERT_EQ(obj->surfaces.size(), 1u); // the tag found its record
  const auto& s = obj->surfaces[0];
  EXPECT_EQ(s.source, "Base");
  EXPECT_FLOAT_EQ(s.color[1], 0.5f);
  EXPECT_EQ(s.side, 3u);
  EXPECT_EQ(s.vcolName, "col");
  EXPECT_FLOAT_EQ(s.vcolIntensity, 0.75f);
  const auto* colour = s.FindChannel(lwid::COLR);
  ASSERT_TRUE(colour);
  ASSERT_EQ(colour->blocks.size(), 1u);
  const auto& b = colour->blocks[0];
  // Sub-chunks after the nested TMAP are still read.
  EXPECT_EQ(b.clip, 5u);
  EXPECT_EQ(b.vmapName, "uv");
  EXPECT_FLOAT_EQ(b.opacity, 0.5f);
  ASSERT_TRUE(s.FindChannel(lwid::DIFF));
  EXPECT_EQ(s.FindChannel(lwid::DIFF)->blocks[0].type, lwid::PROC);
}

TEST(LwoChunks, OlderFormatWithDetailPolygonsCurvesAndTextures) {
  Bytes c;
  c.chunk("PNTS",
          Points({1, 1, 0, -1, 1, 0, -1, -1, 0, 1, -1, 0, 0, .5f, -.5f, 0, .5f, 0, 0, -.5f, 0}));
  c.chunk("SRFS", Bytes().s0("Square").s0("Triangle"));
  // A square on surface 1 with one detail triangle on surface 2, then a plain triangle.
  Bytes pols;
  for (unsigned v : {4, 1, 0, 2, 3, 0xFFFF, 1, 3, 5, 4, 6, 2, 3, 0, 1, 2, 1})
    pols.u2(v);
  c.chunk("POLS", pols);
  c.chunk("CRVS", Bytes().u2(3).u2(0).u2(1).u2(2).u2(2).u2(3));
  Bytes surf;
  surf.s0("Square")
      .chunk("COLR", Bytes().u1(200).u1(100).u1(0).u1(0), true)
      .chunk("FLAG", Bytes().u2(0x104), true)
      .chunk("DIFF", Bytes().u2(128), true)
      .chunk("VSPC", Bytes().f4(0.3f), true)
      .chunk("CTEX", Bytes().s0("Planar Image Map"), true)
      .chunk("TIMG", Bytes().s0("RAM:Laura"), true)
      .chunk("TFLG", Bytes().u2(4), true)
      .chunk("TSIZ", Bytes().f4(1).f4(1).f4(1), true);
  c.chunk("SURF", surf);
  auto obj = Load(Form("LWOB", c));
  ASSERT_TRUE(obj);
  EXPECT_EQ(obj->formType, lwid::LWOB);
  ASSERT_EQ(obj->GetLayerNbr(), 1u);
  const auto& layer = obj->layers[0];
  ASSERT_EQ(layer.GetPolygonCount(), 4u);
  EXPECT_EQ(PolygonVertices(layer, 0), (std::vector<std::uint32_t>{1, 0, 2, 3}));
  EXPECT_EQ(PolygonVertices(layer, 1), (std::vector<std::uint32_t>{5, 4, 6}));
  EXPECT_EQ(obj->surfaces[layer.polygons[0].surface].name, "Square");
  EXPECT_EQ(obj->surfaces[layer.polygons[1].surface].name, "Triangle");
  EXPECT_EQ(obj->surfaces[layer.polygons[2].surface].name, "Square");
  EXPECT_EQ(layer.polygons[3].type, lwid::CURV);
  EXPECT_EQ(layer.polygons[3].flags, 3u);
  EXPECT_EQ(obj->surfaces[layer.polygons[3].surface].name, "Triangle");

  const auto& s = obj->surfaces[obj->FindSurface("Square")];
  EXPECT_NEAR(s.color[0], 200 / 255.0f, 1e-6);
  EXPECT_FLOAT_EQ(s.diffuse, 0.5f);
  EXPECT_FLOAT_EQ(s.specular, 0.3f);
  EXPECT_EQ(s.side, 3u);
  EXPECT_GT(s.smoothingAngle, 1.5f); // smoothing flag without an angle: 89.5 degrees
  const auto* colour = s.FindChannel(lwid::COLR);
  ASSERT_TRUE(colour);
  ASSERT_EQ(colour->blocks.size(), 1u);
  EXPECT_EQ(colour->blocks[0].type, lwid::IMAP);
  EXPECT_EQ(colour->blocks[0].axis, 2u);
  const auto* clip = obj->FindClip(colour->blocks[0].clip);
  ASSERT_TRUE(clip);
  EXPECT_EQ(clip->fileName, "RAM:Laura");
}

TEST(LwoChunks, HostileInputFailsCleanly) {
  const Bytes square = SquareChunks();
  auto with = [&](const Bytes& extra) { return Form("LWO2", Bytes().raw(square).raw(extra)); };
  std::vector<std::pair<const char*, Bytes>> cases = {
      {"index past points", with(Bytes().chunk("POLS", Bytes().id("FACE").u2(1).u2(4)))},
      {"four-byte index past points",
       with(Bytes().chunk("POLS", Bytes().id("FACE").u2(1).vx(0x00FFFFFF)))},
      {"vertex list past chunk", with(Bytes().chunk("POLS", Bytes().id("FACE").u2(3).u2(0)))},
      {"vmap names missing point",
       with(Bytes().chunk("VMAP", Bytes().id("TXUV").u2(2).s0("uv").vx(4).f4(0).f4(0)))},
      {"vmad names missing polygon",
       with(Bytes().chunk("VMAD", Bytes().id("TXUV").u2(2).s0("uv").vx(0).vx(1).f4(0).f4(0)))},
      {"vmap entry cut short",
       with(Bytes().chunk("VMAP", Bytes().id("TXUV").u2(2).s0("uv").vx(0).f4(0)))},
      {"absurd vmap dimension",
       with(Bytes().chunk("VMAP", Bytes().id("TXUV").u2(0xFFFF).s0("uv").vx(0).f4(0)))},
      {"ptag names missing polygon", with(Bytes().chunk("PTAG", Bytes().id("SURF").vx(1).u2(0)))},
      {"tag past tag table", with(Bytes().chunk("PTAG", Bytes().id("SURF").vx(0).u2(1)))},
      {"points not a multiple of 12", with(Bytes().chunk("PNTS", Bytes().f4(0).f4(0)))},
      {"unterminated layer name",
       with(Bytes().chunk("LAYR", Bytes().u2(0).u2(0).f4(0).f4(0).f4(0).u1('a').u1('b')))},
      {"bbox too short", with(Bytes().chunk("BBOX", Bytes().f4(0)))},
      {"sub-chunk past surface",
       with(Bytes().chunk("SURF", Bytes().s0("Red").s0("").id("COLR").u2(40).f4(1)))},
      {"nested tmap past block",
       with(Bytes().chunk(
           "SURF",
           Bytes().s0("Red").s0("").chunk("BLOK",
                                          Bytes()
                                              .chunk("IMAP", Bytes().s0("\x80"), true)
                                              .chunk("TMAP", Bytes().id("CNTR").u2(30), true),
                                          true)))},
      {"envelope sub-chunk past chunk",
       with(Bytes().chunk("ENVL", Bytes().vx(1).id("KEY ").u2(8)))},
      {"clip sub-chunk past chunk", with(Bytes().chunk("CLIP", Bytes().u4(1).id("STIL").u2(20)))},
  };
  for (auto& [name, bytes] : cases) {
    SCOPED_TRACE(name);
    LwLoadStatus status;
    EXPECT_FALSE(Load(bytes, &status));
    EXPECT_LE(status.position, bytes.size());
  }

  // A chunk that runs past the form, and a form that runs past the file.
  Bytes overrun = Form("LWO2", square);
  auto ptag = std::search(overrun.data.begin(), overrun.data.end(), std::begin("PTAG"),
                          std::begin("PTAG") + 4);
  ptag[7] = 0x40; // the PTAG's size now runs past the form
  EXPECT_FALSE(Load(overrun));
  Bytes truncated = Form("LWO2", square);
  truncated.data.pop_back();
  EXPECT_FALSE(Load(truncated));

  // Not a Lightwave form: failure reported at position 12.
  LwLoadStatus status;
  EXPECT_FALSE(Load(Form("LWO3", square), &status));
  EXPECT_EQ(status.position, 12u);
  EXPECT_FALSE(Load(Bytes().id("FORM").u4(4)));

  // The older format: index past points, surface 0, detail count cut off.
  Bytes pts = Bytes().chunk("PNTS", Points({0, 0, 0, 1, 0, 0, 0, 1, 0}));
  for (const Bytes& pols :
       {Bytes().u2(3).u2(0).u2(1).u2(3).u2(1), Bytes().u2(3).u2(0).u2(1).u2(2).u2(0),
        Bytes().u2(3).u2(0).u2(1).u2(2).u2(0xFFFF), Bytes().u2(0xFFFF).u2(0)})
    EXPECT_FALSE(Load(Form("LWOB", Bytes().raw(pts).chunk("POLS", pols))));
}

TEST(LwoChunks, CancelStopsBetweenChunks) {
  LwLoadOptions options;
  options.cancellable = true;
  LwLoadStatus status;
  Bytes b = Form("LWO2", SquareChunks());
  SetCancel(1, 0);
  EXPECT_FALSE(LoadLightwaveObject(b.data.data(), b.size(), options, &status));
  SetCancel(0, 0);
  EXPECT_TRUE(status.cancelled);
}

TEST(LwoChunks, WriterPrimitives) {
  CLwoWriter w;
  EXPECT_EQ(w.WriteVXChunk(0xFEFF), 2);
  EXPECT_EQ(w.WriteVXChunk(0xFF00), 4);
  EXPECT_EQ(w.WriteVXChunk(0x123456), 4);
  EXPECT_EQ(w.GetBuffer(), (std::vector<std::uint8_t>{0xFE, 0xFF, 0xFF, 0x00, 0xFF, 0x00, 0xFF,
                                                      0x12, 0x34, 0x56}));
  EXPECT_TRUE(w.IsValid());
  EXPECT_EQ(w.WriteVXChunk(0x1000000), 0);
  EXPECT_FALSE(w.IsValid());

  // An odd length gets a pad byte that the size field counts.
  CLwoWriter c;
  {
    auto chunk = c.BeginChunk(LwId("ABCD"));
    c.U8(7);
  }
  EXPECT_EQ(c.GetBuffer(), (std::vector<std::uint8_t>{'A', 'B', 'C', 'D', 0, 0, 0, 2, 7, 0}));
  CLwoWriter s;
  s.WriteFloatEnvChunk(1.0f, lwid::DIFF);
  s.WriteString("abc");
  s.WriteString("ab");
  EXPECT_EQ(s.GetBuffer(),
            (std::vector<std::uint8_t>{'D', 'I', 'F', 'F', 0,   6, 0x3F, 0x80, 0, 0,
                                       0,   0,   'a', 'b', 'c', 0, 'a',  'b',  0, 0}));
}

TEST(LwoChunks, WriteThenReadKeepsEverything) {
  st_lwObject obj;
  obj.tags = {"Mat", "Other"};
  obj.clips.push_back({0, lwid::STIL, "images/a.png"});
  st_lwLayer& layer = obj.layers.emplace_back();
  layer.number = 0;
  layer.flags = 1;
  layer.name = "Body";
  layer.parent = 0xFFFF;
  for (int i = 0; i < 70000; ++i)
    layer.points.push_back({{float(i), float(i % 7), -float(i)}});
  // Two runs: FACEs, then a PTCH.
  auto addPoly = [&](std::uint32_t type, std::vector<std::uint32_t> v, std::uint32_t tag) {
    st_lwPolygon p;
    p.type = type;
    p.tag = tag;
    p.firstVertex = std::uint32_t(layer.polygonVertices.size());
    p.vertexCount = std::uint16_t(v.size());
    layer.polygonVertices.insert(layer.polygonVertices.end(), v.begin(), v.end());
    layer.polygons.push_back(p);
  };
  addPoly(lwid::FACE, {2, 1, 0}, 0);
  addPoly(lwid::FACE, {69999, 65280, 3}, 1);
  addPoly(lwid::PTCH, {4, 5, 6, 7}, 1);
  st_lwVMap uv;
  uv.type = lwid::TXUV;
  uv.dimension = 2;
  uv.name = "UV Texture 0";
  uv.perPolygon = true;
  uv.points = {2, 65280, 6};
  uv.polygons = {0, 1, 2};
  uv.values = {0.1f, -0.2f, 0.3f, 0.4f, 0.5f, 0.6f};
  layer.vmaps.push_back(uv);
  st_lwSurface& s = obj.surfaces.emplace_back();
  s.name = "Mat";
  s.color[0] = 0.25f;
  s.smoothingAngle = 0.5f;
  st_lwBlock b;
  b.type = lwid::IMAP;
  b.projection = 5;
  b.axis = 2;
  b.clip = 0;
  b.vmapName = "UV Texture 0";
  s.GetChannel(lwid::COLR).blocks.push_back(b);
  s.vcolName = "VC Texture 1";
  obj.surfaces.emplace_back().name = "Other";

  CLwoWriter w;
  ASSERT_EQ(WriteLightwaveObject(obj, w), LwWriteResult::Ok);
  const auto& bytes = w.GetBuffer();
  // Chunk order: TAGS, CLIP, LAYR, PNTS, POLS, PTAG, VMAD, POLS, PTAG, VMAD, SURF, SURF.
  std::vector<std::string> order;
  for (std::size_t pos = 12; pos + 8 <= bytes.size();) {
    order.push_back(std::string(bytes.begin() + pos, bytes.begin() + pos + 4));
    std::uint32_t size =
        (bytes[pos + 4] << 24) | (bytes[pos + 5] << 16) | (bytes[pos + 6] << 8) | bytes[pos + 7];
    EXPECT_EQ(size % 2, 0u);
    pos += 8 + size;
  }
  EXPECT_EQ(order, (std::vector<std::string>{"TAGS", "CLIP", "LAYR", "PNTS", "POLS", "PTAG", "VMAD",
                                             "POLS", "PTAG", "VMAD", "SURF", "SURF"}));

  auto back = LoadLightwaveObject(bytes.data(), bytes.size());
  ASSERT_TRUE(back);
  ASSERT_EQ(back->layers.size(), 1u);
  const auto& l = back->layers[0];
  EXPECT_EQ(l.flags, 1u);
  ASSERT_EQ(l.GetPointCount(), 70000u);
  EXPECT_FLOAT_EQ(l.points[69999].pos[2], -69999.0f);
  ASSERT_EQ(l.GetPolygonCount(), 3u);
  EXPECT_EQ(PolygonVertices(l, 1), (std::vector<std::uint32_t>{69999, 65280, 3}));
  EXPECT_EQ(l.polygons[2].type, lwid::PTCH);
  EXPECT_EQ(back->surfaces[l.polygons[0].surface].name, "Mat");
  EXPECT_EQ(back->surfaces[l.polygons[2].surface].name, "Other");
  ASSERT_EQ(l.vmaps.size(), 2u); // the VMAD was split by polygon runs
  EXPECT_EQ(l.vmaps[0].polygons, (std::vector<std::uint32_t>{0, 1}));
  EXPECT_EQ(l.vmaps[1].polygons, (std::vector<std::uint32_t>{2}));
  EXPECT_EQ(l.vmaps[1].points, (std::vector<std::uint32_t>{6}));
  EXPECT_FLOAT_EQ(l.vmaps[0].values[1], -0.2f);
  ASSERT_EQ(back->surfaces.size(), 2u);
  const auto& bs = back->surfaces[0];
  EXPECT_FLOAT_EQ(bs.smoothingAngle, 0.5f);
  EXPECT_EQ(bs.vcolType, lwid::RGBA);
  ASSERT_TRUE(bs.FindChannel(lwid::COLR));
  EXPECT_EQ(bs.FindChannel(lwid::COLR)->blocks[0].vmapName, "UV Texture 0");
}

TEST(LwoChunks, ClipNameConversions) {
  EXPECT_EQ(LwClipNameToLocal("maps/wood.png"), ".\\maps\\wood.png");
  EXPECT_EQ(LwClipNameToLocal("HQ:ASSIMP/earth.jpg"), "HQ:\\ASSIMP\\earth.jpg");
  EXPECT_EQ(LwClipNameToLocal("C:/dir/a.png"), "C:\\dir\\a.png");
  EXPECT_EQ(LwLocalNameToClip("\\abs\\a.png"), "/abs/a.png");
  // The local form with the platform's separators converts the same way.
  EXPECT_EQ(LwLocalNameToClip("./maps/wood.png"), "maps/wood.png");
  EXPECT_EQ(LwLocalNameToClip("HQ:/ASSIMP/earth.jpg"), "HQ:ASSIMP/earth.jpg");
  for (const char* name : {"boxuv.png", "maps/wood.png", "HQ:ASSIMP/earth.jpg"})
    EXPECT_EQ(LwLocalNameToClip(LwClipNameToLocal(name)), name);
}

namespace {

// Loads with every point and per-point map chunk on the second thread, or none.
std::unique_ptr<st_lwObject> LoadLane(const Bytes& b, bool lane, LwLoadStatus& status) {
  LwLoadOptions options;
  options.laneBytes = lane ? 0 : std::size_t(-1);
  return LoadLightwaveObject(b.data.data(), b.size(), options, &status);
}

void ExpectSameLayers(const st_lwObject& a, const st_lwObject& b) {
  ASSERT_EQ(a.layers.size(), b.layers.size());
  for (std::size_t i = 0; i < a.layers.size(); ++i) {
    const st_lwLayer& x = a.layers[i];
    const st_lwLayer& y = b.layers[i];
    ASSERT_EQ(x.points.size(), y.points.size());
    EXPECT_EQ(std::memcmp(x.points.data(), y.points.data(), x.points.size() * sizeof(st_lwPoint)),
              0);
    EXPECT_EQ(std::memcmp(x.bbox, y.bbox, sizeof x.bbox), 0);
    EXPECT_EQ(x.polygonVertices, y.polygonVertices);
    ASSERT_EQ(x.polygons.size(), y.polygons.size());
    for (std::size_t p = 0; p < x.polygons.size(); ++p)
      EXPECT_TRUE(x.polygons[p].surface == y.polygons[p].surface &&
                  x.polygons[p].firstVertex == y.polygons[p].firstVertex);
    ASSERT_EQ(x.vmaps.size(), y.vmaps.size());
    for (std::size_t m = 0; m < x.vmaps.size(); ++m) {
      EXPECT_EQ(x.vmaps[m].name, y.vmaps[m].name);
      EXPECT_EQ(x.vmaps[m].points, y.vmaps[m].points);
      EXPECT_EQ(x.vmaps[m].values, y.vmaps[m].values);
      EXPECT_EQ(x.vmaps[m].attached, y.vmaps[m].attached);
    }
  }
}

// Both ways of loading fail on file, naming the same chunk, byte and reason.
template <class Loader> void ExpectSameFailure(const Bytes& file, Loader load) {
  LwLoadStatus a, b;
  EXPECT_FALSE(load(file, false, a));
  EXPECT_FALSE(load(file, true, b));
  EXPECT_EQ(a.chunkId, b.chunkId);
  EXPECT_EQ(a.position, b.position);
  EXPECT_EQ(a.detail, b.detail);
  EXPECT_FALSE(b.detail.empty());
}

} // namespace

TEST(LwoChunks, SecondThreadChunksReadAsInOrder) {
  // Two layers; the second has two point chunks with maps between them, a
  // box and a per-polygon map that must wait for the chunks before them.
  auto square = [](float z) { return Points({0, 0, z, 1, 0, z, 1, 1, z, 0, 1, z}); };
  auto uv = [](const char* name, std::initializer_list<int> points) {
    Bytes b;
    b.id("TXUV").u2(2).s0(name);
    for (int p : points)
      b.vx(std::uint32_t(p)).f4(0.5f * float(p)).f4(0.25f);
    return b;
  };
  Bytes good;
  good.chunk("TAGS", Bytes().s0("Red"));
  good.chunk("LAYR", Bytes().u2(0).u2(0).f4(0).f4(0).f4(0).s0("a"));
  good.chunk("PNTS", square(0));
  good.chunk("VMAP", uv("uv", {0, 1, 2, 3}));
  good.chunk("VMAP", Bytes().id("RGB ").u2(3).s0("rgb").vx(2).f4(1).f4(0).f4(0));
  good.chunk("POLS", Bytes().id("FACE").u2(4).u2(0).u2(1).u2(2).u2(3));
  good.chunk("PTAG", Bytes().id("SURF").vx(0).u2(0));
  good.chunk("LAYR", Bytes().u2(1).u2(0).f4(0).f4(0).f4(0).s0("b"));
  good.chunk("PNTS", square(1));
  good.chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(2));
  good.chunk("PNTS", square(2));
  good.chunk("VMAP", uv("uv", {0, 3}));
  good.chunk("POLS", Bytes().id("FACE").u2(3).u2(1).u2(2).u2(3));
  good.chunk("VMAD", Bytes().id("TXUV").u2(2).s0("uv").vx(1).vx(0).f4(1).f4(1));
  good.chunk("BBOX", Points({-1, -1, -1, 1, 1, 1}));
  good.chunk("PNTS", square(3));
  good.chunk("VMAP", uv("uv", {2}));
  good.chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(2));
  LwLoadStatus s1, s2;
  auto seq = LoadLane(Form("LWO2", good), false, s1);
  auto par = LoadLane(Form("LWO2", good), true, s2);
  ASSERT_TRUE(seq && par);
  ExpectSameLayers(*seq, *par);
  EXPECT_EQ(par->layers[1].points.size(), 12u);
  EXPECT_EQ(par->layers[1].vmaps.size(), 3u);

  // Failures name the first bad chunk in file order, wherever it was read:
  // a bad map before a bad polygon chunk, a bad polygon chunk before a bad
  // map, a bad map before a bad box, and a map past a point chunk.
  auto bad = [&](std::initializer_list<std::pair<const char*, Bytes>> chunks) {
    Bytes b;
    b.chunk("PNTS", square(0));
    for (const auto& [id, body] : chunks)
      b.chunk(id, body);
    return Form("LWO2", b);
  };
  const Bytes badMap = uv("uv", {0, 9});
  const Bytes badPols = Bytes().id("FACE").u2(3).u2(0).u2(1).u2(7);
  for (const Bytes& file :
       {bad({{"VMAP", badMap}, {"POLS", badPols}}), bad({{"POLS", badPols}, {"VMAP", badMap}}),
        bad({{"VMAP", uv("uv", {1})}, {"VMAP", badMap}, {"BBOX", Bytes().f4(1)}}),
        bad({{"PNTS", square(1)}, {"VMAP", uv("uv", {8})}, {"LAYR", Bytes().u2(0)}})})
    ExpectSameFailure(file, LoadLane);

  // The sample files read the same either way.
  for (const std::string& path : SampleFiles()) {
    SCOPED_TRACE(path);
    Bytes file;
    file.data = ReadFileBytes(path);
    auto x = LoadLane(file, false, s1);
    auto y = LoadLane(file, true, s2);
    ASSERT_EQ(bool(x), bool(y));
    if (x)
      ExpectSameLayers(*x, *y);
  }
}

namespace {

std::unique_ptr<st_lwObject> LoadViews(const Bytes& b, bool views, LwLoadStatus& status) {
  LwLoadOptions options;
  options.polygonNormals = options.pointPolygons = options.vertexNormals = false;
  options.polygonSpans = views;
  return LoadLightwaveObject(b.data.data(), b.size(), options, &status);
}

// What a walk over the layer sees: type, surface and vertices of each polygon.
std::vector<std::vector<std::uint32_t>> Walked(const st_lwLayer& layer) {
  std::vector<std::vector<std::uint32_t>> out;
  std::vector<std::uint32_t> types(layer.GetPolygonCount());
  for (const LwPolygonRun& run : LwPolygonRuns(layer))
    for (std::size_t p = run.first; p < run.end; ++p)
      types[p] = run.type;
  for (LwPolygonWalk walk(layer, 0); walk.Index() < layer.GetPolygonCount(); walk.Next()) {
    std::vector<std::uint32_t> row{types[walk.Index()], walk.Surface()};
    row.insert(row.end(), walk.Vertices(), walk.Vertices() + walk.Count());
    out.push_back(std::move(row));
  }
  return out;
}

} // namespace

TEST(LwoChunks, BytesLeftInTheFileReadAsDecoded) {
  auto square = [](float z) { return Points({0, 0, z, 1, 0, z, 1, 1, z, 0, 1, z}); };
  // Spans of several types, a line among them, untagged polygons, a second
  // point chunk and a per-polygon map that force decoding in the second layer.
  Bytes good;
  good.chunk("TAGS", Bytes().s0("Red").s0("Blue"));
  good.chunk("LAYR", Bytes().u2(0).u2(0).f4(0).f4(0).f4(0).s0("a"));
  good.chunk("PNTS", square(0));
  good.chunk("POLS", Bytes().id("FACE").u2(4).u2(0).u2(1).u2(2).u2(3).u2(2).u2(0).u2(2));
  good.chunk("PTAG", Bytes().id("SURF").vx(1).u2(1).vx(0).u2(1));
  good.chunk("POLS", Bytes().id("FACE").u2(3).u2(3).u2(2).u2(1));
  good.chunk("POLS", Bytes().id("CURV").u2(3).u2(0).u2(1).u2(2));
  good.chunk("POLS", Bytes().id("FACE"));
  good.chunk("POLS", Bytes().id("PTCH").u2(0x0403).u2(1).u2(2).u2(3));
  good.chunk("PTAG", Bytes().id("SURF").vx(0).u2(1));
  good.chunk("LAYR", Bytes().u2(1).u2(0).f4(0).f4(0).f4(0).s0("b"));
  good.chunk("PNTS", square(1));
  good.chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(2));
  good.chunk("PNTS", square(2));
  good.chunk("POLS", Bytes().id("FACE").u2(3).u2(1).u2(2).u2(3));
  good.chunk("VMAD", Bytes().id("TXUV").u2(2).s0("uv").vx(1).vx(0).f4(1).f4(1));
  good.chunk("PTAG", Bytes().id("SURF").vx(0).u2(1));

  std::vector<Bytes> files{Form("LWO2", good)};
  for (const std::string& path : SampleFiles()) {
    files.emplace_back();
    files.back().data = ReadFileBytes(path);
  }
  for (const Bytes& file : files) {
    LwLoadStatus s1, s2;
    auto decoded = LoadViews(file, false, s1);
    auto viewed = LoadViews(file, true, s2);
    ASSERT_EQ(bool(decoded), bool(viewed));
    if (!decoded)
      continue;
    ASSERT_EQ(decoded->layers.size(), viewed->layers.size());
    EXPECT_EQ(decoded->surfaces.size(), viewed->surfaces.size());
    for (std::size_t i = 0; i < decoded->layers.size(); ++i) {
      const st_lwLayer& x = decoded->layers[i];
      st_lwLayer& y = viewed->layers[i];
      ASSERT_EQ(x.GetPointCount(), y.GetPointCount());
      for (std::size_t p = 0; p < x.GetPointCount(); ++p) {
        float a[3], b[3];
        x.GetPoint(p, a);
        y.GetPoint(p, b);
        EXPECT_EQ(std::memcmp(a, b, sizeof a), 0);
      }
      EXPECT_EQ(Walked(x), Walked(y));
      // A walk from inside a run, and the spans decoded after the fact.
      if (y.GetPolygonCount() > 1) {
        LwPolygonWalk walk(y, 1);
        EXPECT_EQ(walk.Surface(), x.polygons[1].surface);
        EXPECT_EQ(std::vector<std::uint32_t>(walk.Vertices(), walk.Vertices() + walk.Count()),
                  PolygonVertices(x, 1));
      }
      y.DecodeSpans();
      EXPECT_EQ(x.polygonVertices, y.polygonVertices);
      ASSERT_EQ(x.polygons.size(), y.polygons.size());
      for (std::size_t p = 0; p < x.polygons.size(); ++p)
        EXPECT_TRUE(x.polygons[p].surface == y.polygons[p].surface &&
                    x.polygons[p].type == y.polygons[p].type &&
                    x.polygons[p].flags == y.polygons[p].flags);
    }
  }
  LwLoadStatus status;
  auto first = LoadViews(Form("LWO2", good), true, status);
  ASSERT_TRUE(first) << status.detail;
  ASSERT_EQ(first->layers.size(), 2u);
  EXPECT_EQ(first->layers[0].polygonSpans.size(), 5u);
  EXPECT_TRUE(first->layers[0].points.empty());
  // The second layer's map names polygons and its points come in two chunks.
  EXPECT_TRUE(first->layers[1].polygonSpans.empty());
  EXPECT_EQ(first->layers[1].points.size(), 8u);

  // Failures are the same, at the same byte.
  const Bytes pts = Bytes().chunk("TAGS", Bytes().s0("Red")).chunk("PNTS", square(0));
  for (const Bytes& body :
       {Bytes().id("FACE").u2(3).u2(0).u2(1).u2(4), Bytes().id("FACE").u2(3).u2(0).u2(1),
        Bytes().id("FACE").u2(2).u2(0).u1(0xFF), Bytes().id("FACE").u2(1).vx(0x00FFFFFF)})
    ExpectSameFailure(Form("LWO2", Bytes().raw(pts).chunk("POLS", body)), LoadViews);
  const Bytes tri = Bytes().raw(pts).chunk("POLS", Bytes().id("FACE").u2(3).u2(0).u2(1).u2(2));
  for (const Bytes& ptag : {Bytes().id("SURF").vx(1).u2(0), Bytes().id("SURF").vx(0).u2(3)})
    ExpectSameFailure(Form("LWO2", Bytes().raw(tri).chunk("PTAG", ptag)), LoadViews);
}

TEST(LwoChunks, IndexWidthsReadAlikeOnEveryPath) {
  // Past 65280 points indices take four bytes; polygons, tags and maps whose
  // indices all share one width are read at a fixed stride, the rest one by
  // one. Long, mixed and short polygons, enough tags for both, a map read
  // before a second point chunk adds points to its layer.
  constexpr std::uint32_t kPoints = 65290;
  Bytes pts;
  for (std::uint32_t i = 0; i < kPoints; ++i)
    pts.f4(float(i)).f4(0).f4(0);
  Bytes pols = Bytes().id("FACE");
  pols.u2(4).vx(65280).vx(65281).vx(65289).vx(65283);
  pols.u2(3).vx(65284).vx(65286).vx(7);
  pols.u2(3).vx(0).vx(65285).vx(1);
  pols.u2(3).vx(0).vx(1).vx(2);
  Bytes ptag = Bytes().id("SURF");
  for (std::uint32_t p = 0; p < 4; ++p)
    ptag.vx(p).u2(std::uint16_t(p % 2));
  Bytes c;
  c.chunk("TAGS", Bytes().s0("Red").s0("Blue"));
  c.chunk("PNTS", pts);
  c.chunk("VMAP", Bytes().id("TXUV").u2(2).s0("uv").vx(65288).f4(1).f4(2).vx(3).f4(3).f4(4));
  c.chunk("POLS", pols);
  c.chunk("PTAG", ptag);
  c.chunk("PNTS", Points({1, 1, 1}));

  const Bytes file = Form("LWO2", c); // the viewed layer reads from it
  LwLoadStatus s1, s2;
  auto decoded = LoadViews(file, false, s1);
  auto viewed = LoadViews(file, true, s2);
  ASSERT_TRUE(decoded && viewed) << s1.detail << s2.detail;
  const st_lwLayer& layer = viewed->layers[0];
  const auto walked = Walked(layer);
  EXPECT_EQ(walked, Walked(decoded->layers[0]));
  ASSERT_EQ(walked.size(), 4u);
  EXPECT_EQ(walked[0], (std::vector<std::uint32_t>{lwid::FACE, 0, 65280, 65281, 65289, 65283}));
  EXPECT_EQ(walked[1], (std::vector<std::uint32_t>{lwid::FACE, 1, 65284, 65286, 7}));
  EXPECT_EQ(walked[2], (std::vector<std::uint32_t>{lwid::FACE, 0, 0, 65285, 1}));
  // The map is attached over every point of the layer, the late one included.
  ASSERT_EQ(layer.vmaps.size(), 1u);
  const auto& attached = layer.vmaps[0].attached;
  ASSERT_EQ(attached.size(), kPoints + 1);
  EXPECT_EQ(attached[65288], 0);
  EXPECT_EQ(attached[3], 1);
  EXPECT_EQ(std::count(attached.begin(), attached.end(), -1), std::ptrdiff_t(kPoints - 1));

  // An index out of range among uniform ones, and a tag naming a missing
  // polygon among good ones: the same failure, at the same byte, as when
  // every index is read one by one.
  Bytes badPols = Bytes().id("FACE");
  badPols.u2(3).vx(65280).vx(kPoints + 1).vx(65281);
  Bytes badTags = Bytes().id("SURF").vx(0).u2(0).vx(0).u2(0).vx(0x12345).u2(0).vx(0).u2(0);
  Bytes shortPols = Bytes().id("FACE").u2(3).vx(65280).vx(65281).vx(65282);
  const std::pair<Bytes, const char*> cases[] = {
      {Bytes().chunk("POLS", badPols), "uses point 65291"},
      {Bytes().chunk("POLS", shortPols).chunk("PTAG", badTags), "polygon 74565 of 1"}};
  for (const auto& [tail, expected] : cases) {
    Bytes file = Form("LWO2", Bytes().chunk("PNTS", pts).raw(tail));
    LwLoadStatus a, b;
    EXPECT_FALSE(LoadViews(file, false, a));
    EXPECT_FALSE(LoadViews(file, true, b));
    EXPECT_EQ(a.position, b.position);
    EXPECT_EQ(a.detail, b.detail);
    EXPECT_NE(a.detail.find(expected), std::string::npos) << a.detail;
  }
}
