#pragma once
// The codec of Wavefront files: reads OBJ text with its MTL material libraries
// into a scene, writes a scene as an OBJ file with an MTL library beside it.

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
