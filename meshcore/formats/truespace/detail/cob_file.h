#pragma once
// The content of a trueSpace object file (.cob, .scn) as its chunks hold it:
// meshes with their axes and position matrix, groups, and the materials of
// each mesh, linked by chunk ids. The codec converts between this and a
// scene; the reader and the writer only deal with bytes.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace meshcore::cob {

// The file header: "Caligari V00.01" then A (ascii) or B (binary) and the
// byte order, padded with blanks to 31 bytes and a line end.
inline constexpr std::size_t kHeaderSize = 32;

// Thrown by the reader and the writer when the thread is asked to stop.
struct Cancelled {};

// One corner of a face: its vertex and its texture vertex.
struct Corner {
  std::uint32_t point = 0;
  std::uint32_t uv = 0;
};

struct Face {
  std::uint32_t first = 0; // into the node's corners
  std::uint32_t count = 0;
  std::uint32_t material = 0; // the mesh's own material number
};

// Where a node sits: its local axes (origin and three directions) and the
// position matrix (three rows of four) that takes its vertices to the world.
struct Frame {
  float center[3] = {0, 0, 0};
  float axes[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  float matrix[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
};

enum class NodeKind { Mesh, Group };

struct Node {
  NodeKind kind = NodeKind::Mesh;
  std::uint32_t id = 0;
  std::uint32_t parent = 0; // 0: none
  std::size_t offset = 0;   // of the chunk, for messages
  std::string name;         // with ",N" when the file numbers a duplicate name
  Frame frame;
  std::vector<float> points; // x y z
  std::vector<float> uvs;    // u v
  std::vector<Face> faces;   // holes are not kept: the mesh model has none
  std::vector<Corner> corners;
};

struct Material {
  std::uint32_t parent = 0; // the mesh chunk it belongs to
  std::uint32_t number = 0; // what the mesh's faces name
  char shader = 'p';        // f flat, p phong, m metal
  char facet = 'a';         // f faceted, a auto (below the angle), s smooth
  int angle = 32;           // degrees, for auto
  float rgb[3] = {1, 1, 1};
  float alpha = 1, ka = 0.1f, ks = 0.1f, exponent = 0, ior = 1;
  std::string texture; // empty: no map
  float offset[2] = {0, 0};
  float repeats[2] = {1, 1};
};

struct File {
  bool binary = false;
  std::vector<Node> nodes; // meshes and groups, in file order
  std::vector<Material> materials;
};

// Decodes either encoding. Throws codec::CFormatError for a damaged file and
// Cancelled when the thread is asked to stop.
void ReadFile(const std::uint8_t* data, std::size_t size, File& file);

// The ascii encoding: deterministic bytes, numbers that read back to the
// same floats. Throws Cancelled.
std::string WriteAscii(const File& file);

} // namespace meshcore::cob
