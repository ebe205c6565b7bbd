#include "meshcore/formats/vrml/detail/vrml_shapes.h"

#include <cmath>

namespace meshcore::vrml {

namespace {

constexpr double kPi = 3.14159265358979323846;

// A point of the circle of radius r at height y: segment i of kRoundSegments,
// starting at -z and turning counterclockwise seen from +y (as textures wrap).
std::array<float, 3> Around(double r, double y, int i) {
  const double a = 2 * kPi * i / kRoundSegments;
  return {float(-r * std::sin(a)), float(y), float(-r * std::cos(a))};
}

int AddPoint(PrimitiveMesh& m, std::array<float, 3> p) {
  m.points.push_back(p);
  return int(m.points.size() - 1);
}

int AddTex(PrimitiveMesh& m, double s, double t) {
  m.texPoints.push_back({float(s), float(t)});
  return int(m.texPoints.size() - 1);
}

// A flat disc at height y facing up or down, textured as a circle cut from the image.
void AddCap(PrimitiveMesh& m, double r, double y, bool up) {
  std::vector<int> face, tex;
  for (int k = 0; k < kRoundSegments; ++k) {
    const int i = up ? k : (kRoundSegments - k) % kRoundSegments;
    const std::array<float, 3> p = Around(r, y, i);
    face.push_back(AddPoint(m, p));
    const double s = 0.5 + p[0] / (2 * r);
    const double t = up ? 0.5 - p[2] / (2 * r) : 0.5 + p[2] / (2 * r);
    tex.push_back(AddTex(m, s, t));
  }
  m.faces.push_back(std::move(face));
  m.texFaces.push_back(std::move(tex));
}

} // namespace

PrimitiveMesh MakeCube(float width, float height, float depth) {
  PrimitiveMesh m;
  for (int i = 0; i < 8; ++i)
    m.points.push_back({(i & 1 ? 0.5f : -0.5f) * width, (i & 2 ? 0.5f : -0.5f) * height,
                        (i & 4 ? 0.5f : -0.5f) * depth});
  for (int k = 0; k < 4; ++k)
    AddTex(m, k == 1 || k == 2 ? 1 : 0, k >= 2 ? 1 : 0);
  static constexpr int kFaces[6][4] = {{4, 5, 7, 6}, {1, 0, 2, 3}, {5, 1, 3, 7},
                                       {0, 4, 6, 2}, {6, 7, 3, 2}, {0, 1, 5, 4}};
  for (const auto& f : kFaces) {
    m.faces.push_back({f[0], f[1], f[2], f[3]});
    m.texFaces.push_back({0, 1, 2, 3});
  }
  return m;
}

PrimitiveMesh MakeSphere(float radius) {
  PrimitiveMesh m;
  const double r = radius;
  // Mesh points: the poles, then the inner rings of kRoundSegments points each.
  const int south = AddPoint(m, {0, float(-r), 0});
  const int north = AddPoint(m, {0, float(r), 0});
  auto ring = [&](int j, int i) { return 2 + (j - 1) * kRoundSegments + i % kRoundSegments; };
  for (int j = 1; j < kSphereRings; ++j) {
    const double phi = kPi * j / kSphereRings - kPi / 2;
    for (int i = 0; i < kRoundSegments; ++i) {
      std::array<float, 3> p = Around(r * std::cos(phi), r * std::sin(phi), i);
      AddPoint(m, p);
    }
  }
  // Texture points: a full grid, the seam column repeated.
  auto tex = [&](int j, int i) { return j * (kRoundSegments + 1) + i; };
  for (int j = 0; j <= kSphereRings; ++j)
    for (int i = 0; i <= kRoundSegments; ++i)
      AddTex(m, double(i) / kRoundSegments, double(j) / kSphereRings);
  for (int j = 0; j < kSphereRings; ++j)
    for (int i = 0; i < kRoundSegments; ++i) {
      if (j == 0) {
        m.faces.push_back({south, ring(1, i + 1), ring(1, i)});
        m.texFaces.push_back({tex(0, i), tex(1, i + 1), tex(1, i)});
      } else if (j == kSphereRings - 1) {
        m.faces.push_back({ring(j, i), ring(j, i + 1), north});
        m.texFaces.push_back({tex(j, i), tex(j, i + 1), tex(j + 1, i)});
      } else {
        m.faces.push_back({ring(j, i), ring(j, i + 1), ring(j + 1, i + 1), ring(j + 1, i)});
        m.texFaces.push_back({tex(j, i), tex(j, i + 1), tex(j + 1, i + 1), tex(j + 1, i)});
      }
    }
  return m;
}

PrimitiveMesh MakeCylinder(float radius, float height, int parts) {
  PrimitiveMesh m;
  const double r = radius, h = height / 2.0;
  if (parts & 1) {
    for (int i = 0; i < kRoundSegments; ++i) {
      AddPoint(m, Around(r, -h, i));
      AddPoint(m, Around(r, h, i));
    }
    for (int i = 0; i <= kRoundSegments; ++i) {
      AddTex(m, double(i) / kRoundSegments, 0);
      AddTex(m, double(i) / kRoundSegments, 1);
    }
    for (int i = 0; i < kRoundSegments; ++i) {
      const int j = (i + 1) % kRoundSegments;
      m.faces.push_back({2 * i, 2 * j, 2 * j + 1, 2 * i + 1});
      m.texFaces.push_back({2 * i, 2 * i + 2, 2 * i + 3, 2 * i + 1});
    }
  }
  if (parts & 2)
    AddCap(m, r, h, true);
  if (parts & 4)
    AddCap(m, r, -h, false);
  return m;
}

PrimitiveMesh MakeCone(float bottomRadius, float height, int parts) {
  PrimitiveMesh m;
  const double r = bottomRadius, h = height / 2.0;
  if (parts & 1) {
    const int apex = AddPoint(m, {0, float(h), 0});
    for (int i = 0; i < kRoundSegments; ++i)
      AddPoint(m, Around(r, -h, i));
    for (int i = 0; i <= kRoundSegments; ++i)
      AddTex(m, double(i) / kRoundSegments, 0);
    for (int i = 0; i < kRoundSegments; ++i)
      AddTex(m, (i + 0.5) / kRoundSegments, 1);
    for (int i = 0; i < kRoundSegments; ++i) {
      m.faces.push_back({1 + i, 1 + (i + 1) % kRoundSegments, apex});
      m.texFaces.push_back({i, i + 1, kRoundSegments + 1 + i});
    }
  }
  if (parts & 2)
    AddCap(m, r, -h, false);
  return m;
}

} // namespace meshcore::vrml
