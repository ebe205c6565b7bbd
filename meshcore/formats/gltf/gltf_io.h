#pragma once
// glTF 2.0 export: a scene as ".gltf" (JSON with its binary buffer beside it
// as "<name>.bin") or ".glb" (one binary file), chosen by the extension.
//
// How the scene maps:
// - One root node turns the library's z-up space into glTF's y-up space (a
//   rotation of -90 degrees about x); below it every scene node becomes a
//   node with its matrix. Groups, and hidden nodes (whose geometry is not
//   written, as by the other writers), become nodes without a mesh so that
//   their children keep their placement.
// - Meshes are triangulated on a copy (the scene is not changed), one
//   primitive per material: POSITION, NORMAL (smooth within the object's
//   smoothing angle, split at sharper edges), TEXCOORD_0 from the global
//   texture channel with v flipped, COLOR_0 from the first vertex-colour
//   channel. Corners that differ in any value become separate vertices.
//   Curves become LINE_STRIP primitives.
// - Materials become metallic-roughness materials: the diffuse colour is the
//   base colour, 1 - transparency its alpha (blended when below 1), metallic
//   0, and roughness = 1 - specular factor (the library keeps no shininess
//   exponent; its specular strength is the closest measure of a glossy
//   surface). The library's materials say nothing of sidedness and old
//   formats wind faces inconsistently, so every material is double-sided. A
//   diffuse map that is a PNG or JPEG file found beside the scene's file (the
//   one it was read from or last saved to) or beside the output becomes a texture (referenced by
//   relative URI in ".gltf", embedded in ".glb"); a missing image is skipped with a warning.

#include "meshcore/io/parser_3d.h"

#include <cstdint>
#include <string>
#include <vector>

namespace meshcore {

class C3DScene;
namespace gltf {
struct Document;
}

// Registers the "GLTF" file type (".gltf", ".glb", writable) and its codec;
// called at library start.
void RegisterGltfCodec();

class CGltfIo : public C3DParser {
public:
  explicit CGltfIo(CFileIo& owner);
  ~CGltfIo() override;

  // 1, or 0 with -7 (nothing to write), -9 (cancelled) or a file error.
  int Save(const std::string& name, C3DScene* scene, unsigned flags) override;

  // The same into memory: json is the document (for ".glb", binary holds the
  // whole container and json is empty; for ".gltf", binary is the buffer).
  // outputName places relative texture URIs and names the buffer file.
  int SaveToMemory(C3DScene* scene, unsigned flags, bool glb, const std::string& outputName,
                   std::string& json, std::vector<std::uint8_t>& binary);

  // Image files named by materials but not found, from the last save.
  const std::vector<std::string>& GetMissingImages() const { return m_missingImages; }

private:
  int BuildDocument(C3DScene* scene, unsigned flags, bool glb, const std::string& outputName,
                    gltf::Document& doc);
  static std::string BufferFileName(const std::string& outputName);

  std::vector<std::string> m_missingImages;
};

} // namespace meshcore
