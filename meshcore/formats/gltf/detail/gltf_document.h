#pragma once
// The glTF 2.0 document the exporter fills, and its one encoder: JSON text
// (with the binary buffer in a file of its own) or a single GLB container.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace meshcore::gltf {

enum class ComponentType : std::uint32_t {
  UnsignedByte = 5121,
  UnsignedShort = 5123,
  UnsignedInt = 5125,
  Float = 5126,
};

enum class ViewTarget : std::uint32_t { None = 0, ArrayBuffer = 34962, ElementArrayBuffer = 34963 };

struct BufferView {
  std::size_t offset = 0;
  std::size_t length = 0;
  std::uint32_t stride = 0; // interleaved vertex records; 0 when packed
  ViewTarget target = ViewTarget::None;
};

struct Accessor {
  std::uint32_t bufferView = 0;
  std::size_t offset = 0; // within the view
  ComponentType componentType = ComponentType::Float;
  std::uint32_t count = 0;
  const char* type = "SCALAR"; // SCALAR, VEC2, VEC3, VEC4
  bool normalized = false;
  std::vector<float> min, max; // POSITION needs them; empty when not written
};

struct Primitive {
  std::vector<std::pair<const char*, std::uint32_t>> attributes; // name -> accessor
  int indices = -1;
  int material = -1;
  int mode = 4; // 4 triangles, 3 line strip
};

struct Mesh {
  std::string name;
  std::vector<Primitive> primitives;
};

struct Node {
  std::string name;
  std::vector<std::uint32_t> children;
  int mesh = -1;
  bool hasMatrix = false;
  std::array<float, 16> matrix{}; // column-major, as glTF stores it
};

struct Material {
  std::string name;
  std::array<float, 4> baseColor{1, 1, 1, 1};
  bool blend = false;
  float metallic = 0.0f;
  float roughness = 1.0f;
  bool doubleSided = true;
  int texture = -1;
};

struct Image {
  std::string name;
  std::string uri;     // a file beside the document (text form)
  int bufferView = -1; // or bytes in the buffer (binary form)
  std::string mimeType;
};

struct Texture {
  std::uint32_t source = 0;
};

struct Document {
  std::vector<Node> nodes;
  std::vector<std::uint32_t> sceneNodes; // roots of the one scene
  std::vector<Mesh> meshes;
  std::vector<Material> materials;
  std::vector<Texture> textures;
  std::vector<Image> images;
  std::vector<Accessor> accessors;
  std::vector<BufferView> bufferViews;
  std::vector<std::uint8_t> buffer;

  // Appends bytes to the buffer at a 4-byte boundary and returns their view.
  std::uint32_t AddView(const void* data, std::size_t size, ViewTarget target);
  // Room for size bytes in a new view; returns the view and the bytes to fill.
  std::pair<std::uint32_t, std::uint8_t*> AddView(std::size_t size, ViewTarget target);
  std::uint32_t AddAccessor(Accessor accessor);
};

// The JSON text; binUri names the buffer's file (empty: the GLB form, whose
// buffer has no URI).
std::string EncodeJson(const Document& doc, const std::string& binUri);
// The whole GLB container: header, JSON chunk, binary chunk.
std::vector<std::uint8_t> EncodeGlb(const Document& doc);
// The GLB container up to the binary chunk's bytes (which are doc.buffer,
// followed by `padding` zero bytes), so that the buffer is written as it is.
std::vector<std::uint8_t> EncodeGlbHead(const Document& doc, std::size_t& padding);

} // namespace meshcore::gltf
