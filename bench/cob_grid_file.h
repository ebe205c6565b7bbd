#pragma once
// The generated ascii trueSpace file the read benchmarks share: one mesh of
// 400 x 400 quads with texture coordinates (160 000 faces).

#include "bench/generated_file.h"
#include "meshcore/formats/truespace/detail/cob_file.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace meshcore::bench {

inline constexpr int kCobSide = 400;

inline void WriteCobGrid(const std::string& path) {
  cob::File file;
  cob::Node& mesh = file.nodes.emplace_back();
  mesh.id = 1;
  mesh.name = "Grid";
  const int n = kCobSide + 1;
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      mesh.points.insert(mesh.points.end(),
                         {float(x) * 0.01f, float(y) * 0.01f, float((x * 7 + y * 3) % 5) * 0.1f});
      mesh.uvs.insert(mesh.uvs.end(), {float(x) / kCobSide, float(y) / kCobSide});
    }
  for (int y = 0; y < kCobSide; ++y)
    for (int x = 0; x < kCobSide; ++x) {
      const auto a = std::uint32_t(y * n + x);
      mesh.faces.push_back({std::uint32_t(mesh.corners.size()), 4, 0});
      for (std::uint32_t v : {a, a + 1, a + 1 + std::uint32_t(n), a + std::uint32_t(n)})
        mesh.corners.push_back({v, v});
    }
  file.materials.push_back({});
  file.materials.back().parent = 1;
  const std::string text = cob::WriteAscii(file);
  if (std::FILE* out = std::fopen(path.c_str(), "wb")) {
    std::fwrite(text.data(), 1, text.size(), out);
    std::fclose(out);
  }
}

inline const std::string& CobGridFile() {
  return GeneratedFile("meshcore_bench_grid.cob", WriteCobGrid);
}

} // namespace meshcore::bench
