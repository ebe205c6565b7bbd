#pragma once
// The generated DXF drawing the read benchmarks share: 200 000 3DFACE
// entities of a grid on two layers (about 50 MB).

#include "bench/generated_file.h"

#include <charconv>
#include <cstdio>
#include <string>

namespace meshcore::bench {

inline constexpr int kDxfFaces = 200000;

inline void WriteDxfFaces(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f)
    return;
  std::string block = "  0\nSECTION\n  2\nENTITIES\n";
  auto num = [&](float v) {
    char buf[32];
    block.append(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
    block += '\n';
  };
  const int side = 500; // quads per row
  for (int i = 0; i < kDxfFaces; ++i) {
    const int x = i % side, y = i / side;
    block += "  0\n3DFACE\n  8\n";
    block += (y & 1) ? "ODD\n" : "EVEN\n";
    const int corner[4][2] = {{x, y}, {x + 1, y}, {x + 1, y + 1}, {x, y + 1}};
    for (int c = 0; c < 4; ++c) {
      for (int axis = 0; axis < 3; ++axis) {
        block += ' ';
        block += char('1' + axis);
        block += char('0' + c);
        block += '\n';
        num(axis == 2 ? float((corner[c][0] * 7 + corner[c][1] * 3) % 5) * 0.1f
                      : float(corner[c][axis]) * 0.01f);
      }
    }
    if (block.size() > (1u << 20)) {
      std::fwrite(block.data(), 1, block.size(), f);
      block.clear();
    }
  }
  block += "  0\nENDSEC\n  0\nEOF\n";
  std::fwrite(block.data(), 1, block.size(), f);
  std::fclose(f);
}

inline const std::string& DxfFacesFile() {
  return GeneratedFile("meshcore_bench_faces.dxf", WriteDxfFaces);
}

} // namespace meshcore::bench
