// Feeds arbitrary text to the VRML codec (parser, walk and scene building) and
// writes whatever scene comes out: every input must end in a scene or a clean
// failure, without crashes, leaks, hangs or runaway memory.

#include "meshcore/formats/library.h"
#include "meshcore/formats/vrml/vrml_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meshcore;
  static const bool initialised = [] {
    InitMeshcore();
    return true;
  }();
  (void)initialised;
  // Most inputs should get past the header, so the fuzzer may pick one of ours.
  std::string text;
  if (size > 0 && data[0] < 2) {
    text = data[0] == 0 ? "#VRML V1.0 ascii\n" : "#Inventor V2.1 ascii\n";
    text.append(reinterpret_cast<const char*>(data) + 1, size - 1);
  } else {
    text.assign(reinterpret_cast<const char*>(data), size);
  }
  C3DIo io("fuzz.wrl", FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  CVrmlIo codec(io);
  // No folder: File nodes are not followed, so the fuzzer never reads the disk.
  std::unique_ptr<C3DScene> scene(codec.ReadFromMemory(text.data(), text.size(), 0));
  if (!scene)
    return 0;
  C3DIo out("fuzz.wrl", FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  CVrmlIo writer(out);
  std::string written;
  writer.SaveToMemory(scene.get(), 0, written);
  return 0;
}
