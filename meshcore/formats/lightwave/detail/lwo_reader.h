#pragma once
// Chunk loader for Lightwave objects of both generations ("LWOB" and "LWO2"),
// working on the whole file in memory. Every count, size and index is checked
// against its chunk before anything is allocated from it.

#include "meshcore/formats/lightwave/detail/lwo_object.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace meshcore {

struct LwLoadOptions {
  // Finishing steps that the scene conversion does not need; a caller that
  // wants the whole in-memory object asks for them.
  bool polygonNormals = true;
  bool pointPolygons = true;
  bool vertexNormals = true; // implies the two above
  // Leave the polygons in the bytes as checked spans (st_lwLayer::polygonSpans)
  // for a caller that walks them once; the bytes must then outlive the
  // object. Layers with per-polygon maps are decoded all the same, and so is
  // everything when normals or point polygons are asked for.
  bool polygonSpans = false;
  // Poll the thread's cancel flag (before every chunk and every few thousand
  // records inside one) and report progress; a cancel stops loading with failure.
  bool cancellable = false;
  // Point and per-point map chunks of at least this many bytes are decoded on
  // a second thread while the polygons are read; the object and any failure
  // are the same either way. Below a megabyte the thread costs more than it saves.
  std::size_t laneBytes = std::size_t(1) << 20;
};

struct LwLoadStatus {
  bool cancelled = false;
  std::uint32_t chunkId = 0; // the chunk being read when loading stopped (0: header)
  std::size_t position = 0;  // the byte offset where loading stopped
  std::string detail;        // where and why, for the user ("PTAG at byte 1234: ...")
};

// The object, or null when the bytes are not a valid Lightwave object (the
// status tells where reading stopped). Deliberately strict: chunk sizes, point,
// polygon and tag indices are checked against the file and any mismatch fails
// the load; the older generation's "CRVS" and "PCHS" chunks are read as curves
// and patches besides the chunks every reader knows.
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
