#pragma once
// The generated VRML 1.0 file the read benchmarks share: one indexed face set
// of an N x N grid of quads with texture coordinates.

#include "bench/generated_file.h"

#include <charconv>
#include <cstdio>
#include <string>

namespace meshcore::bench {

// Streamed in blocks, so that making the file does not raise the peak that the
// read is measured against.
inline void WriteVrmlGrid(const std::string& path, int n) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f)
    return;
  std::string s = "#VRML V1.0 ascii\n\nSeparator {\n  Coordinate3 {\n    point [\n";
  auto flush = [&](bool force) {
    if (force || s.size() > (1u << 20)) {
      std::fwrite(s.data(), 1, s.size(), f);
      s.clear();
    }
  };
  auto real = [&](float v) {
    char buf[32];
    s.append(buf, std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, 6).ptr);
  };
  auto integer = [&](int v) {
    char buf[16];
    s.append(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
  };
  const int side = n + 1;
  // The grid's points with their height, or (flat) their texture coordinates.
  auto points = [&](bool height) {
    for (int j = 0; j < side; ++j)
      for (int i = 0; i < side; ++i) {
        s += "      ";
        real(float(i) / float(n));
        s += ' ';
        real(float(j) / float(n));
        if (height) {
          s += ' ';
          real(float((i * 7 + j * 3) % 11) / 11.0f);
        }
        s += ",\n";
        flush(false);
      }
  };
  points(true);
  s += "    ]\n  }\n  TextureCoordinate2 {\n    point [\n";
  points(false);
  s += "    ]\n  }\n  IndexedFaceSet {\n";
  for (const char* field : {"coordIndex", "textureCoordIndex"}) {
    s += "    ";
    s += field;
    s += " [\n";
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) {
        const int a = j * side + i;
        s += "      ";
        for (int v : {a, a + 1, a + side + 1, a + side}) {
          integer(v);
          s += ", ";
        }
        s += "-1,\n";
        flush(false);
      }
    s += "    ]\n";
  }
  s += "  }\n}\n";
  flush(true);
  std::fclose(f);
}

inline const std::string& VrmlGridFile(int n) {
  return GeneratedFile("meshcore_bench_vrml_grid_" + std::to_string(n) + ".wrl",
                       [n](const std::string& path) { WriteVrmlGrid(path, n); });
}

} // namespace meshcore::bench
