// Wavefront OBJ and MTL from arbitrary bytes: the OBJ reader into a scene,
// the writer on whatever loaded and the reader again on what it wrote; the
// MTL reader on the same bytes.

#include "meshcore/formats/wavefront/detail/obj_parser.h"
#include "meshcore/formats/wavefront/wavefront_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meshcore;
  std::vector<obj::ObjMaterial> materials;
  obj::ParseMtl(reinterpret_cast<const char*>(data), size, materials);

  C3DIo io("fuzz.obj", FILE_PARSER_SILENT);
  CWavefrontIo codec(io);
  std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(data, size, 0));
  if (scene) {
    std::string obj, mtl;
    CWavefrontIo saver(io);
    if (saver.SaveToMemory(scene.get(), 0, "fuzz.mtl", obj, mtl)) {
      CWavefrontIo again(io);
      std::unique_ptr<C3DScene> back(again.ReadFromMemory(obj.data(), obj.size(), 0));
    }
  }
  return 0;
}
