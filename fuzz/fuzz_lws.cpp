// Lightwave scenes from arbitrary text: the keyword loop, the handlers and the
// placement. Object files are looked up in the current folder, where the
// fuzzer's corpus usually puts none, so the item paths run as for missing files.

#include "meshcore/formats/lightwave_scene/lightwave_scene_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meshcore;
  C3DIo io("fuzz.lws", FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  CLightwaveSceneIo codec(io);
  std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(data, size, 0, "."));
  return 0;
}
