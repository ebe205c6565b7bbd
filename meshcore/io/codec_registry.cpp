#include "meshcore/io/codec_registry.h"

#include "meshcore/io/parser_3d.h"

#include <map>
#include <mutex>

namespace meshcore {

namespace {

struct CodecTable {
  std::mutex mutex;
  std::map<unsigned, CodecFactory> factories;
};

CodecTable& GetCodecTable() {
  static CodecTable table;
  return table;
}

} // namespace

void fileRegisterCodec(unsigned classCode, CodecFactory factory) {
  CodecTable& table = GetCodecTable();
  std::lock_guard lock(table.mutex);
  if (factory)
    table.factories[classCode] = std::move(factory);
  else
    table.factories.erase(classCode);
}

std::unique_ptr<C3DParser> fileCreateCodec(unsigned classCode, CFileIo& owner) {
  CodecFactory factory;
  {
    CodecTable& table = GetCodecTable();
    std::lock_guard lock(table.mutex);
    auto it = table.factories.find(classCode);
    if (it == table.factories.end())
      return nullptr;
    factory = it->second; // called outside the lock: codecs may be slow to build
  }
  return factory(owner);
}

bool fileHasCodec(unsigned classCode) {
  CodecTable& table = GetCodecTable();
  std::lock_guard lock(table.mutex);
  return table.factories.count(classCode) != 0;
}

} // namespace meshcore
