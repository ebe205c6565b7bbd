#pragma once
// DXF drawings read into flat per-layer geometry: group-code pairs (ASCII or
// binary), the sections a 3D reader needs, and the entities that carry faces
// or lines, with block insertions expanded.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace meshcore::dxf {

struct DxfCancelled {};

// Faces and lines of one layer, in world coordinates. Colours are resolved
// colour numbers (1..255).
struct DxfLayerGeometry {
  std::string name;
  int colour = 7;
  std::vector<float> facePoints; // xyz per corner
  std::vector<std::uint32_t> faceStart{0};
  std::vector<std::uint8_t> faceColour;
  std::vector<float> linePoints;
  std::vector<std::uint32_t> lineStart{0};
  std::vector<std::uint8_t> lineColour;

  std::size_t FaceCount() const { return faceStart.size() - 1; }
  std::size_t LineCount() const { return lineStart.size() - 1; }
};

struct DxfDrawing {
  std::vector<DxfLayerGeometry> layers; // table order, then first use
  bool hasUnits = false;
  int units = 0; // $INSUNITS
};

// Reads a whole file; throws codec::CFormatError for damaged bytes and
// DxfCancelled when asked to stop.
void ReadDxf(const void* data, std::size_t size, DxfDrawing& drawing);

// The standard colour numbers as RGB; 0 and 256 (by block, by layer) read as 7.
void PaletteColour(int number, std::uint8_t rgb[3]);
// The colour number 1..255 nearest to an RGB colour.
int NearestPaletteColour(std::uint8_t r, std::uint8_t g, std::uint8_t b);

} // namespace meshcore::dxf
