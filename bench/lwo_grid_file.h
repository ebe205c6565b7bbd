#pragma once
// The generated Lightwave object the load benchmarks share: an N x N grid of
// quads with three surfaces and a per-point texture map.

#include "meshcore/formats/lightwave/detail/lwo_writer.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

namespace meshcore::bench {

inline void WriteLwoGrid(const std::string& path, int n) {
  CLwoWriter w;
  const std::uint32_t side = std::uint32_t(n) + 1;
  auto form = w.BeginChunk(lwid::FORM);
  w.WriteID(lwid::LWO2);
  auto tags = w.BeginChunk(lwid::TAGS);
  for (const char* name : {"Red", "Green", "Blue"})
    w.WriteString(name);
  tags.Close();
  auto layr = w.BeginChunk(lwid::LAYR);
  w.WriteU2(0);
  w.WriteU2(0);
  for (int i = 0; i < 3; ++i)
    w.WriteF4(0);
  w.WriteString("grid");
  layr.Close();

  auto pnts = w.BeginChunk(lwid::PNTS);
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      w.WriteF4(float(x));
      w.WriteF4(float(y));
      w.WriteF4(float((x * 7 + y * 3) % 5) * 0.1f);
    }
  pnts.Close();

  auto vmap = w.BeginChunk(lwid::VMAP);
  w.WriteID(lwid::TXUV);
  w.WriteU2(2);
  w.WriteString("uv");
  for (std::uint32_t i = 0; i < side * side; ++i) {
    w.WriteVXChunk(i);
    w.WriteF4(float(i % side) / float(n));
    w.WriteF4(float(i / side) / float(n));
  }
  vmap.Close();

  auto pols = w.BeginChunk(lwid::POLS);
  w.WriteID(lwid::FACE);
  for (std::uint32_t y = 0; y < std::uint32_t(n); ++y)
    for (std::uint32_t x = 0; x < std::uint32_t(n); ++x) {
      std::uint32_t a = y * side + x;
      w.WriteU2(4);
      w.WriteVXChunk(a);
      w.WriteVXChunk(a + side);
      w.WriteVXChunk(a + side + 1);
      w.WriteVXChunk(a + 1);
    }
  pols.Close();

  auto ptag = w.BeginChunk(lwid::PTAG);
  w.WriteID(lwid::SURF);
  for (std::uint32_t i = 0; i < std::uint32_t(n) * std::uint32_t(n); ++i) {
    w.WriteVXChunk(i);
    w.WriteU2(std::uint16_t(i % 3));
  }
  ptag.Close();

  const float colours[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  const char* names[3] = {"Red", "Green", "Blue"};
  for (int s = 0; s < 3; ++s) {
    auto surf = w.BeginChunk(lwid::SURF);
    w.WriteString(names[s]);
    w.WriteString("");
    w.WriteColorChunk(colours[s], lwid::COLR);
    w.WriteFloatEnvChunk(1.0f, lwid::DIFF);
    surf.Close();
  }
  form.Close();

  std::FILE* f = std::fopen(path.c_str(), "wb");
  std::fwrite(w.GetBuffer().data(), 1, w.GetBuffer().size(), f);
  std::fclose(f);
}

inline const std::string& LwoGridFile(int n) {
  static std::map<int, std::string> files;
  auto& path = files[n];
  if (path.empty()) {
    path = (std::filesystem::temp_directory_path() /
            ("meshcore_bench_grid_" + std::to_string(n) + ".lwo"))
               .string();
    WriteLwoGrid(path, n);
  }
  return path;
}

} // namespace meshcore::bench
