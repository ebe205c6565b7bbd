#pragma once
// The generated 3D Studio file the read benchmarks share: 16 meshes of
// 180 x 180 quads cut into triangles, with texture coordinates (about a
// million triangles).

#include "bench/generated_file.h"
#include "meshcore/formats/common/detail/binary_writer.h"
#include "meshcore/formats/studio3d/detail/tds_file.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace meshcore::bench {

inline constexpr int kTdsMeshes = 16;
inline constexpr int kTdsSide = 180;

inline void WriteTdsGrids(const std::string& path) {
  tds::File file;
  tds::Material& m = file.materials.emplace_back();
  m.name = "Grey";
  m.diffuse = {{0.5f, 0.5f, 0.5f}, true};
  const int n = kTdsSide + 1;
  for (int k = 0; k < kTdsMeshes; ++k) {
    tds::Mesh& mesh = file.meshes.emplace_back();
    mesh.name = "Grid" + std::to_string(k);
    for (int y = 0; y < n; ++y)
      for (int x = 0; x < n; ++x) {
        mesh.points.insert(mesh.points.end(),
                           {float(x + k * kTdsSide), float(y), float((x * 7 + y * 3) % 5) * 0.1f});
        mesh.uvs.insert(mesh.uvs.end(), {float(x) / kTdsSide, float(y) / kTdsSide});
      }
    tds::FaceGroup& group = mesh.groups.emplace_back();
    group.material = "Grey";
    for (int y = 0; y < kTdsSide; ++y)
      for (int x = 0; x < kTdsSide; ++x) {
        const auto a = std::uint16_t(y * n + x);
        const auto b = std::uint16_t(a + 1), c = std::uint16_t(a + n), d = std::uint16_t(a + n + 1);
        for (std::uint16_t v : {a, b, d, std::uint16_t(7), a, d, c, std::uint16_t(7)})
          mesh.faces.push_back(v);
      }
    for (std::size_t f = 0; f < mesh.FaceCount(); ++f)
      group.faces.push_back(std::uint16_t(f));
  }
  codec::CBinaryWriter writer(codec::ByteOrder::Little);
  tds::WriteFile(file, writer, nullptr);
  if (std::FILE* out = std::fopen(path.c_str(), "wb")) {
    std::fwrite(writer.GetBuffer().data(), 1, writer.GetBuffer().size(), out);
    std::fclose(out);
  }
}

inline const std::string& TdsGridFile() {
  return GeneratedFile("meshcore_bench_1m.3ds", WriteTdsGrids);
}

} // namespace meshcore::bench
