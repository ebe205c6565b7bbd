#pragma once
// A large Lightwave object for tests and benchmarks: an n x n grid of quads on
// one layer with a per-point texture map, in the codec's own model.

#include "meshcore/formats/lightwave/detail/lwo_object.h"

#include <cstdint>

namespace meshcore::test {

inline st_lwObject LwoGrid(int n, bool wavy = false) {
  st_lwObject object;
  object.tags = {"Grid"};
  st_lwLayer& layer = object.layers.emplace_back();
  layer.name = "grid";
  layer.parent = 0xFFFF;
  const int side = n + 1;
  st_lwVMap& uv = layer.vmaps.emplace_back();
  uv.type = lwid::TXUV;
  uv.dimension = 2;
  uv.name = "uv";
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      const float z = wavy ? float((x * 7 + y * 3) % 5) * 0.1f : 0.0f;
      layer.points.push_back({{float(x), float(y), z}});
      uv.points.push_back(std::uint32_t(y * side + x));
      uv.values.push_back(float(x) / float(n));
      uv.values.push_back(float(y) / float(n));
    }
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      const auto a = std::uint32_t(y * side + x), s = std::uint32_t(side);
      st_lwPolygon p;
      p.tag = 0;
      p.firstVertex = std::uint32_t(layer.polygonVertices.size());
      p.vertexCount = 4;
      layer.polygonVertices.insert(layer.polygonVertices.end(), {a, a + s, a + s + 1, a + 1});
      layer.polygons.push_back(p);
    }
  return object;
}

} // namespace meshcore::test
