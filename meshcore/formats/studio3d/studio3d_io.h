#pragma once
// The codec of 3D Studio files (.3ds): reads meshes, materials and the
// keyframer's node tree into a scene, and writes a scene as triangle meshes
// within the format's 16-bit limits.

#include "meshcore/io/parser_3d.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace meshcore {

class C3DScene;

// Scene custom data: the file's master scale (units per 3D Studio unit), kept
// so that a scene written back says the same.
inline constexpr unsigned kCustomMasterScale = 0x4D53434C; // 'MSCL'

// Makes C3DStudioIo the codec of "3DST" files; called at library start.
void Register3DStudioCodec();

class C3DStudioIo : public C3DParser {
public:
  explicit C3DStudioIo(CFileIo& owner);
  ~C3DStudioIo() override;

  // A new scene, or null with the owner's error set: -3 for a damaged file,
  // -7 for a file without meshes, -9 when cancelled.
  C3DScene* Read(const std::string& name, unsigned flags) override;
  // 1, or 0 with -7 (nothing to write), -9 (cancelled) or the file's own failure.
  int Save(const std::string& name, C3DScene* scene, unsigned flags) override;

  C3DScene* ReadFromMemory(const void* data, std::size_t size, unsigned flags);
  int SaveToMemory(C3DScene* scene, unsigned flags, std::vector<std::uint8_t>& out);

  // A mesh holds at most this many points and faces; tests lower it to reach
  // the splitting cheaply.
  void SetMeshLimit(std::uint32_t limit) { m_meshLimit = limit < 3 ? 3 : limit; }

private:
  std::uint32_t m_meshLimit = 0xFFFF;
};

} // namespace meshcore
