#pragma once
// The generated Wavefront file the read benchmarks share: an N x N grid of
// quads with texture coordinates and normals (about 100 MB at N = 1000) and
// the material library it names.

#include "bench/generated_file.h"

#include <charconv>
#include <cstdio>
#include <string>

namespace meshcore::bench {

inline constexpr const char* kObjGridMaterials = "meshcore_bench_grid.mtl";

// Streamed in blocks, so that making the file does not raise the peak that the
// read is measured against.
inline void WriteObjGrid(const std::string& path, int n) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f)
    return;
  std::string block;
  auto flush = [&](bool force) {
    if (force || block.size() > (1u << 20)) {
      std::fwrite(block.data(), 1, block.size(), f);
      block.clear();
    }
  };
  auto num = [&](float v) {
    char buf[32];
    block.append(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
  };
  auto idx = [&](unsigned v) {
    char buf[16];
    block.append(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
  };
  const int side = n + 1;
  block += "mtllib ";
  block += kObjGridMaterials;
  block += "\no grid\n";
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      block += "v ";
      num(float(x) * 0.01f);
      block += ' ';
      num(float(y) * 0.01f);
      block += ' ';
      num(float((x * 7 + y * 3) % 5) * 0.1f);
      block += '\n';
      flush(false);
    }
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      block += "vt ";
      num(float(x) / float(n));
      block += ' ';
      num(float(y) / float(n));
      block += '\n';
      flush(false);
    }
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      const float t = float((x + y) % 7) * 0.01f;
      block += "vn ";
      num(t);
      block += ' ';
      num(-t);
      block += " 0.99\n";
      flush(false);
    }
  block += "usemtl grid\n";
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      const unsigned a = unsigned(y * side + x) + 1;
      const unsigned c[4] = {a, a + 1, a + unsigned(side) + 1, a + unsigned(side)};
      block += 'f';
      for (unsigned v : c) {
        block += ' ';
        idx(v);
        block += '/';
        idx(v);
        block += '/';
        idx(v);
      }
      block += '\n';
      flush(false);
    }
  flush(true);
  std::fclose(f);
}

inline const std::string& ObjGridFile(int n) {
  GeneratedFile(kObjGridMaterials, [](const std::string& path) {
    if (std::FILE* mtl = std::fopen(path.c_str(), "wb")) {
      std::fputs("newmtl grid\nKd 0.5 0.6 0.7\n", mtl);
      std::fclose(mtl);
    }
  });
  return GeneratedFile("meshcore_bench_grid_" + std::to_string(n) + ".obj",
                       [n](const std::string& path) { WriteObjGrid(path, n); });
}

} // namespace meshcore::bench
