// DXF drawings from arbitrary bytes: the codec's reading into a scene, the
// writer on whatever loaded, and the written text read once more.

#include "meshcore/formats/dxf/dxf_io.h"
#include "meshcore/formats/library.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meshcore;
  C3DIo io("fuzz.dxf", FILE_PARSER_SILENT);
  CDxfIo codec(io);
  std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(data, size, 0));
  if (scene) {
    std::string out;
    CDxfIo saver(io);
    if (saver.SaveToMemory(scene.get(), 0, out)) {
      CDxfIo again(io);
      std::unique_ptr<C3DScene> back(again.ReadFromMemory(out.data(), out.size(), 0));
    }
  }
  return 0;
}
