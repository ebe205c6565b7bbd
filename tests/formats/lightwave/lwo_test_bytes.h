#pragma once
// Hand-assembled Lightwave bytes for the tests.

#include "tests/support/byte_builder.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace meshcore::lwtest {

using Bytes = test::ByteBuilder;
using test::ReadFileBytes;
using test::WriteFileBytes;

// FORM wrapper around the given chunks.
inline Bytes Form(const char* type, const Bytes& chunks) {
  Bytes b;
  b.id("FORM").u4(std::uint32_t(chunks.size() + 4)).id(type).raw(chunks);
  return b;
}

inline Bytes Points(std::initializer_list<float> xyz) {
  Bytes b;
  for (float f : xyz)
    b.f4(f);
  return b;
}

// The sample .lwo files, in a fixed order.
inline std::vector<std::string> SampleFiles() {
  std::vector<std::string> files;
  for (const auto& e : std::filesystem::directory_iterator(MESHCORE_SAMPLES_DIR "/lightwave"))
    if (e.path().extension() == ".lwo")
      files.push_back(e.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

} // namespace meshcore::lwtest
