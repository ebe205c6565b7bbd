#pragma once
// The content of a 3D Studio file as its chunks hold it: meshes in world
// coordinates with their own 16-bit limits, materials, and the keyframer's
// node tree with the first key of each track. The codec converts between this
// and a scene; the reader and the writer only deal with bytes.

#include "meshcore/formats/common/detail/binary_writer.h"
#include "meshcore/formats/common/detail/byte_order.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace meshcore {
class CCancelCheck;
}

namespace meshcore::tds {

// Chunk ids.
enum : std::uint16_t {
  kMain = 0x4D4D,
  kVersion = 0x0002,
  kColorF = 0x0010,
  kColorB = 0x0011,
  kColorGammaB = 0x0012,
  kColorGammaF = 0x0013,
  kPercentI = 0x0030,
  kPercentF = 0x0031,
  kMasterScale = 0x0100,
  kEditor = 0x3D3D,
  kMeshVersion = 0x3D3E,
  kObject = 0x4000,
  kObjectHidden = 0x4010,
  kTriMesh = 0x4100,
  kPoints = 0x4110,
  kFaces = 0x4120,
  kFaceMaterial = 0x4130,
  kTexCoords = 0x4140,
  kSmoothing = 0x4150,
  kMeshMatrix = 0x4160,
  kMaterial = 0xAFFF,
  kMatName = 0xA000,
  kMatAmbient = 0xA010,
  kMatDiffuse = 0xA020,
  kMatSpecular = 0xA030,
  kMatShininess = 0xA040,
  kMatShinStrength = 0xA041,
  kMatTransparency = 0xA050,
  kMatTwoSided = 0xA081,
  kMatShading = 0xA100,
  kMatTexture = 0xA200,
  kMapFile = 0xA300,
  kMapTiling = 0xA351,
  kMapUScale = 0xA354,
  kMapVScale = 0xA356,
  kMapUOffset = 0xA358,
  kMapVOffset = 0xA35A,
  kMapRotation = 0xA35C,
  kKeyframer = 0xB000,
  kObjectNode = 0xB002,
  kKfHeader = 0xB00A,
  kKfFrames = 0xB008,
  kKfCurrent = 0xB009,
  kNodeHeader = 0xB010,
  kInstanceName = 0xB011,
  kPivot = 0xB013,
  kPositionTrack = 0xB020,
  kRotationTrack = 0xB021,
  kScaleTrack = 0xB022,
  kNodeId = 0xB030,
};

// What a node header names when the node is a group rather than a mesh.
inline constexpr const char* kDummyName = "$$$DUMMY";
inline constexpr std::uint16_t kNoParent = 0xFFFF;
// Names as the format stores them: object names, material names.
inline constexpr std::size_t kObjectNameMax = 10;
inline constexpr std::size_t kMaterialNameMax = 16;
inline constexpr std::size_t kMapNameMax = 63;
inline constexpr std::size_t kMaxCount = 0xFFFF;

struct Color {
  float rgb[3] = {0, 0, 0};
  bool set = false;
};

struct TextureMap {
  std::string file;
  float uScale = 1, vScale = 1, uOffset = 0, vOffset = 0, rotation = 0;
};

struct Material {
  std::string name;
  Color ambient, diffuse, specular;
  float shininess = 0, shinStrength = 0, transparency = 0; // 0..1
  bool twoSided = false;
  bool hasMap = false;
  TextureMap map;
};

struct FaceGroup {
  std::string material;
  std::vector<std::uint16_t> faces;
};

struct Mesh {
  std::string name;
  bool hidden = false;
  // Written from these: x, y, z per point in world coordinates; a, b, c,
  // flags per face; u, v per point (empty when none).
  std::vector<float> points;
  std::vector<std::uint16_t> faces;
  std::vector<float> uvs;
  // Read into these instead: the arrays where they lie in the file's bytes,
  // which the caller keeps alive, so that a large file is not copied twice.
  const std::uint8_t* pointBytes = nullptr;
  const std::uint8_t* faceBytes = nullptr;
  const std::uint8_t* uvBytes = nullptr;
  std::size_t pointsRead = 0, facesRead = 0, uvsRead = 0;
  std::vector<FaceGroup> groups;
  std::vector<std::uint32_t> smoothing; // one word per face, or empty
  // The local axes (x, y, z) and the origin, as rows of three.
  float matrix[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
  bool hasMatrix = false;

  std::size_t PointCount() const { return pointBytes ? pointsRead : points.size() / 3; }
  std::size_t FaceCount() const { return faceBytes ? facesRead : faces.size() / 4; }
  std::size_t UVCount() const { return uvBytes ? uvsRead : uvs.size() / 2; }
  // Coordinate k of point i, word k of face f, component k of texture point i.
  float Point(std::size_t i, unsigned k) const {
    return pointBytes ? codec::LoadF32LE(pointBytes + 12 * i + 4 * k) : points[i * 3 + k];
  }
  std::uint16_t Face(std::size_t f, unsigned k) const {
    return faceBytes ? codec::LoadU16LE(faceBytes + 8 * f + 2 * k) : faces[f * 4 + k];
  }
  float UV(std::size_t i, unsigned k) const {
    return uvBytes ? codec::LoadF32LE(uvBytes + 8 * i + 4 * k) : uvs[i * 2 + k];
  }
};

struct Node {
  std::uint16_t id = 0;
  bool hasId = false;
  std::string name;     // the mesh it shows, or kDummyName
  std::string instance; // the name of a group (or of an instance)
  std::uint16_t parent = kNoParent;
  float pivot[3] = {0, 0, 0};
  float position[3] = {0, 0, 0};
  float rotation[4] = {0, 0, 0, 1}; // angle (radians), axis
  float scale[3] = {1, 1, 1};
};

struct File {
  std::uint32_t version = 3;
  float masterScale = 1;
  bool hasMasterScale = false;
  std::vector<Material> materials;
  std::vector<Mesh> meshes;
  std::vector<Node> nodes;
};

enum class ReadResult { Ok, Cancelled, BadFormat };

// Decodes a whole file; the meshes' arrays stay in data. On BadFormat, detail says which chunk, at
// which byte, and what did not fit. cancel may be null.
ReadResult ReadFile(const void* data, std::size_t size, File& file, CCancelCheck* cancel,
                    std::string& detail);

// Encodes file; false when cancelled. Meshes must keep to the 16-bit counts.
bool WriteFile(const File& file, codec::CBinaryWriter& out, CCancelCheck* cancel);

} // namespace meshcore::tds
