#include "meshcore/platform/mapped_file.h"

#include "tests/support/test_env.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

namespace {

using namespace meshcore;
using namespace std::string_literals;

TEST(MappedFile, MapsRegularFilesOnlyAndUnmapsOnClose) {
  const auto dir = test::ScratchDir("mapped_file");
  const std::string content = "FORM\0\0\0\4LWO2 and more"s;
  const auto path = (dir / "data.bin").string();
  std::ofstream(path, std::ios::binary).write(content.data(), std::streamsize(content.size()));
  std::ofstream((dir / "empty.bin").string(), std::ios::binary);

  CMappedFile f;
  ASSERT_TRUE(f.Open(path));
  ASSERT_EQ(f.GetSize(), content.size());
  EXPECT_EQ(std::memcmp(f.GetData(), content.data(), content.size()), 0);
  f.Close();
  EXPECT_EQ(f.GetData(), nullptr);
  EXPECT_EQ(f.GetSize(), 0u);

  // Each failure leaves the object empty, even after a successful open.
  ASSERT_TRUE(f.Open(path));
  for (const auto& bad : {(dir / "missing.bin").string(), (dir / "empty.bin").string(),
                          dir.string(), std::string()}) {
    EXPECT_FALSE(f.Open(bad)) << bad;
    EXPECT_EQ(f.GetData(), nullptr);
    EXPECT_EQ(f.GetSize(), 0u);
  }
}

} // namespace
