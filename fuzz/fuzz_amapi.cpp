// AMAPI files from arbitrary bytes, and whatever loads written out as Maya
// text with its materials.

#include "meshcore/formats/amapi/amapi_io.h"
#include "meshcore/formats/maya/maya_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meshcore;
  C3DIo io("fuzz.a3d", FILE_PARSER_SILENT);
  CAmapiIo reader(io);
  std::unique_ptr<C3DScene> scene(reader.ReadFromMemory(data, size, 0));
  if (scene) {
    CMayaIo writer(io);
    std::string text;
    if (writer.SaveToText("fuzz.ma", scene.get(), 0, text)) {
      writer.SaveMaterials(text, scene.get());
      writer.ConnectMaterials(text, scene.get());
    }
  }
  return 0;
}
