#pragma once
// The codec of trueSpace object files (.cob, .scn): reads the ascii and the
// binary encoding into a scene of meshes and groups with their materials, and
// writes a scene in the ascii encoding.
//
// Holes cut into faces are dropped on reading: the mesh model has no holes.
// Lights, cameras and the file's units are not read.

#include "meshcore/io/parser_3d.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace meshcore {

class C3DScene;

// Makes CTruespaceIo the codec of "TRUE" files; called at library start.
void RegisterTruespaceCodec();

class CTruespaceIo : public C3DParser {
public:
  explicit CTruespaceIo(CFileIo& owner);
  ~CTruespaceIo() override;

  // A new scene, or null with the owner's error set: -3 for a damaged file,
  // -7 for a file without meshes, -9 when cancelled.
  C3DScene* Read(const std::string& name, unsigned flags) override;
  // 1, or 0 with -7 (nothing to write), -9 (cancelled) or the file's own failure.
  int Save(const std::string& name, C3DScene* scene, unsigned flags) override;

  C3DScene* ReadFromMemory(const void* data, std::size_t size, unsigned flags);
  int SaveToMemory(C3DScene* scene, unsigned flags, std::string& out);
};

} // namespace meshcore
