#pragma once
// Builds AMAPI files chunk by chunk, so that tests can make exactly the file,
// or the damage, they need.

#include "tests/support/byte_builder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace meshcore::amapitest {

using test::ByteBuilder;

struct Point {
  float x, y, z;
};

struct Info {
  std::uint8_t flags = 0;   // bit 0 open, bit 3 forces the node flag
  std::uint8_t curve = 0;   // non-zero: a curve
  std::uint8_t visible = 1; // 0 sets the node flag
  std::uint32_t skip = 0;   // 8-byte records after the points
  // Counts as written in the info record; negative: the true ones.
  long long pointCount = -1, faceCount = -1, faceWords = -1;
};

// One chunk inside an object: "blok", id, size, body. size < 0: the body's size.
inline ByteBuilder& Block(ByteBuilder& b, const char* id, const ByteBuilder& body,
                          long long size = -1) {
  b.id("blok").id(id).u4(std::uint32_t(size < 0 ? body.size() : std::uint64_t(size)));
  return b.raw(body);
}

inline ByteBuilder NameBody(const std::string& name) {
  ByteBuilder body;
  for (std::size_t i = 0; i < 20; ++i)
    body.u1(i < name.size() ? std::uint8_t(name[i]) : 0);
  return body;
}

inline ByteBuilder& Name(ByteBuilder& b, const std::string& name) {
  return Block(b, "name", NameBody(name));
}

// The three bytes as the file stores them (blue, green, red).
inline ByteBuilder& Colour(ByteBuilder& b, unsigned b0, unsigned b1, unsigned b2) {
  ByteBuilder body;
  body.u1(b0).u1(b1).u1(b2);
  return Block(b, "colr", body);
}

inline ByteBuilder GeomBody(const Info& info, const std::vector<Point>& points,
                            const std::vector<std::vector<std::uint32_t>>& faces) {
  std::uint32_t words = 0;
  for (const auto& f : faces)
    words += std::uint32_t(f.size() + 1);
  ByteBuilder body;
  body.u1(info.flags).u1(info.curve).u1(info.visible);
  body.u4(std::uint32_t(info.pointCount < 0 ? points.size() : std::uint64_t(info.pointCount)));
  body.u4(info.skip);
  body.u4(std::uint32_t(info.faceCount < 0 ? faces.size() : std::uint64_t(info.faceCount)));
  body.u4(info.faceWords < 0 ? words : std::uint32_t(info.faceWords));
  for (int i = 0; i < 5; ++i)
    body.u4(0xDEAD0000u + unsigned(i));
  for (const Point& p : points)
    body.f4(p.x).f4(p.y).f4(p.z).f4(1.0f);
  for (std::uint32_t i = 0; i < info.skip; ++i)
    body.u4(0).u4(0);
  for (const auto& f : faces) {
    body.u4(std::uint32_t(f.size()));
    for (std::uint32_t v : f)
      body.u4(v);
  }
  return body;
}

inline ByteBuilder& Geom(ByteBuilder& b, const Info& info, const std::vector<Point>& points,
                         const std::vector<std::vector<std::uint32_t>>& faces = {},
                         long long size = -1) {
  return Block(b, "geom", GeomBody(info, points, faces), size);
}

inline ByteBuilder& End(ByteBuilder& b) {
  return b.id("eof ");
}

// A whole object: its chunks followed by "eof ".
inline ByteBuilder Object(const std::string& name, const std::vector<Point>& points,
                          const std::vector<std::vector<std::uint32_t>>& faces, Info info = {}) {
  ByteBuilder b;
  Name(b, name);
  Geom(b, info, points, faces);
  return End(b);
}

// The file: magic, version, one "BLOK" "SHAP" per object, "EOF ".
inline ByteBuilder File(const std::vector<ByteBuilder>& shapes, bool end = true) {
  ByteBuilder b;
  b.id("AMAP").u4(0x00010002);
  for (const ByteBuilder& s : shapes)
    b.id("BLOK").id("SHAP").u4(std::uint32_t(s.size())).raw(s);
  if (end)
    b.id("EOF ");
  return b;
}

inline const std::vector<Point> kSquare = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};

} // namespace meshcore::amapitest
