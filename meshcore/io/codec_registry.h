#pragma once
// Codecs by class code. The codecs live above this layer, so they register
// themselves here (RegisterBuiltinCodecs, called by InitMeshcore) and C3DIo
// looks them up when it builds the codec of an operation.

#include <functional>
#include <memory>

namespace meshcore {

class C3DParser;
class CFileIo;

using CodecFactory = std::function<std::unique_ptr<C3DParser>(CFileIo&)>;

// Registers (or replaces) the codec of a class code; an empty factory removes
// it. Call during start-up.
void fileRegisterCodec(unsigned classCode, CodecFactory factory);
// A new codec for the class, or null when none is registered.
std::unique_ptr<C3DParser> fileCreateCodec(unsigned classCode, CFileIo& owner);
bool fileHasCodec(unsigned classCode);

// Registers Codec, built from the operation that asks for it, as the codec of
// a class code: what every codec's registration function does.
template <class Codec> void fileRegisterCodecOf(unsigned classCode) {
  fileRegisterCodec(classCode, [](CFileIo& owner) -> std::unique_ptr<C3DParser> {
    return std::make_unique<Codec>(owner);
  });
}

} // namespace meshcore
