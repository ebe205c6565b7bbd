#pragma once
// The codec of Wavefront files: reads OBJ text with its MTL material libraries
// into a scene, writes a scene as an OBJ file with an MTL library beside it.
//
// How the file maps onto the model:
// - each `o`/`g` pair is a node (a `g` inside a named `o` sits under a group
//   node of that name); its faces make one mesh, each `l` a curve, its `p`
//   vertices a mesh of points without faces;
// - faces run the other way round from OBJ's counter-clockwise order;
// - `vt` fill the object's global texture channel (v negated, as the model's v
//   runs downwards), vertex colours a colour channel; `vn` a point-normal
//   channel, or a face-normal channel when points carry several normals but
//   each face one, else point normals averaged over their corners;
// - `s`: an object whose faces are all `s off` gets the smoothing angle 0,
//   others keep the library-wide angle; the group numbers are not kept;
// - an index of 0 or out of range refuses the file (the line is in the detail);
//   a face of fewer than three corners is dropped;
// - Ke, Ns, Ni, illum and bump maps have no place in the model's materials.

#include "meshcore/io/parser_3d.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace meshcore {

class C3DScene;
namespace obj {
struct ObjData;
}

// Makes CWavefrontIo the codec of "WVFT" files (".obj", and ".c4d" when it is OBJ text).
void RegisterWavefrontCodec();

class CWavefrontIo : public C3DParser {
public:
  explicit CWavefrontIo(CFileIo& owner);
  ~CWavefrontIo() override;

  // A new scene, or null with the owner's error set: -3 for bytes that are not
  // OBJ text or a statement that cannot be read (an index out of range among
  // them), -9 when cancelled, -7 when the file holds no geometry.
  C3DScene* Read(const std::string& name, unsigned flags) override;
  // Writes name and, beside it, the material library (same base name, ".mtl").
  // 1, or 0 with -7 (nothing to write), -9, or the file error.
  int Save(const std::string& name, C3DScene* scene, unsigned flags) override;

  // The same from and to memory. Libraries named by `mtllib` are looked for in
  // folder (none are read when it is empty). The OBJ names its library
  // libraryName.
  C3DScene* ReadFromMemory(const void* data, std::size_t size, unsigned flags,
                           const std::string& folder = {});
  int SaveToMemory(C3DScene* scene, unsigned flags, const std::string& libraryName,
                   std::string& obj, std::string& mtl);

private:
  bool Parse(const void* data, std::size_t size, obj::ObjData& parsed);
  C3DScene* BuildScene(const obj::ObjData& parsed, unsigned flags, const std::string& folder,
                       const std::string& self);
};

} // namespace meshcore
