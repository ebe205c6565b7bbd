#pragma once
// The codec of DXF drawings: reads ASCII and binary DXF of any release into a
// scene, writes a scene as R12 ASCII DXF, the release every reader accepts.
//
// How the file maps onto the model:
// - one node per layer, named after it, holding the layer's faces as one mesh
//   (a group when it has none); each line, polyline or light-weight polyline of
//   the layer is a curve in a child node of the same name;
// - faces: 3DFACE (a triangle when the fourth corner repeats the third),
//   SOLID and TRACE, polyface and polygon meshes; faces run the other way
//   round from the file's counter-clockwise order; corners shared exactly are
//   one point;
// - INSERT places a block's entities (scales, rotation, extrusion, arrays);
//   nesting is followed to a bounded depth and a block that inserts itself is
//   drawn once;
// - each colour number used becomes a material "Color <n>" with the standard
//   palette's colour; $INSUNITS is kept in the scene's custom data;
// - other entities are skipped.
// Writing: 3- and 4-corner faces as 3DFACE, larger faces as polyface meshes,
// curves as 3D polylines, colours as the nearest palette entry.

#include "meshcore/io/parser_3d.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace meshcore {

class C3DScene;

// Scene custom data: the drawing's $INSUNITS value (int).
inline constexpr unsigned kCustomDxfUnits = 0x44585555; // 'DXUU'

// Makes CDxfIo the codec of "DXF " files (".dxf").
void RegisterDxfCodec();

class CDxfIo : public C3DParser {
public:
  explicit CDxfIo(CFileIo& owner);
  ~CDxfIo() override;

  // A new scene, or null with the owner's error set: -3 for bytes that are not
  // a DXF drawing (a value that is not a number where one belongs, a pair cut
  // off, a section never closed), -9 when cancelled, -7 when nothing is drawn.
  C3DScene* Read(const std::string& name, unsigned flags) override;
  // 1, or 0 with -7 (nothing to write), -9, or the file error.
  int Save(const std::string& name, C3DScene* scene, unsigned flags) override;

  C3DScene* ReadFromMemory(const void* data, std::size_t size, unsigned flags);
  int SaveToMemory(C3DScene* scene, unsigned flags, std::string& out);
};

} // namespace meshcore
