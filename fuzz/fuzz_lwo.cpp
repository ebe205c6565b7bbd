// Lightwave objects from arbitrary bytes: the chunk loader with every
// finishing step, the writer on whatever loaded, and the codec's conversion
// into a scene and back.

#include "meshcore/formats/lightwave/detail/lwo_reader.h"
#include "meshcore/formats/lightwave/detail/lwo_writer.h"
#include "meshcore/formats/lightwave/lightwave_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meshcore;
  if (auto obj = LoadLightwaveObject(data, size)) {
    CLwoWriter writer;
    if (WriteLightwaveObject(*obj, writer) == LwWriteResult::Ok)
      LoadLightwaveObject(writer.GetBuffer().data(), writer.GetBuffer().size());
  }
  C3DIo io("fuzz.lwo", FILE_PARSER_SILENT);
  CLightwaveIo codec(io);
  std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(data, size, 0));
  if (scene) {
    std::vector<std::uint8_t> out;
    CLightwaveIo saver(io);
    if (saver.SaveToMemory(scene.get(), 0, out)) {
      CLightwaveIo again(io);
      std::unique_ptr<C3DScene> back(again.ReadFromMemory(out.data(), out.size(), 0));
    }
  }
  return 0;
}
