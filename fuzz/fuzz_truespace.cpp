// trueSpace files from arbitrary bytes in both encodings: the first byte
// picks the ascii or the binary header for the rest, so that the fuzzer spends
// its time on the chunks. Whatever loads is written and must read back.

#include "meshcore/formats/truespace/truespace_io.h"
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
  if (size == 0)
    return 0;
  std::vector<std::uint8_t> file;
  const std::string header =
      (data[0] & 1) ? "Caligari V00.01BLH             \n" : "Caligari V00.01ALH             \n";
  file.assign(header.begin(), header.end());
  file.insert(file.end(), data + 1, data + size);

  C3DIo io("fuzz.cob", FILE_PARSER_SILENT);
  CTruespaceIo codec(io);
  std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(file.data(), file.size(), 0));
  if (scene) {
    std::string text;
    CTruespaceIo saver(io);
    if (saver.SaveToMemory(scene.get(), 0, text)) {
      CTruespaceIo again(io);
      std::unique_ptr<C3DScene> back(again.ReadFromMemory(text.data(), text.size(), 0));
      if (!back || back->GetFaceNbr() != scene->GetFaceNbr())
        __builtin_trap();
    }
  }
  return 0;
}
