// 3D Studio files from arbitrary bytes: the chunk reader, the conversion into
// a scene, and the scene written and read back.

#include "meshcore/formats/studio3d/detail/tds_file.h"
#include "meshcore/formats/studio3d/studio3d_io.h"
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
  C3DIo io("fuzz.3ds", FILE_PARSER_SILENT);
  C3DStudioIo codec(io);
  std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(data, size, 0));
  if (scene) {
    std::vector<std::uint8_t> out;
    C3DStudioIo saver(io);
    if (saver.SaveToMemory(scene.get(), 0, out)) {
      tds::File file;
      std::string detail;
      // What we write must always read back.
      if (tds::ReadFile(out.data(), out.size(), file, nullptr, detail) != tds::ReadResult::Ok)
        __builtin_trap();
    }
  }
  return 0;
}
