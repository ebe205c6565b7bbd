#pragma once
// Polygon meshes for the primitive shapes (Cube, Sphere, Cone, Cylinder), in
// the shape's own space, with texture coordinates laid out as the VRML 1.0
// standard places a texture on each. Faces run counterclockwise seen from
// outside.

#include <array>
#include <cstdint>
#include <vector>

namespace meshcore::vrml {

// Round shapes are cut into this many segments around their axis; a sphere
// also into kSphereRings bands from pole to pole. 24 x 12 keeps a sphere's
// outline within 1% of a circle, enough that it looks round.
inline constexpr int kRoundSegments = 24;
inline constexpr int kSphereRings = 12;

struct PrimitiveMesh {
  std::vector<std::array<float, 3>> points;
  std::vector<std::array<float, 2>> texPoints; // s, t with t upwards
  // Per face: its corners as mesh points and as texture points.
  std::vector<std::vector<int>> faces;
  std::vector<std::vector<int>> texFaces;
};

PrimitiveMesh MakeCube(float width, float height, float depth);
PrimitiveMesh MakeSphere(float radius);
// parts: 1 sides, 2 top, 4 bottom.
PrimitiveMesh MakeCylinder(float radius, float height, int parts);
// parts: 1 sides, 2 bottom.
PrimitiveMesh MakeCone(float bottomRadius, float height, int parts);

} // namespace meshcore::vrml
