// The chunk loader against real files written by other programs: what some
// of them hold, and every file truncated at every length and with bytes
// flipped. Loading and rewriting them whole is covered end to end by LightwaveIo.

#include "meshcore/formats/lightwave/detail/lwo_reader.h"

#include "lwo_test_bytes.h"

#include <gtest/gtest.h>

using namespace meshcore;
using namespace meshcore::lwtest;

TEST(LwoSamples, KnownContents) {
  auto load = [](const char* name) {
    auto bytes = ReadFileBytes(std::string(MESHCORE_SAMPLES_DIR "/lightwave/") + name);
    return LoadLightwaveObject(bytes.data(), bytes.size());
  };
  auto sub = load("Subdivision.lwo");
  ASSERT_TRUE(sub);
  EXPECT_EQ(sub->layers[0].polygons[0].type, lwid::PTCH);

  auto boxuv = load("boxuv.lwo");
  ASSERT_TRUE(boxuv);
  const auto& s = boxuv->surfaces[boxuv->FindSurface("boxSurface")];
  const auto& block = s.FindChannel(lwid::COLR)->blocks.at(0);
  EXPECT_EQ(block.vmapName, "Texture");
  ASSERT_TRUE(boxuv->FindClip(block.clip));
  EXPECT_EQ(boxuv->FindClip(block.clip)->fileName, "boxuv.png");

  auto lwob = load("lwob_sphere_with_mat_gloss_10pc.lwo");
  ASSERT_TRUE(lwob);
  EXPECT_EQ(lwob->formType, lwid::LWOB);
  EXPECT_EQ(lwob->layers[0].GetPointCount(), 266u);
  EXPECT_NEAR(lwob->surfaces[0].color[0], 1.0f, 1e-6);
  EXPECT_NEAR(lwob->surfaces[0].color[1], 128 / 255.0f, 1e-6);
}

TEST(LwoSamples, EveryPrefixLoadsOrFails) {
  for (const auto& file : SampleFiles()) {
    SCOPED_TRACE(file);
    auto bytes = ReadFileBytes(file);
    for (std::size_t n = 0; n < bytes.size(); ++n) {
      // An exact-size copy, so that a read past the prefix is a sanitizer error.
      std::vector<std::uint8_t> prefix(bytes.begin(), bytes.begin() + n);
      auto obj = LoadLightwaveObject(prefix.data(), prefix.size());
      // The form size still names the whole file, so no proper prefix loads.
      EXPECT_FALSE(obj) << n;
      // With the form size cut to match, the loader meets the cut inside a chunk.
      if (n >= 12) {
        std::uint32_t formSize = std::uint32_t(n - 8);
        for (int i = 0; i < 4; ++i)
          prefix[4 + i] = std::uint8_t(formSize >> (24 - 8 * i));
        auto cut = LoadLightwaveObject(prefix.data(), prefix.size());
        if (cut) {
          for (const auto& layer : cut->layers)
            for (auto v : layer.polygonVertices)
              ASSERT_LT(v, layer.points.size());
        }
      }
    }
  }
}

TEST(LwoSamples, FlippedBytesNeverCrash) {
  for (const auto& file : SampleFiles()) {
    SCOPED_TRACE(file);
    auto bytes = ReadFileBytes(file);
    std::uint32_t seed = 12345;
    for (int round = 0; round < 400; ++round) {
      auto copy = bytes;
      for (int k = 0; k < 1 + round % 4; ++k) {
        seed = seed * 1103515245u + 12345u;
        std::size_t at = (seed >> 8) % copy.size();
        copy[at] ^= std::uint8_t(1u << (seed % 8)) | (round % 5 == 0 ? 0xFF : 0);
      }
      auto obj = LoadLightwaveObject(copy.data(), copy.size());
      if (obj) { // whatever loaded is consistent
        for (const auto& layer : obj->layers)
          for (auto v : layer.polygonVertices)
            ASSERT_LT(v, layer.points.size());
      }
    }
  }
}
