#pragma once
// Chunk loader for Lightwave objects of both generations ("LWOB" and "LWO2"),
// working on the whole file in memory. Every count, size and index is checked
// against its chunk before anything is allocated from it.

#include "meshcore/formats/lightwave/lwo_object.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace meshcore {

struct LwLoadOptions {
  // Finishing steps that the scene conversion does not need; a caller that
  // wants the whole in-memory object asks for them.
  bool polygonNormals = true;
  bool pointPolygons = true;
  bool vertexNormals = true; // implies the two above
  // Polled before every chunk; non-zero stops loading with failure.
  int (*shouldCancel)() = nullptr;
};

struct LwLoadStatus {
  bool cancelled = false;
  std::uint32_t chunkId = 0; // the chunk being read when loading stopped (0: header)
  std::size_t position = 0;  // the byte offset where loading stopped
};

// The object, or null when the bytes are not a valid Lightwave object (the
// status tells where reading stopped).
std::unique_ptr<st_lwObject> LoadLightwaveObject(const void* data, std::size_t size,
                                                 const LwLoadOptions& options = {},
                                                 LwLoadStatus* status = nullptr);

// Finishing steps, also usable on an object built by hand.
void LwComputeBoundingBox(st_lwLayer& layer);
void LwComputePolygonNormals(st_lwLayer& layer);
void LwBuildPointPolygons(st_lwLayer& layer);
// Needs polygon normals, point polygons and resolved surfaces.
void LwComputeVertexNormals(st_lwLayer& layer, const std::vector<st_lwSurface>& surfaces);
// Resolves the surface tags of every layer into surfaces, adding a default
// surface for a tag without a record. False when a polygon names a tag that
// does not exist.
bool LwResolveSurfaces(st_lwObject& object);
// Fills st_lwVMap::attached for every vertex map of the layer.
void LwAttachVertexMaps(st_lwLayer& layer);

} // namespace meshcore
