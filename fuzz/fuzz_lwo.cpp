// Lightwave objects from arbitrary bytes: the chunk loader with every
// finishing step, then the writer on whatever loaded.

#include "meshcore/formats/lightwave/lwo_reader.h"
#include "meshcore/formats/lightwave/lwo_writer.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto obj = meshcore::LoadLightwaveObject(data, size);
  if (obj) {
    meshcore::CLwoWriter writer;
    if (meshcore::WriteLightwaveObject(*obj, writer))
      meshcore::LoadLightwaveObject(writer.GetBuffer().data(), writer.GetBuffer().size());
  }
  return 0;
}
